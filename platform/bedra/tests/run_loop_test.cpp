#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using Timer = br::Ref<BRRunLoopTimer>;

// What a timer's context counts.
struct Info {
  std::function<void(BRRunLoopTimerRef)> action = [](BRRunLoopTimerRef) {};
  std::atomic<int> retained{0}, released{0}, fired{0};

  BRRunLoopTimerContext context() {
    return {0, this,
            [](const void* info) {
              ++const_cast<Info*>(static_cast<const Info*>(info))->retained;
              return info;
            },
            [](const void* info) { ++const_cast<Info*>(static_cast<const Info*>(info))->released; }};
  }
  static void fire(BRRunLoopTimerRef timer, void* info) {
    auto* self = static_cast<Info*>(info);
    EXPECT_LT(self->released, self->retained);
    ++self->fired;
    self->action(timer);
  }
};

Timer makeTimer(Info& info, double afterSeconds, BRAllocatorRef allocator = nullptr, double interval = 0) {
  const BRRunLoopTimerContext context = info.context();
  return Timer::adopt(BRRunLoopTimerCreate(allocator, BRAbsoluteTimeGetCurrent() + afterSeconds, interval,
                                           Info::fire, &context));
}

BRRunLoopRef current() { return BRRunLoopGetCurrent(); }
bool add(const Timer& timer, BRStringRef mode = kBRRunLoopDefaultMode) {
  return BRRunLoopAddTimer(current(), timer.get(), mode);
}
BRRunLoopResult run(double seconds = 10, bool once = false, BRStringRef mode = kBRRunLoopDefaultMode) {
  return BRRunLoopRunInMode(mode, seconds, once);
}

TEST(RunLoop, TimerFiresOnceAtItsDateAndIsThenInvalid) {
  Info info;
  Timer timer = makeTimer(info, 0.005);
  const double date = BRRunLoopTimerGetNextFireDate(timer.get());
  info.action = [&](BRRunLoopTimerRef fired) {
    EXPECT_EQ(fired, timer.get());
    EXPECT_FALSE(BRRunLoopTimerIsValid(fired));
    EXPECT_GE(BRAbsoluteTimeGetCurrent(), date - 1e-6);  // what a double leaves out
  };
  ASSERT_TRUE(add(timer));
  EXPECT_TRUE(BRRunLoopTimerIsValid(timer.get()));
  EXPECT_EQ(run(), kBRRunLoopFinished);
  EXPECT_EQ(info.fired, 1);
  EXPECT_EQ(info.retained, 1);
  EXPECT_EQ(info.released, 1);
  EXPECT_FALSE(add(timer));
  EXPECT_EQ(BRGetRetainCount(timer.get()), 1u);
}

TEST(RunLoop, DueTimersFireByDateThenInTheOrderSet) {
  std::string order;
  Info infos[4];
  std::vector<Timer> timers;
  const double dates[] = {1.0, -INFINITY, 0.0, 2.0};  // all long past: as if set at the moment they are set
  for (int i = 0; i < 4; ++i) {
    infos[i].action = [&order, i](BRRunLoopTimerRef) { order += static_cast<char>('a' + i); };
    const BRRunLoopTimerContext context = infos[i].context();
    timers.push_back(Timer::adopt(BRRunLoopTimerCreate(nullptr, dates[i], 0, Info::fire, &context)));
    add(timers.back());
  }
  Info later;
  Timer last = makeTimer(later, 3600);
  later.action = [&](BRRunLoopTimerRef) { order += 'z'; };
  add(last);
  BRRunLoopTimerSetNextFireDate(timers[1].get(), 0.0);  // set anew: behind the others
  BRRunLoopTimerSetNextFireDate(timers[3].get(), BRAbsoluteTimeGetCurrent() + 3600);
  EXPECT_EQ(run(0), kBRRunLoopTimedOut);
  EXPECT_EQ(order, "acb");
  BRRunLoopTimerSetNextFireDate(last.get(), 0);
  EXPECT_EQ(run(0), kBRRunLoopTimedOut);
  EXPECT_EQ(order, "acbz");
  BRRunLoopTimerInvalidate(timers[3].get());
  EXPECT_EQ(run(0), kBRRunLoopFinished);
}

