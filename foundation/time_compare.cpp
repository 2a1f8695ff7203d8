// The order of times.
#include <pevrin/time.h>

#include "foundation/time_math.hpp"

namespace {

constexpr int32_t compare(auto a, auto b) { return (a > b) - (a < b); }

// Two numbers of one epoch: a.value / a.timescale against b.value / b.timescale, multiplied out. Timescales
// count as unsigned, which changes nothing for real ones. Where both products are 0 because of a timescale of
// 0, its time stands for 0 and the other one's value decides: that keeps the order total.
int32_t compareRationals(const PVTime& a, const PVTime& b) {
  const auto scaleA = static_cast<uint32_t>(a.timescale);
  const auto scaleB = static_cast<uint32_t>(b.timescale);
  const pv::Int128 difference = static_cast<pv::Int128>(a.value) * static_cast<int64_t>(scaleB) -
                                static_cast<pv::Int128>(b.value) * static_cast<int64_t>(scaleA);  // 97 bits
  if (difference < 0) return -1;
  if (difference > 0) return 1;
  if (scaleA == 0) return compare(0, b.value);
  if (scaleB == 0) return compare(a.value, 0);
  return 0;
}

// An operand is not a number, or the epochs differ.
[[gnu::cold, gnu::noinline]] int32_t compareSpecials(const PVTime& a, const PVTime& b) {
  if (pv::isInvalid(a)) return pv::isInvalid(b) ? 0 : 1;
  if (pv::isInvalid(b)) return -1;
  if (pv::isPositiveInfinity(a)) return pv::isPositiveInfinity(b) ? 0 : 1;
  if (pv::isPositiveInfinity(b)) return -1;
  if (pv::isIndefinite(a)) return pv::isIndefinite(b) ? 0 : 1;
  if (pv::isIndefinite(b)) return -1;
  if (pv::isNegativeInfinity(a)) return pv::isNegativeInfinity(b) ? 0 : -1;
  if (pv::isNegativeInfinity(b)) return 1;
  return compare(a.epoch, b.epoch);
}

int32_t compareTimes(const PVTime& a, const PVTime& b) {
  if (!pv::areNumeric(a, b) || a.epoch != b.epoch) [[unlikely]]
    return compareSpecials(a, b);
  if (a.timescale == b.timescale) return compare(a.value, b.value);
  return compareRationals(a, b);
}

}  // namespace

int32_t PVTimeCompare(PVTime a, PVTime b) { return compareTimes(a, b); }

PVTime PVTimeMinimum(PVTime a, PVTime b) { return compareTimes(a, b) < 0 ? a : b; }

PVTime PVTimeMaximum(PVTime a, PVTime b) { return compareTimes(a, b) < 0 ? b : a; }
