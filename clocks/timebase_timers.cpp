// Timers of timebases: tables, and when a timer is to fire.
#include "clocks/timebase_timers.hpp"

#include <bedra/allocator.h>
#include <bedra/dictionary.h>
#include <kiv/clock.h>

#include <new>

#include "clocks/clock.hpp"
#include "clocks/timebase.hpp"
#include "runtime/error.hpp"

namespace {

using pv::FireDate;
using pv::signalError;
using pv::TimerEntry;
using pv::TimerMoment;
using pv::TimerTable;

// Below this, a fire time gets a finer timescale before it is converted, so that little is lost.
constexpr PVTimeScale kCoarsestTimescale = 1024;

PVTime inFinerTimescale(PVTime time) {
  while (time.timescale < kCoarsestTimescale) {
    int64_t value;
    if (__builtin_mul_overflow(time.value, int64_t{2}, &value)) break;
    time = PVTimeMake(value, time.timescale * 2);
  }
  return time;
}

// The transform from a timebase that moves to the host's time.
PVStatus getTransformToHost(PVTimebaseRef timebase, PVSyncTransform* toHostOut) {
  PVSyncTransform toClock, fromClock;
  if (PVStatus status = KivTimebaseGetTransformRelativeToUltimateMasterClock(
          timebase, kKivSyncDirection_ToReference, &toClock))
    return status;
  const auto clock = pv::ClockRef::adopt(PVTimebaseCopyUltimateMasterClock(timebase));
  if (clock.get() == PVClockGetHostTimeClock()) {
    *toHostOut = toClock;
    return kPVStatus_Success;
  }
  if (PVStatus status =
          KivClockGetTransformRelativeToHostTimeClock(clock.get(), kKivSyncDirection_ToReference, &fromClock))
    return status;
  return KivSyncCombineTransforms(&toClock, &fromClock, toHostOut);
}

bool hasPassed(PVTime fireTime, const TimerMoment& moment) {
  const int32_t order = PVTimeCompare(fireTime, moment.timebaseNow);
  return moment.effectiveRate > 0.0 ? order < 0 : order > 0;
}

PVTime hostTimeOf(const PVTime& fireTime, const TimerMoment& moment) {
  if (!moment.leadsToHost) return kPVTimeInvalid;
  PVTime hostTime;
  if (moment.toHostLine.applyFromZero(fireTime, &hostTime)) return hostTime;
  return KivSyncApplyTransform(&moment.toHost, fireTime);
}

void freeEntry(TimerEntry* entry, BRAllocatorRef allocator) {
  entry->~TimerEntry();
  BRAllocatorDeallocate(allocator, entry);
}

}  // namespace

// ---- Tables

pv::DroppedTimers::~DroppedTimers() {
  while (TimerEntry* entry = first_) {
    first_ = entry->next;
    freeEntry(entry, allocator_);
  }
}

TimerEntry* TimerTable::find(BRTypeRef timer) const {
  if (!first_) return nullptr;
  return static_cast<TimerEntry*>(const_cast<void*>(BRDictionaryGetValue(entries_.get(), timer)));
}

TimerEntry* TimerTable::add(BRTypeRef timer, BRAllocatorRef allocator) {
  if (!entries_)
    entries_ = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(allocator, 0, nullptr, nullptr));
  void* block = entries_ ? BRAllocatorAllocate(allocator, sizeof(TimerEntry)) : nullptr;
  if (!block) return nullptr;
  auto* entry = new (block) TimerEntry;
  if (!BRDictionarySetValue(entries_.get(), timer, entry)) {
    freeEntry(entry, allocator);
    return nullptr;
  }
  entry->timer = br::Ref<const void>::retain(timer);
  entry->next = first_;
  if (first_) first_->previous = entry;
  first_ = entry;
  return entry;
}

void TimerTable::remove(TimerEntry* entry, BRAllocatorRef allocator, DroppedTimers* dropped) {
  BRDictionaryRemoveValue(entries_.get(), entry->timer.get());
  (entry->previous ? entry->previous->next : first_) = entry->next;
  if (entry->next) entry->next->previous = entry->previous;
  dropped->take(entry, allocator);
}

void TimerTable::removeAll(BRAllocatorRef allocator, DroppedTimers* dropped) {
  while (first_) remove(first_, allocator, dropped);
}

// ---- Dates

namespace {

// On the host time clock it is at hand.
void findHost(PVTimebaseRef timebase, TimerMoment* moment) {
  if (timebase->leadsStraightToHost) {
    moment->effectiveRate = timebase->transform.rate;
    moment->leadsToHost = true;
    moment->toHost = timebase->straightToHost;
    moment->toHostLine = timebase->straightToHostLine;
    return;
  }
  moment->effectiveRate = PVTimebaseGetEffectiveRate(timebase);
  if (moment->effectiveRate == 0.0) return;
  moment->leadsToHost = getTransformToHost(timebase, &moment->toHost) == kPVStatus_Success;
  moment->toHostLine = pv::NsLine::make(moment->toHost);
}

}  // namespace

