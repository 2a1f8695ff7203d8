// a * b / c through a 128-bit product: what KivInt64MulDiv promises, inline.
//
// Most products fit 64 bits, so that case is one multiplication and one division of the machine.
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

struct UnsignedQuotient {
  uint64_t value;
  uint64_t remainder;
};

// numerator / divisor, where the quotient fits 64 bits. The compiler's own 128-bit division does not use
// that.
inline UnsignedQuotient divideWide(UInt128 numerator, uint64_t divisor) {
#if defined(__x86_64__)
  UnsignedQuotient result;
  __asm__("divq %[divisor]"
          : "=a"(result.value), "=d"(result.remainder)
          : [divisor] "r"(divisor), "a"(static_cast<uint64_t>(numerator)),
            "d"(static_cast<uint64_t>(numerator >> 64))
          : "cc");
  return result;
#else
  return {static_cast<uint64_t>(numerator / divisor), static_cast<uint64_t>(numerator % divisor)};
#endif
}

// Where the product is wider than 64 bits, or the divisor is not positive.
inline Quotient mulDivWide(int64_t a, int64_t b, int64_t c) {
  const UInt128 product = static_cast<UInt128>(magnitude(a)) * magnitude(b);
  if (product == 0) return {0, 0};
  const bool negative = ((a ^ b) ^ c) < 0;
  const uint64_t divisor = magnitude(c);
  const Quotient saturated = {negative ? INT64_MIN : INT64_MAX, 0};
  if (static_cast<uint64_t>(product >> 64) >= divisor)
    return saturated;  // beyond 64 bits, or the divisor is 0
  const UnsignedQuotient quotient = divideWide(product, divisor);
  if (quotient.value > INT64_MAX) return saturated;
  const auto value = static_cast<int64_t>(quotient.value);
  const auto remainder = static_cast<int64_t>(quotient.remainder);  // below |c|, so it fits
  return negative ? Quotient{-value, -remainder} : Quotient{value, remainder};
}

inline Quotient mulDiv(int64_t a, int64_t b, int64_t c) {
  int64_t product;
  if (c > 0 && !__builtin_mul_overflow(a, b, &product)) [[likely]]
    return {product / c, product % c};
  return mulDivWide(a, b, c);
}

}  // namespace pv

#endif
