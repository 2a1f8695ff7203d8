// Four-character codes in C++: "avc1"_4cc is 0x61766331.
#ifndef PEVRIN_RUNTIME_FOUR_CHAR_CODE_HPP
#define PEVRIN_RUNTIME_FOUR_CHAR_CODE_HPP

#include <pevrin/base.h>

namespace pv::literals {

template <size_t N>
struct CodeText {
  static_assert(N == 5, "four characters");
  PVFourCharCode code = 0;
  consteval CodeText(const char (&text)[N]) {
    for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  }
};

template <CodeText Text>
constexpr PVFourCharCode operator""_4cc() {
  return Text.code;
}

}  // namespace pv::literals

#endif
