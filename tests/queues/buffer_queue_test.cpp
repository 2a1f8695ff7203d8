#include "tests/queues/frames.hpp"

namespace {

using namespace test;

std::vector<int64_t> keysOf(const QueueRef& queue) {
  std::vector<int64_t> keys;
  PVBufferQueueCallForEachBuffer(
      queue.get(),
      [](PVBufferRef buffer, void* keysOut) -> PVStatus {
        static_cast<std::vector<int64_t>*>(keysOut)->push_back(frameOf(buffer)->key);
        return 0;
      },
      &keys);
  return keys;
}

#define EXPECT_TIME(time, wanted) EXPECT_EQ(PVTimeCompare(time, wanted), 0)

TEST(BufferQueue, CreationChecksItsArgumentsInOrder) {
  PVBufferCallbacks callbacks = frameCallbacks();
  PVBufferQueueRef queue = reinterpret_cast<PVBufferQueueRef>(1);
  EXPECT_SIGNALLED(PVBufferQueueCreate(nullptr, 0, nullptr, &queue), -12761);
  EXPECT_EQ(queue, nullptr);
  EXPECT_SIGNALLED(PVBufferQueueCreate(nullptr, 0, &callbacks, nullptr), -12761);
  callbacks.version = 2;
  EXPECT_SIGNALLED(PVBufferQueueCreate(nullptr, 0, &callbacks, &queue), -12762);
  callbacks.version = 1;
  callbacks.getDuration = nullptr;
  EXPECT_SIGNALLED(PVBufferQueueCreate(nullptr, 0, &callbacks, &queue), -12762);
  EXPECT_STREQ(BRTypeGetName(PVBufferQueueGetTypeID()), "PVBufferQueue");
}

TEST(BufferQueue, IsKnownToTheNotificationCenterForBarriers) {
  auto center = PVNotificationCenterGetDefaultLocalCenter();
  auto queue = makeQueue();
  const void* address = queue.get();
  EXPECT_EQ(PVNotificationCenterBarrier(center, address), 0);
  queue = nullptr;
  EXPECT_EQ(PVNotificationCenterBarrier(center, address), -12724);
}

TEST(BufferQueue, OfNoQueueAndOfAnEmptyOneThereIsNoTimeAndNoHead) {
  auto queue = makeQueue();
  EXPECT_TRUE(PVBufferQueueIsEmpty(queue.get()));
  EXPECT_FALSE(PVBufferQueueIsAtEndOfData(queue.get()));
  EXPECT_EQ(PVBufferQueueGetHead(queue.get()), nullptr);
  for (auto getTime :
       {PVBufferQueueGetMinDecodeTimeStamp, PVBufferQueueGetFirstDecodeTimeStamp,
        PVBufferQueueGetMinPresentationTimeStamp, PVBufferQueueGetMaxPresentationTimeStamp,
        PVBufferQueueGetFirstPresentationTimeStamp, PVBufferQueueGetEndPresentationTimeStamp}) {
    EXPECT_TRUE(PVTimeIsInvalid(getTime(queue.get())));
    EXPECT_SIGNALLED(PVTimeIsInvalid(getTime(nullptr)), true);
  }
}

TEST(BufferQueue, NullArgumentsAreRefused) {
  auto queue = makeQueue();
  auto frame = frameAt(0);
  EXPECT_SIGNALLED(PVBufferQueueEnqueue(nullptr, frame.get()), -12761);
  EXPECT_SIGNALLED(PVBufferQueueEnqueue(queue.get(), nullptr), -12761);
  EXPECT_SIGNALLED(PVBufferQueueDequeueAndRetain(nullptr), nullptr);
  EXPECT_SIGNALLED(PVBufferQueueDequeueIfDataReadyAndRetain(nullptr), nullptr);
  EXPECT_SIGNALLED(KivBufferQueueDequeueIfMatchingAndRetain(queue.get(), nullptr), nullptr);
  EXPECT_SIGNALLED(PVBufferQueueGetHead(nullptr), nullptr);
  EXPECT_SIGNALLED(PVBufferQueueIsEmpty(nullptr), true);
  EXPECT_SIGNALLED(PVBufferQueueGetBufferCount(nullptr), 0);
  EXPECT_SIGNALLED(PVBufferQueueMarkEndOfData(nullptr), -12761);
  EXPECT_SIGNALLED(PVBufferQueueContainsEndOfData(nullptr), true);
  EXPECT_SIGNALLED(PVBufferQueueIsAtEndOfData(nullptr), true);
  EXPECT_SIGNALLED(PVBufferQueueReset(nullptr), -12761);
  EXPECT_SIGNALLED(PVBufferQueueSetValidationCallback(nullptr, nullptr, nullptr), -12761);
  EXPECT_SIGNALLED(PVBufferQueueCallForEachBuffer(queue.get(), nullptr, nullptr), -12761);
  EXPECT_SIGNALLED(PVTimeIsInvalid(PVBufferQueueGetDuration(nullptr)), true);
  EXPECT_SIGNALLED(PVBufferQueueGetTotalSize(nullptr), 0u);
  EXPECT_EQ(KivBufferQueueRetain(nullptr), nullptr);
  KivBufferQueueRelease(nullptr);
}

TEST(BufferQueue, OrderIsArrivalOrCompareWithEqualsAsTheyCame) {
  auto fifo = makeQueue(), sorted = makeQueue(sortedFrameCallbacks());
  std::vector<FrameRef> frames;
  for (int64_t key : {0, 3, 1, 1, 9, 6, 4, 2, -1, 6}) {
    frames.push_back(frameAt(key));
    enqueue(fifo, frames.back());
    enqueue(sorted, frames.back());
  }
  EXPECT_EQ(keysOf(fifo), (std::vector<int64_t>{0, 3, 1, 1, 9, 6, 4, 2, -1, 6}));
  EXPECT_EQ(keysOf(sorted), (std::vector<int64_t>{-1, 0, 1, 1, 2, 3, 4, 6, 6, 9}));
  for (int i = 0; i < 2; ++i) dequeue(sorted);
  EXPECT_EQ(dequeue(sorted).get(), frames[2].get());
  EXPECT_EQ(dequeue(sorted).get(), frames[3].get());
}

TEST(BufferQueue, RefusesInOrder) {
  auto queue = makeQueue(frameCallbacks(), 2);
  auto frame = frameAt(0);
  PVStatus verdict = 0;
  auto validate = [](PVBufferQueueRef, PVBufferRef, void* status) { return *static_cast<PVStatus*>(status); };
  PVBufferQueueSetValidationCallback(queue.get(), validate, &verdict);
  enqueue(queue, frame);
  enqueue(queue, frame);
  EXPECT_SIGNALLED(PVBufferQueueEnqueue(queue.get(), frame.get()), -12764);
  verdict = 77;
  EXPECT_SIGNALLED(PVBufferQueueEnqueue(queue.get(), frame.get()), 77);
  PVBufferQueueMarkEndOfData(queue.get());
  EXPECT_SIGNALLED(PVBufferQueueEnqueue(queue.get(), frame.get()), -12763);
  EXPECT_TRUE(PVBufferQueueContainsEndOfData(queue.get()));
  EXPECT_FALSE(PVBufferQueueIsAtEndOfData(queue.get()));
  EXPECT_EQ(PVBufferQueueReset(queue.get()), 0);
  EXPECT_FALSE(PVBufferQueueContainsEndOfData(queue.get()));
  EXPECT_EQ(PVBufferQueueEnqueue(queue.get(), frame.get()), 77);
  PVBufferQueueSetValidationCallback(queue.get(), nullptr, nullptr);
  enqueue(queue, frame);
  EXPECT_EQ(BRGetRetainCount(frame.get()), 2u);
}

TEST(BufferQueue, DequeuesOnlyWhatIsAskedFor) {
  auto queue = makeQueue();
  auto first = frameAt(0), second = frameAt(1);
  first->isReady = false;
  enqueue(queue, first);
  enqueue(queue, second);
  EXPECT_EQ(PVBufferQueueDequeueIfDataReadyAndRetain(queue.get()), nullptr);
  EXPECT_EQ(KivBufferQueueDequeueIfMatchingAndRetain(queue.get(), second.get()), nullptr);
  EXPECT_EQ(PVBufferQueueGetHead(queue.get()), first.get());
  auto taken = FrameRef::adopt(frameOf(KivBufferQueueDequeueIfMatchingAndRetain(queue.get(), first.get())));
  EXPECT_EQ(taken.get(), first.get());
  taken = FrameRef::adopt(frameOf(PVBufferQueueDequeueIfDataReadyAndRetain(queue.get())));
  EXPECT_EQ(taken.get(), second.get());
  EXPECT_EQ(BRGetRetainCount(second.get()), 2u);
}

TEST(BufferQueue, TotalsFollowTheContents) {
  auto queue = makeQueue();
  for (int i = 0; i < 3; ++i) {
    auto frame = makeFrame(PVTimeMake(i, 30), PVTimeMake(1, i == 1 ? 24 : 30));
    frame->size = 100;
    enqueue(queue, frame);
    frame->duration = PVTimeMake(99, 1);  // too late: the queue goes by the answer at enqueue
    frame->size = 7;
    frame->presentation = PVTimeMake(-99, 1);
  }
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), PVTimeMake(13, 120));
  EXPECT_EQ(PVBufferQueueGetTotalSize(queue.get()), 300u);
  EXPECT_TIME(PVBufferQueueGetEndPresentationTimeStamp(queue.get()), PVTimeMake(1, 10));
  EXPECT_TIME(PVBufferQueueGetFirstPresentationTimeStamp(queue.get()), kPVTimeZero);
  dequeue(queue);
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), PVTimeMake(9, 120));
  EXPECT_TIME(PVBufferQueueGetFirstPresentationTimeStamp(queue.get()), PVTimeMake(1, 30));
  EXPECT_EQ(PVBufferQueueGetTotalSize(queue.get()), 200u);
  dequeue(queue);
  dequeue(queue);
  const PVTime duration = PVBufferQueueGetDuration(queue.get());
  EXPECT_EQ(std::memcmp(&duration, &kPVTimeZero, sizeof duration), 0);
}

