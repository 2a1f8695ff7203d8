// Masters of timebases: setting another one, and following what the master says.
#include <bedra/string.h>

#include "clocks/timebase.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

namespace {

using pv::ClockRef;
using pv::Reschedule;
using pv::signalError;
using pv::TimebaseRef;

// What is let go of when the locks are given up.
struct OldMaster {
  ~OldMaster() { pv::disconnect(link); }  // before the timebase goes that the link names
  ClockRef clock;
  TimebaseRef timebase;
  ClockRef ultimateClock;
  br::Ref<pv::TimebaseLink> link;
  pv::DroppedTimers timers;
};

Reschedule rescheduleFor(bool sameDirection) {
  return sameDirection ? Reschedule::kSameDirection : Reschedule::kTimeJumped;
}

// Also when the effective rate is the same, the new master may lie differently to the host's time: then dates
// change.
PVStatus replaceMaster(PVTimebaseRef timebase, PVClockRef newClock, PVTimebaseRef newMaster,
                       PVTime timebaseNow, bool* effectiveRateChanged) {
  OldMaster old;
  std::unique_lock topology(pv::topologyLock);
  std::lock_guard guard(timebase->mutex);
  if (newMaster && pv::leadsTo(newMaster, timebase)) return signalError(kPVTimebaseError_InvalidParameter);
  br::Ref<pv::TimebaseLink> newLink;
  if (newMaster) {
    if (PVStatus status = pv::connect(timebase, newMaster, &newLink)) return status;
  }
  const double oldEffectiveRate = PVTimebaseGetEffectiveRate(timebase);
  {
    pv::TimebaseChange change(*timebase);
    old.link = std::exchange(timebase->link, std::move(newLink));
    old.clock = std::exchange(timebase->masterClock, ClockRef::retain(newClock));
    old.timebase = std::exchange(timebase->masterTimebase, TimebaseRef::retain(newMaster));
    topology.unlock();
    timebase->findUltimateMasterClock(&old.ultimateClock);
    timebase->transform.toAnchor = timebaseNow;
    timebase->transform.fromAnchor = timebase->masterTimeNow();
  }
  const double newEffectiveRate = PVTimebaseGetEffectiveRate(timebase);
  *effectiveRateChanged = pv::haveChanged(oldEffectiveRate, newEffectiveRate);
  const bool sameDirection = !*effectiveRateChanged || timebase->updateRateSign(newEffectiveRate);
  timebase->reschedule(rescheduleFor(sameDirection), timebaseNow, &old.timers);
  return kPVStatus_Success;
}

// One of the two is null.
PVStatus setMaster(PVTimebaseRef timebase, PVClockRef newClock, PVTimebaseRef newMaster) {
  const TimebaseRef alive = TimebaseRef::retain(timebase);
  const PVTime timebaseNow = PVTimebaseGetTime(timebase);
  const pv::PayloadRef payload = pv::createPayload(timebaseNow);
  pv::post(timebase, kPVTimebaseNotification_MasterWillChange, payload);
  bool effectiveRateChanged = false;
  const PVStatus status = replaceMaster(timebase, newClock, newMaster, timebaseNow, &effectiveRateChanged);
  pv::post(timebase, kPVTimebaseNotification_MasterDidChange, payload);
  if (effectiveRateChanged) pv::post(timebase, kPVTimebaseNotification_EffectiveRateChanged, payload);
  return status;
}

// ---- Following

// Under the mutex. False when the event is none for the follower, which stands still.
bool followMotion(PVTimebaseRef follower, bool timeJumped, PVTime eventTime, pv::DroppedTimers* dropped) {
  if (follower->transform.rate == 0.0) return false;
  const bool sameDirection = !timeJumped && follower->updateRateSign(PVTimebaseGetEffectiveRate(follower));
  follower->reschedule(rescheduleFor(sameDirection), eventTime, dropped);
  return true;
}

}  // namespace

void pv::masterPosted(PVTimebaseRef follower, const TimebaseLink* link, BRStringRef name,
                      BRDictionaryRef payload) {
  const bool rateChanged = BREqual(name, kPVTimebaseNotification_EffectiveRateChanged);
  const bool timeJumped = BREqual(name, kPVTimebaseNotification_TimeJumped);
  const bool masterDidChange = BREqual(name, kPVTimebaseNotification_MasterDidChange);
  if (!rateChanged && !timeJumped && !masterDidChange &&
      !BREqual(name, kPVTimebaseNotification_MasterWillChange))
    return;
  DroppedTimers dropped;
  ClockRef oldUltimateClock;
  PVTime eventTime = eventTimeOf(payload);
  {
    std::lock_guard guard(follower->mutex);
    if (follower->link.get() != link) {
      signalError(kPVTimebaseError_InvalidParameter);
      return;
    }
    eventTime = follower->timeAt(PVTimeIsValid(eventTime) ? eventTime : follower->masterTimeNow());
    if (rateChanged || timeJumped) {
      if (!followMotion(follower, timeJumped, eventTime, &dropped)) return;
    } else if (masterDidChange) {
      follower->findUltimateMasterClock(&oldUltimateClock);
      follower->reschedule(Reschedule::kSameDirection, eventTime, &dropped);
    }
  }
  post(follower, name, rateChanged || timeJumped || masterDidChange ? createPayload(eventTime) : nullptr);
}

PVStatus PVTimebaseSetMasterClock(PVTimebaseRef timebase, PVClockRef masterClock) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  if (!masterClock) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return setMaster(timebase, masterClock, nullptr);
}
PV_TWIN(KivTimebaseSetMasterClock, PVTimebaseSetMasterClock)

PVStatus PVTimebaseSetMasterTimebase(PVTimebaseRef timebase, PVTimebaseRef masterTimebase) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  if (!masterTimebase) return signalError(kPVTimebaseError_RequiredParameterMissing);
  bool isCircle;
  {
    std::lock_guard guard(pv::topologyLock);
    isCircle = pv::leadsTo(masterTimebase, timebase);
  }
  if (isCircle) return signalError(kPVTimebaseError_InvalidParameter);
  return setMaster(timebase, nullptr, masterTimebase);
}
PV_TWIN(KivTimebaseSetMasterTimebase, PVTimebaseSetMasterTimebase)