TEST(RunLoop, ResultsOfARun) {
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  Info far, due;
  Timer waiting = makeTimer(far, 3600), first = makeTimer(due, -1), second = makeTimer(due, -1);
  add(waiting);
  EXPECT_EQ(run(0), kBRRunLoopTimedOut);
  EXPECT_EQ(run(0.001), kBRRunLoopTimedOut);
  EXPECT_EQ(run(std::nan("")), kBRRunLoopTimedOut);
  for (double date : {0.0, BRAbsoluteTimeGetCurrent() + 0.001, std::nan("")})
    EXPECT_EQ(BRRunLoopRunUntilDate(kBRRunLoopDefaultMode, date), kBRRunLoopTimedOut);
  add(first);
  add(second);
  EXPECT_EQ(run(0, true), kBRRunLoopHandledSource);
  EXPECT_EQ(due.fired, 1);
  BRRunLoopStop(current());
  EXPECT_EQ(run(INFINITY, true), kBRRunLoopStopped);
  EXPECT_EQ(due.fired, 1);
  EXPECT_EQ(run(0, true), kBRRunLoopHandledSource);
  EXPECT_EQ(run(0, true), kBRRunLoopTimedOut);
  EXPECT_EQ(BRRunLoopRunInMode(nullptr, 1, false), kBRRunLoopFinished);
  BRRunLoopTimerInvalidate(waiting.get());
}

TEST(RunLoop, ModesSelectTimersAndATimerInSeveralFiresOnce) {
  Info info, other;
  Timer both = makeTimer(info, -1), one = makeTimer(other, -1);
  add(both);
  add(both, "resize"_br);
  add(one, "other"_br);
  EXPECT_EQ(BRGetRetainCount(both.get()), 2u);
  BRStringRef same = BRStringCreateWithCString(nullptr, "resize", kBRStringEncodingUTF8);
  EXPECT_TRUE(BRRunLoopContainsTimer(current(), both.get(), same));
  EXPECT_FALSE(BRRunLoopContainsTimer(current(), both.get(), "other"_br));
  EXPECT_EQ(run(1, false, same), kBRRunLoopFinished);
  BRRelease(same);
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  EXPECT_EQ(info.fired, 1);
  EXPECT_EQ(other.fired, 0);

  Info third;
  Timer removed = makeTimer(third, -1);
  add(removed);
  add(removed, "resize"_br);
  BRRunLoopRemoveTimer(current(), removed.get(), kBRRunLoopDefaultMode);
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  BRRunLoopRemoveTimer(current(), removed.get(), "resize"_br);
  EXPECT_EQ(run(0, false, "resize"_br), kBRRunLoopFinished);
  EXPECT_TRUE(BRRunLoopTimerIsValid(removed.get()));
  EXPECT_EQ(BRGetRetainCount(removed.get()), 1u);
  EXPECT_TRUE(add(removed));
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  EXPECT_EQ(third.fired, 1);
  BRRunLoopTimerInvalidate(one.get());
}

TEST(RunLoop, ContextIsReleasedOnceWhicheverWayATimerEnds) {
  Info invalidated, dropped, inCallback;
  {
    Timer timer = makeTimer(invalidated, -1);
    add(timer);
    BRRunLoopTimerInvalidate(timer.get());
    EXPECT_EQ(invalidated.released, 1);
    BRRunLoopTimerInvalidate(timer.get());
    BRRunLoopTimerSetNextFireDate(timer.get(), 0);
    EXPECT_EQ(run(0), kBRRunLoopFinished);
  }
  EXPECT_EQ(invalidated.released, 1);
  EXPECT_EQ(invalidated.fired, 0);
  makeTimer(dropped, -1);
  EXPECT_EQ(dropped.released, 1);
  inCallback.action = [&](BRRunLoopTimerRef timer) {
    BRRunLoopTimerInvalidate(timer);
    EXPECT_EQ(inCallback.released, 0);
  };
  add(makeTimer(inCallback, -1));
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  EXPECT_EQ(inCallback.released, 1);
}

