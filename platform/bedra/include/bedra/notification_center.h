/* The local notification center: one per process. */
#ifndef BEDRA_NOTIFICATION_CENTER_H
#define BEDRA_NOTIFICATION_CENTER_H

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef void (*BRNotificationCallback)(BRNotificationCenterRef center, void *observer, BRStringRef name,
                                       const void *object, BRDictionaryRef payload);

BR_EXPORT BRTypeID BRNotificationCenterGetTypeID(void);
BR_EXPORT BRNotificationCenterRef BRNotificationCenterGetLocalCenter(void);
/* A NULL name or object matches any, but not both NULL. The observer is a plain pointer; name is copied or retained,
 * object is held by identity. False when memory runs out or an argument is bad. */
BR_EXPORT bool BRNotificationCenterAddObserver(BRNotificationCenterRef center, const void *observer,
                                               BRNotificationCallback callback, BRStringRef name, const void *object);
BR_EXPORT void BRNotificationCenterRemoveObserver(BRNotificationCenterRef center, const void *observer,
                                                  BRStringRef name, const void *object);
BR_EXPORT void BRNotificationCenterRemoveEveryObserver(BRNotificationCenterRef center, const void *observer);
/* Calls every matching observer on this thread before it returns. */
BR_EXPORT void BRNotificationCenterPostNotification(BRNotificationCenterRef center, BRStringRef name,
                                                    const void *object, BRDictionaryRef payload);

BR_END_DECLS

#endif
