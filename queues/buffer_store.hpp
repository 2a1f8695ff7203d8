// Where a buffer queue keeps its buffers: a sequence that is taken from at the head and inserted into
// anywhere, usually near one of the ends.
//
// Representation: a ring of pointers to entries. An insertion moves the pointers between it and the nearer
// end, one place each. Entries stand in chunks, never move, and are used again last in, first out, while they
// are still in the cache. Ring and chunks only grow; release() gives them back at the end.
//
// An entry is taken out of store, filled in by the queue, and inserted; a removed one is read and given back.
// What a callback does to the store in between does not touch it. Nothing here calls foreign code.
#ifndef PEVRIN_QUEUES_BUFFER_STORE_HPP
#define PEVRIN_QUEUES_BUFFER_STORE_HPP

#include <bedra/allocator.h>
#include <bedra/runtime.h>
#include <pevrin/buffer_queue.h>

#include <cstddef>
#include <utility>

namespace pv {

// What a buffer answered when it was enqueued; invalid times and a size of 0 where there is no callback.
struct QueuedBuffer {
  PVBufferRef buffer;  // retained, in the ring
  size_t size;
  PVTime duration;  // epoch 0
  PVTime presentation;
  PVTime decode;
};

enum class Extreme : uint32_t { kMinPresentation, kMaxPresentation, kMinDecode, kMaxEnd };
inline constexpr size_t kExtremes = 4;

struct StoreEntry : QueuedBuffer {
  union {
    StoreEntry* best[kExtremes];  // BufferExtremes' own, while the entry is in the ring
    StoreEntry* next;             // outside of it
  };
};

class BufferStore {
 public:
  size_t count() const { return count_; }
  // The first entry and the one at an index; they must be there.
  StoreEntry* head() const { return ring_[first_]; }
  StoreEntry* at(size_t index) const { return ring_[(first_ + index) & mask_]; }

  // An entry with a place in the ring kept for it; null when memory runs out.
  StoreEntry* take(BRTypeRef owner) {
    if (taken_ == capacity_ && !grow(BRGetAllocator(owner))) return nullptr;
    ++taken_;
    return freed_ ? std::exchange(freed_, freed_->next) : untouched_++;
  }
  void giveBack(StoreEntry* entry) {
    --taken_;
    entry->next = freed_;
    freed_ = entry;
  }

  // Puts an entry before the one at the index, or last.
  void insert(size_t index, StoreEntry* entry) {
    if (index < count_ / 2) {
      first_ = (first_ - 1) & mask_;
      for (size_t i = 0; i < index; ++i) place(i) = at(i + 1);
    } else {
      for (size_t i = count_; i > index; --i) place(i) = at(i - 1);
    }
    ++count_;
    place(index) = entry;
  }
  StoreEntry* removeHead() {
    StoreEntry* entry = head();
    first_ = (first_ + 1) & mask_;
    --count_;
    return entry;
  }

  // All entries, linked in order.
  StoreEntry* removeAll() {
    StoreEntry* first = nullptr;
    while (count_) {
      StoreEntry* entry = at(--count_);
      entry->next = first;
      first = entry;
    }
    return first;
  }

  // Gives all memory back; buffers that are left are forgotten.
  void release(BRAllocatorRef allocator);

 private:
  struct Chunk {
    Chunk* next;
    StoreEntry* entries() { return reinterpret_cast<StoreEntry*>(this + 1); }
  };
  StoreEntry*& place(size_t index) { return ring_[(first_ + index) & mask_]; }
  bool grow(BRAllocatorRef allocator);

  StoreEntry** ring_ = nullptr;
  size_t capacity_ = 0;  // of the ring, a power of two, and of all chunks together
  size_t mask_ = 0;
  size_t first_ = 0;
  size_t count_ = 0;  // entries in the ring
  size_t taken_ = 0;  // entries in the ring and in somebody's hands
  Chunk* chunks_ = nullptr;
  StoreEntry* freed_ = nullptr;      // entries that were in use before
  StoreEntry* untouched_ = nullptr;  // the entries of the last chunk that never were
};

}  // namespace pv

#endif
