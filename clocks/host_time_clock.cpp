// The host time clock: an immortal object in static memory, made on first use.
#include <bedra/time.h>
#include <kiv/math.h>

#include <algorithm>
#include <bedra/literal.hpp>
#include <new>

#include "clocks/clock.hpp"
#include "runtime/twin.hpp"

namespace {

using namespace br::literals;

// Nobody may end the time of all others. A crash here points at who tried.
void crash(PVClockRef) { *reinterpret_cast<volatile int*>(uintptr_t{1} << 63) = 0; }

PVStatus getAnchorTime(PVClockRef, PVTime* clockTimeOut, PVTime* referenceTimeOut) {
  *clockTimeOut = *referenceTimeOut = pv::hostTimeNow();
  return kPVStatus_Success;
}

constexpr KivDerivedClockCallbacks kHostTime = {
    .version = 1,
    .derivedStorageSizeBytes = 0,
    .reserved = 0,
    .copyDebugDesc = [](PVClockRef) { return "HostTimeClock"_br; },
    .finalize = crash,
    .mightDrift = nullptr,
    .getRate = [](PVClockRef) { return 1.0; },
    .getAnchorTime = getAnchorTime};

// A static object takes no memory that could be missing, and a count that stays spares those who read
// timebases on it from many threads a cache line that wanders between them.
PVClockRef makeHostTimeClock() {
  auto* clock = br::construct<PVClock>(pv::hostTimeClockStorage, &kHostTime, nullptr, false, kPVTimeInvalid);
  clock->typeID = br::typeID<PVClock>();
  clock->flags = clock->cachedHash = 0;
  clock->count = br::kImmortalCount;
  return clock;
}

struct TickRatio {
  TickRatio() { BRHostTimeGetTicksToNsRatio(&nsPart, &tickPart); }
  uint32_t nsPart, tickPart;
};

}  // namespace

namespace pv {

alignas(PVClock) constinit char hostTimeClockStorage[sizeof(PVClock)] = {};

}  // namespace pv

PVClockRef PVClockGetHostTimeClock(void) {
  static const PVClockRef clock = makeHostTimeClock();
  return clock;
}

uint64_t PVClockConvertHostTimeToSystemUnits(PVTime hostTime) {
  const PVTime ns =
      PVTimeConvertScale(hostTime, pv::kNsPerSecond, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
  if (!PVTimeIsNumeric(ns) || ns.value < 0) return 0;
  const TickRatio ratio;
  return static_cast<uint64_t>(KivInt64MulDiv(ns.value, ratio.tickPart, ratio.nsPart, nullptr));
}

PVTime PVClockMakeHostTimeFromSystemUnits(uint64_t hostTicks) {
  const TickRatio ratio;
  const auto ticks = static_cast<int64_t>(std::min<uint64_t>(hostTicks, INT64_MAX));
  return PVTimeMake(KivInt64MulDiv(ticks, ratio.nsPart, ratio.tickPart, nullptr), pv::kNsPerSecond);
}

PV_TWIN(KivClockGetHostTimeClock, PVClockGetHostTimeClock)
PV_TWIN(KivClockConvertHostTimeToSystemUnits, PVClockConvertHostTimeToSystemUnits)
PV_TWIN(KivClockMakeHostTimeFromSystemUnits, PVClockMakeHostTimeFromSystemUnits)
