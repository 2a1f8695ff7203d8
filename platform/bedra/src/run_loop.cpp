// Run loops and their timers.
//
// Representation: a loop knows the names of its modes, at most kMostModes, so that a set of modes is a mask.
// Its timers stand in one list in the order in which they fire: by time, then by the order in which they were
// set. A timer belongs to the first loop it is added to; from then on that loop's lock guards its state,
// before it is the lock of timers without a loop. A timer in the list is retained by the loop, and a loop is
// retained by its timers: the list is emptied when the loop's thread ends, which breaks the circle.
//
// Lock order: unattachedLock before a loop's lock. No callback runs with either held.
//
// Times inside are nanoseconds of the monotonic clock: a fire date is converted when it is set.
#include <bedra/run_loop.h>
#include <bedra/string.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>

using namespace br::literals;

namespace {

using ModeMask = uint32_t;
constexpr uint32_t kMostModes = 32;

constexpr int64_t kNever = INT64_MAX;

int64_t monotonicNowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// `seconds` after a time: past ones are that time, and what is not a number or out of range is never.
int64_t timeAfterNs(int64_t fromNs, double seconds) {
  if (seconds <= 0) return fromNs;
  const double deltaNs = seconds * 1e9;
  return deltaNs < 9e18 - static_cast<double>(fromNs) ? fromNs + static_cast<int64_t>(deltaNs) : kNever;
}

std::mutex& unattachedLock() {
  static constinit std::mutex lock;
  return lock;
}

}  // namespace

struct BRRunLoopTimer : BRObject {
  static constexpr const char* className = "BRRunLoopTimer";

  ~BRRunLoopTimer();
  BRRunLoopTimer(BRAbsoluteTime date, BRRunLoopTimerCallback function, const BRRunLoopTimerContext& copied)
      : callback(function), context(copied) {
    setFireDate(date);
  }
  std::unique_lock<std::mutex> lockState();
  void setFireDate(BRAbsoluteTime date);
  // Whether the info is to be released now: asked when the timer can call no more, true once.
  bool takeInfo() { return std::exchange(ownsInfo, false) && context.release; }

  std::atomic<BRRunLoopRef> loop{nullptr};  // retained; changes once, under unattachedLock
  BRRunLoopTimerCallback callback;
  BRRunLoopTimerContext context;
  // Guarded by the loop's lock, or by unattachedLock while there is no loop:
  BRAbsoluteTime fireDate;
  int64_t fireNs;
  bool isValid = true;
  bool ownsInfo = true;
  ModeMask modes = 0;  // not 0: in the loop's list
  BRRunLoopTimerRef next = nullptr;
  BRRunLoopTimerRef previous = nullptr;
};

struct BRRunLoop : BRObject {
  static constexpr const char* className = "BRRunLoop";

  void insert(BRRunLoopTimerRef timer);
  void unlink(BRRunLoopTimerRef timer);
  ModeMask findMode(BRStringRef name) const;
  ModeMask findOrAddMode(BRStringRef name);
  BRRunLoopTimerRef firstIn(ModeMask mode) const;
  bool fireFirst(std::unique_lock<std::mutex>& held, ModeMask mode, int64_t nowNs);
  void waitUntil(std::unique_lock<std::mutex>& held, int64_t timeNs);
  // Has the thread look again at what there is to do.
  void wake() {
    isWoken = true;
    changed.notify_all();
  }
  void end();

  std::mutex lock;
  std::condition_variable changed;
  // Guarded by lock:
  br::Ref<const BRString> modeNames[kMostModes];
  uint32_t modeCount = 0;
  BRRunLoopTimerRef first = nullptr;
  BRRunLoopTimerRef last = nullptr;
  bool isStopRequested = false;
  bool isWoken = false;
  bool hasEnded = false;  // its thread is gone
};

// ---- Timers

BRRunLoopTimer::~BRRunLoopTimer() {
  if (takeInfo()) context.release(context.info);
  BRRelease(loop.load(std::memory_order_relaxed));
}

std::unique_lock<std::mutex> BRRunLoopTimer::lockState() {
  for (;;) {
    BRRunLoopRef owner = loop.load(std::memory_order_acquire);
    std::unique_lock held(owner ? owner->lock : unattachedLock());
    if (loop.load(std::memory_order_relaxed) == owner) return held;
  }
}

void BRRunLoopTimer::setFireDate(BRAbsoluteTime date) {
  fireDate = date;
  fireNs = timeAfterNs(monotonicNowNs(), date - BRAbsoluteTimeGetCurrent());
}

// ---- Loops

// After the timers that fire at the same time.
void BRRunLoop::insert(BRRunLoopTimerRef timer) {
  BRRunLoopTimerRef before = last;
  while (before && before->fireNs > timer->fireNs) before = before->previous;
  timer->previous = before;
  timer->next = before ? before->next : first;
  (before ? before->next : first) = timer;
  (timer->next ? timer->next->previous : last) = timer;
}

