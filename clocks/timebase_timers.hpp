// The timers of a timebase: tables of what was asked of each, and the setting of their dates.
//
// Representation: one table for run-loop timers, one for timer sources. A table is a list of entries, one for
// each timer, and a dictionary that finds an entry by its timer; an entry stands in both or in neither.
// Everything is guarded by the timebase's mutex.
//
// The last release of a timer may run code of the program. So entries that leave a table gather in
// DroppedTimers, which its owner declares before it takes the mutex: they are released after it is given up.
#ifndef PEVRIN_CLOCKS_TIMEBASE_TIMERS_HPP
#define PEVRIN_CLOCKS_TIMEBASE_TIMERS_HPP

#include <kiv/timebase.h>
#include <bedra/ref.hpp>

#include <cstddef>

#include "clocks/ns_line.hpp"

namespace pv {

// Why dates are set anew.
enum class Reschedule {
  kTimeJumped,     // or the direction of play changed: a timer that is behind is parked
  kSameDirection,  // a timer that is behind is left as it is
  kFireTimeSet     // the program has just set it: a timer that is behind fires
};

struct TimerEntry {
  TimerEntry* next = nullptr;
  TimerEntry* previous = nullptr;
  br::Ref<const void> timer;
  br::Ref<BRRunLoop> runLoop;  // of run-loop timers only
  PVTime fireTime = kPVTimeInvalid;
  PVTimebaseTimerFlags flags = 0;
  bool firesImmediately = false;  // until a fire time is set, no change touches it
};

// What all timers of a timebase share when their dates are set.
struct TimerMoment {
  Reschedule why = Reschedule::kTimeJumped;
  double effectiveRate = 0.0;
  bool hasTimebaseNow = false;  // else a date in the past says as well that a timer's time has passed
  PVTime timebaseNow = kPVTimeInvalid;
  bool leadsToHost = false;
  PVSyncTransform toHost{};  // from 0
  NsLine toHostLine;
};

// When a timer is to fire.
struct FireDate {
  PVTime hostTime;  // or no number
  bool hasPassed;   // seen on the timebase's timeline
};

// The operations in which the two kinds of timers differ.
struct TimerKind {
  bool (*isUsable)(BRTypeRef timer);
  void (*park)(BRTypeRef timer);
  void (*fireNow)(BRTypeRef timer);
  void (*fireAt)(BRTypeRef timer, const FireDate& date);
};
extern const TimerKind kRunLoopTimers;
extern const TimerKind kTimerSources;

class DroppedTimers {
 public:
  DroppedTimers() = default;
  ~DroppedTimers();
  DroppedTimers(const DroppedTimers&) = delete;
  DroppedTimers& operator=(const DroppedTimers&) = delete;
  void take(TimerEntry* entry, BRAllocatorRef allocator) {
    entry->next = first_;
    first_ = entry;
    allocator_ = allocator;
  }

 private:
  TimerEntry* first_ = nullptr;
  BRAllocatorRef allocator_ = nullptr;  // the timebase's, which outlives this
};

class TimerTable {
 public:
  explicit TimerTable(const TimerKind& kind) : kind(kind) {}

  bool isEmpty() const { return !first_; }
  TimerEntry* find(BRTypeRef timer) const;
  // A parked entry, or null when memory runs out.
  TimerEntry* add(BRTypeRef timer, BRAllocatorRef allocator);
  void remove(TimerEntry* entry, BRAllocatorRef allocator, DroppedTimers* dropped);
  void removeAll(BRAllocatorRef allocator, DroppedTimers* dropped);
  // Sets the dates of all timers that are not fired immediately; drops those that are not usable any more.
  void schedule(const TimerMoment& moment, BRAllocatorRef allocator, DroppedTimers* dropped);
  void scheduleOne(const TimerEntry& entry, const TimerMoment& moment) const;

  const TimerKind& kind;

 private:
  br::Ref<BRDictionary> entries_;  // made with the first entry
  TimerEntry* first_ = nullptr;
};

// Under the timebase's mutex, and so that a timer's time counts as passed when it is before or behind
// timebaseNow.
TimerMoment timerMoment(PVTimebaseRef timebase, Reschedule why, PVTime timebaseNow);
// For a timer whose time the program has just set.
TimerMoment timerMomentNow(PVTimebaseRef timebase);

// What the public functions of both kinds do once their arguments are there; `table` is one of the
// timebase's.
PVStatus removeTimer(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer);
PVStatus setTimerFireTime(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer, PVTime fireTime,
                          PVTimebaseTimerFlags flags);
PVStatus fireTimerImmediately(PVTimebaseRef timebase, TimerTable& table, BRTypeRef timer);

}  // namespace pv

#endif