TimerMoment pv::timerMoment(PVTimebaseRef timebase, Reschedule why, PVTime timebaseNow) {
  TimerMoment moment;
  moment.why = why;
  moment.hasTimebaseNow = true;
  moment.timebaseNow = timebaseNow;
  findHost(timebase, &moment);
  return moment;
}

// A timer that has just been set fires even if its time has passed, so only a clock that says one thing and
// leads to another makes a difference: the host time clock is not asked.
TimerMoment pv::timerMomentNow(PVTimebaseRef timebase) {
  TimerMoment moment;
  moment.why = Reschedule::kFireTimeSet;
  findHost(timebase, &moment);
  moment.hasTimebaseNow = !timebase->leadsStraightToHost;
  if (moment.hasTimebaseNow) moment.timebaseNow = readLocked(timebase).time;
  return moment;
}

void TimerTable::scheduleOne(const TimerEntry& entry, const TimerMoment& moment) const {
  const BRTypeRef timer = entry.timer.get();
  const bool isScheduled = PVTimeIsNumeric(entry.fireTime) && entry.fireTime.timescale >= 1;
  if (!isScheduled || moment.effectiveRate == 0.0) return kind.park(timer);
  const PVTime fireTime = inFinerTimescale(entry.fireTime);
  const bool passed = moment.hasTimebaseNow && hasPassed(fireTime, moment);
  if (passed && !(entry.flags & kPVTimebaseTimerFlag_FireEvenIfPassed)) {
    if (moment.why == Reschedule::kTimeJumped) return kind.park(timer);
    if (moment.why == Reschedule::kSameDirection) return;
  }
  kind.fireAt(timer, {hostTimeOf(fireTime, moment), passed});
}

void TimerTable::schedule(const TimerMoment& moment, BRAllocatorRef allocator, DroppedTimers* dropped) {
  for (TimerEntry *entry = first_, *next; entry; entry = next) {
    next = entry->next;
    if (!kind.isUsable(entry->timer.get()))
      remove(entry, allocator, dropped);
    else if (!entry->firesImmediately)
      scheduleOne(*entry, moment);
  }
}

void PVTimebase::reschedule(pv::Reschedule why, PVTime timebaseNow, pv::DroppedTimers* dropped) {
  if (runLoopTimers.isEmpty() && timerSources.isEmpty()) return;
  const TimerMoment moment = pv::timerMoment(this, why, timebaseNow);
  const BRAllocatorRef allocator = BRGetAllocator(this);
  runLoopTimers.schedule(moment, allocator, dropped);
  timerSources.schedule(moment, allocator, dropped);
}

// ---- What both kinds do

PVStatus pv::removeTimer(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer) {
  DroppedTimers dropped;
  std::lock_guard guard(timebase->mutex);
  TimerEntry* entry = table.find(timer);
  if (!entry) return signalError(kPVTimebaseError_InvalidParameter);
  table.kind.park(timer);
  table.remove(entry, BRGetAllocator(timebase), &dropped);
  return kPVStatus_Success;
}

namespace {

// The entry of a timer that can still fire; one that cannot is dropped. Under the mutex.
TimerEntry* findUsable(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer,
                       pv::DroppedTimers* dropped) {
  TimerEntry* entry = table.find(timer);
  if (!entry || table.kind.isUsable(timer)) return entry;
  table.remove(entry, BRGetAllocator(timebase), dropped);
  return nullptr;
}

}  // namespace

PVStatus pv::setTimerFireTime(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer, PVTime fireTime,
                              PVTimebaseTimerFlags flags) {
  DroppedTimers dropped;
  std::lock_guard guard(timebase->mutex);
  TimerEntry* entry = findUsable(timebase, table, timer, &dropped);
  if (!entry) return signalError(kPVTimebaseError_InvalidParameter);
  entry->fireTime = fireTime;
  entry->flags = flags;
  entry->firesImmediately = false;
  table.scheduleOne(*entry, timerMomentNow(timebase));
  return kPVStatus_Success;
}

PVStatus pv::fireTimerImmediately(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer) {
  DroppedTimers dropped;
  std::lock_guard guard(timebase->mutex);
  TimerEntry* entry = findUsable(timebase, table, timer, &dropped);
  if (!entry) return signalError(kPVTimebaseError_InvalidParameter);
  entry->firesImmediately = true;
  table.kind.fireNow(timer);
  return kPVStatus_Success;
}
