#include "tests/clocks/timebase_support.hpp"

namespace {

using namespace test;
using TimerRef = br::Ref<BRRunLoopTimer>;
using SourceRef = br::Ref<BRTimerSource>;

constexpr double kDay = 86'400.0;
constexpr double kFarFuture = 8'073'216'000.0;

TimerRef makeTimer(double interval = kDay, int* calls = nullptr) {
  auto count = [](BRRunLoopTimerRef, void* info) { ++*static_cast<int*>(info); };
  const BRRunLoopTimerContext context{0, calls, nullptr, nullptr};
  auto timer = TimerRef::adopt(BRRunLoopTimerCreate(nullptr, 1e10, interval, count, &context));
  BRRunLoopAddTimer(BRRunLoopGetCurrent(), timer.get(), kBRRunLoopDefaultMode);
  return timer;
}

// How many seconds from now a timer is set to fire, to the tenth; infinity when it is parked.
double delayOf(const TimerRef& timer) {
  const BRAbsoluteTime date = BRRunLoopTimerGetNextFireDate(timer.get());
  return date == kFarFuture ? INFINITY : std::round((date - BRAbsoluteTimeGetCurrent()) * 10) / 10;
}

TEST(TimebaseTimer, ChecksWhatItIsGiven) {
  FakeClock clock;
  const Timebase timebase = onClock(clock);
  PVTimebaseRef t = timebase.get();
  BRRunLoopRef loop = BRRunLoopGetCurrent();
  const TimerRef timer = makeTimer(), shortTimer = makeTimer(kDay - 1), onceTimer = makeTimer(0);
  EXPECT_EQ(PVTimebaseAddTimer(t, timer.get(), nullptr), -12748);
  EXPECT_EQ(PVTimebaseAddTimer(t, shortTimer.get(), loop), -12751);
  EXPECT_EQ(PVTimebaseAddTimer(t, onceTimer.get(), loop), -12751);
  EXPECT_EQ(PVTimebaseSetTimerNextFireTime(t, timer.get(), kPVTimeZero, 0), -12749);
  EXPECT_EQ(PVTimebaseSetTimerToFireImmediately(t, timer.get()), -12749);
  EXPECT_EQ(PVTimebaseRemoveTimer(t, timer.get()), -12749);
  const uint32_t timerCount = BRGetRetainCount(timer.get()), loopCount = BRGetRetainCount(loop);
  EXPECT_EQ(PVTimebaseAddTimer(t, timer.get(), loop), 0);
  EXPECT_EQ(PVTimebaseAddTimer(t, timer.get(), loop), 0);
  EXPECT_EQ(PVTimebaseAddTimer(t, timer.get(), reinterpret_cast<BRRunLoopRef>(&clock)), -12749);
  EXPECT_EQ(BRGetRetainCount(timer.get()), timerCount + 1);
  EXPECT_EQ(PVTimebaseRemoveTimer(t, timer.get()), 0);
  EXPECT_EQ(delayOf(timer), INFINITY);
  EXPECT_EQ(BRGetRetainCount(timer.get()), timerCount);
  EXPECT_EQ(BRGetRetainCount(loop), loopCount);
  for (const TimerRef& made : {timer, shortTimer, onceTimer}) BRRunLoopTimerInvalidate(made.get());
}

TEST(TimebaseTimer, InvalidatedOnesAreDroppedAtTheNextTouch) {
  FakeClock clock;
  const Timebase timebase = onClock(clock);
  for (const bool byChange : {false, true}) {
    const TimerRef timer = makeTimer();
    ASSERT_EQ(PVTimebaseAddTimer(timebase.get(), timer.get(), BRRunLoopGetCurrent()), 0);
    BRRunLoopTimerInvalidate(timer.get());
    if (byChange)
      PVTimebaseSetRate(timebase.get(), 1.0);
    else
      EXPECT_EQ(PVTimebaseSetTimerNextFireTime(timebase.get(), timer.get(), kPVTimeZero, 0), -12749);
    EXPECT_EQ(BRGetRetainCount(timer.get()), 1u);
    EXPECT_EQ(PVTimebaseRemoveTimer(timebase.get(), timer.get()), -12749);
  }
}

// Which dates a change brings is compared with the model's; these are of clocks of another rate, and of times
// that the model does not draw.
TEST(TimebaseTimer, DatesFollowTheClocksRate) {
  FakeClock clock;
  clock.setRate(4.0);  // it covers four of its seconds in one of the host's
  const Timebase timebase = onClock(clock);
  PVTimebaseRef t = timebase.get();
  const TimerRef near = makeTimer(), coarse = makeTimer();
  for (const TimerRef& timer : {near, coarse})
    ASSERT_EQ(PVTimebaseAddTimer(t, timer.get(), BRRunLoopGetCurrent()), 0);
  PVTimebaseSetTimerNextFireTime(t, near.get(), seconds(80), 0);
  PVTimebaseSetTimerNextFireTime(t, coarse.get(), PVTimeMake(INT64_MAX / 2, 3), 0);
  EXPECT_EQ(delayOf(coarse), INFINITY);
  PVTimebaseSetRate(t, 1.0);
  EXPECT_EQ(delayOf(near), 20.0);
  EXPECT_NEAR(delayOf(coarse), static_cast<double>(INT64_MAX / 2) / 12, 1e6);
  PVTimebaseSetTimerNextFireTime(t, coarse.get(), kPVTimePositiveInfinity, 0);
  EXPECT_EQ(delayOf(coarse), INFINITY);
  PVTimebaseSetTime(t, seconds(100));
  EXPECT_EQ(delayOf(near), INFINITY);
  PVTimebaseSetRate(t, -2.0);
  EXPECT_EQ(delayOf(near), 2.5);
  clock.setRate(0.0);  // nothing leads to the host's time
  PVTimebaseSetTime(t, seconds(90));
  EXPECT_EQ(delayOf(near), INFINITY);
  for (const TimerRef& timer : {near, coarse}) BRRunLoopTimerInvalidate(timer.get());
}

TEST(TimebaseTimer, FiresOnTheRunLoopAndAgainWhenSetAgain) {
  const Timebase timebase = onClock(PVClockGetHostTimeClock());
  PVTimebaseSetRate(timebase.get(), 2.0);
  int calls = 0;
  const TimerRef timer = makeTimer(kDay, &calls);
  ASSERT_EQ(PVTimebaseAddTimer(timebase.get(), timer.get(), BRRunLoopGetCurrent()), 0);
  auto run = [] { return BRRunLoopRunInMode(kBRRunLoopDefaultMode, 1.0, true); };
  for (int i = 1; i <= 3; ++i) {
    const PVTime fire = PVTimeAdd(PVTimebaseGetTime(timebase.get()), PVTimeMake(i, 200));
    ASSERT_EQ(PVTimebaseSetTimerNextFireTime(timebase.get(), timer.get(), fire, 0), 0);
    EXPECT_EQ(run(), kBRRunLoopHandledSource);
    EXPECT_EQ(calls, i);
    EXPECT_GE(PVTimeGetSeconds(PVTimeSubtract(PVTimebaseGetTime(timebase.get()), fire)), -1e-6);
  }
  PVTimebaseSetRate(timebase.get(), 0.0);
  ASSERT_EQ(PVTimebaseSetTimerToFireImmediately(timebase.get(), timer.get()), 0);
  PVTimebaseSetRate(timebase.get(), 1.0);
  PVTimebaseSetRate(timebase.get(), 0.0);  // neither parks it
  EXPECT_EQ(run(), kBRRunLoopHandledSource);
  EXPECT_EQ(calls, 4);
  BRRunLoopTimerInvalidate(timer.get());
}

// What a program gives a timer to hold may end with it; that happens outside the timebase's locks.
TEST(TimebaseTimer, IsReleasedWhereItsEndMayWrite) {
  FakeClock clock;
  static Timebase timebase;
  timebase = onClock(clock);
  const BRRunLoopTimerContext context{
      0, &clock, nullptr,
      [](const void*) { std::thread([] { PVTimebaseSetTime(timebase.get(), seconds(5)); }).join(); }};
  TimerRef timer = TimerRef::adopt(BRRunLoopTimerCreate(
      nullptr, 1e10, kDay, [](BRRunLoopTimerRef, void*) {}, &context));
  ASSERT_EQ(PVTimebaseAddTimer(timebase.get(), timer.get(), BRRunLoopGetCurrent()), 0);
  BRRunLoopTimerRef last = timer.get();
  timer = nullptr;
  EXPECT_EQ(PVTimebaseRemoveTimer(timebase.get(), last), 0);
  EXPECT_TRUE(areEqual(PVTimebaseGetTime(timebase.get()), seconds(5)));
  timebase = nullptr;
}

// ---- Timer sources

struct Queue {
  Queue() : queue(br::Ref<BRWorkQueue>::adopt(BRWorkQueueCreate(nullptr, "org.example.timers"))) {}
  SourceRef makeSource() {
    auto fired = [](BRTimerSourceRef, uint64_t, void* info) {
      ++static_cast<Queue*>(info)->calls;
      static_cast<Queue*>(info)->calls.notify_all();
    };
    const BRTimerSourceContext context{0, this, nullptr, nullptr, nullptr};
    return SourceRef::adopt(BRTimerSourceCreate(nullptr, queue.get(), fired, &context));
  }
  void waitFor(int count) {
    for (int now = calls; now < count; now = calls) calls.wait(now);
  }
  br::Ref<BRWorkQueue> queue;
  std::atomic<int> calls{0};
};

TEST(TimebaseTimerSource, ChecksWhatItIsGiven) {
  FakeClock clock;
  const Timebase timebase = onClock(clock);
  PVTimebaseRef t = timebase.get();
  Queue queue;
  const SourceRef source = queue.makeSource();
  EXPECT_EQ(PVTimebaseAddTimerDispatchSource(t, nullptr), -12748);
  EXPECT_EQ(PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), kPVTimeZero, 0), -12749);
  EXPECT_EQ(PVTimebaseSetTimerDispatchSourceToFireImmediately(t, source.get()), -12749);
  EXPECT_EQ(PVTimebaseRemoveTimerDispatchSource(t, source.get()), -12749);
  EXPECT_EQ(PVTimebaseAddTimerDispatchSource(t, source.get()), 0);
  EXPECT_EQ(PVTimebaseAddTimerDispatchSource(t, source.get()), 0);
  EXPECT_EQ(PVTimebaseRemoveTimerDispatchSource(t, source.get()), 0);
  EXPECT_EQ(PVTimebaseAddTimerDispatchSource(t, source.get()), 0);
  BRTimerSourceCancel(source.get());
  EXPECT_EQ(PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), kPVTimeZero, 0), -12749);
  EXPECT_EQ(PVTimebaseAddTimerDispatchSource(t, source.get()), -12749);
}

