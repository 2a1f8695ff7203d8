// Buffer queues: creation, enqueue and dequeue, reset, and what the queue says of its contents.
#include "queues/buffer_queue.hpp"

#include <pevrin/notification_center.h>

#include <algorithm>
#include <new>
#include <utility>

#include "runtime/error.hpp"
#include "runtime/twin.hpp"

using pv::Extreme;
using pv::QueuedBuffer;
using pv::signalError;
using pv::StoreEntry;
using pv::Turn;

namespace {

// An epoch in a duration is reported with this status and else left out of account.
constexpr PVStatus kDurationHasEpoch = -666;

PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }

// PVTimeAdd and PVTimeSubtract in place; their usual case takes no call and no copies.
bool areUsual(const PVTime& a, const PVTime& b) {
  return a.timescale == b.timescale && a.flags == kPVTimeFlags_Valid && b.flags == kPVTimeFlags_Valid &&
         a.epoch == 0 && b.epoch == 0;
}
void add(PVTime& total, const PVTime& time) {
  int64_t sum;
  if (areUsual(total, time) && !__builtin_add_overflow(total.value, time.value, &sum)) [[likely]]
    total.value = sum;
  else
    total = PVTimeAdd(total, time);
}
void subtract(PVTime& total, const PVTime& time) {
  int64_t difference;
  if (areUsual(total, time) && !__builtin_sub_overflow(total.value, time.value, &difference)) [[likely]]
    total.value = difference;
  else
    total = PVTimeSubtract(total, time);
}

PVStatus missing() { return signalError(kPVBufferQueueError_RequiredParameterMissing); }
PVStatus refuseChange() { return signalError(kPVBufferQueueError_CannotModifyFromTrigger); }

}  // namespace

BRTypeID PVBufferQueueGetTypeID(void) { return br::typeID<PVBufferQueue>(); }

PVStatus PVBufferQueueCreate(BRAllocatorRef allocator, int64_t capacity, const PVBufferCallbacks* callbacks,
                             PVBufferQueueRef* queueOut) {
  if (queueOut) *queueOut = nullptr;
  if (!callbacks || !queueOut) return missing();
  if (callbacks->version > 1 || !callbacks->getDuration)
    return signalError(kPVBufferQueueError_InvalidCallbacks);
  auto queue = br::Ref<PVBufferQueue>::adopt(br::create<PVBufferQueue>(allocator, 0, *callbacks));
  if (!queue) return signalError(kPVBufferQueueError_AllocationFailed);
  if (PVStatus status = PVNotificationCenterRegisterForBarrierSupport(center(), queue.get())) return status;
  queue->capacity = capacity;
  *queueOut = queue.detach();
  return kPVStatus_Success;
}

PVBufferQueue::~PVBufferQueue() {
  stopHearing();
  PVNotificationCenterUnregisterForBarrierSupport(center(), this);
  while (triggers) {
    pv::Trigger* next = triggers->next;
    BRAllocatorDeallocate(allocator(), triggers);
    triggers = next;
  }
  for (size_t i = 0; i < store.count(); ++i) BRRelease(store.at(i)->buffer);
  store.release(allocator());
}

// What an empty queue remembers of the buffers it had: nothing.
void PVBufferQueue::forgetContents() {
  totalDuration = kPVTimeZero;
  totalSize = 0;
  extremes.forget();
}

// ---- Enqueue

