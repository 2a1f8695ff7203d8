// Creation, copies, times, sizes and the text of sample buffers.
#include <imlay/pixel_buffer.h>
#include <kiv/error.h>
#include <kiv/sample_buffer.h>
#include <pevrin/attachment.h>
#include <pevrin/video_format_description.h>

#include "tests/buffers/samples/samples.hpp"

namespace {

using namespace test;

TEST(SampleBuffer, AcceptsOnlyTheCompactForms) {
  struct Case {
    int64_t samples, timing, sizes;
    PVStatus expected;
  };
  constexpr PVStatus kBad = kPVSampleBufferError_InvalidEntryCount;
  for (const Case& one : std::initializer_list<Case>{{0, 0, 0, 0},
                                                     {0, 1, 0, 0},
                                                     {0, 0, 1, kBad},
                                                     {0, 2, 0, kBad},
                                                     {1, 1, 1, 0},
                                                     {3, 1, 3, 0},
                                                     {3, 3, 1, 0},
                                                     {3, 0, 0, 0},
                                                     {3, 2, 3, kBad},
                                                     {3, 3, 2, kBad},
                                                     {3, 4, 0, kBad},
                                                     {-1, 0, 0, kBad},
                                                     {-1, -1, 0, kBad},
                                                     {3, -1, 0, kBad},
                                                     {3, 1, -1, kBad}}) {
    const PVSampleTimingInfo timing[4]{};
    const size_t sizes[4]{};
    PVSampleBufferRef sample = reinterpret_cast<PVSampleBufferRef>(&sample);
    EXPECT_EQ(PVSampleBufferCreateReady(nullptr, nullptr, nullptr, one.samples, one.timing, timing, one.sizes,
                                        sizes, &sample),
              one.expected)
        << one.samples << " " << one.timing << " " << one.sizes;
    EXPECT_EQ(sample != nullptr, one.expected == 0);
    BRRelease(sample);
  }
  PVSampleBufferRef sample;
  EXPECT_EQ(PVSampleBufferCreateReady(nullptr, nullptr, nullptr, 1, 1, nullptr, 0, nullptr, &sample), -12731);
  EXPECT_EQ(PVSampleBufferCreateReady(nullptr, nullptr, nullptr, -1, 1, nullptr, 0, nullptr, nullptr),
            -12731);
  const PVSampleTimingInfo timing{};
  EXPECT_EQ(PVSampleBufferCreateReady(nullptr, nullptr, nullptr, INT64_MAX, 1, &timing, 0, nullptr, &sample),
            0);
  BRRelease(sample);
  EXPECT_EQ(PVSampleBufferCreateReady(nullptr, nullptr, nullptr, INT64_MAX, INT64_MAX, &timing, 0, nullptr,
                                      &sample),
            kPVSampleBufferError_AllocationFailed);
}

TEST(SampleBuffer, OneEntryStandsForAllSamples) {
  const Sample sample =
      make({.samples = 4, .timing = {{at(1), at(10), at(8)}}, .sizes = {25}, .data = blockOf(100)});
  EXPECT_EQ(PVSampleBufferGetDuration(sample.get()), at(4));
  EXPECT_EQ(PVSampleBufferGetPresentationTimeStamp(sample.get()), at(10));
  PVSampleTimingInfo info;
  ASSERT_EQ(PVSampleBufferGetSampleTimingInfo(sample.get(), 2, &info), 0);
  EXPECT_EQ(info, (PVSampleTimingInfo{at(1), at(12), kPVTimeInvalid}));
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfo(sample.get(), 4, &info), -12734);
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfo(sample.get(), -1, &info), -12734);
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfo(sample.get(), 4, nullptr), -12731);
  EXPECT_EQ(PVSampleBufferGetSampleSize(sample.get(), 3), 25u);
  EXPECT_EQ(PVSampleBufferGetTotalSampleSize(sample.get()), 100u);

  // many more samples than 32 bits count
  const Sample endless =
      make({.samples = int64_t{1} << 40, .timing = {{at(1, 48000), at(0), kPVTimeInvalid}}});
  ASSERT_EQ(PVSampleBufferGetSampleTimingInfo(endless.get(), (int64_t{1} << 40) - 1, &info), 0);
  EXPECT_EQ(info.presentationTimeStamp, at((int64_t{1} << 40) - 1, 48000));
  EXPECT_EQ(PVSampleBufferGetDuration(endless.get()), at(int64_t{1} << 40, 48000));
}

