// Creation and end of timebases, and their chains.
#include "clocks/timebase.hpp"

#include <bedra/string.h>

#include <cmath>

#include "clocks/clock.hpp"
#include "clocks/sync_timebase.hpp"
#include "clocks/sync_transform.hpp"
#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using pv::signalError;
using pv::TimebaseRef;

constinit std::mutex pv::topologyLock;

PVTimebase::~PVTimebase() {
  pv::disconnect(link);
  pv::DroppedTimers dropped;
  runLoopTimers.removeAll(BRGetAllocator(this), &dropped);
  timerSources.removeAll(BRGetAllocator(this), &dropped);
}

BRStringRef PVTimebase::copyDebugDescription() const {
  const auto self = const_cast<PVTimebaseRef>(this);
  const auto retainCount = static_cast<int>(BRGetRetainCount(this));
  const TimebaseRef shown = pv::copyTarget(self);
  const auto clock = pv::ClockRef::adopt(PVTimebaseCopyMasterClock(shown.get()));
  const auto master = TimebaseRef::adopt(PVTimebaseCopyMasterTimebase(shown.get()));
  PVTime time = kPVTimeInvalid;
  double rate = 0.0;
  PVTimebaseGetTimeAndRate(shown.get(), &time, &rate);
  const auto timeText = br::Ref<const BRString>::adopt(PVTimeCopyDescription(nullptr, time));
  return BRStringCreateWithFormat(
      nullptr,
      "KivTimebase: %p targetTimebase: %p retainCount: %d allocator: %p master %s: %p rate: %f time: %@ = %f "
      "seconds\n",
      static_cast<const void*>(this), static_cast<const void*>(isReadOnly ? shown.get() : nullptr),
      retainCount, static_cast<const void*>(BRGetAllocator(this)), clock ? "clock" : "timebase",
      clock ? static_cast<const void*>(clock.get()) : master.get(), rate, timeText.get(),
      PVTimeGetSeconds(time));
}

// ---- Chains

bool pv::leadsTo(const PVTimebase* from, const PVTimebase* to) {
  for (const PVTimebase* node = from; node;
       node = node->isReadOnly ? node->target.get() : node->masterTimebase.get())
    if (node == to) return true;
  return false;
}

TimebaseRef pv::copyTarget(PVTimebaseRef timebase) {
  TimebaseRef node = TimebaseRef::retain(timebase);
  while (node && node->isReadOnly) {
    TimebaseRef next;
    {
      std::lock_guard guard(node->mutex);
      next = node->target;
    }
    node = std::move(next);
  }
  return node;
}

// Only the cached pair of the master is read: it follows its own master by itself.
void PVTimebase::findUltimateMasterClock(pv::ClockRef* oldClock) {
  *oldClock = std::move(ultimateMasterClock);
  if (masterClock) {
    ultimateMasterClock = masterClock;
    height = 1;
  } else {
    int64_t masterHeight = 0;
    ultimateMasterClock =
        pv::ClockRef::adopt(KivTimebaseCopyUltimateMasterClockAndHeight(masterTimebase.get(), &masterHeight));
    height = masterHeight + 1;
  }
}

pv::TimebaseChange::~TimebaseChange() {
  PVTimebase& t = timebase_;
  const PVSyncTransform& transform = t.transform;
  const bool isOnHost = isHostTimeClock(t.masterClock.get());
  t.isInverseValid =
      transform.rate != 0.0 && KivSyncInvertTransform(&transform, &t.inverse) == kPVStatus_Success;
  t.leadsStraightToHost =
      isOnHost && t.isInverseValid && !std::isnan(transform.rate) &&
      KivSyncCombineTransforms(&kIdentityTransform, &t.inverse, &t.straightToHost) == kPVStatus_Success;
  if (t.leadsStraightToHost) t.straightToHostLine = NsLine::make(t.straightToHost);
  auto kind = isOnHost ? ReadingKind::kByHostTime : ReadingKind::kByMaster;
  if (t.isReadOnly)
    kind = ReadingKind::kByTarget;
  else if (transform.rate == 0.0)
    kind = ReadingKind::kStanding;
  t.shared.end({kind, NsLine::make(transform), transform});
}

// ---- Creation

