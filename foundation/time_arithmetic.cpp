// Conversion between timescales, addition and subtraction.
//
// The usual case stands first in each function and answers within it: two numbers of one timescale and one
// epoch whose sum fits. Everything else is out of line and by reference, so that the usual case needs few
// registers and no frame. Sums on different timescales have a short way of their own: the least common
// multiple makes both conversions whole factors.
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

// The result for operands with these flags, one of which is not numeric.
template <Operation operation>
[[gnu::cold, gnu::noinline]] PVTime combinedSpecials(uint32_t a, uint32_t b) {
  if (pv::isInvalid(a) || pv::isInvalid(b)) return kInvalid;
  const bool addsPositive = operation == kAdd ? pv::isPositiveInfinity(b) : pv::isNegativeInfinity(b);
  const bool addsNegative = operation == kAdd ? pv::isNegativeInfinity(b) : pv::isPositiveInfinity(b);
  if (pv::isPositiveInfinity(a)) return addsNegative ? kInvalid : kPositiveInfinity;
  if (pv::isNegativeInfinity(a)) return addsPositive ? kInvalid : kNegativeInfinity;
  if (addsPositive) return kPositiveInfinity;
  if (addsNegative) return kNegativeInfinity;
  return kIndefinite;
}

// Two timescales without what they have in common.
struct CoprimeParts {
  uint32_t larger;
  uint32_t smaller;
};

// Euclid's algorithm. Its steps make the parts as well, as the last multiples that it subtracts: no division
// by the greatest common divisor is needed afterwards.
[[gnu::noinline]] CoprimeParts coprimePartsByEuclid(uint32_t larger, uint32_t smaller) {
  CoprimeParts previous = {0, 1}, parts = {1, 0};
  do {
    const uint32_t quotient = larger / smaller;
    larger = std::exchange(smaller, larger % smaller);
    previous = std::exchange(
        parts, {previous.larger + quotient * parts.larger, previous.smaller + quotient * parts.smaller});
  } while (smaller != 0);
  return parts;
}

inline CoprimeParts coprimeParts(uint32_t larger, uint32_t smaller) {
  if (larger % smaller == 0) return {larger / smaller, 1};
  return coprimePartsByEuclid(larger, smaller);
}

// A timescale that both times can take, and what takes their values there.
struct CommonTimescale {
  int64_t timescale;  // the least common multiple; may be beyond what a time can have
  int64_t factorA;
  int64_t factorB;
};

inline CommonTimescale commonTimescale(int32_t a, int32_t b) {
  if (a > b) {
    const CoprimeParts parts = coprimeParts(a, b);
    return {int64_t{a} * parts.smaller, parts.smaller, parts.larger};
  }
  const CoprimeParts parts = coprimeParts(b, a);
  return {int64_t{b} * parts.smaller, parts.larger, parts.smaller};
}

// The sum of two numbers on the timescale; on half of it when it does not fit, and so on.
template <Operation operation>
[[gnu::noinline]] PVTime combinedHalving(const PVTime& a, const PVTime& b, int32_t timescale, int64_t epoch) {
  for (;; timescale >>= 1) {
    const PVTime x = pv::inTimescale(a, timescale);
    const PVTime y = pv::inTimescale(b, timescale);
    if (!pv::areNumeric(x, y)) {
      if (timescale >= 2) continue;
      return combinedSpecials<operation>(x.flags, y.flags);
    }
    int64_t sum;
    if (!overflows<operation>(x.value, y.value, &sum))
      return pv::timeOf(sum, timescale, pv::mergedFlags(x.flags | y.flags), epoch);
    if (timescale < 2) return pv::infinity(sum >= 0);  // it wrapped past the end that its sign is not of
  }
}

// The sum of two numbers, one of them 0, without converting the other.
template <Operation operation>
[[gnu::noinline]] PVTime combinedWithZero(const PVTime& a, const PVTime& b, int64_t epoch) {
  const uint32_t flags = pv::mergedFlags(a.flags | b.flags);
  if (b.value == 0 && (operation == kSubtract || a.value != 0))
    return pv::timeOf(a.value, a.timescale, flags, epoch);
  return pv::timeOf(operation == kAdd ? b.value : -b.value, b.timescale, flags, epoch);
}

