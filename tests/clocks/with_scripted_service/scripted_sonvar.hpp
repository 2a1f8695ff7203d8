// An audio hardware service that does what the test says. Its devices count frames by the host's time.
#ifndef TESTS_CLOCKS_SCRIPTED_SONVAR_HPP
#define TESTS_CLOCKS_SCRIPTED_SONVAR_HPP

#include <bedra/base.h>
#include <sonvar/audio_device.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace test {

struct ScriptedDevice {
  std::string uid;
  std::atomic<int> starts{0};
  std::atomic<int> questions{0};
  std::atomic<int64_t> jumpedFrames{0};
  std::atomic<SonvarStatus> startStatus{0};
  std::atomic<SonvarStatus> stampStatus{0};
};

struct ScriptedSonvar {
  // Makes a device, which stays.
  SonvarDeviceID add(const char* uid) {
    const auto device = static_cast<SonvarDeviceID>(devices.size() + 1);
    devices[device].uid = uid;
    return device;
  }
  ScriptedDevice& operator[](SonvarDeviceID device) { return devices.at(device); }
  void announce(SonvarEvent event, SonvarDeviceID device) {
    const std::lock_guard lock(listenersLock);
    for (const auto& [listener, context] : listeners) listener(context, event, device);
  }
  void setDefault(SonvarDeviceID device) {
    defaultDevice = device;
    announce(kSonvarEvent_DefaultOutputDeviceChanged, device);
  }

  std::map<SonvarDeviceID, ScriptedDevice> devices;
  std::atomic<SonvarDeviceID> defaultDevice{kSonvarDevice_None};
  std::mutex listenersLock;
  std::vector<std::pair<SonvarListener, void*>> listeners;
};

BR_EXPORT ScriptedSonvar& scriptedSonvar();

}  // namespace test

#endif
