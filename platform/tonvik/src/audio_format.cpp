// The properties of audio formats.
//
// Each property is one function, which checks its specifier and gives its answer; asking for the size is
// asking for an answer that goes nowhere.
#include <tonvik/audio_format.h>

#include <bedra/ref.hpp>
#include <cstring>
#include <span>

#include "src/aac_configuration.hpp"
#include "src/channel_layout.hpp"
#include "src/decoders.hpp"

namespace {

struct Specifier {
  const void* bytes;
  uint32_t size;

  template <class Record>
  const Record* as() const {
    return size == sizeof(Record) ? static_cast<const Record*>(bytes) : nullptr;
  }
};

struct Answer {
  void* room;  // null when only the size is asked for
  uint32_t roomSize;
  uint32_t size = 0;

  AudioStatus give(const void* value, size_t valueSize) {
    size = static_cast<uint32_t>(valueSize);
    if (!room) return 0;
    if (size > roomSize) return kAudioFormatBadPropertySizeError;
    std::memcpy(room, value, size);
    return 0;
  }
};

AudioStatus giveDecodableFormats(const Specifier&, Answer& answer) {
  AudioFormatID formatIDs[tonvik::kMaxDecodableFormats];
  return answer.give(formatIDs, tonvik::listDecodableFormats(formatIDs) * sizeof(AudioFormatID));
}

bool isAAC(AudioFormatID formatID) {
  return formatID == kAudioFormatMPEG4AAC || formatID == kAudioFormatMPEG4AAC_HE ||
         formatID == kAudioFormatMPEG4AAC_HE_V2;
}

// The ways to play a stream of AAC, richest first.
class AACList {
 public:
  AACList(const tonvik::AACConfiguration& core, AudioFormatID declared) {
    using tonvik::Layer;
    const auto has = [](Layer layer, bool isDeclared) {
      return layer == Layer::kPresent || (layer == Layer::kUnsaid && isDeclared);
    };
    const bool replicates = has(core.bandReplication, declared != kAudioFormatMPEG4AAC);
    const uint32_t rate = core.extensionSampleRate ? core.extensionSampleRate : 2 * core.sampleRate;
    const uint32_t factor = rate / core.sampleRate;
    if (replicates && rate % core.sampleRate == 0 && (factor == 1 || factor == 2)) {
      const uint32_t frames = factor * core.framesPerPacket;
      if (core.channels == 1 && has(core.parametricStereo, declared == kAudioFormatMPEG4AAC_HE_V2))
        add(kAudioFormatMPEG4AAC_HE_V2, rate, frames, 2, kAudioChannelLayoutTag_Stereo);
      add(kAudioFormatMPEG4AAC_HE, rate, frames, core.channels, core.tag);
    }
    add(kAudioFormatMPEG4AAC, core.sampleRate, core.framesPerPacket, core.channels, core.tag);
  }

  std::span<const AudioFormatListItem> items() const { return {items_, count_}; }

 private:
  void add(AudioFormatID formatID, uint32_t rate, uint32_t frames, uint32_t channels,
           AudioChannelLayoutTag tag) {
    items_[count_++] = {{.sampleRate = static_cast<double>(rate),
                         .formatID = formatID,
                         .formatFlags = 0,
                         .bytesPerPacket = 0,
                         .framesPerPacket = frames,
                         .bytesPerFrame = 0,
                         .channelsPerFrame = channels,
                         .bitsPerChannel = 0,
                         .reserved = 0},
                        tag};
  }