void BRRunLoop::unlink(BRRunLoopTimerRef timer) {
  (timer->previous ? timer->previous->next : first) = timer->next;
  (timer->next ? timer->next->previous : last) = timer->previous;
  timer->next = timer->previous = nullptr;
}

// 0 when no timer was ever added in the mode.
ModeMask BRRunLoop::findMode(BRStringRef name) const {
  for (uint32_t i = 0; i < modeCount; ++i)
    if (BREqual(modeNames[i].get(), name)) return ModeMask{1} << i;
  return 0;
}

// 0 when there is no room for another mode or memory runs out.
ModeMask BRRunLoop::findOrAddMode(BRStringRef name) {
  if (ModeMask mode = findMode(name)) return mode;
  if (modeCount == kMostModes) return 0;
  modeNames[modeCount] = br::Ref<const BRString>::adopt(BRStringCreateCopy(nullptr, name));
  return modeNames[modeCount] ? ModeMask{1} << modeCount++ : 0;
}

BRRunLoopTimerRef BRRunLoop::firstIn(ModeMask mode) const {
  BRRunLoopTimerRef timer = first;
  while (timer && !(timer->modes & mode)) timer = timer->next;
  return timer;
}

// Calls the first timer of the mode when it is due. Gives up the lock meanwhile.
bool BRRunLoop::fireFirst(std::unique_lock<std::mutex>& held, ModeMask mode, int64_t nowNs) {
  BRRunLoopTimerRef timer = firstIn(mode);
  if (!timer || timer->fireNs > nowNs) return false;
  unlink(timer);
  timer->modes = 0;
  timer->isValid = false;
  held.unlock();
  timer->callback(timer, timer->context.info);
  held.lock();
  const bool releasesInfo = timer->takeInfo();
  held.unlock();
  if (releasesInfo) timer->context.release(timer->context.info);
  BRRelease(timer);
  held.lock();
  return true;
}

void BRRunLoop::waitUntil(std::unique_lock<std::mutex>& held, int64_t timeNs) {
  auto mustLook = [this] { return isWoken || isStopRequested; };
  if (timeNs == kNever) {
    changed.wait(held, mustLook);
  } else {
    const std::chrono::steady_clock::time_point until{std::chrono::nanoseconds(timeNs)};
    changed.wait_until(held, until, mustLook);
  }
  isWoken = false;
}

// The thread is ending: what is left will not fire.
void BRRunLoop::end() {
  std::unique_lock held(lock);
  hasEnded = true;
  while (BRRunLoopTimerRef timer = first) {
    unlink(timer);
    timer->modes = 0;
    held.unlock();
    BRRelease(timer);
    held.lock();
  }
}

namespace {

// The calling thread's loop, ended and released with the thread.
struct CurrentLoop {
  ~CurrentLoop() {
    isGone = true;
    if (!loop) return;
    loop->end();
    BRRelease(loop);
    loop = nullptr;
  }
  BRRunLoopRef loop = nullptr;
  bool isGone = false;
};
thread_local CurrentLoop currentLoop;

}  // namespace

extern "C" {
constinit const BRStringRef kBRRunLoopDefaultMode = "kBRRunLoopDefaultMode"_br;
}

BRTypeID BRRunLoopGetTypeID(void) { return br::typeID<BRRunLoop>(); }
BRTypeID BRRunLoopTimerGetTypeID(void) { return br::typeID<BRRunLoopTimer>(); }

BRRunLoopRef BRRunLoopGetCurrent(void) {
  if (!currentLoop.loop && !currentLoop.isGone) currentLoop.loop = br::create<BRRunLoop>(nullptr, 0);
  return currentLoop.loop;
}

BRRunLoopResult BRRunLoopRunInMode(BRStringRef mode, double seconds, bool returnAfterSourceHandled) {
  BRRunLoopRef loop = BRRunLoopGetCurrent();
  if (!loop || !mode) return kBRRunLoopFinished;
  const int64_t deadlineNs = std::isnan(seconds) ? 0 : timeAfterNs(monotonicNowNs(), seconds);
  BRRetain(loop);
  std::unique_lock held(loop->lock);
  BRRunLoopResult result = 0;
  while (result == 0) {
    // Timers that callbacks set anew wait for the next round, so that a round ends.
    const int64_t nowNs = monotonicNowNs();
    bool handled = false;
    while (!loop->isStopRequested && !(handled && returnAfterSourceHandled) &&
           loop->fireFirst(held, loop->findMode(mode), nowNs))
      handled = true;
    BRRunLoopTimerRef next = loop->firstIn(loop->findMode(mode));
    if (handled && returnAfterSourceHandled) {
      result = kBRRunLoopHandledSource;
    } else if (loop->isStopRequested) {
      loop->isStopRequested = false;
      result = kBRRunLoopStopped;
    } else if (!next) {
      result = kBRRunLoopFinished;
    } else if (nowNs >= deadlineNs) {
      result = kBRRunLoopTimedOut;
    } else {
      loop->waitUntil(held, std::min(deadlineNs, next->fireNs));
    }
  }
  held.unlock();
  BRRelease(loop);
  return result;
}

