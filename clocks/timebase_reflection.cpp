// Read-only timebases: views of another one.
//
// A view passes every notification of its target on as its own, with the payload it came with, and sets the
// dates of its own timers as the target does those of its timers.
#include <bedra/string.h>

#include "clocks/timebase.hpp"
#include "runtime/error.hpp"

namespace {

using pv::Reschedule;
using pv::signalError;
using pv::TimebaseRef;

// What decides whether a view's time jumps when its target changes.
struct Motion {
  double effectiveRate = 0.0;
  pv::ClockRef ultimateClock;
  PVSyncTransform fromUltimateClock{};

  PVStatus read(PVTimebaseRef timebase) {
    effectiveRate = PVTimebaseGetEffectiveRate(timebase);
    ultimateClock = pv::ClockRef::adopt(PVTimebaseCopyUltimateMasterClock(timebase));
    return KivTimebaseGetTransformRelativeToUltimateMasterClock(timebase, kKivSyncDirection_FromReference,
                                                                &fromUltimateClock);
  }
};

// Whether both show the same time at every moment: at one rate, the anchors of one lie on the line of the
// other.
bool goTogether(const Motion& a, const Motion& b) {
  const PVSyncTransform &x = a.fromUltimateClock, &y = b.fromUltimateClock;
  if (a.ultimateClock.get() != b.ultimateClock.get() || x.rate != y.rate) return false;
  const PVTime masterDifference = PVTimeSubtract(x.fromAnchor, y.fromAnchor);
  return PVTimeCompare(PVTimeSubtract(x.toAnchor, y.toAnchor),
                       PVTimeMultiplyByFloat64(masterDifference, x.rate)) == 0;
}

// What retargeting has brought about, to be told when the locks are given up.
struct Retargeting {
  TimebaseRef oldTarget;
  br::Ref<pv::TimebaseLink> oldLink;
  PVTime newTime = kPVTimeInvalid;
  bool jumps = false;
  bool changesEffectiveRate = false;
  pv::DroppedTimers timers;
};

// Under the mutex, once the target has been replaced.
void rescheduleForTarget(PVTimebaseRef view, const Motion& now, Retargeting* change) {
  if (change->jumps || change->changesEffectiveRate) {
    const bool sameDirection = view->updateRateSign(now.effectiveRate) && !change->jumps;
    view->reschedule(sameDirection ? Reschedule::kSameDirection : Reschedule::kTimeJumped, change->newTime,
                     &change->timers);
  }
}

PVStatus replaceTarget(PVTimebaseRef view, PVTimebaseRef newTarget, Retargeting* change) {
  Motion before, after;
  br::Ref<pv::TimebaseLink> newLink;
  std::unique_lock topology(pv::topologyLock);
  std::lock_guard guard(view->mutex);
  if (pv::leadsTo(newTarget, view)) return signalError(kPVTimebaseError_InvalidParameter);
  if (view->target.get() != newTarget) {
    if (PVStatus status = before.read(view->target.get())) return status;
    if (PVStatus status = after.read(newTarget)) return status;
    if (PVStatus status = pv::connect(view, newTarget, &newLink)) return status;
    change->jumps = !goTogether(before, after);
    change->changesEffectiveRate = pv::haveChanged(before.effectiveRate, after.effectiveRate);
    change->oldLink = std::exchange(view->link, std::move(newLink));
    change->oldTarget = std::exchange(view->target, TimebaseRef::retain(newTarget));
  }
  topology.unlock();
  change->newTime = pv::readLocked(view).time;
  rescheduleForTarget(view, after, change);
  return kPVStatus_Success;
}

}  // namespace

void pv::targetPosted(PVTimebaseRef view, const TimebaseLink* link, BRStringRef name,
                      BRDictionaryRef payload) {
  const bool timeJumped = BREqual(name, kPVTimebaseNotification_TimeJumped);
  const bool rateChanged = BREqual(name, kPVTimebaseNotification_EffectiveRateChanged);
  const bool masterDidChange = BREqual(name, kPVTimebaseNotification_MasterDidChange);
  DroppedTimers dropped;
  {
    std::lock_guard guard(view->mutex);
    if (view->link.get() != link) return;
    if (timeJumped || rateChanged || masterDidChange) {
      PVTime eventTime = eventTimeOf(payload);
      if (!PVTimeIsValid(eventTime)) eventTime = readLocked(view).time;
      const bool sameDirection =
          masterDidChange || (view->updateRateSign(PVTimebaseGetEffectiveRate(view)) && !timeJumped);
      view->reschedule(sameDirection ? Reschedule::kSameDirection : Reschedule::kTimeJumped, eventTime,
                       &dropped);
    }
  }
  post(view, name, PayloadRef::retain(payload));
}

PVStatus PVTimebaseCreateReadOnlyTimebase(BRAllocatorRef allocator, PVTimebaseRef sourceTimebase,
                                          PVTimebaseWriteAttemptCallback writeAttemptCallback, void* refCon,
                                          PVTimebaseRef* timebaseOut) {
  if (timebaseOut) *timebaseOut = nullptr;
  if (!sourceTimebase || !timebaseOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  const PVTimebase::WriteAttempt attempt{writeAttemptCallback, refCon};
  TimebaseRef view = pv::createView(allocator, attempt);
  if (!view) return signalError(kPVTimebaseError_AllocationFailed);
  {
    std::lock_guard guard(view->mutex);
    pv::TimebaseChange change(*view);
    view->target = TimebaseRef::retain(sourceTimebase);
    if (PVStatus status = pv::connect(view.get(), sourceTimebase, &view->link)) return status;
  }
  *timebaseOut = view.detach();
  return kPVStatus_Success;
}

PVStatus KivReadOnlyTimebaseSetTargetTimebase(PVTimebaseRef readOnlyTimebase, PVTimebaseRef newTarget) {
  if (!readOnlyTimebase || !newTarget) return signalError(kPVTimebaseError_RequiredParameterMissing);
  bool isCircle;
  {
    std::lock_guard guard(pv::topologyLock);
    isCircle = pv::leadsTo(newTarget, readOnlyTimebase);
  }
  if (!readOnlyTimebase->isReadOnly || isCircle) return signalError(kPVTimebaseError_InvalidParameter);
  const TimebaseRef alive = TimebaseRef::retain(readOnlyTimebase);
  pv::PayloadRef payload = pv::createPayload(PVTimebaseGetTime(readOnlyTimebase));
  if (!payload) return signalError(kPVTimebaseError_AllocationFailed);
  pv::post(readOnlyTimebase, kPVTimebaseNotification_MasterWillChange, payload);

  Retargeting change;
  const PVStatus status = replaceTarget(readOnlyTimebase, newTarget, &change);
  if (change.oldTarget) {
    pv::disconnect(change.oldLink);
    BRNotificationCenterWaitForDeliveries(PVNotificationCenterGetDefaultLocalCenter(),
                                          change.oldTarget.get());
    change.oldTarget = nullptr;
  }
  if (status == kPVStatus_Success) payload = pv::createPayload(change.newTime);
  pv::post(readOnlyTimebase, kPVTimebaseNotification_MasterDidChange, payload);
  if (change.changesEffectiveRate)
    pv::post(readOnlyTimebase, kPVTimebaseNotification_EffectiveRateChanged, payload);
  if (change.jumps) pv::post(readOnlyTimebase, kPVTimebaseNotification_TimeJumped, payload);
  return status;
}