  AudioFormatListItem items_[kAudioFormatListMaxItems];
  size_t count_ = 0;
};

AudioStatus giveFormatList(const Specifier& specifier, Answer& answer) {
  const auto* info = specifier.as<AudioFormatInfo>();
  if (!info) return kAudioFormatBadSpecifierSizeError;
  const AudioFormatID formatID = info->streamBasicDescription.formatID;
  if (isAAC(formatID) && info->magicCookie && info->magicCookieSize > 0) {
    const auto configuration = tonvik::readAACConfiguration(info->magicCookie, info->magicCookieSize);
    if (!configuration) return kAudioFormatUnsupportedDataFormatError;
    if (configuration->isLayered) {
      const AACList list(*configuration, formatID);
      return answer.give(list.items().data(), list.items().size_bytes());
    }
  }
  if (!tonvik::isDecodable(formatID)) return kAudioFormatUnsupportedDataFormatError;
  const AudioFormatListItem itself{info->streamBasicDescription, kAudioChannelLayoutTag_Unknown};
  return answer.give(&itself, sizeof itself);
}

AudioStatus giveFirstPlayable(const Specifier& specifier, Answer& answer) {
  if (specifier.size == 0 || specifier.size % sizeof(AudioFormatListItem) != 0)
    return kAudioFormatBadSpecifierSizeError;
  const auto* items = static_cast<const AudioFormatListItem*>(specifier.bytes);
  const auto count = static_cast<uint32_t>(specifier.size / sizeof(AudioFormatListItem));
  for (uint32_t i = 0; i < count; ++i)
    if (tonvik::isDecodable(items[i].streamBasicDescription.formatID)) return answer.give(&i, sizeof i);
  return kAudioFormatUnsupportedDataFormatError;
}

AudioStatus giveEquivalence(const Specifier& specifier, Answer& answer) {
  using Layouts = const AudioChannelLayout* [2];
  const auto* layouts = specifier.as<Layouts>();
  if (!layouts) return kAudioFormatBadSpecifierSizeError;
  if (!(*layouts)[0] || !(*layouts)[1]) return kAudioFormatUnspecifiedError;
  const uint32_t equivalent = tonvik::areEquivalent(*(*layouts)[0], *(*layouts)[1]);
  return answer.give(&equivalent, sizeof equivalent);
}

AudioStatus giveLayoutName(const Specifier& specifier, Answer& answer) {
  if (specifier.size < sizeof(AudioChannelLayout)) return kAudioFormatBadSpecifierSizeError;
  const auto& layout = *static_cast<const AudioChannelLayout*>(specifier.bytes);
  if (layout.channelLayoutTag == kAudioChannelLayoutTag_UseChannelDescriptions &&
      layout.numberChannelDescriptions >
          (specifier.size - sizeof(AudioChannelLayout)) / sizeof(AudioChannelDescription))
    return kAudioFormatBadSpecifierSizeError;
  if (!tonvik::hasChannels(layout)) return kAudioFormatUnsupportedDataFormatError;
  if (!answer.room) return answer.give(nullptr, sizeof(BRStringRef));
  auto name = br::Ref<const BRString>::adopt(tonvik::copyName(layout));
  if (!name) return kAudioFormatUnspecifiedError;
  BRStringRef given = name.get();
  const AudioStatus status = answer.give(&given, sizeof given);
  if (status == 0) (void)name.detach();
  return status;
}

AudioStatus answerTo(AudioFormatPropertyID propertyID, const Specifier& specifier, Answer& answer) {
  if (!specifier.bytes && specifier.size > 0) return kAudioFormatUnspecifiedError;
  switch (propertyID) {
    case kAudioFormatProperty_DecodeFormatIDs:
      return giveDecodableFormats(specifier, answer);
    case kAudioFormatProperty_FormatList:
      return giveFormatList(specifier, answer);
    case kAudioFormatProperty_FirstPlayableFormatFromList:
      return giveFirstPlayable(specifier, answer);
    case kAudioFormatProperty_AreChannelLayoutsEquivalent:
      return giveEquivalence(specifier, answer);
    case kAudioFormatProperty_ChannelLayoutName:
      return giveLayoutName(specifier, answer);
    default:
      return kAudioFormatUnsupportedPropertyError;
  }
}

}  // namespace

AudioStatus AudioFormatGetPropertyInfo(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                       const void* specifier, uint32_t* sizeOut) {
  if (!sizeOut) return kAudioFormatUnspecifiedError;
  Answer answer{nullptr, 0};
  const AudioStatus status = answerTo(propertyID, {specifier, specifierSize}, answer);
  if (status == 0) *sizeOut = answer.size;
  return status;
}

AudioStatus AudioFormatGetProperty(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                   const void* specifier, uint32_t* ioSize, void* valueOut) {
  if (!ioSize || !valueOut) return kAudioFormatUnspecifiedError;
  Answer answer{valueOut, *ioSize};
  const AudioStatus status = answerTo(propertyID, {specifier, specifierSize}, answer);
  if (status == 0) *ioSize = answer.size;
  return status;
}