TEST(BufferQueue, SizesNeedVersionOne) {
  PVBufferCallbacks callbacks = frameCallbacks();
  callbacks.version = 0;
  // A program of that version has a shorter record.
  const size_t length = offsetof(PVBufferCallbacks, getSize);
  const std::unique_ptr<char[]> record(new char[length]);
  std::memcpy(record.get(), &callbacks, length);
  QueueRef queue;
  EXPECT_EQ(PVBufferQueueCreate(nullptr, 0, reinterpret_cast<PVBufferCallbacks*>(record.get()), queue.out()),
            0);
  auto frame = frameAt(0);
  frame->size = 5;
  enqueue(queue, frame);
  EXPECT_EQ(PVBufferQueueGetTotalSize(queue.get()), 0u);
}

TEST(BufferQueue, AnEpochInADurationIsSignalledAndDropped) {
  auto queue = makeQueue();
  auto frame = makeFrame(kPVTimeZero, PVTimeMakeWithEpoch(5, 10, 3));
  EXPECT_SIGNALLED(PVBufferQueueEnqueue(queue.get(), frame.get()), 0);
  const PVTime duration = PVBufferQueueGetDuration(queue.get());
  EXPECT_TIME(duration, PVTimeMake(1, 2));
  EXPECT_EQ(duration.epoch, 0);
}

