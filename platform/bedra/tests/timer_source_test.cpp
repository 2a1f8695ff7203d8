#include "tests/support/test.hpp"

namespace {

using Queue = br::Ref<BRWorkQueue>;
using Source = br::Ref<BRTimerSource>;

constexpr uint64_t kSecondNs = 1'000'000'000, kHourNs = 3600 * kSecondNs;

Queue makeQueue() { return Queue::adopt(BRWorkQueueCreate(nullptr, "org.example.timers")); }
void finish(const Queue& queue) {
  BRWorkQueueSync(
      queue.get(), [](void*) {}, nullptr);
}
void async(const Queue& queue, std::function<void()> action) {
  BRWorkQueueAsync(
      queue.get(),
      [](void* context) {
        (*static_cast<std::function<void()>*>(context))();
        delete static_cast<std::function<void()>*>(context);
      },
      new std::function<void()>(std::move(action)));
}

// What a source's context counts.
struct Info {
  std::function<void(BRTimerSourceRef, uint64_t)> action = [](BRTimerSourceRef, uint64_t) {};
  std::atomic<int> calls{0}, cancelled{0}, retained{0}, released{0};
  std::atomic<uint64_t> fires{0};

  BRTimerSourceContext context() {
    return {0, this,
            [](const void* info) {
              ++const_cast<Info*>(static_cast<const Info*>(info))->retained;
              return info;
            },
            [](const void* info) {
              auto* self = const_cast<Info*>(static_cast<const Info*>(info));
              ++self->released;
              self->released.notify_all();
            },
            [](BRTimerSourceRef source, void* info) {
              auto* self = static_cast<Info*>(info);
              EXPECT_TRUE(BRTimerSourceIsCancelled(source));
              EXPECT_EQ(self->released, 0);
              ++self->cancelled;
            }};
  }
  static void fire(BRTimerSourceRef source, uint64_t fires, void* info) {
    auto* self = static_cast<Info*>(info);
    EXPECT_EQ(self->cancelled, 0);
    EXPECT_EQ(self->released, 0);
    self->fires += fires;
    self->action(source, fires);
    ++self->calls;
    self->calls.notify_all();
  }
  void waitForCalls(int wanted) const {
    for (int seen = calls; seen < wanted; seen = calls) calls.wait(seen);
  }
  void waitForRelease() const { released.wait(0); }
};

Source makeSource(const Queue& queue, Info& info, BRAllocatorRef allocator = nullptr) {
  const BRTimerSourceContext context = info.context();
  return Source::adopt(BRTimerSourceCreate(allocator, queue.get(), Info::fire, &context));
}
void set(const Source& source, uint64_t startNs, uint64_t intervalNs = 0, uint64_t leewayNs = 0) {
  BRTimerSourceSetTimer(source.get(), startNs, intervalNs, leewayNs);
}
// Cancels and waits for the end of it, as every test does whose Info goes.
void end(const Source& source, const Info& info) {
  BRTimerSourceCancel(source.get());
  info.waitForRelease();
}

TEST(TimerSource, FiresOnItsQueueAndNeverEarly) {
  Queue queue = makeQueue();
  Info info;
  Source source = makeSource(queue, info);
  const uint64_t start = BRTimerSourceNowNs() + 2'000'000;
  info.action = [&](BRTimerSourceRef fired, uint64_t) {
    EXPECT_EQ(fired, source.get());
    EXPECT_TRUE(BRWorkQueueIsCurrent(queue.get()));
    EXPECT_GE(BRTimerSourceNowNs(), start + (info.fires - 1) * 500'000);
  };
  set(source, start, 500'000);
  info.waitForCalls(5);
  set(source, kBRTimerSourceStartForever);
  finish(queue);
  const int calls = info.calls;
  info.action = [](BRTimerSourceRef, uint64_t) {};
  set(source, kBRTimerSourceStartNow, kHourNs);
  info.waitForCalls(calls + 1);
  finish(queue);
  EXPECT_EQ(BRGetRetainCount(source.get()), 2u);  // it waits for its next tick
  end(source, info);
  EXPECT_EQ(info.calls, calls + 1);
}

TEST(TimerSource, TicksThatHavePassedAreMerged) {
  Queue queue = makeQueue();
  Info info;
  Source source = makeSource(queue, info);
  const uint64_t longNs = BRTimerSourceNowNs() * 2 / 5;
  set(source, 1, longNs, longNs);
  info.waitForCalls(1);
  EXPECT_EQ(info.fires, 3u);
  const struct {
    uint64_t startNs, intervalNs, leewayNs;
  } odd[] = {{1, 0, 0}, {kBRTimerSourceStartNow, UINT64_MAX, 0}, {1, 8'073'216'000 * kSecondNs, 0}};
  for (auto& [startNs, intervalNs, leewayNs] : odd) {
    const int calls = info.calls;
    set(source, startNs, intervalNs, leewayNs);
    info.waitForCalls(calls + 1);
    finish(queue);
    EXPECT_EQ(info.calls, calls + 1);
  }
  EXPECT_EQ(info.fires, 6u);
  set(source, uint64_t{1} << 63);
  end(source, info);
  EXPECT_EQ(info.fires, 6u);
}

// Keeps the queue busy for as long as it lives; then all that waited has run.
struct Blocked {
  explicit Blocked(const Queue& blocked) : queue(blocked) {
    async(queue, [this] {
      started.count_down();
      released.wait();
    });
    started.wait();
  }
  ~Blocked() {
    released.count_down();
    finish(queue);
  }
  Queue queue;
  std::latch started{1}, released{1};
};

// When this returns, whatever was due before is with its queue.
void letDueSourcesThrough() {
  Queue queue = makeQueue();
  Info info;
  Source source = makeSource(queue, info);
  set(source, kBRTimerSourceStartNow);
  info.waitForCalls(1);
  end(source, info);
}

TEST(TimerSource, SettingAnewTakesAFireBackThatHasNotBegun) {
  Queue queue = makeQueue();
  Info info, merged;
  Source source = makeSource(queue, info), other = makeSource(queue, merged);
  {
    Blocked blocked(queue);
    set(source, kBRTimerSourceStartNow);
    set(other, kBRTimerSourceStartNow);
    letDueSourcesThrough();
    set(source, kBRTimerSourceStartForever);
    set(other, 1, BRTimerSourceNowNs() * 2 / 3);
    letDueSourcesThrough();
  }
  EXPECT_EQ(info.calls, 0);
  EXPECT_EQ(BRGetRetainCount(source.get()), 1u);
  EXPECT_EQ(merged.calls, 1);
  EXPECT_EQ(merged.fires, 2u);
  {
    Blocked blocked(queue);
    set(source, kBRTimerSourceStartNow);
    letDueSourcesThrough();
    EXPECT_FALSE(BRTimerSourceCancel(source.get()));
    EXPECT_EQ(info.cancelled, 0);
  }
  info.waitForRelease();
  EXPECT_EQ(info.calls, 0);
  end(other, merged);
}

TEST(TimerSource, CancelTellsOfARunningHandlerAndEndsWithTheCancelHandler) {
  Queue queue = makeQueue();
  Info info;
  Source source = makeSource(queue, info);
  std::latch running(1), cancelled(1);
  info.action = [&](BRTimerSourceRef, uint64_t) {
    running.count_down();
    cancelled.wait();
    EXPECT_EQ(info.cancelled, 0);
    EXPECT_TRUE(BRTimerSourceCancel(source.get()));
  };
  EXPECT_FALSE(BRTimerSourceIsCancelled(source.get()));
  set(source, kBRTimerSourceStartNow, 1000);
  running.wait();
  EXPECT_TRUE(BRTimerSourceCancel(source.get()));
  EXPECT_TRUE(BRTimerSourceIsCancelled(source.get()));
  cancelled.count_down();
  info.waitForRelease();
  set(source, kBRTimerSourceStartNow);
  EXPECT_FALSE(BRTimerSourceCancel(source.get()));
  letDueSourcesThrough();
  finish(queue);
  EXPECT_EQ(info.calls, 1);
  EXPECT_EQ(info.cancelled, 1);
  EXPECT_EQ(info.released, 1);
  EXPECT_EQ(BRGetRetainCount(source.get()), 1u);
}

TEST(TimerSource, BadArgumentsMemoryAndSourcesNeverCancelled) {
  Queue queue = makeQueue();
  BRTimerSourceContext context{};
  EXPECT_EQ(BRTimerSourceCreate(nullptr, nullptr, Info::fire, &context), nullptr);
  EXPECT_EQ(BRTimerSourceCreate(nullptr, queue.get(), nullptr, &context), nullptr);
  context.version = 1;
  EXPECT_EQ(BRTimerSourceCreate(nullptr, queue.get(), Info::fire, &context), nullptr);
  BRTimerSourceSetTimer(nullptr, 0, 0, 0);
  EXPECT_FALSE(BRTimerSourceCancel(nullptr));
  EXPECT_FALSE(BRTimerSourceIsCancelled(nullptr));
  Info info;
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    return makeSource(queue, info, allocator) ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  EXPECT_EQ(info.retained, 1);
  EXPECT_EQ(info.released, 1);
  EXPECT_EQ(info.cancelled, 0);

  Info kept;  // by nobody but itself until it has fired
  set(makeSource(queue, kept), BRTimerSourceNowNs() + 1'000'000);
  kept.waitForRelease();
  EXPECT_EQ(kept.calls, 1);
}

TEST(TimerSourceThreads, ABusyHandlerHoldsUpNoOtherQueue) {
  Queue busy = makeQueue(), others[] = {makeQueue(), makeQueue()};
  Info busyInfo, before, from;
  Source source = makeSource(busy, busyInfo), setBefore = makeSource(others[0], before),
         setFrom = makeSource(others[1], from);
  busyInfo.action = [&](BRTimerSourceRef, uint64_t) {
    before.waitForCalls(1);
    set(setFrom, BRTimerSourceNowNs() + 1000);
    from.waitForCalls(1);
  };
  set(setBefore, BRTimerSourceNowNs() + 5'000'000);
  set(source, kBRTimerSourceStartNow);
  busyInfo.waitForCalls(1);
  end(source, busyInfo);
  end(setBefore, before);
  end(setFrom, from);
}

TEST(TimerSourceThreads, NoWakeUpIsLost) {
  constexpr int kTurns = 3000;
  Queue queues[] = {makeQueue(), makeQueue()};
  Info infos[3];
  const Source sources[] = {makeSource(queues[0], infos[0]), makeSource(queues[0], infos[1]),
                            makeSource(queues[1], infos[2])};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([&, t] {
      for (int i = 1; i <= kTurns; ++i) {
        set(sources[t], i % 2 ? kBRTimerSourceStartNow : BRTimerSourceNowNs() + 10'000, 0, i % 3 * 5000);
        infos[t].waitForCalls(i);
      }
    });
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 3; ++t) {
    EXPECT_EQ(infos[t].fires, uint64_t{kTurns});
    end(sources[t], infos[t]);
  }
}

TEST(TimerSourceThreads, SettingAndCancellingWhileItFiresLosesNothing) {
  Queue queues[] = {makeQueue(), makeQueue()};
  for (int turn = 0; turn < 300; ++turn) {
    Info info;
    int unguarded = 0;  // the queue is what serialises
    info.action = [&](BRTimerSourceRef source, uint64_t) {
      if (++unguarded % 3 == 0) BRTimerSourceSetTimer(source, kBRTimerSourceStartNow, 1000, 500);
    };
    Source source = makeSource(queues[turn % 2], info);
    set(source, kBRTimerSourceStartNow, 2000);
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
      threads.emplace_back([&, t] {
        for (int i = 0; i < 20; ++i)
          set(source, i % 4 ? kBRTimerSourceStartNow : kBRTimerSourceStartForever, 1000);
        if (t == turn % 2) BRTimerSourceCancel(source.get());
      });
    for (auto& thread : threads) thread.join();
    info.waitForRelease();
    EXPECT_EQ(info.cancelled, 1);
    finish(queues[turn % 2]);
    EXPECT_EQ(BRGetRetainCount(source.get()), 1u);
  }
}

}  // namespace
