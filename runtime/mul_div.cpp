// Multiply-divide where the product is wider than 64 bits, or the divisor is not positive.
#include "runtime/mul_div.hpp"

#include <kiv/math.h>

#include <algorithm>

namespace pv {
namespace {

struct UnsignedQuotient {
  uint64_t value;
  uint64_t remainder;
};

// numerator / divisor, where the quotient fits 64 bits. The compiler's own 128-bit division does not use
// that.
UnsignedQuotient divideWide(UInt128 numerator, uint64_t divisor) {
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

}  // namespace

Quotient mulDivWide(int64_t a, int64_t b, int64_t c) {
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

}  // namespace pv

int64_t KivInt64MulDiv(int64_t a, int64_t b, int64_t c, int32_t* remainderOut) {
  const pv::Quotient quotient = pv::mulDiv(a, b, c);
  if (remainderOut)
    *remainderOut = static_cast<int32_t>(std::clamp<int64_t>(quotient.remainder, INT32_MIN, INT32_MAX));
  return quotient.value;
}
