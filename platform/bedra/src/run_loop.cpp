#include "src/run_loop.hpp"

#include <bedra/string.h>
#include <bedra/literal.hpp>

#include <algorithm>
#include <cmath>
#include <new>

using namespace br::literals;
using br::kNeverNs;
using br::RunLoopMode;
using br::TimerMembership;

namespace {

int64_t nowMonotonicNs() { return static_cast<int64_t>(BRHostTimeGetUptimeNs()); }

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

BRRunLoop::~BRRunLoop() {
  while (RunLoopMode* mode = modes) {
    modes = mode->next;
    delete mode;
  }
}

// ---- Modes and what is in them

// Null when no timer was ever added in the mode.
RunLoopMode* BRRunLoop::findMode(BRStringRef name) const {
  RunLoopMode* mode = modes;
  while (mode && !BREqual(mode->name.get(), name)) mode = mode->next;
  return mode;
}

// Null when memory runs out.
RunLoopMode* BRRunLoop::findOrAddMode(BRStringRef name) {
  if (RunLoopMode* mode = findMode(name)) return mode;
  auto copy = br::Ref<const BRString>::adopt(BRStringCreateCopy(nullptr, name));
  auto* mode = copy ? new (std::nothrow) RunLoopMode{std::move(copy), {}, modes} : nullptr;
  return mode ? modes = mode : nullptr;
}

// False when memory runs out.
bool BRRunLoop::join(BRRunLoopTimerRef timer, RunLoopMode* mode) {
  TimerMembership* own = &timer->ownMembership;
  auto* membership = own->mode ? new (std::nothrow) TimerMembership{} : own;
  if (!membership) return false;
  membership->timer = timer;
  membership->mode = mode;
  membership->next = std::exchange(timer->memberships, membership);
  if (!timer->isWaiting()) return true;
  if (const TimerMembership* other = membership->next) {
    membership->timeNs = other->timeNs;
    membership->order = other->order;
    mode->timers.insert(membership);
    timersChanged();
  } else {
    insert(timer);
  }
  return true;
}

// Ends the membership that the link leads to.
void BRRunLoop::leave(BRRunLoopTimerRef timer, TimerMembership** link) {
  TimerMembership* membership = *link;
  if (timer->isWaiting()) membership->mode->timers.remove(membership);
  *link = membership->next;
  if (membership == &timer->ownMembership)
    membership->mode = nullptr;
  else
    delete membership;
}

void BRRunLoop::leaveAll(BRRunLoopTimerRef timer) {
  while (timer->memberships) leave(timer, &timer->memberships);
  timersChanged();
}

// Behind the timers of the same time.
void BRRunLoop::insert(BRRunLoopTimerRef timer) {
  ++lastOrder;
  for (TimerMembership* membership = timer->memberships; membership; membership = membership->next) {
    membership->timeNs = timer->latestNs();
    membership->order = lastOrder;
    membership->mode->timers.insert(membership);
  }
  timersChanged();
}

void BRRunLoop::remove(BRRunLoopTimerRef timer) {
  for (TimerMembership* membership = timer->memberships; membership; membership = membership->next)
    membership->mode->timers.remove(membership);
}

// ---- Sleeping and being woken

void BRRunLoop::setDescriptor(int64_t timeNs) {
  if (timeNs == readableFromNs) return;
  readableFromNs = timeNs;
  descriptor.set(timeNs);
}

// The one who sleeps wakes in time for the first timer, and at once when there is none to wait for any more.
void BRRunLoop::timersChanged() {
  const RunLoopMode* watched = waitedMode ? waitedMode : polledMode;
  if (!watched) return;
  if (const br::TimerNode* first = watched->timers.first()) {
    if (first->timeNs < readableFromNs) setDescriptor(first->timeNs);
  } else if (waitedMode) {
    wake();
  }
}

void BRRunLoop::wake() {
  if (waitedMode || polledMode) setDescriptor(0);
}

void BRRunLoop::waitUntil(std::unique_lock<std::mutex>& held, RunLoopMode* mode, int64_t timeNs) {
  waitedMode = mode;
  setDescriptor(timeNs);
  held.unlock();
  descriptor.wait();
  held.lock();
  waitedMode = nullptr;
  readableFromNs = kUnknownNs;  // it was read, but may have been set again since
  if (polledMode) watchPolledMode();
}

// Always sets the descriptor, so that a program that polls for edges gets one for what is left.
void BRRunLoop::watchPolledMode() {
  const br::TimerNode* first = polledMode->timers.first();
  readableFromNs = kUnknownNs;
  setDescriptor(isStopRequested ? 0 : first ? first->timeNs : kNeverNs);
}

// ---- Running

// Calls the first timer of the mode when its time has come.
bool BRRunLoop::callFirst(std::unique_lock<std::mutex>& held, RunLoopMode* mode, int64_t nowNs) {
  br::TimerNode* first = mode ? mode->timers.first() : nullptr;
  if (!first) return false;
  BRRunLoopTimerRef timer = static_cast<TimerMembership*>(first)->timer;
  if (timer->setting.fire.timeNs > nowNs) return false;
  remove(timer);
  timer->isBeingCalled = true;
  if (timer->repeats()) {
    timer->advancePast(nowNs);
    BRRetain(timer);
  } else {
    timer->isValid = false;
    leaveAll(timer);  // the loop's reference is now this function's
  }
  held.unlock();
  timer->callback(timer, timer->context.info);
  held.lock();
  timer->isBeingCalled = false;
  if (timer->memberships) insert(timer);
  const bool releasesInfo = !timer->isValid && timer->takeInfo();
  held.unlock();
  if (releasesInfo) timer->context.release(timer->context.info);
  BRRelease(timer);
  held.lock();
  return true;
}

BRRunLoopResult BRRunLoop::run(std::unique_lock<std::mutex>& held, BRStringRef name, int64_t deadlineNs,
                               bool returnAfterSourceHandled) {
  for (;;) {
    // Timers that callbacks set anew wait for the next round, so that a round ends.
    const int64_t nowNs = nowMonotonicNs();
    bool handled = false;
    while (!isStopRequested && !(handled && returnAfterSourceHandled) &&
           callFirst(held, findMode(name), nowNs))
      handled = true;
    if (handled && returnAfterSourceHandled) return kBRRunLoopHandledSource;
    if (std::exchange(isStopRequested, false)) return kBRRunLoopStopped;
    RunLoopMode* mode = findMode(name);
    const br::TimerNode* next = mode ? mode->timers.first() : nullptr;
    if (!next) return kBRRunLoopFinished;
    if (nowNs >= deadlineNs) return kBRRunLoopTimedOut;
    waitUntil(held, mode, std::min(deadlineNs, next->timeNs));
  }
}

// The thread is ending: what is left will not fire.
void BRRunLoop::end() {
  std::unique_lock held(lock);
  hasEnded = true;
  polledMode = nullptr;
  descriptor.close();
  for (RunLoopMode* mode = modes; mode; mode = mode->next) {
    while (br::TimerNode* first = mode->timers.first()) {
      BRRunLoopTimerRef timer = static_cast<TimerMembership*>(first)->timer;
      leaveAll(timer);
      held.unlock();
      BRRelease(timer);
      held.lock();
    }
  }
}

namespace {

BRRunLoopResult runCurrentLoop(BRStringRef mode, int64_t deadlineNs, bool returnAfterSourceHandled) {
  auto loop = br::Ref<BRRunLoop>::retain(BRRunLoopGetCurrent());
  if (!loop || !mode) return kBRRunLoopFinished;
  std::unique_lock held(loop->lock);
  return loop->run(held, mode, deadlineNs, returnAfterSourceHandled);
}

}  // namespace

extern "C" {
constinit const BRStringRef kBRRunLoopDefaultMode = "kBRRunLoopDefaultMode"_br;
}

BRTypeID BRRunLoopGetTypeID(void) { return br::typeID<BRRunLoop>(); }

BRRunLoopRef BRRunLoopGetCurrent(void) {
  if (!currentLoop.loop && !currentLoop.isGone) {
    auto made = br::Ref<BRRunLoop>::adopt(br::create<BRRunLoop>(nullptr, 0));
    if (made && made->descriptor.get() >= 0) currentLoop.loop = made.detach();
  }
  return currentLoop.loop;
}

BRRunLoopResult BRRunLoopRunInMode(BRStringRef mode, double seconds, bool returnAfterSourceHandled) {
  const int64_t deadlineNs = std::isnan(seconds) ? 0 : br::timeAfterNs(nowMonotonicNs(), seconds);
  return runCurrentLoop(mode, deadlineNs, returnAfterSourceHandled);
}

BRRunLoopResult BRRunLoopRunUntilDate(BRStringRef mode, BRAbsoluteTime date) {
  const int64_t deadlineNs = std::isnan(date) ? 0 : BRRunLoopTimer::settingOf(date).fire.timeNs;
  return runCurrentLoop(mode, deadlineNs, false);
}

int BRRunLoopGetPollDescriptor(BRRunLoopRef loop) {
  if (!loop) return -1;
  std::lock_guard guard(loop->lock);
  if (!loop->polledMode && !loop->hasEnded) {
    loop->polledMode = loop->findOrAddMode(kBRRunLoopDefaultMode);
    if (!loop->polledMode) return -1;
    if (!loop->waitedMode) loop->watchPolledMode();
  }
  return loop->descriptor.get();
}

BRRunLoopResult BRRunLoopDispatchPending(BRRunLoopRef loop, BRStringRef name) {
  if (!loop || !name || loop != currentLoop.loop) return kBRRunLoopRefused;
  auto keep = br::Ref<BRRunLoop>::retain(loop);
  std::unique_lock held(loop->lock);
  RunLoopMode* mode = loop->findOrAddMode(name);
  if (!mode) return kBRRunLoopRefused;
  loop->polledMode = mode;
  const BRRunLoopResult result = loop->run(held, name, 0, false);
  loop->polledMode = mode;  // a callback may have dispatched another
  loop->watchPolledMode();
  held.unlock();
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

bool BRRunLoopAddTimer(BRRunLoopRef loop, BRRunLoopTimerRef timer, BRStringRef name) {
  if (!loop || !timer || !name) return false;
  std::lock_guard unattached(br::unattachedLock());
  BRRunLoopRef owner = timer->loop.load(std::memory_order_relaxed);
  if (owner && owner != loop) return false;
  std::lock_guard guard(loop->lock);
  if (!timer->isValid || loop->hasEnded) return false;
  RunLoopMode* mode = loop->findOrAddMode(name);
  if (!mode) return false;
  for (TimerMembership* membership = timer->memberships; membership; membership = membership->next)
    if (membership->mode == mode) return true;
  const bool isFirst = !timer->memberships;
  if (!loop->join(timer, mode)) return false;
  if (isFirst) BRRetain(timer);
  if (!owner) {
    BRRetain(loop);
    timer->loop.store(loop, std::memory_order_release);
  }
  return true;
}

bool BRRunLoopContainsTimer(BRRunLoopRef loop, BRRunLoopTimerRef timer, BRStringRef name) {
  if (!loop || !timer || !name || timer->loop.load(std::memory_order_acquire) != loop) return false;
  std::lock_guard guard(loop->lock);
  const TimerMembership* membership = timer->memberships;
  while (membership && !BREqual(membership->mode->name.get(), name)) membership = membership->next;
  return membership;
}

void BRRunLoopRemoveTimer(BRRunLoopRef loop, BRRunLoopTimerRef timer, BRStringRef name) {
  if (!loop || !timer || !name || timer->loop.load(std::memory_order_acquire) != loop) return;
  std::unique_lock held(loop->lock);
  TimerMembership** link = &timer->memberships;
  while (*link && !BREqual((*link)->mode->name.get(), name)) link = &(*link)->next;
  if (!*link) return;
  loop->leave(timer, link);
  loop->timersChanged();
  const bool wasLast = !timer->memberships;
  held.unlock();
  if (wasLast) BRRelease(timer);
}