TEST(RunLoop, BadTimersAreRefused) {
  BRRunLoopTimerContext context{};
  EXPECT_EQ(BRRunLoopTimerCreate(nullptr, 0, 0, nullptr, &context), nullptr);
  context.version = 1;
  EXPECT_EQ(BRRunLoopTimerCreate(nullptr, 0, 0, Info::fire, &context), nullptr);
  EXPECT_FALSE(BRRunLoopAddTimer(nullptr, nullptr, nullptr));
  EXPECT_FALSE(BRRunLoopTimerIsValid(nullptr));
  Info info;
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    return makeTimer(info, 0, allocator) ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  EXPECT_EQ(info.retained, info.released);
}

TEST(RunLoop, CallbacksMayRunTheLoopAgainAndSetTimersEndlessly) {
  Info inner, outer;
  Timer nested = makeTimer(inner, -1);
  outer.action = [&](BRRunLoopTimerRef) {
    add(nested, "nested"_br);
    EXPECT_EQ(run(5, false, "nested"_br), kBRRunLoopFinished);
  };
  add(makeTimer(outer, -1));
  EXPECT_EQ(run(5), kBRRunLoopFinished);
  EXPECT_EQ(inner.fired, 1);

  Info chain;
  chain.action = [&](BRRunLoopTimerRef) { add(makeTimer(chain, -1)); };
  Timer start = makeTimer(chain, -1);
  add(start);
  EXPECT_EQ(run(0), kBRRunLoopTimedOut);  // a round ends although there is always one more
  EXPECT_EQ(chain.fired, 1);
  chain.action = [](BRRunLoopTimerRef) {};
  run(0);
}

TEST(RunLoop, RepeatingTimerKeepsToItsTicksAndSkipsMissedOnes) {
  Info info;
  const double start = BRAbsoluteTimeGetCurrent() - 2500;
  const BRRunLoopTimerContext context = info.context();
  Timer timer = Timer::adopt(BRRunLoopTimerCreate(nullptr, start, 1000, Info::fire, &context));
  EXPECT_EQ(BRRunLoopTimerGetInterval(timer.get()), 1000);
  add(timer);
  EXPECT_EQ(run(0), kBRRunLoopTimedOut);
  EXPECT_EQ(info.fired, 1);  // for three ticks that have passed
  EXPECT_TRUE(BRRunLoopTimerIsValid(timer.get()));
  EXPECT_EQ(BRRunLoopTimerGetNextFireDate(timer.get()), start + 3000);
  EXPECT_EQ(run(0), kBRRunLoopTimedOut);
  EXPECT_EQ(info.fired, 1);

  BRRunLoopTimerSetNextFireDate(timer.get(), 0);
  info.action = [&](BRRunLoopTimerRef fired) {
    EXPECT_GT(BRRunLoopTimerGetNextFireDate(fired), BRAbsoluteTimeGetCurrent());
    EXPECT_TRUE(BRRunLoopContainsTimer(current(), fired, kBRRunLoopDefaultMode));
    EXPECT_EQ(run(0), kBRRunLoopFinished);  // not called from its own callback
    BRRunLoopTimerSetNextFireDate(fired, 0);
  };
  EXPECT_EQ(run(0, true), kBRRunLoopHandledSource);
  info.action = [](BRRunLoopTimerRef fired) { BRRunLoopTimerInvalidate(fired); };
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  EXPECT_EQ(info.fired, 3);
  EXPECT_EQ(info.released, 1);
  EXPECT_EQ(BRGetRetainCount(timer.get()), 1u);

  // far and odd intervals
  for (double interval : {-1.0, std::nan(""), 0.0})
    EXPECT_EQ(BRRunLoopTimerGetInterval(makeTimer(info, 0, nullptr, interval).get()), 0);
  for (double interval : {1e-30, 8073216000.0, double{INFINITY}}) {
    info.action = [](BRRunLoopTimerRef) {};
    Timer odd = makeTimer(info, 0, nullptr, interval);
    add(odd);
    const int before = info.fired;
    EXPECT_EQ(run(0), kBRRunLoopTimedOut);
    EXPECT_EQ(info.fired, before + 1);
    BRRunLoopTimerInvalidate(odd.get());
  }
}

