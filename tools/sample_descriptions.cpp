#include "sample_descriptions.hpp"

#include <fmt/format.h>
#include <pevrin/block_buffer.h>
#include <pevrin/closed_caption_description.h>
#include <pevrin/image_description.h>
#include <pevrin/sound_description.h>
#include <pevrin/text_description.h>
#include <pevrin/timecode_format_description.h>

#include <algorithm>
#include <array>

#include "atom_type.hpp"

namespace {

using Bytes = std::span<const uint8_t>;

// How the entries of a kind of track are read and written.
struct Kind {
  PVFourCharCode handler;
  decltype(&PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData) read;
  decltype(&PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer) write;
};
constexpr auto readText = PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData;
constexpr auto writeText = PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer;
constexpr Kind kKinds[] = {
    {fourCC("vide"), PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData,
     PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer},
    {fourCC("soun"), PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData,
     PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer},
    {fourCC("text"), readText, writeText},
    {fourCC("sbtl"), readText, writeText},
    {fourCC("subt"), readText, writeText},
    {fourCC("clcp"), PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData,
     PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer},
    {fourCC("tmcd"), PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData,
     PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer},
};

std::optional<Fault> readBytes(KivByteStreamRef file, int64_t offset, std::vector<uint8_t>& bytes) {
  size_t count = 0;
  const PVStatus status = KivByteStreamRead(file, offset, bytes.size(), bytes.data(), &count);
  if (status == kPVStatus_Success && count == bytes.size()) return std::nullopt;
  return Fault{status ? status : kKivAtomStreamError_ShortRead, "this sample entry could not be read"};
}

std::string reasonText(PVStatus status, PVFourCharCode format) {
  switch (status) {
    case kPVSampleDescriptionError_AllocationFailed:
    case kPVFormatDescriptionError_AllocationFailed:
      return "memory ran out";
    case kPVSampleDescriptionError_Unsupported:
      return fmt::format("sample entries '{}' are not known in such a track", typeText(format));
    case kPVSampleDescriptionError_MalformedRecord:
      return "this sample entry contradicts itself: its fields or an atom in it do not fit";
    case kPVSampleDescriptionError_InvalidParameter:
      return "this sample entry is too short, or not of the track's kind";
    default:
      return "this sample entry describes nothing that can be: a field that may not be 0 is";
  }
}

// Writes the description again; damage is at the first byte that the two do not share.
std::optional<Damage> compareWritten(const Kind& kind, PVFormatDescriptionRef description, BRStringRef flavor,
                                     Bytes entry, const std::string& path, int64_t offset) {
  br::Ref<PVBlockBuffer> record;
  char* start = nullptr;
  size_t length = 0;
  PVStatus status = kind.write(nullptr, description, flavor, record.out());
  if (status == kPVStatus_Success)
    status = PVBlockBufferGetDataPointer(record.get(), 0, nullptr, &length, &start);
  if (status != kPVStatus_Success)
    return Damage{path, offset, status, "this sample entry cannot be written again"};
  const Bytes written(reinterpret_cast<const uint8_t*>(start), length);
  const auto at = std::ranges::mismatch(entry, written).in1 - entry.begin();
  if (written.size() == entry.size() && at == std::ssize(entry)) return std::nullopt;
  return Damage{path, offset + at, kPVSampleDescriptionError_Unsupported,
                fmt::format("written again, this sample entry of {} bytes has {} and differs from byte {} on",
                            entry.size(), written.size(), at)};
}

bool isSampleEntry(std::span<const PVFourCharCode> types) {
  constexpr std::array kPlace = {fourCC("moov"), fourCC("trak"), fourCC("mdia"),
                                 fourCC("minf"), fourCC("stbl"), fourCC("stsd")};
  return types.size() == kPlace.size() + 1 && std::ranges::equal(types.first(kPlace.size()), kPlace);
}

}  // namespace

bool writeSampleEntry(PVFourCharCode handler, PVFormatDescriptionRef description, BRStringRef flavor,
                      br::Ref<PVBlockBuffer>& entryOut) {
  const auto kind = std::ranges::find(kKinds, handler, &Kind::handler);
  return kind != std::end(kKinds) &&
         kind->write(nullptr, description, flavor, entryOut.out()) == kPVStatus_Success;
}

