#include "metadata_items.hpp"

#include <fmt/format.h>
#include <pevrin/metadata.h>
#include <pevrin/metadata_data_type.h>

#include <algorithm>
#include <array>
#include <bedra/literal.hpp>

#include "atom_type.hpp"
#include "id3_tag.hpp"

using namespace br::literals;

namespace {

// Of an item that are not its value.
constexpr size_t kMostFieldBytes = 8;

using Bytes = std::span<const uint8_t>;

uint32_t number(Bytes bytes, size_t at, size_t length) {
  uint32_t value = 0;
  for (size_t i = 0; i < length; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// Texts of ISO and 3GPP files: a language behind version and flags, then the text.
constexpr std::array kAssetTexts = {fourCC("titl"), fourCC("dscp"), fourCC("cprt"), fourCC("perf"),
                                    fourCC("auth"), fourCC("gnre"), fourCC("albm")};
constexpr PVFourCharCode kLocation = 0xA978797A;  // the copyright sign, then "xyz"

// The types of values in an 'ilst', by number.
struct WellKnownType {
  uint32_t number;
  const BRStringRef* dataType;
};
constexpr WellKnownType kWellKnownTypes[] = {
    {1, &kPVMetadataBaseDataType_UTF8},
    {2, &kPVMetadataBaseDataType_UTF16},
    {4, &kUTF8SortDataType},
    {5, &kUTF16SortDataType},
    {12, &kPVMetadataBaseDataType_GIF},
    {13, &kPVMetadataBaseDataType_JPEG},
    {14, &kPVMetadataBaseDataType_PNG},
    {23, &kPVMetadataBaseDataType_Float32},
    {24, &kPVMetadataBaseDataType_Float64},
    {27, &kPVMetadataBaseDataType_BMP},
    {65, &kPVMetadataBaseDataType_SInt8},
    {66, &kPVMetadataBaseDataType_SInt16},
    {67, &kPVMetadataBaseDataType_SInt32},
    {70, &kPVMetadataBaseDataType_PointF32},
    {71, &kPVMetadataBaseDataType_DimensionsF32},
    {72, &kPVMetadataBaseDataType_RectF32},
    {74, &kPVMetadataBaseDataType_SInt64},
    {75, &kPVMetadataBaseDataType_UInt8},
    {76, &kPVMetadataBaseDataType_UInt16},
    {77, &kPVMetadataBaseDataType_UInt32},
    {78, &kPVMetadataBaseDataType_UInt64},
    {79, &kPVMetadataBaseDataType_AffineTransformF64},
};

// Types 21 and 22 are integers as long as the value is.
BRStringRef integerType(bool isSigned, uint64_t length) {
  switch (length) {
    case 1:
      return isSigned ? kPVMetadataBaseDataType_SInt8 : kPVMetadataBaseDataType_UInt8;
    case 2:
      return isSigned ? kPVMetadataBaseDataType_SInt16 : kPVMetadataBaseDataType_UInt16;
    case 4:
      return isSigned ? kPVMetadataBaseDataType_SInt32 : kPVMetadataBaseDataType_UInt32;
    case 8:
      return isSigned ? kPVMetadataBaseDataType_SInt64 : kPVMetadataBaseDataType_UInt64;
    default:
      return kPVMetadataBaseDataType_RawData;
  }
}

BRStringRef dataTypeOf(uint32_t type, uint64_t length) {
  if (type == 21 || type == 22) return integerType(type == 21, length);
  const auto found = std::ranges::find(kWellKnownTypes, type, &WellKnownType::number);
  return found == std::end(kWellKnownTypes) ? kPVMetadataBaseDataType_RawData : *found->dataType;
}

}  // namespace

MetadataItems::Note MetadataItems::noteOf(const Atom& atom, PVFourCharCode parent,
                                          PVFourCharCode grandparent) {
  if (parent == 0 && atom.type == fourCC("ftyp")) return &MetadataItems::noteBrand;
  if (parent == fourCC("udta") && !atom.container) return &MetadataItems::noteUserData;
  if (parent == fourCC("meta") && atom.type == fourCC("hdlr")) return &MetadataItems::noteHandler;
  if (parent == fourCC("meta") && atom.type == fourCC("keys")) return &MetadataItems::noteKeys;
  if (parent == fourCC("meta") && atom.type == fourCC("ID32")) return &MetadataItems::noteTag;
  if (grandparent != fourCC("ilst")) return nullptr;
  return atom.type == fourCC("data") ? &MetadataItems::noteData : &MetadataItems::notePartOfItem;
}

void MetadataItems::noteAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk, size_t trackCount,
                             std::vector<Damage>& damages) {
  const auto& types = walk.types();
  const auto above = [&](size_t levels) {
    return types.size() > levels ? types[types.size() - 1 - levels] : 0;
  };
  if (atom.type == fourCC("meta")) beginMeta();
  if (above(1) == fourCC("ilst")) beginItem(atom.type);
  const Note note = noteOf(atom, above(1), above(2));
  if (!note || !stream) return;

  int64_t length = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &length);
  const size_t most = note == &MetadataItems::noteData ? kMostValueBytes + kMostFieldBytes : kMostBytes;
  Place place{atom, walk, std::vector<uint8_t>(std::min(static_cast<size_t>(length), most)),
              static_cast<uint64_t>(length)};
  damages_ = &damages;
  const bool isInTrack = types.size() > 1 && types[1] == fourCC("trak") && trackCount > 0;
  track_ = isInTrack ? std::optional(trackCount - 1) : std::nullopt;
  if (!place.data.empty() &&
      KivAtomStreamReadCurrentAtomData(stream, 0, place.data.size(), place.data.data()) != kPVStatus_Success)
    return fail(place, "its data could not be read");
  (this->*note)(place);
}

