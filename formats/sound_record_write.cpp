// Sound records, written.
#include <kiv/sample_description.h>
#include <pevrin/sound_description.h>

#include <bit>
#include <cmath>

#include "formats/extensions.hpp"
#include "formats/mpeg4_audio.hpp"
#include "formats/sound_record.hpp"
#include "runtime/four_char_code.hpp"
#include "runtime/twin.hpp"

using namespace pv::record;
using namespace pv::literals;
using namespace pv::sound;
namespace fields = pv::record::sound;

namespace {

constexpr uint16_t kVariablePackets = 0xFFFE;  // compression ID

// Everything that a record is made of.
struct Contents {
  AudioStreamBasicDescription format;
  const uint8_t* cookie;
  size_t cookieLength;
  const AudioChannelLayout* layout;
  size_t layoutSize;
  Flavor flavor;
  uint16_t version;
  PVFourCharCode dataFormat;
  bool littleEndian;  // PCM whose data format does not tell
  const Codec* codec;
  BRDictionaryRef extensions;
  BRDictionaryRef atoms;  // kept with their payload

  bool pcm() const { return format.formatID == kAudioFormatLinearPCM; }
  bool keeps(PVFourCharCode type) const {
    const auto key = copyCodeString(nullptr, type);
    return atoms && BRDictionaryContainsKey(atoms, key.get());
  }
};

// Whether 16.16 can say the rate.
bool fitsFixedPoint(double rate) {
  return rate >= 0 && rate < 65536 && rate * 65536 == std::floor(rate * 65536);
}

// A format ID that in versions 0 and 1 would name linear PCM: only version 2 keeps it.
bool isNamedLikePCM(const AudioStreamBasicDescription& format) {
  return format.formatID != kAudioFormatLinearPCM && isPCM(format.formatID);
}

uint16_t chooseVersion(const AudioStreamBasicDescription& format, Flavor flavor) {
  if (isISO(flavor)) return 0;
  const bool pcm = format.formatID == kAudioFormatLinearPCM;
  const bool wide = pcm && (format.bitsPerChannel > 16 || format.formatFlags & kAudioFormatFlagIsFloat);
  if (flavor == Flavor::kMovieV2 || format.channelsPerFrame > 2 || wide || isNamedLikePCM(format) ||
      !fitsFixedPoint(format.sampleRate))
    return 2;
  return pcm ? 0 : 1;
}

// Whether the fields of version 0, and 'srat' beside them, can say rate and channels.
bool fitsISO(const AudioStreamBasicDescription& format) {
  const double rate = format.sampleRate;
  return !isNamedLikePCM(format) && format.channelsPerFrame <= INT16_MAX &&
         (fitsFixedPoint(rate) || (rate >= 1 && rate <= UINT32_MAX));
}

// Names the data format. False when no record of the flavour can say it.
bool nameDataFormat(Contents& contents) {
  if (isISO(contents.flavor) && !fitsISO(contents.format)) return false;
  if (contents.pcm()) {
    PCMForm form = formOfPCM(contents.format, contents.flavor, contents.version);
    if (form.dataFormat == 0 && contents.flavor == Flavor::kMovie) {
      contents.version = 2;  // odd PCM: version 2 says all of it
      form = formOfPCM(contents.format, contents.flavor, contents.version);
    }
    contents.dataFormat = form.dataFormat;
    contents.littleEndian = form.littleEndian;
    return form.dataFormat != 0;
  }
  contents.codec = codecOfFormat(contents.format.formatID);
  contents.dataFormat = contents.codec ? contents.codec->dataFormat : contents.format.formatID;
  if (contents.format.formatID == kAudioFormatMPEGLayer3 && isISO(contents.flavor))
    contents.dataFormat = "mp4a"_4cc;
  return contents.cookie || !isAAC(contents.format.formatID);
}

// --- Fixed fields

void writeFixedFields(uint8_t* record, const Contents& contents) {
  const AudioStreamBasicDescription& format = contents.format;
  kDataFormat.write(record, contents.dataFormat);
  kDataReferenceIndex.write(record, 1);
  fields::kVersion.write(record, contents.version);
  uint16_t revision = 0;
  if (contents.extensions)
    pv::getInteger(contents.extensions, kPVFormatDescriptionExtension_RevisionLevel, &revision);
  fields::kRevisionLevel.write(record, revision);
  fields::kVendor.write(
      record,
      codeOf(BRDictionaryGetValue(contents.extensions, kPVFormatDescriptionExtension_Vendor)).value_or(0));
  if (contents.version == 2) {  // the fields of version 0 have fixed values
    fields::kChannels.write(record, 3);
    fields::kSampleSize.write(record, 16);
    fields::kCompressionID.write(record, kVariablePackets);
    fields::kSampleRate.write(record, 0x10000);
    fields::kStructureSize.write(record, fields::kFixedBytes[2]);
    fields::kAudioSampleRate.write(record, std::bit_cast<uint64_t>(double{format.sampleRate}));
    fields::kAudioChannels.write(record, format.channelsPerFrame);
    fields::kAlways7F000000.write(record, 0x7F000000);
    fields::kBitsPerChannel.write(record, format.bitsPerChannel);
    fields::kFormatFlags.write(record, format.formatFlags);
    fields::kBytesPerAudioPacket.write(record, format.bytesPerPacket);
    fields::kFramesPerAudioPacket.write(record, format.framesPerPacket);
    return;
  }
  // AMR has one channel, but two by the field (3GPP TS 26.244 6.5)
  const bool twoForOne = contents.version == 0 && isAMR(format.formatID);
  fields::kChannels.write(record, twoForOne ? 2 : static_cast<int16_t>(format.channelsPerFrame));
  fields::kSampleSize.write(record, contents.pcm() ? static_cast<uint16_t>(format.bitsPerChannel) : 16);
  if (fitsFixedPoint(format.sampleRate))
    fields::kSampleRate.write(record, static_cast<uint32_t>(format.sampleRate * 65536));
  if (contents.version != 1) return;
  if (format.bytesPerPacket == 0) fields::kCompressionID.write(record, kVariablePackets);
  const uint32_t channels = format.channelsPerFrame ? format.channelsPerFrame : 1;
  fields::kSamplesPerPacket.write(record, format.framesPerPacket);
  fields::kBytesPerPacket.write(record, format.bytesPerPacket / channels);
  fields::kBytesPerFrame.write(record, format.bytesPerPacket);
  fields::kBytesPerSample.write(record, 2);
}

// --- Atoms

void writeConfiguration(pv::ByteWriter& writer, const Contents& contents) {
  if (contents.cookie) {
    const size_t start = openAtom(writer, contents.codec->atom);
    contents.codec->write(writer, contents.cookie, contents.cookieLength);
    closeAtom(writer, start);
  } else if (contents.dataFormat == "mp4a"_4cc && contents.format.formatID == kAudioFormatMPEGLayer3) {
    const size_t start = openAtom(writer, "esds"_4cc);
    writer.u32(0);
    writeElementary(writer, contents.format.sampleRate < 32000 ? kObjectMPEG2Layer3 : kObjectMPEG1Audio);
    closeAtom(writer, start);
  }
}

// The movie's 'wave': the data format again, what the decoder needs, and an empty atom for the end.
void writeWave(pv::ByteWriter& writer, const Contents& contents) {
  const size_t start = openAtom(writer, "wave"_4cc);
  if (!contents.codec) {
    writer.bytes(contents.cookie, contents.cookieLength);
  } else {
    writer.u32(12).u32("frma"_4cc).u32(contents.dataFormat);
    if (contents.dataFormat == "mp4a"_4cc) writer.u32(12).u32("mp4a"_4cc).u32(0);
    writeConfiguration(writer, contents);
    writer.u32(8).u32(0);
  }
  closeAtom(writer, start);
}

void writeDecoderAtoms(pv::ByteWriter& writer, const Contents& contents) {
  const bool hasAtom = contents.codec && contents.codec->atom && !contents.keeps(contents.codec->atom);
  if (isISO(contents.flavor)) {
    if (hasAtom || (contents.codec && !contents.cookie)) writeConfiguration(writer, contents);
    if (!contents.codec && contents.cookie && !contents.keeps("wave"_4cc)) writeWave(writer, contents);
    if (contents.pcm()) {
      writer.u32(14).u32("pcmC"_4cc).u32(0).u8(contents.littleEndian);
      writer.u8(static_cast<uint8_t>(contents.format.bitsPerChannel));
    }
    if (!fitsFixedPoint(contents.format.sampleRate)) {
      writer.u32(16).u32("srat"_4cc).u32(0);
      writer.u32(static_cast<uint32_t>(contents.format.sampleRate));
    }
  } else if (contents.cookie && !contents.keeps("wave"_4cc) && (hasAtom || !contents.codec)) {
    writeWave(writer, contents);
  }
}

void writeLayout(pv::ByteWriter& writer, const Contents& contents) {
  if (!contents.layout || contents.layoutSize < sizeof(AudioChannelLayout)) return;
  const bool described = contents.layout->channelLayoutTag == kAudioChannelLayoutTag_UseChannelDescriptions;
  const bool counted =
      !described || contents.layout->numberChannelDescriptions == contents.format.channelsPerFrame;
  const bool chnl = isISO(contents.flavor) && counted && canWriteChnl(contents.layout, contents.layoutSize);
  const size_t start = openAtom(writer, chnl ? "chnl"_4cc : "chan"_4cc);
  (chnl ? writeChnl : writeChan)(writer, contents.layout, contents.layoutSize);
  closeAtom(writer, start);
}

// --- The record that a description remembers

bool saysTheSame(BRDataRef record, const Contents& contents) {
  SoundRecord sound;
  const uint8_t* bytes = BRDataGetBytePtr(record);
  if (readSound(bytes, BRDataGetLength(record), contents.flavor, &sound, nullptr) != 0) return false;
  if (contents.flavor == Flavor::kMovieV2 && sound.version != 2) return false;
  const size_t layoutSize = sound.hasLayout ? sound.layout.size() : 0;
  return std::memcmp(&sound.format, &contents.format, sizeof sound.format) == 0 &&
         sound.cookie.length == contents.cookieLength && layoutSize == contents.layoutSize &&
         (!contents.cookieLength ||
          std::memcmp(sound.cookie.bytes, contents.cookie, contents.cookieLength) == 0) &&
         (!layoutSize || std::memcmp(sound.layout.layout(), contents.layout, layoutSize) == 0);
}

BRDataRef usableVerbatim(PVFormatDescriptionRef description, const Contents& contents) {
  BRDataRef record = verbatimOf(description, isISO(contents.flavor)
                                                 ? kPVFormatDescriptionExtension_VerbatimISOSampleEntry
                                                 : kPVFormatDescriptionExtension_VerbatimSampleDescription);
  return record && saysTheSame(record, contents) ? record : nullptr;
}

}  // namespace

