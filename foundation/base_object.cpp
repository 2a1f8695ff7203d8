// Classes and objects of the base layer.
//
// A class ID is the address of a record that is never freed or changed after registration, so that chains of
// classes are read without locks. The record embeds what the runtime needs to know of a class, for those that
// have a runtime type of their own; its callbacks find the class again through the object.
#include <kiv/base_object.h>
#include <pevrin/notification_center.h>

#include <bedra/allocator.h>
#include <bedra/string.h>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>
#include <cerrno>
#include <new>

#include "runtime/error.hpp"
#include "runtime/twin.hpp"

struct PVBaseClassIDRecord {
  PVBaseClassID parent;
  const PVClassDescription* description;
  BRRuntimeClass runtimeClass;
  BRTypeID typeID;  // 0: the class has no runtime type of its own
};

struct PVBaseObject : BRObject {
  PVBaseClassID classID;
  const PVVTable* vtable;  // null from the end of finalize on

  void* storage() { return this + 1; }
};
static_assert(sizeof(PVBaseObject) % 16 == 0, "derived storage is 16-byte aligned");

namespace {

constexpr PVClassDescription kRootDescription{
    .version = 0, .className = "KivBaseObject", .reserved = nullptr, .copyFormattingDescription = nullptr};
constinit const PVBaseClassIDRecord rootClass{
    .parent = nullptr, .description = &kRootDescription, .runtimeClass = {}, .typeID = 0};

PVBaseObjectRef asBaseObject(BRTypeRef object) {
  return static_cast<PVBaseObjectRef>(const_cast<void*>(object));
}

// The class that brings the runtime type: the class itself or its nearest ancestor that has one; or null.
PVBaseClassID classWithRuntimeType(PVBaseClassID classID) {
  while (classID && classID->typeID == 0) classID = classID->parent;
  return classID;
}

bool hasStandardBarrier(const PVBaseClass& base) {
  return base.version == 2 && base.notificationBarrier == KivBaseObjectStandardNotificationBarrier;
}

void baseInit(BRTypeRef object) { asBaseObject(object)->vtable = nullptr; }

void baseFinalize(BRTypeRef ref) {
  PVBaseObjectRef object = asBaseObject(ref);
  if (!object->vtable) return;
  const PVBaseClass& base = *object->vtable->base;
  // An object that could not be registered is not known there: the answer does not matter.
  if (hasStandardBarrier(base))
    PVNotificationCenterUnregisterForBarrierSupport(PVNotificationCenterGetDefaultLocalCenter(), object);
  if (base.finalize) base.finalize(object);
  object->vtable = nullptr;
}

bool baseEqual(BRTypeRef a, BRTypeRef b) {
  if (a == b) return true;
  if (!a || !b) return false;
  PVBaseObjectRef first = asBaseObject(a), second = asBaseObject(b);
  if (!first->vtable || first->vtable != second->vtable) return false;
  auto equal = first->vtable->base->equal;
  return equal && equal(first, second);
}

BRStringRef copyFormattingDescription(BRTypeRef ref, BRDictionaryRef options) {
  PVBaseObjectRef object = asBaseObject(ref);
  return classWithRuntimeType(object->classID)->description->copyFormattingDescription(object, options);
}

BRStringRef copyDebugDescription(BRTypeRef ref) {
  PVBaseObjectRef object = asBaseObject(ref);
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  const void* vtable = object->vtable;
  const void* allocator = BRGetAllocator(object);
  if (!BRStringAppendFormat(text.get(), "<KivBaseObject: instance<%p> storage<%p> class<%p> allocator<%p>>{",
                            ref, object->storage(), vtable, allocator))
    return nullptr;
  if (object->vtable && object->vtable->base->copyDebugDescription)
    if (auto own = br::Ref<const BRString>::adopt(object->vtable->base->copyDebugDescription(object)))
      BRStringAppendFormat(text.get(), "\n%@\n", own.get());
  BRStringAppendCString(text.get(), "}", kBRStringEncodingUTF8);
  return text.detach();
}

void fillRuntimeClass(BRRuntimeClass& runtimeClass, const PVClassDescription& description) {
  runtimeClass.version = 0;
  runtimeClass.className = description.className;
  runtimeClass.init = baseInit;
  runtimeClass.finalize = baseFinalize;
  runtimeClass.equal = baseEqual;
  if (description.copyFormattingDescription)
    runtimeClass.copyFormattingDescription = copyFormattingDescription;
  runtimeClass.copyDebugDescription = copyDebugDescription;
}

}  // namespace

extern "C" {
constinit const PVBaseClassID kKivBaseClassID = &rootClass;
}

PVStatus KivBaseClassRegisterClass(const PVClassDescription* description, PVBaseClassID parentClassID,
                                   uint32_t flags, PVBaseClassID* classIDOut) {
  if (!description || !parentClassID || !classIDOut) return pv::signalError(kPVBaseObjectError_ParamErr);
  const bool ownType = flags & kKivBaseClassFlag_OwnRuntimeType;
  if (ownType && classWithRuntimeType(parentClassID)) return pv::signalError(kPVBaseObjectError_ParamErr);
  void* memory = BRAllocatorAllocate(nullptr, sizeof(PVBaseClassIDRecord));
  if (!memory) return pv::signalError(kPVStatus_OutOfMemory);
  auto* record = new (memory) PVBaseClassIDRecord{
      .parent = parentClassID, .description = description, .runtimeClass = {}, .typeID = 0};
  if (ownType) {
    fillRuntimeClass(record->runtimeClass, *description);
    record->typeID = BRRuntimeRegisterClass(&record->runtimeClass);
    if (record->typeID == 0) {
      BRAllocatorDeallocate(nullptr, record);
      return pv::signalError(-1);
    }
  }
  *classIDOut = record;
  return 0;
}

