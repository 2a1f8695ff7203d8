/* The local notification center: one object says that something happened, others hear of it. One per process.
 *
 * A notification is a name, the object it is about, and a payload (a dictionary or NULL). An observer registers for a
 * name, an object, or both; what it leaves NULL matches any. Names are compared by text, objects by identity: the
 * center neither retains nor reads the object or the observer, so remove an observer before it goes.
 *
 * Posting calls every matching observer at once, on the posting thread, in the order in which they registered. A post
 * that nobody listens to costs a few instructions; a post takes no lock and allocates nothing, however many threads
 * post.
 *
 *   static void reelEnded(BRNotificationCenterRef center, void *observer, BRStringRef name, const void *object,
 *                         BRDictionaryRef payload) { ... }
 *   BRNotificationCenterRef center = BRNotificationCenterGetLocalCenter();
 *   BRNotificationCenterAddObserver(center, player, reelEnded, name, reel);
 *   BRNotificationCenterPostNotification(center, name, reel, NULL);       // calls reelEnded
 *   BRNotificationCenterRemoveObserver(center, player, name, reel);
 *
 * Threads: every function may be called from any thread, and from inside a callback. Callbacks run with no lock of the
 * center held, on several threads at once when several threads post. A callback must return (no longjmp, no
 * pthread_exit).
 *
 * What a change means to deliveries in progress:
 *  - An observer that is added during a delivery is not called by that delivery.
 *  - An observer that is removed is not called any more by any delivery from then on. When the removing thread is not
 *    inside a callback of the center, the removal also waits until calls of that registration in progress on other
 *    threads have returned: then what the observer points to may be freed. So remove with no lock held that the
 *    callback takes.
 *  - A removal from inside a callback does not wait, because another thread may at the same time wait for this
 *    callback: calls in progress on other threads may outlast it. */
#ifndef BEDRA_NOTIFICATION_CENTER_H
#define BEDRA_NOTIFICATION_CENTER_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* All but the observer are the poster's, lent for the call. */
typedef void (*BRNotificationCallback)(BRNotificationCenterRef center, void *observer, BRStringRef name,
                                       const void *object, BRDictionaryRef payload);

/* The runtime type "BRNotificationCenter". */
BR_EXPORT BRTypeID BRNotificationCenterGetTypeID(void);

/* The process's center. Borrowed, and alive as long as the process. */
BR_EXPORT BRNotificationCenterRef BRNotificationCenterGetLocalCenter(void);

/* Registers an observer for a name and an object; NULL for either matches any, but not for both. The name's text is
 * kept, changes to a mutable name do not matter later. Registering twice makes two registrations, each of which is
 * called. False, with nothing registered, when memory runs out, when center, observer or callback is NULL, or when name
 * and object both are. */
BR_EXPORT bool BRNotificationCenterAddObserver(BRNotificationCenterRef center, const void *observer,
                                               BRNotificationCallback callback, BRStringRef name, const void *object);

/* Removes every registration of the observer that was made with this name and this object: NULL here stands for a
 * registration made with NULL, not for any. Nothing happens when there is none. See above for what it waits for. */
BR_EXPORT void BRNotificationCenterRemoveObserver(BRNotificationCenterRef center, const void *observer,
                                                  BRStringRef name, const void *object);

/* The same, and never waits: calls in progress on other threads may outlast it. For observers that are kept alive until
 * their last call has returned by other means. */
BR_EXPORT void BRNotificationCenterRemoveObserverWithoutWaiting(BRNotificationCenterRef center, const void *observer,
                                                                BRStringRef name, const void *object);

/* Removes every registration of the observer. Looks through all registrations of the process. */
BR_EXPORT void BRNotificationCenterRemoveEveryObserver(BRNotificationCenterRef center, const void *observer);

/* Calls every observer that matches, on this thread, before it returns. A NULL object matches only observers of any
 * object. Nothing happens when center or name is NULL. */
BR_EXPORT void BRNotificationCenterPostNotification(BRNotificationCenterRef center, BRStringRef name,
                                                    const void *object, BRDictionaryRef payload);

/* Returns when every delivery about the object that was in progress on other threads at the call has finished; later
 * ones are not waited for. From inside a callback it waits too, but not for deliveries whose threads wait here
 * themselves from inside a callback: the last of several threads that wait for each other goes through. */
BR_EXPORT void BRNotificationCenterWaitForDeliveries(BRNotificationCenterRef center, const void *object);

BR_END_DECLS

#endif
