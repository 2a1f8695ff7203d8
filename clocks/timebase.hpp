// Timebases: representation, locks, and what the source files about them share.
//
// Representation: a timebase has a master clock, or a master timebase, or (read-only) a target; the others
// are null. Its own state is the transform from the master's time; rate 0 and anchors at zero in the
// beginning. What readers need stands once more in `shared`, for them to read without a lock; every change is
// made inside a Change, which keeps the two the same. The ultimate master clock and the height are a cache:
// at the end of every change of a master they are taken from the master, and each timebase that follows it
// does the same when it hears of the change.
//
// A timebase hears of its master, or target, through a link: an object of its own for each time a master is
// set, weakly registered with the notification center for all names, and referring weakly to the timebase. So
// a notification never finds a timebase that is being finalized, and what arrives over a link that is no
// longer the timebase's is known to be late, even if the same master has been set again.
//
// Locks, in the order in which they are taken:
//  1. topologyLock, one for the process: held while a master or target is replaced, so that two threads
//     cannot close a circle together. `link`, `target`, `masterClock` and `masterTimebase` are written with
//     this and the mutex held; either is enough to read them.
//  2. A timebase's mutex, the follower's before the master's. Reentrant. Guards everything below it in the
//     struct.
//  3. The locks of clocks, timers, run loops and the notification center.
// No notification is posted with a lock held, and nothing is released with a lock held that might be a last
// reference: finalizers take locks of others, and run code of the program. Nothing but a barrier waits for
// notifications in progress: whoever changes a master may hold a lock of the program that its listeners take.
#ifndef PEVRIN_CLOCKS_TIMEBASE_HPP
#define PEVRIN_CLOCKS_TIMEBASE_HPP

#include <kiv/timebase.h>
#include <pevrin/notification_center.h>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include <mutex>

#include "clocks/shared_reading.hpp"
#include "clocks/timebase_timers.hpp"
#include "runtime/reentrant_mutex.hpp"

namespace pv {

struct TimebaseLink;

using TimebaseRef = br::Ref<PVTimebase>;
using ClockRef = br::Ref<PVClock>;
using PayloadRef = br::Ref<const BRDictionary>;

}  // namespace pv

struct PVTimebase : BRObject {
  static constexpr const char* className = "KivTimebase";

  struct WriteAttempt {
    PVTimebaseWriteAttemptCallback callback;
    void* refCon;
  };

  PVTimebase() = default;
  explicit PVTimebase(WriteAttempt attempt) : isReadOnly(true), writeAttempt(attempt) {}
  ~PVTimebase();
  BRStringRef copyDebugDescription() const;

  // All under the mutex, and for timebases that are not read-only.
  PVTime timeAt(PVTime masterTime) const;
  PVTime masterTimeNow() const;
  PVTime timeNow() const { return transform.rate == 0.0 ? timeAt(kPVTimeInvalid) : timeAt(masterTimeNow()); }
  PVStatus getInverse(PVSyncTransform* inverseOut);
  void findUltimateMasterClock(pv::ClockRef* oldClock);

  // Under the mutex. Takes the sign of the effective rate; says whether the direction of play is as before.
  bool updateRateSign(double effectiveRate);
  void reschedule(pv::Reschedule why, PVTime timebaseNow, pv::DroppedTimers* dropped);

  const bool isReadOnly = false;
  const WriteAttempt writeAttempt{};
  pv::SharedReading shared;
  mutable pv::ReentrantMutex mutex;

  br::Ref<pv::TimebaseLink> link;  // to the master timebase or the target
  pv::TimebaseRef target;
  pv::ClockRef masterClock;
  pv::TimebaseRef masterTimebase;

  pv::ClockRef ultimateMasterClock;
  int64_t height = 0;
  PVSyncTransform transform{};  // from the master's time; its rate is the one that was set
  bool isInverseValid = false;
  PVSyncTransform inverse{};
  // The transform to the host time clock, when that is the master and the timebase moves.
  bool leadsStraightToHost = false;
  PVSyncTransform straightToHost{};
  pv::NsLine straightToHostLine;
  int32_t rateSign = 0;  // of the effective rate when last looked at
  pv::TimerTable runLoopTimers{pv::kRunLoopTimers};
  pv::TimerTable timerSources{pv::kTimerSources};
};

namespace pv {

// A change of what readers see, under the mutex. They do not see the timebase until it ends.
class TimebaseChange {
 public:
  explicit TimebaseChange(PVTimebase& timebase) : timebase_(timebase) { timebase.shared.begin(); }
  ~TimebaseChange();
  TimebaseChange(const TimebaseChange&) = delete;
  TimebaseChange& operator=(const TimebaseChange&) = delete;

 private:
  PVTimebase& timebase_;
};

// A new timebase, or null. Never br::create: the type is not known to sync before the first one.
TimebaseRef createTimebase(BRAllocatorRef allocator);
TimebaseRef createView(BRAllocatorRef allocator, const PVTimebase::WriteAttempt& attempt);

extern std::mutex topologyLock;

// True when following targets and masters from one timebase leads to the other, or they are the same. Under
// topologyLock.
bool leadsTo(const PVTimebase* from, const PVTimebase* to);

// The timebase itself, or what a view shows: the first of its targets that is not a view. With no mutex held.
TimebaseRef copyTarget(PVTimebaseRef timebase);

// function(that timebase), with its mutex held and those of the views on the way.
template <class F>
auto withTarget(PVTimebaseRef timebase, F function) {
  std::lock_guard guard(timebase->mutex);
  if (!timebase->isReadOnly) return function(*timebase);
  return withTarget(timebase->target.get(), function);
}

struct TimeAndRate {
  PVTime time = kPVTimeInvalid;
  double rate = 0.0;
};

// What the timebase shows now, with the mutexes held from it to the top of the chain where they are needed.
TimeAndRate readLocked(PVTimebaseRef timebase);

// Missing parameter for null; for a view calls its callback and says that it is read-only.
PVStatus checkWritable(PVTimebaseRef timebase);

bool haveChanged(double oldEffectiveRate, double newEffectiveRate);

// ---- Notifications. Without locks.

PayloadRef createPayload(PVTime eventTime);
void post(PVTimebaseRef timebase, BRStringRef name, const PayloadRef& payload);
// The event time in a payload, or an invalid one.
PVTime eventTimeOf(BRDictionaryRef payload);

// What a follower hears. Both are called with a reference to the follower held.
void masterPosted(PVTimebaseRef follower, const TimebaseLink* link, BRStringRef name,
                  BRDictionaryRef payload);
void targetPosted(PVTimebaseRef view, const TimebaseLink* link, BRStringRef name, BRDictionaryRef payload);

// Has the follower hear the source, from now on until the link is disconnected.
PVStatus connect(PVTimebaseRef follower, PVTimebaseRef source, br::Ref<TimebaseLink>* linkOut);
// What is being heard on other threads may outlast it.
void disconnect(const br::Ref<TimebaseLink>& link);

}  // namespace pv

#endif
