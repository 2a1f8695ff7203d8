/* Base objects: classes with tables of operations. */
#ifndef PEVRIN_BASE_OBJECT_H
#define PEVRIN_BASE_OBJECT_H

#include <bedra/runtime.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

typedef struct PVBaseObject *PVBaseObjectRef;
typedef const struct PVBaseClassIDRecord *PVBaseClassID;

enum {
  kPVBaseObjectError_ParamErr = -12780,
  kPVBaseObjectError_UnsupportedVersion = -12781,
  kPVBaseObjectError_ValueNotAvailable = -12782
};

#pragma pack(push, 4)
typedef struct PVClassDescription {
  uint32_t version;
  const char *className;
  const void *reserved;
  BRStringRef (*copyFormattingDescription)(PVBaseObjectRef object, BRDictionaryRef options);
} PVClassDescription;

typedef struct PVBaseClass {
  uint32_t version;
  size_t derivedStorageSize;
  bool (*equal)(PVBaseObjectRef a, PVBaseObjectRef b);
  const void *reserved;
  void (*finalize)(PVBaseObjectRef object);
  BRStringRef (*copyDebugDescription)(PVBaseObjectRef object);
  PVStatus (*copyProperty)(PVBaseObjectRef object, BRStringRef key, BRAllocatorRef allocator, void *valueOut);
  PVStatus (*setProperty)(PVBaseObjectRef object, BRStringRef key, BRTypeRef value);
  PVStatus (*notificationBarrier)(PVBaseObjectRef object); /* version 2 and up */
} PVBaseClass;
#pragma pack(pop)

typedef struct PVVTable {
  const void *reserved;
  const PVBaseClass *base;
  /* protocol class records follow in the implementer's own struct */
} PVVTable;

PV_EXPORT PVStatus PVDerivedObjectCreate(BRAllocatorRef allocator, const PVVTable *vtable, PVBaseClassID classID,
                                         PVBaseObjectRef *objectOut);
PV_EXPORT const PVVTable *PVBaseObjectGetVTable(PVBaseObjectRef object);
PV_EXPORT void *PVBaseObjectGetDerivedStorage(PVBaseObjectRef object);
PV_EXPORT PVBaseClassID PVBaseObjectGetClassID(PVBaseObjectRef object);
PV_EXPORT BRTypeID PVBaseClassGetBRTypeID(PVBaseClassID classID);
PV_EXPORT bool PVBaseObjectIsMemberOfClass(PVBaseObjectRef object, PVBaseClassID classID);
PV_EXPORT PVBaseClassID PVBaseGetClassID(void);

PV_END_DECLS

#endif
