// Strings: percent escapes (RFC 3986 2.1).
#include "src/string.hpp"
#include "src/text.hpp"

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

constexpr bool isUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

// The value of a hexadecimal digit, or -1.
constexpr int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

constexpr bool isByteEncoding(BRStringEncoding encoding) {
  return encoding == kBRStringEncodingUTF8 || encoding == kBRStringEncodingWesternRoman;
}

// One character, as UTF-8, with every byte that it has in the encoding escaped.
bool appendEscaped(br::TextBuffer& out, std::string_view character, BRStringEncoding encoding) {
  char bytes[4];
  const size_t length = br::measureInEncoding(character, encoding);
  if (length == br::kNotExpressible) return false;
  br::convertFromUTF8(character, encoding, bytes);
  for (size_t i = 0; i < length; ++i) {
    const uint8_t byte = static_cast<uint8_t>(bytes[i]);
    const char escape[] = {'%', kHexDigits[byte >> 4], kHexDigits[byte & 0xF]};
    out.append({escape, sizeof escape});
  }
  return true;
}

// A string of the buffer's text, which must turn out to be UTF-8.
BRStringRef stringOf(const br::TextBuffer& buffer) {
  if (buffer.failed() || !br::isValidUTF8(buffer.text())) return nullptr;
  return br::createStringWithText(buffer.allocator(), buffer.text());
}

}  // namespace

BRStringRef BRStringCreateByAddingPercentEscapes(BRAllocatorRef allocator, BRStringRef string,
                                                 BRStringRef leaveAlone, BRStringRef escapeToo) {
  return BRStringCreateByAddingPercentEscapesInEncoding(allocator, string, leaveAlone, escapeToo,
                                                        kBRStringEncodingUTF8);
}

BRStringRef BRStringCreateByAddingPercentEscapesInEncoding(BRAllocatorRef allocator, BRStringRef string,
                                                           BRStringRef leaveAlone, BRStringRef escapeToo,
                                                           BRStringEncoding encoding) {
  if (!string || !isByteEncoding(encoding)) return nullptr;
  const std::string_view left = br::textOf(leaveAlone), escaped = br::textOf(escapeToo);
  br::TextBuffer out(allocator);
  for (std::string_view text = br::textOf(string); !text.empty();) {
    // whole characters are looked for, and in UTF-8 none is found inside another
    const std::string_view character = text.substr(0, br::decodeUTF8(text).lengthBytes);
    text.remove_prefix(character.size());
    const bool isLeft = isUnreserved(character[0]) || left.find(character) != left.npos;
    if (isLeft && escaped.find(character) == escaped.npos)
      out.append(character);
    else if (!appendEscaped(out, character, encoding))
      return nullptr;
  }
  return stringOf(out);
}

BRStringRef BRStringCreateByReplacingPercentEscapes(BRAllocatorRef allocator, BRStringRef string) {
  return BRStringCreateByReplacingPercentEscapesInEncoding(allocator, string, kBRStringEncodingUTF8);
}

BRStringRef BRStringCreateByReplacingPercentEscapesInEncoding(BRAllocatorRef allocator, BRStringRef string,
                                                              BRStringEncoding encoding) {
  if (!string || !isByteEncoding(encoding)) return nullptr;
  br::TextBuffer out(allocator);
  for (std::string_view text = br::textOf(string); !text.empty();) {
    const size_t plain = std::min(text.find('%'), text.size());
    out.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    const int high = text.size() < 3 ? -1 : hexValue(text[1]), low = text.size() < 3 ? -1 : hexValue(text[2]);
    if (high < 0 || low < 0) return nullptr;
    text.remove_prefix(3);
    const uint8_t byte = static_cast<uint8_t>(high << 4 | low);
    char character[4] = {static_cast<char>(byte)};
    const bool isRoman = encoding == kBRStringEncodingWesternRoman;
    out.append({character, isRoman ? br::encodeUTF8(br::westernRomanScalar(byte), character) : 1});
  }
  return stringOf(out);
}
