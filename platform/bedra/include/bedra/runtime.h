/* The object runtime: classes, instances, reference counts and the operations that every object answers.
 *
 * An object is one block of memory: a 16-byte header (class, flags, atomic count) and the class's own fields. Constant
 * objects (literal strings, the booleans, null) are immortal: retain and release leave them alone.
 *
 * Threads: all functions may be called from any thread. The last release finalizes the object, on the thread that
 * calls it; whatever other threads did before they released their references has happened by then. A finalizer may
 * retain and release the object in balance, but must not leave a reference behind.
 *
 *   static const BRRuntimeClass cls = {.version = 0, .className = "Reel", .finalize = reelFinalize};
 *   BRTypeID reelID = BRRuntimeRegisterClass(&cls);           // once per process
 *   Reel *reel = (Reel *)BRRuntimeCreateInstance(NULL, reelID, sizeof(Reel) - kBRObjectHeaderBytes);
 *   ...
 *   BRRelease(reel);
 */
#ifndef BEDRA_RUNTIME_H
#define BEDRA_RUNTIME_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* Size of the header that opens every object. */
enum { kBRObjectHeaderBytes = 16 };

/* What the runtime asks of a class. Every callback may be NULL. */
typedef struct BRRuntimeClass {
  uint32_t version;      /* must be 0 */
  const char *className; /* required; lives as long as the process */
  void (*init)(BRTypeRef object);                              /* after the instance was made and zeroed */
  BRTypeRef (*copy)(BRAllocatorRef allocator, BRTypeRef object); /* kept for the class's own use */
  void (*finalize)(BRTypeRef object);                          /* once, when the last reference goes */
  bool (*equal)(BRTypeRef a, BRTypeRef b);                     /* two objects of this class; NULL: identity */
  BRHashCode (*hash)(BRTypeRef object);                        /* equal objects hash equal; NULL: identity */
  BRStringRef (*copyFormattingDescription)(BRTypeRef object, BRDictionaryRef options); /* what %@ prints */
  BRStringRef (*copyDebugDescription)(BRTypeRef object);
} BRRuntimeClass;

/* Registers a class for the life of the process; the record must live as long. Thread-safe. 0 when the record is
 * malformed or the table of classes is full (4,095 classes). */
BR_EXPORT BRTypeID BRRuntimeRegisterClass(const BRRuntimeClass *cls);

/* The record a type ID was registered with, or NULL. Lock-free. */
BR_EXPORT const BRRuntimeClass *BRRuntimeGetClass(BRTypeID typeID);

/* Makes an instance with extraBytes of zero-filled fields behind the header, and calls the class's init. The caller
 * owns it. NULL when the type ID is unknown or memory runs out. */
BR_EXPORT BRTypeRef BRRuntimeCreateInstance(BRAllocatorRef allocator, BRTypeID typeID, size_t extraBytes);

/* The same, with only the first zeroedBytes (at most extraBytes) of the fields zero-filled: for classes that fill large
 * instances themselves. */
BR_EXPORT BRTypeRef BRRuntimeCreateUnfilledInstance(BRAllocatorRef allocator, BRTypeID typeID, size_t extraBytes,
                                                    size_t zeroedBytes);

/* Adds a reference and returns the object. NULL is allowed. */
BR_EXPORT BRTypeRef BRRetain(BRTypeRef object);

/* Drops a reference; the last one finalizes and frees the object. NULL is allowed. */
BR_EXPORT void BRRelease(BRTypeRef object);

/* The number of references at this moment; UINT32_MAX for an immortal object, 0 for NULL. For tests and debugging:
 * another thread may change it at once. */
BR_EXPORT uint32_t BRGetRetainCount(BRTypeRef object);

/* The object's class; 0 for NULL. */
BR_EXPORT BRTypeID BRGetTypeID(BRTypeRef object);

/* The allocator that made the object; the default allocator for constant objects. Borrowed. */
BR_EXPORT BRAllocatorRef BRGetAllocator(BRTypeRef object);

/* The class's name, or NULL for an unknown type ID. Lives as long as the process. */
BR_EXPORT const char *BRTypeGetName(BRTypeID typeID);

/* True when both are the same object, or both of one class whose equal callback says so. Two NULLs are equal. */
BR_EXPORT bool BREqual(BRTypeRef a, BRTypeRef b);

/* Equal objects hash equal. 0 for NULL. */
BR_EXPORT BRHashCode BRHash(BRTypeRef object);

/* Text for a person: what the class's formatting description says, else "<name 0xaddress>". Caller releases. */
BR_EXPORT BRStringRef BRCopyDescription(BRTypeRef object);

/* Text for a debugger: what the class's debug description says, else its description. Caller releases. */
BR_EXPORT BRStringRef BRCopyDebugDescription(BRTypeRef object);

BR_END_DECLS

#endif