void SampleDescriptions::noteAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk,
                                  size_t trackCount) {
  if (!stream) return;
  const std::span<const PVFourCharCode> types = walk.types();
  if (types.size() == 1 && atom.type == fourCC("ftyp") && brand_ == 0) {
    std::array<uint8_t, 4> brand{};
    if (KivAtomStreamReadCurrentAtomData(stream, 0, brand.size(), brand.data()) == kPVStatus_Success)
      for (const uint8_t byte : brand) brand_ = brand_ << 8 | byte;
  }
  if (atom.type == fourCC("stsd")) number_ = 0;
  if (more_ || !isSampleEntry(types)) return;
  ++number_;
  bytes_ += atom.size;  // which is part of the file: no sum overflows
  if (entries_.size() < kMostEntries && bytes_ <= kMostBytes) {
    entries_.push_back({trackCount - 1, number_, atom.type, atom.offset, atom.size, walk.path()});
    return;
  }
  more_ = Damage{
      walk.path(), atom.offset, kPVSampleDescriptionError_Unsupported,
      fmt::format("sample entries from here on are not looked into: the first {}, of up to {} bytes, are",
                  kMostEntries, kMostBytes)};
}

void SampleDescriptions::read(KivByteStreamRef file, std::span<const TrackFacts> tracks, bool verify,
                              std::vector<Damage>& damages) {
  std::vector<int64_t> named;
  for (const Damage& damage : damages) named.push_back(damage.offset);
  std::ranges::sort(named);
  for (const Entry& entry : entries_) {
    if (std::ranges::binary_search(named, entry.offset)) continue;
    if (auto damage = readEntry(file, entry, tracks[entry.track].handler.value_or(0), verify))
      damages.push_back(std::move(*damage));
  }
  if (more_) damages.push_back(std::move(*more_));
  entries_.clear();
}

std::optional<Damage> SampleDescriptions::readEntry(KivByteStreamRef file, const Entry& entry,
                                                    PVMediaType handler, bool verify) {
  br::Ref<PVFormatDescription> description;
  const auto kind = std::ranges::find(kKinds, handler, &Kind::handler);
  std::vector<uint8_t> bytes;
  PVStatus status;
  if (kind == std::end(kKinds)) {
    if (handler == 0)
      return Damage{entry.path, entry.offset, kPVFormatDescriptionError_InvalidParameter,
                    "what this sample entry is cannot be told: its track has no handler"};
    status = PVFormatDescriptionCreate(nullptr, handler, entry.format, nullptr, description.out());
  } else {
    bytes.resize(static_cast<size_t>(entry.size));
    if (auto fault = readBytes(file, entry.offset, bytes))
      return Damage{entry.path, entry.offset, fault->status, std::move(fault->message)};
    status = kind->read(nullptr, bytes.data(), bytes.size(), flavor(), description.out());
  }
  if (status != kPVStatus_Success)
    return Damage{entry.path, entry.offset, status, reasonText(status, entry.format)};
  std::optional<Damage> damage;
  if (verify && kind != std::end(kKinds))
    damage = compareWritten(*kind, description.get(), flavor(), bytes, entry.path, entry.offset);
  descriptions_.push_back({entry.track, entry.number, entry.format, std::move(description)});
  return damage;
}

BRStringRef SampleDescriptions::flavor() const {
  if (brand_ == 0 || brand_ == fourCC("qt  ")) return kPVImageDescriptionFlavor_TavloMovie;
  const bool is3GP = brand_ >> 16 == ('3' << 8 | 'g');
  return is3GP ? kPVImageDescriptionFlavor_3GPFamily : kPVImageDescriptionFlavor_ISOFamily;
}

std::span<const SampleDescription> SampleDescriptions::ofTrack(size_t track) const {
  const auto first = std::ranges::lower_bound(descriptions_, track, {}, &SampleDescription::track);
  const auto last = std::ranges::upper_bound(descriptions_, track, {}, &SampleDescription::track);
  return {first, last};
}
