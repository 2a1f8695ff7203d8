#include <bedra/bedra.h>
#include <gtest/gtest.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <atomic>
#include <cmath>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/failing_allocator.hpp"

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

Timer makeTimer(Info& info, double afterSeconds, BRAllocatorRef allocator = nullptr) {
  const BRRunLoopTimerContext context = info.context();
  return Timer::adopt(
      BRRunLoopTimerCreate(allocator, BRAbsoluteTimeGetCurrent() + afterSeconds, Info::fire, &context));
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
    EXPECT_GT(BRAbsoluteTimeGetCurrent(), date - 1e-4);
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
    timers.push_back(Timer::adopt(BRRunLoopTimerCreate(nullptr, dates[i], Info::fire, &context)));
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

TEST(RunLoop, BadTimersAndFullLoopsAreRefused) {
  BRRunLoopTimerContext context{};
  EXPECT_EQ(BRRunLoopTimerCreate(nullptr, 0, nullptr, &context), nullptr);
  context.version = 1;
  EXPECT_EQ(BRRunLoopTimerCreate(nullptr, 0, Info::fire, &context), nullptr);
  EXPECT_FALSE(BRRunLoopAddTimer(nullptr, nullptr, nullptr));
  EXPECT_FALSE(BRRunLoopTimerIsValid(nullptr));
  // A loop of its own, for the modes stay. It lets go of the timer when its thread ends, after the lambda's locals.
  Info info;
  std::thread([&info] {
    Timer timer = makeTimer(info, 3600);
    int modes = 0;
    for (; modes < 100; ++modes) {
      auto mode = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(nullptr, "mode %d", modes));
      if (!BRRunLoopAddTimer(current(), timer.get(), mode.get())) break;
    }
    EXPECT_EQ(modes, 32);
  }).join();
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
