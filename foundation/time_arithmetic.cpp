// Conversion between timescales, addition and subtraction.
//
// The usual case stands first in each function and answers within it: two numbers of one timescale and one
// epoch whose sum fits. Everything else is out of line, so that the usual case needs no frame. Sums on
// different timescales have a short way of their own: the least common multiple makes both conversions whole
// factors.
#include <pevrin/time.h>

#include <utility>

#include "foundation/time_math.hpp"

namespace {

using pv::kIndefinite;
using pv::kInvalid;
using pv::kNegativeInfinity;
using pv::kPositiveInfinity;

enum class Operation { kAdd, kSubtract };
using enum Operation;

template <Operation operation>
bool overflows(int64_t a, int64_t b, int64_t* result) {
  return operation == kAdd ? __builtin_add_overflow(a, b, result) : __builtin_sub_overflow(a, b, result);
}

// Both numeric and of one timescale.
bool areNumericInOneTimescale(const PVTime& a, const PVTime& b) {
  constexpr uint64_t kScaleAndKind = pv::wordOf(-1, pv::kNumericMask);
  return ((pv::scaleAndFlags(a) ^ pv::scaleAndFlags(b)) & kScaleAndKind) == 0 && pv::isNumeric(a);
}

// The sum of two such times. Valid is set in both; if it has been rounded, one of them says so.
PVTime sumInOneTimescale(int64_t sum, const PVTime& a, const PVTime& b) {
  return pv::timeOf(sum, (pv::scaleAndFlags(a) | pv::scaleAndFlags(b)) & pv::wordOf(-1, 3), 0);
}

// The result when an operand is not numeric.
template <Operation operation>
PVTime combinedSpecials(const PVTime& a, const PVTime& b) {
  if (pv::isInvalid(a) || pv::isInvalid(b)) return kInvalid;
  auto addsPositive = operation == kAdd ? pv::isPositiveInfinity : pv::isNegativeInfinity;
  auto addsNegative = operation == kAdd ? pv::isNegativeInfinity : pv::isPositiveInfinity;
  if (pv::isPositiveInfinity(a)) return addsNegative(b) ? kInvalid : kPositiveInfinity;
  if (pv::isNegativeInfinity(a)) return addsPositive(b) ? kInvalid : kNegativeInfinity;
  if (addsPositive(b)) return kPositiveInfinity;
  if (addsNegative(b)) return kNegativeInfinity;
  return kIndefinite;
}

// The sum on the timescale, halved as often as it takes to fit.
template <Operation operation>
[[gnu::cold, gnu::noinline]] PVTime combinedHalving(const PVTime& a, const PVTime& b, int32_t timescale,
                                                    int64_t epoch) {
  for (;; timescale >>= 1) {
    const PVTime x = pv::inTimescale(a, timescale);
    const PVTime y = pv::inTimescale(b, timescale);
    if (pv::isInvalid(x) || pv::isInvalid(y)) return kInvalid;
    if (!pv::areNumeric(x, y)) {
      if (timescale >= 2) continue;
      return combinedSpecials<operation>(x, y);
    }
    int64_t sum;
    if (!overflows<operation>(x.value, y.value, &sum))
      return {sum, timescale, pv::mergedFlags(x.flags | y.flags), epoch};
    if (timescale < 2) return pv::infinity(sum >= 0);  // it wrapped past the end that its sign is not of
  }
}

// Two timescales without what they have in common.
struct CoprimeParts {
  uint32_t a;
  uint32_t b;
};

// Euclid's algorithm. Its steps make the parts as well, the last multiples that it subtracts: no division by
// the greatest common divisor is needed afterwards. The larger one first saves a step.
CoprimeParts coprimeParts(uint32_t larger, uint32_t smaller) {
  uint32_t previousA = 1, a = 0;  // previousA * smaller == a * larger would hold at the end
  uint32_t previousB = 0, b = 1;
  while (smaller != 0) {
    const uint32_t quotient = larger / smaller;
    larger = std::exchange(smaller, larger % smaller);
    previousA = std::exchange(a, previousA + quotient * a);
    previousB = std::exchange(b, previousB + quotient * b);
  }
  return {b, a};
}

// Two numbers with different timescales, neither with value 0.
template <Operation operation>
PVTime combinedOnCommonTimescale(const PVTime& a, const PVTime& b, int64_t epoch) {
  if (a.timescale <= 0 || b.timescale <= 0) [[unlikely]]
    return kInvalid;
  const bool aIsLarger = a.timescale > b.timescale;
  const CoprimeParts parts =
      aIsLarger ? coprimeParts(a.timescale, b.timescale) : coprimeParts(b.timescale, a.timescale);
  const int64_t factorA = aIsLarger ? parts.b : parts.a;
  const int64_t factorB = aIsLarger ? parts.a : parts.b;
  const int64_t multiple = factorA * a.timescale;
  if (multiple > INT32_MAX) return combinedHalving<operation>(a, b, pv::kFineTimescale, epoch);
  const auto timescale = static_cast<int32_t>(multiple);
  int64_t x, y, sum;
  const bool overflow = __builtin_mul_overflow(a.value, factorA, &x) ||
                        __builtin_mul_overflow(b.value, factorB, &y) || overflows<operation>(x, y, &sum) ||
                        pv::isSaturated(x) || pv::isSaturated(y);
  if (overflow) [[unlikely]]
    return combinedHalving<operation>(a, b, timescale, epoch);
  return pv::timeOf(sum, timescale, pv::mergedFlags(a.flags | b.flags), epoch);
}

// Everything but the usual case.
template <Operation operation>
[[gnu::noinline]] PVTime combined(const PVTime& a, const PVTime& b) {
  if (!pv::areNumeric(a, b)) [[unlikely]]
    return combinedSpecials<operation>(a, b);
  if (a.epoch != b.epoch && a.epoch != 0 && b.epoch != 0) return kInvalid;
  const int64_t epoch = a.epoch == b.epoch ? 0 : a.epoch | b.epoch;
  if (a.value == 0 || b.value == 0) [[unlikely]] {
    const uint32_t flags = pv::mergedFlags(a.flags | b.flags);
    if (b.value == 0 && (operation == kSubtract || a.value != 0)) return {a.value, a.timescale, flags, epoch};
    if (operation == kAdd) return {b.value, b.timescale, flags, epoch};
    if (b.value != INT64_MIN) return {-b.value, b.timescale, flags, epoch};
  }
  if (a.timescale == b.timescale) return combinedHalving<operation>(a, b, a.timescale, epoch);
  return combinedOnCommonTimescale<operation>(a, b, epoch);
}

// The step from a truncated quotient to the one that the method asks for. The remainder is not 0.
int64_t roundingStep(const pv::Quotient& quotient, const PVTime& time, int32_t timescale,
                     PVTimeRoundingMethod method) {
  const int64_t away = quotient.remainder < 0 ? -1 : 1;
  switch (method) {
    case kPVTimeRoundingMethod_RoundHalfAwayFromZero:
      return 2 * pv::magnitude(quotient.remainder) >= pv::magnitude(time.timescale) ? away : 0;
    case kPVTimeRoundingMethod_RoundAwayFromZero:
      return away;
    case kPVTimeRoundingMethod_Tavlo:
      if (timescale > time.timescale) return away;
      return time.value < 0 && quotient.value == 0 ? -1 : 0;
    case kPVTimeRoundingMethod_RoundTowardPositiveInfinity:
      return quotient.remainder > 0;
    case kPVTimeRoundingMethod_RoundTowardNegativeInfinity:
      return -(quotient.remainder < 0);
    default:
      return 0;
  }
}

}  // namespace

