// Tonvik, the audio format service, by functions that can always be called: the service is loaded when one is
// first needed, once for the process, and never given up. Without it they return
// kPVAudioFormatDescriptionError_ServiceUnavailable, which they do not signal.
#ifndef PEVRIN_FORMATS_TONVIK_LOADER_HPP
#define PEVRIN_FORMATS_TONVIK_LOADER_HPP

#include <tonvik/audio_converter.h>

// Under the signatures of the service's own functions. As a service may lack one of the names, 0 does not
// promise that an output was written: set it before the call.
AudioStatus Tonvik_AudioFormatGetProperty(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                          const void* specifier, uint32_t* ioSize, void* valueOut);
AudioStatus Tonvik_AudioFormatGetPropertyInfo(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                              const void* specifier, uint32_t* sizeOut);
AudioStatus Tonvik_AudioConverterNew(const AudioStreamBasicDescription* source,
                                     const AudioStreamBasicDescription* destination,
                                     AudioConverterRef* converterOut);
AudioStatus Tonvik_AudioConverterDispose(AudioConverterRef converter);
AudioStatus Tonvik_AudioConverterGetProperty(AudioConverterRef converter, AudioConverterPropertyID propertyID,
                                             uint32_t* ioSize, void* valueOut);
AudioStatus Tonvik_AudioConverterSetProperty(AudioConverterRef converter, AudioConverterPropertyID propertyID,
                                             uint32_t size, const void* value);
AudioStatus Tonvik_AudioDeviceGetProperty(uint32_t device, uint32_t channel, bool isInput,
                                          uint32_t propertyID, uint32_t* ioSize, void* valueOut);

#endif
