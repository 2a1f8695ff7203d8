// Finding Tonvik and its functions.
//
// Each pointer is written once, by the loader, and may be read at any time: a function that was found is
// called even when a later one was not.
#include "formats/tonvik_loader.hpp"

#include <dlfcn.h>
#include <pevrin/audio_format_description.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

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

void* openLibrary() {
  const char* path = secure_getenv("PEVRIN_TONVIK_PATH");
  if (path && *path == '\0') return nullptr;  // to dlopen that would be the program itself
  return dlopen(path ? path : "libtonvik.so.0", RTLD_NOW | RTLD_LOCAL);
}

template <class Signature>
bool find(void* library, const char* name, Pointer<Signature>& pointer) {
  void* symbol = dlsym(library, name);
  if (!symbol) {
    std::fprintf(stderr, "Failed to get Tonvik symbol (p%s)!\n", name);
    return false;
  }
  pointer.store(reinterpret_cast<Signature*>(symbol), std::memory_order_release);
  return true;
}

bool load() {
  void* library = openLibrary();
  if (!library) {
    std::fputs("Failed to get Tonvik bundle!\n", stderr);
    return false;
  }
  return find(library, "AudioConverterGetProperty", pAudioConverterGetProperty) &&
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
