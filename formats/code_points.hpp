// Colour and chroma location: the code points of codecs and files, and the extension values that name them.
// ITU-T H.264 Tables E-3 to E-5 and Figure E-1 have the meanings; which of them have a name, and which, is
// this library's own table.
#ifndef PEVRIN_FORMATS_CODE_POINTS_HPP
#define PEVRIN_FORMATS_CODE_POINTS_HPP

#include <bedra/base.h>

#include <cstdint>
#include <span>

namespace pv::video {

struct CodePoint {
  uint16_t code;
  const BRStringRef* name;
};

// In the order of their codes. When several codes have one name, the first is the one that stands for it.
std::span<const CodePoint> colorPrimaries();
std::span<const CodePoint> transferFunctions();
std::span<const CodePoint> matrices();
std::span<const CodePoint> chromaLocations();

// The code that says "unspecified" of colour.
inline constexpr uint16_t kUnspecified = 2;

// Null when the code has no name.
BRStringRef nameOf(std::span<const CodePoint> table, uint32_t code);
// -1 when it is not a name of the table.
int codeOf(std::span<const CodePoint> table, BRTypeRef name);

}  // namespace pv::video

#endif