namespace {

// Whether the queue takes the buffer now; the validation callback has its say.
PVStatus admit(PVBufferQueue& queue, PVBufferRef buffer, Turn& turn) {
  if (queue.isFiring) return refuseChange();
  if (queue.hasEndOfData) return signalError(kPVBufferQueueError_EnqueueAfterEndOfData);
  if (!queue.validate) return kPVStatus_Success;
  turn.keepQueue();
  if (PVStatus status = queue.validate(&queue, buffer, queue.validateRefcon)) return signalError(status);
  return queue.hasEndOfData ? signalError(kPVBufferQueueError_EnqueueAfterEndOfData) : kPVStatus_Success;
}

// By binary search, except that the last few places come first: what arrives is seldom far out of order. A
// callback may change the queue in between; then any place is as good as another, as long as it is one.
size_t findPlace(const PVBufferQueue& queue, PVBufferRef buffer) {
  const pv::BufferStore& store = queue.store;
  if (!queue.callbacks.compare) return store.count();
  auto goesBefore = [&](size_t index) {
    return index < store.count() &&
           queue.callbacks.compare(store.at(index)->buffer, buffer, queue.callbacks.refcon) > 0;
  };
  constexpr size_t kFarthestStep = 4;
  size_t low = 0, high = store.count();
  for (size_t next = 1, step = 1; step <= kFarthestStep && step <= high; step = next, next *= 2) {
    if (!goesBefore(high - step)) {
      low = high - step + 1;
      break;
    }
    high -= step;
  }
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    if (goesBefore(middle))
      high = middle;
    else
      low = middle + 1;
  }
  return low;
}

// Fills the entry in.
void ask(const PVBufferCallbacks& callbacks, PVBufferRef buffer, StoreEntry* entry) {
  // Each answer is written where it stays: to copy a time right after it was written takes longer than the
  // call.
  auto askTime = [&](PVBufferGetTimeCallback getTime, PVTime* out) {
    if (getTime)
      new (out) PVTime(getTime(buffer, callbacks.refcon));
    else
      *out = kPVTimeInvalid;
  };
  entry->buffer = buffer;
  askTime(callbacks.getPresentationTimeStamp, &entry->presentation);
  askTime(callbacks.getDecodeTimeStamp, &entry->decode);
  askTime(callbacks.getDuration, &entry->duration);
  if (entry->duration.epoch != 0) {
    signalError(kDurationHasEpoch);
    entry->duration.epoch = 0;
  }
  entry->size = callbacks.getSize ? callbacks.getSize(buffer, callbacks.refcon) : 0;
}

void insert(PVBufferQueue& queue, size_t index, StoreEntry* entry) {
  queue.store.insert(index, entry);
  queue.extremes.inserted(index, queue.store);
  BRRetain(entry->buffer);
  add(queue.totalDuration, entry->duration);
  queue.totalSize += entry->size;
  queue.durationChanged();
  if (index == 0) queue.headChanged();
  queue.wasReset = false;
}

}  // namespace

PVStatus PVBufferQueueEnqueue(PVBufferQueueRef queue, PVBufferRef buffer) {
  if (!queue || !buffer) return missing();
  Turn turn(queue);
  if (PVStatus status = admit(*queue, buffer, turn)) return status;
  if (queue->isFull()) return signalError(kPVBufferQueueError_QueueIsFull);
  StoreEntry* entry = queue->store.take(queue);
  if (!entry) return signalError(kPVBufferQueueError_AllocationFailed);
  const size_t place = findPlace(*queue, buffer);
  ask(queue->callbacks, buffer, entry);
  if (queue->isFull()) {  // by now: a callback has enqueued
    queue->store.giveBack(entry);
    return signalError(kPVBufferQueueError_QueueIsFull);
  }
  insert(*queue, std::min(place, queue->store.count()), entry);
  queue->changed(turn);
  return kPVStatus_Success;
}

PVStatus PVBufferQueueSetValidationCallback(PVBufferQueueRef queue, PVBufferQueueValidationCallback callback,
                                            void* refcon) {
  if (!queue) return missing();
  Turn turn(queue);
  if (queue->isFiring) return refuseChange();
  queue->validate = callback;
  queue->validateRefcon = refcon;
  return kPVStatus_Success;
}

// ---- Dequeue

