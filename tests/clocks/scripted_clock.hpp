// A derived clock that answers what the test has put down. Without a reference clock it is a fake source of
// time that stands until the test moves it.
#ifndef TESTS_CLOCKS_SCRIPTED_CLOCK_HPP
#define TESTS_CLOCKS_SCRIPTED_CLOCK_HPP

#include <kiv/clock.h>

#include "tests/support/test.hpp"

namespace test {

inline PVTime seconds(int64_t value) { return PVTimeMake(value, 1); }
inline PVTime milliseconds(int64_t value) { return PVTimeMake(value, 1000); }
inline PVTime nanoseconds(int64_t value) { return PVTimeMake(value, 1000000000); }

inline void expectTime(PVTime actual, PVTime expected) {
  EXPECT_EQ(PVTimeCompare(actual, expected), 0)
      << PVTimeGetSeconds(actual) << " instead of " << PVTimeGetSeconds(expected);
}

// What the clock's callbacks answer, and how often they were called.
struct ClockScript {
  PVTime time = kPVTimeZero;
  PVTime referenceTime = kPVTimeInvalid;
  double rate = 1.0;
  PVStatus status = 0;
  std::function<void(PVClockRef)> whenAsked;
  std::function<void(PVClockRef)> whenFinalized;
  int questions = 0;
  int finalized = 0;

  static ClockScript& of(PVClockRef clock) {
    return **static_cast<ClockScript**>(KivDerivedClockGetDerivedStorage(clock));
  }
};

inline PVStatus scriptedTime(PVClockRef clock, PVTime* clockTimeOut, PVTime* referenceTimeOut) {
  ClockScript& script = ClockScript::of(clock);
  ++script.questions;
  if (script.whenAsked) script.whenAsked(clock);
  *clockTimeOut = script.time;
  *referenceTimeOut = script.referenceTime;
  return script.status;
}

inline const KivDerivedClockCallbacks kScriptedClock = {
    .version = 1,
    .derivedStorageSizeBytes = sizeof(ClockScript*),
    .reserved = 0,
    .copyDebugDesc = nullptr,
    .finalize =
        [](PVClockRef clock) {
          ClockScript& script = ClockScript::of(clock);
          ++script.finalized;
          if (script.whenFinalized) script.whenFinalized(clock);
        },
    .mightDrift = [](PVClockRef a,
                     PVClockRef b) { return ClockScript::of(a).rate != ClockScript::of(b).rate; },
    .getRate = [](PVClockRef clock) { return ClockScript::of(clock).rate; },
    .getAnchorTime = scriptedTime};

class ScriptedClock {
 public:
  explicit ScriptedClock(PVClockRef reference = nullptr, PVTime minimumInterval = kPVTimeInvalid,
                         const KivDerivedClockCallbacks& kind = kScriptedClock) {
    EXPECT_EQ(KivDerivedClockCreateWithGetTimeCallback(nullptr, &kind, reference, false, clock_.out(),
                                                       minimumInterval),
              0);
    *static_cast<ClockScript**>(KivDerivedClockGetDerivedStorage(clock_.get())) = &script;
  }

  PVClockRef get() const { return clock_.get(); }
  void release() { clock_ = nullptr; }

  ClockScript script;

 private:
  br::Ref<PVClock> clock_;
};

}  // namespace test

#endif
