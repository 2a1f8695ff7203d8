// What an AAC cookie says (ISO/IEC 14496-3 1.6.2.1, AudioSpecificConfig).
#ifndef TONVIK_AAC_CONFIGURATION_HPP
#define TONVIK_AAC_CONFIGURATION_HPP

#include <tonvik/audio_types.h>

#include <optional>

namespace tonvik {

// A layer may be there without a word in the configuration.
enum class Layer : uint8_t { kUnsaid, kAbsent, kPresent };

struct AACConfiguration {
  bool isLayered = false;  // an object type that can be the core; only then do the fields below hold
  Layer bandReplication = Layer::kUnsaid;
  Layer parametricStereo = Layer::kUnsaid;
  uint32_t sampleRate = 0;           // of the core
  uint32_t extensionSampleRate = 0;  // with bandReplication, where it is said to be present
  uint32_t framesPerPacket = 0;      // of the core
  uint32_t channels = 0;             // of the core
  AudioChannelLayoutTag tag = kAudioChannelLayoutTag_Unknown;
};

// Reads a bare configuration, an ES_Descriptor, or the payload of an 'esds' atom. Nothing when it cannot be
// read.
std::optional<AACConfiguration> readAACConfiguration(const void* cookie, size_t sizeBytes);

}  // namespace tonvik

#endif
