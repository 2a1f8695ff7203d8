// A sound record taken apart, and put together.
#ifndef PEVRIN_FORMATS_SOUND_RECORD_HPP
#define PEVRIN_FORMATS_SOUND_RECORD_HPP

#include "formats/channel_layout.hpp"
#include "formats/sample_description.hpp"
#include "formats/sound_codecs.hpp"

namespace pv::sound {

// What a record says. Pointers go into the record.
struct SoundRecord {
  AudioStreamBasicDescription format{};
  Cookie cookie;
  LayoutBuffer layout;
  bool hasLayout = false;
  uint16_t version = 0;

  SoundRecord() = default;
  SoundRecord(const SoundRecord&) = delete;
  SoundRecord& operator=(const SoundRecord&) = delete;
};

// Reads a record, size as it says itself. The atoms that are not told by what is in out go to kept. A status
// is signalled.
PVStatus readSound(const uint8_t* bytes, size_t size, record::Flavor flavor, SoundRecord* out,
                   record::AtomCollector* kept);

// --- Linear PCM

// The data formats of uncompressed sound in movies and ISO files.
bool isPCM(PVFourCharCode dataFormat);

// Linear PCM of a data format: its samples' bits (0 when the record says), whether they are floats, signed,
// big-endian unless an atom says otherwise.
bool setPCM(PVFourCharCode dataFormat, uint32_t sampleBits, bool littleEndian,
            AudioStreamBasicDescription* format);

// How a record says linear PCM.
struct PCMForm {
  PVFourCharCode dataFormat;  // 0 when it cannot
  bool littleEndian;          // for formats whose name does not tell
};
PCMForm formOfPCM(const AudioStreamBasicDescription& format, record::Flavor flavor, uint16_t version);

}  // namespace pv::sound

#endif
