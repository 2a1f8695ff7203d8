/* Notification center: how the library's objects announce changes. */
#ifndef PEVRIN_NOTIFICATION_CENTER_H
#define PEVRIN_NOTIFICATION_CENTER_H

#include <bedra/notification_center.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

typedef BRNotificationCenterRef PVNotificationCenterRef;
typedef BRNotificationCallback PVNotificationCallback;

PV_EXPORT BRTypeID PVNotificationCenterGetTypeID(void);
PV_EXPORT PVNotificationCenterRef PVNotificationCenterGetDefaultLocalCenter(void);
PV_EXPORT PVNotificationCenterRef PVNotificationCenterCreate(void);
PV_EXPORT PVStatus PVNotificationCenterAddListener(PVNotificationCenterRef center, const void *listener,
                                                   PVNotificationCallback callback, BRStringRef name,
                                                   const void *object);
PV_EXPORT PVStatus PVNotificationCenterRemoveListener(PVNotificationCenterRef center, const void *listener,
                                                      PVNotificationCallback callback, BRStringRef name,
                                                      const void *object);
PV_EXPORT PVStatus PVNotificationCenterPostNotification(PVNotificationCenterRef center, BRStringRef name,
                                                        const void *object, BRTypeRef payload, uint32_t options);
PV_EXPORT PVStatus PVNotificationCenterRegisterForBarrierSupport(PVNotificationCenterRef center, const void *object);
PV_EXPORT PVStatus PVNotificationCenterUnregisterForBarrierSupport(PVNotificationCenterRef center, const void *object);
PV_EXPORT PVStatus PVNotificationCenterBarrier(PVNotificationCenterRef center, const void *object);

PV_END_DECLS

#endif
