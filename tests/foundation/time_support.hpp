// Times in tests: equality field by field, printing, and short names.
#ifndef TESTS_FOUNDATION_TIME_SUPPORT_HPP
#define TESTS_FOUNDATION_TIME_SUPPORT_HPP

#include <pevrin/time.h>

#include "tests/support/test.hpp"

inline bool operator==(const PVTime& a, const PVTime& b) {
  return a.value == b.value && a.timescale == b.timescale && a.flags == b.flags && a.epoch == b.epoch;
}
inline std::ostream& operator<<(std::ostream& out, const PVTime& t) {
  return out << "{" << t.value << "/" << t.timescale << " flags " << t.flags << " epoch " << t.epoch << "}";
}

namespace test {

__extension__ using Wide = __int128;

constexpr int64_t kMax = INT64_MAX;
constexpr int64_t kMin = INT64_MIN;

constexpr PVTime kInvalid = {0, 0, 0, 0};
constexpr PVTime kIndefinite = {0, 0, 17, 0};
constexpr PVTime kPlusInfinity = {0, 0, 5, 0};
constexpr PVTime kMinusInfinity = {0, 0, 9, 0};

constexpr PVTime exact(int64_t value, int32_t timescale, int64_t epoch = 0) {
  return {value, timescale, 1, epoch};
}
constexpr PVTime rounded(int64_t value, int32_t timescale, int64_t epoch = 0) {
  return {value, timescale, 3, epoch};
}

// Numbers whose sums and products sit at every limit, in timescales with and without common divisors.
inline std::vector<PVTime> numbersNearLimits() {
  std::vector<PVTime> times;
  for (int32_t timescale :
       {1, 2, 3, 600, 1001, 48000, 90000, 999999999, 1000000000, 1000000007, INT32_MAX - 1, INT32_MAX})
    for (int64_t value : {int64_t{0}, int64_t{1}, int64_t{-1}, int64_t{1001}, int64_t{-44100},
                          int64_t{INT32_MAX}, int64_t{INT32_MIN}, int64_t{1} << 40, -(int64_t{1} << 53) - 1,
                          int64_t{1} << 62, -(int64_t{1} << 62), kMax - 1, kMax, kMin + 1, kMin})
      times.push_back(exact(value, timescale));
  return times;
}

// Anything that a dictionary may bring: bad timescales, odd flags, extreme values.
inline std::vector<PVTime> hostileTimes() {
  std::vector<PVTime> times = {kInvalid, kIndefinite, kPlusInfinity, kMinusInfinity};
  for (int32_t timescale : {0, -1, -600, INT32_MIN, 1, 2, 600, INT32_MAX})
    for (int64_t value : {int64_t{0}, int64_t{1}, int64_t{-7}, kMax, kMin})
      for (uint32_t flags : {0u, 1u, 3u, 5u, 9u, 17u, 29u, 31u, 33u, 0xFFFFFFFFu})
        for (int64_t epoch : {int64_t{0}, kMin}) times.push_back({value, timescale, flags, epoch});
  return times;
}

}  // namespace test

#endif
