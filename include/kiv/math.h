/* Integer arithmetic beyond 64 bits.
 *
 *   int32_t remainder;
 *   int64_t ticks = KivInt64MulDiv(value, 90000, 48000, &remainder);    // value * 90000 / 48000, no overflow
 * between if (ticks == INT64_MAX || ticks == INT64_MIN) return tooLarge;
 */
#ifndef KIV_MATH_H
#define KIV_MATH_H

#include <pevrin/base.h>

PV_BEGIN_DECLS

/* a * b / c, computed with a 128-bit product and truncated toward zero.
 *
 * A quotient whose magnitude does not fit 63 bits saturates: to INT64_MAX when it is positive, to INT64_MIN
 * when it is negative. Those two answers mean overflow; a quotient that truly is INT64_MAX is told apart by
 * nobody. A divisor of 0 saturates too, by the sign of a * b; 0 / 0 is 0.
 *
 * *remainderOut (may be NULL) receives a * b - quotient * c by magnitude, with the sign of the true quotient.
 * It fits whenever c fits 32 bits; a larger one saturates. It is 0 where the quotient saturated. Thread-safe.
 */
PV_EXPORT int64_t KivInt64MulDiv(int64_t a, int64_t b, int64_t c, int32_t* remainderOut);

PV_END_DECLS

#endif
