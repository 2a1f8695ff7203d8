#include "tests/clocks/with_scripted_service/scripted_sonvar.hpp"

#include <bedra/time.h>

#include <cstdio>

namespace test {

ScriptedSonvar& scriptedSonvar() {
  static ScriptedSonvar script;
  return script;
}

}  // namespace test

using test::scriptedSonvar;

namespace {

// Does something with a device that there is.
template <class Action>
SonvarStatus with(SonvarDeviceID device, Action action) {
  const auto found = scriptedSonvar().devices.find(device);
  return found == scriptedSonvar().devices.end() ? SonvarStatus{kSonvarErr_NoSuchDevice}
                                                 : action(found->second);
}

}  // namespace

SonvarStatus SonvarGetDefaultOutputDevice(SonvarDeviceID* deviceOut) {
  *deviceOut = scriptedSonvar().defaultDevice;
  return *deviceOut == kSonvarDevice_None ? SonvarStatus{kSonvarErr_NoSuchDevice} : 0;
}
SonvarStatus SonvarGetDeviceWithUID(const char* uid, SonvarDeviceID* deviceOut) {
  for (const auto& [device, script] : scriptedSonvar().devices)
    if (script.uid == uid) return *deviceOut = device, 0;
  return kSonvarErr_NoSuchDevice;
}
SonvarStatus SonvarDeviceGetUID(SonvarDeviceID device, char* buffer, size_t bufferBytes) {
  return with(device, [=](const test::ScriptedDevice& script) {
    std::snprintf(buffer, bufferBytes, "%s", script.uid.c_str());
    return SonvarStatus{0};
  });
}
SonvarStatus SonvarDeviceStart(SonvarDeviceID device) {
  return with(device, [](test::ScriptedDevice& script) {
    if (script.startStatus == 0) ++script.starts;
    return script.startStatus.load();
  });
}
SonvarStatus SonvarDeviceStop(SonvarDeviceID device) {
  return with(device, [](test::ScriptedDevice& script) {
    --script.starts;
    return SonvarStatus{0};
  });
}
SonvarStatus SonvarDeviceGetTimeStamp(SonvarDeviceID device, SonvarTimeStamp* stampOut) {
  return with(device, [=](test::ScriptedDevice& script) {
    ++script.questions;
    const uint64_t now = BRHostTimeGetUptimeNs();
    *stampOut = {static_cast<int64_t>(now / 1000 * 48 / 1000) + script.jumpedFrames, now, 48000, 1};
    return script.stampStatus.load();
  });
}
SonvarStatus SonvarAddListener(SonvarListener listener, void* context) {
  const std::lock_guard lock(scriptedSonvar().listenersLock);
  scriptedSonvar().listeners.emplace_back(listener, context);
  return 0;
}
SonvarStatus SonvarRemoveListener(SonvarListener listener, void* context) {
  const std::lock_guard lock(scriptedSonvar().listenersLock);
  std::erase(scriptedSonvar().listeners, std::pair(listener, context));
  return 0;
}