void MetadataItems::noteBrand(const Place& place) {
  if (place.data.size() >= 4) brand_ = number(place.data, 0, 4);
}

void MetadataItems::noteHandler(const Place& place) {
  if (place.data.size() >= 12) handler_ = number(place.data, 8, 4);
}

void MetadataItems::beginMeta() {
  handler_ = 0;
  keys_.clear();
}

void MetadataItems::noteUserData(const Place& place) {
  const PVFourCharCode type = place.atom.type;
  if (type >> 24 == 0xA9) return noteInternationalText(place);
  if (noteAssetText(place)) return;
  // The name of a track stands there as it is.
  if (type == fourCC("name"))
    if (const auto text = utf8OrMarked(place.data); text && !text->empty())
      return add(identifierOf(kPVMetadataKeySpace_TavloUserData, type), kPVMetadataBaseDataType_UTF8, *text);
  const bool isISO = brand_ != 0 && brand_ != fourCC("qt  ");
  add(identifierOf(isISO ? kPVMetadataKeySpace_ISOUserData : kPVMetadataKeySpace_TavloUserData, type),
      kPVMetadataBaseDataType_RawData, place.data, place.length);
}

// Texts with a length and a language each, one behind the other. Languages below 0x400, and that which is not
// specified, are numbers of the older system, whose texts are in its own encodings; of these Western Roman is
// the one of most languages.
void MetadataItems::noteInternationalText(const Place& place) {
  constexpr uint32_t kFirstPackedLanguage = 0x400, kUnspecifiedLanguage = 0x7FFF;
  BRStringRef dataType =
      place.atom.type == kLocation ? "xq.tavlo.location.ISO6709"_br : kPVMetadataBaseDataType_UTF8;
  const std::string identifier = identifierOf(kPVMetadataKeySpace_TavloUserData, place.atom.type);
  Bytes rest = place.data;
  while (rest.size() >= 4) {
    const size_t length = number(rest, 0, 2);
    const uint32_t language = number(rest, 2, 2);
    const bool isPacked = language >= kFirstPackedLanguage && language != kUnspecifiedLanguage;
    rest = rest.subspan(4);
    if (length > rest.size()) return fail(place, "a text in it is longer than the atom");
    const Bytes bytes = rest.first(length);
    const auto text = isPacked ? utf8OrMarked(bytes) : utf8Of(bytes, kBRStringEncodingWesternRoman);
    if (text)
      add(identifier, dataType, *text);
    else
      add(identifier, kPVMetadataBaseDataType_RawData, bytes, length);
    rest = rest.subspan(length);
  }
}

bool MetadataItems::noteAssetText(const Place& place) {
  constexpr size_t kTextAt = 6;
  const std::string identifier = identifierOf(kPVMetadataKeySpace_ISOUserData, place.atom.type);
  if (place.data.size() < kTextAt || number(place.data, 0, 4) != 0) return false;
  if (place.atom.type == fourCC("yrrc") && place.length == kTextAt) {
    add(identifier, kPVMetadataBaseDataType_UInt16, Bytes(place.data).subspan(4), 2);
    return true;
  }
  if (!std::ranges::count(kAssetTexts, place.atom.type)) return false;
  const Bytes bytes = Bytes(place.data).subspan(kTextAt);
  auto text = utf8OrMarked(bytes);
  // An album's number may stand behind the text.
  if (!text && !bytes.empty()) text = utf8OrMarked(bytes.first(bytes.size() - 1));
  if (!text) return false;
  add(identifier, kPVMetadataBaseDataType_UTF8, std::string_view(*text).substr(0, text->find('\0')));
  return true;
}

