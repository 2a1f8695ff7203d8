#include "formats/channel_layout.hpp"

#include <algorithm>
#include <bit>
#include <iterator>

namespace pv::sound {

namespace {

// ChannelConfiguration of ISO/IEC 23001-8 Table 4, as far as a tag says the same channels in the same order.
struct Configuration {
  uint8_t number;
  AudioChannelLayoutTag tag;
};
constexpr Configuration kConfigurations[] = {
    {1, kAudioChannelLayoutTag_Mono},       {2, kAudioChannelLayoutTag_Stereo},
    {3, kAudioChannelLayoutTag_MPEG_3_0_B}, {4, kAudioChannelLayoutTag_MPEG_4_0_B},
    {5, kAudioChannelLayoutTag_MPEG_5_0_D}, {6, kAudioChannelLayoutTag_MPEG_5_1_D},
    {7, kAudioChannelLayoutTag_MPEG_7_1_B}, {9, kAudioChannelLayoutTag_ITU_2_1},
    {10, kAudioChannelLayoutTag_ITU_2_2},   {11, kAudioChannelLayoutTag_AAC_6_1},
    {12, kAudioChannelLayoutTag_AAC_7_1_B}, {14, kAudioChannelLayoutTag_AAC_7_1_C},
};

// OutputChannelPosition of ISO/IEC 23001-8 Table 7.
struct Position {
  uint8_t number;
  AudioChannelLabel label;
};
constexpr Position kPositions[] = {
    {0, kAudioChannelLabel_Left},
    {1, kAudioChannelLabel_Right},
    {2, kAudioChannelLabel_Center},
    {3, kAudioChannelLabel_LFEScreen},
    {4, kAudioChannelLabel_LeftSurround},
    {5, kAudioChannelLabel_RightSurround},
    {6, kAudioChannelLabel_LeftCenter},
    {7, kAudioChannelLabel_RightCenter},
    {8, kAudioChannelLabel_RearSurroundLeft},
    {9, kAudioChannelLabel_RearSurroundRight},
    {10, kAudioChannelLabel_CenterSurround},
    {11, kAudioChannelLabel_LeftSurroundDirect},
    {12, kAudioChannelLabel_RightSurroundDirect},
    {15, kAudioChannelLabel_LeftWide},
    {16, kAudioChannelLabel_RightWide},
    {17, kAudioChannelLabel_VerticalHeightLeft},
    {18, kAudioChannelLabel_VerticalHeightRight},
    {19, kAudioChannelLabel_VerticalHeightCenter},
    {20, kAudioChannelLabel_TopBackLeft},
    {21, kAudioChannelLabel_TopBackRight},
    {22, kAudioChannelLabel_TopBackCenter},
    {25, kAudioChannelLabel_TopCenterSurround},
    {26, kAudioChannelLabel_LFE2},
};

constexpr uint8_t kChannelStructured = 1;

const Position* positionOf(AudioChannelLabel label) {
  const Position* found = std::ranges::find(kPositions, label, &Position::label);
  return found == std::end(kPositions) ? nullptr : found;
}

const Configuration* configurationOf(AudioChannelLayoutTag tag) {
  const Configuration* found = std::ranges::find(kConfigurations, tag, &Configuration::tag);
  return found == std::end(kConfigurations) ? nullptr : found;
}

// A layout whose descriptions are really there.
uint32_t descriptionsIn(const AudioChannelLayout* layout, size_t size) {
  const size_t room = (size - sizeof(AudioChannelLayout)) / sizeof(AudioChannelDescription);
  return static_cast<uint32_t>(std::min<size_t>(layout->numberChannelDescriptions, room));
}

}  // namespace

bool readChan(ByteReader reader, LayoutBuffer* out) {
  reader.skip(4);  // version, flags
  AudioChannelLayout* layout = out->layout();
  layout->channelLayoutTag = reader.u32();
  layout->channelBitmap = reader.u32();
  const uint32_t count = reader.u32();
  layout->numberChannelDescriptions = 0;
  if (count > LayoutBuffer::kMostChannels || !reader.has(count, sizeof(AudioChannelDescription)))
    return false;
  layout->numberChannelDescriptions = count;
  for (uint32_t i = 0; i < count; ++i) {
    AudioChannelDescription& description = layout->channelDescriptions[i];
    description.channelLabel = reader.u32();
    description.channelFlags = reader.u32();
    for (float& coordinate : description.coordinates) coordinate = std::bit_cast<float>(reader.u32());
  }
  return reader.ok() && reader.atEnd();
}

bool readChnl(ByteReader reader, uint32_t channels, LayoutBuffer* out) {
  if (reader.u32() != 0 || reader.u8() != kChannelStructured) return false;
  AudioChannelLayout* layout = out->layout();
  *layout = {};
  const uint8_t number = reader.u8();
  if (number != 0) {
    const Configuration* found = std::ranges::find(kConfigurations, number, &Configuration::number);
    const uint64_t omitted = reader.u64();
    if (!reader.ok() || omitted != 0 || found == std::end(kConfigurations)) return false;
    layout->channelLayoutTag = found->tag;
    return reader.atEnd();
  }
  if (channels == 0 || channels > LayoutBuffer::kMostChannels) return false;
  layout->numberChannelDescriptions = channels;
  for (uint32_t i = 0; i < channels; ++i) {
    const uint8_t position = reader.u8();
    const Position* found = std::ranges::find(kPositions, position, &Position::number);
    if (!reader.ok() || found == std::end(kPositions)) return false;
    layout->channelDescriptions[i] = {found->label, 0, {0, 0, 0}};
  }
  return reader.atEnd();
}

void writeChan(ByteWriter& writer, const AudioChannelLayout* layout, size_t size) {
  const uint32_t count = descriptionsIn(layout, size);
  writer.u32(0).u32(layout->channelLayoutTag).u32(layout->channelBitmap).u32(count);
  for (uint32_t i = 0; i < count; ++i) {
    const AudioChannelDescription& description = layout->channelDescriptions[i];
    writer.u32(description.channelLabel).u32(description.channelFlags);
    for (const float coordinate : description.coordinates) writer.u32(std::bit_cast<uint32_t>(coordinate));
  }
}

bool canWriteChnl(const AudioChannelLayout* layout, size_t size) {
  if (layout->channelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions)
    return layout->channelBitmap == 0 && layout->numberChannelDescriptions == 0 &&
           configurationOf(layout->channelLayoutTag);
  const uint32_t count = descriptionsIn(layout, size);
  const auto isPlain = [](const AudioChannelDescription& each) {
    return positionOf(each.channelLabel) && each.channelFlags == 0 &&
           std::ranges::all_of(each.coordinates, [](float coordinate) { return coordinate == 0; });
  };
  return count > 0 && count <= LayoutBuffer::kMostChannels && layout->channelBitmap == 0 &&
         std::all_of(layout->channelDescriptions, layout->channelDescriptions + count, isPlain);
}

void writeChnl(ByteWriter& writer, const AudioChannelLayout* layout, size_t size) {
  writer.u32(0).u8(kChannelStructured);
  if (const Configuration* configuration = configurationOf(layout->channelLayoutTag)) {
    writer.u8(configuration->number).u64(0);
    return;
  }
  writer.u8(0);
  for (uint32_t i = 0; i < descriptionsIn(layout, size); ++i)
    writer.u8(positionOf(layout->channelDescriptions[i].channelLabel)->number);
}

}  // namespace pv::sound