PVStatus PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor,
    PVBlockBufferRef* recordOut) {
  if (recordOut) *recordOut = nullptr;
  if (!recordOut || PVFormatDescriptionGetMediaType(description) != kPVMediaType_Audio)
    return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Contents contents{};
  if (!parseFlavor(flavor, &contents.flavor)) return pv::signalError(kPVSampleDescriptionError_Unsupported);
  const auto* format = PVAudioFormatDescriptionGetStreamBasicDescription(description);
  if (!format) return kPVSampleDescriptionError_InvalidParameter;  // signalled
  contents.format = *format;
  contents.cookie = static_cast<const uint8_t*>(
      PVAudioFormatDescriptionGetMagicCookie(description, &contents.cookieLength));
  contents.layout = PVAudioFormatDescriptionGetChannelLayout(description, &contents.layoutSize);
  contents.extensions = PVFormatDescriptionGetExtensions(description);
  contents.atoms = extensionAtomsOf(description);
  if (BRDataRef verbatim = usableVerbatim(description, contents))
    return writeCopy(allocator, BRDataGetBytePtr(verbatim), BRDataGetLength(verbatim), recordOut);

  contents.version = chooseVersion(contents.format, contents.flavor);
  if (!nameDataFormat(contents)) return pv::signalError(kPVSampleDescriptionError_Unsupported);
  uint8_t fixed[fields::kFixedBytes[2]] = {};
  writeFixedFields(fixed, contents);
  return writeRecord(allocator, recordOut, [&](pv::ByteWriter& writer) {
    writer.bytes(fixed, fields::kFixedBytes[contents.version]);
    writeDecoderAtoms(writer, contents);
    writeLayout(writer, contents);
    writeAtoms(writer, contents.atoms);
  });
}
PV_TWIN(KivAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer,
        PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer)
