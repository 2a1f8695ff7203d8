// Ranges of time, and mapping between them: everything by the arithmetic and the order of times.
#include <pevrin/time_range.h>

#include "foundation/time_math.hpp"

namespace {

constexpr PVTimeRange kInvalidRange = {pv::kInvalid, pv::kInvalid};
constexpr PVTimeMapping kInvalidMapping = {kInvalidRange, kInvalidRange};

// From start up to end, unless their difference lies in an epoch.
PVTimeRange rangeBetween(const PVTime& start, const PVTime& end) {
  return PVTimeRangeMake(start, PVTimeSubtract(end, start));
}

bool isUnbounded(const PVTime& duration) {
  return pv::isPositiveInfinity(duration) || pv::isIndefinite(duration);
}

bool isPositiveLength(const PVTime& duration) {
  return pv::isNumeric(duration) && duration.value >= 1 && duration.epoch == 0;
}

bool canMapBetween(const PVTimeRange& from, const PVTimeRange& to) {
  if (!pv::areNumeric(from.start, to.start)) return false;
  if (isUnbounded(from.duration) && isUnbounded(to.duration)) return true;
  return isPositiveLength(from.duration) && isPositiveLength(to.duration);
}

PVTime scaledByDurations(const PVTime& time, const PVTimeRange& from, const PVTimeRange& to) {
  return PVTimeMultiplyByFloat64(time, PVTimeGetSeconds(to.duration) / PVTimeGetSeconds(from.duration));
}

}  // namespace

extern "C" {
constinit const PVTimeRange kPVTimeRangeZero = {{0, 1, 1, 0}, {0, 1, 1, 0}};
constinit const PVTimeRange kPVTimeRangeInvalid = kInvalidRange;
constinit const PVTimeMapping kPVTimeMappingInvalid = kInvalidMapping;
}

PVTimeRange PVTimeRangeMake(PVTime start, PVTime duration) {
  if (duration.epoch != 0) return kInvalidRange;
  return {start, duration};
}

PVTimeRange PVTimeRangeFromTimeToTime(PVTime start, PVTime end) {
  if (PVTimeCompare(start, end) > 0) return kInvalidRange;
  return rangeBetween(start, end);
}

PVTime PVTimeRangeGetEnd(PVTimeRange range) {
  if (range.duration.epoch != 0) return pv::kInvalid;
  return PVTimeAdd(range.start, range.duration);
}

PVTimeRange PVTimeRangeGetUnion(PVTimeRange range1, PVTimeRange range2) {
  if (range1.start.epoch != range2.start.epoch) return kInvalidRange;
  return rangeBetween(PVTimeMinimum(range1.start, range2.start),
                      PVTimeMaximum(PVTimeRangeGetEnd(range1), PVTimeRangeGetEnd(range2)));
}

PVTimeRange PVTimeRangeGetIntersection(PVTimeRange range1, PVTimeRange range2) {
  if (range1.start.epoch != range2.start.epoch) return kInvalidRange;
  const PVTime start = PVTimeMaximum(range1.start, range2.start);
  const PVTime end = PVTimeMinimum(PVTimeRangeGetEnd(range1), PVTimeRangeGetEnd(range2));
  if (PVTimeCompare(start, end) >= 0) return kPVTimeRangeZero;
  return rangeBetween(start, end);
}

bool PVTimeRangeEqual(PVTimeRange range1, PVTimeRange range2) {
  return range1.start.epoch == range2.start.epoch && PVTimeCompare(range1.start, range2.start) == 0 &&
         PVTimeCompare(range1.duration, range2.duration) == 0;
}

bool PVTimeRangeContainsTime(PVTimeRange range, PVTime time) {
  return PVTimeCompare(range.start, time) <= 0 && PVTimeCompare(time, PVTimeRangeGetEnd(range)) < 0;
}

bool PVTimeRangeContainsTimeRange(PVTimeRange range1, PVTimeRange range2) {
  if (range1.start.epoch != range2.start.epoch || !PVTimeRangeContainsTime(range1, range2.start))
    return false;
  const PVTime end = PVTimeRangeGetEnd(range2);
  return PVTimeRangeContainsTime(range1, end) || PVTimeCompare(PVTimeRangeGetEnd(range1), end) == 0;
}

PVTime PVTimeClampToRange(PVTime time, PVTimeRange range) {
  if (!pv::isNumeric(range.start)) return pv::kInvalid;
  if (!isUnbounded(range.duration) && !isPositiveLength(range.duration)) return pv::kInvalid;
  if (pv::isInvalid(time) || pv::isIndefinite(time)) return time;
  if (PVTimeCompare(time, range.start) <= 0) return range.start;
  const PVTime end = PVTimeRangeGetEnd(range);
  return PVTimeCompare(time, end) >= 0 ? end : time;
}

PVTime PVTimeMapTimeFromRangeToRange(PVTime time, PVTimeRange fromRange, PVTimeRange toRange) {
  if (!canMapBetween(fromRange, toRange)) return pv::kInvalid;
  if (!pv::isNumeric(time)) return time;
  if (time.epoch != fromRange.start.epoch) return pv::kInvalid;
  const bool sameDuration = PVTimeCompare(fromRange.duration, toRange.duration) == 0;
  if (sameDuration && PVTimeCompare(fromRange.start, toRange.start) == 0) return time;
  PVTime offset = PVTimeSubtract(time, fromRange.start);
  if (!sameDuration) offset = scaledByDurations(offset, fromRange, toRange);
  return PVTimeAdd(offset, toRange.start);
}

PVTime PVTimeMapDurationFromRangeToRange(PVTime duration, PVTimeRange fromRange, PVTimeRange toRange) {
  if ((pv::isNumeric(duration) && duration.epoch != 0) || !canMapBetween(fromRange, toRange))
    return pv::kInvalid;
  if (PVTimeCompare(fromRange.duration, toRange.duration) == 0) return duration;
  return scaledByDurations(duration, fromRange, toRange);
}

PVTimeMapping PVTimeMappingMake(PVTimeRange source, PVTimeRange target) {
  if (source.duration.epoch != 0 || target.duration.epoch != 0) return kInvalidMapping;
  return {source, target};
}

PVTimeMapping PVTimeMappingMakeEmpty(PVTimeRange target) { return PVTimeMappingMake(kInvalidRange, target); }
