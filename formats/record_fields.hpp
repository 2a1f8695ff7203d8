// The fixed fields of sample description records: where each stands and how wide it is. A kind's fields are
// named once, and serve reading, writing and swapping.
#ifndef PEVRIN_FORMATS_RECORD_FIELDS_HPP
#define PEVRIN_FORMATS_RECORD_FIELDS_HPP

#include <pevrin/base.h>

#include <array>
#include <span>
#include <type_traits>

#include "runtime/byte_reader.hpp"
#include "runtime/byte_writer.hpp"

namespace pv::record {

// Word is the field's type on the machine: uint8_t to uint64_t, signed or not.
template <class Word>
struct Field {
  size_t offset;

  // Of a record in big-endian order that is long enough.
  Word read(const uint8_t* record) const {
    return static_cast<Word>(loadBigEndian<std::make_unsigned_t<Word>>(record + offset));
  }
  void write(uint8_t* record, Word value) const {
    storeBigEndian(record + offset, static_cast<std::make_unsigned_t<Word>>(value));
  }
};

// A field whose type does not matter, for swapping.
struct Place {
  uint16_t offset;
  uint16_t width;

  template <class Word>
  constexpr Place(Field<Word> field) : offset(static_cast<uint16_t>(field.offset)), width(sizeof(Word)) {}
};

// Turns the fields between big-endian and the machine's order.
void swapFields(uint8_t* record, std::span<const Place> places);

// What opens every record.
inline constexpr Field<uint32_t> kSize{0};
inline constexpr Field<uint32_t> kDataFormat{4};
inline constexpr Field<uint32_t> kReserved{8};
inline constexpr Field<uint16_t> kReservedEnd{12};
inline constexpr Field<uint16_t> kDataReferenceIndex{14};
inline constexpr uint16_t kUnsetDataReferenceIndex = 0xFFFF;
inline constexpr size_t kHeaderBytes = 16;
inline constexpr std::array<Place, 5> kHeaderPlaces = {kSize, kDataFormat, kReserved, kReservedEnd,
                                                       kDataReferenceIndex};

namespace sound {
inline constexpr Field<uint16_t> kVersion{16};
inline constexpr Field<uint16_t> kRevisionLevel{18};
inline constexpr Field<uint32_t> kVendor{20};
inline constexpr Field<int16_t> kChannels{24};
inline constexpr Field<uint16_t> kSampleSize{26};  // bits
inline constexpr Field<uint16_t> kCompressionID{28};
inline constexpr Field<uint16_t> kPacketSize{30};
inline constexpr Field<uint32_t> kSampleRate{32};  // unsigned 16.16
inline constexpr std::array<Place, 8> kPlaces = {kVersion,    kRevisionLevel, kVendor,     kChannels,
                                                 kSampleSize, kCompressionID, kPacketSize, kSampleRate};
// version 1
inline constexpr Field<uint32_t> kSamplesPerPacket{36};
inline constexpr Field<uint32_t> kBytesPerPacket{40};  // of one channel
inline constexpr Field<uint32_t> kBytesPerFrame{44};   // a packet of all channels
inline constexpr Field<uint32_t> kBytesPerSample{48};
inline constexpr std::array<Place, 4> kPlaces1 = {kSamplesPerPacket, kBytesPerPacket, kBytesPerFrame,
                                                  kBytesPerSample};
// version 2
inline constexpr Field<uint32_t> kStructureSize{36};
inline constexpr Field<uint64_t> kAudioSampleRate{40};  // the bits of a 64-bit float
inline constexpr Field<uint32_t> kAudioChannels{48};
inline constexpr Field<uint32_t> kAlways7F000000{52};
inline constexpr Field<uint32_t> kBitsPerChannel{56};
inline constexpr Field<uint32_t> kFormatFlags{60};
inline constexpr Field<uint32_t> kBytesPerAudioPacket{64};
inline constexpr Field<uint32_t> kFramesPerAudioPacket{68};
inline constexpr std::array<Place, 8> kPlaces2 = {kStructureSize,       kAudioSampleRate,     kAudioChannels,
                                                  kAlways7F000000,      kBitsPerChannel,      kFormatFlags,
                                                  kBytesPerAudioPacket, kFramesPerAudioPacket};
inline constexpr std::array<size_t, 3> kFixedBytes = {36, 52, 72};  // by version
}  // namespace sound

namespace image {
inline constexpr Field<uint16_t> kVersion{16};
inline constexpr Field<uint16_t> kRevisionLevel{18};
inline constexpr Field<uint32_t> kVendor{20};
inline constexpr Field<uint32_t> kTemporalQuality{24};
inline constexpr Field<uint32_t> kSpatialQuality{28};
inline constexpr Field<uint16_t> kWidth{32};
inline constexpr Field<uint16_t> kHeight{34};
inline constexpr Field<uint32_t> kHorizontalResolution{36};  // 16.16, pixels per inch
inline constexpr Field<uint32_t> kVerticalResolution{40};
inline constexpr Field<uint32_t> kDataSize{44};
inline constexpr Field<uint16_t> kFrameCount{48};
inline constexpr size_t kCompressorName = 50;  // a Pascal string
inline constexpr size_t kCompressorNameBytes = 32;
inline constexpr Field<uint16_t> kDepth{82};
inline constexpr Field<int16_t> kColorTableID{84};  // 0: a colour table follows
inline constexpr std::array<Place, 13> kPlaces = {
    kVersion,         kRevisionLevel,        kVendor,
    kTemporalQuality, kSpatialQuality,       kWidth,
    kHeight,          kHorizontalResolution, kVerticalResolution,
    kDataSize,        kFrameCount,           kDepth,
    kColorTableID};
inline constexpr size_t kFixedBytes = 86;
// The colour table: seed, flags, the last entry's number, and entries of value, red, green and blue.
inline constexpr Field<uint32_t> kColorTableSeed{86};
inline constexpr Field<uint16_t> kColorTableFlags{90};
inline constexpr Field<int16_t> kColorTableSize{92};
inline constexpr size_t kColorTableEntries = 94;
inline constexpr size_t kColorTableEntryBytes = 8;
}  // namespace image

namespace timecode {
inline constexpr Field<uint32_t> kReserved{16};
inline constexpr Field<uint32_t> kFlags{20};
inline constexpr Field<uint32_t> kTimeScale{24};
inline constexpr Field<uint32_t> kFrameDuration{28};
inline constexpr Field<uint8_t> kNumberOfFrames{32};
inline constexpr std::array<Place, 4> kPlaces = {kReserved, kFlags, kTimeScale, kFrameDuration};
inline constexpr size_t kFixedBytes = 34;
}  // namespace timecode

// The movie's text.
namespace text {
inline constexpr PVFourCharCode kFormat = 0x74657874;  // 'text'
inline constexpr Field<uint32_t> kDisplayFlags{16};
inline constexpr Field<int32_t> kJustification{20};
inline constexpr std::array<Field<uint16_t>, 3> kBackgroundColor = {{{24}, {26}, {28}}};  // red, green, blue
inline constexpr std::array<Field<int16_t>, 4> kTextBox = {
    {{30}, {32}, {34}, {36}}};  // top, left, bottom, right
inline constexpr Field<uint32_t> kStartChar{38};
inline constexpr Field<int16_t> kHeight{42};
inline constexpr Field<int16_t> kAscent{44};
inline constexpr Field<int16_t> kFont{46};
inline constexpr Field<uint8_t> kFontFace{48};
inline constexpr Field<int16_t> kFontSize{50};
inline constexpr std::array<Field<uint16_t>, 3> kForegroundColor = {{{52}, {54}, {56}}};
inline constexpr std::array<Place, 17> kPlaces = {kDisplayFlags,
                                                  kJustification,
                                                  kBackgroundColor[0],
                                                  kBackgroundColor[1],
                                                  kBackgroundColor[2],
                                                  kTextBox[0],
                                                  kTextBox[1],
                                                  kTextBox[2],
                                                  kTextBox[3],
                                                  kStartChar,
                                                  kHeight,
                                                  kAscent,
                                                  kFont,
                                                  kFontSize,
                                                  kForegroundColor[0],
                                                  kForegroundColor[1],
                                                  kForegroundColor[2]};
inline constexpr size_t kFontName = 58;  // a Pascal string, to the end of the fixed fields
inline constexpr size_t kFixedBytes = 58;
}  // namespace text

// 3GPP timed text (3GPP TS 26.245 5.16).
namespace timed_text {
inline constexpr PVFourCharCode kFormat = 0x74783367;  // 'tx3g'
inline constexpr Field<uint32_t> kDisplayFlags{16};
inline constexpr Field<int8_t> kHorizontalJustification{20};
inline constexpr Field<int8_t> kVerticalJustification{21};
inline constexpr std::array<Field<uint8_t>, 4> kBackgroundColor = {
    {{22}, {23}, {24}, {25}}};  // red, green, blue, alpha
inline constexpr std::array<Field<int16_t>, 4> kTextBox = {
    {{26}, {28}, {30}, {32}}};  // top, left, bottom, right
inline constexpr Field<uint16_t> kStartChar{34};
inline constexpr Field<uint16_t> kEndChar{36};
inline constexpr Field<uint16_t> kFont{38};
inline constexpr Field<uint8_t> kFontFace{40};
inline constexpr Field<uint8_t> kFontSize{41};
inline constexpr std::array<Field<uint8_t>, 4> kForegroundColor = {{{42}, {43}, {44}, {45}}};
inline constexpr std::array<Place, 8> kPlaces = {kDisplayFlags, kTextBox[0], kTextBox[1], kTextBox[2],
                                                 kTextBox[3],   kStartChar,  kEndChar,    kFont};
inline constexpr size_t kFixedBytes = 46;
}  // namespace timed_text

}  // namespace pv::record

#endif
