// Reading timebases: time, rate, masters.
//
// The time of a timebase on the host time clock, and of one that stands still, is read without a lock. Else
// the mutex is held only to find the master; it is given up while the master is asked, and the answer counts
// when nothing was changed meanwhile. A reader that is disturbed again and again keeps the mutex.
#include <bedra/time.h>

#include <cmath>

#include "clocks/clock.hpp"
#include "clocks/timebase.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

namespace {

using pv::signalError;
using pv::TimeAndRate;
using pv::TimebaseRef;

constexpr int kTries = 64;  // a change takes the time of a few dozen

PVTime neverRounded(PVTime time) {
  time.flags &= ~uint32_t{kPVTimeFlags_HasBeenRounded};
  return time;
}

// What a reader finds is good only if the sequence still is what it was.
struct Attempt {
  bool isGood() const { return shared.isStill(sequence); }
  bool isGoodAfter(const PVTime& hostNow) const { return shared.isStillAfter(hostNow.value, sequence); }

  const pv::SharedReading& shared;
  const uint64_t sequence;
};

PVTime apply(const pv::SharedReading& shared, const pv::NsLine& line, const PVTime& masterTime) {
  PVTime time;
  if (line.apply(masterTime, &time)) [[likely]]
    return time;
  const PVSyncTransform transform = shared.transform();
  return neverRounded(KivSyncApplyTransform(&transform, masterTime));
}

bool readStanding(const Attempt& attempt, TimeAndRate* result) {
  *result = {neverRounded(attempt.shared.transform().toAnchor), 0.0};
  return attempt.isGood();
}

bool readByHostTime(const Attempt& attempt, TimeAndRate* result) {
  const pv::NsLine line = attempt.shared.line();
  const PVTime hostNow = pv::hostTimeNow();
  *result = {apply(attempt.shared, line, hostNow), attempt.shared.rate()};
  return attempt.isGoodAfter(hostNow);
}

// Takes the mutex for as long as it takes to find the master.
bool readByMaster(const Attempt& attempt, PVTimebaseRef timebase, TimeAndRate* result) {
  std::unique_lock lock(timebase->mutex);
  const pv::ClockRef clock = timebase->masterClock;
  const TimebaseRef master = timebase->masterTimebase;
  lock.unlock();
  const PVTime masterTime = clock ? PVClockGetTime(clock.get()) : PVTimebaseGetTime(master.get());
  *result = {apply(attempt.shared, attempt.shared.line(), masterTime), attempt.shared.rate()};
  return attempt.isGood();
}

// Where no mutex is needed. False while a change is being made, and for those that need one.
bool readUnlocked(PVTimebaseRef timebase, const Attempt& attempt, TimeAndRate* result) {
  if (pv::SharedReading::isBeingChanged(attempt.sequence)) [[unlikely]]
    return false;
  switch (timebase->shared.kind()) {
    case pv::ReadingKind::kByHostTime:
      return readByHostTime(attempt, result);
    case pv::ReadingKind::kStanding:
      return readStanding(attempt, result);
    default:
      return false;
  }
}

TimeAndRate read(PVTimebaseRef timebase) {
  TimeAndRate result;
  if (timebase->isReadOnly) return read(pv::copyTarget(timebase).get());
  for (int i = 0; i < kTries; ++i) {
    const Attempt attempt{timebase->shared, timebase->shared.sequence()};
    if (readUnlocked(timebase, attempt, &result)) [[likely]]
      return result;
    if (pv::SharedReading::isBeingChanged(attempt.sequence) ||
        attempt.shared.kind() != pv::ReadingKind::kByMaster)
      continue;
    if (readByMaster(attempt, timebase, &result)) return result;
    i += kTries / 4;  // the mutex has been waited for
  }
  return pv::readLocked(timebase);
}

}  // namespace

TimeAndRate pv::readLocked(PVTimebaseRef timebase) {
  TimeAndRate result;
  const Attempt attempt{timebase->shared, timebase->shared.sequence()};
  if (readUnlocked(timebase, attempt, &result)) return result;
  return withTarget(timebase, [](PVTimebase& shown) {
    return TimeAndRate{shown.timeNow(), shown.transform.rate};
  });
}

// ---- Under the mutex

PVTime PVTimebase::timeAt(PVTime masterTime) const {
  return neverRounded(transform.rate == 0.0 ? transform.toAnchor
                                            : KivSyncApplyTransform(&transform, masterTime));
}

PVTime PVTimebase::masterTimeNow() const {
  return masterClock ? PVClockGetTime(masterClock.get()) : pv::readLocked(masterTimebase.get()).time;
}

// ---- Time and rate

PVTime PVTimebaseGetTime(PVTimebaseRef timebase) {
  if (!timebase) {
    signalError(kPVTimebaseError_RequiredParameterMissing);
    return kPVTimeInvalid;
  }
  return read(timebase).time;
}
PV_TWIN(KivTimebaseGetTime, PVTimebaseGetTime)