TEST(SampleBuffer, EntriesOfEachSampleAddUp) {
  const Sample sample = make(threeFrames());
  EXPECT_EQ(PVSampleBufferGetDuration(sample.get()), at(3));
  EXPECT_EQ(PVSampleBufferGetPresentationTimeStamp(sample.get()), at(10));
  EXPECT_EQ(PVSampleBufferGetDecodeTimeStamp(sample.get()), at(8));
  EXPECT_EQ(PVSampleBufferGetTotalSampleSize(sample.get()), 60u);
  EXPECT_EQ(PVSampleBufferGetSampleSize(sample.get(), 1), 20u);
  EXPECT_EQ(PVSampleBufferGetSampleSize(sample.get(), 3), 0u);

  Timing timing(3);
  int64_t needed = 0;
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfoArray(sample.get(), 2, timing.data(), &needed), -12737);
  EXPECT_EQ(needed, 3);
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfoArray(sample.get(), 3, timing.data(), nullptr), 0);
  EXPECT_EQ(timing, threeFrames().timing);
  Sizes sizes(3);
  EXPECT_EQ(PVSampleBufferGetSampleSizeArray(sample.get(), 3, sizes.data(), &needed), 0);
  EXPECT_EQ(sizes, threeFrames().sizes);
}

TEST(SampleBuffer, WithoutTimingHasADurationButNoTimes) {
  const Sample sample = make({.samples = 2});
  EXPECT_EQ(PVSampleBufferGetDuration(sample.get()), kPVTimeZero);
  EXPECT_TRUE(PVTimeIsInvalid(PVSampleBufferGetPresentationTimeStamp(sample.get())));
  EXPECT_TRUE(PVTimeIsInvalid(PVSampleBufferGetOutputDecodeTimeStamp(sample.get())));
  PVSampleTimingInfo info;
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfo(sample.get(), 0, &info), -12736);
  const uint64_t errors = KivGetErrorCount();
  int64_t needed = 7;
  EXPECT_EQ(PVSampleBufferGetSampleTimingInfoArray(sample.get(), 0, nullptr, &needed), -12736);
  EXPECT_EQ(needed, 0);
  EXPECT_EQ(PVSampleBufferGetSampleSizeArray(sample.get(), 0, nullptr, &needed), -12735);
  EXPECT_EQ(KivGetErrorCount(), errors);
  EXPECT_EQ(PVSampleBufferGetSampleSize(sample.get(), 0), 0u);
  EXPECT_EQ(KivGetErrorCount(), errors + 1);
  const Sample marker = make({.samples = 0, .timing = {{at(5), at(1), at(1)}}});
  EXPECT_EQ(PVSampleBufferGetDuration(marker.get()), at(5));
}

TEST(SampleBuffer, SizesThatDoNotAddUpAreReportedOnly) {
  const uint64_t errors = KivGetErrorCount();
  make({.samples = 2, .sizes = {40, 60}, .data = blockOf(90)});
  EXPECT_EQ(KivGetErrorCount(), errors + 1);
  make({.samples = 2, .sizes = {40, 50}, .data = blockOf(90)});
  make({.samples = 2, .sizes = {40, 60}, .data = blockOf(90), .ready = false});
  EXPECT_EQ(KivGetErrorCount(), errors + 1);
}

