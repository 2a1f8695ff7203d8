/* Time: exact rational values, passed and returned by copy.
 *
 * A time is value / timescale seconds, with flags that say whether it is a number at all and an epoch that
 * tells apart equal times from different rounds of a looping timeline. 48000 units of 1/48000 s, 600 of 1/600
 * s and 1 of 1/1 s are the same time: PVTimeCompare says so, and arithmetic finds a common timescale by
 * itself.
 *
 *   PVTime frame = PVTimeMake(1001, 30000);                       // 1001/30000 s, exactly
 *   PVTime start = PVTimeMultiply(frame, 240);
 *   PVTime end = PVTimeAdd(start, PVTimeMake(1, 48000));          // in 1/240000 s, still exact
 *   if (PVTimeCompare(end, start) > 0) PVTimeShow(end);
 *   double seconds = PVTimeGetSeconds(end);
 *
 * Arithmetic reports nothing: its result says how it went. What overflows is first tried again on half the
 * timescale, and again, down to timescale 1, and only then becomes an infinity with the sign of the true
 * result; it never wraps. What could not be kept exactly carries kPVTimeFlags_HasBeenRounded, which passes on
 * to everything computed from it. What has no answer is kPVTimeInvalid. A result that is invalid has all
 * fields 0; one that is infinite or indefinite has value, timescale and epoch 0.
 *
 * Times from a dictionary, or filled in by hand, are taken as they stand. Every function copes with any field
 * values: flags alone decide what a time is, and a timescale below 1 (which no function here makes) gives the
 * results described with each function. A time that has several of the bits for infinity and indefinite at
 * once belongs to none of the kinds: each function answers by the first bit that it looks at, and no more is
 * promised.
 *
 * Threads: every function may be called from any thread at any time. Only the Copy functions allocate. */
#ifndef PEVRIN_TIME_H
#define PEVRIN_TIME_H

#include <bedra/dictionary.h>
#include <bedra/string.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* The types of a time's fields. */
typedef int64_t PVTimeValue;
typedef int32_t PVTimeScale; /* units per second */
typedef uint32_t PVTimeFlags;
typedef int64_t PVTimeEpoch;

enum {
  kPVTimeFlags_Valid = 1,          /* without it, every other bit is meaningless */
  kPVTimeFlags_HasBeenRounded = 2, /* at some step the value was rounded */
  kPVTimeFlags_PositiveInfinity = 4,
  kPVTimeFlags_NegativeInfinity = 8,
  kPVTimeFlags_Indefinite = 16 /* not known, like the duration of a live stream */
};

/* A time: value / timescale seconds. */
typedef struct PVTime {
  PVTimeValue value;
  PVTimeScale timescale; /* at least 1 in a time that is a number */
  PVTimeFlags flags;
  PVTimeEpoch epoch; /* usually 0 */
} PVTime;

/* All fields 0. */
PV_EXPORT extern const PVTime kPVTimeInvalid;
PV_EXPORT extern const PVTime kPVTimeIndefinite;
PV_EXPORT extern const PVTime kPVTimePositiveInfinity;
PV_EXPORT extern const PVTime kPVTimeNegativeInfinity;
/* 0/1 seconds. */
PV_EXPORT extern const PVTime kPVTimeZero;

/* What becomes of a quotient that is not whole. */
typedef uint32_t PVTimeRoundingMethod;
enum {
  kPVTimeRoundingMethod_RoundHalfAwayFromZero = 1, /* to the nearest; all arithmetic here uses this one */
  kPVTimeRoundingMethod_RoundTowardZero = 2,       /* as does any selector not listed */
  kPVTimeRoundingMethod_RoundAwayFromZero = 3,
  /* To a timescale that is not larger: toward zero, except that a negative time that would become 0 becomes
   * -1. To a larger timescale: away from zero. */
  kPVTimeRoundingMethod_Tavlo = 4,
  kPVTimeRoundingMethod_RoundTowardPositiveInfinity = 5,
  kPVTimeRoundingMethod_RoundTowardNegativeInfinity = 6
};

