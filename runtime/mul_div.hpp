// a * b / c through a 128-bit product: what KivInt64MulDiv promises, inline.
//
// Most products fit 64 bits, so that case is one multiplication and one division of the machine; the rest is
// out of line.
#ifndef PEVRIN_RUNTIME_MUL_DIV_HPP
#define PEVRIN_RUNTIME_MUL_DIV_HPP

#include <cstdint>

namespace pv {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

struct Quotient {
  int64_t value;
  int64_t remainder;  // |remainder| < |divisor|; the sign of the quotient
};

// The magnitude, also of INT64_MIN.
constexpr uint64_t magnitude(int64_t value) {
  return value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
}

constexpr bool isSaturated(int64_t value) { return value == INT64_MAX || value == INT64_MIN; }

Quotient mulDivWide(int64_t a, int64_t b, int64_t c);

inline Quotient mulDiv(int64_t a, int64_t b, int64_t c) {
  int64_t product;
  if (c > 0 && !__builtin_mul_overflow(a, b, &product)) [[likely]]
    return {product / c, product % c};
  return mulDivWide(a, b, c);
}

}  // namespace pv

#endif
