// Sound records, read. The fixed fields come first; the atoms behind them may know better.
#include <kiv/sample_description.h>
#include <pevrin/sound_description.h>

#include <bit>

#include "formats/extensions.hpp"
#include "formats/sound_record.hpp"
#include "runtime/four_char_code.hpp"
#include "runtime/twin.hpp"

using namespace pv::record;
using namespace pv::literals;
namespace fields = pv::record::sound;

namespace pv::sound {

namespace {

// compression IDs that say that packets vary
bool saysVariable(uint16_t compressionID) { return compressionID == 0xFFFE || compressionID == 0xFEFF; }

// One record's atoms on their way into what the record says.
class AtomReader {
 public:
  AtomReader(PVFourCharCode dataFormat, SoundRecord* out, AtomCollector* kept)
      : dataFormat_(dataFormat), out_(out), kept_(kept), codec_(codecOfDataFormat(dataFormat)) {}

  // A status is signalled.
  PVStatus read(ByteReader atoms) {
    ExtensionAtom atom;
    for (AtomStep step; (step = nextAtom(atoms, &atom)) != AtomStep::kEnd;) {
      if (step == AtomStep::kMalformed) return signalError(kPVSampleDescriptionError_MalformedRecord);
      if (!take(atom) && kept_ && !kept_->add(atom))
        return signalError(kPVSampleDescriptionError_AllocationFailed);
    }
    return 0;
  }

  bool littleEndian() const { return littleEndian_; }
  uint32_t sampleBits() const { return sampleBits_; }  // of 'pcmC'; 0 without

 private:
  // False when the atom's payload is to be kept.
  bool take(const ExtensionAtom& atom) {
    const ByteReader payload(atom.payload, atom.length);
    switch (atom.type) {
      case "wave"_4cc:
        return takeWave(atom);
      case "chan"_4cc:
        return !out_->hasLayout && (out_->hasLayout = readChan(payload, &out_->layout));
      case "chnl"_4cc:
        return !out_->hasLayout &&
               (out_->hasLayout = readChnl(payload, out_->format.channelsPerFrame, &out_->layout));
      case "srat"_4cc:
        return takeSampleRate(payload);
      case "pcmC"_4cc:
        return takePCMConfiguration(payload);
      default:
        return takeInWave(atom);
    }
  }
  // Atoms that stand in a movie's 'wave', and in ISO files directly in the record.
  bool takeInWave(const ExtensionAtom& atom) {
    ByteReader payload(atom.payload, atom.length);
    if (atom.type == "enda"_4cc && isPCM(dataFormat_)) {
      const uint16_t little = payload.u16();
      littleEndian_ = little == 1;
      return little <= 1 && payload.ok() && payload.atEnd();
    }
    if (!codec_ || !codec_->read || codec_->atom != atom.type || out_->cookie.bytes) return false;
    return codec_->read(payload, &out_->cookie, &out_->format);
  }
  bool takeWave(const ExtensionAtom& wave) {
    if (!codec_ && !isPCM(dataFormat_)) {
      // nobody here knows what is inside: that is for the decoder
      out_->cookie.bytes = wave.payload;
      out_->cookie.length = wave.length;
      return true;
    }
    ByteReader children(wave.payload, wave.length);
    ExtensionAtom atom;
    bool known = true;
    AtomStep step;
    while ((step = nextAtom(children, &atom)) == AtomStep::kAtom) {
      const bool frame = atom.type == 0 || atom.type == "frma"_4cc || atom.type == "mp4a"_4cc;
      // 'mp4a' inside is an empty one, and 'frma' repeats the data format
      known = (frame || takeInWave(atom)) && known;
    }
    return known && step == AtomStep::kEnd;
  }
  bool takeSampleRate(ByteReader payload) {
    const uint32_t flags = payload.u32(), rate = payload.u32();
    if (flags != 0 || rate == 0 || !payload.ok() || !payload.atEnd()) return false;
    out_->format.sampleRate = rate;
    return true;
  }
  // ISO/IEC 23003-5
  bool takePCMConfiguration(ByteReader payload) {
    const uint32_t flags = payload.u32();
    const uint8_t order = payload.u8(), bits = payload.u8();
    if (!isPCM(dataFormat_) || flags != 0 || order > 1 || !payload.ok() || !payload.atEnd()) return false;
    littleEndian_ = order == 1;
    sampleBits_ = bits;
    return true;
  }

