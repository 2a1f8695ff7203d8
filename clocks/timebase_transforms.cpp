// The transforms between a timebase and its masters.
#include <limits>

#include "clocks/sync_transform.hpp"
#include "clocks/timebase.hpp"
#include "runtime/error.hpp"

namespace {

using pv::signalError;
using pv::TimebaseRef;

constexpr int64_t kToTheEnd = std::numeric_limits<int64_t>::max();

// One timebase's transform; `masterOut` is its master timebase, if any.
PVStatus getLink(const TimebaseRef& timebase, KivSyncDirection direction, PVSyncTransform* linkOut,
                 TimebaseRef* masterOut) {
  std::lock_guard guard(timebase->mutex);
  *masterOut = timebase->masterTimebase;
  if (direction == kKivSyncDirection_ToReference) return timebase->getInverse(linkOut);
  *linkOut = timebase->transform;
  return kPVStatus_Success;
}

// Composes the transforms of as many links of the chain, or of all.
PVStatus compose(PVTimebaseRef timebase, int64_t links, KivSyncDirection direction,
                 PVSyncTransform* transformOut) {
  PVSyncTransform running = pv::kIdentityTransform;
  TimebaseRef node = pv::copyTarget(timebase);
  for (int64_t i = 0; i < links; ++i) {
    if (!node) {
      if (links != kToTheEnd) return signalError(kPVTimebaseError_InvalidParameter);
      break;
    }
    PVSyncTransform link, longer;
    TimebaseRef master;
    if (PVStatus status = getLink(node, direction, &link, &master)) return status;
    const bool isDownward = direction != kKivSyncDirection_ToReference;
    if (PVStatus status =
            KivSyncCombineTransforms(isDownward ? &link : &running, isDownward ? &running : &link, &longer))
      return status;
    running = longer;
    node = pv::copyTarget(master.get());
  }
  *transformOut = running;
  return kPVStatus_Success;
}

}  // namespace

PVStatus PVTimebase::getInverse(PVSyncTransform* inverseOut) {
  if (transform.rate == 0.0) return signalError(kPVSyncError_RateMustBeNonZero);
  if (!isInverseValid) {
    if (PVStatus status = KivSyncInvertTransform(&transform, &inverse)) return status;
    isInverseValid = true;
  }
  *inverseOut = inverse;
  return kPVStatus_Success;
}

PVStatus KivTimebaseGetTransformRelativeToMaster(PVTimebaseRef timebase, KivSyncDirection direction,
                                                 PVSyncTransform* transformOut) {
  if (!timebase || !transformOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  TimebaseRef master;
  return getLink(pv::copyTarget(timebase), direction, transformOut, &master);
}

PVStatus KivTimebaseGetTransformRelativeToUltimateMasterClock(PVTimebaseRef timebase,
                                                              KivSyncDirection direction,
                                                              PVSyncTransform* transformOut) {
  if (!timebase || !transformOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return compose(timebase, kToTheEnd, direction, transformOut);
}

PVStatus KivTimebaseGetTransformRelativeToMasterAtHeight(PVTimebaseRef timebase, int64_t height,
                                                         KivSyncDirection direction,
                                                         PVSyncTransform* transformOut) {
  if (!timebase || height < 1 || !transformOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return compose(timebase, height, direction, transformOut);
}
