// Audio device clocks: derived clocks whose source is a device of Sonvar's.
//
// All of a source's fields but the atomic ones are guarded by its clock's mutex. What listeners hear they
// only put down for the next reading: they may be called from inside the service, with the mutex held or not.
#include <pevrin/audio_device_clock.h>

#include <array>
#include <new>

#include "clocks/clock.hpp"
#include "clocks/device_timeline.hpp"
#include "clocks/sonvar_loader.hpp"
#include "runtime/error.hpp"

using pv::ClockTurn;
using pv::signalError;

namespace {

constexpr int32_t kQuestionsPerSecond = 20;

int64_t hostNs() { return static_cast<int64_t>(br::hostUptimeNs()); }

// The device that a caller names.
struct Wish {
  BRStringRef uid = nullptr;
  SonvarDeviceID device = kSonvarDevice_None;

  bool isDefault() const { return !uid && device == kSonvarDevice_None; }
  bool find(const pv::Sonvar& sonvar, SonvarDeviceID* found) const {
    if (uid) return sonvar.getDeviceWithUID(BRStringGetUTF8(uid), found) == 0;
    if (isDefault()) return sonvar.getDefaultOutputDevice(found) == 0;
    *found = device;
    return true;
  }
};

// What lies in the clock's derived storage.
struct Source {
  explicit Source(const pv::Sonvar& service) : sonvar(service), timeline(hostNs()) {}

  static Source& of(PVClockRef clock) {
    return *static_cast<Source*>(KivDerivedClockGetDerivedStorage(clock));
  }

  PVStatus follow(const Wish& wish);
  PVStatus change(SonvarDeviceID next);
  void lose();
  void react();
  void read(int64_t* nowNs);

