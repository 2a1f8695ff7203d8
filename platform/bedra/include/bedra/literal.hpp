// Constant strings: "text"_br is an immortal BRStringRef in read-only data, its hash computed by the compiler.
//
//   using namespace br::literals;
//   BRDictionaryGetValue(dictionary, "timescale"_br);
//   extern "C" const BRStringRef kPVTimeScaleKey = "timescale"_br;    // constant-initialised
#ifndef BEDRA_LITERAL_HPP
#define BEDRA_LITERAL_HPP

#include <bedra/object.hpp>

#include <bit>
#include <cstring>
#include <type_traits>

// An immutable string is this struct, its UTF-8 text and a NUL. The text starts right behind the length, in what would
// otherwise be the struct's padding. A mutable string (kClassFlag0) keeps its text in a block of its own instead.
struct BRString : BRObject {
  static constexpr const char* className = "BRString";
  static constexpr BRTypeID builtInTypeID = br::kStringTypeID;

  explicit BRString(size_t length) : lengthBytes(length) {}
  constexpr BRString(size_t length, uint32_t hash)
      : BRObject(br::kStringTypeID, 0, br::kImmortalCount, hash), lengthBytes(length) {}
  ~BRString() = default;

  bool isMutable() const { return hasFlag(br::kClassFlag0); }

  size_t lengthBytes;
};

namespace br {

// The hash of a string's bytes, never 0. Eight bytes a step, low byte first.
constexpr uint32_t hashStringBytes(const char* bytes, size_t length) {
  constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15u;
  auto load = [](const char* from, size_t count) {
    uint64_t word = 0;
    if (!std::is_constant_evaluated() && std::endian::native == std::endian::little) {
      std::memcpy(&word, from, count);
      return word;
    }
    for (size_t i = 0; i < count; ++i) word |= uint64_t{static_cast<uint8_t>(from[i])} << (8 * i);
    return word;
  };
  auto mix = [](uint64_t state, uint64_t word) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(state ^ word) * kMultiplier;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
  };
  uint64_t state = length + kMultiplier;
  while (length >= 8) {
    state = mix(state, load(bytes, 8));
    bytes += 8;
    length -= 8;
  }
  state = mix(state, load(bytes, length));
  uint32_t folded = static_cast<uint32_t>(state ^ (state >> 32));
  return folded ? folded : 1;
}

// A literal's characters as a template argument.
template <size_t N>
struct LiteralText {
  char text[N];
  constexpr LiteralText(const char (&literal)[N]) {
    for (size_t i = 0; i < N; ++i) text[i] = literal[i];
  }
};

template <size_t N>
struct LiteralString : BRString {
  char bytes[N];
  constexpr explicit LiteralString(const LiteralText<N>& literal)
      : BRString(N - 1, hashStringBytes(literal.text, N - 1)), bytes{} {
    for (size_t i = 0; i < N; ++i) bytes[i] = literal.text[i];
  }
};

template <LiteralText Text>
inline constinit const LiteralString<sizeof(Text.text)> kLiteral{Text};

// Where an immutable string's text starts: LiteralString places it by the same rule.
inline constexpr size_t kStringTextOffset = sizeof(BRObject) + sizeof(size_t);
static_assert(sizeof(LiteralString<8>) == kStringTextOffset + 8);

namespace literals {
template <LiteralText Text>
constexpr BRStringRef operator""_br() {
  return &kLiteral<Text>;
}
}  // namespace literals

}  // namespace br

#endif
