/* The keys of a time in the dictionary form that image buffers carry: value / timescale seconds.
 *
 *   BRNumberRef value = BRDictionaryGetValue(time, kIMBufferTimeValueKey);
 */
#ifndef IMLAY_BUFFER_TIME_H
#define IMLAY_BUFFER_TIME_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* "TimeValue": a number, signed 64-bit. */
BR_EXPORT extern const BRStringRef kIMBufferTimeValueKey;
/* "TimeScale": a number, signed 32-bit, units per second. */
BR_EXPORT extern const BRStringRef kIMBufferTimeScaleKey;

BR_END_DECLS

#endif