TEST(SampleBuffer, RefusesNullAndInvalidated) {
  const Sample sample = make(threeFrames());
  ASSERT_EQ(PVSampleBufferInvalidate(sample.get()), 0);
  for (PVSampleBufferRef buffer : {static_cast<PVSampleBufferRef>(nullptr), sample.get()}) {
    const PVStatus expected = buffer ? -12744 : -12731;
    const uint64_t errors = KivGetErrorCount();
    PVSampleTimingInfo info;
    Sample copy;
    EXPECT_EQ(PVSampleBufferGetNumSamples(buffer), 0);
    EXPECT_EQ(PVSampleBufferGetFormatDescription(buffer), nullptr);
    EXPECT_EQ(PVSampleBufferGetDataBuffer(buffer), nullptr);
    EXPECT_EQ(PVSampleBufferGetImageBuffer(buffer), nullptr);
    EXPECT_TRUE(PVTimeIsInvalid(PVSampleBufferGetDuration(buffer)));
    EXPECT_TRUE(PVTimeIsInvalid(PVSampleBufferGetOutputPresentationTimeStamp(buffer)));
    EXPECT_EQ(PVSampleBufferGetTotalSampleSize(buffer), 0u);
    EXPECT_FALSE(PVSampleBufferDataIsReady(buffer));
    EXPECT_EQ(PVSampleBufferGetSampleAttachmentsArray(buffer, true), nullptr);
    EXPECT_EQ(KivGetErrorCount(), errors + 9);
    EXPECT_EQ(PVSampleBufferGetSampleTimingInfo(buffer, 0, &info), expected);
    EXPECT_EQ(PVSampleBufferSetOutputPresentationTimeStamp(buffer, at(1)), expected);
    EXPECT_EQ(PVSampleBufferCreateCopy(nullptr, buffer, copy.out()), expected);
    EXPECT_EQ(PVSampleBufferInvalidate(buffer), expected);
    EXPECT_FALSE(PVSampleBufferIsValid(buffer));
  }
  PVSetAttachment(sample.get(), "k"_br, "v"_br, 0);
  EXPECT_EQ(PVGetAttachment(sample.get(), "k"_br, nullptr), nullptr);
}

TEST(SampleBuffer, OfAnImage) {
  br::Ref<IMImageBuffer> picture;
  ASSERT_EQ(IMPixelBufferCreate(nullptr, 4, 3, 0x42475241, 16, picture.out()), 0);
  Format format, other;
  IMImageBufferRef image = picture.get();
  ASSERT_EQ(PVVideoFormatDescriptionCreateForImageBuffer(nullptr, image, format.out()), 0);
  ASSERT_EQ(PVVideoFormatDescriptionCreate(nullptr, 0x42475241, 8, 3, nullptr, other.out()), 0);
  const PVSampleTimingInfo timing{at(1), at(10), kPVTimeInvalid};
  Sample sample;
  const auto creates = [&](IMImageBufferRef of, PVFormatDescriptionRef as, const PVSampleTimingInfo* when) {
    return PVSampleBufferCreateReadyWithImageBuffer(nullptr, of, as, when, sample.out());
  };
  EXPECT_EQ(creates(nullptr, format.get(), &timing), -12731);
  EXPECT_EQ(creates(image, videoFormat().get(), nullptr), -12741);
  EXPECT_EQ(creates(image, other.get(), nullptr), -12731);
  EXPECT_EQ(creates(image, other.get(), &timing), -12743);
  EXPECT_FALSE(sample);
  ASSERT_EQ(creates(image, format.get(), &timing), 0);
  EXPECT_EQ(PVSampleBufferGetImageBuffer(sample.get()), image);
  EXPECT_EQ(PVSampleBufferGetDataBuffer(sample.get()), nullptr);
  EXPECT_EQ(PVSampleBufferGetNumSamples(sample.get()), 1);
  EXPECT_EQ(PVSampleBufferGetPresentationTimeStamp(sample.get()), at(10));
  EXPECT_EQ(PVSampleBufferSetDataBuffer(sample.get(), blockOf(4).get()), -12732);
  Sample bare;
  ASSERT_EQ(KivSampleBufferCreateCopyWithNoData(nullptr, sample.get(), bare.out()), 0);
  EXPECT_EQ(PVSampleBufferGetImageBuffer(bare.get()), nullptr);
  EXPECT_EQ(PVSampleBufferSetDataBuffer(bare.get(), blockOf(4).get()), 0);
}

