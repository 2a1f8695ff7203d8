/* Ranges of time, and mappings between two ranges.
 *
 * A range is a start and a duration; its end is not part of it. A mapping is an edit: play the source span
 * over the target span. Both are plain records, passed and returned by copy.
 *
 *   PVTimeRange clip = PVTimeRangeMake(PVTimeMake(10, 1), PVTimeMake(5, 1));
 *   if (PVTimeRangeContainsTime(clip, now)) show(clip);
 *   PVTimeRange slot = PVTimeRangeFromTimeToTime(kPVTimeZero, PVTimeMake(10, 1));     // half speed
 *   PVTime there = PVTimeMapTimeFromRangeToRange(now, clip, slot);
 *
 * A duration lies in no epoch: a range whose duration has a non-zero one is refused by the constructors, and
 * where it comes from elsewhere its end is invalid. Nothing reports a status: failures are invalid times,
 * ranges and mappings. The arithmetic, its overflow and its order are those of <pevrin/time.h>.
 *
 * Threads: every function may be called from any thread at any time. Only the Copy functions allocate. */
#ifndef PEVRIN_TIME_RANGE_H
#define PEVRIN_TIME_RANGE_H

#include <pevrin/time.h>

PV_BEGIN_DECLS

/* From start on, as long as duration: the end belongs to it no more. */
typedef struct PVTimeRange {
  PVTime start;
  PVTime duration;
} PVTimeRange;

/* A stretch of one timeline, and the stretch of another that shows it. */
typedef struct PVTimeMapping {
  PVTimeRange source; /* kPVTimeRangeInvalid in an empty edit: the target shows nothing */
  PVTimeRange target;
} PVTimeMapping;

/* From 0/1, lasting 0/1. */
PV_EXPORT extern const PVTimeRange kPVTimeRangeZero;
/* All fields 0. */
PV_EXPORT extern const PVTimeRange kPVTimeRangeInvalid;
PV_EXPORT extern const PVTimeMapping kPVTimeMappingInvalid;

/* The two times as given; invalid when the duration has an epoch. */
PV_EXPORT PVTimeRange PVTimeRangeMake(PVTime start, PVTime duration);
/* From start up to end; invalid when start is after end or their difference has an epoch. */
PV_EXPORT PVTimeRange PVTimeRangeFromTimeToTime(PVTime start, PVTime end);

/* start + duration: the first time behind the range. Invalid when the duration has an epoch. */
PV_EXPORT PVTime PVTimeRangeGetEnd(PVTimeRange range);

/* The shortest range that covers both; gaps are filled. Invalid when the starts lie in different epochs. */
PV_EXPORT PVTimeRange PVTimeRangeGetUnion(PVTimeRange range1, PVTimeRange range2);
/* What both have in common: kPVTimeRangeZero, which is at time 0, when they only touch or lie apart. Invalid
 * when the starts lie in different epochs. */
PV_EXPORT PVTimeRange PVTimeRangeGetIntersection(PVTimeRange range1, PVTimeRange range2);

/* Equal epochs, starts and durations; timescales may differ. */
PV_EXPORT bool PVTimeRangeEqual(PVTimeRange range1, PVTimeRange range2);
/* start <= time < end, by PVTimeCompare. A range with an invalid end contains every valid time from its start
 * on. */
PV_EXPORT bool PVTimeRangeContainsTime(PVTimeRange range, PVTime time);
/* Whether range2 lies within range1, which contains itself and what ends where it ends. False when the starts
 * lie in different epochs. */
PV_EXPORT bool PVTimeRangeContainsTimeRange(PVTimeRange range1, PVTimeRange range2);

/* The time moved to the start or to the (exclusive) end when it is outside; -infinity goes to the start,
 * +infinity to the end; invalid and indefinite times come back unchanged. The result is invalid when the
 * start is not numeric, or the duration is neither +infinity nor indefinite nor a positive number without
 * epoch. */
PV_EXPORT PVTime PVTimeClampToRange(PVTime time, PVTimeRange range);

/* The time at the same fraction of toRange as it has in fromRange; times outside fromRange are extrapolated.
 * A time that is not numeric comes back unchanged. Ranges of equal duration shift exactly; otherwise the
 * factor is a double, applied as PVTimeMultiplyByFloat64 does. Invalid when a start is not numeric, when the
 * time's epoch is not that of fromRange's start, or unless both durations are positive numbers without epoch
 * or both are +infinity or indefinite. */
PV_EXPORT PVTime PVTimeMapTimeFromRangeToRange(PVTime time, PVTimeRange fromRange, PVTimeRange toRange);
/* A duration scaled by the ratio of the two durations. Invalid when it is a number with an epoch, and where
 * the ranges do not suit PVTimeMapTimeFromRangeToRange. */
PV_EXPORT PVTime PVTimeMapDurationFromRangeToRange(PVTime duration, PVTimeRange fromRange,
                                                   PVTimeRange toRange);

/* The two ranges as given; invalid when either duration has an epoch. */
PV_EXPORT PVTimeMapping PVTimeMappingMake(PVTimeRange source, PVTimeRange target);
/* An empty edit: nothing plays over the target. Invalid when its duration has an epoch. */
PV_EXPORT PVTimeMapping PVTimeMappingMakeEmpty(PVTimeRange target);

/* Keys of the dictionary forms: "start", "duration", "source", "target". */
PV_EXPORT extern const BRStringRef kPVTimeRangeStartKey;
PV_EXPORT extern const BRStringRef kPVTimeRangeDurationKey;
PV_EXPORT extern const BRStringRef kPVTimeMappingSourceKey;
PV_EXPORT extern const BRStringRef kPVTimeMappingTargetKey;

/* A new immutable dictionary, which the caller releases: of a range, its two times as PVTimeCopyAsDictionary
 * makes them; of a mapping, its two ranges as range dictionaries. NULL when memory runs out. */
PV_EXPORT BRDictionaryRef PVTimeRangeCopyAsDictionary(PVTimeRange range, BRAllocatorRef allocator);
PV_EXPORT BRDictionaryRef PVTimeMappingCopyAsDictionary(PVTimeMapping mapping, BRAllocatorRef allocator);

/* What such a dictionary holds. Invalid when it is NULL, not a dictionary or lacks a key, or when a duration
 * (of a mapping: either one) has an epoch. A time, or a mapping's range, that cannot be read is an invalid
 * one within the result. */
PV_EXPORT PVTimeRange PVTimeRangeMakeFromDictionary(BRDictionaryRef dictionary);
PV_EXPORT PVTimeMapping PVTimeMappingMakeFromDictionary(BRDictionaryRef dictionary);

/* A new mutable string, which the caller releases: "{{0/1 = 0.000}, {5/1 = 5.000}}"; a mapping has two such
 * ranges within its braces. When memory runs out on the way it is "{ERROR CONSTRUCTING DESCRIPTION}", or
 * NULL. */
PV_EXPORT BRStringRef PVTimeRangeCopyDescription(BRAllocatorRef allocator, PVTimeRange range);
PV_EXPORT BRStringRef PVTimeMappingCopyDescription(BRAllocatorRef allocator, PVTimeMapping mapping);

/* Prints the description and a newline to standard error; nothing when it is longer than 511 characters. */
PV_EXPORT void PVTimeRangeShow(PVTimeRange range);
PV_EXPORT void PVTimeMappingShow(PVTimeMapping mapping);

PV_END_DECLS

#endif