// The sum outside the usual case. On different timescales, values below 2^62 there can neither be taken for
// overflow nor overflow the sum; others go the long way.
template <Operation operation>
[[gnu::noinline]] PVTime combined(const PVTime& a, const PVTime& b) {
  if (!pv::areNumeric(a, b)) [[unlikely]]
    return combinedSpecials<operation>(a.flags, b.flags);
  int64_t epoch = 0;
  if (a.epoch != b.epoch) [[unlikely]] {
    if (a.epoch != 0 && b.epoch != 0) return kInvalid;
    epoch = a.epoch | b.epoch;
  }
  if ((a.value == 0 || b.value == 0) && (operation == kAdd || b.value != INT64_MIN)) [[unlikely]]
    return combinedWithZero<operation>(a, b, epoch);
  if (a.timescale == b.timescale) [[unlikely]]
    return combinedHalving<operation>(a, b, a.timescale, epoch);
  if (a.timescale <= 0 || b.timescale <= 0) [[unlikely]]
    return kInvalid;
  const CommonTimescale common = commonTimescale(a.timescale, b.timescale);
  if (common.timescale > INT32_MAX) [[unlikely]]
    return combinedHalving<operation>(a, b, pv::kFineTimescale, epoch);
  constexpr uint64_t kRoom = uint64_t{1} << 62;
  int64_t x, y;
  if (__builtin_mul_overflow(a.value, common.factorA, &x) ||
      __builtin_mul_overflow(b.value, common.factorB, &y) ||
      static_cast<int64_t>((x + kRoom) | (y + kRoom)) < 0) [[unlikely]]
    return combinedHalving<operation>(a, b, static_cast<int32_t>(common.timescale), epoch);
  return pv::timeOf(operation == kAdd ? x + y : x - y, static_cast<int32_t>(common.timescale),
                    pv::mergedFlags(a.flags | b.flags), epoch);
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

// Conversion in all its cases.
[[gnu::noinline]] PVTime converted(const PVTime& time, int32_t timescale, PVTimeRoundingMethod method) {
  if (!pv::isNumeric(time)) return time;
  if (timescale <= 0) return kInvalid;
  if (timescale == time.timescale) return time;
  const pv::Quotient quotient = pv::mulDiv(time.value, timescale, time.timescale);
  if (pv::isSaturated(quotient.value)) return pv::infinity(quotient.value < 0);
  if (quotient.remainder == 0)
    return pv::timeOf(quotient.value, timescale, pv::mergedFlags(time.flags), time.epoch);
  return pv::timeOf(quotient.value + roundingStep(quotient, time, timescale, method), timescale, 3,
                    time.epoch);
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

// The usual case: the product fits 64 bits, and rounding is to the nearest or toward zero. A timescale above
// 1 keeps the quotient away from the two values that mean overflow.
PVTime PVTimeConvertScale(PVTime time, int32_t newTimescale, PVTimeRoundingMethod method) {
  if (!pv::isNumeric(time) || newTimescale <= 0 || newTimescale == time.timescale || time.timescale <= 1)
      [[unlikely]]
    return converted(time, newTimescale, method);
  int64_t product;
  if (__builtin_mul_overflow(time.value, int64_t{newTimescale}, &product)) [[unlikely]]
    return converted(time, newTimescale, method);
  int64_t quotient = product / time.timescale;
  const int64_t remainder = product % time.timescale;
  if (remainder == 0) return pv::timeOf(quotient, newTimescale, pv::mergedFlags(time.flags), time.epoch);
  if (method == kPVTimeRoundingMethod_RoundHalfAwayFromZero) {
    quotient += (2 * remainder >= time.timescale) - (2 * remainder <= -int64_t{time.timescale});
  } else if (method != kPVTimeRoundingMethod_RoundTowardZero) {
    return converted(time, newTimescale, method);
  }
  return pv::timeOf(quotient, newTimescale, 3, time.epoch);
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
