// Derived clocks: when the source is asked, and what the clock says in between.
//
// An answer holds for the half-open interval of reference times [intervalStart, intervalEnd), which begins
// when the source was asked, whatever reference time it answered with: so the time between two questions is
// at least the minimum.
#include <cmath>
#include <cstdio>

#include "clocks/clock.hpp"
#include "runtime/error.hpp"

using pv::ClockAnchor;
using pv::ClockTurn;
using pv::signalError;

namespace {

// A source that reports a discontinuity every time that it is asked must not hold its readers for ever.
constexpr int kMostQuestions = 16;

PVStatus missing() { return signalError(kPVClockError_RequiredParameterMissing); }

}  // namespace

PVStatus KivDerivedClockCreateWithGetTimeCallback(BRAllocatorRef allocator,
                                                  const KivDerivedClockCallbacks* callbacks,
                                                  PVClockRef referenceClock, bool referenceMayDrift,
                                                  PVClockRef* clockOut, PVTime minimumInterval) {
  if (clockOut) *clockOut = nullptr;
  if (!callbacks || !clockOut || !callbacks->getAnchorTime) return missing();
  if (callbacks->version != 1) return signalError(kPVClockError_InvalidClock);
  *clockOut = br::create<PVClock>(allocator, callbacks->derivedStorageSizeBytes, callbacks, referenceClock,
                                  referenceMayDrift, minimumInterval);
  return *clockOut ? kPVStatus_Success : signalError(kPVClockError_AllocationFailed);
}

void* KivDerivedClockGetDerivedStorage(PVClockRef clock) {
  if (clock) return br::extra<char>(clock);
  missing();
  return nullptr;
}

void KivDerivedClockDiscontinuityOccurred(PVClockRef clock) {
  if (clock)
    clock->discontinuities.fetch_add(1);
  else
    missing();
}

bool KivDerivedClockVerifyCallbacksMatch(PVClockRef clock, const KivDerivedClockCallbacks* callbacks) {
  if (clock && callbacks) return clock->callbacks.load(std::memory_order_acquire) == callbacks;
  missing();
  return false;
}

// ---- The pair of times

PVStatus PVClock::readAnchor(ClockAnchor* anchor, ClockTurn& turn) {
  if (!isValid) return signalError(kPVClockError_InvalidClock);
  if (classTag == pv::kExternalSyncEventsClass) {
    std::fprintf(stderr, "%s: kKivClockClass_ExternalSyncEvents not yet implemented\n",
                 "PVClockGetAnchorTime");
    return signalError(kPVSyncError_NotImplemented);
  }
  PVTime now = kPVTimeInvalid;
  if (pv::isHostTimeClock(reference.get())) {
    now = pv::hostTimeNow();
  } else if (reference) {
    turn.keepClock();
    const br::Ref<PVClock> kept = reference;
    if (PVStatus status = PVClockGetAnchorTime(kept.get(), &now, nullptr)) return status;
    if (!isValid) return signalError(kPVClockError_InvalidClock);
  }
  if (!isAsking && mustAsk(now)) {
    turn.keepClock();
    return ask(now, anchor);
  }
  *anchor = {extrapolate(now), now};
  return kPVStatus_Success;
}

bool PVClock::mustAsk(const PVTime& now) const {
  return alwaysAsks || !lastAnswerWasGood || discontinuities.load() != discontinuitiesSeen ||
         !PVTimeIsNumeric(now) || !PVTimeIsNumeric(intervalStart) || PVTimeCompare(now, intervalStart) < 0 ||
         PVTimeCompare(now, intervalEnd) >= 0;
}

PVStatus PVClock::ask(const PVTime& now, ClockAnchor* anchor) {
  PVStatus status = kPVStatus_Success;
  isAsking = true;
  for (int question = 0; question < kMostQuestions; ++question) {
    discontinuitiesSeen = discontinuities.load();
    *anchor = {kPVTimeInvalid, now};
    status = callbacks.load(std::memory_order_relaxed)
                 ->getAnchorTime(this, &anchor->clockTime, &anchor->referenceTime);
    if (!isValid) {
      isAsking = false;
      return signalError(kPVClockError_InvalidClock);
    }
    if (discontinuities.load() == discontinuitiesSeen) break;
  }
  lastAnswerWasGood = status == kPVStatus_Success && PVTimeIsNumeric(anchor->clockTime);
  if (lastAnswerWasGood) {
    if (!PVTimeIsNumeric(anchor->referenceTime)) anchor->referenceTime = now;
    lastGood = *anchor;
    intervalStart = now;
    intervalEnd = PVTimeAdd(now, minimumInterval);
    lastGoodRate = askRate();
  } else {
    *anchor = {extrapolate(now), now};
  }
  isAsking = false;
  return status;
}

// The rate to run on with until the next answer.
double PVClock::askRate() {
  const KivDerivedClockCallbacks* kind = callbacks.load(std::memory_order_relaxed);
  const double rate = kind->getRate ? kind->getRate(this) : 1.0;
  return std::isfinite(rate) ? rate : 1.0;
}

// Invalid as long as there is no good answer.
PVTime PVClock::extrapolate(const PVTime& now) const {
  PVTime elapsed = PVTimeSubtract(now, lastGood.referenceTime);
  if (lastGoodRate != 1.0) elapsed = PVTimeMultiplyByFloat64(elapsed, lastGoodRate);
  return PVTimeAdd(lastGood.clockTime, elapsed);
}
