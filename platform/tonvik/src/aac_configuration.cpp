// Reading AAC cookies.
//
// An AudioSpecificConfig opens with a 5-bit object type that is never 0, while the tags of descriptors and
// the version of an 'esds' atom are below 8: the first byte tells the forms apart.
#include "src/aac_configuration.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "src/bit_reader.hpp"

namespace tonvik {

namespace {

enum ObjectType : uint32_t {
  kMain = 1,
  kLTP = 4,
  kBandReplication = 5,
  kParametricStereo = 29,
  kEscape = 31
};
enum DescriptorTag : uint32_t { kESDescriptor = 3, kDecoderConfiguration = 4, kDecoderSpecificInfo = 5 };

constexpr uint32_t kBandReplicationSync = 0x2B7, kParametricStereoSync = 0x548;

// Table 1.18; index 15 announces a rate of 24 bits.
constexpr uint32_t kSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                     22050, 16000, 12000, 11025, 8000,  7350};

// Table 1.19, by channelConfiguration. 0 channels: reserved.
struct Channels {
  uint32_t count;
  AudioChannelLayoutTag tag;
};
constexpr Channels kChannelConfigurations[16] = {
    {},
    {1, kAudioChannelLayoutTag_Mono},
    {2, kAudioChannelLayoutTag_Stereo},
    {3, kAudioChannelLayoutTag_MPEG_3_0_B},
    {4, kAudioChannelLayoutTag_MPEG_4_0_B},
    {5, kAudioChannelLayoutTag_MPEG_5_0_D},
    {6, kAudioChannelLayoutTag_MPEG_5_1_D},
    {8, kAudioChannelLayoutTag_MPEG_7_1_B},
    {},
    {},
    {},
    {7, kAudioChannelLayoutTag_AAC_6_1},
    {8, kAudioChannelLayoutTag_AAC_7_1_B},
    {24, kAudioChannelLayoutTag_Unknown},
    {8, kAudioChannelLayoutTag_AAC_7_1_C},
    {},
};

// The elements of a program_config_element that make up a common arrangement: single channels and pairs in
// front, at the sides and at the back, and low-frequency channels.
struct Arrangement {
  std::string_view front, side, back;
  uint32_t lowFrequency;
  AudioChannelLayoutTag tag;
};
constexpr Arrangement kArrangements[] = {
    {"S", "", "", 0, kAudioChannelLayoutTag_Mono},
    {"P", "", "", 0, kAudioChannelLayoutTag_Stereo},
    {"P", "", "", 1, kAudioChannelLayoutTag_DVD_4},
    {"SP", "", "", 0, kAudioChannelLayoutTag_MPEG_3_0_B},
    {"PS", "", "", 0, kAudioChannelLayoutTag_MPEG_3_0_A},
    {"P", "", "S", 0, kAudioChannelLayoutTag_ITU_2_1},
    {"P", "", "P", 0, kAudioChannelLayoutTag_Quadraphonic},
    {"P", "P", "", 0, kAudioChannelLayoutTag_Quadraphonic},
    {"P", "", "P", 1, kAudioChannelLayoutTag_DVD_18},
    {"P", "P", "", 1, kAudioChannelLayoutTag_DVD_18},
    {"SP", "", "S", 0, kAudioChannelLayoutTag_MPEG_4_0_B},
    {"PS", "", "S", 0, kAudioChannelLayoutTag_MPEG_4_0_A},
    {"SP", "", "P", 0, kAudioChannelLayoutTag_MPEG_5_0_D},
    {"SP", "P", "", 0, kAudioChannelLayoutTag_MPEG_5_0_D},
    {"PS", "", "P", 0, kAudioChannelLayoutTag_MPEG_5_0_A},
    {"PS", "P", "", 0, kAudioChannelLayoutTag_MPEG_5_0_A},
    {"SP", "", "P", 1, kAudioChannelLayoutTag_MPEG_5_1_D},
    {"SP", "P", "", 1, kAudioChannelLayoutTag_MPEG_5_1_D},
    {"SP", "", "PS", 0, kAudioChannelLayoutTag_AAC_6_0},
    {"SP", "P", "S", 0, kAudioChannelLayoutTag_AAC_6_0},
    {"SP", "", "PS", 1, kAudioChannelLayoutTag_AAC_6_1},
    {"SP", "P", "S", 1, kAudioChannelLayoutTag_AAC_6_1},
    {"SP", "P", "P", 0, kAudioChannelLayoutTag_AAC_7_0},
    {"SP", "P", "P", 1, kAudioChannelLayoutTag_AAC_7_1_B},
    {"SP", "P", "PS", 0, kAudioChannelLayoutTag_AAC_Octagonal},
    {"SPP", "", "P", 1, kAudioChannelLayoutTag_MPEG_7_1_B},
    {"SPP", "P", "", 1, kAudioChannelLayoutTag_MPEG_7_1_B},
};

uint32_t readObjectType(BitReader& reader) {
  const uint32_t type = reader.bits(5);
  return type == kEscape ? 32 + reader.bits(6) : type;
}

uint32_t readSampleRate(BitReader& reader) {
  const uint32_t index = reader.bits(4);
  const uint32_t rate = index == 15                       ? reader.bits(24)
                        : index < std::size(kSampleRates) ? kSampleRates[index]
                                                          : 0;
  if (rate == 0) reader.fail();
  return rate;
}

// The elements of one direction: 'S' a single channel, 'P' a pair.
class Elements {
 public:
  void read(BitReader& reader, uint32_t count) {
    for (; count > 0; --count) {
      kinds_[count_++] = reader.flag() ? 'P' : 'S';
      reader.skip(4);
    }
  }
  std::string_view kinds() const { return {kinds_, count_}; }
  uint32_t channels() const {
    return static_cast<uint32_t>(count_ + static_cast<size_t>(std::count(kinds_, kinds_ + count_, 'P')));
  }

