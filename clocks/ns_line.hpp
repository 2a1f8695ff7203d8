// A sync transform between two timelines in whole nanoseconds, where it can be had: what readers apply
// instead of KivSyncApplyTransform, with the same result in a tenth of the time.
//
// That the result is the same follows from the rules of PVTime arithmetic for an operand in timescale
// 1000000000. The other operand joins it there when its own timescale divides that one, and also when the
// least common multiple of both does not fit a timescale. It stays out when it is 0; so nothing is to be
// converted then. In what is left (the multiple fits, as with 1024: it is 2000000000; there are epochs;
// numbers are very large) there is no line. And no line knows the moments at which the source's time, or what
// has elapsed, is 0: there the result has the timescale of an anchor.
#ifndef PEVRIN_CLOCKS_NS_LINE_HPP
#define PEVRIN_CLOCKS_NS_LINE_HPP

#include <pevrin/sync.h>

#include <cmath>
#include <cstdint>
#include <numeric>

namespace pv {

struct NsLine {
  static constexpr int32_t kTimescale = 1'000'000'000;

  double rate = NAN;  // no line
  int64_t fromNs = 0;
  int64_t toNs = 0;

  static NsLine make(const PVSyncTransform& transform) {
    NsLine line;
    if (inNs(transform.fromAnchor, &line.fromNs) && inNs(transform.toAnchor, &line.toNs))
      line.rate = transform.rate;
    return line;
  }

  // False when the line does not know the result, which never is flagged as rounded.
  bool apply(const PVTime& source, PVTime* result) const {
    int64_t elapsed;
    if (source.timescale != kTimescale || source.flags != kPVTimeFlags_Valid || source.epoch != 0 ||
        source.value == 0 || __builtin_sub_overflow(source.value, fromNs, &elapsed)) [[unlikely]]
      return false;
    const double product = static_cast<double>(elapsed) * rate;
    if (!(std::fabs(product) < kLimit)) return false;
    const auto scaled = static_cast<int64_t>(product >= 0.0 ? product + 0.5 : product - 0.5);
    *result = {scaled + toNs, kTimescale, kPVTimeFlags_Valid, 0};
    return scaled != 0;
  }

 private:
  static constexpr double kLimit = 4e18;  // the sum of two below it does not overflow
  static constexpr int64_t kLargest = int64_t{4'000'000'000'000'000'000};

  static bool inNs(const PVTime& anchor, int64_t* ns) {
    if (!PVTimeIsNumeric(anchor) || anchor.timescale < 1 || anchor.epoch != 0) return false;
    if (anchor.value == 0) {
      *ns = 0;
      return true;
    }
    const int64_t common = std::lcm(int64_t{anchor.timescale}, int64_t{kTimescale});
    if (common != kTimescale && common <= INT32_MAX) return false;
    const PVTime converted =
        PVTimeConvertScale(anchor, kTimescale, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
    *ns = converted.value;
    return PVTimeIsNumeric(converted) && converted.value < kLargest && converted.value > -kLargest;
  }
};

}  // namespace pv

#endif
