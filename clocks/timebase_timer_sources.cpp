// Timer sources of timebases. Their clock is the host time clock: a date on one is a date on the other.
#include <bedra/timer_source.h>

#include "clocks/timebase.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

namespace {

using pv::signalError;

constexpr uint64_t kFarIntervalNs = 8'073'216'000'000'000'000;
constexpr uint64_t kLeewayNs = 0;

BRTimerSourceRef asSource(BRTypeRef source) {
  return static_cast<BRTimerSourceRef>(const_cast<void*>(source));
}

void setStart(BRTypeRef source, uint64_t startNs) {
  BRTimerSourceSetTimer(asSource(source), startNs, kFarIntervalNs, kLeewayNs);
}

// What has passed or has no answer fires at once.
uint64_t startNsOf(const pv::FireDate& date) {
  if (date.hasPassed) return kBRTimerSourceStartNow;
  const PVTime ns =
      PVTimeConvertScale(date.hostTime, 1'000'000'000, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
  if (PVTimeIsPositiveInfinity(ns)) return kBRTimerSourceStartForever;
  return PVTimeIsNumeric(ns) && ns.value > 0 ? static_cast<uint64_t>(ns.value) : kBRTimerSourceStartNow;
}

void fireAt(BRTypeRef source, const pv::FireDate& date) { setStart(source, startNsOf(date)); }

}  // namespace

constinit const pv::TimerKind pv::kTimerSources = {
    [](BRTypeRef source) { return !BRTimerSourceIsCancelled(asSource(source)); },
    [](BRTypeRef source) { setStart(source, kBRTimerSourceStartForever); },
    [](BRTypeRef source) { setStart(source, kBRTimerSourceStartNow); },
    fireAt,
};

PVStatus PVTimebaseAddTimerDispatchSource(PVTimebaseRef timebase, BRTimerSourceRef source) {
  if (!timebase || !source) return signalError(kPVTimebaseError_RequiredParameterMissing);
  if (BRTimerSourceIsCancelled(source)) return signalError(kPVTimebaseError_InvalidParameter);
  std::lock_guard guard(timebase->mutex);
  pv::TimerTable& table = timebase->timerSources;
  if (table.find(source)) return kPVStatus_Success;
  if (!table.add(source, BRGetAllocator(timebase))) return signalError(kPVTimebaseError_AllocationFailed);
  table.kind.park(source);
  return kPVStatus_Success;
}
PV_TWIN(KivTimebaseAddTimerDispatchSource, PVTimebaseAddTimerDispatchSource)

PVStatus PVTimebaseRemoveTimerDispatchSource(PVTimebaseRef timebase, BRTimerSourceRef source) {
  if (!timebase || !source) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return pv::removeTimer(timebase, timebase->timerSources, source);
}
PV_TWIN(KivTimebaseRemoveTimerDispatchSource, PVTimebaseRemoveTimerDispatchSource)

PVStatus PVTimebaseSetTimerDispatchSourceNextFireTime(PVTimebaseRef timebase, BRTimerSourceRef source,
                                                      PVTime fireTime, PVTimebaseTimerFlags flags) {
  if (!timebase || !source) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return pv::setTimerFireTime(timebase, timebase->timerSources, source, fireTime, flags);
}
PV_TWIN(KivTimebaseSetTimerDispatchSourceNextFireTime, PVTimebaseSetTimerDispatchSourceNextFireTime)

PVStatus PVTimebaseSetTimerDispatchSourceToFireImmediately(PVTimebaseRef timebase, BRTimerSourceRef source) {
  if (!timebase || !source) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return pv::fireTimerImmediately(timebase, timebase->timerSources, source);
}
PV_TWIN(KivTimebaseSetTimerDispatchSourceToFireImmediately, PVTimebaseSetTimerDispatchSourceToFireImmediately)
