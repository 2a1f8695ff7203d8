// Ranges of sample buffers, and walks over their samples.
#include <pevrin/attachment.h>
#include <pevrin/sample_buffer_audio.h>
#include <pevrin/sample_buffer_pieces.h>

#include "tests/buffers/samples/samples.hpp"

namespace {

using namespace test;

Sample piece(const Sample& whole, int64_t location, int64_t length) {
  Sample made;
  EXPECT_EQ(PVSampleBufferCopySampleBufferForRange(nullptr, whole.get(), {location, length}, made.out()), 0);
  return made;
}

// The first byte of the data and their number.
std::pair<int, size_t> bytesOf(const Sample& sample) {
  PVBlockBufferRef data = PVSampleBufferGetDataBuffer(sample.get());
  uint8_t first = 0xFF;
  EXPECT_TRUE(!data || PVBlockBufferCopyDataBytes(data, 0, 1, &first) == 0);
  return {first, PVBlockBufferGetDataLength(data)};
}

TEST(SampleBufferPieces, HoldTheBytesAndTimesOfTheirRange) {
  const Sample whole = make(threeFrames());
  const Sample last = piece(whole, 1, 2);
  EXPECT_EQ(PVSampleBufferGetNumSamples(last.get()), 2);
  EXPECT_EQ(bytesOf(last), (std::pair<int, size_t>{10, 50}));
  EXPECT_EQ(PVSampleBufferGetSampleSize(last.get(), 0), 20u);
  EXPECT_EQ(PVSampleBufferGetPresentationTimeStamp(last.get()), at(11));
  EXPECT_EQ(PVSampleBufferGetDecodeTimeStamp(last.get()), at(9));
  EXPECT_EQ(PVSampleBufferGetFormatDescription(last.get()), PVSampleBufferGetFormatDescription(whole.get()));
  EXPECT_TRUE(PVSampleBufferDataIsReady(last.get()));

  const Sample shared =
      make({.samples = 4, .timing = {{at(1), at(10), at(5)}}, .sizes = {25}, .data = blockOf(100)});
  const Sample middle = piece(shared, 1, 2);
  EXPECT_EQ(bytesOf(middle), (std::pair<int, size_t>{25, 50}));
  EXPECT_EQ(PVSampleBufferGetPresentationTimeStamp(middle.get()), at(11));
  EXPECT_EQ(PVSampleBufferGetDecodeTimeStamp(middle.get()), at(6));
  EXPECT_EQ(PVSampleBufferGetDuration(middle.get()), at(2));

  const Sample none = piece(whole, 1, 0);
  EXPECT_EQ(PVSampleBufferGetNumSamples(none.get()), 0);
  EXPECT_EQ(PVSampleBufferGetDataBuffer(none.get()), nullptr);
}

TEST(SampleBufferPieces, RefuseWhatIsNoRange) {
  const Sample whole = make(threeFrames());
  PVSampleBufferRef out = whole.get();
  const auto of = [&](const Sample& sample, int64_t location, int64_t length) {
    return PVSampleBufferCopySampleBufferForRange(nullptr, sample.get(), {location, length}, &out);
  };
  EXPECT_EQ(of(nullptr, 0, 1), -12731);
  EXPECT_EQ(PVSampleBufferCopySampleBufferForRange(nullptr, whole.get(), {0, 1}, nullptr), -12731);
  EXPECT_EQ(of(make({.samples = 3, .data = blockOf(3)}), 9, 1), -12735);
  for (auto [location, length] :
       {std::pair<int64_t, int64_t>{-1, 1}, {3, 0}, {0, 4}, {2, -1}, {1, INT64_MAX}})
    EXPECT_EQ(of(whole, location, length), -12734) << location << " " << length;
  EXPECT_EQ(of(make({.samples = 2, .sizes = {9}, .ready = false}), 0, 1), -12733);
  EXPECT_EQ(of(make({.samples = 2, .sizes = {9}, .data = blockOf(12)}), 1, 1),
            kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(out, nullptr);
}

TEST(SampleBufferPieces, CarryEditsSoThatTogetherTheySayWhatTheWholeSays) {
  Given given = threeFrames();
  for (auto& entry : given.timing) entry.presentationTimeStamp = entry.decodeTimeStamp;
  struct Edit {
    int trimAtStart, trimAtEnd;
    double speed;
    bool reversed;
  };
  for (const Edit& edit : {Edit{0, 0, 1, false},
                           {10, 0, 1, false},
                           {45, 12, 1, false},
                           {45, 12, 1, true},
                           {10, 10, 2, false},
                           {45, 0, 0.5, true},
                           {95, 0, 1, false}}) {
    // in 1/900 s, 30 to a frame
    for (size_t i = 0; i < 3; ++i)
      given.timing[i] = {at(30, 900), at(900 + 30 * static_cast<int64_t>(i), 900), at(900, 900)};
    const Sample whole = make(given);
    if (edit.trimAtStart)
      setTrim(whole, kPVSampleBufferAttachmentKey_TrimDurationAtStart, at(edit.trimAtStart, 900));
    if (edit.trimAtEnd)
      setTrim(whole, kPVSampleBufferAttachmentKey_TrimDurationAtEnd, at(edit.trimAtEnd, 900));
    if (edit.speed != 1) setSpeed(whole, edit.speed);
    if (edit.reversed) setReverse(whole);
    const Timing expected = outputTiming(whole);
    PVTime total = kPVTimeZero;
    for (int64_t i = 0; i < 3; ++i) {
      const Sample one = piece(whole, i, 1);
      const PVSampleTimingInfo output = outputTiming(one)[0];
      total = PVTimeAdd(total, output.duration);
      EXPECT_EQ(PVTimeCompare(output.duration, expected[static_cast<size_t>(i)].duration), 0)
          << edit.trimAtStart;
      // a piece that is trimmed away knows nothing of where the others begin
      const PVTime where = expected[static_cast<size_t>(i)].presentationTimeStamp;
      EXPECT_TRUE(PVTimeCompare(output.duration, kPVTimeZero) == 0 ||
                  PVTimeCompare(output.presentationTimeStamp, where) == 0)
          << edit.trimAtStart << " " << edit.speed << " sample " << i;
    }
    const PVTime all = PVTimeMaximum(kPVTimeZero, PVSampleBufferGetOutputDuration(whole.get()));
    EXPECT_EQ(PVTimeCompare(total, all), 0) << edit.trimAtStart;
  }
  const Sample whole = make(given);
  ASSERT_EQ(PVSampleBufferSetOutputPresentationTimeStamp(whole.get(), at(0)), 0);
  EXPECT_EQ(PVTimeCompare(PVSampleBufferGetOutputPresentationTimeStamp(piece(whole, 2, 1).get()), at(2)), 0);
}

TEST(SampleBufferPieces, CarryAttachments) {
  const Sample whole = make(threeFrames());
  PVSetAttachment(whole.get(), "kept"_br, "yes"_br, kPVAttachmentMode_ShouldPropagate);
  PVSetAttachment(whole.get(), "left"_br, "yes"_br, kPVAttachmentMode_ShouldNotPropagate);
  setTrim(whole, kPVSampleBufferAttachmentKey_TrimDurationAtEnd, at(1));
  setSpeed(whole, 2);
  BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(whole.get(), true);
  BRDictionarySetValue(
      static_cast<BRMutableDictionaryRef>(const_cast<void*>(BRArrayGetValueAtIndex(array, 2))),
      kPVSampleAttachmentKey_NotSync, kBRBooleanTrue);
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    Sample last;
    if (PVStatus status =
            PVSampleBufferCopySampleBufferForRange(allocator, whole.get(), {2, 1}, last.out())) {
      EXPECT_TRUE(status == kPVSampleBufferError_AllocationFailed ||
                  status == kPVBlockBufferStructureAllocationFailedErr);
      return Outcome::kOutOfMemory;
    }
    EXPECT_EQ(PVGetAttachment(last.get(), "kept"_br, nullptr), "yes"_br);
    EXPECT_EQ(PVGetAttachment(last.get(), "left"_br, nullptr), nullptr);
    EXPECT_NE(PVGetAttachment(last.get(), kPVSampleBufferAttachmentKey_TrimDurationAtEnd, nullptr), nullptr);
    BRArrayRef copied = PVSampleBufferGetSampleAttachmentsArray(last.get(), false);
    EXPECT_TRUE(BREqual(BRArrayGetValueAtIndex(copied, 0), BRArrayGetValueAtIndex(array, 2)));
    return Outcome::kSucceeded;
  });
  EXPECT_EQ(
      PVGetAttachment(piece(whole, 0, 2).get(), kPVSampleBufferAttachmentKey_TrimDurationAtEnd, nullptr),
      nullptr);
}

