// The representation of clocks, shared by the files that read them, make derived ones and walk their chains.
//
// One reentrant mutex guards all fields but the atomic ones. It is held while the source's callbacks run and
// while the reference clock is read: so mutexes are taken from a clock toward the host time clock, never the
// other way. A chain has no cycle, since a clock's reference was there before it. The host time clock's mutex
// is never taken.
//
// The callbacks may come back into the clock: read it, report discontinuities, invalidate it, drop references
// to it.
#ifndef PEVRIN_CLOCKS_CLOCK_HPP
#define PEVRIN_CLOCKS_CLOCK_HPP

#include <kiv/clock.h>

#include <atomic>
#include <bedra/host_time.hpp>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include "runtime/four_char_code.hpp"
#include "runtime/reentrant_mutex.hpp"

namespace pv {

struct ClockAnchor {
  PVTime clockTime = kPVTimeInvalid;
  PVTime referenceTime = kPVTimeInvalid;
};

class ClockTurn;

inline constexpr int32_t kNsPerSecond = 1'000'000'000;

using namespace literals;
inline constexpr PVFourCharCode kDerivedClockClass = "gtcb"_4cc;
inline constexpr PVFourCharCode kExternalSyncEventsClass = "exse"_4cc;  // nothing makes these yet

}  // namespace pv

struct PVClock : BRObject {
  static constexpr const char* className = "KivClock";

  PVClock(const KivDerivedClockCallbacks* kind, PVClockRef referenceClock, bool mayDrift, PVTime interval)
      : callbacks(kind),
        reference(br::Ref<PVClock>::retain(referenceClock)),
        minimumInterval(interval),
        alwaysAsks(!PVTimeIsNumeric(interval) || interval.value == 0),
        referenceMayDrift(mayDrift) {}
  ~PVClock();
  BRStringRef copyDebugDescription() const;

  // With the mutex held, as the turn says.
  PVStatus readAnchor(pv::ClockAnchor* anchor, pv::ClockTurn& turn);
  PVStatus getTransform(KivSyncDirection direction, PVSyncTransform* transform, pv::ClockTurn& turn);
  // Gives the caller what is to be released once the mutex is free.
  [[nodiscard]] br::Ref<PVClock> invalidate();

  bool mustAsk(const PVTime& now) const;
  PVStatus ask(const PVTime& now, pv::ClockAnchor* anchor);
  double askRate();
  PVTime extrapolate(const PVTime& now) const;

  pv::ReentrantMutex mutex;
  // The clock's kind; null once it is invalidated. Written with the mutex held, read without.
  std::atomic<const KivDerivedClockCallbacks*> callbacks;
  br::Ref<PVClock> reference;
  std::atomic<bool> isValid{true};
  bool isInvalidating = false;
  PVFourCharCode classTag = pv::kDerivedClockClass;
  const PVTime minimumInterval;
  const bool alwaysAsks;
  const bool referenceMayDrift;

  bool isAsking = false;  // the mutex's owner is inside getAnchorTime, or getRate right behind it
  bool lastAnswerWasGood = true;
  pv::ClockAnchor lastGood;
  double lastGoodRate = 1.0;
  // The reference times for which the last answer holds: from the first on, to the second without it.
  PVTime intervalStart = kPVTimeInvalid;
  PVTime intervalEnd = kPVTimeInvalid;
  std::atomic<int32_t> discontinuities{0};
  int32_t discontinuitiesSeen = 0;
};

namespace pv {

// The time for which a function holds a clock's mutex, and the clock itself once callbacks may drop the
// caller's reference.
class ClockTurn {
 public:
  explicit ClockTurn(PVClockRef clock) : clock_(clock) { clock_->mutex.lock(); }
  ~ClockTurn() {
    clock_->mutex.unlock();
    if (keeps_) BRRelease(clock_);
  }
  ClockTurn(const ClockTurn&) = delete;
  ClockTurn& operator=(const ClockTurn&) = delete;

  void keepClock() {
    if (!keeps_) BRRetain(clock_);
    keeps_ = true;
  }

 private:
  PVClockRef clock_;
  bool keeps_ = false;
};

// Where the host time clock is, made or not: to tell it from others takes no look at either.
extern char hostTimeClockStorage[] __attribute__((visibility("hidden")));
inline bool isHostTimeClock(PVClockRef clock) {
  return reinterpret_cast<char*>(clock) == hostTimeClockStorage;
}
// Inline, since it is most of what programs read.
inline PVTime hostTimeNow() {
  return {static_cast<int64_t>(br::hostUptimeNs()), kNsPerSecond, kPVTimeFlags_Valid, 0};
}

}  // namespace pv

#endif