TEST(TimebaseTimerSource, FiresWhenTheTimelineSaysAndNotBefore) {
  const Timebase timebase = onClock(PVClockGetHostTimeClock());
  PVTimebaseRef t = timebase.get();
  PVTimebaseSetRate(t, 3.0);
  Queue queue;
  const SourceRef source = queue.makeSource();
  ASSERT_EQ(PVTimebaseAddTimerDispatchSource(t, source.get()), 0);
  const PVTime fire = PVTimeAdd(PVTimebaseGetTime(t), PVTimeMake(30, 1000));
  ASSERT_EQ(PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), fire, 0), 0);
  queue.waitFor(1);
  EXPECT_GE(PVTimeCompare(PVTimebaseGetTime(t), PVTimeSubtract(fire, ns(3))), 0);
  ASSERT_EQ(PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), kPVTimeZero, 0),
            0);  // passed: at once
  queue.waitFor(2);
  ASSERT_EQ(PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), seconds(9), 0), 0);
  PVTimebaseSetTime(t, PVTimeSubtract(seconds(9), PVTimeMake(1, 100)));
  queue.waitFor(3);
  ASSERT_EQ(PVTimebaseSetTimerDispatchSourceToFireImmediately(t, source.get()), 0);
  queue.waitFor(4);
  // Parked ones stay quiet: at rate 0, without a number, removed.
  PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), kPVTimeIndefinite, 0);
  PVTimebaseSetRate(t, 0.0);
  PVTimebaseSetTimerDispatchSourceNextFireTime(t, source.get(), kPVTimeZero, 1);
  PVTimebaseRemoveTimerDispatchSource(t, source.get());
  PVTimebaseSetRate(t, 1.0);
  BRWorkQueueSync(
      queue.queue.get(), [](void*) {}, nullptr);
  EXPECT_EQ(queue.calls, 4);
  BRTimerSourceCancel(source.get());
}

TEST(TimebaseTimer, RunsOutOfMemoryAtEveryRequest) {
  FakeClock clock;
  Queue queue;
  const TimerRef timer = makeTimer();
  const SourceRef source = queue.makeSource();
  for (const bool isSource : {false, true})
    walkAllocationFailures([&](BRAllocatorRef allocator) {
      Timebase timebase;
      if (PVTimebaseCreateWithMasterClock(allocator, clock, timebase.out())) return Outcome::kOutOfMemory;
      const PVStatus status = isSource
                                  ? PVTimebaseAddTimerDispatchSource(timebase.get(), source.get())
                                  : PVTimebaseAddTimer(timebase.get(), timer.get(), BRRunLoopGetCurrent());
      EXPECT_TRUE(status == 0 || status == -12750) << status;
      return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
    });
  BRRunLoopTimerInvalidate(timer.get());
  BRTimerSourceCancel(source.get());
}

}  // namespace
