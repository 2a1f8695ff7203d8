// Multiplication: by an integer, by a double, by a ratio of integers.
//
// Each halves its working timescale as long as the product does not fit, and starts again from the original
// time.
#include <pevrin/time.h>

#include <cmath>
#include <cstdlib>
#include <numeric>

#include "foundation/time_math.hpp"

namespace {

using pv::kFineTimescale;
using pv::kIndefinite;
using pv::kInvalid;

// Beyond this, the spacing of doubles makes a whole product meaningless to the unit.
constexpr uint64_t kLargestTrustedValue = uint64_t{1} << 51;

// What a time that is not numeric becomes under a multiplier that keeps or changes signs.
PVTime multipliedSpecial(const PVTime& time, bool changesSign) {
  if (pv::isInvalid(time)) return kInvalid;
  if (pv::isIndefinite(time)) return kIndefinite;
  return pv::infinity(pv::isPositiveInfinity(time) == changesSign);
}

[[gnu::cold, gnu::noinline]] PVTime multipliedHalving(const PVTime& time, int32_t multiplier) {
  for (int32_t timescale = time.timescale >> 1;; timescale >>= 1) {
    const PVTime converted = pv::rescaled(time, timescale);
    if (!pv::isNumeric(converted)) return multipliedSpecial(converted, multiplier < 0);
    const int64_t product = pv::mulDiv(converted.value, multiplier, 1).value;
    if (!pv::isSaturated(product)) return {product, timescale, pv::mergedFlags(converted.flags), time.epoch};
    if (timescale < 2) return pv::infinity(product < 0);
  }
}

// The product as a whole number: half away from zero, kept within 64 bits.
int64_t roundedProduct(double product) {
  if (product >= pv::kTwoTo63) return INT64_MAX;
  return pv::truncated(product >= 0 ? product + 0.5 : product - 0.5);
}

// A number times a ratio, both as far reduced as has been needed so far.
struct RatioProduct {
  int64_t value;
  int64_t timescale;
  int64_t multiplier;
  int64_t divisor;

  // The exact product, where its value and timescale fit.
  bool getExact(const PVTime& time, PVTime* result) const {
    int64_t product = pv::mulDiv(value, multiplier, 1).value;
    if (pv::isSaturated(product)) return false;
    const int64_t scale = product != 0 ? timescale * divisor : timescale;
    if (scale < -INT32_MAX || scale > INT32_MAX) return false;
    if (scale < 0) product = -product;
    *result =
        pv::timeOf(product, static_cast<int32_t>(std::abs(scale)), pv::mergedFlags(time.flags), time.epoch);
    return true;
  }

  // Takes one common divisor out of the fraction. False when there is none left.
  bool reduce() {
    return reducePair(value, divisor) || reducePair(multiplier, timescale) || reducePair(value, timescale);
  }

  // Signs stay where they are.
  static bool reducePair(int64_t& a, int64_t& b) {
    const uint64_t common = std::gcd(pv::magnitude(a), pv::magnitude(b));
    if (common <= 1) return false;
    a = dividedBy(a, common);
    b = dividedBy(b, common);
    return true;
  }
  static int64_t dividedBy(int64_t a, uint64_t divisor) {
    const auto quotient = static_cast<int64_t>(pv::magnitude(a) / divisor);
    return a < 0 ? pv::wrappingNegated(quotient) : quotient;
  }

  // The product to the nearest unit of the finest timescale that holds it.
  [[gnu::cold, gnu::noinline]] PVTime rounded(const PVTime& time, bool changesSign) const {
    const PVTime reduced = {value, static_cast<int32_t>(timescale), time.flags, time.epoch};
    for (int32_t scale = kFineTimescale;; scale >>= 1) {
      const PVTime converted = pv::inTimescale(reduced, scale);
      if (!pv::isNumeric(converted)) {
        if (scale > 1) continue;
        return multipliedSpecial(converted, changesSign);
      }
      const pv::Quotient quotient = pv::mulDiv(converted.value, multiplier, divisor);
      if (pv::isSaturated(quotient.value)) {
        if (scale > 1) continue;
        return pv::infinity(quotient.value < 0);
      }
      const int64_t half = 2 * quotient.remainder / std::abs(divisor);
      const uint32_t flags = quotient.remainder != 0 ? 3 : pv::mergedFlags(converted.flags);
      return {quotient.value + half, scale, flags, time.epoch};
    }
  }
};

// time * multiplier / 0.
PVTime dividedByZero(const PVTime& time, int32_t multiplier, bool changesSign) {
  if (multiplier == 0) return kInvalid;
  const int32_t side = PVTimeCompare(time, kPVTimeZero);
  return side == 0 ? kInvalid : pv::infinity((side < 0) != changesSign);
}

}  // namespace

PVTime PVTimeMultiply(PVTime time, int32_t multiplier) {
  if (!pv::isNumeric(time)) [[unlikely]]
    return multipliedSpecial(time, multiplier < 0);
  int64_t product;
  const bool overflow = __builtin_mul_overflow(time.value, int64_t{multiplier}, &product);
  if (!overflow && !pv::isSaturated(product)) [[likely]]
    return pv::timeOf(product, time.timescale, pv::mergedFlags(time.flags), time.epoch);
  if (time.timescale < 2) return pv::infinity((time.value < 0) != (multiplier < 0));
  return multipliedHalving(time, multiplier);
}

PVTime PVTimeMultiplyByFloat64(PVTime time, double multiplier) {
  const bool keepsSign = multiplier >= 0.0;  // NaN does not
  if (!pv::isNumeric(time)) [[unlikely]]
    return multipliedSpecial(time, !keepsSign);
  const bool isFine = std::trunc(multiplier) == multiplier || time.timescale >= kFineTimescale;
  for (int32_t timescale = isFine ? time.timescale : kFineTimescale;; timescale >>= 1) {
    const PVTime converted = pv::inTimescale(time, timescale);
    if (!pv::isNumeric(converted)) {
      if (timescale > 1) continue;
      return multipliedSpecial(converted, !keepsSign);
    }
    const double product = static_cast<double>(converted.value) * multiplier;
    if (product > pv::kTwoTo63 || product < -pv::kTwoTo63) {
      if (timescale > 1) continue;
      return pv::infinity(product < 0);
    }
    const int64_t value = roundedProduct(product);
    const bool isRounded = (converted.flags & kPVTimeFlags_HasBeenRounded) ||
                           pv::magnitude(value) > kLargestTrustedValue ||
                           (timescale < kFineTimescale && static_cast<double>(value) != product);
    return pv::timeOf(value, timescale, isRounded ? 3 : 1, time.epoch);
  }
}

PVTime PVTimeMultiplyByRatio(PVTime time, int32_t multiplier, int32_t divisor) {
  const bool changesSign = (multiplier < 0) != (divisor < 0);
  if (pv::isInvalid(time)) return kInvalid;
  if (pv::isIndefinite(time)) return kIndefinite;
  if (divisor == 0) return dividedByZero(time, multiplier, changesSign);
  if (!pv::isNumeric(time)) return multiplier == 0 ? kInvalid : multipliedSpecial(time, changesSign);
  RatioProduct ratio = {time.value, time.timescale, multiplier, divisor};
  if (multiplier != 0) RatioProduct::reducePair(ratio.multiplier, ratio.divisor);
  PVTime result;
  do {
    if (ratio.getExact(time, &result)) return result;
  } while (ratio.reduce());
  return ratio.rounded(time, changesSign);
}