TEST(SampleBuffer, CopiesShareDataAndCarryWhatPropagates) {
  const Sample sample = make(threeFrames());
  PVSetAttachment(sample.get(), "kept"_br, "yes"_br, kPVAttachmentMode_ShouldPropagate);
  PVSetAttachment(sample.get(), "left"_br, "yes"_br, kPVAttachmentMode_ShouldNotPropagate);
  setReverse(sample);
  auto* second = static_cast<BRMutableDictionaryRef>(const_cast<void*>(
      BRArrayGetValueAtIndex(PVSampleBufferGetSampleAttachmentsArray(sample.get(), true), 1)));
  BRDictionarySetValue(second, kPVSampleAttachmentKey_NotSync, kBRBooleanTrue);
  ASSERT_EQ(PVSampleBufferSetOutputPresentationTimeStamp(sample.get(), at(100)), 0);

  walkAllocationFailures([&](BRAllocatorRef allocator) {
    Sample copy;
    if (PVStatus status = PVSampleBufferCreateCopy(allocator, sample.get(), copy.out())) {
      EXPECT_EQ(status, kPVSampleBufferError_AllocationFailed);
      EXPECT_FALSE(copy);
      return Outcome::kOutOfMemory;
    }
    EXPECT_EQ(PVSampleBufferGetDataBuffer(copy.get()), PVSampleBufferGetDataBuffer(sample.get()));
    EXPECT_EQ(PVSampleBufferGetOutputPresentationTimeStamp(copy.get()), at(100));
    EXPECT_EQ(PVGetAttachment(copy.get(), "kept"_br, nullptr), "yes"_br);
    EXPECT_EQ(PVGetAttachment(copy.get(), "left"_br, nullptr), nullptr);
    auto* attachments = PVSampleBufferGetSampleAttachmentsArray(copy.get(), false);
    EXPECT_EQ(BRArrayGetCount(attachments), 3u);
    auto* copied = static_cast<BRDictionaryRef>(BRArrayGetValueAtIndex(attachments, 1));
    EXPECT_TRUE(copied != second && BREqual(copied, second));
    return Outcome::kSucceeded;
  });
  EXPECT_EQ(BRGetRetainCount(sample.get()), 1u);

  Sample moved;
  const PVSampleTimingInfo shared{at(2), at(50), at(50)};
  ASSERT_EQ(PVSampleBufferCreateCopyWithNewTiming(nullptr, sample.get(), 1, &shared, moved.out()), 0);
  EXPECT_EQ(PVSampleBufferGetDuration(moved.get()), at(6));
  EXPECT_EQ(PVSampleBufferGetOutputPresentationTimeStamp(moved.get()), at(56)) << "still reversed";
  EXPECT_EQ(PVSampleBufferGetSampleSize(moved.get(), 2), 30u);
  EXPECT_EQ(PVSampleBufferCreateCopyWithNewTiming(nullptr, sample.get(), 2, &shared, moved.out()), -12738);
  EXPECT_EQ(PVSampleBufferCreateCopyWithNewTiming(nullptr, sample.get(), 1, nullptr, moved.out()), -12731);
}

TEST(SampleBuffer, CreationSurvivesEveryAllocationFailure) {
  Given given = threeFrames();
  given.format = audioFormat(kAAC);
  const int requests = walkAllocationFailures([&](BRAllocatorRef allocator) {
    given.allocator = allocator;
    Sample sample;
    const PVStatus status = create(given, sample);
    EXPECT_TRUE(status == 0 || (status == kPVSampleBufferError_AllocationFailed && !sample));
    return status ? Outcome::kOutOfMemory : Outcome::kSucceeded;
  });
  EXPECT_EQ(requests, 1) << "object and arrays are one block";
  EXPECT_EQ(BRGetRetainCount(given.data.get()), 1u);
}

TEST(SampleBuffer, EditsMoveTheOutput) {
  const Sample sample = make({.timing = {{at(30), at(300), at(270)}}});
  const auto output = [&] { return outputTiming(sample)[0]; };
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(30), at(300), at(270)}));
  EXPECT_EQ(PVSampleBufferGetOutputDuration(sample.get()), at(30));
  setSpeed(sample, 2.0);
  EXPECT_EQ(PVTimeGetSeconds(PVSampleBufferGetOutputDuration(sample.get())), 0.5);
  EXPECT_EQ(PVTimeGetSeconds(PVSampleBufferGetOutputDecodeTimeStamp(sample.get())), 9.5);
  PVRemoveAttachment(sample.get(), kPVSampleBufferAttachmentKey_SpeedMultiplier);
  setTrim(sample, kPVSampleBufferAttachmentKey_TrimDurationAtStart, at(4));
  setTrim(sample, kPVSampleBufferAttachmentKey_TrimDurationAtEnd, at(6));
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(20), at(304), at(274)}));
  setReverse(sample);
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(20), at(324), at(294)}));
  ASSERT_EQ(PVSampleBufferSetOutputPresentationTimeStamp(sample.get(), at(0)), 0);
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(20), at(0), at(-30)}));
  PVRemoveAllAttachments(sample.get());
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(30), at(0), at(-30)}));
  ASSERT_EQ(PVSampleBufferSetOutputPresentationTimeStamp(sample.get(), kPVTimeInvalid), 0);
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(30), at(300), at(270)}));
  // what is no trim, speed or reversal changes nothing
  for (BRStringRef key : {kPVSampleBufferAttachmentKey_TrimDurationAtStart,
                          kPVSampleBufferAttachmentKey_SpeedMultiplier, kPVSampleBufferAttachmentKey_Reverse})
    PVSetAttachment(sample.get(), key, "text"_br, kPVAttachmentMode_ShouldPropagate);
  EXPECT_EQ(output(), (PVSampleTimingInfo{at(30), at(300), at(270)}));
}

