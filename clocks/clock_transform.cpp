// The transforms between a clock and its reference clock, and along the chain to the host time clock.
#include "clocks/clock.hpp"
#include "clocks/sync_transform.hpp"
#include "runtime/error.hpp"

using pv::ClockAnchor;
using pv::ClockTurn;
using pv::signalError;

namespace {

PVStatus missing() { return signalError(kPVClockError_RequiredParameterMissing); }

br::Ref<PVClock> copyReference(PVClockRef clock) {
  const ClockTurn turn(clock);
  return clock->reference;
}

}  // namespace

PVStatus PVClock::getTransform(KivSyncDirection direction, PVSyncTransform* transform, ClockTurn& turn) {
  ClockAnchor anchor;
  if (PVStatus status = readAnchor(&anchor, turn)) return status;
  const KivDerivedClockCallbacks* kind = callbacks.load(std::memory_order_relaxed);
  if (!kind) return signalError(kPVClockError_InvalidClock);  // by now
  if (!kind->getRate) return signalError(kPVClockError_Unimplemented);
  turn.keepClock();
  const double rate = kind->getRate(this);
  if (direction != kKivSyncDirection_ToReference) {
    *transform = {anchor.referenceTime, rate, anchor.clockTime};
    return kPVStatus_Success;
  }
  if (rate == 0.0) return signalError(kPVSyncError_RateMustBeNonZero);
  *transform = {anchor.clockTime, 1.0 / rate, anchor.referenceTime};
  return kPVStatus_Success;
}

PVStatus KivClockGetTransformRelativeToReferenceClock(PVClockRef clock, KivSyncDirection direction,
                                                      PVSyncTransform* transformOut) {
  if (!clock || !transformOut) return missing();
  PVSyncTransform transform = pv::kIdentityTransform;
  if (!pv::isHostTimeClock(clock)) {
    ClockTurn turn(clock);
    if (PVStatus status = clock->getTransform(direction, &transform, turn)) return status;
  }
  *transformOut = transform;
  return kPVStatus_Success;
}

PVStatus KivClockGetTransformRelativeToHostTimeClock(PVClockRef clock, KivSyncDirection direction,
                                                     PVSyncTransform* transformOut) {
  if (!clock || !transformOut) return missing();
  PVSyncTransform running = pv::kIdentityTransform;
  auto step = br::Ref<PVClock>::retain(clock);
  for (; step && !pv::isHostTimeClock(step.get()); step = copyReference(step.get())) {
    PVSyncTransform link;
    if (PVStatus status = KivClockGetTransformRelativeToReferenceClock(step.get(), direction, &link))
      return status;
    const PVStatus status = direction == kKivSyncDirection_ToReference
                                ? KivSyncCombineTransforms(&running, &link, &running)
                                : KivSyncCombineTransforms(&link, &running, &running);
    if (status) return status;
  }
  if (!step) return signalError(kPVSyncError_InvalidParameter);
  *transformOut = running;
  return kPVStatus_Success;
}
