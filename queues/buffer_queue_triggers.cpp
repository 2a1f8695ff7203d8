// Triggers, and how a queue hears that its head became ready.
//
// The notification center waits, when a listener is removed, for calls of it in progress; those wait for the
// mutex. So a queue cannot stop listening to its old head under the mutex. It registers once instead, with
// its first data-ready trigger, for the notification from any object, and says in listenedHead whose it heeds
// at the time: others cost their posters a comparison. The registration is a weak one: a post that comes
// while the queue goes either holds the queue for the call or does not see it.
#include <kiv/notification_center.h>

#include <new>

#include "queues/buffer_queue.hpp"
#include "runtime/error.hpp"

using pv::Extreme;
using pv::signalError;
using pv::Trigger;
using pv::Turn;

namespace {

constexpr PVStatus kUnknownCondition = -1;

// Tokens are never used again in a process.
constinit std::atomic<uint64_t> lastTriggerNumber{0};

bool comparesDuration(int32_t condition) {
  return condition >= kPVBufferQueueTrigger_WhenDurationBecomesLessThan &&
         condition <= kPVBufferQueueTrigger_WhenDurationBecomesGreaterThanOrEqualTo;
}
bool watchesTimeStamp(int32_t condition) {
  return condition == kPVBufferQueueTrigger_WhenMinPresentationTimeStampChanges ||
         condition == kPVBufferQueueTrigger_WhenMaxPresentationTimeStampChanges;
}
bool comparesCount(int32_t condition) {
  return condition == kPVBufferQueueTrigger_WhenBufferCountBecomesLessThan ||
         condition == kPVBufferQueueTrigger_WhenBufferCountBecomesGreaterThan;
}
Extreme watchedExtreme(int32_t condition) {
  return condition == kPVBufferQueueTrigger_WhenMinPresentationTimeStampChanges ? Extreme::kMinPresentation
                                                                                : Extreme::kMaxPresentation;
}

}  // namespace

// ---- Conditions

bool PVBufferQueue::isTrue(Trigger& trigger, bool isHeadReady) {
  const auto count = static_cast<int64_t>(store.count());
  switch (trigger.condition) {
    case kPVBufferQueueTrigger_WhenDurationBecomesLessThan:
      return PVTimeCompare(totalDuration, trigger.timeThreshold) < 0;
    case kPVBufferQueueTrigger_WhenDurationBecomesLessThanOrEqualTo:
      return PVTimeCompare(totalDuration, trigger.timeThreshold) <= 0;
    case kPVBufferQueueTrigger_WhenDurationBecomesGreaterThan:
      return PVTimeCompare(totalDuration, trigger.timeThreshold) > 0;
    case kPVBufferQueueTrigger_WhenDurationBecomesGreaterThanOrEqualTo:
      return PVTimeCompare(totalDuration, trigger.timeThreshold) >= 0;
    case kPVBufferQueueTrigger_WhenMinPresentationTimeStampChanges:
    case kPVBufferQueueTrigger_WhenMaxPresentationTimeStampChanges: {
      const PVTime now = extreme(watchedExtreme(trigger.condition));
      const bool hasChanged = PVTimeCompare(now, trigger.timeThreshold) != 0;
      trigger.timeThreshold = now;
      return hasChanged;
    }
    case kPVBufferQueueTrigger_WhenDataBecomesReady:
      return isHeadReady;
    case kPVBufferQueueTrigger_WhenEndOfDataReached:
      return hasEndOfData && count == 0;
    case kPVBufferQueueTrigger_WhenReset:
      return wasReset;
    case kPVBufferQueueTrigger_WhenBufferCountBecomesLessThan:
      return count < trigger.integerThreshold;
    case kPVBufferQueueTrigger_WhenBufferCountBecomesGreaterThan:
      return count > trigger.integerThreshold;
  }
  signalError(kUnknownCondition);
  return false;
}

void PVBufferQueue::evaluate(Trigger& trigger, bool isHeadReady) {
  const bool wasTrue = trigger.isTrue;
  trigger.isTrue = isTrue(trigger, isHeadReady);
  if (trigger.isTrue && (!wasTrue || watchesTimeStamp(trigger.condition))) fire(trigger);
}

