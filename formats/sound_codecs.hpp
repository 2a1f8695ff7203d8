// Compressed formats: how records name them, and what their configuration says.
#ifndef PEVRIN_FORMATS_SOUND_CODECS_HPP
#define PEVRIN_FORMATS_SOUND_CODECS_HPP

#include <pevrin/base.h>
#include <tonvik/audio_types.h>

#include "runtime/byte_reader.hpp"
#include "runtime/byte_writer.hpp"

namespace pv::sound {

// A magic cookie: bytes of the record, or converted ones in a buffer of its own.
struct Cookie {
  static constexpr size_t kMostConverted = 19 + 2 + 255;  // an OpusHead
  const uint8_t* bytes = nullptr;
  size_t length = 0;
  uint8_t converted[kMostConverted];
};

struct Codec {
  PVFourCharCode dataFormat;
  AudioFormatID formatID;
  PVFourCharCode atom;  // of its configuration; 0 for none
  // Takes the cookie from the atom's payload and sets what it says in the format, as far as it can be read.
  // False when the payload says more than the cookie can.
  bool (*read)(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format);
  // Writes the payload for a cookie.
  void (*write)(ByteWriter& writer, const uint8_t* cookie, size_t length);
  uint32_t framesPerPacket;           // the usual number; 0 when there is none
  uint32_t bytesPerPacketAndChannel;  // of formats whose packets are all alike, else 0
};

// Null for a format that is not known.
const Codec* codecOfDataFormat(PVFourCharCode dataFormat);
const Codec* codecOfFormat(AudioFormatID formatID);

// Always of one channel.
bool isAMR(AudioFormatID formatID);

// 'aac ' and its layers, which cannot do without a cookie.
bool isAAC(AudioFormatID formatID);

}  // namespace pv::sound

#endif
