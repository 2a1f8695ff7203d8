#include "tests/queues/frames.hpp"

namespace {

using namespace test;

TEST(BufferQueueTriggers, InstallationChecksItsArgumentsInOrder) {
  PVBufferCallbacks callbacks = frameCallbacks();
  callbacks.getPresentationTimeStamp = nullptr;
  auto queue = makeQueue(), timeless = makeQueue(callbacks);
  Counter counter;
  const PVTime second = PVTimeMake(1, 1);
  EXPECT_SIGNALLED(PVBufferQueueInstallTrigger(nullptr, Counter::fire, &counter, 1, second, nullptr), -12761);
  EXPECT_SIGNALLED(PVBufferQueueInstallTrigger(queue.get(), nullptr, nullptr, 1, second, nullptr), -12761);
  EXPECT_SIGNALLED(counter.install(queue, 0, second), -12761);
  EXPECT_SIGNALLED(counter.installCount(queue, 0, 1), -12761);
  for (int condition : {1, 2, 3, 4}) {
    EXPECT_SIGNALLED(counter.install(queue, condition, kPVTimeIndefinite), -12765);
    EXPECT_SIGNALLED(counter.install(queue, condition, PVTimeMakeWithEpoch(1, 1, 1)), -12765);
  }
  for (int condition : {5, 6}) EXPECT_SIGNALLED(counter.install(timeless, condition), -12767);
  for (int condition : {10, 11, 12, -1}) EXPECT_SIGNALLED(counter.install(queue, condition, second), -12767);
  for (int condition : {1, 5, 7, 9, 12, -1})
    EXPECT_SIGNALLED(counter.installCount(queue, condition, 1), -12767);
  EXPECT_EQ(counter.fired, 0);
  EXPECT_EQ(counter.token, nullptr);
  EXPECT_SIGNALLED(PVBufferQueueRemoveTrigger(nullptr, nullptr), -12761);
  EXPECT_SIGNALLED(PVBufferQueueRemoveTrigger(queue.get(), nullptr), -12768);
  EXPECT_SIGNALLED(PVBufferQueueTestTrigger(nullptr, nullptr), false);
  EXPECT_SIGNALLED(PVBufferQueueTestTrigger(queue.get(), nullptr), false);
}

TEST(BufferQueueTriggers, FireDuringInstallationWithTheTokenStored) {
  auto queue = makeQueue();
  Counter counter;
  counter.then = [&](PVBufferQueueTriggerToken token) {
    EXPECT_EQ(token, counter.token);
    EXPECT_TRUE(counter.isTrue(queue));
  };
  EXPECT_EQ(counter.install(queue, 1, PVTimeMake(1, 1)), 0);
  EXPECT_EQ(counter.fired, 1);
}

// Each condition through the same life of a queue: 3 frames of 1/10 s, the first to come presented second.
TEST(BufferQueueTriggers, FireWhenTheirConditionTurnsTrue) {
  struct Case {
    int condition;
    int64_t threshold;
    const char* states;  // whether it is true after each step; '!' when it fired as well
  } cases[] = {{1, 2, "!1000!1"}, {2, 2, "!110!11"},  {3, 2, "000!000"}, {4, 2, "00!1100"},
               {5, 0, "0!!00!!"}, {6, 0, "0!0!00!"},  {7, 0, "0!11110"}, {8, 0, "0000000"},
               {9, 0, "000000!"}, {10, 2, "!1000!1"}, {11, 2, "000!000"}};
  for (const Case& test : cases) {
    auto queue = makeQueue();
    Counter counter;
    std::string states;
    auto look = [&] { states += std::exchange(counter.fired, 0) ? '!' : counter.isTrue(queue) ? '1' : '0'; };
    EXPECT_EQ(test.condition >= 10 ? counter.installCount(queue, test.condition, test.threshold)
                                   : counter.install(queue, test.condition, PVTimeMake(test.threshold, 10)),
              0);
    look();
    for (int tenths : {1, 0, 2}) enqueue(queue, frameAt(tenths)), look();
    for (int i = 0; i < 2; ++i) dequeue(queue), look();
    PVBufferQueueReset(queue.get()), look();
    EXPECT_EQ(states, test.states) << "condition " << test.condition;
  }
}

TEST(BufferQueueTriggers, EndOfDataAndReset) {
  auto queue = makeQueue();
  Counter end, reset;
  end.install(queue, 8);
  reset.install(queue, 9);
  enqueue(queue, frameAt(0));
  PVBufferQueueMarkEndOfData(queue.get());
  EXPECT_EQ(end.fired, 0);
  dequeue(queue);
  EXPECT_TRUE(PVBufferQueueIsAtEndOfData(queue.get()));
  EXPECT_EQ(end.fired, 1);
  for (int i = 0; i < 2; ++i) PVBufferQueueReset(queue.get());
  EXPECT_EQ(reset.fired, 1);
  EXPECT_FALSE(end.isTrue(queue));
  EXPECT_TRUE(reset.isTrue(queue));
  PVBufferQueueMarkEndOfData(queue.get());
  EXPECT_FALSE(reset.isTrue(queue));
  EXPECT_EQ(end.fired, 2);
}

TEST(BufferQueueTriggers, AResetFiresThemBeforeItHandsOver) {
  auto queue = makeQueue();
  for (int i = 0; i < 3; ++i) enqueue(queue, frameAt(i));
  std::string order;
  Counter counter;
  counter.then = [&](auto) {
    order += "t";
    EXPECT_EQ(PVBufferQueueGetBufferCount(queue.get()), 0);
  };
  counter.installCount(queue, 10, 2);
  PVBufferQueueResetWithCallback(
      queue.get(), [](PVBufferRef, void* text) { *static_cast<std::string*>(text) += "b"; }, &order);
  EXPECT_EQ(order, "tbbb");
}

TEST(BufferQueueTriggers, MayReadButNotChangeTheQueue) {
  auto queue = makeQueue(sortedFrameCallbacks());
  auto frame = frameAt(7);
  Counter counter;
  counter.then = [&](PVBufferQueueTriggerToken token) {
    PVBufferQueueRef in = queue.get();
    EXPECT_SIGNALLED(PVBufferQueueEnqueue(in, frame.get()), -12766);
    EXPECT_SIGNALLED(PVBufferQueueDequeueAndRetain(in), nullptr);
    EXPECT_SIGNALLED(PVBufferQueueDequeueIfDataReadyAndRetain(in), nullptr);
    EXPECT_SIGNALLED(KivBufferQueueDequeueIfMatchingAndRetain(in, frame.get()), nullptr);
    EXPECT_SIGNALLED(PVBufferQueueMarkEndOfData(in), -12766);
    EXPECT_SIGNALLED(PVBufferQueueReset(in), -12766);
    EXPECT_SIGNALLED(PVBufferQueueSetValidationCallback(in, nullptr, nullptr), -12766);
    EXPECT_SIGNALLED(PVBufferQueueRemoveTrigger(in, token), -12766);
    EXPECT_SIGNALLED(PVBufferQueueInstallTrigger(in, Counter::fire, &counter, 7, kPVTimeZero, nullptr),
                     -12766);
    EXPECT_SIGNALLED(
        PVBufferQueueInstallTriggerWithIntegerThreshold(in, Counter::fire, &counter, 10, 1, nullptr), -12766);
    EXPECT_EQ(PVBufferQueueGetHead(in), frame.get());
    EXPECT_EQ(PVTimeCompare(PVBufferQueueGetMinPresentationTimeStamp(in), PVTimeMake(7, 10)), 0);
    EXPECT_EQ(PVTimeCompare(PVBufferQueueGetDuration(in), PVTimeMake(1, 10)), 0);
  };
  counter.installCount(queue, 11, 0);
  enqueue(queue, frame);
  EXPECT_EQ(counter.fired, 1);
  EXPECT_EQ(dequeue(queue).get(), frame.get());
  EXPECT_EQ(PVBufferQueueRemoveTrigger(queue.get(), counter.token), 0);
  EXPECT_SIGNALLED(PVBufferQueueRemoveTrigger(queue.get(), counter.token), -12768);
  Counter other;
  other.installCount(queue, 11, 0);
  EXPECT_NE(other.token, counter.token);
}

TEST(BufferQueueTriggers, HearThatTheHeadBecameReady) {
  auto queue = makeQueue();
  auto head = frameAt(0), next = frameAt(1);
  head->isReady = next->isReady = false;
  Counter counter;
  counter.install(queue, 7);
  enqueue(queue, head);
  enqueue(queue, next);
  postReady(next.get());
  postReady(head.get());  // says so, but is not
  EXPECT_EQ(counter.fired, 0);
  head->isReady = next->isReady = true;
  postReady(next.get());
  EXPECT_FALSE(counter.isTrue(queue));
  postReady(head.get());
  EXPECT_EQ(counter.fired, 1);
  next->isReady = false;
  dequeue(queue);
  EXPECT_FALSE(counter.isTrue(queue));
  postReady(head.get());
  next->isReady = true;
  postReady(next.get());
  EXPECT_EQ(counter.fired, 2);
  EXPECT_EQ(PVBufferQueueRemoveTrigger(queue.get(), counter.token), 0);
  postReady(next.get());
  EXPECT_EQ(counter.fired, 2);
  Counter later;
  later.install(queue, 7);
  EXPECT_EQ(later.fired, 1);
  queue = nullptr;
  postReady(next.get());
}

TEST(BufferQueueTriggers, WithoutAReadinessCallbackEveryHeadIsReady) {
  PVBufferCallbacks callbacks = frameCallbacks();
  callbacks.isDataReady = nullptr;
  callbacks.dataBecameReadyNotification = nullptr;
  auto queue = makeQueue(callbacks);
  Counter counter;
  EXPECT_EQ(counter.install(queue, 7), 0);
  auto frame = frameAt(0);
  frame->isReady = false;
  enqueue(queue, frame);
  EXPECT_EQ(counter.fired, 1);
  EXPECT_EQ(FrameRef::adopt(frameOf(PVBufferQueueDequeueIfDataReadyAndRetain(queue.get()))).get(),
            frame.get());
}

TEST(BufferQueueTriggers, AHeadMadeReadyByATriggerIsSeen) {
  auto queue = makeQueue();
  auto head = frameAt(0);
  head->isReady = false;
  Counter ready, maker;
  ready.install(queue, 7);
  maker.then = [&](auto) {
    head->isReady = true;
    postReady(head.get());
    EXPECT_EQ(ready.fired, 0);
  };
  maker.installCount(queue, 11, 0);
  enqueue(queue, head);
  EXPECT_EQ(ready.fired, 1);
  EXPECT_EQ(maker.fired, 1);
  head->isReady = false;
  postReady(head.get());
  Counter late = maker;  // also while it is installed
  ready.fired = 0;
  late.then = [&](auto) {
    head->isReady = true;
    postReady(head.get());
  };
  late.installCount(queue, 11, 0);
  EXPECT_EQ(ready.fired, 1);
}

TEST(BufferQueueTriggers, ReadinessThatRemovesTheTriggerBeingInstalled) {
  QueueRef queue;
  Counter counter;
  Asked asked = [&](const char*) {
    if (counter.token) PVBufferQueueRemoveTrigger(queue.get(), std::exchange(counter.token, nullptr));
  };
  queue = makeQueue(frameCallbacks(&asked));
  enqueue(queue, frameAt(0));
  EXPECT_EQ(counter.install(queue, 7), 0);
  EXPECT_EQ(counter.fired, 0);
  EXPECT_EQ(counter.token, nullptr);
}

TEST(BufferQueueTriggers, MayDropTheQueueThatIsHearing) {
  QueueRef queue = makeQueue();
  auto head = frameAt(0);
  head->isReady = false;
  Counter counter;
  counter.then = [&](auto) { queue = nullptr; };
  counter.install(queue, 7);
  enqueue(queue, head);
  head->isReady = true;
  postReady(head.get());
  EXPECT_EQ(counter.fired, 1);
  EXPECT_EQ(BRGetRetainCount(head.get()), 1u);
}

}  // namespace
