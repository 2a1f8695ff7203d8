// Lists of (callback, name) pairs against one object.
#include <kiv/notification_center.h>

#include "runtime/error.hpp"

namespace {

// Does the action for each entry until one fails.
template <class Action>
PVStatus forEach(const KivNotificationListenerEntry* entries, size_t count, Action action) {
  if (!entries && count != 0) return pv::signalError(kPVNotificationCenterError_ParamErr);
  for (size_t i = 0; i < count; ++i)
    if (PVStatus status = action(entries[i])) return status;
  return kPVStatus_Success;
}

}  // namespace

PVStatus KivNotificationCenterAddListeners(PVNotificationCenterRef center, const void* listener,
                                           const KivNotificationListenerEntry* entries, size_t count,
                                           const void* object) {
  return forEach(entries, count, [&](const KivNotificationListenerEntry& entry) {
    return PVNotificationCenterAddListener(center, listener, entry.callback, entry.name, object);
  });
}

PVStatus KivNotificationCenterRemoveListeners(PVNotificationCenterRef center, const void* listener,
                                              const KivNotificationListenerEntry* entries, size_t count,
                                              const void* object) {
  return forEach(entries, count, [&](const KivNotificationListenerEntry& entry) {
    return PVNotificationCenterRemoveListener(center, listener, entry.callback, entry.name, object);
  });
}

PVStatus KivNotificationCenterAddWeakListeners(PVNotificationCenterRef center, BRTypeRef listener,
                                               const KivNotificationListenerEntry* entries, size_t count,
                                               const void* object, uint32_t flags, BRWorkQueueRef queue) {
  return forEach(entries, count, [&](const KivNotificationListenerEntry& entry) {
    return KivNotificationCenterAddWeakListener(center, listener, entry.callback, entry.name, object, flags,
                                                queue);
  });
}

PVStatus KivNotificationCenterRemoveWeakListeners(PVNotificationCenterRef center, BRTypeRef listener,
                                                  const KivNotificationListenerEntry* entries, size_t count,
                                                  const void* object) {
  return forEach(entries, count, [&](const KivNotificationListenerEntry& entry) {
    return KivNotificationCenterRemoveWeakListener(center, listener, entry.callback, entry.name, object);
  });
}
