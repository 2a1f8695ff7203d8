#include "queues/buffer_store.hpp"

#include <new>
#include <utility>

namespace pv {

namespace {
constexpr size_t kFirstCapacity = 16;
}

bool BufferStore::grow(BRAllocatorRef allocator) {
  const size_t capacity = capacity_ ? capacity_ * 2 : kFirstCapacity;
  const size_t added = capacity - capacity_;
  static_assert(sizeof(Chunk) % alignof(StoreEntry) == 0);
  if (capacity > SIZE_MAX / sizeof(StoreEntry) / 2) return false;
  auto** ring = static_cast<StoreEntry**>(BRAllocatorAllocate(allocator, capacity * sizeof(StoreEntry*)));
  if (!ring) return false;
  void* block = BRAllocatorAllocate(allocator, sizeof(Chunk) + added * sizeof(StoreEntry));
  if (!block) {
    BRAllocatorDeallocate(allocator, ring);
    return false;
  }
  chunks_ = new (block) Chunk{chunks_};
  untouched_ = chunks_->entries();  // growth comes when all others are in use
  for (size_t i = 0; i < count_; ++i) ring[i] = at(i);
  BRAllocatorDeallocate(allocator, ring_);
  ring_ = ring;
  capacity_ = capacity;
  mask_ = capacity - 1;
  first_ = 0;
  return true;
}

void BufferStore::release(BRAllocatorRef allocator) {
  while (chunks_) BRAllocatorDeallocate(allocator, std::exchange(chunks_, chunks_->next));
  BRAllocatorDeallocate(allocator, ring_);
  *this = BufferStore();
}

}  // namespace pv