void MetadataItems::noteKeys(const Place& place) {
  if (place.data.size() < 8) return fail(place, "it is too short for a list of keys");
  Bytes rest = Bytes(place.data).subspan(8);
  for (uint32_t count = number(place.data, 4, 4); count > 0; --count) {
    const size_t size = rest.size() < 8 ? 0 : number(rest, 0, 4);
    if (size < 8 || size > rest.size())
      return fail(place, fmt::format("{} of its keys are not there", count));
    const std::string_view name(reinterpret_cast<const char*>(rest.data()) + 8, size - 8);
    keys_.push_back(name.size() <= kMostNameBytes ? identifierOf(number(rest, 4, 4), name) : "");
    rest = rest.subspan(size);
  }
}

// Under the handler 'mdta' an item's type is the number of its key, from 1.
void MetadataItems::beginItem(PVFourCharCode key) {
  name_.clear();
  if (handler_ != fourCC("mdta")) {
    identifier_ = identifierOf(kPVMetadataKeySpace_Lutara, key);
    return;
  }
  identifier_ = key >= 1 && key <= keys_.size() ? keys_[key - 1] : "";
}

// Of items of type '----', which are told apart by them.
void MetadataItems::notePartOfItem(const Place& place) {
  if (place.atom.type != fourCC("mean") && place.atom.type != fourCC("name")) return;
  if (place.data.size() < 4) return fail(place, "it is too short for version and flags");
  const auto text = utf8Of(Bytes(place.data).subspan(4), kBRStringEncodingUTF8);
  if (!text) return;
  if (name_.size() + text->size() > kMostNameBytes) return fail(place, "with it the item's name is too long");
  if (!name_.empty()) name_ += ':';
  name_ += *text;
}

void MetadataItems::noteData(const Place& place) {
  constexpr size_t kValueAt = 8;
  if (place.data.size() < kValueAt) return fail(place, "it is too short for a type and a locale");
  if (identifier_.empty()) return fail(place, "there is no key for this item, or one that cannot be a name");
  const uint32_t type = number(place.data, 0, 4);  // the first byte is 0 for the well-known ones
  add(identifier_, dataTypeOf(type, place.length - kValueAt), Bytes(place.data).subspan(kValueAt),
      place.length - kValueAt);
}

void MetadataItems::noteTag(const Place& place) {
  constexpr size_t kTagAt = 6;  // behind version, flags and a language
  const auto use = [&](const ID3Frame& frame) {
    const std::string identifier = identifierOf(kPVMetadataKeySpace_ID3, frame.id);
    name_ = frame.name;
    if (frame.text)
      add(identifier, kPVMetadataBaseDataType_UTF8, *frame.text);
    else
      add(identifier, kPVMetadataBaseDataType_RawData, frame.data, frame.data.size());
  };
  const bool isWhole = place.data.size() == place.length && place.length >= kTagAt &&
                       readID3Tag(Bytes(place.data).subspan(kTagAt), use);
  name_.clear();
  if (!isWhole)
    fail(place, "its ID3 tag is damaged, of another version than 3 and 4, or larger than what is looked at");
}

void MetadataItems::add(std::string identifier, BRStringRef dataType, std::span<const uint8_t> bytes,
                        uint64_t length) {
  bytes = bytes.first(std::min(bytes.size(), kMostValueBytes));
  if (items_.size() == kMostItems || bytes_ + bytes.size() > kMostBytes) {
    if (!isFull_)
      damages_->push_back(
          {"", 0, kKivAtomStreamError_OutOfBounds, "there is more metadata than is looked at"});
    isFull_ = true;
    return;
  }
  bytes_ += bytes.size();
  items_.push_back({track_,
                    std::move(identifier),
                    name_,
                    br::Ref<const BRString>::retain(dataType),
                    {bytes.begin(), bytes.end()},
                    length});
}

void MetadataItems::add(std::string identifier, BRStringRef dataType, std::string_view text) {
  add(std::move(identifier), dataType, {reinterpret_cast<const uint8_t*>(text.data()), text.size()},
      text.size());
}

void MetadataItems::fail(const Place& place, std::string message) {
  damages_->push_back(
      {place.walk.path(), place.atom.offset, kKivAtomStreamError_OutOfBounds, std::move(message)});
}
