// Finding Tonvik and its functions.
//
// Each pointer is written once, by the loader, and may be read at any time: a function that was found is
// called even when a later one was not.
#include "formats/tonvik_loader.hpp"

#include <pevrin/audio_format_description.h>

#include <atomic>

#include "runtime/service.hpp"

namespace {

template <class Signature>
using Pointer = std::atomic<Signature*>;

constinit Pointer<decltype(AudioConverterGetProperty)> pAudioConverterGetProperty;
constinit Pointer<decltype(AudioConverterSetProperty)> pAudioConverterSetProperty;
constinit Pointer<decltype(AudioFormatGetProperty)> pAudioFormatGetProperty;
constinit Pointer<decltype(AudioFormatGetPropertyInfo)> pAudioFormatGetPropertyInfo;
constinit Pointer<decltype(AudioConverterDispose)> pAudioConverterDispose;
constinit Pointer<decltype(AudioConverterNew)> pAudioConverterNew;
constinit Pointer<decltype(AudioDeviceGetProperty)> pAudioDeviceGetProperty;

template <class Signature>
bool find(const pv::ServiceLibrary& library, const char* name, Pointer<Signature>& pointer) {
  Signature* function;
  if (!library.find(name, &function)) return false;
  pointer.store(function, std::memory_order_release);
  return true;
}

bool load() {
  const pv::ServiceLibrary library("Tonvik", "PEVRIN_TONVIK_PATH", "libtonvik.so.0");
  return library.isOpen() && find(library, "AudioConverterGetProperty", pAudioConverterGetProperty) &&
         find(library, "AudioConverterSetProperty", pAudioConverterSetProperty) &&
         find(library, "AudioFormatGetProperty", pAudioFormatGetProperty) &&
         find(library, "AudioFormatGetPropertyInfo", pAudioFormatGetPropertyInfo) &&
         find(library, "AudioConverterDispose", pAudioConverterDispose) &&
         find(library, "AudioConverterNew", pAudioConverterNew) &&
         find(library, "AudioDeviceGetProperty", pAudioDeviceGetProperty);
}

bool isAvailable() {
  static const bool available = load();
  return available;
}

template <class Signature, class... Arguments>
AudioStatus call(const Pointer<Signature>& pointer, Arguments... arguments) {
  Signature* function = pointer.load(std::memory_order_acquire);
  if (!function) {
    if (!isAvailable()) return kPVAudioFormatDescriptionError_ServiceUnavailable;
    function = pointer.load(std::memory_order_acquire);
    if (!function) return 0;
  }
  return function(arguments...);
}

}  // namespace

AudioStatus Tonvik_AudioFormatGetProperty(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                          const void* specifier, uint32_t* ioSize, void* valueOut) {
  return call(pAudioFormatGetProperty, propertyID, specifierSize, specifier, ioSize, valueOut);
}

AudioStatus Tonvik_AudioFormatGetPropertyInfo(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                              const void* specifier, uint32_t* sizeOut) {
  return call(pAudioFormatGetPropertyInfo, propertyID, specifierSize, specifier, sizeOut);
}

AudioStatus Tonvik_AudioConverterNew(const AudioStreamBasicDescription* source,
                                     const AudioStreamBasicDescription* destination,
                                     AudioConverterRef* converterOut) {
  return call(pAudioConverterNew, source, destination, converterOut);
}

AudioStatus Tonvik_AudioConverterDispose(AudioConverterRef converter) {
  return call(pAudioConverterDispose, converter);
}

AudioStatus Tonvik_AudioConverterGetProperty(AudioConverterRef converter, AudioConverterPropertyID propertyID,
                                             uint32_t* ioSize, void* valueOut) {
  return call(pAudioConverterGetProperty, converter, propertyID, ioSize, valueOut);
}

AudioStatus Tonvik_AudioConverterSetProperty(AudioConverterRef converter, AudioConverterPropertyID propertyID,
                                             uint32_t size, const void* value) {
  return call(pAudioConverterSetProperty, converter, propertyID, size, value);
}

AudioStatus Tonvik_AudioDeviceGetProperty(uint32_t device, uint32_t channel, bool isInput,
                                          uint32_t propertyID, uint32_t* ioSize, void* valueOut) {
  return call(pAudioDeviceGetProperty, device, channel, isInput, propertyID, ioSize, valueOut);
}