TEST(SampleBufferPieces, FollowTheReadinessOfTheWhole) {
  Given given = threeFrames();
  given.ready = false;
  const Sample whole = make(given), first = piece(whole, 0, 1);
  EXPECT_FALSE(PVSampleBufferDataIsReady(first.get()));
  ASSERT_EQ(PVSampleBufferSetDataReady(whole.get()), 0);
  EXPECT_TRUE(PVSampleBufferDataIsReady(first.get()));
}

TEST(SampleBufferPieces, OfPacketsThatLieApart) {
  const AudioStreamPacketDescription packets[] = {{5, 960, 10}, {20, 480, 7}, {30, 960, 9}};
  Sample whole;
  ASSERT_EQ(
      PVAudioSampleBufferCreateReadyWithPacketDescriptions(
          nullptr, blockOf(39).get(), audioFormat(kVorbisLike).get(), 3, at(0, 48000), packets, whole.out()),
      0);
  const Sample rest = piece(whole, 1, 2);
  EXPECT_EQ(bytesOf(rest), (std::pair<int, size_t>{20, 19}));
  EXPECT_EQ(PVSampleBufferGetPresentationTimeStamp(rest.get()), at(960, 48000));
  const AudioStreamPacketDescription* their = nullptr;
  ASSERT_EQ(PVSampleBufferGetAudioStreamPacketDescriptionsPtr(rest.get(), &their, nullptr), 0);
  EXPECT_EQ(their[0].startOffset, 0);
  EXPECT_EQ(their[1].startOffset, 10);
}

