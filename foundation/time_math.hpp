// What the time functions share: the kinds of time, and conversion in the way that all arithmetic does it.
//
// The kinds are tests on flags alone. value, timescale and epoch may hold anything: nothing here divides by a
// timescale, negates a value or shifts without having checked it.
#ifndef PEVRIN_FOUNDATION_TIME_MATH_HPP
#define PEVRIN_FOUNDATION_TIME_MATH_HPP

#include <pevrin/time.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "runtime/mul_div.hpp"

namespace pv {

inline constexpr uint32_t kNumericMask = 29;  // valid and the three special bits
inline constexpr int32_t kFineTimescale = 1'000'000'000;

inline constexpr PVTime kInvalid = {0, 0, 0, 0};
inline constexpr PVTime kIndefinite = {0, 0, 17, 0};
inline constexpr PVTime kPositiveInfinity = {0, 0, 5, 0};
inline constexpr PVTime kNegativeInfinity = {0, 0, 9, 0};

// By flags.
constexpr bool isInvalid(uint32_t flags) { return !(flags & 1); }
constexpr bool isPositiveInfinity(uint32_t flags) { return (flags & 5) == 5; }
constexpr bool isNegativeInfinity(uint32_t flags) { return (flags & 9) == 9; }
constexpr bool isIndefinite(uint32_t flags) { return (flags & 17) == 17; }
// (flags & kNumericMask) == 1, an instruction shorter: the subtraction turns Valid over and leaves the bits
// above alone when it is set.
constexpr bool isNumeric(uint32_t flags) { return ((flags - 1) & kNumericMask) == 0; }
// By reference: the public inline functions take 24 bytes by value.
constexpr bool isInvalid(const PVTime& t) { return isInvalid(t.flags); }
constexpr bool isPositiveInfinity(const PVTime& t) { return isPositiveInfinity(t.flags); }
constexpr bool isNegativeInfinity(const PVTime& t) { return isNegativeInfinity(t.flags); }
constexpr bool isIndefinite(const PVTime& t) { return isIndefinite(t.flags); }
constexpr bool isNumeric(const PVTime& t) { return isNumeric(t.flags); }
constexpr bool areNumeric(const PVTime& a, const PVTime& b) {
  return (((a.flags - 1) | (b.flags - 1)) & kNumericMask) == 0;  // one branch
}

inline constexpr double kTwoTo63 = 9223372036854775808.0;

// A double as a whole number, toward zero; -2^63 for what 64 bits cannot hold, NaN included.
constexpr int64_t truncated(double value) {
  return value >= -kTwoTo63 && value < kTwoTo63 ? static_cast<int64_t>(value) : INT64_MIN;
}

constexpr int64_t wrappingNegated(int64_t value) {
  return static_cast<int64_t>(0 - static_cast<uint64_t>(value));
}

constexpr PVTime infinity(bool negative) { return negative ? kNegativeInfinity : kPositiveInfinity; }

// The flags of a result computed from these.
constexpr uint32_t mergedFlags(uint32_t flags) {
  return (flags & kPVTimeFlags_HasBeenRounded) | kPVTimeFlags_Valid;
}

// Timescale and flags as the one word that they are in memory.
struct ScaleAndFlags {
  int32_t timescale;
  uint32_t flags;
};
constexpr uint64_t wordOf(int32_t timescale, uint32_t flags) {
  return std::bit_cast<uint64_t>(ScaleAndFlags{timescale, flags});
}
inline uint64_t scaleAndFlags(const PVTime& t) {
  uint64_t word;
  std::memcpy(&word, reinterpret_cast<const char*>(&t) + offsetof(PVTime, timescale), sizeof word);
  return word;
}

// A result, its first 16 bytes in one store. Callers copy a time 16 bytes at a time; the processor can hand
// that load what a store of the same width has just written, but not what several narrow ones have: it waits
// for the cache.
inline PVTime timeOf(int64_t value, uint64_t scaleAndFlags, int64_t epoch) {
  using Pair __attribute__((vector_size(16))) = int64_t;
  const Pair pair = {value, static_cast<int64_t>(scaleAndFlags)};
  PVTime time;
  std::memcpy(static_cast<void*>(&time), &pair, sizeof pair);
  time.epoch = epoch;
  return time;
}
inline PVTime timeOf(int64_t value, int32_t timescale, uint32_t flags, int64_t epoch) {
  return timeOf(value, wordOf(timescale, flags), epoch);
}

// value * numerator / denominator as it stands in a time of that timescale: the exact quotient, to the
// nearest unit, half away from zero.
inline PVTime timeOfQuotient(const Quotient& quotient, int32_t timescale, uint64_t divisor, uint32_t flags,
                             int64_t epoch) {
  if (isSaturated(quotient.value)) [[unlikely]]
    return infinity(quotient.value < 0);
  if (quotient.remainder == 0) return timeOf(quotient.value, timescale, mergedFlags(flags), epoch);
  const bool away = 2 * magnitude(quotient.remainder) >= divisor;
  const int64_t step = quotient.remainder < 0 ? -1 : 1;
  return timeOf(quotient.value + (away ? step : 0), timescale, 3, epoch);
}

// PVTimeConvertScale by the method of all arithmetic, for a numeric time and another timescale than its own.
inline PVTime rescaled(const PVTime& t, int32_t timescale) {
  if (timescale <= 0) [[unlikely]]
    return kInvalid;
  return timeOfQuotient(mulDiv(t.value, timescale, t.timescale), timescale, magnitude(t.timescale), t.flags,
                        t.epoch);
}

// The same, where the time may have the timescale already.
inline PVTime inTimescale(const PVTime& t, int32_t timescale) {
  return t.timescale == timescale ? t : rescaled(t, timescale);
}

}  // namespace pv

#endif
