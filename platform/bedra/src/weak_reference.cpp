// Weak references, and the table that leads from an object to those that name it.
//
// Representation: the table is hashed by the object's address, in shards that each have a lock. A weak
// reference is its own list node, so that making one needs no memory but its own. The object carries a flag
// instead of a list head: most objects never have a weak reference and pay nothing.
//
// A reference may read its object only under the shard's lock while it is still linked: the last release
// brings the count to 0, then takes the lock and unlinks all, and only then finalizes and frees. In between,
// an upgrade finds the count at 0 and leaves it there. No other lock is taken and no foreign code runs under
// a shard's lock.
#include <bedra/weak_reference.h>

#include <cstdlib>
#include <mutex>

#include "src/internal.hpp"

struct BRWeakReference : BRObject {
  static constexpr const char* className = "BRWeakReference";

  explicit BRWeakReference(BRObject* object) : target(object) {}
  ~BRWeakReference();

  void linkBefore(BRWeakReference** head);
  void unlink();

  std::atomic<BRObject*> target;     // written under the shard's lock; null when the object has gone
  BRWeakReference* next = nullptr;   // guarded by the shard's lock
  BRWeakReference** link = nullptr;  // what points here; guarded; null when not linked
  bool isLinkedOnce = false;         // false for immortal targets, which are never looked up
};

namespace {

using Reference = BRWeakReference;

struct alignas(64) Shard {
  std::mutex lock;
  Reference** buckets =
      nullptr;  // malloc'ed, a power of two of them; until the first growth, firstBucket stands in
  size_t bucketMask = 0;
  size_t count = 0;
  Reference* firstBucket = nullptr;

  Reference** bucketOf(const BRObject* object) {
    return buckets ? &buckets[br::hashPointer(object) >> 8 & bucketMask] : &firstBucket;
  }
  void add(Reference* reference, BRObject* object);
  void grow();
};

constinit Shard shards[32];

Shard& shardOf(const BRObject* object) { return shards[br::hashPointer(object) % std::size(shards)]; }

void Shard::add(Reference* reference, BRObject* object) {
  if (count > bucketMask) grow();
  reference->linkBefore(bucketOf(object));
  ++count;
}

// Without memory the lists grow longer instead.
void Shard::grow() {
  const size_t size = (bucketMask + 1) * 4;
  auto** grown = static_cast<Reference**>(std::calloc(size, sizeof(Reference*)));
  if (!grown) return;
  Reference** old = buckets ? buckets : &firstBucket;
  const size_t oldSize = bucketMask + 1;
  Reference** const emptied = std::exchange(buckets, grown);
  bucketMask = size - 1;
  for (size_t i = 0; i < oldSize; ++i) {
    while (Reference* reference = old[i]) {
      reference->unlink();
      reference->linkBefore(bucketOf(reference->target.load(std::memory_order_relaxed)));
    }
  }
  std::free(emptied);
}

BRObject* mutableObject(BRTypeRef object) { return static_cast<BRObject*>(const_cast<void*>(object)); }

// Adds a reference unless the last one has gone.
bool retainIfAlive(BRObject* object) {
  std::atomic_ref<uint32_t> count(object->count);
  uint32_t references = count.load(std::memory_order_relaxed);
  while (references != 0)
    if (count.compare_exchange_weak(references, references + 1, std::memory_order_relaxed)) return true;
  return false;
}

}  // namespace

void BRWeakReference::linkBefore(BRWeakReference** head) {
  next = *head;
  link = head;
  if (next) next->link = &next;
  *head = this;
}

void BRWeakReference::unlink() {
  *link = next;
  if (next) next->link = link;
  link = nullptr;
}

BRWeakReference::~BRWeakReference() {
  BRObject* object = target.load(std::memory_order_acquire);
  if (!object || !isLinkedOnce) return;
  Shard& shard = shardOf(object);  // the address alone: the object may be going at this moment
  std::lock_guard guard(shard.lock);
  if (!link) return;
  unlink();
  --shard.count;
}

void br::clearWeakReferences(BRObject* object) {
  Shard& shard = shardOf(object);
  std::lock_guard guard(shard.lock);
  for (Reference* reference = *shard.bucketOf(object); reference;) {
    Reference* following = reference->next;
    if (reference->target.load(std::memory_order_relaxed) == object) {
      reference->unlink();
      // the last that is done to the reference, for a finalizer of its own that finds it cleared takes no lock
      reference->target.store(nullptr, std::memory_order_release);
      --shard.count;
    }
    reference = following;
  }
}

BRTypeID BRWeakReferenceGetTypeID(void) { return br::typeID<BRWeakReference>(); }

BRWeakReferenceRef BRWeakReferenceCreate(BRAllocatorRef allocator, BRTypeRef ref) {
  if (!ref) return nullptr;
  BRObject* object = mutableObject(ref);
  if (object->hasFlag(br::kFinalizing)) return br::create<BRWeakReference>(allocator, 0, nullptr);
  auto* reference = br::create<BRWeakReference>(allocator, 0, object);
  if (!reference || BRGetRetainCount(object) == br::kImmortalCount) return reference;
  // Set before the caller lets go of its own reference, hence before any release that finds itself the last.
  if (!object->hasFlag(br::kHasWeakReferences))
    std::atomic_ref(object->flags).fetch_or(br::kHasWeakReferences, std::memory_order_relaxed);
  reference->isLinkedOnce = true;
  Shard& shard = shardOf(object);
  std::lock_guard guard(shard.lock);
  shard.add(reference, object);
  return reference;
}

BRTypeRef BRWeakReferenceCopyObject(BRWeakReferenceRef reference) {
  BRObject* object = reference ? reference->target.load(std::memory_order_relaxed) : nullptr;
  if (!object || !reference->isLinkedOnce) return object;
  std::lock_guard guard(shardOf(object).lock);
  const bool alive = reference->target.load(std::memory_order_relaxed) && retainIfAlive(object);
  return alive ? object : nullptr;
}
