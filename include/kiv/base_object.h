/* Base objects, for the implementers and callers of protocols.
 *
 *   PVBaseClassID reelClassID(void) {                        // called through a once-only guard
 *     static const PVClassDescription description = {.version = 0, .className = "Reel"};
 *     static PVBaseClassID classID;
 *     if (!classID)
 *       KivBaseClassRegisterClass(&description, kKivBaseClassID, kKivBaseClassFlag_OwnRuntimeType, &classID);
 *     return classID;
 *   }
 *   BRNumberRef frames;
 *   PVStatus status = KivBaseObjectCopyProperty(reel, key, NULL, &frames); */
#ifndef KIV_BASE_OBJECT_H
#define KIV_BASE_OBJECT_H

#include <pevrin/base_object.h>

PV_BEGIN_DECLS

/* The class brings a runtime type with it. A chain of classes has at most one such class. */
enum { kKivBaseClassFlag_OwnRuntimeType = 1 };

/* The root of every chain of classes. It has no runtime type. */
PV_EXPORT extern const PVBaseClassID kKivBaseClassID;

/* Registers a class for the life of the process; the description must live as long. Safe on any thread, but registering
 * twice makes two classes: keep the call behind a once-only guard. Flags other than the one above are not read.
 * Statuses, in this order: ParamErr (an argument is null; with the flag, an ancestor has a runtime type already);
 * kPVStatus_OutOfMemory; -1 (the runtime refuses the class: it has no name, or the table of classes is full).
 * *classIDOut is written on success only. */
PV_EXPORT PVStatus KivBaseClassRegisterClass(const PVClassDescription *description, PVBaseClassID parentClassID,
                                             uint32_t flags, PVBaseClassID *classIDOut);

/* The barrier that most classes want in their notificationBarrier slot, and a function to call on such an object:
 * returns when the deliveries of notifications about the object that are in progress on other threads have finished.
 * Statuses: ParamErr (object is null); those of PVNotificationCenterBarrier. */
PV_EXPORT PVStatus KivBaseObjectStandardNotificationBarrier(PVBaseObjectRef object);

/* Copies a property through the object's copyProperty slot. valueOut points to what the key says, mostly an object
 * reference that the caller releases; allocator is for what has to be made. Threads are the protocol's.
 * Statuses: ParamErr (object, key or valueOut is null); ValueNotAvailable (the slot is null); else what the class
 * answers. *valueOut is written by the class, on success only. */
PV_EXPORT PVStatus KivBaseObjectCopyProperty(PVBaseObjectRef object, BRStringRef key, BRAllocatorRef allocator,
                                             void *valueOut);

/* Sets a property through the object's setProperty slot. Whether a null value is allowed the class says.
 * Statuses: ParamErr (object or key is null); ValueNotAvailable (the slot is null); else what the class answers. */
PV_EXPORT PVStatus KivBaseObjectSetProperty(PVBaseObjectRef object, BRStringRef key, BRTypeRef value);

/* The PV functions under the names that sibling layers use. */
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
