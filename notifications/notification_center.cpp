// Argument checks over the platform's local center, and barrier support.
//
// The barrier table says which objects are registered. The waiting itself is the platform center's, which
// knows what every thread is delivering: so a post never looks at the table, and an object may be
// unregistered, by itself from inside a callback too, while it is being delivered for.
#include <bedra/allocator.h>
#include <bedra/dictionary.h>
#include <bedra/runtime.h>
#include <pevrin/notification_center.h>

#include <mutex>
#include <new>

#include "notifications/linked_table.hpp"
#include "runtime/error.hpp"

namespace {

using pv::signalError;

struct BarrierEntry {
  const void* object;
  BarrierEntry* next = nullptr;
  uint64_t hash = 0;
};

// Never held while a callback runs or a barrier waits.
constinit std::mutex barrierLock;
constinit pv::LinkedTable<BarrierEntry, &BarrierEntry::next, &BarrierEntry::hash> barrierTable;

BarrierEntry* findEntry(const void* object) {
  return barrierTable.find(reinterpret_cast<uintptr_t>(object),
                           [object](const BarrierEntry& entry) { return entry.object == object; });
}

}  // namespace

BRTypeID PVNotificationCenterGetTypeID(void) { return BRNotificationCenterGetTypeID(); }

PVNotificationCenterRef PVNotificationCenterGetDefaultLocalCenter(void) {
  return BRNotificationCenterGetLocalCenter();
}

PVNotificationCenterRef PVNotificationCenterCreate(void) {
  PVNotificationCenterRef center = PVNotificationCenterGetDefaultLocalCenter();
  BRRetain(center);
  return center;
}

PVStatus PVNotificationCenterAddListener(PVNotificationCenterRef center, const void* listener,
                                         PVNotificationCallback callback, BRStringRef name,
                                         const void* object) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  if (!callback) return signalError(kPVNotificationCenterError_CallbackRequired);
  if (!listener) return signalError(kPVNotificationCenterError_ListenerRequired);
  if (!name && !object) return signalError(kPVNotificationCenterError_NameOrObjectRequired);
  if (!BRNotificationCenterAddObserver(center, listener, callback, name, object))
    return signalError(kPVNotificationCenterError_AllocationFailed);
  return kPVStatus_Success;
}

PVStatus PVNotificationCenterRemoveListener(PVNotificationCenterRef center, const void* listener,
                                            PVNotificationCallback, BRStringRef name, const void* object) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  if (!listener) return signalError(kPVNotificationCenterError_ListenerRequired);
  BRNotificationCenterRemoveObserver(center, listener, name, object);
  return kPVStatus_Success;
}

PVStatus PVNotificationCenterPostNotification(PVNotificationCenterRef center, BRStringRef name,
                                              const void* object, BRTypeRef payload, uint32_t) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  if (!name) return signalError(kPVNotificationCenterError_NameRequired);
  if (!object) return kPVNotificationCenterError_ParamErr;  // deliberately not signalled
  if (payload && BRGetTypeID(payload) != BRDictionaryGetTypeID())
    return signalError(kPVNotificationCenterError_ParamErr);
  BRNotificationCenterPostNotification(center, name, object, static_cast<BRDictionaryRef>(payload));
  return kPVStatus_Success;
}

PVStatus PVNotificationCenterRegisterForBarrierSupport(PVNotificationCenterRef center, const void* object) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  if (!object) return signalError(kPVNotificationCenterError_ParamErr);
  void* block = BRAllocatorAllocate(nullptr, sizeof(BarrierEntry));
  if (!block) return signalError(kPVNotificationCenterError_AllocationFailed);
  {
    std::lock_guard guard(barrierLock);
    if (!findEntry(object)) {
      barrierTable.insert(new (block) BarrierEntry{object}, reinterpret_cast<uintptr_t>(object));
      return kPVStatus_Success;
    }
  }
  BRAllocatorDeallocate(nullptr, block);
  return signalError(kPVNotificationCenterError_ParamErr);
}

PVStatus PVNotificationCenterUnregisterForBarrierSupport(PVNotificationCenterRef center, const void* object) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  BarrierEntry* entry;
  {
    std::lock_guard guard(barrierLock);
    entry = findEntry(object);
    if (entry) barrierTable.remove(entry);
  }
  if (!entry) return signalError(kPVNotificationCenterError_ParamErr);
  BRAllocatorDeallocate(nullptr, entry);
  return kPVStatus_Success;
}

PVStatus PVNotificationCenterBarrier(PVNotificationCenterRef center, const void* object) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  bool isRegistered;
  {
    std::lock_guard guard(barrierLock);
    isRegistered = findEntry(object) != nullptr;
  }
  if (!isRegistered) return signalError(kPVNotificationCenterError_ParamErr);
  BRNotificationCenterWaitForDeliveries(center, object);
  return kPVStatus_Success;
}