  const pv::Sonvar& sonvar;
  pv::DeviceTimeline timeline;
  bool followsDefault = false;
  br::Ref<const BRString> uid;
  std::atomic<SonvarDeviceID> device{kSonvarDevice_None};
  std::atomic<SonvarDeviceID> died{kSonvarDevice_None};  // heard, and not yet reacted to
  std::atomic<bool> defaultChanged{false};
};

// Starts the new device before it lets go of the old one, so that nothing changes when it cannot.
PVStatus Source::change(SonvarDeviceID next) {
  std::array<char, 512> text;
  if (sonvar.getUID(next, text.data(), text.size()) != 0)
    return signalError(kPVAudioDeviceClockError_DeviceUnavailable);
  auto nextUID =
      br::Ref<const BRString>::adopt(BRStringCreateWithCString(nullptr, text.data(), kBRStringEncodingUTF8));
  if (!nextUID) return signalError(kPVClockError_AllocationFailed);
  if (sonvar.start(next) != 0) return signalError(kPVAudioDeviceClockError_DeviceUnavailable);
  lose();
  died = kSonvarDevice_None;  // an earlier life of the device is not meant
  device = next;
  uid = std::move(nextUID);
  return kPVStatus_Success;
}

PVStatus Source::follow(const Wish& wish) {
  SonvarDeviceID next;
  if (!wish.find(sonvar, &next)) return signalError(kPVAudioDeviceClockError_DeviceUnavailable);
  if (next != device)
    if (PVStatus status = change(next)) return status;
  followsDefault = wish.isDefault();
  return kPVStatus_Success;
}

void Source::lose() {
  const SonvarDeviceID old = device.exchange(kSonvarDevice_None);
  if (old != kSonvarDevice_None) sonvar.stop(old);
  uid = nullptr;
  timeline.runFree(hostNs());
}

// To what the listener has heard since.
void Source::react() {
  const SonvarDeviceID dead = died.exchange(kSonvarDevice_None);
  const bool hasDied = dead != kSonvarDevice_None && dead == device;
  const bool looksAgain = defaultChanged.exchange(false) || hasDied;
  if (hasDied) lose();
  SonvarDeviceID next;
  if (looksAgain && followsDefault && sonvar.getDefaultOutputDevice(&next) == 0 && next != device &&
      next != dead)
    change(next);
}

// Follows what the device says, and says when that was.
void Source::read(int64_t* nowNs) {
  SonvarTimeStamp stamp{};
  const SonvarDeviceID asked = device;
  const SonvarStatus status = asked != kSonvarDevice_None ? sonvar.getTimeStamp(asked, &stamp)
                                                          : SonvarStatus{kSonvarErr_NoSuchDevice};
  *nowNs = hostNs();
  if (status == 0) timeline.follow(stamp, *nowNs);
  if (status != kSonvarErr_DeviceDied) return;
  died = asked;
  react();
}

// ---- Callbacks

void hear(void* context, SonvarEvent event, SonvarDeviceID device) {
  auto* clock = static_cast<PVClockRef>(context);
  Source& source = Source::of(clock);
  if (event == kSonvarEvent_DefaultOutputDeviceChanged)
    source.defaultChanged = true;
  else if (event == kSonvarEvent_DeviceDied && device == source.device)
    source.died = device;
  else
    return;
  KivDerivedClockDiscontinuityOccurred(clock);
}

BRStringRef copyDebugDesc(PVClockRef clock) {
  const Source& source = Source::of(clock);
  return BRStringCreateWithFormat(nullptr, "AudioDeviceClock device: %s%s rate: %.9f",
                                  source.uid ? BRStringGetUTF8(source.uid.get()) : "none",
                                  source.followsDefault ? " (default)" : "", source.timeline.rate());
}

void finalize(PVClockRef clock) {
  Source& source = Source::of(clock);
  source.sonvar.removeListener(hear, clock);
  source.lose();
}

bool mightDrift(PVClockRef clock, PVClockRef otherClock) {
  const SonvarDeviceID device = Source::of(clock).device;
  return device == kSonvarDevice_None || device != Source::of(otherClock).device;
}

double getRate(PVClockRef clock) { return Source::of(clock).timeline.rate(); }

PVStatus getAnchorTime(PVClockRef clock, PVTime* clockTimeOut, PVTime* referenceTimeOut) {
  Source& source = Source::of(clock);
  source.react();
  int64_t nowNs;
  source.read(&nowNs);
  *clockTimeOut = PVTimeMake(source.timeline.timeAt(nowNs), pv::kNsPerSecond);
  *referenceTimeOut = PVTimeMake(nowNs, pv::kNsPerSecond);
  return kPVStatus_Success;
}

constexpr KivDerivedClockCallbacks kAudioDevice = {.version = 1,
                                                   .derivedStorageSizeBytes = sizeof(Source),
                                                   .reserved = 0,
                                                   .copyDebugDesc = copyDebugDesc,
                                                   .finalize = finalize,
                                                   .mightDrift = mightDrift,
                                                   .getRate = getRate,
                                                   .getAnchorTime = getAnchorTime};

// ---- Creation and change

PVStatus create(BRAllocatorRef allocator, const Wish& wish, PVClockRef* clockOut) {
  if (clockOut) *clockOut = nullptr;
  if (!clockOut) return signalError(kPVClockError_RequiredParameterMissing);
  const pv::Sonvar* sonvar = pv::sonvar();
  if (!sonvar) return signalError(kPVAudioDeviceClockError_ServiceUnavailable);
  br::Ref<PVClock> clock;
  if (PVStatus status =
          KivDerivedClockCreateWithGetTimeCallback(allocator, &kAudioDevice, PVClockGetHostTimeClock(), true,
                                                   clock.out(), PVTimeMake(1, kQuestionsPerSecond)))
    return status;
  auto* source = new (KivDerivedClockGetDerivedStorage(clock.get())) Source(*sonvar);
  if (sonvar->addListener(hear, clock.get()) != 0) return signalError(kPVClockError_AllocationFailed);
  if (PVStatus status = source->follow(wish)) return status;
  *clockOut = clock.detach();
  return kPVStatus_Success;
}

// Does something with the source of an audio device clock that is valid, once it has reacted to what was
// heard: a device that is given to a clock again after it has died is to be started again.
template <class Action>
PVStatus with(PVClockRef clock, Action action) {
  if (!clock) return signalError(kPVClockError_RequiredParameterMissing);
  ClockTurn turn(clock);
  if (!KivDerivedClockVerifyCallbacksMatch(clock, &kAudioDevice))
    return signalError(kPVClockError_InvalidClock);
  Source& source = Source::of(clock);
  source.react();
  return action(source);
}

PVStatus setDevice(PVClockRef clock, const Wish& wish) {
  return with(clock, [&](Source& source) {
    const PVStatus status = source.follow(wish);
    if (status == kPVStatus_Success) KivDerivedClockDiscontinuityOccurred(clock);
    return status;
  });
}

}  // namespace

PVStatus PVAudioDeviceClockCreate(BRAllocatorRef allocator, BRStringRef deviceUID, PVClockRef* clockOut) {
  return create(allocator, {.uid = deviceUID}, clockOut);
}

PVStatus PVAudioDeviceClockCreateFromAudioDeviceID(BRAllocatorRef allocator, PVAudioDeviceID deviceID,
                                                   PVClockRef* clockOut) {
  return create(allocator, {.device = deviceID}, clockOut);
}

PVStatus PVAudioClockCreate(BRAllocatorRef allocator, PVClockRef* clockOut) {
  return create(allocator, {}, clockOut);
}

PVStatus PVAudioDeviceClockSetAudioDeviceUID(PVClockRef clock, BRStringRef deviceUID) {
  return setDevice(clock, {.uid = deviceUID});
}

PVStatus PVAudioDeviceClockSetAudioDeviceID(PVClockRef clock, PVAudioDeviceID deviceID) {
  return setDevice(clock, {.device = deviceID});
}

PVStatus PVAudioDeviceClockGetAudioDevice(PVClockRef clock, BRStringRef* deviceUIDOut,
                                          PVAudioDeviceID* deviceIDOut, bool* followsDefaultOut) {
  return with(clock, [&](Source& source) {
    if (deviceUIDOut) *deviceUIDOut = source.uid.get();
    if (deviceIDOut) *deviceIDOut = source.device;
    if (followsDefaultOut) *followsDefaultOut = source.followsDefault;
    return PVStatus{kPVStatus_Success};
  });
}
