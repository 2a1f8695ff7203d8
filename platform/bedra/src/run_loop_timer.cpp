#include <cmath>

#include "src/clock_offset.hpp"
#include "src/run_loop.hpp"

namespace br {

std::mutex& unattachedLock() {
  static constinit std::mutex lock;
  return lock;
}

int64_t timeAfterNs(int64_t fromNs, double seconds) {
  if (seconds <= 0) return fromNs;
  const double deltaNs = std::ceil(seconds * 1e9);
  return deltaNs < 9e18 - static_cast<double>(fromNs) ? fromNs + static_cast<int64_t>(deltaNs) : kNeverNs;
}

}  // namespace br

using br::kNeverNs;

BRRunLoopTimer::BRRunLoopTimer(const Setting& set, double interval, BRRunLoopTimerCallback function,
                               const BRRunLoopTimerContext& copied)
    : callback(function),
      context(copied),
      intervalSeconds(interval > 0 ? std::max(interval, 1e-9) : 0),
      setting(set) {}

BRRunLoopTimer::~BRRunLoopTimer() {
  if (takeInfo()) context.release(context.info);
  BRRelease(loop.load(std::memory_order_relaxed));
}

std::unique_lock<std::mutex> BRRunLoopTimer::lockState() {
  for (;;) {
    BRRunLoopRef owner = loop.load(std::memory_order_acquire);
    std::unique_lock held(owner ? owner->lock : br::unattachedLock());
    if (loop.load(std::memory_order_relaxed) == owner) return held;
  }
}

// Seconds and their fraction are converted apart, so that no digit of the date is lost.
BRRunLoopTimer::Setting BRRunLoopTimer::settingOf(BRAbsoluteTime date) {
  constexpr double kFarSeconds = 9e9;
  if (!(date < kFarSeconds)) return {{date, kNeverNs}, {date, kNeverNs}};
  const double wholeSeconds = std::floor(std::max(date, -kFarSeconds / 2));
  const double fraction = date > wholeSeconds ? date - wholeSeconds : 0;
  const br::ClockOffset clocks = br::readClockOffset();
  const int64_t timeNs =
      br::timeAfterNs(static_cast<int64_t>(wholeSeconds) * 1'000'000'000 - clocks.calendarAheadNs, fraction);
  // what may be in the past needs to know how late it is
  constexpr int64_t kNearNs = 20'000'000;
  const int64_t fireNs = timeNs > clocks.lastTickNs + kNearNs
                             ? timeNs
                             : std::max(timeNs, static_cast<int64_t>(BRHostTimeGetUptimeNs()));
  return {{date, timeNs}, {date, fireNs}};
}

int64_t BRRunLoopTimer::latestNs() const {
  return setting.fire.timeNs < kNeverNs - toleranceNs ? setting.fire.timeNs + toleranceNs : kNeverNs;
}

// Always from the origin, so that no rounding adds up.
void BRRunLoopTimer::advancePast(int64_t nowNs) {
  const auto& [date, timeNs] = setting.origin;
  const double elapsedSeconds = static_cast<double>(nowNs - timeNs) / 1e9;
  const double afterSeconds = (std::floor(elapsedSeconds / intervalSeconds) + 1) * intervalSeconds;
  setting.fire = {date + afterSeconds, std::max(br::timeAfterNs(timeNs, afterSeconds), nowNs + 1)};
}

BRTypeID BRRunLoopTimerGetTypeID(void) { return br::typeID<BRRunLoopTimer>(); }

BRRunLoopTimerRef BRRunLoopTimerCreate(BRAllocatorRef allocator, BRAbsoluteTime fireDate, double interval,
                                       BRRunLoopTimerCallback callback,
                                       const BRRunLoopTimerContext* context) {
  if (!callback || (context && context->version != 0)) return nullptr;
  auto* timer = br::create<BRRunLoopTimer>(allocator, 0, BRRunLoopTimer::settingOf(fireDate), interval,
                                           callback, context ? *context : BRRunLoopTimerContext{});
  if (timer && timer->context.retain)
    timer->context.info = const_cast<void*>(timer->context.retain(context->info));
  return timer;
}

void BRRunLoopTimerInvalidate(BRRunLoopTimerRef timer) {
  if (!timer) return;
  std::unique_lock held = timer->lockState();
  if (!timer->isValid) return;
  timer->isValid = false;
  // one that is being called lets go of its info afterwards
  const bool releasesInfo = !timer->isBeingCalled && timer->takeInfo();
  const bool wasInLoop = timer->memberships;
  if (wasInLoop) timer->loop.load(std::memory_order_relaxed)->leaveAll(timer);
  held.unlock();
  if (releasesInfo) timer->context.release(timer->context.info);
  if (wasInLoop) BRRelease(timer);
}

bool BRRunLoopTimerIsValid(BRRunLoopTimerRef timer) {
  if (!timer) return false;
  auto held = timer->lockState();
  return timer->isValid;
}

double BRRunLoopTimerGetInterval(BRRunLoopTimerRef timer) { return timer ? timer->intervalSeconds : 0; }

BRAbsoluteTime BRRunLoopTimerGetNextFireDate(BRRunLoopTimerRef timer) {
  if (!timer) return 0;
  auto held = timer->lockState();
  return timer->setting.fire.date;
}

void BRRunLoopTimerSetNextFireDate(BRRunLoopTimerRef timer, BRAbsoluteTime fireDate) {
  if (!timer) return;
  const auto setting = BRRunLoopTimer::settingOf(fireDate);
  auto held = timer->lockState();
  if (!timer->isValid) return;
  BRRunLoopRef loop = timer->loop.load(std::memory_order_relaxed);
  const bool isWaiting = timer->isWaiting();
  if (isWaiting) loop->remove(timer);
  timer->setting = setting;
  if (isWaiting) loop->insert(timer);
}

double BRRunLoopTimerGetTolerance(BRRunLoopTimerRef timer) {
  if (!timer) return 0;
  auto held = timer->lockState();
  return timer->toleranceSeconds;
}

void BRRunLoopTimerSetTolerance(BRRunLoopTimerRef timer, double seconds) {
  if (!timer) return;
  if (!(seconds > 0)) seconds = 0;
  const double effectiveSeconds = timer->repeats() ? std::min(seconds, timer->intervalSeconds / 2) : seconds;
  auto held = timer->lockState();
  BRRunLoopRef loop = timer->loop.load(std::memory_order_relaxed);
  const bool isWaiting = timer->isWaiting();
  if (isWaiting) loop->remove(timer);
  timer->toleranceSeconds = seconds;
  timer->toleranceNs = br::timeAfterNs(0, effectiveSeconds);
  if (isWaiting) loop->insert(timer);
}
