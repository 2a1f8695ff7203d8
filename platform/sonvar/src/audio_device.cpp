// The table of devices, and those who listen.
//
// Two locks, the listeners' taken with no other held: a listener may thus ask for anything but to be removed.
#include <sonvar/audio_device.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "src/stream.hpp"

namespace {

struct Device {
  std::string uid;
  int starts = 0;
  sonvar::Stream stream;
};

struct Listening {
  SonvarListener listener;
  void* context;
  bool operator==(const Listening&) const = default;
};

std::mutex devicesLock;
std::mutex listenersLock;

// Never freed: other threads may still be at work while the process ends.
std::vector<std::unique_ptr<Device>>& devices() {
  static auto* all = new std::vector<std::unique_ptr<Device>>;
  return *all;
}
std::vector<Listening>& listeners() {
  static auto* all = new std::vector<Listening>;
  return *all;
}

// With the devices' lock held. A device's number is its place in the table, counted from 1.
Device* find(SonvarDeviceID device) {
  return device != kSonvarDevice_None && device <= devices().size() ? devices()[device - 1].get() : nullptr;
}

// Whether there is such a PCM, even one that is in use.
SonvarStatus probe(const char* uid) {
  snd_pcm_t* pcm;
  const int error = snd_pcm_open(&pcm, uid, SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
  if (error < 0) return sonvar::statusOfError(error) == kSonvarErr_DeviceBusy ? 0 : kSonvarErr_NoSuchDevice;
  snd_pcm_close(pcm);
  return 0;
}

void announce(SonvarEvent event, SonvarDeviceID device) {
  const std::lock_guard lock(listenersLock);
  for (const Listening& each : listeners()) each.listener(each.context, event, device);
}

}  // namespace

SonvarStatus SonvarGetDefaultOutputDevice(SonvarDeviceID* deviceOut) {
  if (!deviceOut) return kSonvarErr_Parameter;
  int card = -1;  // without a card ALSA would fill standard error with what it tried
  if (snd_card_next(&card) < 0 || card < 0) return kSonvarErr_NoSuchDevice;
  return SonvarGetDeviceWithUID("default", deviceOut);
}

SonvarStatus SonvarGetDeviceWithUID(const char* uid, SonvarDeviceID* deviceOut) {
  if (!uid || !deviceOut) return kSonvarErr_Parameter;
  const std::lock_guard lock(devicesLock);
  auto& all = devices();
  const auto known =
      std::find_if(all.begin(), all.end(), [uid](const auto& device) { return device->uid == uid; });
  if (known == all.end()) {
    if (SonvarStatus status = probe(uid)) return status;
    all.push_back(std::make_unique<Device>());
    all.back()->uid = uid;
    *deviceOut = static_cast<SonvarDeviceID>(all.size());
  } else {
    *deviceOut = static_cast<SonvarDeviceID>(known - all.begin()) + 1;
  }
  return 0;
}

SonvarStatus SonvarDeviceGetUID(SonvarDeviceID device, char* buffer, size_t bufferBytes) {
  const std::lock_guard lock(devicesLock);
  const Device* found = find(device);
  if (!found) return kSonvarErr_NoSuchDevice;
  if (!buffer || bufferBytes <= found->uid.size()) return kSonvarErr_Parameter;
  std::memcpy(buffer, found->uid.c_str(), found->uid.size() + 1);
  return 0;
}

SonvarStatus SonvarDeviceStart(SonvarDeviceID device) {
  const std::lock_guard lock(devicesLock);
  Device* found = find(device);
  if (!found) return kSonvarErr_NoSuchDevice;
  if (!found->stream.isOpen())
    if (SonvarStatus status = found->stream.open(found->uid.c_str())) return status;
  ++found->starts;
  return 0;
}

SonvarStatus SonvarDeviceStop(SonvarDeviceID device) {
  const std::lock_guard lock(devicesLock);
  Device* found = find(device);
  if (!found) return kSonvarErr_NoSuchDevice;
  if (found->starts == 0) return kSonvarErr_NotStarted;
  if (--found->starts == 0) found->stream.close();
  return 0;
}

SonvarStatus SonvarDeviceGetTimeStamp(SonvarDeviceID device, SonvarTimeStamp* stampOut) {
  if (!stampOut) return kSonvarErr_Parameter;
  {
    const std::lock_guard lock(devicesLock);
    Device* found = find(device);
    if (!found) return kSonvarErr_NoSuchDevice;
    if (found->starts == 0) return kSonvarErr_NotStarted;
    if (!found->stream.isOpen()) return kSonvarErr_DeviceDied;
    const SonvarStatus status = found->stream.read(stampOut);
    if (status != kSonvarErr_DeviceDied) return status;
    found->stream.close();
  }
  announce(kSonvarEvent_DeviceDied, device);
  return kSonvarErr_DeviceDied;
}

SonvarStatus SonvarAddListener(SonvarListener listener, void* context) {
  if (!listener) return kSonvarErr_Parameter;
  const std::lock_guard lock(listenersLock);
  listeners().push_back({listener, context});
  return 0;
}

SonvarStatus SonvarRemoveListener(SonvarListener listener, void* context) {
  const std::lock_guard lock(listenersLock);
  std::erase(listeners(), Listening{listener, context});
  return 0;
}
