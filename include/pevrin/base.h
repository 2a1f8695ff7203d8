/* What every Pevrin header shares: the export macro, the status type and the conventions.
 *
 *  1. A function that can fail returns a PVStatus: 0 for success, a negative code for failure. Outputs are written only
 *     on success, except that creating functions write NULL to their out-parameter when they fail.
 *  2. A function with Create or Copy in its name hands out a reference that the caller releases (BRRelease); one with
 *     Get lends a reference, valid while its owner lives.
 *  3. Creating functions take an allocator first; NULL means the default one.
 *  4. Every failure is counted, and logged with its place when the environment has PEVRIN_LOG_ERRORS=1; see
 *     <kiv/error.h>.
 *  5. A Kiv function named like a PV function is the same function under the name that sibling media layers use. */
#ifndef PEVRIN_BASE_H
#define PEVRIN_BASE_H

#include <bedra/base.h>

/* Before declarations, so that C++ takes them for C. */
#define PV_BEGIN_DECLS BR_BEGIN_DECLS
#define PV_END_DECLS BR_END_DECLS /* behind them */
#define PV_EXPORT BR_EXPORT /* the name is exported */

/* 0 is success. Each family of functions owns a block of negative codes, listed in its header. */
typedef int32_t PVStatus;

/* Success, and memory that ran out where a family of functions has no status of its own for it. */
enum { kPVStatus_Success = 0, kPVStatus_OutOfMemory = -108 };

/* A four-character code: 'moov' is 0x6D6F6F76. */
typedef uint32_t PVFourCharCode;

#endif