/* What kind of time it is. Every time is exactly one of invalid, indefinite, infinite (either) or numeric. */
static inline bool PVTimeIsValid(PVTime time) { return (time.flags & kPVTimeFlags_Valid) != 0; }
static inline bool PVTimeIsInvalid(PVTime time) { return !PVTimeIsValid(time); }
static inline bool PVTimeIsPositiveInfinity(PVTime time) { return (time.flags & 5) == 5; }
static inline bool PVTimeIsNegativeInfinity(PVTime time) { return (time.flags & 9) == 9; }
static inline bool PVTimeIsIndefinite(PVTime time) { return (time.flags & 17) == 17; }
static inline bool PVTimeIsNumeric(PVTime time) { return (time.flags & 29) == 1; }
static inline bool PVTimeHasBeenRounded(PVTime time) {
  return PVTimeIsNumeric(time) && (time.flags & kPVTimeFlags_HasBeenRounded) != 0;
}

/* value/timescale seconds. Invalid when the timescale is below 1 (the epoch is then 0 too). */
PV_EXPORT PVTime PVTimeMake(int64_t value, int32_t timescale);
PV_EXPORT PVTime PVTimeMakeWithEpoch(int64_t value, int32_t timescale, int64_t epoch);

/* The time in the preferred timescale for a number of seconds, truncated toward zero; flagged as rounded
 * unless value/timescale, computed in double, gives the seconds back exactly. Invalid when the timescale is
 * below 1.
 *
 * Seconds too large for the timescale halve it, down to 1; what is still too large then is an infinity. Two
 * corners stand as they are: a negative number of seconds too large for the preferred timescale comes out
 * with a positive value
 * (-1e10 at timescale 1000000000 is 5000000000000000000/500000000, rounded; -infinity with a timescale above
 * 1 is -2^63 on half of it), and a NaN is -2^63 on the preferred timescale, rounded.
 *
 * At timescales up to 100, an error between 0.01 and 1 second logs a warning at error level; at most ten in
 * the life of the process. */
PV_EXPORT PVTime PVTimeMakeWithSeconds(double seconds, int32_t preferredTimescale);

/* The nearest double to value/timescale (the two rounded to double first); an infinity for an infinite time;
 * NaN for one that is invalid or indefinite. A timescale of 0 divides as doubles do. */
PV_EXPORT double PVTimeGetSeconds(PVTime time);

/* The time in another timescale; its epoch stays. Unchanged, flags and all, when it is not numeric or has
 * that timescale already; invalid when the timescale is below 1. A quotient that is not whole is rounded by
 * the method and flagged; one that reaches 2^63 - 1 or -2^63 gives +infinity or -infinity. A time with a
 * negative timescale converts like the fraction that it is; with a timescale of 0, value 0 stays 0 and any
 * other becomes the infinity of its sign. */
PV_EXPORT PVTime PVTimeConvertScale(PVTime time, int32_t newTimescale, PVTimeRoundingMethod method);

/* lhs + rhs and lhs - rhs.
 *
 * Timescale: that of both when they agree; else the least common multiple, or 1000000000 when that does not
 * fit 31 bits (then the operands may be rounded). No conversion happens when one operand has value 0: the
 * result is the other, so 0/600 + 1/1000 is 1/1000, 0 + 0 keeps the timescale of rhs, and 0 - 0 that of lhs.
 *
 * Epoch: equal epochs cancel to 0, also when both are the same non-zero one; one zero epoch gives the other
 * one; two different non-zero ones give an invalid time.
 *
 * An invalid operand gives an invalid result. Infinities win over numbers and indefinite times; opposite
 * infinities added, or equal ones subtracted, are invalid. Otherwise an indefinite operand gives an
 * indefinite result. Two different timescales of which one is below 1 give an invalid result, unless a value
 * is 0. */
PV_EXPORT PVTime PVTimeAdd(PVTime lhs, PVTime rhs);
PV_EXPORT PVTime PVTimeSubtract(PVTime lhs, PVTime rhs);

/* time * multiplier, timescale and epoch kept unless overflow halves the timescale. An infinity keeps its
 * sign under a multiplier of 0 or more and changes it otherwise. A product of 2^63 - 1 counts as overflow. */
PV_EXPORT PVTime PVTimeMultiply(PVTime time, int32_t multiplier);

