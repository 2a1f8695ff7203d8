// The format lists of AAC cookies: whatever the bytes say, a list is well formed, and asked twice it is the
// same.
#include <tonvik/audio_format.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

void require(bool law) { return law ? void() : std::abort(); }

constexpr AudioFormatID kFormats[] = {kAudioFormatMPEG4AAC, kAudioFormatMPEG4AAC_HE,
                                      kAudioFormatMPEG4AAC_HE_V2};

void checkLayers(const AudioFormatListItem* items, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const AudioStreamBasicDescription &item = items[i].streamBasicDescription,
                                      &core = items[count - 1].streamBasicDescription;
    require(item.formatID == kFormats[count - 1 - i]);
    require(item.sampleRate == core.sampleRate || item.sampleRate == 2 * core.sampleRate);
    require(item.framesPerPacket * core.sampleRate == core.framesPerPacket * item.sampleRate);
    require(item.channelsPerFrame > 0 && core.sampleRate > 0);
    const uint32_t tagged = items[i].channelLayoutTag & 0xFFFF;
    require(items[i].channelLayoutTag == kAudioChannelLayoutTag_Unknown || tagged == item.channelsPerFrame);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  AudioFormatInfo info{};
  info.streamBasicDescription.formatID = kFormats[data[0] % 3];
  info.magicCookie = data + 1;
  info.magicCookieSize = static_cast<uint32_t>(size - 1);

  uint32_t expectedSize = 0;
  const AudioStatus status =
      AudioFormatGetPropertyInfo(kAudioFormatProperty_FormatList, sizeof info, &info, &expectedSize);
  AudioFormatListItem items[kAudioFormatListMaxItems];
  uint32_t listSize = sizeof items;
  require(AudioFormatGetProperty(kAudioFormatProperty_FormatList, sizeof info, &info, &listSize, items) ==
          status);
  if (status != 0) {
    require(status == kAudioFormatUnsupportedDataFormatError);
    return 0;
  }
  require(listSize == expectedSize && listSize >= sizeof items[0] && listSize % sizeof items[0] == 0);
  const bool isItself = items[0].streamBasicDescription.sampleRate == 0;  // an object type that has no layers
  if (!isItself) checkLayers(items, listSize / sizeof items[0]);
  uint32_t first = 0, firstSize = sizeof first;
  require(AudioFormatGetProperty(kAudioFormatProperty_FirstPlayableFormatFromList, listSize, items,
                                 &firstSize, &first) == 0);
  require(first == 0);
  return 0;
}