void PVBufferQueue::fire(const Trigger& trigger) {
  if (!trigger.callback) return;
  isFiring = true;
  trigger.callback(trigger.refcon, trigger.token());
  isFiring = false;
}

// Client code, for which the head is kept alive. When that changes the queue the question is asked again.
bool PVBufferQueue::askHeadReady() {
  for (;;) {
    if (store.count() == 0) return false;
    auto head = br::Ref<const void>::retain(store.head()->buffer);
    const uint64_t changesBefore = changes;
    const bool isHeadReady = isReady(head.get());
    if (changes == changesBefore) return isHeadReady;
  }
}

// While callbacks run nobody can change the queue or the list of triggers. But the head may become ready.
void PVBufferQueue::evaluateTriggers(Turn& turn) {
  turn.keepQueue();
  do {
    const bool isHeadReady = hasDataReadyTrigger && askHeadReady();
    becameReadyWhileFiring = false;
    for (Trigger* trigger = triggers; trigger; trigger = trigger->next) evaluate(*trigger, isHeadReady);
  } while (becameReadyWhileFiring);
}

// ---- Installing and removing

PVStatus PVBufferQueue::install(const Trigger& wanted, PVBufferQueueTriggerToken* tokenOut, Turn& turn) {
  const bool watchesReadiness = wanted.condition == kPVBufferQueueTrigger_WhenDataBecomesReady;
  if (watchesReadiness) {
    if (PVStatus status = startHearing()) return status;
  }
  void* block = BRAllocatorAllocate(allocator(), sizeof(Trigger));
  if (!block) return signalError(kPVBufferQueueError_AllocationFailed);
  turn.keepQueue();
  auto* trigger = new (block) Trigger(wanted);
  trigger->number = lastTriggerNumber.fetch_add(1, std::memory_order_relaxed) + 1;
  if (watchesTimeStamp(trigger->condition))
    trigger->timeThreshold = extreme(watchedExtreme(trigger->condition));
  const PVBufferQueueTriggerToken token = trigger->token();
  Trigger** link = &triggers;
  while (*link) link = &(*link)->next;
  *link = trigger;
  triggersChanged();
  if (tokenOut) *tokenOut = token;
  const bool isHeadReady = watchesReadiness && askHeadReady();
  // The readiness callback may have removed the trigger.
  if (Trigger* installed = findTrigger(token)) evaluate(*installed, isHeadReady);
  if (becameReadyWhileFiring) evaluateTriggers(turn);
  return kPVStatus_Success;
}

namespace {

PVStatus checkForInstall(PVBufferQueueRef queue, const Trigger& wanted,
                         const PVBufferQueueTriggerToken* tokenOut) {
  if (!queue || wanted.condition == 0 || (!wanted.callback && !tokenOut))
    return signalError(kPVBufferQueueError_RequiredParameterMissing);
  return kPVStatus_Success;
}

}  // namespace

PVStatus PVBufferQueueInstallTrigger(PVBufferQueueRef queue, PVBufferQueueTriggerCallback callback,
                                     void* triggerRefcon, PVBufferQueueTriggerCondition condition,
                                     PVTime timeThreshold, PVBufferQueueTriggerToken* tokenOut) {
  const Trigger wanted{callback, triggerRefcon, condition, timeThreshold, 0, 0};
  if (PVStatus status = checkForInstall(queue, wanted, tokenOut)) return status;
  Turn turn(queue);
  if (queue->isFiring) return signalError(kPVBufferQueueError_CannotModifyFromTrigger);
  if (comparesDuration(condition) && (!PVTimeIsNumeric(timeThreshold) || timeThreshold.epoch != 0))
    return signalError(kPVBufferQueueError_BadTriggerDuration);
  const bool isKnown = condition >= kPVBufferQueueTrigger_WhenDurationBecomesLessThan &&
                       condition <= kPVBufferQueueTrigger_WhenReset;
  if (!isKnown || (watchesTimeStamp(condition) && !queue->callbacks.getPresentationTimeStamp))
    return signalError(kPVBufferQueueError_InvalidTriggerCondition);
  return queue->install(wanted, tokenOut, turn);
}