TEST(BufferQueue, ATotalThatIsNoNumberBecomesTheSpanOfTimestamps) {
  auto queue = makeQueue();
  enqueue(queue, frameAt(10));
  enqueue(queue, makeFrame(PVTimeMake(40, 10), kPVTimeIndefinite));
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), PVTimeMake(3, 1));
  enqueue(queue, frameAt(20));  // counts on from there
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), PVTimeMake(31, 10));
  dequeue(queue);
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), PVTimeMake(3, 1));
  dequeue(queue);  // less an indefinite duration: the span of what is left
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), kPVTimeZero);
  PVBufferCallbacks callbacks = frameCallbacks();
  callbacks.getPresentationTimeStamp = nullptr;
  queue = makeQueue(callbacks);
  enqueue(queue, makeFrame(kPVTimeZero, kPVTimePositiveInfinity));
  EXPECT_TRUE(PVTimeIsInvalid(PVBufferQueueGetDuration(queue.get())));
}

TEST(BufferQueue, ResetHandsTheBuffersOverWithoutTheMutex) {
  auto queue = makeQueue(sortedFrameCallbacks());
  struct Context {
    PVBufferQueueRef queue;
    std::vector<int64_t> keys;
  } context{queue.get(), {}};
  for (int64_t key : {4, 2, 3}) enqueue(queue, frameAt(key));
  PVBufferQueueMarkEndOfData(queue.get());
  auto putBack = [](PVBufferRef buffer, void* refcon) {
    auto* in = static_cast<Context*>(refcon);
    in->keys.push_back(frameOf(buffer)->key);
    std::thread([&] { EXPECT_EQ(PVBufferQueueEnqueue(in->queue, buffer), 0); }).join();
  };
  EXPECT_EQ(PVBufferQueueResetWithCallback(queue.get(), putBack, &context), 0);
  EXPECT_EQ(context.keys, (std::vector<int64_t>{2, 3, 4}));
  EXPECT_EQ(keysOf(queue), context.keys);
  EXPECT_TIME(PVBufferQueueGetDuration(queue.get()), PVTimeMake(3, 10));
}