TEST(SampleBufferPieces, AreWalkedInOrder) {
  const Sample whole = make(threeFrames());
  std::vector<std::pair<int, size_t>> seen;
  EXPECT_EQ(PVSampleBufferCallBlockForEachSample(whole.get(),
                                                 [&](PVSampleBufferRef sample, int64_t index) -> PVStatus {
                                                   EXPECT_EQ(index, std::ssize(seen));
                                                   seen.push_back(bytesOf(Sample::retain(sample)));
                                                   return 0;
                                                 }),
            0);
  EXPECT_EQ(seen, (std::vector<std::pair<int, size_t>>{{0, 10}, {10, 20}, {30, 30}}));

  const auto stops = [](PVSampleBufferRef, int64_t index, void*) {
    return static_cast<PVStatus>(index == 1 ? -3 : 0);
  };
  EXPECT_EQ(PVSampleBufferCallForEachSample(whole.get(), stops, nullptr), -3);
  EXPECT_EQ(PVSampleBufferCallForEachSample(whole.get(), nullptr, nullptr), -12731);
  const auto invalidates = [](PVSampleBufferRef, int64_t, void* of) {
    return PVSampleBufferInvalidate(static_cast<PVSampleBufferRef>(of));
  };
  EXPECT_EQ(PVSampleBufferCallForEachSample(whole.get(), invalidates, whole.get()), -12744);

  const Sample one = make({.data = blockOf(3)}), none = make({.samples = 0}), unsized = make({.samples = 2});
  const auto isItself = [](PVSampleBufferRef sample, int64_t, void* of) {
    return static_cast<PVStatus>(sample != of);
  };
  EXPECT_EQ(PVSampleBufferCallForEachSample(one.get(), isItself, one.get()), 0);
  EXPECT_EQ(PVSampleBufferCallForEachSample(none.get(), stops, nullptr), 0);
  EXPECT_EQ(PVSampleBufferCallForEachSample(unsized.get(), stops, nullptr), -12735);
}

}  // namespace
