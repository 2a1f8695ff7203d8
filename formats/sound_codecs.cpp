#include "formats/sound_codecs.hpp"

#include <algorithm>
#include <array>
#include <cstring>

#include "formats/mpeg4_audio.hpp"
#include "runtime/bit_reader.hpp"
#include "runtime/four_char_code.hpp"

using namespace pv::literals;

namespace pv::sound {

namespace {

void take(Cookie* cookie, ByteReader reader) {
  cookie->length = reader.remaining();
  cookie->bytes = reader.take(cookie->length);
}

void writeWhole(ByteWriter& writer, const uint8_t* cookie, size_t length) { writer.bytes(cookie, length); }

// Behind version and flags.
void writeFull(ByteWriter& writer, const uint8_t* cookie, size_t length) {
  writer.u32(0).bytes(cookie, length);
}

// The format flag that tells the bits of a lossless format's source; 0 for others.
uint32_t sourceBitsFlag(uint32_t bits) {
  constexpr std::array<uint32_t, 4> kBits = {16, 20, 24, 32};
  const auto* found = std::ranges::find(kBits, bits);
  return found == kBits.end() ? 0 : static_cast<uint32_t>(found - kBits.begin()) + 1;
}

// A payload that the decoder takes as it is.
bool readWhole(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription*) {
  take(cookie, payload);
  return true;
}

// --- 'esds'

bool readESDS(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  if (payload.u32() != 0) return false;
  Elementary elementary;
  const bool readable = readElementary(payload, &elementary);
  switch (readable ? elementary.objectType : 0) {
    case kObjectMPEG4Audio:
    case kObjectMPEG2AACMain:
    case kObjectMPEG2AACLC:
    case kObjectMPEG2AACSSR:
      take(cookie, payload);
      format->formatID = kAudioFormatMPEG4AAC;
      readAACConfiguration(elementary.configuration, elementary.configurationLength, format);
      return true;
    case kObjectMPEG2Layer3:
    case kObjectMPEG1Audio:
      format->formatID = kAudioFormatMPEGLayer3;
      format->framesPerPacket = format->sampleRate < 32000 ? 576 : 1152;
      return true;
    case kObjectAC3:
    case kObjectEnhancedAC3:
      format->formatID = elementary.objectType == kObjectAC3 ? kAudioFormatAC3 : kAudioFormatEnhancedAC3;
      format->framesPerPacket = 1536;
      return true;
    default:
      take(cookie, payload);
      format->framesPerPacket = 0;
      return true;
  }
}

// --- 'dac3', 'dec3' (ETSI TS 102 366 F.4, F.6)

constexpr std::array<uint32_t, 4> kAC3Rates = {48000, 44100, 32000, 0};
constexpr std::array<uint8_t, 8> kAC3Channels = {2, 1, 2, 3, 3, 4, 4, 5};  // by acmod

void setAC3(AudioStreamBasicDescription* format, uint32_t rateCode, uint32_t acmod, bool lfe) {
  if (kAC3Rates[rateCode]) format->sampleRate = kAC3Rates[rateCode];
  format->channelsPerFrame = kAC3Channels[acmod] + (lfe ? 1u : 0u);
}

bool readDAC3(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  take(cookie, payload);
  BitReader bits(cookie->bytes, cookie->length);
  const uint32_t rateCode = bits.bits(2);
  bits.skip(5 + 3);  // bsid, bsmod
  const uint32_t acmod = bits.bits(3);
  const bool lfe = bits.flag();
  if (bits.ok()) setAC3(format, rateCode, acmod, lfe);
  return true;
}

bool readDEC3(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  take(cookie, payload);
  BitReader bits(cookie->bytes, cookie->length);
  bits.skip(13 + 3);  // data rate, number of independent substreams
  const uint32_t rateCode = bits.bits(2);
  bits.skip(5 + 1 + 1 + 3);  // bsid, reserved, asvc, bsmod
  const uint32_t acmod = bits.bits(3);
  const bool lfe = bits.flag();
  bits.skip(3);
  const uint32_t dependent = bits.bits(4);
  if (!bits.ok()) return true;
  // more channels are in dependent substreams: the record counts them
  const uint32_t counted = format->channelsPerFrame;
  setAC3(format, rateCode, acmod, lfe);
  if (dependent) format->channelsPerFrame = std::max(format->channelsPerFrame, counted);
  return true;
}

// --- 'alac': frame length (32), version (8), bit depth (8), three parameters, channels (8), longest run
// (16), largest frame (32), bit rate (32), sample rate (32)

bool readALAC(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  constexpr size_t kConfigurationBytes = 24;
  if (payload.u32() != 0) return false;
  take(cookie, payload);
  ByteReader reader(cookie->bytes, cookie->length);
  const uint32_t frames = reader.u32();
  reader.skip(1);
  const uint8_t depth = reader.u8();
  reader.skip(3);
  const uint8_t channels = reader.u8();
  reader.skip(2 + 4 + 4);
  const uint32_t rate = reader.u32();
  if (!reader.ok() || cookie->length != kConfigurationBytes) return true;
  format->framesPerPacket = frames;
  format->formatFlags = sourceBitsFlag(depth);
  if (channels) format->channelsPerFrame = channels;
  if (rate) format->sampleRate = rate;
  return true;
}

// --- 'dOps': version (8), channels (8), pre-skip (16), input rate (32), gain (16), mapping family (8) and,
// unless that is 0, stream count (8), coupled count (8) and a byte per channel. An OpusHead has the same,
// little-endian, behind its name and version 1.

constexpr char kOpusHead[] = "OpusHead";
constexpr size_t kOpusNameBytes = 8, kOpusFixedBytes = 11;

bool readDOPS(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  const size_t length = payload.remaining();
  if (length < kOpusFixedBytes || kOpusNameBytes + length > Cookie::kMostConverted || payload.u8() != 0)
    return false;
  ByteWriter writer(cookie->converted, sizeof cookie->converted);
  const uint8_t channels = payload.u8();
  writer.bytes(kOpusHead, kOpusNameBytes).u8(1).u8(channels);
  writer.u16(swapped(payload.u16())).u32(swapped(payload.u32())).u16(swapped(payload.u16()));
  const uint8_t family = payload.u8();
  const size_t mapping = payload.remaining();
  writer.u8(family).bytes(payload.take(mapping), mapping);
  if (mapping != (family == 0 ? 0 : size_t{channels} + 2)) return false;
  cookie->bytes = cookie->converted;
  cookie->length = writer.position();
  format->sampleRate = 48000;  // whatever the input's was
  if (channels) format->channelsPerFrame = channels;
  return true;
}

void writeDOPS(ByteWriter& writer, const uint8_t* cookie, size_t length) {
  ByteReader reader(cookie, length);
  reader.skip(kOpusNameBytes + 1);
  writer.u8(0).u8(reader.u8());
  writer.u16(swapped(reader.u16())).u32(swapped(reader.u32())).u16(swapped(reader.u16()));
  const size_t rest = reader.remaining();
  writer.bytes(reader.take(rest), rest);
}

// --- 'dfLa': version and flags, then metadata blocks (RFC 9639 8)

bool readDFLA(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  constexpr uint8_t kLastStreamInfo = 0x80;
  constexpr size_t kStreamInfoBytes = 34;
  if (payload.u32() != 0) return false;
  const uint8_t type = payload.u8();
  if ((type & 0x7F) != 0 || payload.u24() != kStreamInfoBytes) return false;
  take(cookie, payload.sub(kStreamInfoBytes));
  if (!payload.ok()) return false;
  BitReader bits(cookie->bytes, cookie->length);
  const uint32_t smallest = bits.bits(16), largest = bits.bits(16);
  bits.skip(24 + 24);  // frame sizes
  const uint32_t rate = bits.bits(20);
  format->channelsPerFrame = bits.bits(3) + 1;
  format->formatFlags = sourceBitsFlag(bits.bits(5) + 1);
  format->framesPerPacket = smallest == largest ? largest : 0;
  if (rate) format->sampleRate = rate;
  return type == kLastStreamInfo && payload.atEnd();
}

void writeDFLA(ByteWriter& writer, const uint8_t* cookie, size_t length) {
  writer.u32(0).u8(0x80).u24(static_cast<uint32_t>(length)).bytes(cookie, length);
}

// --- 'damr' (3GPP TS 26.244 6.7)

bool readDAMR(ByteReader payload, Cookie* cookie, AudioStreamBasicDescription* format) {
  take(cookie, payload);
  const bool wide = format->formatID == kAudioFormatAMR_WB;
  format->sampleRate = wide ? 16000 : 8000;
  return true;
}

constexpr PVFourCharCode kWAVEMP3 = 0x6D730055;  // 'ms' and the WAVE format number

// Of several data formats with one format ID the first is the one that is written.
constexpr Codec kCodecs[] = {
    {"mp4a"_4cc, kAudioFormatMPEG4AAC, "esds"_4cc, readESDS, writeFull, 1024, 0},
    {".mp3"_4cc, kAudioFormatMPEGLayer3, 0, nullptr, nullptr, 1152, 0},
    {kWAVEMP3, kAudioFormatMPEGLayer3, 0, nullptr, nullptr, 1152, 0},
    {"ac-3"_4cc, kAudioFormatAC3, "dac3"_4cc, readDAC3, writeWhole, 1536, 0},
    {"ec-3"_4cc, kAudioFormatEnhancedAC3, "dec3"_4cc, readDEC3, writeWhole, 1536, 0},
    {"alac"_4cc, kAudioFormatLossless, "alac"_4cc, readALAC, writeFull, 4096, 0},
    {"Opus"_4cc, kAudioFormatOpus, "dOps"_4cc, readDOPS, writeDOPS, 0, 0},
    {"fLaC"_4cc, kAudioFormatFLAC, "dfLa"_4cc, readDFLA, writeDFLA, 0, 0},
    {"samr"_4cc, kAudioFormatAMR, "damr"_4cc, readDAMR, writeWhole, 160, 0},
    {"sawb"_4cc, kAudioFormatAMR_WB, "damr"_4cc, readDAMR, writeWhole, 320, 0},
    {"ac-4"_4cc, "ac-4"_4cc, "dac4"_4cc, readWhole, writeWhole, 0, 0},
    {"dtsc"_4cc, "dtsc"_4cc, "ddts"_4cc, readWhole, writeWhole, 0, 0},
    {"dtse"_4cc, "dtse"_4cc, "ddts"_4cc, readWhole, writeWhole, 0, 0},
    {"dtsh"_4cc, "dtsh"_4cc, "ddts"_4cc, readWhole, writeWhole, 0, 0},
    {"dtsl"_4cc, "dtsl"_4cc, "ddts"_4cc, readWhole, writeWhole, 0, 0},
    {"mlpa"_4cc, "mlpa"_4cc, "dmlp"_4cc, readWhole, writeWhole, 0, 0},
    {"wma "_4cc, "wma "_4cc, "wfex"_4cc, readWhole, writeWhole, 0, 0},
    {"alaw"_4cc, kAudioFormatALaw, 0, nullptr, nullptr, 1, 1},
    {"ulaw"_4cc, kAudioFormatULaw, 0, nullptr, nullptr, 1, 1},
    {"ima4"_4cc, kAudioFormatIMA4, 0, nullptr, nullptr, 64, 34},
    {"MAC3"_4cc, kAudioFormatMACE3, 0, nullptr, nullptr, 6, 2},
    {"MAC6"_4cc, kAudioFormatMACE6, 0, nullptr, nullptr, 6, 1},
};

}  // namespace

const Codec* codecOfDataFormat(PVFourCharCode dataFormat) {
  const Codec* found = std::ranges::find(kCodecs, dataFormat, &Codec::dataFormat);
  return found == std::end(kCodecs) ? nullptr : found;
}

const Codec* codecOfFormat(AudioFormatID formatID) {
  if (isAAC(formatID) || formatID == "mp4a"_4cc) return &kCodecs[0];
  const Codec* found = std::ranges::find(kCodecs, formatID, &Codec::formatID);
  return found == std::end(kCodecs) ? nullptr : found;
}

bool isAMR(AudioFormatID formatID) { return formatID == kAudioFormatAMR || formatID == kAudioFormatAMR_WB; }

bool isAAC(AudioFormatID formatID) {
  return formatID == kAudioFormatMPEG4AAC || formatID == kAudioFormatMPEG4AAC_HE ||
         formatID == kAudioFormatMPEG4AAC_HE_V2 || formatID == kAudioFormatMPEG4AAC_LD ||
         formatID == kAudioFormatMPEG4AAC_ELD;
}

}  // namespace pv::sound
