#include "formats/mpeg4_audio.hpp"

#include <array>

#include "runtime/bit_reader.hpp"

namespace pv::sound {

namespace {

enum DescriptorTag : uint8_t { kESTag = 3, kDecoderConfigTag = 4, kDecoderSpecificTag = 5, kSLConfigTag = 6 };

// A descriptor of that tag among those that follow each other; failed when there is none.
ByteReader findDescriptor(ByteReader& reader, uint8_t wanted) {
  while (reader.remaining()) {
    const uint8_t tag = reader.u8();
    uint32_t length = 0;
    // up to four bytes of seven bits
    for (int i = 0; i < 4; ++i) {
      const uint8_t part = reader.u8();
      length = length << 7 | (part & 0x7F);
      if (!(part & 0x80)) break;
    }
    ByteReader content = reader.sub(length);
    if (!content.ok() || tag == wanted) return content;
  }
  reader.fail();
  return reader;
}

constexpr std::array<uint32_t, 13> kSampleRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                   22050, 16000, 12000, 11025, 8000,  7350};
// By channelConfiguration; 0: not told there.
constexpr std::array<uint8_t, 15> kChannels = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 0, 8};

enum AudioObjectType : uint32_t {
  kMain = 1,
  kLC = 2,
  kSSR = 3,
  kLTP = 4,
  kSBR = 5,
  kER_AAC_LD = 23,
  kPS = 29,
  kEscape = 31,
  kER_AAC_ELD = 39,
};

uint32_t readObjectType(BitReader& reader) {
  const uint32_t type = reader.bits(5);
  return type == kEscape ? 32 + reader.bits(6) : type;
}

// 0 for an index that stands for nothing.
uint32_t readSampleRate(BitReader& reader) {
  const uint32_t index = reader.bits(4);
  if (index == 15) return reader.bits(24);
  return index < kSampleRates.size() ? kSampleRates[index] : 0;
}

}  // namespace

bool readElementary(ByteReader reader, Elementary* out) {
  ByteReader es = findDescriptor(reader, kESTag);
  es.skip(2);  // ES_ID
  const uint8_t flags = es.u8();
  if (flags & 0x80) es.skip(2);        // dependsOn_ES_ID
  if (flags & 0x40) es.skip(es.u8());  // URL
  if (flags & 0x20) es.skip(2);        // OCR_ES_ID
  ByteReader decoder = findDescriptor(es, kDecoderConfigTag);
  out->objectType = decoder.u8();
  decoder.skip(12);  // stream type, buffer size, bit rates
  if (!decoder.ok()) return false;
  if (!decoder.remaining()) return true;
  ByteReader specific = findDescriptor(decoder, kDecoderSpecificTag);
  out->configurationLength = specific.remaining();
  out->configuration = specific.take(out->configurationLength);
  return true;
}

void writeElementary(ByteWriter& writer, uint8_t objectType) {
  constexpr uint8_t kAudioStream = 5 << 2 | 1, kPredefinedForFiles = 2;
  writer.u8(kESTag).u8(3 + 2 + 13 + 3).u16(0).u8(0);
  writer.u8(kDecoderConfigTag).u8(13).u8(objectType).u8(kAudioStream).zeros(11);
  writer.u8(kSLConfigTag).u8(1).u8(kPredefinedForFiles);
}

bool readAACConfiguration(const uint8_t* bytes, size_t length, AudioStreamBasicDescription* format) {
  BitReader reader(bytes, length);
  uint32_t objectType = readObjectType(reader);
  uint32_t rate = readSampleRate(reader);
  uint32_t channels = reader.bits(4);
  channels = channels < kChannels.size() ? kChannels[channels] : 0;
  const uint32_t layer = objectType;
  if (layer == kSBR || layer == kPS) {
    rate = readSampleRate(reader);
    objectType = readObjectType(reader);
    if (layer == kPS && channels == 1) channels = 2;
  }
  const bool shortFrames = reader.flag();
  if (!reader.ok() || rate == 0) return false;

  uint32_t frames = shortFrames ? 960 : 1024;
  AudioFormatID id = kAudioFormatMPEG4AAC;
  if (objectType == kER_AAC_LD || objectType == kER_AAC_ELD) {
    id = objectType == kER_AAC_LD ? kAudioFormatMPEG4AAC_LD : kAudioFormatMPEG4AAC_ELD;
    frames = shortFrames ? 480 : 512;
  } else if (layer == kSBR || layer == kPS) {
    id = layer == kSBR ? kAudioFormatMPEG4AAC_HE : kAudioFormatMPEG4AAC_HE_V2;
    frames *= 2;
  }
  format->formatID = id;
  format->sampleRate = rate;
  format->framesPerPacket = frames;
  if (channels) format->channelsPerFrame = channels;
  return true;
}

}  // namespace pv::sound
