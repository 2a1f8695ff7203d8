// The debug text of audio format descriptions.
#include <bedra/allocator.h>
#include <bedra/data.h>
#include <bedra/string.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "formats/audio_format_description.hpp"
#include "formats/tonvik_loader.hpp"

using namespace br::literals;

namespace {

br::Ref<const BRString> copyName(const pv::audio::Layout& layout) {
  if (!layout.header) return br::Ref<const BRString>::retain("none"_br);
  BRStringRef name = nullptr;
  uint32_t size = sizeof name;
  if (!layout.isWhole() || layout.sizeBytes > UINT32_MAX ||
      Tonvik_AudioFormatGetProperty(kAudioFormatProperty_ChannelLayoutName,
                                    static_cast<uint32_t>(layout.sizeBytes), layout.header, &size,
                                    &name) != 0 ||
      !name)
    return br::Ref<const BRString>::retain("without a name"_br);
  return br::Ref<const BRString>::adopt(name);
}

}  // namespace

BRStringRef pv::audio::copyDebugDescription(PVFormatDescriptionRef description) {
  const Storage& storage = *storageOf(description);
  const AudioStreamBasicDescription& it = storage.description;
  const AudioFormatID code = it.formatID;
  br::Ref<const BRData> cookie;
  if (storage.cookie.data())
    cookie = br::Ref<const BRData>::adopt(
        BRDataCreateWithBytesNoCopy(nullptr, storage.cookie.data(), storage.cookie.size(), kBRAllocatorNull));
  return BRStringCreateWithFormat(
      nullptr,
      "\t\tsampleRate: %.10g formatID: '%c%c%c%c' formatFlags: 0x%x bytesPerPacket: %u framesPerPacket: %u "
      "bytesPerFrame: %u channelsPerFrame: %u bitsPerChannel: %u\n"
      "\t\tmagicCookie: %@\n"
      "\t\tchannelLayout: %@",
      static_cast<double>(it.sampleRate), code >> 24, code >> 16 & 0xFF, code >> 8 & 0xFF, code & 0xFF,
      it.formatFlags, it.bytesPerPacket, it.framesPerPacket, it.bytesPerFrame, it.channelsPerFrame,
      it.bitsPerChannel, cookie.get(), copyName(storage.layout).get());
}