TEST(RunLoop, RepeatingTimersLeaveAndJoinModesFromTheirCallback) {
  Info info;
  Timer timer = makeTimer(info, -1, nullptr, 3600);
  add(timer);
  info.action = [&](BRRunLoopTimerRef) {
    BRRunLoopRemoveTimer(current(), timer.get(), kBRRunLoopDefaultMode);
    add(timer, "later"_br);
  };
  EXPECT_EQ(run(0), kBRRunLoopFinished);
  EXPECT_EQ(run(0, false, "later"_br), kBRRunLoopTimedOut);
  BRRunLoopRemoveTimer(current(), timer.get(), "later"_br);
  EXPECT_EQ(BRGetRetainCount(timer.get()), 1u);
  EXPECT_EQ(info.fired, 1);
}

TEST(RunLoop, ToleranceLetsATimerWaitForAnother) {
  std::string order;
  Info lazyInfo, exactInfo;
  lazyInfo.action = [&](BRRunLoopTimerRef) { order += 'l'; };
  exactInfo.action = [&](BRRunLoopTimerRef) { order += 'e'; };
  Timer lazy = makeTimer(lazyInfo, 0.001), exact = makeTimer(exactInfo, 0.010);
  BRRunLoopTimerSetTolerance(lazy.get(), 3600);
  EXPECT_EQ(BRRunLoopTimerGetTolerance(lazy.get()), 3600);
  add(lazy);
  add(exact);
  EXPECT_EQ(run(), kBRRunLoopFinished);
  EXPECT_EQ(order, "el");

  order.clear();
  Timer repeating = makeTimer(lazyInfo, 0.001, nullptr, 0.004);
  BRRunLoopTimerSetTolerance(repeating.get(), 3600);  // no more than half the interval
  add(repeating);
  EXPECT_EQ(run(10, true), kBRRunLoopHandledSource);
  BRRunLoopTimerSetTolerance(repeating.get(), std::nan(""));
  EXPECT_EQ(BRRunLoopTimerGetTolerance(repeating.get()), 0);
  BRRunLoopTimerInvalidate(repeating.get());
}

// Whether the loop's descriptor can be read, now or within some seconds.
bool isReadable(int waitMs = 0) {
  pollfd polled{BRRunLoopGetPollDescriptor(current()), POLLIN, 0};
  return poll(&polled, 1, waitMs) == 1;
}
BRRunLoopResult dispatch(BRStringRef mode = kBRRunLoopDefaultMode) {
  return BRRunLoopDispatchPending(current(), mode);
}