PVTime PVTimebaseGetTimeWithTimeScale(PVTimebaseRef timebase, PVTimeScale timescale,
                                      PVTimeRoundingMethod method) {
  const PVTime time = PVTimebaseGetTime(timebase);
  if (timescale == 0 || !PVTimeIsNumeric(time) || time.timescale == timescale) return time;
  return PVTimeConvertScale(time, timescale, method);
}
PV_TWIN(KivTimebaseGetTimeWithTimeScale, PVTimebaseGetTimeWithTimeScale)

double PVTimebaseGetRate(PVTimebaseRef timebase) {
  if (!timebase) {
    signalError(kPVTimebaseError_RequiredParameterMissing);
    return 0.0;
  }
  if (!timebase->isReadOnly) return timebase->shared.rate();
  return pv::withTarget(timebase, [](PVTimebase& shown) { return shown.transform.rate; });
}
PV_TWIN(KivTimebaseGetRate, PVTimebaseGetRate)

PVStatus PVTimebaseGetTimeAndRate(PVTimebaseRef timebase, PVTime* timeOut, double* rateOut) {
  if (!timebase) return signalError(kPVTimebaseError_RequiredParameterMissing);
  const TimeAndRate both = read(timebase);
  if (timeOut) *timeOut = both.time;
  if (rateOut) *rateOut = both.rate;
  return kPVStatus_Success;
}
PV_TWIN(KivTimebaseGetTimeAndRate, PVTimebaseGetTimeAndRate)

// The rate of the transform from the clock, which is the relative rate to it.
double PVTimebaseGetEffectiveRate(PVTimebaseRef timebase) {
  if (PVTimebaseGetRate(timebase) == 0.0) return 0.0;
  PVSyncTransform transform;
  if (KivTimebaseGetTransformRelativeToUltimateMasterClock(timebase, kKivSyncDirection_FromReference,
                                                           &transform) != kPVStatus_Success)
    return 0.0;
  return std::isnan(transform.rate) ? 0.0 : transform.rate;
}
PV_TWIN(KivTimebaseGetEffectiveRate, PVTimebaseGetEffectiveRate)

// ---- Masters

namespace {

// A reference to one of the objects that the timebase, or what it shows, holds.
template <class T>
br::Ref<T> copyHeld(PVTimebaseRef timebase, br::Ref<T> PVTimebase::*member) {
  if (!timebase) {
    signalError(kPVTimebaseError_RequiredParameterMissing);
    return nullptr;
  }
  return pv::withTarget(timebase, [member](PVTimebase& shown) { return shown.*member; });
}

}  // namespace

PVTimebaseRef PVTimebaseCopyMasterTimebase(PVTimebaseRef timebase) {
  return copyHeld(timebase, &PVTimebase::masterTimebase).detach();
}

PVClockRef PVTimebaseCopyMasterClock(PVTimebaseRef timebase) {
  return copyHeld(timebase, &PVTimebase::masterClock).detach();
}

PVClockRef PVTimebaseCopyUltimateMasterClock(PVTimebaseRef timebase) {
  return copyHeld(timebase, &PVTimebase::ultimateMasterClock).detach();
}

BRTypeRef PVTimebaseCopyMaster(PVTimebaseRef timebase) {
  if (!timebase) {
    signalError(kPVTimebaseError_RequiredParameterMissing);
    return nullptr;
  }
  return pv::withTarget(timebase, [](PVTimebase& shown) {
    return BRRetain(shown.masterTimebase ? static_cast<BRTypeRef>(shown.masterTimebase.get())
                                         : shown.masterClock.get());
  });
}

BRTypeRef PVTimebaseGetMaster(PVTimebaseRef timebase) {
  return br::Ref<const void>::adopt(PVTimebaseCopyMaster(timebase)).get();
}
PV_TWIN(KivTimebaseGetMaster, PVTimebaseGetMaster)

PVTimebaseRef PVTimebaseGetMasterTimebase(PVTimebaseRef timebase) {
  return copyHeld(timebase, &PVTimebase::masterTimebase).get();
}
PV_TWIN(KivTimebaseGetMasterTimebase, PVTimebaseGetMasterTimebase)

PVClockRef PVTimebaseGetMasterClock(PVTimebaseRef timebase) {
  return copyHeld(timebase, &PVTimebase::masterClock).get();
}
PV_TWIN(KivTimebaseGetMasterClock, PVTimebaseGetMasterClock)

PVClockRef PVTimebaseGetUltimateMasterClock(PVTimebaseRef timebase) {
  return copyHeld(timebase, &PVTimebase::ultimateMasterClock).get();
}
PV_TWIN(KivTimebaseGetUltimateMasterClock, PVTimebaseGetUltimateMasterClock)

PVClockRef KivTimebaseCopyUltimateMasterClockAndHeight(PVTimebaseRef timebase, int64_t* heightOut) {
  if (!timebase) {
    signalError(kPVTimebaseError_RequiredParameterMissing);
    return nullptr;
  }
  return pv::withTarget(timebase, [heightOut](PVTimebase& shown) {
    pv::ClockRef clock = shown.ultimateMasterClock;
    if (heightOut && clock) *heightOut = shown.height;
    return clock.detach();
  });
}
