/* Base objects: reference-counted objects with a class and a table of operations.
 *
 * Clocks, timebases, byte streams and the other objects of which several kinds exist are base objects. A class is
 * registered once per process (<kiv/base_object.h>). An object carries its class ID, its VTable and a block of derived
 * storage for the implementation behind it:
 *
 *   PVBaseObject:  runtime header | class ID | VTable | derived storage (zero-filled at creation)
 *   VTable:        reserved (null) | base class record | the protocol's own class records ...
 *
 * A null slot in a record means that the operation is not available. Who calls an operation of a protocol looks up the
 * slot in the VTable and, finding it null, answers kPVBaseObjectError_ValueNotAvailable or the protocol's own status.
 *
 * Ownership: an object is retained and released with BRRetain and BRRelease; the last release calls the class's
 * finalize. A VTable and what it points to live as long as the process.
 *
 * Threads: creating, retaining and releasing are safe on any thread. What else is, each protocol says.
 *
 *   typedef struct { int32_t frames; } Reel;
 *   static const PVBaseClass reelBase = {.version = 1, .derivedStorageSize = sizeof(Reel), .finalize = reelFinalize};
 *   static const PVVTable reelVTable = {NULL, &reelBase};
 *   PVBaseObjectRef reel;
 *   PVStatus status = PVDerivedObjectCreate(NULL, &reelVTable, reelClassID(), &reel);
 *   if (status == 0) ((Reel *)PVBaseObjectGetDerivedStorage(reel))->frames = 24; */
#ifndef PEVRIN_BASE_OBJECT_H
#define PEVRIN_BASE_OBJECT_H

#include <bedra/runtime.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* An object with a table of operations. */
typedef struct PVBaseObject *PVBaseObjectRef;

/* A registered class. Class IDs are never freed and may be compared. */
typedef const struct PVBaseClassIDRecord *PVBaseClassID;

/* The codes of this layer; besides them kPVStatus_OutOfMemory. */
enum {
  /* A null argument, a reserved word that is not null, a class without runtime type, a second runtime type in a
   * chain. */
  kPVBaseObjectError_ParamErr = -12780,
  /* The base class record's version is not one that this library knows. */
  kPVBaseObjectError_UnsupportedVersion = -12781,
  /* The property or operation is not available on this object. */
  kPVBaseObjectError_ValueNotAvailable = -12782
};

/* What an implementer says about a class when registering it; lives as long as the process. */
#pragma pack(push, 4)
typedef struct PVClassDescription {
  uint32_t version;      /* 0 */
  const char *className; /* the runtime type's name; needed by a class that has a runtime type of its own */
  const void *reserved;  /* not read: for the implementer's own use */
  /* May be null. The text for a person, what %@ prints; the caller releases it. Used for every object of the runtime
   * type that the class brings with it, also for those of classes derived from it. */
  BRStringRef (*copyFormattingDescription)(PVBaseObjectRef object, BRDictionaryRef options);
} PVClassDescription;

/* The operations that every object has. Each may be null. */
typedef struct PVBaseClass {
  uint32_t version;          /* 1, or 2 with notificationBarrier */
  size_t derivedStorageSize; /* in bytes */
  /* Called for two different objects with the same VTable. Objects are hashed by identity: those that are equal to
   * others do not find each other as keys of dictionaries. */
  bool (*equal)(PVBaseObjectRef a, PVBaseObjectRef b);
  const void *reserved;                                      /* not read: set it to null */
  void (*finalize)(PVBaseObjectRef object);                  /* once, when the last reference goes */
  BRStringRef (*copyDebugDescription)(PVBaseObjectRef object); /* may answer null; becomes part of the base's text */
  /* Writes a retained value to where valueOut points. */
  PVStatus (*copyProperty)(PVBaseObjectRef object, BRStringRef key, BRAllocatorRef allocator, void *valueOut);
  PVStatus (*setProperty)(PVBaseObjectRef object, BRStringRef key, BRTypeRef value);
  /* Version 2: KivBaseObjectStandardNotificationBarrier, which registers every object for barriers at the default local
   * notification center while it lives; or a function of the class's own; or null. Not read in version 1. */
  PVStatus (*notificationBarrier)(PVBaseObjectRef object);
} PVBaseClass;
#pragma pack(pop)

/* The table of operations. A protocol's own struct begins with these two words, and its class records follow. */
typedef struct PVVTable {
  const void *reserved; /* must be null */
  const PVBaseClass *base;
} PVVTable;

/* Creates an object; the caller releases it. The runtime type is that of the class or of its nearest ancestor that has
 * one. The derived storage is zero-filled and 16-byte aligned.
 * Statuses, in this order: ParamErr (vtable, its base class record or objectOut null); UnsupportedVersion (not 1 or 2);
 * ParamErr (the VTable's reserved word is not null, the class ID is null, no class of the chain has a runtime type);
 * -ENOMEM, the system's error number made negative like every status (memory runs out); what the notification center
 * answers to the registration for barriers. On failure *objectOut is NULL. */
PV_EXPORT PVStatus PVDerivedObjectCreate(BRAllocatorRef allocator, const PVVTable *vtable, PVBaseClassID classID,
                                         PVBaseObjectRef *objectOut);

/* The object's table of operations; NULL for NULL, and during finalization once the class's finalize has run. */
PV_EXPORT const PVVTable *PVBaseObjectGetVTable(PVBaseObjectRef object);

/* The object's derived storage; NULL for NULL. */
PV_EXPORT void *PVBaseObjectGetDerivedStorage(PVBaseObjectRef object);

/* The class the object was created with. The object should not be NULL; NULL gives NULL. */
PV_EXPORT PVBaseClassID PVBaseObjectGetClassID(PVBaseObjectRef object);

/* The runtime type of the class or of its nearest ancestor that has one; 0 for NULL and when none has. */
PV_EXPORT BRTypeID PVBaseClassGetBRTypeID(PVBaseClassID classID);

/* True when the object is of the class or of one derived from it. False for NULL. */
PV_EXPORT bool PVBaseObjectIsMemberOfClass(PVBaseObjectRef object, PVBaseClassID classID);

/* The root class, the ancestor of all. */
PV_EXPORT PVBaseClassID PVBaseGetClassID(void);

PV_END_DECLS

#endif
