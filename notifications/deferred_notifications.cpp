// Notifications that are delivered later, on a run loop or a work queue.
#include <bedra/allocator.h>
#include <kiv/notification_center.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <new>

#include "runtime/error.hpp"

namespace {

using namespace br::literals;
using pv::signalError;

constexpr BRStringRef kDeferredMode = "KivDeferredNotificationMode"_br;

// What to call, in a block of the allocator it retains.
struct DeferredNotification {
  PVNotificationCallback callback;
  br::Ref<BRNotificationCenter> center;
  void* listener;
  br::Ref<const BRString> name;
  const void* object;
  br::Ref<const BRDictionary> payload;
  br::Ref<const BRAllocator> allocator;
  br::Ref<const void> retainedObject;

  void call() const { callback(center.get(), listener, name.get(), object, payload.get()); }
};

void destroy(DeferredNotification* record) {
  const auto allocator = std::move(record->allocator);
  record->~DeferredNotification();
  BRAllocatorDeallocate(allocator.get(), record);
}

DeferredNotification* create(PVNotificationCallback callback, PVNotificationCenterRef center, void* listener,
                             BRStringRef name, const void* object, BRDictionaryRef payload,
                             BRAllocatorRef allocator) {
  void* block = BRAllocatorAllocate(allocator, sizeof(DeferredNotification));
  if (!block) return nullptr;
  return new (block) DeferredNotification{callback,
                                          br::Ref<BRNotificationCenter>::retain(center),
                                          listener,
                                          br::Ref<const BRString>::retain(name),
                                          object,
                                          br::Ref<const BRDictionary>::retain(payload),
                                          br::Ref<const BRAllocator>::retain(allocator),
                                          nullptr};
}

// Takes over the record, which may be null for want of memory.
PVStatus callOnQueue(DeferredNotification* record, BRWorkQueueRef queue) {
  if (!record) return signalError(kPVNotificationCenterError_AllocationFailed);
  auto run = [](void* context) {
    auto* waiting = static_cast<DeferredNotification*>(context);
    waiting->call();
    destroy(waiting);
  };
  if (BRWorkQueueAsync(queue, run, record)) return kPVStatus_Success;
  destroy(record);
  return signalError(kPVNotificationCenterError_AllocationFailed);
}

void timerFired(BRRunLoopTimerRef timer, void* info) {
  static_cast<DeferredNotification*>(info)->call();
  BRRunLoopTimerInvalidate(timer);
}

// The timer's context is the record: it goes with the timer, called or not.
void timerEnded(const void* info) { destroy(static_cast<DeferredNotification*>(const_cast<void*>(info))); }

void postAgain(PVNotificationCenterRef center, void*, BRStringRef name, const void* object,
               BRDictionaryRef payload) {
  PVNotificationCenterPostNotification(center, name, object, payload, 0);
}

}  // namespace

PVStatus KivDeferNotificationToDispatchQueue(PVNotificationCallback callback, PVNotificationCenterRef center,
                                             void* listener, BRStringRef name, const void* object,
                                             BRDictionaryRef payload, BRWorkQueueRef queue,
                                             BRAllocatorRef allocator) {
  if (!callback) return signalError(kPVNotificationCenterError_CallbackRequired);
  if (!queue) return signalError(kPVNotificationCenterError_ParamErr);
  return callOnQueue(create(callback, center, listener, name, object, payload, allocator), queue);
}

PVStatus KivDeferNotificationToRunLoop(PVNotificationCallback callback, PVNotificationCenterRef center,
                                       void* listener, BRStringRef name, const void* object,
                                       BRDictionaryRef payload, BRRunLoopRef runLoop,
                                       BRAllocatorRef allocator) {
  if (!callback) return signalError(kPVNotificationCenterError_CallbackRequired);
  if (!runLoop) return signalError(kPVNotificationCenterError_ParamErr);
  DeferredNotification* record = create(callback, center, listener, name, object, payload, allocator);
  if (!record) return signalError(kPVNotificationCenterError_AllocationFailed);
  const BRRunLoopTimerContext context{0, record, nullptr, timerEnded};
  // A date long past: due at once, in the order in which the timers are made.
  auto timer = br::Ref<BRRunLoopTimer>::adopt(BRRunLoopTimerCreate(allocator, 0.0, 0, timerFired, &context));
  if (!timer) {
    destroy(record);
    return signalError(kPVNotificationCenterError_AllocationFailed);
  }
  if (BRRunLoopAddTimer(runLoop, timer.get(), kBRRunLoopDefaultMode) &&
      (BRRunLoopAddTimer(runLoop, timer.get(), kDeferredMode) || !BRRunLoopTimerIsValid(timer.get())))
    return kPVStatus_Success;  // the loop's thread may have fired it already
  BRRunLoopTimerInvalidate(timer.get());
  return signalError(kPVNotificationCenterError_AllocationFailed);
}

void KivRunDeferredNotificationsOnCurrentRunLoop(void) {
  bool isStopped = false;
  for (;;) {
    const BRRunLoopResult result = BRRunLoopRunInMode(kDeferredMode, 0.0, true);
    if (result == kBRRunLoopStopped)
      isStopped = true;
    else if (result != kBRRunLoopHandledSource)
      break;
  }
  if (isStopped) BRRunLoopStop(BRRunLoopGetCurrent());
}

PVStatus KivDispatchAsyncPostNotification(PVNotificationCenterRef center, BRStringRef name, BRTypeRef object,
                                          BRTypeRef payload, BRWorkQueueRef queue, uint32_t) {
  if (!center || !name) return signalError(kPVNotificationCenterError_CenterRequired);
  if (!queue) return signalError(kPVNotificationCenterError_ParamErr);
  DeferredNotification* record =
      create(postAgain, center, nullptr, name, object, static_cast<BRDictionaryRef>(payload), nullptr);
  if (record) record->retainedObject = br::Ref<const void>::retain(object);
  return callOnQueue(record, queue);
}
