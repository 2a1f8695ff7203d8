#include <pevrin/buffer_queue.h>

#include "tests/buffers/samples/samples.hpp"

namespace {

using namespace test;

using Queue = br::Ref<PVBufferQueue>;

Queue makeSampleQueue(const PVBufferCallbacks* callbacks) {
  Queue queue;
  EXPECT_EQ(PVBufferQueueCreate(nullptr, 0, callbacks, queue.out()), 0);
  return queue;
}

Sample frame(int64_t presentation, int64_t decode, bool ready = true) {
  return make({.timing = {{at(1), at(presentation), at(decode)}},
               .sizes = {100},
               .format = videoFormat(),
               .ready = ready});
}

TEST(SampleBufferQueue, SortsByOutputPresentationTime) {
  auto queue = makeSampleQueue(PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS());
  int64_t decode = 0;
  for (int64_t presentation : {0, 3, 1, 2}) {
    auto sample = frame(presentation, decode++);
    if (presentation == 3) PVSampleBufferSetOutputPresentationTimeStamp(sample.get(), at(-1));
    EXPECT_EQ(PVBufferQueueEnqueue(queue.get(), sample.get()), 0);
  }
  EXPECT_EQ(PVBufferQueueGetDuration(queue.get()), at(4));
  EXPECT_EQ(PVBufferQueueGetTotalSize(queue.get()), 400u);
  EXPECT_EQ(PVBufferQueueGetMinDecodeTimeStamp(queue.get()), at(0));
  EXPECT_EQ(PVBufferQueueGetEndPresentationTimeStamp(queue.get()), at(4));
  for (int64_t presentation : {3, 0, 1, 2}) {
    EXPECT_EQ(PVBufferQueueGetFirstPresentationTimeStamp(queue.get()), at(presentation));
    BRRelease(PVBufferQueueDequeueAndRetain(queue.get()));
  }
}

TEST(SampleBufferQueue, HearsOfReadinessAndCopesWithInvalidation) {
  auto queue = makeSampleQueue(PVBufferQueueGetCallbacksForUnsortedSampleBuffers());
  int fired = 0;
  auto count = [](void* counter, PVBufferQueueTriggerToken) { ++*static_cast<int*>(counter); };
  EXPECT_EQ(PVBufferQueueInstallTrigger(queue.get(), count, &fired,
                                        kPVBufferQueueTrigger_WhenDataBecomesReady, kPVTimeInvalid, nullptr),
            0);
  auto late = frame(9, 0, false), last = frame(1, 1);
  PVBufferQueueEnqueue(queue.get(), late.get());
  PVBufferQueueEnqueue(queue.get(), last.get());
  EXPECT_EQ(PVBufferQueueDequeueIfDataReadyAndRetain(queue.get()), nullptr);
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(PVSampleBufferSetDataReady(late.get()), 0);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(PVSampleBufferInvalidate(late.get()), 0);
  EXPECT_EQ(PVBufferQueueGetMaxPresentationTimeStamp(queue.get()), at(9));
  auto first = Sample::adopt(
      static_cast<PVSampleBufferRef>(const_cast<void*>(PVBufferQueueDequeueAndRetain(queue.get()))));
  EXPECT_EQ(first.get(), late.get());
  EXPECT_EQ(PVBufferQueueGetDuration(queue.get()), at(1));
  EXPECT_EQ(PVBufferQueueGetTotalSize(queue.get()), 100u);
}

}  // namespace