PVStatus PVBufferQueueInstallTriggerWithIntegerThreshold(
    PVBufferQueueRef queue, PVBufferQueueTriggerCallback callback, void* triggerRefcon,
    PVBufferQueueTriggerCondition condition, int64_t integerThreshold, PVBufferQueueTriggerToken* tokenOut) {
  const Trigger wanted{callback, triggerRefcon, condition, kPVTimeInvalid, integerThreshold, 0};
  if (PVStatus status = checkForInstall(queue, wanted, tokenOut)) return status;
  Turn turn(queue);
  if (queue->isFiring) return signalError(kPVBufferQueueError_CannotModifyFromTrigger);
  if (!comparesCount(condition)) return signalError(kPVBufferQueueError_InvalidTriggerCondition);
  return queue->install(wanted, tokenOut, turn);
}

Trigger* PVBufferQueue::findTrigger(PVBufferQueueTriggerToken token) const {
  Trigger* trigger = triggers;
  while (trigger && trigger->token() != token) trigger = trigger->next;
  return trigger;
}

PVStatus PVBufferQueue::removeTrigger(PVBufferQueueTriggerToken token) {
  if (isFiring) return signalError(kPVBufferQueueError_CannotModifyFromTrigger);
  Trigger* trigger = findTrigger(token);
  if (!trigger) return signalError(kPVBufferQueueError_InvalidTriggerToken);
  Trigger** link = &triggers;
  while (*link != trigger) link = &(*link)->next;
  *link = trigger->next;
  BRAllocatorDeallocate(allocator(), trigger);
  triggersChanged();
  return kPVStatus_Success;
}

PVStatus PVBufferQueueRemoveTrigger(PVBufferQueueRef queue, PVBufferQueueTriggerToken token) {
  if (!queue) return signalError(kPVBufferQueueError_RequiredParameterMissing);
  Turn turn(queue);
  return queue->removeTrigger(token);
}

bool PVBufferQueueTestTrigger(PVBufferQueueRef queue, PVBufferQueueTriggerToken token) {
  if (!queue) return signalError(kPVBufferQueueError_RequiredParameterMissing), false;
  Turn turn(queue);
  const Trigger* trigger = queue->findTrigger(token);
  if (!trigger) signalError(kPVBufferQueueError_InvalidTriggerToken);
  return trigger && trigger->isTrue;
}

// ---- Head readiness

namespace {

// A notification from anything; the center holds the queue for the call.
void someDataBecameReady(PVNotificationCenterRef, void* listener, BRStringRef, const void* object,
                         BRDictionaryRef) {
  auto* queue = static_cast<PVBufferQueueRef>(listener);
  // Pairs with listenToHead: either this sees the new head, or the head's readiness is seen there.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (queue->listenedHead.load(std::memory_order_relaxed) != object) return;
  Turn turn(queue);
  if (queue->isFiring)
    queue->becameReadyWhileFiring = true;
  else if (queue->listenedHead.load(std::memory_order_relaxed) == object)
    queue->evaluateTriggers(turn);
}

}  // namespace

// Registers the queue, which then stays registered.
PVStatus PVBufferQueue::startHearing() {
  if (isHearing || !notification) return kPVStatus_Success;
  const PVStatus status =
      KivNotificationCenterAddWeakListener(PVNotificationCenterGetDefaultLocalCenter(), this,
                                           someDataBecameReady, notification.get(), nullptr, 0, nullptr);
  isHearing = status == kPVStatus_Success;
  return status;
}

// In the finalizer. No other thread is inside the queue's listener any more, so this does not wait for one.
void PVBufferQueue::stopHearing() {
  if (isHearing)
    KivNotificationCenterRemoveWeakListener(PVNotificationCenterGetDefaultLocalCenter(), this,
                                            someDataBecameReady, notification.get(), nullptr);
}

void PVBufferQueue::triggersChanged() {
  hasDataReadyTrigger = false;
  for (Trigger* trigger = triggers; trigger; trigger = trigger->next)
    hasDataReadyTrigger |= trigger->condition == kPVBufferQueueTrigger_WhenDataBecomesReady;
  ++changes;
  listenToHead();
}

void PVBufferQueue::listenToHead() {
  PVBufferRef listened = hasDataReadyTrigger && store.count() ? store.head()->buffer : nullptr;
  if (listenedHead.load(std::memory_order_relaxed) == listened) return;
  listenedHead.store(listened, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_seq_cst);
}
