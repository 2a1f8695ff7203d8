// Channel layouts as files have them: 'chan' of movies, 'chnl' of ISO files (ISO/IEC 14496-12 12.2.4).
#ifndef PEVRIN_FORMATS_CHANNEL_LAYOUT_HPP
#define PEVRIN_FORMATS_CHANNEL_LAYOUT_HPP

#include <tonvik/audio_types.h>

#include "runtime/byte_reader.hpp"
#include "runtime/byte_writer.hpp"

namespace pv::sound {

// A layout with room for the descriptions that a file may have.
struct LayoutBuffer {
  static constexpr uint32_t kMostChannels = 255;
  uint32_t words[3 + 5 * kMostChannels];

  AudioChannelLayout* layout() { return reinterpret_cast<AudioChannelLayout*>(words); }
  // In bytes.
  size_t size() const { return sizeof(AudioChannelLayout) + words[2] * sizeof(AudioChannelDescription); }
};

// Each reads the atom's payload. False when it is malformed, or says what a layout cannot.
bool readChan(ByteReader reader, LayoutBuffer* out);
bool readChnl(ByteReader reader, uint32_t channels, LayoutBuffer* out);

// The payload. layout has size bytes.
void writeChan(ByteWriter& writer, const AudioChannelLayout* layout, size_t size);
// Whether 'chnl' can say it.
bool canWriteChnl(const AudioChannelLayout* layout, size_t size);
void writeChnl(ByteWriter& writer, const AudioChannelLayout* layout, size_t size);

}  // namespace pv::sound

#endif