TEST(RunLoop, DescriptorIsReadableWhenThereIsSomethingToDispatch) {
  std::thread([] {  // a loop that nobody polled before
    EXPECT_FALSE(isReadable());
    EXPECT_EQ(dispatch(), kBRRunLoopFinished);
    Info info;
    Timer timer = makeTimer(info, 3600, nullptr, 86400);
    add(timer);
    EXPECT_FALSE(isReadable());
    BRRunLoopTimerSetNextFireDate(timer.get(), 0);
    EXPECT_TRUE(isReadable(5000));
    EXPECT_EQ(dispatch(), kBRRunLoopTimedOut);
    EXPECT_EQ(info.fired, 1);
    EXPECT_FALSE(isReadable());

    // a mode that no timer was in before the dispatch
    EXPECT_EQ(dispatch("modal"_br), kBRRunLoopFinished);
    BRRunLoopTimerSetNextFireDate(timer.get(), 0);
    EXPECT_FALSE(isReadable());
    add(timer, "modal"_br);
    EXPECT_TRUE(isReadable(5000));
    // an event loop inside a callback
    Info inner;
    info.action = [&](BRRunLoopTimerRef) {
      add(makeTimer(inner, 0.001));
      while (inner.fired == 0 && isReadable(5000)) dispatch();
    };
    dispatch("modal"_br);
    EXPECT_EQ(inner.fired, 1);

    // a run of the loop leaves the descriptor as it should be
    add(makeTimer(inner, -1), "modal"_br);
    EXPECT_EQ(run(0.001, false, "modal"_br), kBRRunLoopTimedOut);
    EXPECT_EQ(inner.fired, 2);
    dispatch("modal"_br);
    EXPECT_FALSE(isReadable());
    BRRunLoopWakeUp(current());
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(dispatch("modal"_br), kBRRunLoopTimedOut);
    BRRunLoopStop(current());
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(dispatch("modal"_br), kBRRunLoopStopped);
    EXPECT_FALSE(isReadable());
    BRRunLoopTimerInvalidate(timer.get());
  })
      .join();
}

TEST(RunLoop, AThreadHasNoLoopWhileDescriptorsAreOut) {
  std::thread([] {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(current(), nullptr);
    EXPECT_EQ(run(INFINITY), kBRRunLoopFinished);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_NE(current(), nullptr);
  }).join();
}

TEST(RunLoopThreads, OnlyALoopsOwnThreadDispatchesAndItsEndClosesTheDescriptor) {
  br::Ref<BRRunLoop> loop;
  std::thread([&] {
    loop = br::Ref<BRRunLoop>::retain(current());
    EXPECT_GE(BRRunLoopGetPollDescriptor(loop.get()), 0);
    std::thread([&] {
      EXPECT_EQ(BRRunLoopDispatchPending(loop.get(), kBRRunLoopDefaultMode), kBRRunLoopRefused);
    }).join();
  }).join();
  EXPECT_EQ(BRRunLoopGetPollDescriptor(loop.get()), -1);
  EXPECT_EQ(BRRunLoopDispatchPending(loop.get(), kBRRunLoopDefaultMode), kBRRunLoopRefused);
  EXPECT_EQ(BRRunLoopGetPollDescriptor(nullptr), -1);
  BRRunLoopWakeUp(loop.get());
  BRRunLoopStop(loop.get());
}

// Another thread sets the timer, again and again, and waits for each call: a wake-up that is lost hangs here.
void expectNoWakeUpIsLost(const std::function<void()>& serve) {
  constexpr int kTurns = 2000;
  Info info;
  std::latch ready(1);
  br::Ref<BRRunLoop> loop;
  Timer timer = makeTimer(info, 3600, nullptr, 86400), others[3];
  info.action = [&](BRRunLoopTimerRef) { info.fired.notify_all(); };
  std::thread runner([&] {
    loop = br::Ref<BRRunLoop>::retain(current());
    add(timer);
    BRRunLoopGetPollDescriptor(current());
    ready.count_down();
    serve();
  });
  ready.wait();
  std::thread noise([&] {
    Info ignored;
    for (int i = 0; i < kTurns; ++i) {
      Timer& other = others[i % 3] = makeTimer(ignored, i % 7 * 1e-5, nullptr, i % 2);
      BRRunLoopAddTimer(loop.get(), other.get(), kBRRunLoopDefaultMode);
      if (i % 5) BRRunLoopTimerSetNextFireDate(other.get(), BRAbsoluteTimeGetCurrent());
      if (i % 3) BRRunLoopRemoveTimer(loop.get(), other.get(), kBRRunLoopDefaultMode);
      BRRunLoopTimerInvalidate(other.get());
    }
    while (ignored.released < kTurns) std::this_thread::yield();
  });
  for (int i = 0; i < kTurns; ++i) {
    BRRunLoopTimerSetNextFireDate(timer.get(), i % 2 ? 0 : BRAbsoluteTimeGetCurrent() + 1e-5);
    info.fired.wait(i);
  }
  noise.join();
  BRRunLoopStop(loop.get());
  runner.join();
  EXPECT_EQ(info.fired, kTurns);
}

