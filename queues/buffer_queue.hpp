// The representation of buffer queues, shared by the files that move buffers, watch them with triggers and
// describe the queue.
//
// One reentrant mutex guards all fields but listenedHead. It is never held while a buffer is released, except
// in the finalizer, which nobody else can be inside. Client code runs under it and may come back into the
// queue: so every function asks its client first, and looks at the store again before it touches it.
#ifndef PEVRIN_QUEUES_BUFFER_QUEUE_HPP
#define PEVRIN_QUEUES_BUFFER_QUEUE_HPP

#include <kiv/buffer_queue.h>

#include <atomic>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>
#include <cstddef>
#include <cstring>

#include "queues/buffer_extremes.hpp"
#include "queues/buffer_store.hpp"
#include "runtime/reentrant_mutex.hpp"

namespace pv {

// An installed trigger; they form a list in the order of installation.
struct Trigger {
  PVBufferQueueTriggerCallback callback;
  void* refcon;
  PVBufferQueueTriggerCondition condition;
  PVTime timeThreshold;  // for the timestamp conditions, the timestamp at the last look
  int64_t integerThreshold;
  uint64_t number;  // the token
  bool isTrue = false;
  Trigger* next = nullptr;

  PVBufferQueueTriggerToken token() const { return reinterpret_cast<PVBufferQueueTriggerToken>(number); }
};

class Turn;

}  // namespace pv

struct PVBufferQueue : BRObject {
  static constexpr const char* className = "PVBufferQueue";

  explicit PVBufferQueue(const PVBufferCallbacks& record) {
    // A record of version 0 may end before getSize.
    std::memcpy(&callbacks, &record,
                record.version == 0 ? offsetof(PVBufferCallbacks, getSize) : sizeof callbacks);
    notification = br::Ref<const BRString>::retain(callbacks.dataBecameReadyNotification);
  }
  ~PVBufferQueue();
  BRStringRef copyDebugDescription() const;

  BRAllocatorRef allocator() const { return BRGetAllocator(this); }
  bool isReady(PVBufferRef buffer) const {
    return !callbacks.isDataReady || callbacks.isDataReady(buffer, callbacks.refcon);
  }
  PVTime extreme(pv::Extreme which) { return extremes.of(which, store); }

  bool isFull() const { return capacity > 0 && store.count() >= static_cast<size_t>(capacity); }
  void forgetContents();
  void durationChanged() {
    if (!PVTimeIsNumeric(totalDuration)) [[unlikely]]
      totalDuration =
          PVTimeSubtract(extreme(pv::Extreme::kMaxPresentation), extreme(pv::Extreme::kMinPresentation));
  }

  // ---- Triggers
  // Looks at all triggers after a change. Calls client code; nothing may be taken for granted afterwards.
  void changed(pv::Turn& turn) {
    ++changes;
    if (triggers) evaluateTriggers(turn);
  }
  void evaluateTriggers(pv::Turn& turn);
  void evaluate(pv::Trigger& trigger, bool isHeadReady);
  bool isTrue(pv::Trigger& trigger, bool isHeadReady);
  bool askHeadReady();
  void fire(const pv::Trigger& trigger);
  PVStatus install(const pv::Trigger& wanted, PVBufferQueueTriggerToken* tokenOut, pv::Turn& turn);
  PVStatus removeTrigger(PVBufferQueueTriggerToken token);
  pv::Trigger* findTrigger(PVBufferQueueTriggerToken token) const;
  PVStatus startHearing();
  void stopHearing();
  void triggersChanged();
  // Before the readiness of the new head is asked.
  void headChanged() {
    if (hasDataReadyTrigger) [[unlikely]]
      listenToHead();
  }
  void listenToHead();

  pv::ReentrantMutex mutex;
  PVBufferCallbacks callbacks{};
  br::Ref<const BRString> notification;
  int64_t capacity = 0;

  pv::BufferStore store;
  pv::BufferExtremes extremes;
  PVTime totalDuration = kPVTimeZero;
  size_t totalSize = 0;
  uint64_t changes = 0;  // tells whether a callback has changed the queue meanwhile
  bool hasEndOfData = false;
  bool wasReset = false;

  PVBufferQueueValidationCallback validate = nullptr;
  void* validateRefcon = nullptr;

  pv::Trigger* triggers = nullptr;
  bool isFiring = false;  // the mutex's owner is inside a trigger callback
  bool becameReadyWhileFiring = false;
  bool hasDataReadyTrigger = false;
  bool isHearing = false;  // registered with the notification center, from the first such trigger on
  // The head, while there is a data-ready trigger: read without the mutex by whoever posts.
  std::atomic<PVBufferRef> listenedHead{nullptr};
};

namespace pv {

// The time for which a function holds the mutex, and the queue itself when a callback may drop the caller's
// reference.
class Turn {
 public:
  explicit Turn(PVBufferQueueRef queue) : queue_(queue) { queue_->mutex.lock(); }
  ~Turn() {
    queue_->mutex.unlock();
    if (keeps_) BRRelease(queue_);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  void keepQueue() {
    if (!keeps_) BRRetain(queue_);
    keeps_ = true;
  }

 private:
  PVBufferQueueRef queue_;
  bool keeps_ = false;
};

}  // namespace pv

#endif
