// UTF-8 as bytes: reading and writing single characters, validity and repair. No objects here.
#ifndef BEDRA_SRC_TEXT_HPP
#define BEDRA_SRC_TEXT_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace br {

class TextBuffer;

inline constexpr std::string_view kReplacementText = "\xEF\xBF\xBD";  // U+FFFD

enum class UTF8Status : uint8_t {
  kValid,
  kMalformed,
  kCutShort,  // the bytes open a character, and end before it does
};

struct UTF8Character {
  char32_t scalar;
  uint8_t lengthBytes;  // when not valid: the bytes that one U+FFFD stands for (Unicode 3.9, maximal subpart)
  UTF8Status status;
};

// The character at the start of a text that is not empty. Surrogates, overlong forms and values above
// U+10FFFF are malformed.
UTF8Character decodeUTF8(std::string_view text);

constexpr size_t utf8Length(char32_t scalar) {
  return scalar < 0x80 ? 1 : scalar < 0x800 ? 2 : scalar < 0x10000 ? 3 : 4;
}
// Writes utf8Length(scalar) bytes.
size_t encodeUTF8(char32_t scalar, char* out);

constexpr bool isScalar(char32_t value) { return value < 0xD800 || (value > 0xDFFF && value <= 0x10FFFF); }

// How many bytes at the start are ASCII; are valid UTF-8.
size_t asciiPrefix(std::string_view text);
size_t validUTF8Prefix(std::string_view text);
inline bool isValidUTF8(std::string_view text) { return validUTF8Prefix(text) == text.size(); }

// The text without a character that was cut short at its end.
std::string_view withoutCutCharacter(std::string_view text);

// Appends the text with U+FFFD for whatever is malformed.
void appendRepaired(TextBuffer& out, std::string_view text);

}  // namespace br

#endif