/* time * multiplier, computed in double and rounded to the nearest unit, half away from zero. A multiplier
 * with a fraction first takes the time to timescale 1000000000 if its own is smaller. Flagged as rounded when
 * the time was, when the result is beyond 2^51, or when a timescale below 1000000000 could not hold the
 * product; at 1000000000 and above, an inexact product is not flagged. An infinity keeps its sign under a
 * multiplier of 0 or more and changes it otherwise, also under NaN. A product that is
 * not a number, as of NaN, or of infinity and a value that is 0 or becomes 0 as the timescale is halved, has
 * value -2^63 and is flagged. */
PV_EXPORT PVTime PVTimeMultiplyByFloat64(PVTime time, double multiplier);

/* time * multiplier / divisor: exact, with whatever timescale that takes, as long as value and timescale fit;
 * else in timescale 1000000000, to the nearest unit, half away from zero, and flagged when not exact. A
 * product of 0 keeps the timescale. A divisor of 0 gives an invalid time when the multiplier is 0 or the time
 * equals 0/1, else the infinity of the sign that the operands have together (0 counting as positive). An
 * infinite time times 0 is invalid. */
PV_EXPORT PVTime PVTimeMultiplyByRatio(PVTime time, int32_t multiplier, int32_t divisor);

/* -1, 0 or 1 as a is before, equal to or after b. The order is total:
 * -infinity < every number < indefinite < +infinity < invalid, each kind equal to itself.
 * Of two numbers, the one with the larger epoch is later whatever the values; within an epoch the exact
 * rationals count, so 1/2 equals 2/4. It stays a total order over any field values: between different
 * timescales a negative one is read as unsigned, and one of 0 puts a value beyond all others on its side, 0/0
 * being 0. */
PV_EXPORT int32_t PVTimeCompare(PVTime a, PVTime b);

/* The lesser and the greater by PVTimeCompare, whole records. Of two equal times Minimum gives b and Maximum
 * a. */
PV_EXPORT PVTime PVTimeMinimum(PVTime a, PVTime b);
PV_EXPORT PVTime PVTimeMaximum(PVTime a, PVTime b);

/* The time without its sign; other fields kept. Invalid and indefinite times come back unchanged. A value of
 * -2^63 has no counterpart, so there the timescale is halved; +infinity at timescale 1 and below. */
PV_EXPORT PVTime PVTimeAbsoluteValue(PVTime time);

/* Keys of the dictionary form: "value", "timescale", "epoch", "flags". */
PV_EXPORT extern const BRStringRef kPVTimeValueKey;
PV_EXPORT extern const BRStringRef kPVTimeScaleKey;
PV_EXPORT extern const BRStringRef kPVTimeEpochKey;
PV_EXPORT extern const BRStringRef kPVTimeFlagsKey;

/* A new immutable dictionary with the four fields as numbers, which the caller releases; any time has one.
 * NULL when memory runs out. */
PV_EXPORT BRDictionaryRef PVTimeCopyAsDictionary(PVTime time, BRAllocatorRef allocator);

/* The time that such a dictionary holds, its fields unchecked. Invalid when it is NULL, not a dictionary, or
 * lacks one of the keys, or when a value is not a number that fits the field: 64-bit value and epoch, 32-bit
 * timescale and flags, all signed. */
PV_EXPORT PVTime PVTimeMakeFromDictionary(BRDictionaryRef dictionary);

/* The form that image buffers carry: value and timescale under the keys of <imlay/buffer_time.h>; flags and
 * epoch are dropped. The caller releases it. NULL when the time is not numeric or memory runs out. */
PV_EXPORT BRDictionaryRef PVTimeCopyAsIMBufferTimeDictionary(PVTime time, BRAllocatorRef allocator);

/* {value, timescale, valid, epoch 0} from that form, fields unchecked; invalid as with
 * PVTimeMakeFromDictionary. */
PV_EXPORT PVTime PVTimeMakeFromIMBufferTimeDictionary(BRDictionaryRef dictionary);

/* A new mutable string, which the caller releases: "{1/2 = 0.500}", with ", epoch=4", ", rounded" and ",
 * flags=0x..." (for flags that are not only validity and rounding) where they apply; "{INVALID}",
 * "{INDEFINITE}", "{+INFINITY}",
 * "{-INFINITY}". NULL when memory runs out. */
PV_EXPORT BRStringRef PVTimeCopyDescription(BRAllocatorRef allocator, PVTime time);

/* Prints the description and a newline to standard error. */
PV_EXPORT void PVTimeShow(PVTime time);

PV_END_DECLS

#endif
