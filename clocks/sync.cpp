// The pivot: the transform between any two clocks and timebases, and what the sync functions read off it.
#include <pevrin/notification_center.h>

#include <atomic>
#include <bedra/ref.hpp>
#include <limits>

#include "clocks/clock.hpp"
#include "clocks/sync_timebase.hpp"
#include "clocks/sync_transform.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using pv::signalError;

namespace {

constinit std::atomic<const pv::SyncTimebases*> syncTimebases{nullptr};

// Null unless the object is a timebase.
const pv::SyncTimebases* asTimebase(BRTypeRef object) {
  const pv::SyncTimebases* timebases = syncTimebases.load(std::memory_order_acquire);
  return timebases && BRGetTypeID(object) == timebases->typeID ? timebases : nullptr;
}
bool isClock(BRTypeRef object) { return BRGetTypeID(object) == PVClockGetTypeID(); }
PVClockRef asClock(BRTypeRef object) { return static_cast<PVClockRef>(const_cast<void*>(object)); }

PVStatus missing() { return signalError(kPVSyncError_RequiredParameterMissing); }

// One of the two between which a transform is sought.
struct Side {
  BRTypeRef object = nullptr;
  const pv::SyncTimebases* timebases = nullptr;  // null for a clock
  br::Ref<PVClock> clock;                        // the ultimate master clock; a clock's own is itself
  int64_t height = 0;

  PVStatus find(BRTypeRef given) {
    object = given;
    timebases = asTimebase(given);
    if (timebases)
      clock = br::Ref<PVClock>::adopt(timebases->copyUltimateMasterClockAndHeight(given, &height));
    else if (isClock(given))
      clock = br::Ref<PVClock>::retain(asClock(given));
    return clock ? kPVStatus_Success : signalError(kPVSyncError_InvalidParameter);
  }

  PVStatus getTransformToClock(KivSyncDirection direction, PVSyncTransform* transform) const {
    return timebases->getTransformRelativeToUltimateMasterClock(object, direction, transform);
  }
  PVStatus getTransformToHost(KivSyncDirection direction, PVSyncTransform* transform) const {
    if (!timebases) return KivClockGetTransformRelativeToHostTimeClock(clock.get(), direction, transform);
    PVSyncTransform toClock, toHost;
    if (PVStatus status = getTransformToClock(direction, &toClock)) return status;
    if (PVStatus status = KivClockGetTransformRelativeToHostTimeClock(clock.get(), direction, &toHost))
      return status;
    return direction == kKivSyncDirection_ToReference
               ? KivSyncCombineTransforms(&toClock, &toHost, transform)
               : KivSyncCombineTransforms(&toHost, &toClock, transform);
  }
  PVStatus getTransformToHeight(int64_t masterHeight, KivSyncDirection direction,
                                PVSyncTransform* transform) const {
    return timebases->getTransformRelativeToMasterAtHeight(object, height - masterHeight, direction,
                                                           transform);
  }
};

using Master = br::Ref<const void>;

// The height of the nearest master of both, which are timebases on one clock. Chains that change meanwhile
// may show none: then it is the clock's.
int64_t heightOfCommonMaster(const Side& x, const Side& y) {
  auto masterOf = [](const Side& side, const Master& object) {
    return Master::adopt(asTimebase(object.get()) ? side.timebases->copyMaster(object.get()) : nullptr);
  };
  Master up = Master::retain(x.object), upToo = Master::retain(y.object);
  int64_t height = x.height, heightToo = y.height;
  for (; height > heightToo; --height) up = masterOf(x, up);
  for (; heightToo > height; --heightToo) upToo = masterOf(y, upToo);
  for (; height > 1; --height) {
    up = masterOf(x, up);
    upToo = masterOf(y, upToo);
    if (up && up.get() == upToo.get()) return height - 1;
  }
  return 0;
}

PVStatus throughCommonMaster(const Side& x, const Side& y, PVSyncTransform* transform) {
  const int64_t height = heightOfCommonMaster(x, y);
  PVSyncTransform fromX, toY;
  if (PVStatus status = x.getTransformToHeight(height, kKivSyncDirection_ToReference, &fromX)) return status;
  if (PVStatus status = y.getTransformToHeight(height, kKivSyncDirection_FromReference, &toY)) return status;
  return KivSyncCombineTransforms(&fromX, &toY, transform);
}

PVStatus throughHost(const Side& x, const Side& y, PVSyncTransform* transform) {
  PVSyncTransform fromX, toY;
  if (PVStatus status = x.getTransformToHost(kKivSyncDirection_ToReference, &fromX)) return status;
  if (PVStatus status = y.getTransformToHost(kKivSyncDirection_FromReference, &toY)) return status;
  return KivSyncCombineTransforms(&fromX, &toY, transform);
}

PVStatus getPivotTransform(BRTypeRef from, BRTypeRef to, PVSyncTransform* transform) {
  if (!from || !to) return missing();
  if (from == to) {
    *transform = pv::kIdentityTransform;
    return kPVStatus_Success;
  }
  Side x, y;
  if (PVStatus status = x.find(from)) return status;
  if (PVStatus status = y.find(to)) return status;
  if (x.clock.get() != y.clock.get()) return throughHost(x, y, transform);
  if (x.timebases && y.timebases) return throughCommonMaster(x, y, transform);
  return x.timebases ? x.getTransformToClock(kKivSyncDirection_ToReference, transform)
                     : y.getTransformToClock(kKivSyncDirection_FromReference, transform);
}

}  // namespace

