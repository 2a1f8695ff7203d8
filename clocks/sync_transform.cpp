// The arithmetic of sync transforms.
#include "clocks/sync_transform.hpp"

#include "runtime/error.hpp"

using pv::signalError;

namespace {

PVStatus missing() { return signalError(kPVSyncError_RequiredParameterMissing); }

bool hasNumericAnchors(const PVSyncTransform& transform) {
  return PVTimeIsNumeric(transform.fromAnchor) && PVTimeIsNumeric(transform.toAnchor);
}

// Of numbers.
PVTime apply(const PVSyncTransform& transform, const PVTime& time) {
  const PVTime elapsed = PVTimeSubtract(time, transform.fromAnchor);
  return PVTimeAdd(PVTimeMultiplyByFloat64(elapsed, transform.rate), transform.toAnchor);
}

}  // namespace

PVTime KivSyncApplyTransform(const PVSyncTransform* transform, PVTime time) {
  if (!transform || !PVTimeIsNumeric(time) || !hasNumericAnchors(*transform)) {
    missing();
    return kPVTimeInvalid;
  }
  return apply(*transform, time);
}

PVStatus KivSyncCombineTransforms(const PVSyncTransform* first, const PVSyncTransform* second,
                                  PVSyncTransform* combinedOut) {
  if (!first || !second || !combinedOut) return missing();
  if (!hasNumericAnchors(*first) || !hasNumericAnchors(*second))
    return signalError(kPVSyncError_InvalidParameter);
  *combinedOut = {first->fromAnchor, first->rate * second->rate, apply(*second, first->toAnchor)};
  return kPVStatus_Success;
}

PVStatus KivSyncInvertTransform(const PVSyncTransform* transform, PVSyncTransform* inverseOut) {
  if (!transform || !inverseOut || !hasNumericAnchors(*transform)) return missing();
  if (transform->rate == 0.0) return signalError(kPVSyncError_RateMustBeNonZero);
  *inverseOut = {transform->toAnchor, 1.0 / transform->rate, transform->fromAnchor};
  return kPVStatus_Success;
}
