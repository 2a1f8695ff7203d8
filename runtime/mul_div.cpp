// The exact multiply-divide under its public name.
#include "runtime/mul_div.hpp"

#include <kiv/math.h>

#include <algorithm>

int64_t KivInt64MulDiv(int64_t a, int64_t b, int64_t c, int32_t* remainderOut) {
  const pv::Quotient quotient = pv::mulDiv(a, b, c);
  if (remainderOut)
    *remainderOut = static_cast<int32_t>(std::clamp<int64_t>(quotient.remainder, INT32_MIN, INT32_MAX));
  return quotient.value;
}
