/* Base objects, for the implementers of classes. */
#ifndef KIV_BASE_OBJECT_H
#define KIV_BASE_OBJECT_H

#include <pevrin/base_object.h>

PV_BEGIN_DECLS

enum { kKivBaseClassFlag_OwnRuntimeType = 1 };

/* The root of every chain of classes. */
PV_EXPORT extern const PVBaseClassID kKivBaseClassID;

PV_EXPORT PVStatus KivBaseClassRegisterClass(const PVClassDescription *description, PVBaseClassID parentClassID,
                                             uint32_t flags, PVBaseClassID *classIDOut);
PV_EXPORT PVStatus KivBaseObjectStandardNotificationBarrier(PVBaseObjectRef object);

PV_EXPORT PVStatus KivDerivedObjectCreate(BRAllocatorRef allocator, const PVVTable *vtable, PVBaseClassID classID,
                                          PVBaseObjectRef *objectOut);
PV_EXPORT const PVVTable *KivBaseObjectGetVTable(PVBaseObjectRef object);
PV_EXPORT void *KivBaseObjectGetDerivedStorage(PVBaseObjectRef object);
PV_EXPORT PVBaseClassID KivBaseObjectGetClassID(PVBaseObjectRef object);
PV_EXPORT BRTypeID KivBaseClassGetBRTypeID(PVBaseClassID classID);
PV_EXPORT bool KivBaseObjectIsMemberOfClass(PVBaseObjectRef object, PVBaseClassID classID);
PV_EXPORT PVBaseClassID KivBaseGetClassID(void);

PV_END_DECLS

#endif