  PVFourCharCode dataFormat_;
  SoundRecord* out_;
  AtomCollector* kept_;
  const Codec* codec_;
  bool littleEndian_ = false;
  uint32_t sampleBits_ = 0;
};

// Whether atoms fill the bytes exactly.
bool areAtoms(ByteReader reader) {
  ExtensionAtom atom;
  AtomStep step;
  do step = nextAtom(reader, &atom);
  while (step == AtomStep::kAtom);
  return step == AtomStep::kEnd && reader.remaining() == 0;
}

void readVersion2(const uint8_t* bytes, AudioStreamBasicDescription& format) {
  format.sampleRate = std::bit_cast<double>(fields::kAudioSampleRate.read(bytes));
  format.channelsPerFrame = fields::kAudioChannels.read(bytes);
  format.bitsPerChannel = fields::kBitsPerChannel.read(bytes);
  format.formatFlags = fields::kFormatFlags.read(bytes);
  format.bytesPerPacket = fields::kBytesPerAudioPacket.read(bytes);
  format.framesPerPacket = fields::kFramesPerAudioPacket.read(bytes);
  if (format.formatID != kAudioFormatLinearPCM) return;
  uint32_t flags = format.formatFlags;
  if (flags & kAudioFormatFlagIsPacked) flags &= ~uint32_t{kAudioFormatFlagIsAlignedHigh};
  if (flags & kAudioFormatFlagIsFloat) flags &= ~uint32_t{kAudioFormatFlagIsSignedInteger};
  format.formatFlags = flags & ~uint32_t{kAudioFormatFlagIsNonMixable};
  format.bytesPerFrame = format.bytesPerPacket;
}

// What the fields of versions 0 and 1 say of a compressed format. True when they say it themselves and the
// cookie has only the format ID to add.
bool readCompressed(const uint8_t* bytes, uint16_t version, AudioStreamBasicDescription& format) {
  if (isAMR(format.formatID)) format.channelsPerFrame = 1;  // whatever the field says: files have 2 there
  if (const Codec* codec = codecOfDataFormat(kDataFormat.read(bytes))) {
    format.framesPerPacket = codec->framesPerPacket;
    format.bytesPerPacket = codec->bytesPerPacketAndChannel * format.channelsPerFrame;
    // half as many where the standard of lower sample rates says so
    if (format.formatID == kAudioFormatMPEGLayer3 && format.sampleRate < 32000) format.framesPerPacket /= 2;
  }
  if (version != 1 || fields::kSamplesPerPacket.read(bytes) == 0) return false;
  format.framesPerPacket = fields::kSamplesPerPacket.read(bytes);
  format.bytesPerPacket =
      saysVariable(fields::kCompressionID.read(bytes)) ? 0 : fields::kBytesPerFrame.read(bytes);
  return true;
}

}  // namespace

PVStatus readSound(const uint8_t* bytes, size_t size, Flavor flavor, SoundRecord* out, AtomCollector* kept) {
  const size_t length = size >= fields::kFixedBytes[0] ? kSize.read(bytes) : 0;
  if (length < fields::kFixedBytes[0] || length > size)
    return signalError(kPVSampleDescriptionError_MalformedRecord);
  uint16_t version = fields::kVersion.read(bytes);
  size_t start = fields::kFixedBytes[0];
  if (version == 1 && isISO(flavor) && areAtoms(ByteReader(bytes + start, length - start))) version = 0;
  if (version >= fields::kFixedBytes.size() || length < fields::kFixedBytes[version])
    return signalError(kPVSampleDescriptionError_MalformedRecord);
  start = fields::kFixedBytes[version];
  if (version == 2) {  // the structure may have grown
    const uint32_t declared = fields::kStructureSize.read(bytes);
    if (declared > start && declared <= length) start = declared;
  }

  const PVFourCharCode dataFormat = kDataFormat.read(bytes);
  const bool pcm = isPCM(dataFormat) && version != 2;
  AudioStreamBasicDescription& format = out->format;
  const Codec* codec = codecOfDataFormat(dataFormat);
  // the format of 'mp4a' is for its 'esds' to tell
  format.formatID = codec && dataFormat != "mp4a"_4cc ? codec->formatID : dataFormat;
  format.sampleRate = fields::kSampleRate.read(bytes) / 65536.0;
  const int16_t channels = fields::kChannels.read(bytes);
  format.channelsPerFrame = channels < 0 ? 0 : static_cast<uint32_t>(channels);
  out->version = version;
  bool saysItself = version == 2;
  if (version == 2)
    readVersion2(bytes, format);
  else if (!pcm)
    saysItself = readCompressed(bytes, version, format);

  const AudioStreamBasicDescription told = format;
  AtomReader atoms(dataFormat, out, kept);
  if (PVStatus status = atoms.read(ByteReader(bytes + start, length - start))) return status;
  if (pcm) {
    const uint32_t bits = atoms.sampleBits() ? atoms.sampleBits() : fields::kSampleSize.read(bytes);
    return setPCM(dataFormat, bits, atoms.littleEndian(), &format)
               ? 0
               : signalError(kPVSampleDescriptionError_MalformedRecord);
  }
  if (saysItself) {
    const AudioStreamBasicDescription inCookie = format;
    format = told;
    format.formatID = inCookie.formatID;
    if (version != 2) format.formatFlags = inCookie.formatFlags;
  }
  return 0;
}

}  // namespace pv::sound