TEST(SampleBuffer, TrimsReachAsManySamplesAsTheyAreLong) {
  const Sample sample = make({.samples = 4, .timing = {{at(10), at(100), kPVTimeInvalid}}});
  setTrim(sample, kPVSampleBufferAttachmentKey_TrimDurationAtStart, at(14));
  setTrim(sample, kPVSampleBufferAttachmentKey_TrimDurationAtEnd, at(3));
  Timing timing = outputTiming(sample);
  ASSERT_EQ(timing.size(), 4u) << "one entry cannot say it any more";
  const auto expect = [&](size_t i, int64_t presentation, int64_t duration) {
    EXPECT_EQ(PVTimeCompare(timing[i].presentationTimeStamp, at(presentation)), 0) << i;
    EXPECT_EQ(PVTimeCompare(timing[i].duration, at(duration)), 0) << i;
  };
  expect(0, 114, 0), expect(1, 114, 6), expect(2, 120, 10), expect(3, 130, 7);
  setReverse(sample);
  timing = outputTiming(sample);
  expect(0, 114, 0), expect(1, 120, 6), expect(2, 130, 10), expect(3, 137, 7);
  EXPECT_EQ(PVSampleBufferGetOutputPresentationTimeStamp(sample.get()), at(137));
}

TEST(SampleBuffer, DescribesItself) {
  const Sample sample = make({.samples = 2, .timing = {{at(1), at(10), kPVTimeInvalid}}, .sizes = {1, 2}});
  PVSetAttachment(sample.get(), "reel"_br, "7"_br, kPVAttachmentMode_ShouldPropagate);
  PVSetAttachment(sample.get(), "a long attachment"_br, "x"_br, kPVAttachmentMode_ShouldNotPropagate);
  BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(sample.get(), true);
  BRDictionarySetValue(
      static_cast<BRMutableDictionaryRef>(const_cast<void*>(BRArrayGetValueAtIndex(array, 0))),
      kPVSampleAttachmentKey_NotSync, kBRBooleanTrue);
  const auto text = br::Ref<const BRString>::adopt(BRCopyDescription(sample.get()));
  char expected[2048];
  const void* none = nullptr;
  std::snprintf(
      expected, sizeof expected,
      "PVSampleBuffer %p retainCount: 1 allocator: %p\n\tinvalid = NO\n"
      "\tdataReady = YES\n\tmakeDataReadyCallback = %p\n\tmakeDataReadyRefcon = %p\n"
      "\tbuffer-level attachments:\n\t\ta long attachment    = x\n\t\treel      (P) = 7\n"
      "\tformatDescription = (null)\n\tsbufToTrackReadiness = %p\n\tnumSamples = 2\n"
      "\tsampleTimingArray[1] = {\n\t\t{PTS = {10/30 = 0.333}, DTS = {INVALID}, duration = {1/30 = 0.033}},\n"
      "\t}\n\tsampleSizeArray[2] = {\n\t\tsampleSize = 1,\n\t\tsampleSize = 2,\n\t}\n"
      "\tsampleAttachmentsArray[2] = {\n\t\tsample 0:\n\t\t\tNotSync    = true\n\t\tsample 1:\n\t}\n"
      "\tdataBuffer = %p\n",
      static_cast<void*>(sample.get()), static_cast<const void*>(BRGetAllocator(sample.get())), none, none,
      none, none);
  EXPECT_STREQ(BRStringGetUTF8(text.get()), expected);
}

}  // namespace