TEST(BufferQueue, AWalkEndsWithTheFirstStatus) {
  auto queue = makeQueue();
  for (int i = 0; i < 4; ++i) enqueue(queue, frameAt(i));
  int calls = 0;
  auto stopAtThird = [](PVBufferRef, void* count) -> PVStatus {
    return ++*static_cast<int*>(count) == 3 ? 5 : 0;
  };
  EXPECT_EQ(PVBufferQueueCallForEachBuffer(queue.get(), stopAtThird, &calls), 5);
  EXPECT_EQ(calls, 3);
}

TEST(BufferQueue, OutOfMemoryLeavesItAsItWas) {
  walkAllocationFailures([](BRAllocatorRef allocator) {
    PVBufferCallbacks callbacks = sortedFrameCallbacks();
    QueueRef queue;
    if (PVStatus status = PVBufferQueueCreate(allocator, 0, &callbacks, queue.out())) {
      EXPECT_EQ(status, -12760);
      return Outcome::kOutOfMemory;
    }
    Outcome outcome = Outcome::kSucceeded;
    for (int condition : {2, 5, 7}) {
      PVBufferQueueTriggerToken token;
      const PVStatus status =
          PVBufferQueueInstallTrigger(queue.get(), nullptr, nullptr, condition, kPVTimeZero, &token);
      EXPECT_TRUE(status == 0 || status == -12760);
      if (status) outcome = Outcome::kOutOfMemory;
    }
    int64_t count = 0;
    for (int i = 0; i < 70; ++i) {
      auto frame = frameAt(i ^ 3);
      const PVStatus status = PVBufferQueueEnqueue(queue.get(), frame.get());
      EXPECT_TRUE(status == 0 || status == -12760);
      EXPECT_EQ(BRGetRetainCount(frame.get()), status ? 1u : 2u);
      count += status == 0;
      if (status) outcome = Outcome::kOutOfMemory;
      EXPECT_EQ(PVBufferQueueGetBufferCount(queue.get()), count);
    }
    EXPECT_EQ(PVBufferQueueReset(queue.get()), 0);
    return outcome;
  });
  EXPECT_EQ(Frame::alive, 0);
}

TEST(BufferQueue, DescribesItself) {
  auto queue = makeQueue(sortedFrameCallbacks());
  auto text = [&] {
    auto string = br::Ref<const BRString>::adopt(BRCopyDebugDescription(queue.get()));
    return std::string(BRStringGetUTF8(string.get()));
  };
  EXPECT_NE(text().find("allocator: "), std::string::npos);
  EXPECT_NE(
      text().find("\telement count: 0\n\tfiringTrigger: false\n\tcontainsEOD: false\n\ttotalDuration: {0/1 = "
                  "0.000}\n\tminPTS: {INVALID}\n\tminDTS: {INVALID}\n\tNO triggers\n"),
      std::string::npos);
  Counter counter;
  counter.installCount(queue, 11, 7);
  EXPECT_NE(text().find("\tTriggers (1):\n\t\tcount > 7: false\n"), std::string::npos);
}

