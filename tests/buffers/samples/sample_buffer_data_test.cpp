// Readiness, failure, tracking and invalidation of sample buffers.
#include <pevrin/attachment.h>
#include <pevrin/notification_center.h>

#include "tests/buffers/samples/samples.hpp"

namespace {

using namespace test;

// Writes down what is posted about a buffer: "ready", or the status of a failure.
class Listener {
 public:
  explicit Listener(const Sample& sample, std::function<void()> action = {}) : action_(std::move(action)) {
    EXPECT_EQ(PVNotificationCenterAddListener(center(), this, heard, nullptr, sample.get()), 0);
    object_ = sample.get();
  }
  ~Listener() { PVNotificationCenterRemoveListener(center(), this, heard, nullptr, object_); }
  std::string log;

 private:
  static PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }
  static void heard(PVNotificationCenterRef, void* listener, BRStringRef name, const void*,
                    BRDictionaryRef payload) {
    Listener& self = *static_cast<Listener*>(listener);
    if (BREqual(name, kPVSampleBufferNotification_DataBecameReady)) {
      self.log += payload ? "unexpected payload " : "ready ";
    } else if (BREqual(name, kPVSampleBufferNotification_DataFailed)) {
      int32_t status = 0;
      EXPECT_EQ(BRDictionaryGetCount(payload), 1u);
      BRNumberGetValue(static_cast<BRNumberRef>(
                           BRDictionaryGetValue(payload, kPVSampleBufferNotificationParameter_Selvat)),
                       kBRNumberTypeSInt32, &status);
      self.log += std::to_string(status) + " ";
    }
    if (self.action_) self.action_();
  }
  const void* object_;
  std::function<void()> action_;
};

Sample unready(PVSampleBufferMakeDataReadyCallback callback = nullptr, void* refCon = nullptr) {
  return make({.ready = false, .callback = callback, .refCon = refCon});
}

TEST(SampleBufferData, BecomesReadyOnce) {
  const Sample sample = unready();
  Listener listener(sample);
  EXPECT_FALSE(PVSampleBufferDataIsReady(sample.get()));
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), -12733);
  EXPECT_EQ(PVSampleBufferSetDataReady(sample.get()), 0);
  EXPECT_EQ(PVSampleBufferSetDataReady(sample.get()), 0);
  EXPECT_EQ(listener.log, "ready ");
  EXPECT_TRUE(PVSampleBufferDataIsReady(sample.get()));
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), 0);
  EXPECT_EQ(PVSampleBufferSetDataFailed(sample.get(), -5), -12732);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), nullptr), -12732);
  EXPECT_FALSE(PVSampleBufferHasDataFailed(sample.get(), nullptr));
}

TEST(SampleBufferData, FailsOnce) {
  const Sample sample = unready();
  Listener listener(sample);
  EXPECT_EQ(PVSampleBufferSetDataFailed(sample.get(), 0), 0);
  EXPECT_EQ(PVSampleBufferSetDataFailed(sample.get(), -5), -16750);
  EXPECT_EQ(listener.log, "-16750 ");
  PVStatus status = 0;
  EXPECT_TRUE(PVSampleBufferHasDataFailed(sample.get(), &status));
  EXPECT_EQ(status, -16750);
  EXPECT_EQ(PVSampleBufferSetDataReady(sample.get()), -16750);
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), -16750);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), unready().get()), -16750);
  EXPECT_FALSE(PVSampleBufferDataIsReady(sample.get()));
}

TEST(SampleBufferData, CallbackMakesReadyInSilence) {
  int calls = 0;
  const auto callback = [](PVSampleBufferRef buffer, void* refCon) -> PVStatus {
    if (++*static_cast<int*>(refCon) == 1) return -7;
    return PVSampleBufferSetDataBuffer(buffer, blockOf(4).get());
  };
  const Sample sample = unready(callback, &calls);
  Listener listener(sample);
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), -7);
  EXPECT_FALSE(PVSampleBufferDataIsReady(sample.get()));
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), 0);
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), 0);
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(PVSampleBufferDataIsReady(sample.get()));
  EXPECT_EQ(listener.log, "");
}

TEST(SampleBufferData, CopiesFollowTheirSource) {
  const Sample source = unready(), first = [&] {
    Sample copy;
    EXPECT_EQ(PVSampleBufferCreateCopy(nullptr, source.get(), copy.out()), 0);
    return copy;
  }();
  Sample second;
  ASSERT_EQ(PVSampleBufferCreateCopy(nullptr, first.get(), second.out()), 0);
  EXPECT_EQ(BRGetRetainCount(source.get()), 2u);
  Listener listener(second);
  EXPECT_FALSE(PVSampleBufferDataIsReady(second.get()));
  ASSERT_EQ(PVSampleBufferSetDataReady(source.get()), 0);
  EXPECT_EQ(listener.log, "");
  EXPECT_TRUE(PVSampleBufferDataIsReady(second.get()));
  EXPECT_EQ(listener.log, "ready ");
  EXPECT_EQ(BRGetRetainCount(source.get()), 1u) << "nobody tracks it any more";

  const Sample failing = unready();
  Sample copy;
  ASSERT_EQ(PVSampleBufferCreateCopy(nullptr, failing.get(), copy.out()), 0);
  Listener copyListener(copy);
  ASSERT_EQ(PVSampleBufferSetDataFailed(failing.get(), -9), 0);
  EXPECT_FALSE(PVSampleBufferDataIsReady(copy.get()));
  PVStatus status = 0;
  EXPECT_TRUE(PVSampleBufferHasDataFailed(copy.get(), &status));
  EXPECT_EQ(status, -9);
  EXPECT_EQ(copyListener.log, "-9 ");
  EXPECT_EQ(BRGetRetainCount(failing.get()), 1u);
}

