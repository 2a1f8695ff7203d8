// Frames, fences and waiting; see deliveries.hpp.
#include "src/deliveries.hpp"

#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>

namespace br {

constinit thread_local ThreadDeliveries threadDeliveries{nullptr, 0};
constinit std::mutex deliveryLock;
constinit std::atomic<uint32_t> deliveryAttention{kNeedsFullFences};

namespace {

// How many snapshots may wait to be freed before an addition looks for those that nobody reads.
constexpr uint32_t kRetiredBeforeLook = 64;

// All guarded by deliveryLock.
constinit pthread_cond_t deliveryChanged = PTHREAD_COND_INITIALIZER;
constinit ThreadRecord* firstRecord = nullptr;
constinit uint32_t recordsInUse = 0;
constinit DeliveryFrame* firstOnStack = nullptr;
constinit uint64_t nextOnStackOrder = 1;
constinit ListenerSnapshot* firstRetired = nullptr;
constinit uint32_t retiredCount = 0;
constinit uint32_t nextLookCount = kRetiredBeforeLook;
constinit pthread_key_t recordKey = 0;
constinit bool hasRecordKey = false;  // without it records could not be given back: every frame is on a stack

long membarrier(int command) { return syscall(SYS_membarrier, command, 0, 0); }

// The other half of orderAndWake. A thread gets its record under the lock, so when no other thread has one
// there is nobody to fence.
void heavyFence() {
  const uint32_t own = threadDeliveries.record ? 1 : 0;
  if (recordsInUse == own && !firstOnStack) return;
  if ((deliveryAttention.load(std::memory_order_relaxed) & kNeedsFullFences) ||
      membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) != 0)
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

void giveBackRecord(void* record) {
  std::lock_guard guard(deliveryLock);
  static_cast<ThreadRecord*>(record)->inUse = false;
  --recordsInUse;
  threadDeliveries.record = nullptr;
}

// A record for the calling thread, or null when memory runs out. Under the lock.
ThreadRecord* takeRecord() {
  if (!hasRecordKey) return nullptr;
  ThreadRecord* record = firstRecord;
  while (record && record->inUse) record = record->next;
  if (record) {
    record->inUse = true;
  } else {
    record = new (std::nothrow) ThreadRecord;
    if (!record) return nullptr;
    record->next = firstRecord;
    firstRecord = record;
  }
  ++recordsInUse;
  threadDeliveries.record = record;
  pthread_setspecific(recordKey, record);
  return record;
}

bool holds(const DeliveryFrame& frame, const ListenerSnapshot* snapshot) {
  for (auto& held : frame.held)
    if (held.load(std::memory_order_acquire) == snapshot) return true;
  return false;
}

bool isRead(const ListenerSnapshot* snapshot) {
  for (ThreadRecord* record = firstRecord; record; record = record->next)
    for (auto& frame : record->frames)
      if (holds(frame, snapshot)) return true;
  for (DeliveryFrame* frame = firstOnStack; frame; frame = frame->nextOnStack)
    if (holds(*frame, snapshot)) return true;
  return false;
}

}  // namespace

void prepareDeliveries() {
  if (membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) == 0)
    deliveryAttention.fetch_and(~kNeedsFullFences, std::memory_order_relaxed);
  hasRecordKey = pthread_key_create(&recordKey, giveBackRecord) == 0;
}

DeliveryFrame* enterDeliverySlowly(void* roomForFrame) {
  ThreadDeliveries& thread = threadDeliveries;
  std::lock_guard guard(deliveryLock);
  // A record taken in the middle of nested posts would not know of the outer ones.
  if (!thread.record && thread.depth == 1 && takeRecord()) return &thread.record->frames[0];
  auto* frame = new (roomForFrame) DeliveryFrame;
  frame->owner = &thread;
  frame->order = nextOnStackOrder++;
  frame->nextOnStack = firstOnStack;
  firstOnStack = frame;
  return frame;
}

void leaveDeliverySlowly(DeliveryFrame* onStack) {
  std::lock_guard guard(deliveryLock);
  DeliveryFrame** link = &firstOnStack;
  while (*link != onStack) link = &(*link)->nextOnStack;
  *link = onStack->nextOnStack;
}

void attendToDeliveries() {
  if (deliveryAttention.load(std::memory_order_relaxed) & kNeedsFullFences)
    std::atomic_thread_fence(std::memory_order_seq_cst);
  if ((deliveryAttention.load(std::memory_order_relaxed) & ~kNeedsFullFences) == 0) return;
  // A waiter that has looked but does not sleep yet holds the lock.
  { std::lock_guard guard(deliveryLock); }
  pthread_cond_broadcast(&deliveryChanged);
}

void waitForDeliveries(std::unique_lock<std::mutex>& lock, bool (*matches)(const DeliveryFrame&, const void*),
                       const void* context) {
  auto wait = [&] { pthread_cond_wait(&deliveryChanged, lock.mutex()->native_handle()); };
  const bool isInside = threadDeliveries.depth != 0;
  ThreadRecord* own = threadDeliveries.record;
  if (own && isInside) own->waitsInsideDelivery = true;
  deliveryAttention.fetch_add(1, std::memory_order_relaxed);
  heavyFence();

  for (ThreadRecord* record = firstRecord; record; record = record->next) {
    if (record == own || (isInside && record->waitsInsideDelivery)) continue;
    for (auto& frame : record->frames) {
      const uint32_t generation = frame.generation.load(std::memory_order_acquire);
      while (matches(frame, context) && frame.generation.load(std::memory_order_acquire) == generation)
        wait();
    }
  }
  const uint64_t firstLater = nextOnStackOrder;
  auto anyOnStack = [&] {
    for (DeliveryFrame* frame = firstOnStack; frame; frame = frame->nextOnStack)
      if (frame->owner != &threadDeliveries && frame->order < firstLater && matches(*frame, context) &&
          !(isInside && frame->owner->record && frame->owner->record->waitsInsideDelivery))
        return true;
    return false;
  };
  while (anyOnStack()) wait();

  deliveryAttention.fetch_sub(1, std::memory_order_relaxed);
  if (own && isInside) own->waitsInsideDelivery = false;
}

void retireSnapshot(ListenerSnapshot* snapshot, bool now, ListenerSnapshot** unread) {
  snapshot->nextRetired = firstRetired;
  firstRetired = snapshot;
  if (++retiredCount < nextLookCount && !now) return;
  heavyFence();
  for (ListenerSnapshot** link = &firstRetired; *link;) {
    ListenerSnapshot* retired = *link;
    if (isRead(retired)) {
      link = &retired->nextRetired;
      continue;
    }
    *link = retired->nextRetired;
    retired->nextRetired = *unread;
    *unread = retired;
    --retiredCount;
  }
  // Those that a long delivery keeps are not looked at on every addition.
  nextLookCount = retiredCount * 2 < kRetiredBeforeLook ? kRetiredBeforeLook : retiredCount * 2;
}

}  // namespace br