namespace {

// The reference to the buffer becomes the caller's. There must be a head.
PVBufferRef removeHead(PVBufferQueue& queue, Turn& turn) {
  queue.extremes.removesHead(queue.store);
  StoreEntry* removed = queue.store.removeHead();
  PVBufferRef buffer = removed->buffer;
  if (queue.store.count() == 0) {
    queue.forgetContents();
  } else {
    PVTime& duration = queue.totalDuration;
    subtract(duration, removed->duration);
    queue.totalSize -= removed->size;
    if (duration.value == 0 && PVTimeCompare(duration, kPVTimeZero) == 0) duration = kPVTimeZero;
    queue.durationChanged();
  }
  queue.store.giveBack(removed);
  queue.headChanged();
  queue.changed(turn);
  return buffer;
}

// Client code, for which the head is kept alive; false when that changes the queue.
bool isHeadReady(PVBufferQueue& queue, Turn& turn) {
  if (!queue.callbacks.isDataReady) return true;
  turn.keepQueue();
  auto head = br::Ref<const void>::retain(queue.store.head()->buffer);
  const uint64_t changesBefore = queue.changes;
  return queue.isReady(head.get()) && queue.changes == changesBefore;
}

enum class Wanted { kAny, kReady, kThisOne };

PVBufferRef dequeue(PVBufferQueueRef queue, Wanted wanted, PVBufferRef thisOne = nullptr) {
  if (!queue || (wanted == Wanted::kThisOne && !thisOne)) return missing(), nullptr;
  Turn turn(queue);
  if (queue->isFiring) return refuseChange(), nullptr;
  if (queue->store.count() == 0) return nullptr;
  if (wanted == Wanted::kReady && !isHeadReady(*queue, turn)) return nullptr;
  if (wanted == Wanted::kThisOne && queue->store.head()->buffer != thisOne) return nullptr;
  return removeHead(*queue, turn);
}

}  // namespace

PVBufferRef PVBufferQueueDequeueAndRetain(PVBufferQueueRef queue) { return dequeue(queue, Wanted::kAny); }

PVBufferRef PVBufferQueueDequeueIfDataReadyAndRetain(PVBufferQueueRef queue) {
  return dequeue(queue, Wanted::kReady);
}

PVBufferRef KivBufferQueueDequeueIfMatchingAndRetain(PVBufferQueueRef queue, PVBufferRef buffer) {
  return dequeue(queue, Wanted::kThisOne, buffer);
}

PVStatus PVBufferQueueMarkEndOfData(PVBufferQueueRef queue) {
  if (!queue) return missing();
  Turn turn(queue);
  if (queue->isFiring) return refuseChange();
  queue->hasEndOfData = true;
  queue->wasReset = false;
  queue->changed(turn);
  return kPVStatus_Success;
}

PVStatus PVBufferQueueReset(PVBufferQueueRef queue) {
  return PVBufferQueueResetWithCallback(queue, nullptr, nullptr);
}

PVStatus PVBufferQueueResetWithCallback(PVBufferQueueRef queue, PVBufferQueueResetCallback callback,
                                        void* refcon) {
  if (!queue) return missing();
  auto alive = br::Ref<PVBufferQueue>::retain(queue);
  StoreEntry* removed;
  {
    Turn turn(queue);
    if (queue->isFiring) return refuseChange();
    removed = queue->store.removeAll();
    queue->hasEndOfData = false;
    queue->wasReset = true;
    queue->forgetContents();
    queue->headChanged();
    queue->changed(turn);
  }
  for (StoreEntry* entry = removed; entry; entry = entry->next) {
    if (callback) callback(entry->buffer, refcon);
    BRRelease(entry->buffer);
  }
  Turn turn(queue);
  while (removed) queue->store.giveBack(std::exchange(removed, removed->next));
  return kPVStatus_Success;
}