namespace {

PVTimebaseRef asTimebase(BRTypeRef object) { return static_cast<PVTimebaseRef>(const_cast<void*>(object)); }

BRTypeID registerOnce() {
  static pv::SyncTimebases operations = {
      br::typeID<PVTimebase>(),
      [](BRTypeRef timebase) { return PVTimebaseGetTime(asTimebase(timebase)); },
      [](BRTypeRef timebase, int64_t* heightOut) {
        return KivTimebaseCopyUltimateMasterClockAndHeight(asTimebase(timebase), heightOut);
      },
      [](BRTypeRef timebase) { return PVTimebaseCopyMaster(asTimebase(timebase)); },
      [](BRTypeRef timebase, KivSyncDirection direction, PVSyncTransform* transformOut) {
        return KivTimebaseGetTransformRelativeToUltimateMasterClock(asTimebase(timebase), direction,
                                                                    transformOut);
      },
      [](BRTypeRef timebase, int64_t height, KivSyncDirection direction, PVSyncTransform* transformOut) {
        return KivTimebaseGetTransformRelativeToMasterAtHeight(asTimebase(timebase), height, direction,
                                                               transformOut);
      },
  };
  static const bool isHandedIn = (pv::setSyncTimebases(&operations), true);
  (void)isHandedIn;
  return operations.typeID;
}

constexpr PVSyncTransform kStandingAtZero = {
    {0, 1, kPVTimeFlags_Valid, 0}, 0.0, {0, 1, kPVTimeFlags_Valid, 0}};

}  // namespace

TimebaseRef pv::createTimebase(BRAllocatorRef allocator) {
  registerOnce();
  return TimebaseRef::adopt(br::create<PVTimebase>(allocator, 0));
}

TimebaseRef pv::createView(BRAllocatorRef allocator, const PVTimebase::WriteAttempt& attempt) {
  registerOnce();
  return TimebaseRef::adopt(br::create<PVTimebase>(allocator, 0, attempt));
}

namespace {

TimebaseRef createOnMaster(BRAllocatorRef allocator, PVClockRef clock, PVTimebaseRef master) {
  TimebaseRef timebase = pv::createTimebase(allocator);
  if (!timebase) return nullptr;
  pv::TimebaseChange change(*timebase);
  timebase->masterClock = pv::ClockRef::retain(clock);
  timebase->masterTimebase = TimebaseRef::retain(master);
  timebase->transform = kStandingAtZero;
  return timebase;
}

}  // namespace

PVStatus PVTimebaseCreateWithMasterClock(BRAllocatorRef allocator, PVClockRef masterClock,
                                         PVTimebaseRef* timebaseOut) {
  if (timebaseOut) *timebaseOut = nullptr;
  if (!masterClock || !timebaseOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  TimebaseRef timebase = createOnMaster(allocator, masterClock, nullptr);
  if (!timebase) return signalError(kPVTimebaseError_AllocationFailed);
  pv::ClockRef none;
  timebase->findUltimateMasterClock(&none);
  *timebaseOut = timebase.detach();
  return kPVStatus_Success;
}
PV_TWIN(KivTimebaseCreateWithMasterClock, PVTimebaseCreateWithMasterClock)

PVStatus PVTimebaseCreateWithMasterTimebase(BRAllocatorRef allocator, PVTimebaseRef masterTimebase,
                                            PVTimebaseRef* timebaseOut) {
  if (timebaseOut) *timebaseOut = nullptr;
  if (!masterTimebase || !timebaseOut) return signalError(kPVTimebaseError_RequiredParameterMissing);
  TimebaseRef timebase = createOnMaster(allocator, nullptr, masterTimebase);
  if (!timebase) return signalError(kPVTimebaseError_AllocationFailed);
  pv::ClockRef none;
  {
    // The link first: a change of the master that it does not hear has been made before the master is read.
    std::lock_guard guard(timebase->mutex);
    if (PVStatus status = pv::connect(timebase.get(), masterTimebase, &timebase->link)) return status;
    timebase->findUltimateMasterClock(&none);
  }
  *timebaseOut = timebase.detach();
  return kPVStatus_Success;
}
PV_TWIN(KivTimebaseCreateWithMasterTimebase, PVTimebaseCreateWithMasterTimebase)

BRTypeID PVTimebaseGetTypeID(void) { return registerOnce(); }
PV_TWIN(KivTimebaseGetTypeID, PVTimebaseGetTypeID)

PVTimebaseRef KivTimebaseRetain(PVTimebaseRef timebase) {
  BRRetain(timebase);
  return timebase;
}

void KivTimebaseRelease(PVTimebaseRef timebase) { BRRelease(timebase); }