 private:
  char kinds_[15];
  size_t count_ = 0;
};

// program_config_element (4.4.1.1).
Channels readProgramConfiguration(BitReader& reader) {
  reader.skip(4 + 2 + 4);  // tag, profile, a repetition of the sample rate
  const uint32_t fronts = reader.bits(4), sides = reader.bits(4), backs = reader.bits(4);
  const uint32_t lowFrequency = reader.bits(2), data = reader.bits(3), couplings = reader.bits(4);
  if (reader.flag()) reader.skip(4);  // mixdowns: mono, stereo, matrix
  if (reader.flag()) reader.skip(4);
  if (reader.flag()) reader.skip(3);
  Elements front, side, back;
  front.read(reader, fronts);
  side.read(reader, sides);
  back.read(reader, backs);
  reader.skip(4 * lowFrequency + 4 * data + 5 * couplings);
  reader.align();
  reader.skip(8 * reader.bits(8));  // a comment
  const auto known =
      std::find_if(std::begin(kArrangements), std::end(kArrangements), [&](const Arrangement& it) {
        return it.front == front.kinds() && it.side == side.kinds() && it.back == back.kinds() &&
               it.lowFrequency == lowFrequency;
      });
  return {front.channels() + side.channels() + back.channels() + lowFrequency,
          known == std::end(kArrangements) ? kAudioChannelLayoutTag_Unknown : known->tag};
}

// GASpecificConfig (4.4.1) of the object types that can be a core.
void readCore(BitReader& reader, uint32_t channelConfiguration, AACConfiguration& configuration) {
  configuration.framesPerPacket = reader.flag() ? 960 : 1024;
  if (reader.flag()) reader.skip(14);  // the delay of a core coder
  reader.skip(1);                      // an extension that these object types do not have
  const Channels channels = channelConfiguration == 0 ? readProgramConfiguration(reader)
                                                      : kChannelConfigurations[channelConfiguration];
  configuration.channels = channels.count;
  configuration.tag = channels.tag;
  if (channels.count == 0) reader.fail();
}

// What stands behind the core for decoders that know of the layers.
void readBackwardCompatibleExtension(BitReader& reader, AACConfiguration& configuration) {
  if (reader.bitsLeft() < 16 || reader.bits(11) != kBandReplicationSync) return;
  if (readObjectType(reader) != kBandReplication) return;
  configuration.bandReplication = reader.flag() ? Layer::kPresent : Layer::kAbsent;
  if (configuration.bandReplication == Layer::kAbsent) return;
  configuration.extensionSampleRate = readSampleRate(reader);
  if (reader.bitsLeft() < 12 || reader.bits(11) != kParametricStereoSync) return;
  configuration.parametricStereo = reader.flag() ? Layer::kPresent : Layer::kAbsent;
}

std::optional<AACConfiguration> readAudioSpecificConfig(BitReader reader) {
  AACConfiguration configuration;
  uint32_t objectType = readObjectType(reader);
  configuration.sampleRate = readSampleRate(reader);
  const uint32_t channelConfiguration = reader.bits(4);
  const bool isHierarchical = objectType == kBandReplication || objectType == kParametricStereo;
  if (isHierarchical) {
    configuration.bandReplication = Layer::kPresent;
    if (objectType == kParametricStereo) configuration.parametricStereo = Layer::kPresent;
    configuration.extensionSampleRate = readSampleRate(reader);
    objectType = readObjectType(reader);
  }
  if (objectType == 0) reader.fail();
  configuration.isLayered = objectType >= kMain && objectType <= kLTP;
  if (configuration.isLayered) {
    readCore(reader, channelConfiguration, configuration);
    if (!isHierarchical) readBackwardCompatibleExtension(reader, configuration);
  }
  return reader.ok() ? std::optional(configuration) : std::nullopt;
}

struct Descriptor {
  uint32_t tag;
  BitReader contents;
};

// A descriptor (ISO/IEC 14496-1 8.3.3), with its length in 1 to 4 bytes of 7 bits each.
Descriptor readDescriptor(BitReader& reader) {
  const uint32_t tag = reader.bits(8);
  uint32_t length = 0, byte = 0x80;
  for (int i = 0; i < 4 && byte & 0x80; ++i) {
    byte = reader.bits(8);
    length = length << 7 | (byte & 0x7F);
  }
  if (byte & 0x80 || length > reader.bytesLeft()) reader.fail();
  Descriptor descriptor{tag, BitReader(reader.next(), reader.ok() ? length : 0)};
  reader.skip(size_t{length} * 8);
  if (!reader.ok()) descriptor.contents.fail();
  return descriptor;
}

// The first descriptor with the tag.
BitReader findDescriptor(BitReader& reader, uint32_t tag) {
  while (reader.ok()) {
    Descriptor descriptor = readDescriptor(reader);
    if (descriptor.tag == tag) return descriptor.contents;
  }
  return reader;
}

bool isAAC(uint32_t objectTypeIndication) {
  // ISO/IEC 14496-1 table 5: ISO/IEC 14496-3, and the AAC profiles of ISO/IEC 13818-7
  return objectTypeIndication == 0x40 || (objectTypeIndication >= 0x66 && objectTypeIndication <= 0x68);
}

// The AudioSpecificConfig inside an ES_Descriptor (ISO/IEC 14496-1 7.2.6.5).
BitReader enterStreamDescriptor(BitReader reader) {
  BitReader stream = findDescriptor(reader, kESDescriptor);
  stream.skip(16);
  const bool dependsOnAnother = stream.flag(), hasURL = stream.flag(), hasClockReference = stream.flag();
  stream.skip(5);
  if (dependsOnAnother) stream.skip(16);
  if (hasURL) stream.skip(8 * stream.bits(8));
  if (hasClockReference) stream.skip(16);
  BitReader decoder = findDescriptor(stream, kDecoderConfiguration);
  if (!isAAC(decoder.bits(8))) decoder.fail();
  decoder.skip(12 * 8);  // kind of stream, buffer size, bit rates
  return findDescriptor(decoder, kDecoderSpecificInfo);
}

}  // namespace

std::optional<AACConfiguration> readAACConfiguration(const void* cookie, size_t sizeBytes) {
  const auto* bytes = static_cast<const uint8_t*>(cookie);
  BitReader reader(bytes, sizeBytes);
  if (sizeBytes > 4 && std::all_of(bytes, bytes + 4, [](uint8_t byte) { return byte == 0; }))
    reader.skip(32);  // version and flags of the 'esds' atom
  if (reader.bytesLeft() == 0) return std::nullopt;
  return readAudioSpecificConfig(*reader.next() == kESDescriptor ? enterStreamDescriptor(reader) : reader);
}

}  // namespace tonvik
