/* Memory pools: allocators that keep large blocks for a while after they are freed and hand them out again.
 *
 * A pool is for programs that allocate and free many blocks of equal size in a steady stream, like decoded frames.
 * Fresh memory must be mapped, and zeroed page by page as it is first touched, which takes longer than most of what is
 * then done with a frame. A pool's allocator rounds each size up to whole pages. A freed block waits; a request of the
 * same rounded size takes the block of that size that was freed last, with its old contents. A block that has waited
 * for the age-out period goes back to the system the next time that a block is allocated or freed: a pool that is not
 * used keeps what it has, so flush it. Every block takes at least a page: small things belong elsewhere.
 *
 * Who owns what: the pool owns its allocator. An allocator may be kept (BRRetain) beyond its pool, and is by every
 * object and buffer that it is given to; then it works on without recycling. Blocks in use also keep it, so that each
 * may be freed through it whenever that is.
 *
 * Threads: everything here, and the allocator, may be used from any thread. One lock guards a pool; a call that returns
 * aged blocks to the system does so for about 5 ms at most and leaves the rest to later calls.
 *
 *   PVMemoryPoolRef pool = PVMemoryPoolCreate(NULL);
 *   PVStatus status = PVBlockBufferCreateWithMemoryBlock(NULL, NULL, 3 << 20, PVMemoryPoolGetAllocator(pool), NULL,
 *                                                        0, 3 << 20, kPVBlockBufferAssureMemoryNowFlag, &frame);
 *   BRRelease(pool);   // frame stays, and with it the allocator
 */
#ifndef PEVRIN_MEMORY_POOL_H
#define PEVRIN_MEMORY_POOL_H

#include <bedra/allocator.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* A memory pool. */
typedef struct PVMemoryPool *PVMemoryPoolRef;

/* Option: the age-out period, a number of seconds greater than 0.0, read as a double and cut to whole nanoseconds; one
 * that is too long to count is forever. Anything else means 0.5 seconds. */
PV_EXPORT extern const BRStringRef kPVMemoryPoolOption_AgeOutPeriod; /* "KivMemoryPool_AgeOutPeriod" */

/* The runtime type "KivMemoryPool". */
PV_EXPORT BRTypeID PVMemoryPoolGetTypeID(void);

/* Creates a pool without blocks; the caller releases it. options may be NULL. The last release returns the waiting
 * blocks to the system. NULL when memory runs out, and kPVStatus_OutOfMemory is signalled. */
PV_EXPORT PVMemoryPoolRef PVMemoryPoolCreate(BRDictionaryRef options);

/* The pool's allocator, lent: retain it to keep it longer than the pool. It is for BRAllocatorAllocate and its like,
 * and for every function that takes an allocator.
 *  - Allocating gives a block of whole pages, zero-filled when it is fresh. NULL when the system has none; blocks that
 *    wait stay then, unless they are due.
 *  - Reallocating always moves: it allocates, copies what both sizes hold and frees the old block. When the new block
 *    cannot be had, or the old is not the pool's, the answer is NULL and nothing has happened to the old one.
 *  - Freeing what is not a block in use does nothing.
 * NULL for NULL, and kPVBaseObjectError_ParamErr (-12780) is signalled. */
PV_EXPORT BRAllocatorRef PVMemoryPoolGetAllocator(PVMemoryPoolRef pool);

/* Returns all waiting blocks to the system now, however many. NULL signals as above. */
PV_EXPORT void PVMemoryPoolFlush(PVMemoryPoolRef pool);

/* Flushes the pool and ends recycling for good: blocks go back to the system as they are freed. The allocator works on.
 * NULL signals as above. */
PV_EXPORT void PVMemoryPoolInvalidate(PVMemoryPoolRef pool);

PV_END_DECLS

#endif
