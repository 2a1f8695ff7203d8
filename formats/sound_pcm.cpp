// Linear PCM, and the data formats that name it.
#include <algorithm>
#include <iterator>

#include "formats/sound_record.hpp"
#include "runtime/four_char_code.hpp"

using namespace pv::literals;

namespace pv::sound {

namespace {

enum class Order { kBig, kLittle, kTold };  // told: by 'enda' or 'pcmC', big-endian otherwise

struct DataFormat {
  PVFourCharCode code;
  uint32_t bits;  // 0: the record says
  bool isFloat;
  bool isSigned8;  // whether samples of 8 bits are signed; wider ones are
  Order order;
};
constexpr DataFormat kDataFormats[] = {
    {0, 0, false, false, Order::kBig},
    {"NONE"_4cc, 0, false, false, Order::kBig},
    {"raw "_4cc, 0, false, false, Order::kBig},
    {"twos"_4cc, 0, false, true, Order::kBig},
    {"sowt"_4cc, 0, false, true, Order::kLittle},
    {"in24"_4cc, 24, false, true, Order::kTold},
    {"in32"_4cc, 32, false, true, Order::kTold},
    {"fl32"_4cc, 32, true, true, Order::kTold},
    {"fl64"_4cc, 64, true, true, Order::kTold},
    {"lpcm"_4cc, 0, false, true, Order::kTold},
    {"ipcm"_4cc, 0, false, true, Order::kTold},
    {"fpcm"_4cc, 0, true, true, Order::kTold},
};

const DataFormat* find(PVFourCharCode code) {
  const DataFormat* found = std::ranges::find(kDataFormats, code, &DataFormat::code);
  return found == std::end(kDataFormats) ? nullptr : found;
}

PCMForm formInISO(const AudioStreamBasicDescription& format, bool isFloat, bool littleEndian) {
  const uint32_t bits = format.bitsPerChannel;
  if (isFloat) return {bits == 32 || bits == 64 ? "fpcm"_4cc : 0, littleEndian};
  const bool whole = bits == 16 || bits == 24 || bits == 32;
  return {whole && format.formatFlags & kAudioFormatFlagIsSignedInteger ? "ipcm"_4cc : 0, littleEndian};
}

}  // namespace

bool isPCM(PVFourCharCode dataFormat) { return find(dataFormat) != nullptr; }

bool setPCM(PVFourCharCode dataFormat, uint32_t sampleBits, bool littleEndian,
            AudioStreamBasicDescription* format) {
  const DataFormat& known = *find(dataFormat);
  const uint32_t bits = known.bits ? known.bits : sampleBits;
  if (bits == 0 || bits > 64 || bits % 8 != 0 || format->channelsPerFrame == 0 ||
      format->channelsPerFrame > 0x7FFF || (known.isFloat && bits != 32 && bits != 64))
    return false;
  uint32_t flags = kAudioFormatFlagIsPacked;
  if (known.isFloat)
    flags |= kAudioFormatFlagIsFloat;
  else if (known.isSigned8 || bits != 8)
    flags |= kAudioFormatFlagIsSignedInteger;
  const bool little = known.order == Order::kLittle || (known.order == Order::kTold && littleEndian);
  // a single byte has no order
  if (!little && bits > 8) flags |= kAudioFormatFlagIsBigEndian;
  format->formatID = kAudioFormatLinearPCM;
  format->formatFlags = flags;
  format->bitsPerChannel = bits;
  format->framesPerPacket = 1;
  format->bytesPerFrame = format->bytesPerPacket = bits / 8 * format->channelsPerFrame;
  return true;
}

PCMForm formOfPCM(const AudioStreamBasicDescription& format, record::Flavor flavor, uint16_t version) {
  const bool isFloat = format.formatFlags & kAudioFormatFlagIsFloat;
  const bool littleEndian = !(format.formatFlags & kAudioFormatFlagIsBigEndian);
  const uint32_t bits = format.bitsPerChannel;
  constexpr PCMForm kNone = {0, false};
  if (format.formatFlags & kAudioFormatFlagIsNonInterleaved) return kNone;
  if (version == 2) return {"lpcm"_4cc, false};  // its flags are in the record
  if (!(format.formatFlags & kAudioFormatFlagIsPacked) || bits % 8 != 0 || format.framesPerPacket != 1 ||
      format.bytesPerFrame != bits / 8 * format.channelsPerFrame ||
      format.bytesPerPacket != format.bytesPerFrame)
    return kNone;
  if (record::isISO(flavor)) return formInISO(format, isFloat, littleEndian);
  const bool isSigned = format.formatFlags & kAudioFormatFlagIsSignedInteger;
  if (bits == 8) return {isSigned ? "twos"_4cc : "raw "_4cc, false};
  if (bits != 16 || !isSigned) return kNone;
  return {littleEndian ? "sowt"_4cc : "twos"_4cc, false};
}

}  // namespace pv::sound
