// Run-loop timers of timebases. The run loop wakes by itself when a date changes.
#include <cmath>

#include "clocks/clock.hpp"
#include "clocks/timebase.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

namespace {

using pv::signalError;

constexpr BRAbsoluteTime kFarFuture = 8'073'216'000.0;
constexpr double kShortestIntervalSeconds = 86'400.0;

BRRunLoopTimerRef asTimer(BRTypeRef timer) {
  return static_cast<BRRunLoopTimerRef>(const_cast<void*>(timer));
}

void fireAt(BRTypeRef timer, const pv::FireDate& date) {
  const PVTime hostNow = pv::hostTimeNow();
  const BRAbsoluteTime fireDate =
      BRAbsoluteTimeGetCurrent() + PVTimeGetSeconds(PVTimeSubtract(date.hostTime, hostNow));
  BRRunLoopTimerSetNextFireDate(asTimer(timer), std::isnan(fireDate) ? kFarFuture : fireDate);
}

}  // namespace

constinit const pv::TimerKind pv::kRunLoopTimers = {
    [](BRTypeRef timer) { return BRRunLoopTimerIsValid(asTimer(timer)); },
    [](BRTypeRef timer) { BRRunLoopTimerSetNextFireDate(asTimer(timer), kFarFuture); },
    [](BRTypeRef timer) { BRRunLoopTimerSetNextFireDate(asTimer(timer), BRAbsoluteTimeGetCurrent()); },
    fireAt,
};

PVStatus PVTimebaseAddTimer(PVTimebaseRef timebase, BRRunLoopTimerRef timer, BRRunLoopRef runLoop) {
  if (!timebase || !timer || !runLoop) return signalError(kPVTimebaseError_RequiredParameterMissing);
  if (!(BRRunLoopTimerGetInterval(timer) >= kShortestIntervalSeconds))
    return signalError(kPVTimebaseError_TimerIntervalTooShort);
  std::lock_guard guard(timebase->mutex);
  pv::TimerTable& table = timebase->runLoopTimers;
  if (const pv::TimerEntry* entry = table.find(timer)) {
    if (entry->runLoop.get() == runLoop) return kPVStatus_Success;
    return signalError(kPVTimebaseError_InvalidParameter);
  }
  pv::TimerEntry* entry = table.add(timer, BRGetAllocator(timebase));
  if (!entry) return signalError(kPVTimebaseError_AllocationFailed);
  entry->runLoop = br::Ref<BRRunLoop>::retain(runLoop);
  table.kind.park(timer);
  return kPVStatus_Success;
}
PV_TWIN(KivTimebaseAddTimer, PVTimebaseAddTimer)

PVStatus PVTimebaseRemoveTimer(PVTimebaseRef timebase, BRRunLoopTimerRef timer) {
  if (!timebase || !timer) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return pv::removeTimer(timebase, timebase->runLoopTimers, timer);
}
PV_TWIN(KivTimebaseRemoveTimer, PVTimebaseRemoveTimer)

PVStatus PVTimebaseSetTimerNextFireTime(PVTimebaseRef timebase, BRRunLoopTimerRef timer, PVTime fireTime,
                                        PVTimebaseTimerFlags flags) {
  if (!timebase || !timer) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return pv::setTimerFireTime(timebase, timebase->runLoopTimers, timer, fireTime, flags);
}
PV_TWIN(KivTimebaseSetTimerNextFireTime, PVTimebaseSetTimerNextFireTime)

PVStatus PVTimebaseSetTimerToFireImmediately(PVTimebaseRef timebase, BRRunLoopTimerRef timer) {
  if (!timebase || !timer) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return pv::fireTimerImmediately(timebase, timebase->runLoopTimers, timer);
}
PV_TWIN(KivTimebaseSetTimerToFireImmediately, PVTimebaseSetTimerToFireImmediately)
