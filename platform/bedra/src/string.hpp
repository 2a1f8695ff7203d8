// What the files that make up strings share.
#ifndef BEDRA_SRC_STRING_HPP
#define BEDRA_SRC_STRING_HPP

#include <bedra/string.h>
#include <bedra/literal.hpp>

#include <cstdarg>
#include <string_view>

#include "src/byte_buffer.hpp"

namespace br {

// The text of any string; empty for NULL.
std::string_view textOf(BRStringRef string);

// An immutable string with room for its text, NUL already in place; the caller fills *text at once.
BRString* createStringToFill(BRAllocatorRef allocator, size_t lengthBytes, char** text);

// An immutable string of text known to be valid UTF-8; null when memory runs out.
BRString* createStringWithText(BRAllocatorRef allocator, std::string_view text);

// Conversion in two steps, so that the result is allocated once, in its exact size. Measuring answers
// kNotExpressible when the bytes are malformed, a character has no place in the encoding, or there is no such
// encoding.
inline constexpr size_t kNotExpressible = SIZE_MAX;
size_t measureAsUTF8(std::string_view bytes, BRStringEncoding encoding);
void convertToUTF8(std::string_view bytes, BRStringEncoding encoding, char* out);
size_t measureInEncoding(std::string_view utf8, BRStringEncoding encoding);
void convertFromUTF8(std::string_view utf8, BRStringEncoding encoding, char* out);

// The character of a Western Roman byte.
char32_t westernRomanScalar(uint8_t byte);

// printf with %@: appends to the buffer. False when the format is malformed or memory runs out; the buffer
// then holds part of the text. What is appended may be malformed UTF-8; finishing it is appendRepaired's
// work.
bool appendFormat(TextBuffer& out, const char* format, va_list arguments);

}  // namespace br

#endif