void pv::setSyncTimebases(const SyncTimebases* timebases) {
  syncTimebases.store(timebases, std::memory_order_release);
}

double PVSyncGetRelativeRate(PVClockOrTimebaseRef of, PVClockOrTimebaseRef relativeTo) {
  PVSyncTransform transform;
  const PVStatus status = getPivotTransform(relativeTo, of, &transform);
  return status == kPVStatus_Success ? transform.rate : std::numeric_limits<double>::quiet_NaN();
}

PVStatus PVSyncGetRelativeRateAndAnchorTime(PVClockOrTimebaseRef of, PVClockOrTimebaseRef relativeTo,
                                            double* rateOut, PVTime* ofAnchorTimeOut,
                                            PVTime* relativeToAnchorTimeOut) {
  PVSyncTransform transform;
  if (PVStatus status = getPivotTransform(relativeTo, of, &transform)) return status;
  if (rateOut) *rateOut = transform.rate;
  if (ofAnchorTimeOut) *ofAnchorTimeOut = transform.toAnchor;
  if (relativeToAnchorTimeOut) *relativeToAnchorTimeOut = transform.fromAnchor;
  return kPVStatus_Success;
}

PVTime PVSyncConvertTime(PVTime time, PVClockOrTimebaseRef from, PVClockOrTimebaseRef to) {
  if (!from || !to || !PVTimeIsNumeric(time)) {
    missing();
    return kPVTimeInvalid;
  }
  if (from == to) return time;
  PVSyncTransform transform;
  if (getPivotTransform(from, to, &transform)) return kPVTimeInvalid;
  return KivSyncApplyTransform(&transform, time);
}

bool PVSyncMightDrift(PVClockOrTimebaseRef a, PVClockOrTimebaseRef b) {
  if (!a || !b) {
    missing();
    return true;
  }
  Side x, y;
  if (x.find(a) || y.find(b)) return true;
  return PVClockMightDrift(x.clock.get(), y.clock.get());
}

PVTime PVSyncGetTime(PVClockOrTimebaseRef clockOrTimebase) {
  if (!clockOrTimebase) {
    missing();
    return kPVTimeInvalid;
  }
  if (isClock(clockOrTimebase)) return PVClockGetTime(asClock(clockOrTimebase));
  if (const pv::SyncTimebases* timebases = asTimebase(clockOrTimebase))
    return timebases->getTime(clockOrTimebase);
  signalError(kPVSyncError_InvalidParameter);
  return kPVTimeInvalid;
}

PVNotificationCenterRef KivSyncGetNotificationCenter(void) {
  return PVNotificationCenterGetDefaultLocalCenter();
}

PV_TWIN(KivSyncGetRelativeRate, PVSyncGetRelativeRate)
PV_TWIN(KivSyncGetRelativeRateAndAnchorTime, PVSyncGetRelativeRateAndAnchorTime)
PV_TWIN(KivSyncConvertTime, PVSyncConvertTime)
PV_TWIN(KivSyncMightDrift, PVSyncMightDrift)
PV_TWIN(KivSyncGetTime, PVSyncGetTime)