PVTime PVTimeAdd(PVTime lhs, PVTime rhs) {
  int64_t sum;
  if (areNumericInOneTimescale(lhs, rhs) && lhs.epoch == rhs.epoch &&
      !overflows<kAdd>(lhs.value, rhs.value, &sum)) [[likely]]
    return sumInOneTimescale(sum, lhs, rhs);
  return combined<kAdd>(lhs, rhs);
}

PVTime PVTimeSubtract(PVTime lhs, PVTime rhs) {
  int64_t difference;
  if (areNumericInOneTimescale(lhs, rhs) && lhs.epoch == rhs.epoch &&
      !overflows<kSubtract>(lhs.value, rhs.value, &difference)) [[likely]]
    return sumInOneTimescale(difference, lhs, rhs);
  return combined<kSubtract>(lhs, rhs);
}

PVTime PVTimeConvertScale(PVTime time, int32_t newTimescale, PVTimeRoundingMethod method) {
  if (!pv::isNumeric(time)) [[unlikely]]
    return time;
  if (newTimescale <= 0) [[unlikely]]
    return kInvalid;
  if (newTimescale == time.timescale) return time;
  const pv::Quotient quotient = pv::mulDiv(time.value, newTimescale, time.timescale);
  if (pv::isSaturated(quotient.value)) [[unlikely]]
    return pv::infinity(quotient.value < 0);
  if (quotient.remainder == 0)
    return pv::timeOf(quotient.value, newTimescale, pv::mergedFlags(time.flags), time.epoch);
  return pv::timeOf(quotient.value + roundingStep(quotient, time, newTimescale, method), newTimescale, 3,
                    time.epoch);
}

PVTime PVTimeAbsoluteValue(PVTime time) {
  if (pv::isNegativeInfinity(time)) return kPositiveInfinity;
  if (!pv::isNumeric(time) || time.value >= 0) return time;
  if (time.value == INT64_MIN) {
    if (time.timescale < 2) return kPositiveInfinity;
    time = pv::rescaled(time, time.timescale >> 1);
  }
  time.value = -time.value;
  return time;
}