TEST(SampleBufferData, TracksWhatItIsTold) {
  const Sample ready = make({}), waiting = unready(), other = unready();
  const Sample sample = unready();
  Listener listener(sample);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), waiting.get()), 0);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), other.get()), 0);
  EXPECT_EQ(BRGetRetainCount(waiting.get()), 1u);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(other.get(), sample.get()), 0) << "a circle tracks nothing";
  EXPECT_EQ(BRGetRetainCount(sample.get()), 1u);
  EXPECT_EQ(PVSampleBufferMakeDataReady(sample.get()), -12733) << "the tracked buffer's answer";
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), sample.get()), 0);
  EXPECT_EQ(BRGetRetainCount(other.get()), 1u);
  ASSERT_EQ(PVSampleBufferInvalidate(other.get()), 0);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), other.get()), -12744);
  EXPECT_EQ(PVSampleBufferTrackDataReadiness(sample.get(), ready.get()), 0);
  EXPECT_TRUE(PVSampleBufferDataIsReady(sample.get()));
  EXPECT_EQ(listener.log, "");
}

TEST(SampleBufferData, CallbacksMayDoTheirWorst) {
  // fails the buffer and says that all is well
  const Sample liar =
      unready([](PVSampleBufferRef buffer, void*) { return PVSampleBufferSetDataFailed(buffer, -4) * 0; });
  EXPECT_EQ(PVSampleBufferMakeDataReady(liar.get()), -4);
  EXPECT_FALSE(PVSampleBufferDataIsReady(liar.get()));

  // invalidates the buffer, and drops the last reference to it
  PVSampleBufferRef last = unready([](PVSampleBufferRef buffer, void*) {
                             PVSampleBufferInvalidate(buffer);
                             BRRelease(buffer);
                             return 0;
                           }).detach();
  EXPECT_EQ(PVSampleBufferMakeDataReady(last), 0);

  PVSampleBufferRef heard = unready().detach();
  {
    Listener listener(Sample::retain(heard), [&] {
      PVSampleBufferInvalidate(heard);
      BRRelease(heard);
    });
    EXPECT_EQ(PVSampleBufferSetDataReady(heard), 0);
    EXPECT_EQ(listener.log, "ready ");
  }
}

TEST(SampleBufferData, IsInvalidatedOnce) {
  const Sample sample = make({});
  static int calls;
  calls = 0;
  const auto callback = [](PVSampleBufferRef buffer, void* refCon) {
    ++calls;
    EXPECT_EQ(refCon, &calls);
    EXPECT_TRUE(PVSampleBufferIsValid(buffer));
    EXPECT_EQ(PVSampleBufferGetNumSamples(buffer), 1);
    EXPECT_EQ(PVSampleBufferInvalidate(buffer), 0) << "again from inside";
  };
  EXPECT_EQ(PVSampleBufferSetInvalidateCallback(sample.get(), callback, nullptr), 0);
  EXPECT_EQ(PVSampleBufferSetInvalidateCallback(sample.get(), callback, &calls), -12731);
  EXPECT_EQ(PVSampleBufferSetInvalidateCallback(sample.get(), nullptr, nullptr), 0);
  EXPECT_EQ(PVSampleBufferSetInvalidateCallback(sample.get(), callback, &calls), 0);
  EXPECT_EQ(PVSampleBufferInvalidate(sample.get()), 0);
  EXPECT_EQ(PVSampleBufferInvalidate(sample.get()), -12744);
  EXPECT_EQ(calls, 1);
}

TEST(SampleBufferData, KeepsACopyOfTheInvalidateHandler) {
  const auto shared = std::make_shared<int>(0);
  Sample sample = make({});
  const auto handler = [shared](PVSampleBufferRef buffer) {
    ++*shared;
    PVSampleBufferSetInvalidateHandler(buffer, nullptr);  // clears itself while it runs
    ++*shared;
  };
  EXPECT_EQ(PVSampleBufferSetInvalidateHandler(sample.get(), handler), 0);
  EXPECT_EQ(shared.use_count(), 3);
  EXPECT_EQ(PVSampleBufferSetInvalidateHandler(sample.get(), handler), -12731);
  EXPECT_EQ(PVSampleBufferSetInvalidateHandler(sample.get(), nullptr), 0);
  EXPECT_EQ(shared.use_count(), 2);
  EXPECT_EQ(PVSampleBufferSetInvalidateHandler(sample.get(), handler), 0);
  EXPECT_EQ(PVSampleBufferInvalidate(sample.get()), 0);
  EXPECT_EQ(*shared, 2);
  sample = nullptr;
  EXPECT_EQ(shared.use_count(), 2) << "disposed of with the buffer";
}

TEST(SampleBufferData, HasADictionaryForEachSample) {
  EXPECT_EQ(PVSampleBufferGetSampleAttachmentsArray(make({.samples = 0}).get(), true), nullptr);
  walkAllocationFailures([](BRAllocatorRef allocator) {
    Sample sample;
    if (create({.samples = 3, .allocator = allocator}, sample)) return Outcome::kOutOfMemory;
    EXPECT_EQ(PVSampleBufferGetSampleAttachmentsArray(sample.get(), false), nullptr);
    BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(sample.get(), true);
    if (!array) return Outcome::kOutOfMemory;
    EXPECT_EQ(BRArrayGetCount(array), 3u);
    EXPECT_EQ(PVSampleBufferGetSampleAttachmentsArray(sample.get(), false), array);
    for (size_t i = 0; i < 3; ++i)
      EXPECT_EQ(BRDictionaryGetCount(static_cast<BRDictionaryRef>(BRArrayGetValueAtIndex(array, i))), 0u);
    return Outcome::kSucceeded;
  });
}

}  // namespace
