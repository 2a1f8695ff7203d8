// The transforms between a timebase and its masters.
#include <limits>

#include "clocks/sync_transform.hpp"
#include "clocks/timebase.hpp"
#include "runtime/error.hpp"

namespace {

using pv::signalError;

constexpr int64_t kToTheEnd = std::numeric_limits<int64_t>::max();

PVStatus getLink(PVTimebase& timebase, KivSyncDirection direction, PVSyncTransform* linkOut) {
  if (direction == kKivSyncDirection_ToReference) return timebase.getInverse(linkOut);
  *linkOut = timebase.transform;
  return kPVStatus_Success;
}

// Composes the transforms of as many links of the chain, or of all, with what has been composed below.
PVStatus compose(PVTimebaseRef timebase, int64_t links, KivSyncDirection direction,
                 const PVSyncTransform& running, PVSyncTransform* transformOut) {
  return pv::withTarget(timebase, [&](PVTimebase& shown) {
    PVSyncTransform link, longer;
    if (PVStatus status = getLink(shown, direction, &link)) return status;
    const bool isDownward = direction != kKivSyncDirection_ToReference;
    if (PVStatus status =
            KivSyncCombineTransforms(isDownward ? &link : &running, isDownward ? &running : &link, &longer))
      return status;
    PVTimebaseRef master = shown.masterTimebase.get();
    if (links == 1 || (links == kToTheEnd && !master)) {
      *transformOut = longer;
      return PVStatus{kPVStatus_Success};
    }
    if (!master) return signalError(kPVTimebaseError_InvalidParameter);
    return compose(master, links == kToTheEnd ? kToTheEnd : links - 1, direction, longer, transformOut);
  });
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
  return pv::withTarget(timebase, [&](PVTimebase& shown) { return getLink(shown, direction, transformOut); });
}

PVStatus KivTimebaseGetTransformRelativeToUltimateMasterClock(PVTimebaseRef timebase,
                                                              KivSyncDirection direction,
                                                              PVSyncTransform* transformOut) {
  if (!timebase || !transformOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return compose(timebase, kToTheEnd, direction, pv::kIdentityTransform, transformOut);
}

PVStatus KivTimebaseGetTransformRelativeToMasterAtHeight(PVTimebaseRef timebase, int64_t height,
                                                         KivSyncDirection direction,
                                                         PVSyncTransform* transformOut) {
  if (!timebase || height < 1 || !transformOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return compose(timebase, height, direction, pv::kIdentityTransform, transformOut);
}
