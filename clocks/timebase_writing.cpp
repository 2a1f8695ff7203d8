// Writing timebases: time, anchor and rate.
#include <cmath>

#include "clocks/timebase.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using pv::signalError;
using pv::TimebaseChange;
using pv::TimebaseRef;

PVStatus pv::checkWritable(PVTimebaseRef timebase) {
  if (!timebase) return signalError(kPVTimebaseError_RequiredParameterMissing);
  if (!timebase->isReadOnly) return kPVStatus_Success;
  const auto& attempt = timebase->writeAttempt;
  if (attempt.callback) attempt.callback(timebase, attempt.refCon);
  return signalError(kPVTimebaseError_ReadOnly);
}

// Also true of what is not a number.
bool pv::haveChanged(double oldEffectiveRate, double newEffectiveRate) {
  return !(oldEffectiveRate == newEffectiveRate);
}

bool PVTimebase::updateRateSign(double effectiveRate) {
  const int32_t oldSign = rateSign;
  if (effectiveRate != 0.0) rateSign = effectiveRate > 0.0 ? 1 : -1;
  return oldSign == rateSign;
}

namespace {

// SetTime takes the master's time now for the anchor, SetAnchorTime the one that it was given.
PVStatus setAnchorTime(PVTimebaseRef timebase, bool useMasterNow, PVTime time, PVTime masterTime) {
  const TimebaseRef alive = TimebaseRef::retain(timebase);
  pv::DroppedTimers dropped;
  PVTime eventTime = time;
  {
    std::lock_guard guard(timebase->mutex);
    PVSyncTransform& transform = timebase->transform;
    if (transform.rate == 0.0 && PVTimeCompare(timebase->timeNow(), time) == 0) return kPVStatus_Success;
    {
      TimebaseChange change(*timebase);
      transform.fromAnchor = useMasterNow ? timebase->masterTimeNow() : masterTime;
      transform.toAnchor = time;
    }
    if (!useMasterNow) eventTime = timebase->timeNow();
    timebase->reschedule(pv::Reschedule::kTimeJumped, eventTime, &dropped);
  }
  pv::post(timebase, kPVTimebaseNotification_TimeJumped, pv::createPayload(eventTime));
  return kPVStatus_Success;
}

struct Anchor {
  PVTime time;
  PVTime masterTime;
  bool isGiven() const { return PVTimeIsValid(time); }
};

// What a change of rate has brought about, to be told when the mutex is given up.
struct RateChange {
  PVTime eventTime = kPVTimeInvalid;
  bool changesEffectiveRate = false;
  bool jumps = false;
};

bool changesNothing(const PVTimebase& timebase, double rate, const Anchor& anchor) {
  const PVSyncTransform& transform = timebase.transform;
  if (transform.rate != rate) return false;
  if (!anchor.isGiven()) return true;
  return rate == 0.0 && PVTimeCompare(anchor.time, transform.toAnchor) == 0 &&
         PVTimeCompare(anchor.masterTime, transform.fromAnchor) == 0;
}

// Under the mutex.
RateChange changeRate(PVTimebase& timebase, PVTimebaseAnchorFlags flags, double rate, const Anchor& anchor,
                      pv::DroppedTimers* dropped) {
  PVSyncTransform& transform = timebase.transform;
  const double oldEffectiveRate = PVTimebaseGetEffectiveRate(&timebase);
  RateChange result;
  {
    TimebaseChange change(timebase);
    const PVTime masterNow = timebase.masterTimeNow();
    transform.toAnchor = anchor.isGiven() ? anchor.time : timebase.timeAt(masterNow);
    transform.fromAnchor = anchor.isGiven() ? anchor.masterTime : masterNow;
    transform.rate = rate;
    result.eventTime = timebase.timeAt(masterNow);
  }
  const double newEffectiveRate = PVTimebaseGetEffectiveRate(&timebase);
  result.changesEffectiveRate = pv::haveChanged(oldEffectiveRate, newEffectiveRate);
  const bool mayJump = !(flags & kPVTimebaseAnchorFlag_TimeDoesNotJump);
  if (mayJump || result.changesEffectiveRate) {
    const bool sameDirection = timebase.updateRateSign(newEffectiveRate) && !(anchor.isGiven() && mayJump);
    timebase.reschedule(sameDirection ? pv::Reschedule::kSameDirection : pv::Reschedule::kTimeJumped,
                        result.eventTime, dropped);
    result.jumps = anchor.isGiven() && mayJump;
  }
  return result;
}

PVStatus setRateAndMaybeAnchor(PVTimebaseRef timebase, PVTimebaseAnchorFlags flags, double rate,
                               const Anchor& anchor) {
  if (PVTimeIsValid(anchor.time) != PVTimeIsValid(anchor.masterTime))
    return signalError(kPVTimebaseError_InvalidParameter);
  const TimebaseRef alive = TimebaseRef::retain(timebase);
  pv::DroppedTimers dropped;
  RateChange change;
  {
    std::lock_guard guard(timebase->mutex);
    if (changesNothing(*timebase, rate, anchor)) return kPVStatus_Success;
    change = changeRate(*timebase, flags, rate, anchor, &dropped);
  }
  if (!change.changesEffectiveRate && !change.jumps) return kPVStatus_Success;
  const pv::PayloadRef payload = pv::createPayload(change.eventTime);
  if (change.changesEffectiveRate) pv::post(timebase, kPVTimebaseNotification_EffectiveRateChanged, payload);
  if (change.jumps) pv::post(timebase, kPVTimebaseNotification_TimeJumped, payload);
  return kPVStatus_Success;
}

}  // namespace

