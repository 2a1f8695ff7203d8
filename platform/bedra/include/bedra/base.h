/* Bedra: the base object runtime. Types and macros that every Bedra header shares.
 *
 * Five conventions hold throughout:
 *  1. A function with Create or Copy in its name returns a reference that the caller releases; one with Get returns a
 *     borrowed reference, valid while its owner lives and is not changed.
 *  2. Creating functions take an allocator first; NULL means the default one. They return NULL when memory runs out.
 *  3. Immutable objects may be used from any number of threads. A mutable object is serialised by its user, unless its
 *     header says otherwise. Retain and release are always thread-safe.
 *  4. Lengths carry their unit in the name (lengthBytes, lengthUTF16); counts are counts of elements.
 *  5. No function throws; callbacks must not either. */
#ifndef BEDRA_BASE_H
#define BEDRA_BASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* Before and behind declarations, so that C++ takes them for C. */
#if defined(__cplusplus)
#define BR_BEGIN_DECLS extern "C" {
#define BR_END_DECLS } /* behind them */
#else
#define BR_BEGIN_DECLS
#define BR_END_DECLS /* behind them */
#endif

/* Before each name that a library exports. */
#define BR_EXPORT __attribute__((visibility("default")))

/* Any object of the runtime. */
typedef const void *BRTypeRef;
/* Names a registered class; 0 is no class. */
typedef uint32_t BRTypeID;
typedef uint64_t BRHashCode;

/* References to objects of the runtime; the header of each type describes them. A reference to what only changes while
 * it is mutable has a mutable twin. */
typedef const struct BRAllocator *BRAllocatorRef;
typedef const struct BRString *BRStringRef;
typedef struct BRString *BRMutableStringRef;
typedef const struct BRNumber *BRNumberRef;
typedef const struct BRBoolean *BRBooleanRef;
typedef const struct BRNull *BRNullRef;
typedef const struct BRData *BRDataRef;
typedef struct BRData *BRMutableDataRef;
typedef const struct BRArray *BRArrayRef;
typedef struct BRArray *BRMutableArrayRef;
typedef const struct BRDictionary *BRDictionaryRef;
typedef struct BRDictionary *BRMutableDictionaryRef;
typedef const struct BRSet *BRSetRef;
typedef struct BRSet *BRMutableSetRef;
typedef const struct BRWeakReference *BRWeakReferenceRef;
typedef struct BRNotificationCenter *BRNotificationCenterRef;
typedef struct BRRunLoop *BRRunLoopRef;
typedef struct BRRunLoopTimer *BRRunLoopTimerRef;
typedef struct BRWorkQueue *BRWorkQueueRef;
typedef struct BRTimerSource *BRTimerSourceRef;

/* The answers of a comparison. */
typedef int32_t BRComparisonResult;
enum { kBRCompareLessThan = -1, kBRCompareEqualTo = 0, kBRCompareGreaterThan = 1 };

#endif
