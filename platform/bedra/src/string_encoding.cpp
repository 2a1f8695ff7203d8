// Strings: conversion to and from the encodings.
//
// Each direction of each encoding is one walk over the characters that feeds a sink; measuring and writing
// differ only in the sink.
#include <bedra/data.h>

#include <algorithm>
#include <array>
#include <bit>

#include "src/data.hpp"
#include "src/string.hpp"
#include "src/text.hpp"

namespace {

using br::kNotExpressible;

// The upper half of the Western Roman set, in the revision that has the euro sign; the lower half is ASCII.
constexpr char16_t kWesternRomanUpperHalf[] =
    u"ÄÅÇÉÑÖÜáàâäãåçéèêëíìîïñóòôöõúùûü"
    u"†°¢£§•¶ß®©™´¨≠ÆØ∞±≤≥¥µ∂∑∏π∫ªºΩæø"
    u"¿¡¬√ƒ≈∆«»…\u00A0ÀÃÕŒœ–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ"
    u"‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔ\uF8FFÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ";
static_assert(std::size(kWesternRomanUpperHalf) == 128 + 1);
static_assert(kWesternRomanUpperHalf[0xDB - 0x80] == 0x20AC);

struct RomanEntry {
  char16_t unit;
  uint8_t byte;
};

// The same by character, for the way back.
constexpr auto kWesternRomanByUnit = [] {
  std::array<RomanEntry, 128> entries{};
  for (size_t i = 0; i < entries.size(); ++i)
    entries[i] = {kWesternRomanUpperHalf[i], static_cast<uint8_t>(0x80 + i)};
  std::sort(entries.begin(), entries.end(), [](RomanEntry a, RomanEntry b) { return a.unit < b.unit; });
  return entries;
}();

// 0 when the character, which is not ASCII, has no place in the set.
uint8_t westernRomanByte(char32_t scalar) {
  auto at = std::lower_bound(kWesternRomanByUnit.begin(), kWesternRomanByUnit.end(), scalar,
                             [](RomanEntry entry, char32_t value) { return entry.unit < value; });
  return at != kWesternRomanByUnit.end() && at->unit == scalar ? at->byte : 0;
}

struct CountUTF8 {
  size_t lengthBytes = 0;
  void operator()(char32_t scalar) { lengthBytes += br::utf8Length(scalar); }
};

struct WriteUTF8 {
  char* out;
  void operator()(char32_t scalar) { out += br::encodeUTF8(scalar, out); }
};

struct CountBytes {
  size_t lengthBytes = 0;
  void operator()(uint8_t) { ++lengthBytes; }
};

struct WriteBytes {
  char* out;
  void operator()(uint8_t byte) { *out++ = static_cast<char>(byte); }
};

constexpr bool isUTF16(BRStringEncoding encoding) {
  return encoding >= kBRStringEncodingUTF16 && encoding <= kBRStringEncodingUTF16LE;
}

constexpr bool isBigEndian(BRStringEncoding encoding) {
  return encoding == kBRStringEncodingUTF16BE ||
         (encoding == kBRStringEncodingUTF16 && std::endian::native == std::endian::big);
}

template <class Sink>
bool decodeUTF16(std::string_view bytes, bool bigEndian, Sink& sink) {
  if (bytes.size() % 2) return false;
  auto unitAt = [&](size_t at) -> char32_t {
    const uint8_t first = static_cast<uint8_t>(bytes[at]), second = static_cast<uint8_t>(bytes[at + 1]);
    return static_cast<char32_t>(bigEndian ? first << 8 | second : second << 8 | first);
  };
  for (size_t at = 0; at < bytes.size(); at += 2) {
    const char32_t unit = unitAt(at);
    if (br::isScalar(unit)) {
      sink(unit);
      continue;
    }
    at += 2;
    if (unit >= 0xDC00 || at >= bytes.size()) return false;
    const char32_t low = unitAt(at);
    if (low < 0xDC00 || low > 0xDFFF) return false;
    sink(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
  }
  return true;
}

template <class Sink>
void encodeUTF16(char32_t scalar, bool bigEndian, Sink& sink) {
  auto put = [&](char32_t unit) {
    const uint8_t high = static_cast<uint8_t>(unit >> 8), low = static_cast<uint8_t>(unit);
    sink(bigEndian ? high : low);
    sink(bigEndian ? low : high);
  };
  if (scalar < 0x10000) return put(scalar);
  put(0xD7C0 + (scalar >> 10));  // 0xD800 - (0x10000 >> 10)
  put(0xDC00 + (scalar & 0x3FF));
}

// The characters of bytes in one of the encodings but UTF-8.
template <class Sink>
bool decode(std::string_view bytes, BRStringEncoding encoding, Sink& sink) {
  if (isUTF16(encoding)) return decodeUTF16(bytes, isBigEndian(encoding), sink);
  if (encoding != kBRStringEncodingWesternRoman) return false;
  for (char byte : bytes) sink(br::westernRomanScalar(static_cast<uint8_t>(byte)));
  return true;
}

// Valid UTF-8 in one of the encodings but UTF-8.
template <class Sink>
bool encode(std::string_view utf8, BRStringEncoding encoding, Sink& sink) {
  if (!isUTF16(encoding) && encoding != kBRStringEncodingWesternRoman) return false;
  while (!utf8.empty()) {
    const br::UTF8Character character = br::decodeUTF8(utf8);
    utf8.remove_prefix(character.lengthBytes);
    if (isUTF16(encoding)) {
      encodeUTF16(character.scalar, isBigEndian(encoding), sink);
      continue;
    }
    const uint8_t byte = character.lengthBytes == 1 ? static_cast<uint8_t>(character.scalar)
                                                    : westernRomanByte(character.scalar);
    if (byte == 0 && character.scalar != 0) return false;
    sink(byte);
  }
  return true;
}

// UTF-8 and Western Roman say ASCII alike.
bool isSameBytes(std::string_view text, BRStringEncoding encoding) {
  return encoding == kBRStringEncodingUTF8 ||
         (encoding == kBRStringEncodingWesternRoman && br::asciiPrefix(text) == text.size());
}

void copyBytes(std::string_view from, char* to) {
  if (!from.empty()) std::memcpy(to, from.data(), from.size());
}

}  // namespace

char32_t br::westernRomanScalar(uint8_t byte) {
  return byte < 0x80 ? char32_t{byte} : char32_t{kWesternRomanUpperHalf[byte - 0x80]};
}

size_t br::measureAsUTF8(std::string_view bytes, BRStringEncoding encoding) {
  if (encoding == kBRStringEncodingUTF8) return isValidUTF8(bytes) ? bytes.size() : kNotExpressible;
  if (isSameBytes(bytes, encoding)) return bytes.size();
  CountUTF8 count;
  return decode(bytes, encoding, count) ? count.lengthBytes : kNotExpressible;
}

void br::convertToUTF8(std::string_view bytes, BRStringEncoding encoding, char* out) {
  if (isSameBytes(bytes, encoding)) return copyBytes(bytes, out);
  WriteUTF8 write{out};
  decode(bytes, encoding, write);
}

size_t br::measureInEncoding(std::string_view utf8, BRStringEncoding encoding) {
  if (isSameBytes(utf8, encoding)) return utf8.size();
  CountBytes count;
  return encode(utf8, encoding, count) ? count.lengthBytes : kNotExpressible;
}

void br::convertFromUTF8(std::string_view utf8, BRStringEncoding encoding, char* out) {
  if (isSameBytes(utf8, encoding)) return copyBytes(utf8, out);
  WriteBytes write{out};
  encode(utf8, encoding, write);
}

size_t BRStringGetLengthUTF16(BRStringRef string) {
  size_t units = 0;
  for (char character : br::textOf(string)) {
    const uint8_t byte = static_cast<uint8_t>(character);
    units += ((byte & 0xC0) != 0x80) + (byte >= 0xF0);  // every lead one, four-byte leads two
  }
  return units;
}

bool BRStringGetCString(BRStringRef string, char* buffer, size_t bufferBytes, BRStringEncoding encoding) {
  if (!string || !buffer) return false;
  const std::string_view text = br::textOf(string);
  const size_t lengthBytes = br::measureInEncoding(text, encoding);
  const size_t terminatorBytes = isUTF16(encoding) ? 2 : 1;
  if (lengthBytes == kNotExpressible || bufferBytes < terminatorBytes ||
      lengthBytes > bufferBytes - terminatorBytes)
    return false;
  br::convertFromUTF8(text, encoding, buffer);
  std::memset(buffer + lengthBytes, 0, terminatorBytes);
  return true;
}

BRDataRef BRStringCreateData(BRAllocatorRef allocator, BRStringRef string, BRStringEncoding encoding) {
  if (!string) return nullptr;
  const std::string_view text = br::textOf(string);
  const size_t lengthBytes = br::measureInEncoding(text, encoding);
  if (lengthBytes == kNotExpressible) return nullptr;
  char* bytes;
  BRDataRef data = br::createDataToFill(allocator, lengthBytes, &bytes);
  if (data) br::convertFromUTF8(text, encoding, bytes);
  return data;
}
