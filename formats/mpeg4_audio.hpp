// What 'esds' holds: an ES_Descriptor (ISO/IEC 14496-1 7.2.6) with, for AAC, an AudioSpecificConfig (ISO/IEC
// 14496-3 1.6.2.1) inside.
#ifndef PEVRIN_FORMATS_MPEG4_AUDIO_HPP
#define PEVRIN_FORMATS_MPEG4_AUDIO_HPP

#include <tonvik/audio_types.h>

#include "runtime/byte_reader.hpp"
#include "runtime/byte_writer.hpp"

namespace pv::sound {

// objectTypeIndication (ISO/IEC 14496-1 7.2.6.6.2).
enum ObjectType : uint8_t {
  kObjectMPEG4Audio = 0x40,
  kObjectMPEG2AACMain = 0x66,
  kObjectMPEG2AACLC = 0x67,
  kObjectMPEG2AACSSR = 0x68,
  kObjectMPEG2Layer3 = 0x69,
  kObjectMPEG1Audio = 0x6B,
  kObjectAC3 = 0xA5,
  kObjectEnhancedAC3 = 0xA6,
};

struct Elementary {
  uint8_t objectType = 0;
  const uint8_t* configuration = nullptr;  // DecoderSpecificInfo
  size_t configurationLength = 0;
};

// False when the descriptors are malformed or have no decoder configuration.
bool readElementary(ByteReader reader, Elementary* out);

// An ES_Descriptor without bit rates or decoder configuration.
void writeElementary(ByteWriter& writer, uint8_t objectType);

// Sets format ID, sample rate, channels and frames per packet from an AudioSpecificConfig; a field that it
// does not tell stays. Layers that are signalled in front of the core's object type are part of the format;
// those behind it, which a simple decoder never sees, are not. False when it cannot be read.
bool readAACConfiguration(const uint8_t* bytes, size_t length, AudioStreamBasicDescription* format);

}  // namespace pv::sound

#endif