PVStatus PVTimebaseSetTime(PVTimebaseRef timebase, PVTime time) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  if (!PVTimeIsNumeric(time)) return signalError(kPVTimebaseError_RequiredParameterMissing);
  return setAnchorTime(timebase, true, time, kPVTimeInvalid);
}
PV_TWIN(KivTimebaseSetTime, PVTimebaseSetTime)

PVStatus PVTimebaseSetAnchorTime(PVTimebaseRef timebase, PVTime timebaseTime, PVTime immediateMasterTime) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  return setAnchorTime(timebase, false, timebaseTime, immediateMasterTime);
}
PV_TWIN(KivTimebaseSetAnchorTime, PVTimebaseSetAnchorTime)

PVStatus PVTimebaseSetRate(PVTimebaseRef timebase, double rate) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  return setRateAndMaybeAnchor(timebase, 0, rate, {kPVTimeInvalid, kPVTimeInvalid});
}
PV_TWIN(KivTimebaseSetRate, PVTimebaseSetRate)

PVStatus PVTimebaseSetRateAndAnchorTime(PVTimebaseRef timebase, double rate, PVTime timebaseTime,
                                        PVTime immediateMasterTime) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  return setRateAndMaybeAnchor(timebase, 0, rate, {timebaseTime, immediateMasterTime});
}
PV_TWIN(KivTimebaseSetRateAndAnchorTime, PVTimebaseSetRateAndAnchorTime)

PVStatus PVTimebaseSetRateAndAnchorTimeWithFlags(PVTimebaseRef timebase, PVTimebaseAnchorFlags flags,
                                                 double rate, PVTime timebaseTime,
                                                 PVTime immediateMasterTime) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  return setRateAndMaybeAnchor(timebase, flags, rate, {timebaseTime, immediateMasterTime});
}

PVStatus PVTimebaseNotificationBarrier(PVTimebaseRef timebase) {
  if (PVStatus status = pv::checkWritable(timebase)) return status;
  BRNotificationCenterWaitForDeliveries(PVNotificationCenterGetDefaultLocalCenter(), timebase);
  return kPVStatus_Success;
}
