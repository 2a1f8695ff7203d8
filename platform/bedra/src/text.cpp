// UTF-8 as bytes (RFC 3629). The bounds of the second byte tell overlong forms, surrogates and values above
// U+10FFFF apart from valid sequences, so a sequence is known to be good or bad at the earliest byte
// possible.
#include "src/text.hpp"

#include <cstring>

#include "src/byte_buffer.hpp"

namespace {

struct Lead {
  uint8_t lengthBytes;  // 0: cannot open a character
  uint8_t secondLow, secondHigh;
};

constexpr Lead leadOf(uint8_t byte) {
  if (byte < 0x80) return {1, 0, 0};
  if (byte < 0xC2) return {0, 0, 0};
  if (byte < 0xE0) return {2, 0x80, 0xBF};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte < 0xF0) return {3, 0x80, 0xBF};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte < 0xF4) return {4, 0x80, 0xBF};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

}  // namespace

br::UTF8Character br::decodeUTF8(std::string_view text) {
  const uint8_t first = static_cast<uint8_t>(text[0]);
  if (first < 0x80) return {first, 1, UTF8Status::kValid};
  const Lead lead = leadOf(first);
  if (lead.lengthBytes == 0) return {0, 1, UTF8Status::kMalformed};
  char32_t scalar = first & (0x7Fu >> lead.lengthBytes);
  uint8_t low = lead.secondLow, high = lead.secondHigh;
  for (uint8_t i = 1; i < lead.lengthBytes; ++i) {
    if (i == text.size()) return {0, i, UTF8Status::kCutShort};
    const uint8_t byte = static_cast<uint8_t>(text[i]);
    if (byte < low || byte > high) return {0, i, UTF8Status::kMalformed};
    scalar = scalar << 6 | (byte & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  return {scalar, lead.lengthBytes, UTF8Status::kValid};
}

size_t br::encodeUTF8(char32_t scalar, char* out) {
  const size_t length = utf8Length(scalar);
  if (length == 1) {
    out[0] = static_cast<char>(scalar);
    return 1;
  }
  for (size_t i = length - 1; i > 0; --i, scalar >>= 6) out[i] = static_cast<char>(0x80 | (scalar & 0x3F));
  out[0] = static_cast<char>(0xF00u >> length | scalar);
  return length;
}

size_t br::asciiPrefix(std::string_view text) {
  size_t at = 0;
  for (uint64_t word; text.size() - at >= sizeof word; at += sizeof word) {
    std::memcpy(&word, text.data() + at, sizeof word);
    if (word & 0x8080808080808080u) break;
  }
  while (at < text.size() && static_cast<uint8_t>(text[at]) < 0x80) ++at;
  return at;
}

size_t br::validUTF8Prefix(std::string_view text) {
  size_t at = 0;
  while ((at += asciiPrefix(text.substr(at))) < text.size()) {
    const UTF8Character character = decodeUTF8(text.substr(at));
    if (character.status != UTF8Status::kValid) break;
    at += character.lengthBytes;
  }
  return at;
}

std::string_view br::withoutCutCharacter(std::string_view text) {
  for (size_t back = 1; back <= 3 && back <= text.size(); ++back) {
    const std::string_view tail = text.substr(text.size() - back);
    if ((static_cast<uint8_t>(tail[0]) & 0xC0) == 0x80) continue;
    const bool cut = decodeUTF8(tail).status == UTF8Status::kCutShort;
    return cut ? text.substr(0, text.size() - back) : text;
  }
  return text;
}

void br::appendRepaired(TextBuffer& out, std::string_view text) {
  while (!text.empty()) {
    const size_t valid = validUTF8Prefix(text);
    out.append(text.substr(0, valid));
    text.remove_prefix(valid);
    if (text.empty()) return;
    out.append(kReplacementText);
    text.remove_prefix(decodeUTF8(text).lengthBytes);
  }
}