PVStatus PVBufferQueueCallForEachBuffer(PVBufferQueueRef queue, PVBufferQueueForEachCallback callback,
                                        void* refcon) {
  if (!queue || !callback) return missing();
  Turn turn(queue);
  turn.keepQueue();
  for (size_t i = 0; i < queue->store.count(); ++i) {
    auto buffer = br::Ref<const void>::retain(queue->store.at(i)->buffer);
    if (PVStatus status = callback(buffer.get(), refcon)) return status;
  }
  return kPVStatus_Success;
}

// ---- Questions

namespace {

// What the question answers under the mutex, or what stands for no answer, signalled.
template <class Answer, class Question>
Answer answer(PVBufferQueueRef queue, Answer ifMissing, Question question) {
  if (!queue) return missing(), ifMissing;
  Turn turn(queue);
  return question(*queue);
}

PVTime extremeOf(PVBufferQueueRef queue, Extreme extreme) {
  return answer(queue, kPVTimeInvalid, [extreme](PVBufferQueue& in) { return in.extreme(extreme); });
}

PVTime timeOfHead(PVBufferQueueRef queue, PVTime QueuedBuffer::*time) {
  return answer(queue, kPVTimeInvalid, [time](PVBufferQueue& in) {
    return in.store.count() ? in.store.head()->*time : kPVTimeInvalid;
  });
}

}  // namespace

PVBufferRef PVBufferQueueGetHead(PVBufferQueueRef queue) {
  return answer(queue, PVBufferRef{}, [](PVBufferQueue& in) -> PVBufferRef {
    return in.store.count() ? in.store.head()->buffer : nullptr;
  });
}

bool PVBufferQueueIsEmpty(PVBufferQueueRef queue) {
  return answer(queue, true, [](PVBufferQueue& in) { return in.store.count() == 0; });
}

int64_t PVBufferQueueGetBufferCount(PVBufferQueueRef queue) {
  return answer(queue, int64_t{0}, [](PVBufferQueue& in) { return static_cast<int64_t>(in.store.count()); });
}

bool PVBufferQueueContainsEndOfData(PVBufferQueueRef queue) {
  return answer(queue, true, [](PVBufferQueue& in) { return in.hasEndOfData; });
}

bool PVBufferQueueIsAtEndOfData(PVBufferQueueRef queue) {
  return answer(queue, true, [](PVBufferQueue& in) { return in.hasEndOfData && in.store.count() == 0; });
}

PVTime PVBufferQueueGetDuration(PVBufferQueueRef queue) {
  return answer(queue, kPVTimeInvalid, [](PVBufferQueue& in) { return in.totalDuration; });
}

size_t PVBufferQueueGetTotalSize(PVBufferQueueRef queue) {
  return answer(queue, size_t{0}, [](PVBufferQueue& in) { return in.totalSize; });
}

PVTime PVBufferQueueGetMinDecodeTimeStamp(PVBufferQueueRef queue) {
  return extremeOf(queue, Extreme::kMinDecode);
}

PVTime PVBufferQueueGetMinPresentationTimeStamp(PVBufferQueueRef queue) {
  return extremeOf(queue, Extreme::kMinPresentation);
}

PVTime PVBufferQueueGetMaxPresentationTimeStamp(PVBufferQueueRef queue) {
  return extremeOf(queue, Extreme::kMaxPresentation);
}

PVTime PVBufferQueueGetEndPresentationTimeStamp(PVBufferQueueRef queue) {
  return extremeOf(queue, Extreme::kMaxEnd);
}

PVTime PVBufferQueueGetFirstDecodeTimeStamp(PVBufferQueueRef queue) {
  return timeOfHead(queue, &QueuedBuffer::decode);
}

PVTime PVBufferQueueGetFirstPresentationTimeStamp(PVBufferQueueRef queue) {
  return timeOfHead(queue, &QueuedBuffer::presentation);
}

// ---- Sibling media layers

PVBufferQueueRef KivBufferQueueRetain(PVBufferQueueRef queue) {
  BRRetain(queue);
  return queue;
}

void KivBufferQueueRelease(PVBufferQueueRef queue) { BRRelease(queue); }
