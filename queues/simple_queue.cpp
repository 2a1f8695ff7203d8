// A ring with one slot more than the capacity, so that full and empty differ: empty when the read index is
// the write index, full when the slot behind the write index is the one to read.
//
// Each side writes its own index alone, and publishes it with release after it is done with the slot; the
// other side reads it with acquire. Each keeps the other's index as it last saw it, and looks again only when
// by that the ring is full or empty: an old index can only understate what may be done. So a side mostly
// works on a cache line that nobody else touches, and the line of a slot changes hands once for eight
// elements.
#include <kiv/simple_queue.h>

#include <bedra/string.h>
#include <atomic>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include "runtime/error.hpp"

namespace {

constexpr size_t kCacheLineBytes = 64;

// What one side works with.
struct Side {
  explicit Side(uint32_t slots) : slots(slots) {}

  uint32_t next(uint32_t position) const { return position + 1 == slots ? 0 : position + 1; }

  std::atomic<uint32_t> index{0};
  uint32_t othersIndex = 0;  // at some time before
  const uint32_t slots;      // capacity + 1
};

}  // namespace

// Objects are aligned to 16 bytes only, so a cache line's length keeps the sides from sharing one.
struct PVSimpleQueue : BRObject {
  static constexpr const char* className = "PVSimpleQueue";

  explicit PVSimpleQueue(uint32_t slotCount) : producer(slotCount), consumer(slotCount) {}
  BRStringRef copyDebugDescription() const;

  const void** slots() { return br::extra<const void*>(this); }
  int32_t capacity() const { return static_cast<int32_t>(producer.slots - 1); }
  int32_t countBetween(uint32_t read, uint32_t write) const {
    return static_cast<int32_t>(write >= read ? write - read : write - read + producer.slots);
  }
  int32_t count() const {
    const uint32_t read = consumer.index.load(std::memory_order_acquire);
    return countBetween(read, producer.index.load(std::memory_order_acquire));
  }
  // The slot to read, or null when the queue is empty.
  const void** head() {
    const uint32_t read = consumer.index.load(std::memory_order_relaxed);
    if (read == consumer.othersIndex) {
      consumer.othersIndex = producer.index.load(std::memory_order_acquire);
      if (read == consumer.othersIndex) return nullptr;
    }
    return &slots()[read];
  }

  char producerPadding[kCacheLineBytes];
  Side producer;
  char consumerPadding[kCacheLineBytes];
  Side consumer;
  char slotPadding[kCacheLineBytes];
};

using pv::signalError;

BRTypeID PVSimpleQueueGetTypeID(void) { return br::typeID<PVSimpleQueue>(); }

PVStatus PVSimpleQueueCreate(BRAllocatorRef allocator, int32_t capacity, PVSimpleQueueRef* queueOut) {
  if (queueOut) *queueOut = nullptr;
  if (!queueOut || capacity == 0) return signalError(kPVSimpleQueueError_RequiredParameterMissing);
  if (capacity < 0) return signalError(kPVSimpleQueueError_ParameterOutOfRange);
  const uint32_t slots = static_cast<uint32_t>(capacity) + 1;
  *queueOut = br::createUnfilled<PVSimpleQueue>(allocator, slots * sizeof(void*), slots);
  return *queueOut ? kPVStatus_Success : signalError(kPVSimpleQueueError_AllocationFailed);
}

PVStatus PVSimpleQueueEnqueue(PVSimpleQueueRef queue, const void* element) {
  if (!queue || !element) return signalError(kPVSimpleQueueError_RequiredParameterMissing);
  Side& side = queue->producer;
  const uint32_t write = side.index.load(std::memory_order_relaxed), next = side.next(write);
  if (next == side.othersIndex) {
    side.othersIndex = queue->consumer.index.load(std::memory_order_acquire);
    if (next == side.othersIndex) return signalError(kPVSimpleQueueError_QueueIsFull);
  }
  queue->slots()[write] = element;
  side.index.store(next, std::memory_order_release);
  return kPVStatus_Success;
}

const void* PVSimpleQueueDequeue(PVSimpleQueueRef queue) {
  if (!queue) {
    signalError(kPVSimpleQueueError_RequiredParameterMissing);
    return nullptr;
  }
  const void** slot = queue->head();
  if (!slot) return nullptr;
  const void* element = *slot;
  Side& side = queue->consumer;
  side.index.store(side.next(side.index.load(std::memory_order_relaxed)), std::memory_order_release);
  return element;
}

const void* PVSimpleQueueGetHead(PVSimpleQueueRef queue) {
  if (!queue) {
    signalError(kPVSimpleQueueError_RequiredParameterMissing);
    return nullptr;
  }
  const void** slot = queue->head();
  return slot ? *slot : nullptr;
}

PVStatus PVSimpleQueueReset(PVSimpleQueueRef queue) {
  if (!queue) return signalError(kPVSimpleQueueError_RequiredParameterMissing);
  for (Side* side : {&queue->producer, &queue->consumer}) {
    side->index.store(0, std::memory_order_relaxed);
    side->othersIndex = 0;
  }
  return kPVStatus_Success;
}

int32_t PVSimpleQueueGetCapacity(PVSimpleQueueRef queue) {
  if (queue) return queue->capacity();
  signalError(kPVSimpleQueueError_RequiredParameterMissing);
  return 0;
}

int32_t PVSimpleQueueGetCount(PVSimpleQueueRef queue) {
  if (queue) return queue->count();
  signalError(kPVSimpleQueueError_RequiredParameterMissing);
  return 0;
}

PVSimpleQueueRef KivSimpleQueueRetain(PVSimpleQueueRef queue) {
  BRRetain(queue);
  return queue;
}

void KivSimpleQueueRelease(PVSimpleQueueRef queue) { BRRelease(queue); }

BRStringRef PVSimpleQueue::copyDebugDescription() const {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  if (!text) return nullptr;
  auto* self = const_cast<PVSimpleQueue*>(this);
  const uint32_t read = consumer.index.load(std::memory_order_acquire);
  const uint32_t write = producer.index.load(std::memory_order_acquire);
  BRStringAppendFormat(text.get(),
                       "<PVSimpleQueue %p retainCount: %ld allocator: %p\n"
                       "\tcapacity = %d\n\tcount = %d\n\treadIndex = %d\n\twriteIndex = %d\n"
                       "\telements[readIndex..(writeIndex-1) %% (capacity+1)] = {\n",
                       static_cast<const void*>(this), static_cast<long>(BRGetRetainCount(this)),
                       static_cast<const void*>(BRGetAllocator(this)), capacity(), countBetween(read, write),
                       static_cast<int>(read), static_cast<int>(write));
  for (uint32_t position = read; position != write; position = producer.next(position))
    BRStringAppendFormat(text.get(), "\t\t%p", self->slots()[position]);
  return text.detach();
}
