#include "tests/support/test.hpp"

namespace {

using Queue = br::Ref<BRWorkQueue>;
using Action = std::function<void()>;

Queue makeQueue(BRAllocatorRef allocator = nullptr) {
  return Queue::adopt(BRWorkQueueCreate(allocator, "org.example.queue"));
}
bool async(const Queue& queue, Action action) {
  return BRWorkQueueAsync(
      queue.get(),
      [](void* context) {
        (*static_cast<Action*>(context))();
        delete static_cast<Action*>(context);
      },
      new Action(std::move(action)));
}
bool sync(const Queue& queue, Action action) {
  return BRWorkQueueSync(
      queue.get(), [](void* context) { (*static_cast<Action*>(context))(); }, &action);
}

TEST(WorkQueue, LabelAndBadArguments) {
  Queue queue = makeQueue();
  EXPECT_STREQ(BRWorkQueueGetLabel(queue.get()), "org.example.queue");
  Queue unnamed = Queue::adopt(BRWorkQueueCreate(nullptr, nullptr));
  EXPECT_STREQ(BRWorkQueueGetLabel(unnamed.get()), "");
  EXPECT_FALSE(BRWorkQueueAsync(
      nullptr, [](void*) {}, nullptr));
  EXPECT_FALSE(BRWorkQueueAsync(queue.get(), nullptr, nullptr));
  EXPECT_FALSE(BRWorkQueueSync(queue.get(), nullptr, nullptr));
  EXPECT_FALSE(BRWorkQueueIsCurrent(queue.get()));
}

TEST(WorkQueue, SyncRunsAfterEverythingQueuedAndNotFromTheQueueItself) {
  Queue queue = makeQueue(), second = makeQueue();
  std::vector<int> order;
  for (int i = 0; i < 1000; ++i) async(queue, [&order, i] { order.push_back(i); });
  EXPECT_TRUE(sync(queue, [&] {
    order.push_back(1000);
    EXPECT_TRUE(BRWorkQueueIsCurrent(queue.get()));
    EXPECT_FALSE(sync(queue, [] { FAIL(); }));
    EXPECT_TRUE(sync(second, [&] {
      EXPECT_TRUE(BRWorkQueueIsCurrent(queue.get()));
      EXPECT_TRUE(BRWorkQueueIsCurrent(second.get()));
      EXPECT_FALSE(sync(queue, [] { FAIL(); }));
    }));
    EXPECT_FALSE(BRWorkQueueIsCurrent(second.get()));
  }));
  ASSERT_EQ(order.size(), 1001u);
  for (int i = 0; i <= 1000; ++i) EXPECT_EQ(order[i], i);
}

TEST(WorkQueue, QueueLivesUntilItsLastCallAndMemoryRunsOut) {
  test::FailingAllocator allocator;
  std::latch block(1), done(1);
  Queue queue = makeQueue(allocator);
  async(queue, [&] { block.wait(); });
  async(queue, [&] { done.count_down(); });
  allocator.failRequest(1);
  EXPECT_FALSE(BRWorkQueueAsync(
      queue.get(), [](void*) { FAIL(); }, nullptr));
  queue = nullptr;
  EXPECT_GT(allocator.liveBlocks(), 0);
  block.count_down();
  done.wait();
  while (allocator.liveBlocks() != 0 || BRGetRetainCount(allocator) != 1) std::this_thread::yield();
  test::walkAllocationFailures([](BRAllocatorRef failing) {
    return makeQueue(failing) ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
}

TEST(WorkQueueThreads, CallsOfManyThreadsRunOneAtATimeInEachThreadsOrder) {
  Queue queue = makeQueue();
  constexpr int kThreads = 3, kCalls = 3000;
  int last[kThreads] = {}, total = 0;  // not atomic: the queue is what serialises
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (int i = 1; i <= kCalls; ++i) {
        auto step = [&, t, i] {
          EXPECT_EQ(last[t], i - 1);
          last[t] = i;
          ++total;
        };
        EXPECT_TRUE(i % 64 == 0 ? sync(queue, step) : async(queue, step));
      }
    });
  for (auto& thread : threads) thread.join();
  sync(queue, [&] { EXPECT_EQ(total, kThreads * kCalls); });
}

TEST(WorkQueueThreads, SyncGoesThroughWhileEveryPoolThreadIsBlocked) {
  // More blocked calls than the pool can have threads, each waiting for a queue that has work of its own.
  constexpr int kBlocked = 20;
  std::latch release(1), done(kBlocked);
  std::vector<Queue> queues;
  Queue common = makeQueue();
  for (int i = 0; i < kBlocked; ++i) {
    queues.push_back(makeQueue());
    async(queues.back(), [&] {
      release.wait();
      done.count_down();
    });
  }
  std::vector<int> order;
  for (int i = 0; i < 10; ++i) async(common, [&order, i] { order.push_back(i); });
  EXPECT_TRUE(sync(common, [&] { EXPECT_EQ(order.size(), 10u); }));
  release.count_down();
  done.wait();
}

TEST(WorkQueueThreads, DifferentQueuesRunSideBySide) {
  Queue a = makeQueue(), b = makeQueue();
  std::latch meet(2), done(2);
  for (auto& queue : {a, b})
    async(queue, [&] {
      meet.arrive_and_wait();
      done.count_down();
    });
  done.wait();
}

}  // namespace
