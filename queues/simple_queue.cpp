// Simple queues: the object around the ring of <kiv/simple_queue_ring.h>, which says how that works.
#define PV_SIMPLE_QUEUE_NO_INLINES  // their one definition is here
#include <kiv/simple_queue.h>

#include <bedra/string.h>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include "runtime/error.hpp"

struct PVSimpleQueue : BRObject {
  static constexpr const char* className = "PVSimpleQueue";

  explicit PVSimpleQueue(uint32_t slots) { ring.producer.slots = ring.consumer.slots = slots; }
  BRStringRef copyDebugDescription() const;

  int32_t capacity() const { return static_cast<int32_t>(ring.producer.slots - 1); }
  uint32_t readIndex() const { return __atomic_load_n(&ring.consumer.index, __ATOMIC_ACQUIRE); }
  uint32_t writeIndex() const { return __atomic_load_n(&ring.producer.index, __ATOMIC_ACQUIRE); }
  int32_t countBetween(uint32_t read, uint32_t write) const {
    return static_cast<int32_t>(write >= read ? write - read : write - read + ring.producer.slots);
  }

  KivSimpleQueueRing ring{};
};
static_assert(sizeof(PVSimpleQueue) == kBRObjectHeaderBytes + sizeof(KivSimpleQueueRing));

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
  if (KivSimpleQueueRingPut(&queue->ring, element)) return kPVStatus_Success;
  return signalError(kPVSimpleQueueError_QueueIsFull);
}

const void* PVSimpleQueueDequeue(PVSimpleQueueRef queue) {
  if (queue) return KivSimpleQueueRingTake(&queue->ring);
  signalError(kPVSimpleQueueError_RequiredParameterMissing);
  return nullptr;
}

const void* PVSimpleQueueGetHead(PVSimpleQueueRef queue) {
  if (queue) return KivSimpleQueueRingHead(&queue->ring);
  signalError(kPVSimpleQueueError_RequiredParameterMissing);
  return nullptr;
}

PVStatus PVSimpleQueueReset(PVSimpleQueueRef queue) {
  if (!queue) return signalError(kPVSimpleQueueError_RequiredParameterMissing);
  for (KivSimpleQueueSide* side : {&queue->ring.producer, &queue->ring.consumer})
    side->index = side->othersIndex = 0;
  return kPVStatus_Success;
}

int32_t PVSimpleQueueGetCapacity(PVSimpleQueueRef queue) {
  if (queue) return queue->capacity();
  signalError(kPVSimpleQueueError_RequiredParameterMissing);
  return 0;
}

int32_t PVSimpleQueueGetCount(PVSimpleQueueRef queue) {
  if (!queue) {
    signalError(kPVSimpleQueueError_RequiredParameterMissing);
    return 0;
  }
  const uint32_t read = queue->readIndex();  // first: later it could have passed the write index
  return queue->countBetween(read, queue->writeIndex());
}

PVSimpleQueueRef KivSimpleQueueRetain(PVSimpleQueueRef queue) {
  BRRetain(queue);
  return queue;
}

void KivSimpleQueueRelease(PVSimpleQueueRef queue) { BRRelease(queue); }

BRStringRef PVSimpleQueue::copyDebugDescription() const {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  if (!text) return nullptr;
  const void** slots = KivSimpleQueueRingSlots(const_cast<KivSimpleQueueRing*>(&ring));
  const uint32_t read = readIndex(), write = writeIndex();
  BRStringAppendFormat(text.get(),
                       "<PVSimpleQueue %p retainCount: %ld allocator: %p\n"
                       "\tcapacity = %d\n\tcount = %d\n\treadIndex = %d\n\twriteIndex = %d\n"
                       "\telements[readIndex..(writeIndex-1) %% (capacity+1)] = {\n",
                       static_cast<const void*>(this), static_cast<long>(BRGetRetainCount(this)),
                       static_cast<const void*>(BRGetAllocator(this)), capacity(), countBetween(read, write),
                       static_cast<int>(read), static_cast<int>(write));
  for (uint32_t position = read; position != write;
       position = KivSimpleQueueRingNext(&ring.producer, position))
    BRStringAppendFormat(text.get(), "\t\t%p", slots[position]);
  return text.detach();
}