PVStatus PVDerivedObjectCreate(BRAllocatorRef allocator, const PVVTable* vtable, PVBaseClassID classID,
                               PVBaseObjectRef* objectOut) {
  if (objectOut) *objectOut = nullptr;
  if (!vtable || !vtable->base || !objectOut) return pv::signalError(kPVBaseObjectError_ParamErr);
  const PVBaseClass& base = *vtable->base;
  if (base.version == 0 || base.version > 2) return pv::signalError(kPVBaseObjectError_UnsupportedVersion);
  if (vtable->reserved || !classID) return pv::signalError(kPVBaseObjectError_ParamErr);
  const BRTypeID typeID = PVBaseClassGetBRTypeID(classID);
  if (typeID == 0) return pv::signalError(kPVBaseObjectError_ParamErr);
  constexpr size_t kFieldBytes = sizeof(PVBaseObject) - sizeof(BRObject);
  BRTypeRef instance = nullptr;  // the runtime zero-fills it
  if (base.derivedStorageSize <= SIZE_MAX - kFieldBytes)
    instance = BRRuntimeCreateInstance(allocator, typeID, kFieldBytes + base.derivedStorageSize);
  if (!instance) return pv::signalError(-ENOMEM);
  PVBaseObjectRef object = asBaseObject(instance);
  object->vtable = vtable;
  object->classID = classID;
  if (hasStandardBarrier(base)) {
    PVNotificationCenterRef center = PVNotificationCenterGetDefaultLocalCenter();
    if (PVStatus status = PVNotificationCenterRegisterForBarrierSupport(center, object)) {
      BRRelease(object);
      return pv::signalError(status);
    }
  }
  *objectOut = object;
  return 0;
}
PV_TWIN(KivDerivedObjectCreate, PVDerivedObjectCreate)

const PVVTable* PVBaseObjectGetVTable(PVBaseObjectRef object) { return object ? object->vtable : nullptr; }
PV_TWIN(KivBaseObjectGetVTable, PVBaseObjectGetVTable)

void* PVBaseObjectGetDerivedStorage(PVBaseObjectRef object) { return object ? object->storage() : nullptr; }
PV_TWIN(KivBaseObjectGetDerivedStorage, PVBaseObjectGetDerivedStorage)

PVBaseClassID PVBaseObjectGetClassID(PVBaseObjectRef object) { return object ? object->classID : nullptr; }
PV_TWIN(KivBaseObjectGetClassID, PVBaseObjectGetClassID)

BRTypeID PVBaseClassGetBRTypeID(PVBaseClassID classID) {
  PVBaseClassID owner = classWithRuntimeType(classID);
  return owner ? owner->typeID : 0;
}
PV_TWIN(KivBaseClassGetBRTypeID, PVBaseClassGetBRTypeID)

bool PVBaseObjectIsMemberOfClass(PVBaseObjectRef object, PVBaseClassID classID) {
  if (!object || !classID) return false;
  const BRTypeID typeID = PVBaseClassGetBRTypeID(classID);
  if (typeID && typeID != BRGetTypeID(object)) return false;
  PVBaseClassID own = object->classID;
  while (own && own != classID) own = own->parent;
  return own != nullptr;
}
PV_TWIN(KivBaseObjectIsMemberOfClass, PVBaseObjectIsMemberOfClass)

PVBaseClassID PVBaseGetClassID(void) { return kKivBaseClassID; }
PV_TWIN(KivBaseGetClassID, PVBaseGetClassID)

PVStatus KivBaseObjectStandardNotificationBarrier(PVBaseObjectRef object) {
  if (!object) return pv::signalError(kPVBaseObjectError_ParamErr);
  return PVNotificationCenterBarrier(PVNotificationCenterGetDefaultLocalCenter(), object);
}

PVStatus KivBaseObjectCopyProperty(PVBaseObjectRef object, BRStringRef key, BRAllocatorRef allocator,
                                   void* valueOut) {
  if (!object || !object->vtable || !key || !valueOut) return pv::signalError(kPVBaseObjectError_ParamErr);
  auto copyProperty = object->vtable->base->copyProperty;
  if (!copyProperty) return pv::signalError(kPVBaseObjectError_ValueNotAvailable);
  return copyProperty(object, key, allocator, valueOut);
}

PVStatus KivBaseObjectSetProperty(PVBaseObjectRef object, BRStringRef key, BRTypeRef value) {
  if (!object || !object->vtable || !key) return pv::signalError(kPVBaseObjectError_ParamErr);
  auto setProperty = object->vtable->base->setProperty;
  if (!setProperty) return pv::signalError(kPVBaseObjectError_ValueNotAvailable);
  return setProperty(object, key, value);
}
