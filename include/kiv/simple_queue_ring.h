/* The ring inside a simple queue, and its two moves, for the compiler to put in place where elements are handed over.
 *
 * <pevrin/simple_queue.h> includes this file; use the queue through that. The layout is part of the library's binary
 * interface. With PV_SIMPLE_QUEUE_NO_INLINES defined before, the moves are calls into the library.
 *
 * The ring has one slot more than the queue's capacity, so that full and empty differ: it is empty when the read index
 * is the write index, and full when the slot behind the one to write is the one to read.
 *
 * Each side writes its own index alone, and publishes it with release after it is done with the slot; the other side
 * reads it with acquire. Each keeps the other's index as it last saw it, and looks again only when by that the ring is
 * full or empty: an old index can only understate what may be done. So a side mostly works on a cache line that nobody
 * else touches, and the line of a slot changes hands once for eight elements. */
#ifndef KIV_SIMPLE_QUEUE_RING_H
#define KIV_SIMPLE_QUEUE_RING_H

#include <bedra/runtime.h>
#include <pevrin/base.h>

/* Always in place: there are no functions of these names to call. */
#define KIV_SIMPLE_QUEUE_INLINE extern inline __attribute__((gnu_inline, always_inline))

PV_BEGIN_DECLS

/* What one side works with. */
typedef struct KivSimpleQueueSide {
  uint32_t index;       /* of the slot to write, or to read; atomic */
  uint32_t othersIndex; /* at some time before */
  uint32_t slots;       /* capacity + 1 */
} KivSimpleQueueSide;

/* Stands behind the object's header; the slots follow. A block may start anywhere in a cache line, so the sides are a
 * line's length apart from everything. */
typedef struct KivSimpleQueueRing {
  char producerPadding[64];
  KivSimpleQueueSide producer;
  char consumerPadding[64];
  KivSimpleQueueSide consumer;
  char slotPadding[64];
  uint32_t reserved[2];
} KivSimpleQueueRing;

/* The slots, which follow the ring. */
KIV_SIMPLE_QUEUE_INLINE const void **KivSimpleQueueRingSlots(KivSimpleQueueRing *ring) {
  return (const void **)(void *)(ring + 1);
}

/* The wrap is a branch, seldom taken, so that an index does not wait for the comparison of the one before. */
KIV_SIMPLE_QUEUE_INLINE uint32_t KivSimpleQueueRingNext(const KivSimpleQueueSide *side, uint32_t index) {
  return __builtin_expect(index + 1 == side->slots, 0) ? 0 : index + 1;
}

/* False when the ring is full. The producer's. */
KIV_SIMPLE_QUEUE_INLINE bool KivSimpleQueueRingPut(KivSimpleQueueRing *ring, const void *element) {
  KivSimpleQueueSide *side = &ring->producer;
  const uint32_t write = side->index, next = KivSimpleQueueRingNext(side, write);
  if (__builtin_expect(next == side->othersIndex, 0)) {
    const uint32_t read = side->othersIndex = __atomic_load_n(&ring->consumer.index, __ATOMIC_ACQUIRE);
    if (next == read) return false;
  }
  KivSimpleQueueRingSlots(ring)[write] = element;
  __atomic_store_n(&side->index, next, __ATOMIC_RELEASE);
  return true;
}

/* Whether the ring has something at the read index. The consumer's, like the next two. */
KIV_SIMPLE_QUEUE_INLINE bool KivSimpleQueueRingHas(KivSimpleQueueRing *ring, uint32_t read) {
  KivSimpleQueueSide *side = &ring->consumer;
  if (__builtin_expect(read != side->othersIndex, 1)) return true;
  const uint32_t write = side->othersIndex = __atomic_load_n(&ring->producer.index, __ATOMIC_ACQUIRE);
  return read != write;
}

/* The oldest element, or NULL. */
KIV_SIMPLE_QUEUE_INLINE const void *KivSimpleQueueRingHead(KivSimpleQueueRing *ring) {
  const uint32_t read = ring->consumer.index;
  return KivSimpleQueueRingHas(ring, read) ? KivSimpleQueueRingSlots(ring)[read] : NULL;
}

/* The same, and it leaves. */
KIV_SIMPLE_QUEUE_INLINE const void *KivSimpleQueueRingTake(KivSimpleQueueRing *ring) {
  KivSimpleQueueSide *side = &ring->consumer;
  const uint32_t read = side->index;
  if (!KivSimpleQueueRingHas(ring, read)) return NULL;
  const void *element = KivSimpleQueueRingSlots(ring)[read];
  __atomic_store_n(&side->index, KivSimpleQueueRingNext(side, read), __ATOMIC_RELEASE);
  return element;
}

PV_END_DECLS

#endif
