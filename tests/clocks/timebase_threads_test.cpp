#include <array>
#include <chrono>
#include <mutex>

#include "tests/clocks/timebase_support.hpp"

namespace {

using namespace test;
using Clock = std::chrono::steady_clock;

// Runs each function over and over on a thread of its own.
class Threads {
 public:
  void add(std::function<void(std::minstd_rand&)> function) {
    threads_.emplace_back([this, function, seed = threads_.size() + 1] {
      std::minstd_rand random(static_cast<uint32_t>(seed));
      while (!stop_) function(random);
    });
  }
  void runFor(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
    stop_ = true;
    for (auto& thread : threads_) thread.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::vector<std::thread> threads_;
};

PVTime hostNow() { return PVClockGetTime(PVClockGetHostTimeClock()); }

TEST(TimebaseThreads, NoReaderSeesATimePastTheOneAtWhichATimebaseStops) {
  const Timebase timebase = onClock(PVClockGetHostTimeClock());
  std::atomic<int64_t> latest{0};
  Threads threads;
  for (int i = 0; i < 2; ++i)
    threads.add([&, last = int64_t{0}](std::minstd_rand&) mutable {
      const int64_t time = PVTimebaseGetTime(timebase.get()).value;
      EXPECT_GE(time, last);
      last = time;
      int64_t seen = latest;
      while (seen < time && !latest.compare_exchange_weak(seen, time)) {
      }
    });
  threads.add([&](std::minstd_rand&) {
    PVTimebaseSetRate(timebase.get(), 1.0);
    std::this_thread::yield();
    PVTimebaseSetRate(timebase.get(), 0.0);
    const int64_t stopped = PVTimebaseGetTime(timebase.get()).value;
    std::this_thread::yield();
    EXPECT_LE(latest, stopped);
  });
  threads.runFor(std::chrono::milliseconds(500));
  EXPECT_GT(latest, 0);
}

TEST(TimebaseThreads, TimeAndRateBelongTogether) {
  const Timebase top = onClock(PVClockGetHostTimeClock()), low = onTimebase(top.get());
  PVTimebaseSetRate(top.get(), 1.0);
  Threads threads;
  for (const PVTimebaseRef timebase : {top.get(), low.get()}) {
    threads.add([timebase](std::minstd_rand& random) {
      const int64_t rate = static_cast<int64_t>(1 + random() % 4);
      const auto master = br::Ref<const void>::adopt(PVTimebaseCopyMaster(timebase));
      const auto masterTimebase = Timebase::adopt(PVTimebaseCopyMasterTimebase(timebase));
      const PVTime now = masterTimebase ? PVTimebaseGetTime(masterTimebase.get()) : hostNow();
      PVTimebaseSetRateAndAnchorTime(timebase, static_cast<double>(rate), seconds(rate * 1000), now);
      std::this_thread::yield();
    });
  }
  threads.add([&](std::minstd_rand&) {
    PVTime time;
    double rate;
    PVTimebaseGetTimeAndRate(top.get(), &time, &rate);
    if (PVTimeGetSeconds(time) > 1e6 || rate == 1.0) return;  // not anchored yet
    const double sinceAnchor = PVTimeGetSeconds(time) - rate * 1000;
    EXPECT_GE(sinceAnchor, 0.0);
    EXPECT_LT(sinceAnchor, 100.0);
  });
  threads.runFor(std::chrono::milliseconds(300));
}

// ---- Everything at once

constexpr size_t kChain = 5;

struct Playground {
  Playground() {
    chain[0] = onClock(PVClockGetHostTimeClock());
    for (size_t i = 1; i < kChain; ++i) chain[i] = onTimebase(chain[i - 1].get());
    view = viewOf(chain[4].get());
    for (auto& timebase : chain) PVTimebaseSetRate(timebase.get(), 1.0);
  }
  PVTimebaseRef any(std::minstd_rand& random) { return chain[random() % kChain].get(); }
  PVTimebaseRef anyOrView(std::minstd_rand& random) { return random() % 6 ? any(random) : view.get(); }