namespace {

using pv::sound::SoundRecord;

BRStringRef verbatimKey(Flavor flavor) {
  return isISO(flavor) ? kPVFormatDescriptionExtension_VerbatimISOSampleEntry
                       : kPVFormatDescriptionExtension_VerbatimSampleDescription;
}

}  // namespace

PVStatus PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData(
    BRAllocatorRef allocator, const uint8_t* bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!bytes || !descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  Flavor parsed;
  if (!parseFlavor(flavor, &parsed)) return pv::signalError(kPVSampleDescriptionError_Unsupported);
  SoundRecord sound;
  AtomCollector kept(allocator);
  if (PVStatus status = pv::sound::readSound(bytes, size, parsed, &sound, &kept)) return status;

  pv::DictionaryBuilder extensions(allocator);
  if (const uint16_t revision = fields::kRevisionLevel.read(bytes))
    extensions.setInteger(kPVFormatDescriptionExtension_RevisionLevel, revision);
  if (fields::kVendor.read(bytes) != 0)
    extensions.setText(kPVFormatDescriptionExtension_Vendor, bytes + fields::kVendor.offset, 4);
  if (kept.atoms())
    extensions.set(kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms, kept.atoms());
  extensions.setData(verbatimKey(parsed), bytes, kSize.read(bytes));
  if (!extensions.ok()) return pv::signalError(kPVSampleDescriptionError_AllocationFailed);
  return PVAudioFormatDescriptionCreate(allocator, &sound.format, sound.hasLayout ? sound.layout.size() : 0,
                                        sound.hasLayout ? sound.layout.layout() : nullptr,
                                        sound.cookie.length, sound.cookie.bytes, extensions.get(),
                                        descriptionOut);
}
PV_TWIN(KivAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData,
        PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData)

PVStatus PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor,
    PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (!descriptionOut) return pv::signalError(kPVSampleDescriptionError_InvalidParameter);
  ContiguousBytes bytes;
  if (PVStatus status = bytes.open(record)) return status;
  return PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData(
      allocator, bytes.bytes(), bytes.size(), flavor, descriptionOut);
}
PV_TWIN(KivAudioFormatDescriptionCreateFromBigEndianSoundDescriptionBlockBuffer,
        PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionBlockBuffer)

bool PVDoesBigEndianSoundDescriptionRequireLegacyCBRSampleTableLayout(PVBlockBufferRef record,
                                                                      BRStringRef flavor) {
  Flavor parsed;
  uint8_t bytes[fields::kFixedBytes[0]];
  if (!record || !parseFlavor(flavor, &parsed) || isISO(parsed) ||
      PVBlockBufferGetDataLength(record) < sizeof bytes ||
      PVBlockBufferCopyDataBytes(record, 0, sizeof bytes, bytes) != 0)
    return false;
  const uint16_t version = fields::kVersion.read(bytes);
  if (version == 1) return !pv::sound::saysVariable(fields::kCompressionID.read(bytes));
  const PVFourCharCode dataFormat = kDataFormat.read(bytes);
  const pv::sound::Codec* codec = pv::sound::codecOfDataFormat(dataFormat);
  return version == 0 && (pv::sound::isPCM(dataFormat) || (codec && codec->bytesPerPacketAndChannel));
}
