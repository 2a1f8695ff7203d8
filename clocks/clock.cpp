// What every clock answers, whatever its source.
#include "clocks/clock.hpp"

#include <bedra/string.h>

#include <cstdio>
#include <mutex>
#include <utility>

#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using pv::ClockAnchor;
using pv::ClockTurn;
using pv::signalError;

namespace {

PVStatus missing() { return signalError(kPVClockError_RequiredParameterMissing); }

[[gnu::noinline]] PVTime timeOfDerivedClock(PVClockRef clock) {
  PVTime time;
  return PVClockGetAnchorTime(clock, &time, nullptr) == kPVStatus_Success ? time : kPVTimeInvalid;
}

}  // namespace

BRTypeID PVClockGetTypeID(void) { return br::typeID<PVClock>(); }

// ---- Reading

PVTime PVClockGetTime(PVClockRef clock) {
  if (pv::isHostTimeClock(clock)) [[likely]]
    return pv::hostTimeNow();
  return timeOfDerivedClock(clock);
}

PVStatus PVClockGetAnchorTime(PVClockRef clock, PVTime* clockTimeOut, PVTime* referenceTimeOut) {
  if (!clock) return missing();
  ClockAnchor anchor;
  if (pv::isHostTimeClock(clock)) {
    anchor.clockTime = anchor.referenceTime = pv::hostTimeNow();
  } else {
    ClockTurn turn(clock);
    if (PVStatus status = clock->readAnchor(&anchor, turn)) return status;
  }
  if (clockTimeOut) *clockTimeOut = anchor.clockTime;
  if (referenceTimeOut) *referenceTimeOut = anchor.referenceTime;
  return kPVStatus_Success;
}

bool PVClockMightDrift(PVClockRef clock, PVClockRef otherClock) {
  if (!clock || !otherClock) {
    missing();
    return true;
  }
  if (clock == otherClock) return false;
  const KivDerivedClockCallbacks* kind = clock->callbacks.load(std::memory_order_acquire);
  if (!kind || kind != otherClock->callbacks.load(std::memory_order_acquire) || !kind->mightDrift)
    return true;
  return kind->mightDrift(clock, otherClock);
}

// ---- The end of a clock

// Marked first, so that the callback may invalidate the clock, too; until it returns the clock still has a
// time.
br::Ref<PVClock> PVClock::invalidate() {
  if (!isValid.load(std::memory_order_relaxed) || isInvalidating) return nullptr;
  isInvalidating = true;
  const KivDerivedClockCallbacks* kind = callbacks.load(std::memory_order_relaxed);
  if (kind->finalize) kind->finalize(this);
  isValid.store(false);
  callbacks.store(nullptr, std::memory_order_release);
  return std::move(reference);
}

void PVClockInvalidate(PVClockRef clock) {
  if (!clock) {
    missing();
    return;
  }
  br::Ref<PVClock> reference;  // released last, with no mutex held
  ClockTurn turn(clock);
  turn.keepClock();
  reference = clock->invalidate();
}

PVClock::~PVClock() {
  const std::lock_guard lock(mutex);
  const br::Ref<PVClock> released = invalidate();
}

PVClockRef KivClockRetain(PVClockRef clock) {
  BRRetain(clock);
  return clock;
}

void KivClockRelease(PVClockRef clock) { BRRelease(clock); }

// ---- Description

BRStringRef PVClock::copyDebugDescription() const {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  if (!text) return nullptr;
  auto* self = const_cast<PVClock*>(this);
  ClockTurn turn(self);
  turn.keepClock();
  BRStringAppendFormat(text.get(), "KivClock: %p retainCount: %d allocator: %p reference clock: %p%s%s",
                       static_cast<const void*>(this), static_cast<int>(BRGetRetainCount(this)),
                       static_cast<const void*>(BRGetAllocator(this)),
                       static_cast<const void*>(reference.get()), referenceMayDrift ? " (may drift)" : "",
                       isValid ? "" : " INVALIDATED");
  const KivDerivedClockCallbacks* kind = callbacks.load(std::memory_order_relaxed);
  if (kind && kind->copyDebugDesc)
    if (auto own = br::Ref<const BRString>::adopt(kind->copyDebugDesc(self)))
      BRStringAppendFormat(text.get(), " %@", own.get());
  return text.detach();
}

PV_TWIN(KivClockGetTypeID, PVClockGetTypeID)
PV_TWIN(KivClockInvalidate, PVClockInvalidate)
PV_TWIN(KivClockGetTime, PVClockGetTime)
PV_TWIN(KivClockGetAnchorTime, PVClockGetAnchorTime)
PV_TWIN(KivClockMightDrift, PVClockMightDrift)