// ---- Callbacks that do what they should not

TEST(BufferQueue, ARecordThatChangesTheQueueDoesNotBreakIt) {
  std::mt19937 random(1);
  QueueRef queue;
  bool busy = false;
  int64_t in = 0, out = 0;
  auto push = [&] {
    const PVStatus status = PVBufferQueueEnqueue(queue.get(), frameAt(random() % 11).get());
    EXPECT_TRUE(status == 0 || status == -12764);
    in += status == 0;
  };
  auto pop = [&] { out += dequeue(queue) ? 1 : 0; };
  Asked asked = [&](const char* question) {
    if (busy || !queue) return;
    busy = true;
    // A buffer that compare is given must not go before it has been read.
    const uint32_t dice = random() % (question[0] == 'c' ? 20 : 40);
    if (dice < 10) push();
    if (dice >= 30) pop();
    if (dice == 20)
      PVBufferQueueResetWithCallback(
          queue.get(), [](PVBufferRef, void* count) { ++*static_cast<int64_t*>(count); }, &out);
    busy = false;
  };
  queue = makeQueue(sortedFrameCallbacks(&asked), 20);
  PVBufferQueueTriggerToken token;
  PVBufferQueueInstallTrigger(queue.get(), nullptr, nullptr, 7, kPVTimeInvalid, &token);
  for (int i = 0; i < 2000; ++i) {
    push();
    if (i % 3 == 0) out += !!FrameRef::adopt(frameOf(PVBufferQueueDequeueIfDataReadyAndRetain(queue.get())));
    ASSERT_LE(PVBufferQueueGetBufferCount(queue.get()), 20);
    ASSERT_EQ(PVBufferQueueGetBufferCount(queue.get()), in - out);
    ASSERT_EQ(keysOf(queue).size(), static_cast<size_t>(in - out));
  }
  busy = true;
  queue = nullptr;
  EXPECT_EQ(Frame::alive, 0);
}

TEST(BufferQueue, LivesUntilACallReturnsWhoseCallbackReleasesIt) {
  struct Context {
    QueueRef queue;
    static PVStatus drop(PVBufferRef, void* context) {
      static_cast<Context*>(context)->queue = nullptr;
      return 0;
    }
  } context;
  auto frame = frameAt(0);
  auto fresh = [&] {
    context.queue = makeQueue();
    enqueue(context.queue, frame);
    return context.queue.get();
  };
  PVBufferQueueCallForEachBuffer(fresh(), Context::drop, &context);
  PVBufferQueueResetWithCallback(
      fresh(), [](PVBufferRef buffer, void* in) { Context::drop(buffer, in); }, &context);
  PVBufferQueueRef queue = fresh();
  PVBufferQueueSetValidationCallback(
      queue, [](PVBufferQueueRef, PVBufferRef buffer, void* in) { return Context::drop(buffer, in); },
      &context);
  EXPECT_EQ(PVBufferQueueEnqueue(queue, frame.get()), 0);
  queue = fresh();
  auto dropInTrigger = [](void* in, PVBufferQueueTriggerToken) { Context::drop(nullptr, in); };
  PVBufferQueueInstallTriggerWithIntegerThreshold(queue, dropInTrigger, &context, 11, 1, nullptr);
  EXPECT_EQ(PVBufferQueueEnqueue(queue, frame.get()), 0);
  PVBufferQueueInstallTriggerWithIntegerThreshold(fresh(), dropInTrigger, &context, 11, 0, nullptr);
  Asked asked = [&](const char* question) {
    if (std::strcmp(question, "ready") == 0) context.queue = nullptr;
  };
  context.queue = makeQueue(frameCallbacks(&asked));
  enqueue(context.queue, frame);
  auto taken = FrameRef::adopt(frameOf(PVBufferQueueDequeueIfDataReadyAndRetain(context.queue.get())));
  EXPECT_EQ(taken.get(), frame.get());
  taken = nullptr;
  EXPECT_FALSE(context.queue);
  EXPECT_EQ(BRGetRetainCount(frame.get()), 1u);
}

}  // namespace