  std::array<Timebase, kChain> chain;
  Timebase view;
  std::atomic<int> fired{0};
};

void write(Playground& ground, std::minstd_rand& random) {
  PVTimebaseRef timebase = ground.any(random);
  const double rate = std::array{-1.0, 0.0, 0.5, 1.0, 2.0}[random() % 5];
  switch (random() % 4) {
    case 0:
      PVTimebaseSetTime(timebase, seconds(random() % 100));
      break;
    case 1:
      PVTimebaseSetRateAndAnchorTime(timebase, rate, seconds(random() % 100), hostNow());
      break;
    default:
      PVTimebaseSetRate(timebase, rate);
  }
}

void read(Playground& ground, std::minstd_rand& random) {
  PVTimebaseRef timebase = ground.anyOrView(random);
  PVTime time;
  double rate;
  EXPECT_EQ(PVTimebaseGetTimeAndRate(timebase, &time, &rate), 0);
  EXPECT_TRUE(PVTimeIsNumeric(time));
  PVTimebaseGetEffectiveRate(timebase);
  int64_t height = 0;
  const auto clock = br::Ref<PVClock>::adopt(KivTimebaseCopyUltimateMasterClockAndHeight(timebase, &height));
  EXPECT_EQ(clock.get(), PVClockGetHostTimeClock());
  EXPECT_GE(height, 1);
}

// Both close circles now and then, which is refused.
void changeMasters(Playground& ground, std::minstd_rand& random) {
  PVTimebaseRef timebase = ground.any(random);
  if (random() % 3 == 0)
    PVTimebaseSetMasterClock(timebase, PVClockGetHostTimeClock());
  else
    PVTimebaseSetMasterTimebase(timebase, ground.anyOrView(random));
  KivReadOnlyTimebaseSetTargetTimebase(ground.view.get(), ground.any(random));
}

// Followers and views that end while their master is heard of; and a listener that writes and waits.
void comeAndGo(Playground& ground, std::minstd_rand& random) {
  const Timebase follower = onTimebase(ground.anyOrView(random)), view = viewOf(follower.get());
  PVTimebaseSetRate(follower.get(), 1.0);
  EXPECT_EQ(PVTimebaseNotificationBarrier(ground.any(random)), 0);
}

void writeBack(PVNotificationCenterRef, void*, BRStringRef, const void* object, BRDictionaryRef) {
  thread_local bool isInside = false;
  if (isInside) return;
  isInside = true;
  auto* timebase = static_cast<PVTimebaseRef>(const_cast<void*>(object));
  PVTimebaseSetTime(timebase, kPVTimeZero);
  PVTimebaseSetMasterClock(timebase, PVClockGetHostTimeClock());
  PVTimebaseNotificationBarrier(timebase);
  isInside = false;
}

// A timer of a run loop on a thread of its own.
void runLoopTimers(Playground& ground, std::minstd_rand& random) {
  auto fired = [](BRRunLoopTimerRef, void* info) { ++*static_cast<std::atomic<int>*>(info); };
  const BRRunLoopTimerContext context{0, &ground.fired, nullptr, nullptr};
  const auto timer =
      br::Ref<BRRunLoopTimer>::adopt(BRRunLoopTimerCreate(nullptr, 1e10, 86'400.0, fired, &context));
  PVTimebaseRef timebase = ground.anyOrView(random);
  BRRunLoopAddTimer(BRRunLoopGetCurrent(), timer.get(), kBRRunLoopDefaultMode);
  ASSERT_EQ(PVTimebaseAddTimer(timebase, timer.get(), BRRunLoopGetCurrent()), 0);
  for (int i = 0; i < 3; ++i) {
    PVTimebaseSetTimerNextFireTime(timebase, timer.get(), PVTimebaseGetTime(timebase), random() % 2);
    BRRunLoopRunInMode(kBRRunLoopDefaultMode, 0.0005, true);
  }
  if (random() % 2) PVTimebaseRemoveTimer(timebase, timer.get());
  BRRunLoopTimerInvalidate(timer.get());
}

void timerSources(Playground& ground, std::minstd_rand& random, BRWorkQueueRef queue) {
  auto fired = [](BRTimerSourceRef, uint64_t, void* info) { ++*static_cast<std::atomic<int>*>(info); };
  const BRTimerSourceContext context{0, &ground.fired, nullptr, nullptr, nullptr};
  const auto source = br::Ref<BRTimerSource>::adopt(BRTimerSourceCreate(nullptr, queue, fired, &context));
  PVTimebaseRef timebase = ground.anyOrView(random);
  ASSERT_EQ(PVTimebaseAddTimerDispatchSource(timebase, source.get()), 0);
  for (int i = 0; i < 3; ++i) {
    PVTimebaseSetTimerDispatchSourceNextFireTime(timebase, source.get(), PVTimebaseGetTime(timebase),
                                                 random() % 2);
    std::this_thread::yield();
  }
  if (random() % 2) PVTimebaseRemoveTimerDispatchSource(timebase, source.get());
  BRTimerSourceCancel(source.get());
}

TEST(TimebaseThreads, ChainsAreReadWrittenRehungAndTimedAtOnce) {
  Playground ground;
  const auto queue = br::Ref<BRWorkQueue>::adopt(BRWorkQueueCreate(nullptr, "org.example.timers"));
  const auto center = PVNotificationCenterGetDefaultLocalCenter();
  PVNotificationCenterAddListener(center, &ground, writeBack, nullptr, ground.chain[2].get());
  Threads threads;
  threads.add([&](auto& random) { read(ground, random); });
  threads.add([&](auto& random) { read(ground, random); });
  threads.add([&](auto& random) { write(ground, random); });
  threads.add([&](auto& random) { write(ground, random); });
  threads.add([&](auto& random) { changeMasters(ground, random); });
  threads.add([&](auto& random) { changeMasters(ground, random); });
  threads.add([&](auto& random) { comeAndGo(ground, random); });
  threads.add([&](auto& random) { runLoopTimers(ground, random); });
  threads.add([&](auto& random) { timerSources(ground, random, queue.get()); });
  threads.runFor(std::chrono::milliseconds(2500));
  PVNotificationCenterRemoveListener(center, &ground, writeBack, nullptr, ground.chain[2].get());
  EXPECT_GT(ground.fired, 0);
  BRWorkQueueSync(
      queue.get(), [](void*) {}, nullptr);
}

// Whoever changes a master may hold a lock that the listeners of the timebase take.
TEST(TimebaseThreads, AChangeOfMasterDoesNotWaitForListeners) {
  const Timebase a = onClock(PVClockGetHostTimeClock()), b = onClock(PVClockGetHostTimeClock());
  Timebase low = onTimebase(a.get());
  PVTimebaseSetRate(low.get(), 1.0);
  std::recursive_mutex programLock;
  const auto center = PVNotificationCenterGetDefaultLocalCenter();
  auto hear = [](PVNotificationCenterRef, void* lock, BRStringRef name, const void*, BRDictionaryRef) {
    if (BREqual(name, kPVTimebaseNotification_EffectiveRateChanged))
      std::lock_guard guard(*static_cast<std::recursive_mutex*>(lock));
  };
  PVNotificationCenterAddListener(center, &programLock, hear, nullptr, low.get());
  PVTimebaseRef heard = low.get();
  Threads threads;
  threads.add([&](auto& random) { PVTimebaseSetRate(a.get(), random() % 3); });
  threads.add([&](auto&) {
    std::lock_guard guard(programLock);
    PVTimebaseSetMasterTimebase(heard, b.get());
    PVTimebaseSetMasterTimebase(heard, a.get());
  });
  threads.runFor(std::chrono::milliseconds(300));
  PVNotificationCenterRemoveListener(center, &programLock, hear, nullptr, low.get());
}

}  // namespace