void BRRunLoopWakeUp(BRRunLoopRef loop) {
  if (!loop) return;
  std::lock_guard guard(loop->lock);
  loop->wake();
}

void BRRunLoopStop(BRRunLoopRef loop) {
  if (!loop) return;
  std::lock_guard guard(loop->lock);
  loop->isStopRequested = true;
  loop->wake();
}

bool BRRunLoopAddTimer(BRRunLoopRef loop, BRRunLoopTimerRef timer, BRStringRef mode) {
  if (!loop || !timer || !mode) return false;
  std::lock_guard unattached(unattachedLock());
  BRRunLoopRef owner = timer->loop.load(std::memory_order_relaxed);
  if (owner && owner != loop) return false;
  std::lock_guard guard(loop->lock);
  if (!timer->isValid || loop->hasEnded) return false;
  const ModeMask mask = loop->findOrAddMode(mode);
  if (mask == 0) return false;
  if (!owner) {
    BRRetain(loop);
    timer->loop.store(loop, std::memory_order_release);
  }
  if (timer->modes == 0) {
    BRRetain(timer);
    loop->insert(timer);
  }
  timer->modes |= mask;
  loop->wake();
  return true;
}

bool BRRunLoopContainsTimer(BRRunLoopRef loop, BRRunLoopTimerRef timer, BRStringRef mode) {
  if (!loop || !timer || !mode || timer->loop.load(std::memory_order_acquire) != loop) return false;
  std::lock_guard guard(loop->lock);
  return (timer->modes & loop->findMode(mode)) != 0;
}

void BRRunLoopRemoveTimer(BRRunLoopRef loop, BRRunLoopTimerRef timer, BRStringRef mode) {
  if (!loop || !timer || !mode || timer->loop.load(std::memory_order_acquire) != loop) return;
  std::unique_lock held(loop->lock);
  const ModeMask mask = timer->modes & loop->findMode(mode);
  if (mask == 0) return;
  timer->modes &= ~mask;
  loop->wake();
  if (timer->modes != 0) return;
  loop->unlink(timer);
  held.unlock();
  BRRelease(timer);
}

BRRunLoopTimerRef BRRunLoopTimerCreate(BRAllocatorRef allocator, BRAbsoluteTime fireDate,
                                       BRRunLoopTimerCallback callback,
                                       const BRRunLoopTimerContext* context) {
  if (!callback || (context && context->version != 0)) return nullptr;
  auto* timer = br::create<BRRunLoopTimer>(allocator, 0, fireDate, callback,
                                           context ? *context : BRRunLoopTimerContext{});
  if (timer && timer->context.retain)
    timer->context.info = const_cast<void*>(timer->context.retain(context->info));
  return timer;
}

void BRRunLoopTimerInvalidate(BRRunLoopTimerRef timer) {
  if (!timer) return;
  std::unique_lock held = timer->lockState();
  if (!timer->isValid) return;  // one that is firing lets go of its info afterwards
  timer->isValid = false;
  const bool releasesInfo = timer->takeInfo();
  const bool isListed = timer->modes != 0;
  if (isListed) {
    BRRunLoopRef loop = timer->loop.load(std::memory_order_relaxed);
    timer->modes = 0;
    loop->unlink(timer);
    loop->wake();
  }
  held.unlock();
  if (releasesInfo) timer->context.release(timer->context.info);
  if (isListed) BRRelease(timer);
}

bool BRRunLoopTimerIsValid(BRRunLoopTimerRef timer) {
  if (!timer) return false;
  auto held = timer->lockState();
  return timer->isValid;
}

BRAbsoluteTime BRRunLoopTimerGetNextFireDate(BRRunLoopTimerRef timer) {
  if (!timer) return 0;
  auto held = timer->lockState();
  return timer->fireDate;
}

void BRRunLoopTimerSetNextFireDate(BRRunLoopTimerRef timer, BRAbsoluteTime fireDate) {
  if (!timer) return;
  auto held = timer->lockState();
  if (!timer->isValid) return;
  timer->setFireDate(fireDate);
  if (timer->modes == 0) return;
  BRRunLoopRef loop = timer->loop.load(std::memory_order_relaxed);
  loop->unlink(timer);
  loop->insert(timer);
  loop->wake();
}
