/* Notifications for sibling media layers: listeners that are not kept alive by their registration, lists of listeners,
 * and notifications that are delivered later on a run loop or a work queue. Above <pevrin/notification_center.h>, whose
 * codes and rules hold here too.
 *
 *   static void reelEnded(PVNotificationCenterRef center, void *listener, BRStringRef name, const void *object,
 *                         BRDictionaryRef payload) { playerReelEnded((PlayerRef)listener); }
 *   PVStatus status = KivNotificationCenterAddWeakListener(center, player, reelEnded, name, reel,
 *                                                          kKivWeakListenerFlag_DeferRelease, NULL);
 *   BRRelease(player);     // when that was the last reference, reelEnded is not called any more
 *
 * Threads: every function may be called from any thread, and from inside a callback. */
#ifndef KIV_NOTIFICATION_CENTER_H
#define KIV_NOTIFICATION_CENTER_H

#include <bedra/run_loop.h>
#include <bedra/work_queue.h>
#include <pevrin/notification_center.h>

PV_BEGIN_DECLS

/* ---- Weak listeners
 *
 * A weak listener is a Bedra object. The center holds no reference to it between calls; for the time of a call it does.
 * When the object has gone, its registration does nothing; it is dropped by KivNotificationCenterRemoveWeakListener, or
 * by the next registration that would have the same key. A registration is known by its listener, callback, name (by
 * text) and object. */

enum {
  /* Retain the notification's object, which must then be a Bedra object, while the call waits on the queue. */
  kKivWeakListenerFlag_RetainObject = 1,
  /* Release the listener after the call on a work queue of the library, not on the thread that delivers: so the
   * listener's finalizer never runs inside locks that the poster holds. */
  kKivWeakListenerFlag_DeferRelease = 2,
  /* The removal does not wait for calls in progress on other threads, which hold the listener. So it may be made with
   * locks held that the callback takes. */
  kKivWeakListenerFlag_RemoveWithoutWaiting = 4
};

/* Registers a weak listener. With a queue (which is retained until the removal) each call is put on the queue, with the
 * listener, name and payload retained until it has run: a call already there is still made when the listener is
 * removed. A call for whose record there is no memory is dropped, and AllocationFailed signalled. Without a queue the
 * callback is called at once, on the posting thread. Flags are of those above; other bits are not used.
 * AllocationFailed. ParamErr: registered already. Then CenterRequired, CallbackRequired, ListenerRequired,
 * NameOrObjectRequired as in PVNotificationCenterAddListener. With any of them nothing is registered. */
PV_EXPORT PVStatus KivNotificationCenterAddWeakListener(PVNotificationCenterRef center, BRTypeRef listener,
                                                        PVNotificationCallback callback, BRStringRef name,
                                                        const void *object, uint32_t flags, BRWorkQueueRef queue);

/* Removes the registration with this listener, callback, name and object. Waits for a call in progress on another
 * thread as PVNotificationCenterRemoveListener does, unless it was registered to be removed without. Success also when
 * there is none. The listener is not read: its finalizer may call this.
 * CenterRequired, ListenerRequired: that argument is NULL. AllocationFailed: the registration stands. */
PV_EXPORT PVStatus KivNotificationCenterRemoveWeakListener(PVNotificationCenterRef center, BRTypeRef listener,
                                                           PVNotificationCallback callback, BRStringRef name,
                                                           const void *object);

/* ---- Lists of listeners: the same for each (callback, name) of a list, against one object. They stop at the first
 * failure and return its code; what came before it in the list is done and stays. */

/* One of a list: what is called for which name. */
typedef struct KivNotificationListenerEntry {
  PVNotificationCallback callback;
  BRStringRef name;
} KivNotificationListenerEntry;

/* The codes of PVNotificationCenterAddListener; ParamErr: entries is NULL and count is not 0. */
PV_EXPORT PVStatus KivNotificationCenterAddListeners(PVNotificationCenterRef center, const void *listener,
                                                     const KivNotificationListenerEntry *entries, size_t count,
                                                     const void *object);
/* The codes of PVNotificationCenterRemoveListener; ParamErr as above. */
PV_EXPORT PVStatus KivNotificationCenterRemoveListeners(PVNotificationCenterRef center, const void *listener,
                                                        const KivNotificationListenerEntry *entries, size_t count,
                                                        const void *object);
/* The codes of KivNotificationCenterAddWeakListener; ParamErr as above. */
PV_EXPORT PVStatus KivNotificationCenterAddWeakListeners(PVNotificationCenterRef center, BRTypeRef listener,
                                                         const KivNotificationListenerEntry *entries, size_t count,
                                                         const void *object, uint32_t flags, BRWorkQueueRef queue);
/* The codes of KivNotificationCenterRemoveWeakListener; ParamErr as above. */
PV_EXPORT PVStatus KivNotificationCenterRemoveWeakListeners(PVNotificationCenterRef center, BRTypeRef listener,
                                                            const KivNotificationListenerEntry *entries,
                                                            size_t count, const void *object);

/* ---- Deferred notifications
 *
 * A callback of a listener hands what it was given to one of the first two to be called with it again later, elsewhere.
 * The record of what is called comes from the allocator and retains center, name, payload and allocator, not listener
 * and object, until the call has been made. */

/* Runs callback(center, listener, name, object, payload) on the queue, after what is there already.
 * CallbackRequired: callback is NULL. ParamErr: queue is NULL. AllocationFailed. */
PV_EXPORT PVStatus KivDeferNotificationToDispatchQueue(PVNotificationCallback callback, PVNotificationCenterRef center,
                                                       void *listener, BRStringRef name, const void *object,
                                                       BRDictionaryRef payload, BRWorkQueueRef queue,
                                                       BRAllocatorRef allocator);

/* Runs callback(center, listener, name, object, payload) on the loop's thread, when that runs the loop in the default
 * mode or calls KivRunDeferredNotificationsOnCurrentRunLoop; in the order in which they were deferred. When the thread
 * ends first, the callback is not called.
 * CallbackRequired: callback is NULL. ParamErr: runLoop is NULL. AllocationFailed: no memory, or the loop takes no
 * timers any more because its thread has ended. */
PV_EXPORT PVStatus KivDeferNotificationToRunLoop(PVNotificationCallback callback, PVNotificationCenterRef center,
                                                 void *listener, BRStringRef name, const void *object,
                                                 BRDictionaryRef payload, BRRunLoopRef runLoop,
                                                 BRAllocatorRef allocator);

/* Makes every call that was deferred to the calling thread's run loop, those that they defer themselves included, and
 * returns when none is left. A BRRunLoopStop that comes meanwhile is kept for the run that is in progress outside. */
PV_EXPORT void KivRunDeferredNotificationsOnCurrentRunLoop(void);

/* Posts the notification from the queue, after what is there already. Name, object (a Bedra object or NULL) and payload
 * are retained until then. Options are not used. What PVNotificationCenterPostNotification finds wrong with object or
 * payload is found then.
 * CenterRequired: center or name is NULL. ParamErr: queue is NULL. AllocationFailed. */
PV_EXPORT PVStatus KivDispatchAsyncPostNotification(PVNotificationCenterRef center, BRStringRef name, BRTypeRef object,
                                                    BRTypeRef payload, BRWorkQueueRef queue, uint32_t options);

PV_END_DECLS

#endif
