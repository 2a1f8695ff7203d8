// Sonvar, the audio hardware service: loaded when it is first needed, once for the process, and never given
// up.
#ifndef PEVRIN_CLOCKS_SONVAR_LOADER_HPP
#define PEVRIN_CLOCKS_SONVAR_LOADER_HPP

#include <sonvar/audio_device.h>

namespace pv {

// Its functions, all of them.
struct Sonvar {
  decltype(SonvarGetDefaultOutputDevice)* getDefaultOutputDevice;
  decltype(SonvarGetDeviceWithUID)* getDeviceWithUID;
  decltype(SonvarDeviceGetUID)* getUID;
  decltype(SonvarDeviceStart)* start;
  decltype(SonvarDeviceStop)* stop;
  decltype(SonvarDeviceGetTimeStamp)* getTimeStamp;
  decltype(SonvarAddListener)* addListener;
  decltype(SonvarRemoveListener)* removeListener;
};

// Null when there is no service, or one that lacks a function.
const Sonvar* sonvar();

}  // namespace pv

#endif
