/* Allocators: where an object's memory comes from.
 *
 * An allocator is an object. The default allocator (also written NULL) is the system's malloc. The null allocator
 * never allocates and never frees: it stands for "not mine to free". An object remembers the allocator that made it,
 * keeps it alive, and takes from it every block that belongs to the object.
 *
 * Threads: an allocator may be used from any thread when its callbacks may.
 *
 *   BRAllocatorContext context = {0, &pool, NULL, NULL, NULL, poolAllocate, poolReallocate, poolDeallocate};
 *   BRAllocatorRef allocator = BRAllocatorCreate(NULL, &context);
 *   BRMutableArrayRef array = BRArrayCreateMutable(allocator, 0, &kBRTypeArrayCallBacks);
 *   BRRelease(allocator);  // the array still holds it
 */
#ifndef BEDRA_ALLOCATOR_H
#define BEDRA_ALLOCATOR_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* The operations of an allocator. */
typedef struct BRAllocatorContext {
  uint32_t version; /* must be 0 */
  void *info;       /* handed to every callback */
  const void *(*retain)(const void *info);             /* may be NULL; called once when the allocator is made */
  void (*release)(const void *info);                   /* may be NULL; called once when the allocator goes */
  BRStringRef (*copyDescription)(const void *info);    /* may be NULL */
  void *(*allocate)(size_t sizeBytes, void *info);     /* required; 16-byte aligned, or NULL when out of memory */
  void *(*reallocate)(void *block, size_t newSizeBytes, void *info); /* may be NULL: then blocks cannot be resized */
  void (*deallocate)(void *block, void *info);         /* may be NULL: then blocks are not given back */
} BRAllocatorContext;

/* NULL: spelled out for readability. */
BR_EXPORT extern const BRAllocatorRef kBRAllocatorDefault;
/* malloc, realloc and free. */
BR_EXPORT extern const BRAllocatorRef kBRAllocatorSystem;
/* Allocates nothing and frees nothing. */
BR_EXPORT extern const BRAllocatorRef kBRAllocatorNull;

/* The runtime type "BRAllocator". */
BR_EXPORT BRTypeID BRAllocatorGetTypeID(void);

/* Makes an allocator over the context's callbacks; the context is copied. NULL when the context is NULL, its version is
 * not 0, it cannot allocate, or memory runs out. */
BR_EXPORT BRAllocatorRef BRAllocatorCreate(BRAllocatorRef allocator, const BRAllocatorContext *context);

/* A block of at least sizeBytes, 16-byte aligned, uninitialised. NULL when sizeBytes is 0 or memory runs out. */
BR_EXPORT void *BRAllocatorAllocate(BRAllocatorRef allocator, size_t sizeBytes);

/* Resizes a block, keeping its contents. A NULL block allocates; a size of 0 gives the block back and returns NULL.
 * On failure the answer is NULL and the old block stands. */
BR_EXPORT void *BRAllocatorReallocate(BRAllocatorRef allocator, void *block, size_t newSizeBytes);

/* Gives a block back to the allocator it came from. A NULL block is nothing. */
BR_EXPORT void BRAllocatorDeallocate(BRAllocatorRef allocator, void *block);

/* Copies the context of a custom allocator into *context. False for the built-in ones. */
BR_EXPORT bool BRAllocatorGetContext(BRAllocatorRef allocator, BRAllocatorContext *context);

BR_END_DECLS

#endif
