// Run loops and their timers, as the two files that make them up share them.
//
// Representation: a loop keeps a record for every mode that a timer was ever added in, each with a heap of
// its timers. A timer stands in the heap of each of its modes through a membership; the first of them is part
// of the timer, so that a timer in one mode needs no memory. While a timer's callback runs it is in no heap,
// but keeps its memberships.
//
// A timer belongs to the first loop it is added to; from then on that loop's lock guards its state, before it
// is the lock of timers without a loop. A timer with memberships is retained by the loop, and a loop is
// retained by its timers: the memberships end with the loop's thread, which breaks the circle.
//
// The loop's thread sleeps on a descriptor of the kernel; a program's own event loop may do so instead. At
// any time at most one mode is watched in this way, and the descriptor then becomes readable no later than
// the first timer of that mode has to be called. What changes while nobody watches costs no system call:
// whoever is about to watch looks first.
//
// Lock order: unattachedLock before a loop's lock. No callback runs with either held.
//
// Times inside are nanoseconds of the monotonic clock: a fire date is converted when it is set.
#ifndef BEDRA_SRC_RUN_LOOP_HPP
#define BEDRA_SRC_RUN_LOOP_HPP

#include <bedra/run_loop.h>
#include <bedra/ref.hpp>

#include <atomic>
#include <mutex>
#include <utility>

#include "src/internal.hpp"
#include "src/timer_descriptor.hpp"
#include "src/timer_heap.hpp"

namespace br {

struct RunLoopMode {
  Ref<const BRString> name;
  TimerHeap timers;  // their times are the latest at which they are to be called
  RunLoopMode* next;
};

struct TimerMembership : TimerNode {
  BRRunLoopTimerRef timer;
  RunLoopMode* mode;
  TimerMembership* next;  // of the same timer
};

// Guards the timers that have no loop.
std::mutex& unattachedLock();

// `seconds` after a time, rounded up: past ones are that time, and what is not a number or out of range is
// never.
int64_t timeAfterNs(int64_t fromNs, double seconds);

}  // namespace br

struct BRRunLoopTimer : BRObject {
  static constexpr const char* className = "BRRunLoopTimer";

  struct FireTime {
    BRAbsoluteTime date;
    int64_t timeNs;
  };
  // A date as it was set, when that was: ticks are counted from `origin`, and the first is at `fire`, which
  // is not in the past.
  struct Setting {
    FireTime origin;
    FireTime fire;
  };
  static Setting settingOf(BRAbsoluteTime date);

  BRRunLoopTimer(const Setting& set, double interval, BRRunLoopTimerCallback function,
                 const BRRunLoopTimerContext& copied);
  ~BRRunLoopTimer();
  std::unique_lock<std::mutex> lockState();
  bool repeats() const { return intervalSeconds > 0; }
  int64_t latestNs() const;
  // To the first tick after a time.
  void advancePast(int64_t nowNs);
  // Whether it is in its loop's heaps.
  bool isWaiting() const { return memberships && !isBeingCalled; }
  // Whether the info is to be released now: asked when the timer can call no more, true once.
  bool takeInfo() { return std::exchange(ownsInfo, false) && context.release; }

  std::atomic<BRRunLoopRef> loop{nullptr};  // retained; changes once, under unattachedLock
  const BRRunLoopTimerCallback callback;
  BRRunLoopTimerContext context;
  const double intervalSeconds;  // 0: fires once
  // Guarded by the loop's lock, or by unattachedLock while there is no loop:
  Setting setting;  // its fire is the next one
  double toleranceSeconds = 0;
  int64_t toleranceNs = 0;
  bool isValid = true;
  bool ownsInfo = true;
  bool isBeingCalled = false;
  br::TimerMembership* memberships = nullptr;
  br::TimerMembership ownMembership{};
};

struct BRRunLoop : BRObject {
  static constexpr const char* className = "BRRunLoop";

  ~BRRunLoop();
  // All with the lock held.
  br::RunLoopMode* findMode(BRStringRef name) const;
  br::RunLoopMode* findOrAddMode(BRStringRef name);
  bool join(BRRunLoopTimerRef timer, br::RunLoopMode* mode);
  void leave(BRRunLoopTimerRef timer, br::TimerMembership** link);
  void leaveAll(BRRunLoopTimerRef timer);
  void insert(BRRunLoopTimerRef timer);
  void remove(BRRunLoopTimerRef timer);
  void timersChanged();
  void wake();
  // Give the lock up meanwhile.
  bool callFirst(std::unique_lock<std::mutex>& held, br::RunLoopMode* mode, int64_t nowNs);
  void waitUntil(std::unique_lock<std::mutex>& held, br::RunLoopMode* mode, int64_t timeNs);
  BRRunLoopResult run(std::unique_lock<std::mutex>& held, BRStringRef mode, int64_t deadlineNs,
                      bool returnAfterSourceHandled);
  void watchPolledMode();
  void end();

  std::mutex lock;
  // Guarded by lock:
  br::RunLoopMode* modes = nullptr;
  uint64_t lastOrder = 0;
  bool isStopRequested = false;
  bool hasEnded = false;  // its thread is gone
  br::TimerDescriptor descriptor;
  br::RunLoopMode* waitedMode = nullptr;  // while the loop's own thread sleeps
  br::RunLoopMode* polledMode = nullptr;  // of another event loop, once it has asked for the descriptor

 private:
  void setDescriptor(int64_t timeNs);

  static constexpr int64_t kUnknownNs = -1;
  int64_t readableFromNs = br::kNeverNs;  // what the descriptor was set to, unless read since
};

#endif