TEST(RunLoopThreads, NoWakeUpIsLostWhileTheLoopRuns) {
  expectNoWakeUpIsLost([] { EXPECT_EQ(run(INFINITY), kBRRunLoopStopped); });
}

TEST(RunLoopThreads, NoWakeUpIsLostWhileTheProgramPollsForEdges) {
  expectNoWakeUpIsLost([] {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{EPOLLIN | EPOLLET, {}};
    epoll_ctl(epoll, EPOLL_CTL_ADD, BRRunLoopGetPollDescriptor(current()), &event);
    do epoll_wait(epoll, &event, 1, -1);
    while (dispatch() != kBRRunLoopStopped);
    close(epoll);
  });
}

TEST(RunLoopThreads, OtherThreadsAddMoveInvalidateAndStop) {
  std::latch ready(1);
  BRRunLoopRef loop = nullptr;
  Info keep, moved, added;
  Timer movedTimer = makeTimer(moved, 3600);
  BRRunLoopResult results[3] = {};
  std::thread runner([&] {
    loop = current();
    BRRetain(loop);
    Timer kept = makeTimer(keep, 3600);
    add(kept);
    add(movedTimer);
    ready.count_down();
    for (auto& result : results) result = run(INFINITY, true);
  });
  ready.wait();
  BRRunLoopTimerSetNextFireDate(movedTimer.get(), 0);
  Timer timer = makeTimer(added, 0.0);
  EXPECT_TRUE(BRRunLoopAddTimer(loop, timer.get(), kBRRunLoopDefaultMode));
  EXPECT_FALSE(BRRunLoopAddTimer(current(), timer.get(), kBRRunLoopDefaultMode));
  while (added.fired == 0 || moved.fired == 0) std::this_thread::yield();
  BRRunLoopWakeUp(loop);
  BRRunLoopStop(loop);
  runner.join();
  EXPECT_EQ(results[0], kBRRunLoopHandledSource);
  EXPECT_EQ(results[1], kBRRunLoopHandledSource);
  EXPECT_EQ(results[2], kBRRunLoopStopped);
  // The thread has ended: its loop is empty and takes nothing any more.
  EXPECT_EQ(keep.released, 1);
  EXPECT_EQ(keep.fired, 0);
  Timer late = makeTimer(added, 0);
  EXPECT_FALSE(BRRunLoopAddTimer(loop, late.get(), kBRRunLoopDefaultMode));
  BRRelease(loop);
}

TEST(RunLoopThreads, TimersInvalidatedWhileFiringLoseNothing) {
  std::latch ready(1);
  std::atomic<BRRunLoopRef> loop{nullptr};
  Info keep;
  std::thread runner([&] {
    Timer kept = makeTimer(keep, 3600);
    add(kept);
    loop = current();
    BRRetain(loop);
    ready.count_down();
    EXPECT_EQ(run(INFINITY), kBRRunLoopStopped);
  });
  ready.wait();
  std::vector<std::thread> changers;
  for (int t = 0; t < 2; ++t)
    changers.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        Info info;
        Timer timer = makeTimer(info, 0);
        ASSERT_TRUE(BRRunLoopAddTimer(loop, timer.get(), kBRRunLoopDefaultMode));
        if (i % 2) BRRunLoopTimerSetNextFireDate(timer.get(), 0);
        BRRunLoopTimerInvalidate(timer.get());
        while (info.released == 0) std::this_thread::yield();  // firing at this moment: released after it
        EXPECT_LE(info.fired, 1);
      }
    });
  for (auto& thread : changers) thread.join();
  BRRunLoopStop(loop);
  runner.join();
  BRRelease(loop);
}

}  // namespace
