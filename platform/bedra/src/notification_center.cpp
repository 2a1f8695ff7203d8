// The registry of listeners, and posting.
//
// Representation: a fixed table of buckets, indexed by a hash of (name, object) with 0 in the place of what
// matches any. A bucket publishes a snapshot of its registrations in the order they were made, or null when
// it has none. Adding and removing replace the snapshot under deliveryLock; posting reads without a lock
// (deliveries.hpp says how that is safe). Three empty buckets are all that a post nobody listens to looks at.
//
// A removal first marks its registrations in the published snapshot, which needs no memory and is enough to
// keep them from being called; the marked ones leave with the next replacement, at once unless memory has run
// out.
//
// A snapshot holds a reference to the name of each of its registrations; equal names of one bucket are one
// object, so that a post compares a text once.
#include <bedra/allocator.h>
#include <bedra/notification_center.h>
#include <bedra/string.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <algorithm>
#include <new>

#include "src/deliveries.hpp"

struct BRNotificationCenter : BRObject {
  static constexpr const char* className = "BRNotificationCenter";
};

namespace {

using br::Delivery;
using br::deliveryLock;
using br::Listener;
using br::ListenerSnapshot;

constexpr unsigned kBucketBits = 10;

using Bucket = std::atomic<ListenerSnapshot*>;
constinit Bucket buckets[1u << kBucketBits] = {};

// Guarded by deliveryLock.
constinit uint64_t nextSerial = 1;

// What a registration is found by.
struct Key {
  BRStringRef name;  // null for any
  const void* object;
  uint32_t nameHash;  // 0 for any; the hash of a text never is

  Bucket& bucket() const {
    const uint64_t bits = (reinterpret_cast<uintptr_t>(object) ^ nameHash) * 0x9E3779B97F4A7C15u;
    return buckets[(bits ^ bits >> 32) * 0xD6E8FEB86659FD93u >> (64 - kBucketBits)];
  }
  bool matches(const Listener& listener) const {
    return listener.object == object && listener.nameHash == nameHash &&
           (listener.name == name || BREqual(listener.name, name));
  }
};

Key makeKey(BRStringRef name, const void* object) {
  if (!name) return {nullptr, object, 0};
  const uint32_t cached =
      std::atomic_ref(const_cast<BRString*>(name)->cachedHash).load(std::memory_order_relaxed);
  return {name, object, cached ? cached : static_cast<uint32_t>(BRHash(name))};
}

ListenerSnapshot* createSnapshot(size_t count) {
  void* block = BRAllocatorAllocate(nullptr, sizeof(ListenerSnapshot) + count * sizeof(Listener));
  return block ? new (block) ListenerSnapshot{0, nullptr} : nullptr;
}

void append(ListenerSnapshot& snapshot, const Listener& listener) {
  BRRetain(listener.name);
  snapshot.begin()[snapshot.count++] = listener;
}

// Destroys a list of snapshots. Without the lock: a name's last release may run code of its allocator.
void destroySnapshots(ListenerSnapshot* snapshot) {
  while (snapshot) {
    ListenerSnapshot* next = snapshot->nextRetired;
    for (auto& listener : *snapshot) BRRelease(listener.name);
    BRAllocatorDeallocate(nullptr, snapshot);
    snapshot = next;
  }
}

// The snapshot without what was removed, and with one more when `added` is given. Null when memory runs out
// or nothing would be left (then *empty is true).
ListenerSnapshot* copySnapshot(const ListenerSnapshot* old, const Listener* added, bool* empty) {
  size_t count = added ? 1 : 0;
  if (old)
    for (auto& listener : *old) count += !listener.isRemoved();
  *empty = count == 0;
  ListenerSnapshot* fresh = *empty ? nullptr : createSnapshot(count);
  if (!fresh) return nullptr;
  if (old)
    for (auto& listener : *old)
      if (!listener.isRemoved()) append(*fresh, listener);
  if (added) append(*fresh, *added);
  return fresh;
}

// Which registrations a removal takes away.
struct Removal {
  const void* observer;
  const Key* key;       // null for every one of the observer
  uint64_t firstLater;  // those made after the removal stay

  bool takes(const Listener& listener) const {
    return listener.observer == observer && listener.serial < firstLater && (!key || key->matches(listener));
  }
  static bool isCalledIn(const br::DeliveryFrame& frame, const void* context) {
    const Listener* current = frame.current.load(std::memory_order_acquire);
    return current && static_cast<const Removal*>(context)->takes(*current);
  }
};

// Under the lock.
void removeFromBucket(Bucket& bucket, const Removal& removal, ListenerSnapshot** unread) {
  ListenerSnapshot* old = bucket.load(std::memory_order_relaxed);
  if (!old) return;
  bool any = false;
  for (auto& listener : *old) {
    if (listener.isRemoved() || !removal.takes(listener)) continue;
    listener.setRemoved();
    any = true;
  }
  if (!any) return;
  bool empty;
  ListenerSnapshot* fresh = copySnapshot(old, nullptr, &empty);
  if (!fresh && !empty) return;
  bucket.store(fresh, std::memory_order_release);
  br::retireSnapshot(old, true, unread);
}

// Removes from one bucket, or from all of them when the removal has no key, and waits for the calls in
// progress.
void remove(Removal removal) {
  ListenerSnapshot* unread = nullptr;
  {
    std::unique_lock lock(deliveryLock);
    removal.firstLater = nextSerial;
    if (removal.key) {
      removeFromBucket(removal.key->bucket(), removal, &unread);
    } else {
      for (auto& bucket : buckets) removeFromBucket(bucket, removal, &unread);
    }
    // Inside a delivery another thread may be waiting for this one to finish it.
    if (br::threadDeliveries.depth == 0) br::waitForDeliveries(lock, Removal::isCalledIn, &removal);
  }
  destroySnapshots(unread);
}

// Whether a registration that a post found is still there, when the bucket has changed since.
bool isRegistered(const Bucket& bucket, uint64_t serial) {
  std::lock_guard guard(deliveryLock);
  const ListenerSnapshot* snapshot = bucket.load(std::memory_order_relaxed);
  if (!snapshot) return false;
  auto found =
      std::lower_bound(snapshot->begin(), snapshot->end(), serial,
                       [](const Listener& listener, uint64_t wanted) { return listener.serial < wanted; });
  return found != snapshot->end() && found->serial == serial && !found->isRemoved();
}

// Walks the registrations of one key in one snapshot.
struct Cursor {
  Key key;
  const Bucket* bucket;
  const ListenerSnapshot* snapshot;
  const Listener* next;
  const Listener* end;

