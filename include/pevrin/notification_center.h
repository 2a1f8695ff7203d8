/* Notification center: how the library's objects announce changes, and how others listen.
 *
 * The center is the platform's local one (<bedra/notification_center.h>), of which a process has one. This layer checks
 * arguments and adds barriers. A notification is a name, the object it is about, and a payload: a dictionary or NULL.
 * A listener registers for a name, an object, or both; what it leaves NULL matches any. Names are compared by text,
 * objects by identity. Neither listener nor object is retained; <kiv/notification_center.h> has listeners that are
 * dropped by themselves.
 *
 * A post calls every matching listener, one after another in the order in which they registered, on the posting thread
 * and before it returns.
 *
 *   static void rateChanged(PVNotificationCenterRef center, void *listener, BRStringRef name, const void *object,
 *                           BRDictionaryRef payload) { playerUpdateRate((Player *)listener); }
 *   PVNotificationCenterRef center = PVNotificationCenterGetDefaultLocalCenter();
 *   PVStatus status = PVNotificationCenterAddListener(center, player, rateChanged, name, timebase);
 *   ...
 *   PVNotificationCenterRemoveListener(center, player, rateChanged, name, timebase);
 *
 * Threads: every function may be called from any thread, and from inside a callback. Callbacks run on the posting
 * thread with no lock of the center held; when several threads post, they run side by side.
 *  - A listener that is added during a delivery is not called by it.
 *  - A listener that is removed is not called any more by deliveries in progress. A removal that is not made from
 *    inside a callback also waits for calls of that registration on other threads; then what the listener points to
 *    may be freed. So remove with no lock held that the callback takes.
 *  - A removal from inside a callback never waits.
 *
 * The functions check their arguments in the order in which the codes are listed with them, and signal every code
 * (<kiv/error.h>) unless it says otherwise. */
#ifndef PEVRIN_NOTIFICATION_CENTER_H
#define PEVRIN_NOTIFICATION_CENTER_H

#include <bedra/notification_center.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* A notification center: one of Bedra's. */
typedef BRNotificationCenterRef PVNotificationCenterRef;

/* (center, listener, name, object, payload), all but the listener the poster's and lent for the call. */
typedef BRNotificationCallback PVNotificationCallback;

enum {
  kPVNotificationCenterError_CallbackRequired = -12720,
  kPVNotificationCenterError_CenterRequired = -12721,
  kPVNotificationCenterError_NameRequired = -12722,
  kPVNotificationCenterError_ListenerRequired = -12723,
  kPVNotificationCenterError_ParamErr = -12724, /* an unknown, missing or already registered object; a bad payload */
  kPVNotificationCenterError_NameOrObjectRequired = -12725,
  kPVNotificationCenterError_AllocationFailed = -12726
};

/* The type of the platform's center. */
PV_EXPORT BRTypeID PVNotificationCenterGetTypeID(void);

/* The process's center. Borrowed, and alive as long as the process. */
PV_EXPORT PVNotificationCenterRef PVNotificationCenterGetDefaultLocalCenter(void);

/* The same center; the caller releases it. */
PV_EXPORT PVNotificationCenterRef PVNotificationCenterCreate(void);

/* Registers a listener for a name and an object; NULL for either matches any. Registering twice makes two
 * registrations, each of which is called. The name's text is kept.
 * CenterRequired, CallbackRequired, ListenerRequired: that argument is NULL. NameOrObjectRequired: both are NULL.
 * AllocationFailed. With any of them nothing is registered. */
PV_EXPORT PVStatus PVNotificationCenterAddListener(PVNotificationCenterRef center, const void *listener,
                                                   PVNotificationCallback callback, BRStringRef name,
                                                   const void *object);

/* Removes what the listener registered with this name and this object; a NULL here stands for a registration made with
 * NULL. The callback is not looked at. Success also when there is no such registration.
 * CenterRequired, ListenerRequired: that argument is NULL. */
PV_EXPORT PVStatus PVNotificationCenterRemoveListener(PVNotificationCenterRef center, const void *listener,
                                                      PVNotificationCallback callback, BRStringRef name,
                                                      const void *object);

/* Calls every matching listener before it returns. Options are not used.
 * CenterRequired, NameRequired: that argument is NULL. ParamErr: the object is NULL (not signalled), or the payload is
 * neither NULL nor a dictionary. With any of them nobody is called. */
PV_EXPORT PVStatus PVNotificationCenterPostNotification(PVNotificationCenterRef center, BRStringRef name,
                                                        const void *object, BRTypeRef payload, uint32_t options);

/* Allows barriers on the object, which is not retained: whoever registers it unregisters it before it goes. Posts about
 * the object cost the same with and without.
 * CenterRequired: center is NULL. AllocationFailed. ParamErr: the object is NULL or already registered. */
PV_EXPORT PVStatus PVNotificationCenterRegisterForBarrierSupport(PVNotificationCenterRef center, const void *object);

/* Ends what the registration began; deliveries and barriers in progress are not disturbed.
 * CenterRequired: center is NULL. ParamErr: the object is not registered. */
PV_EXPORT PVStatus PVNotificationCenterUnregisterForBarrierSupport(PVNotificationCenterRef center, const void *object);

/* Returns when every delivery about the object that was in progress at the call has finished on all other threads.
 * Deliveries that begin later are not waited for. The calling thread's own deliveries are not waited for either: from
 * inside a callback a barrier waits for other threads only, and when several threads wait for each other from inside
 * callbacks, the last of them goes through.
 * CenterRequired: center is NULL. ParamErr: the object is not registered. */
PV_EXPORT PVStatus PVNotificationCenterBarrier(PVNotificationCenterRef center, const void *object);

PV_END_DECLS

#endif
