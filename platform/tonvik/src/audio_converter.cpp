// The functions of a service that converts nothing and knows no devices.
#include <tonvik/audio_converter.h>

AudioStatus AudioConverterNew(const AudioStreamBasicDescription*, const AudioStreamBasicDescription*,
                              AudioConverterRef* converterOut) {
  if (converterOut) *converterOut = nullptr;
  return kAudioConverterErr_FormatNotSupported;
}

AudioStatus AudioConverterDispose(AudioConverterRef) { return kAudioConverterErr_InvalidConverter; }

AudioStatus AudioConverterGetProperty(AudioConverterRef, AudioConverterPropertyID, uint32_t*, void*) {
  return kAudioConverterErr_InvalidConverter;
}

AudioStatus AudioConverterSetProperty(AudioConverterRef, AudioConverterPropertyID, uint32_t, const void*) {
  return kAudioConverterErr_InvalidConverter;
}

AudioStatus AudioDeviceGetProperty(uint32_t, uint32_t, bool, uint32_t, uint32_t*, void*) {
  return kAudioDeviceErr_BadDevice;
}