  // Finds the first one at or after `next`.
  void settle() {
    for (; next != end; ++next) {
      if (!key.matches(*next)) continue;
      key.name = next->name;  // equal names of the bucket are one object: no text is compared again
      return;
    }
  }
};

// The cursor whose registration is oldest, or null when all are at their end.
Cursor* oldest(Cursor* cursors, size_t count) {
  Cursor* found = nullptr;
  for (size_t i = 0; i < count; ++i)
    if (cursors[i].next != cursors[i].end && (!found || cursors[i].next->serial < found->next->serial))
      found = &cursors[i];
  return found;
}

void deliver(BRNotificationCenterRef center, BRStringRef name, const void* object, BRDictionaryRef payload,
             Cursor* cursors, size_t count) {
  Delivery delivery(object);
  for (size_t i = 0; i < count; ++i) {
    Cursor& cursor = cursors[i];
    cursor.snapshot = delivery.hold(i, *cursor.bucket);
    if (!cursor.snapshot) continue;
    cursor.next = cursor.snapshot->begin();
    cursor.end = cursor.snapshot->end();
    cursor.settle();
  }
  while (Cursor* cursor = oldest(cursors, count)) {
    const Listener& listener = *cursor->next;
    delivery.setCurrent(&listener);
    if (!listener.isRemoved() && (cursor->bucket->load(std::memory_order_relaxed) == cursor->snapshot ||
                                  isRegistered(*cursor->bucket, listener.serial)))
      listener.callback(center, const_cast<void*>(listener.observer), name, object, payload);
    ++cursor->next;
    cursor->settle();
  }
}

}  // namespace

BRTypeID BRNotificationCenterGetTypeID(void) { return br::typeID<BRNotificationCenter>(); }

BRNotificationCenterRef BRNotificationCenterGetLocalCenter(void) {
  static BRNotificationCenter* const center = [] {
    br::prepareDeliveries();
    auto* made = br::create<BRNotificationCenter>(nullptr, 0);
    made->count = br::kImmortalCount;
    return made;
  }();
  return center;
}

bool BRNotificationCenterAddObserver(BRNotificationCenterRef center, const void* observer,
                                     BRNotificationCallback callback, BRStringRef name, const void* object) {
  if (!center || !observer || !callback || (!name && !object)) return false;
  auto ownName = br::Ref<const BRString>::adopt(name ? BRStringCreateCopy(nullptr, name) : nullptr);
  if (name && !ownName) return false;
  const Key key = makeKey(ownName.get(), object);
  ListenerSnapshot* unread = nullptr;
  {
    std::lock_guard guard(deliveryLock);
    Bucket& bucket = key.bucket();
    ListenerSnapshot* old = bucket.load(std::memory_order_relaxed);
    Listener listener{nextSerial, key.name, object, observer, callback, key.nameHash, 0};
    if (old)
      for (auto& other : *old)
        if (other.nameHash == key.nameHash && BREqual(other.name, key.name)) listener.name = other.name;
    bool empty;
    ListenerSnapshot* fresh = copySnapshot(old, &listener, &empty);
    if (!fresh) return false;
    ++nextSerial;
    bucket.store(fresh, std::memory_order_release);
    if (old) br::retireSnapshot(old, false, &unread);
  }
  destroySnapshots(unread);
  return true;
}

void BRNotificationCenterRemoveObserver(BRNotificationCenterRef center, const void* observer,
                                        BRStringRef name, const void* object) {
  if (!center || !observer || (!name && !object)) return;
  const Key key = makeKey(name, object);
  remove({observer, &key, 0});
}

void BRNotificationCenterRemoveEveryObserver(BRNotificationCenterRef center, const void* observer) {
  if (center && observer) remove({observer, nullptr, 0});
}

void BRNotificationCenterPostNotification(BRNotificationCenterRef center, BRStringRef name,
                                          const void* object, BRDictionaryRef payload) {
  if (!center || !name) return;
  const Key exact = makeKey(name, object);
  const Key keys[] = {{name, nullptr, exact.nameHash}, exact, {nullptr, object, 0}};
  Cursor cursors[br::kSnapshotsPerPost];
  size_t count = 0;
  for (const Key* key = keys; key != keys + (object ? 3 : 1); ++key) {
    const Bucket& bucket = key->bucket();
    if (bucket.load(std::memory_order_relaxed)) cursors[count++] = {*key, &bucket, nullptr, nullptr, nullptr};
  }
  if (count != 0) deliver(center, name, object, payload, cursors, count);
}

void BRNotificationCenterWaitForDeliveries(BRNotificationCenterRef center, const void* object) {
  if (!center || !object) return;
  std::unique_lock lock(deliveryLock);
  br::waitForDeliveries(
      lock,
      [](const br::DeliveryFrame& frame, const void* wanted) {
        return frame.object.load(std::memory_order_acquire) == wanted;
      },
      object);
}
