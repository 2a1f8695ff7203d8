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
    return buckets[(reinterpret_cast<uintptr_t>(object) ^ nameHash) * 0x9E3779B97F4A7C15u >>
                   (64 - kBucketBits)];
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
// progress if that is asked for.
void remove(Removal removal, bool waits) {
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
    if (waits && br::threadDeliveries.depth == 0)
      br::waitForDeliveries(lock, Removal::isCalledIn, &removal);
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
  // Finds the first one. Equal names of a bucket are one object, so that this compares the key's text for
  // all.
  bool start() {
    while (next != end && !key.matches(*next)) ++next;
    if (next == end) return false;
    key.name = next->name;
    return true;
  }
  // Finds the one after.
  bool advance() {
    while (++next != end)
      if (isNext(*next)) return true;
    return false;
  }
  bool isNext(const Listener& listener) const {
    return listener.object == key.object && listener.name == key.name;
  }

  Key key;
  const Bucket* bucket;
  const ListenerSnapshot* snapshot;
  const Listener* next;
  const Listener* end;
};

// Of cursors that are not at their end, the one whose registration is oldest.
Cursor* oldest(Cursor* cursors, size_t count) {
  return std::min_element(cursors, cursors + count,
                          [](const Cursor& a, const Cursor& b) { return a.next->serial < b.next->serial; });
}

// One post. Calls a registration that it holds, when that is still there.
struct Post {
  void call(const Bucket& bucket, const ListenerSnapshot* snapshot, const Listener& listener) {
    delivery.setCurrent(&listener);
    if (listener.isRemoved()) [[unlikely]]
      return;
    if (bucket.load(std::memory_order_relaxed) != snapshot) [[unlikely]] {
      if (!isRegistered(bucket, listener.serial)) return;
    }
    listener.callback(center, const_cast<void*>(listener.observer), name, object, payload);
  }

  Delivery delivery;
  BRNotificationCenterRef center;
  BRStringRef name;
  const void* object;
  BRDictionaryRef payload;
};

// A post that found something in one of its buckets. Out of line: the others need no frame for it.
[[gnu::noinline]] void deliver(BRNotificationCenterRef center, const Key& exact, BRDictionaryRef payload) {
  Post post{Delivery(exact.object), center, exact.name, exact.object, payload};
  const Key keys[] = {{exact.name, nullptr, exact.nameHash}, exact, {nullptr, exact.object, 0}};
  Cursor cursors[br::kSnapshotsPerPost];
  size_t count = 0;
  for (const Key* key = keys; key != keys + (exact.object ? 3 : 1); ++key) {
    const Bucket& bucket = key->bucket();
    if (!bucket.load(std::memory_order_relaxed)) continue;
    const ListenerSnapshot* snapshot = post.delivery.hold(count, bucket);
    if (!snapshot) continue;
    cursors[count] = {*key, &bucket, snapshot, snapshot->begin(), snapshot->end()};
    if (cursors[count].start()) ++count;
  }
  while (count > 1) {
    Cursor* cursor = oldest(cursors, count);
    post.call(*cursor->bucket, cursor->snapshot, *cursor->next);
    if (!cursor->advance()) *cursor = cursors[--count];
  }
  if (count == 0) return;
  Cursor last = cursors[0];
  do post.call(*last.bucket, last.snapshot, *last.next);
  while (last.advance());
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
  remove({observer, &key, 0}, true);
}

void BRNotificationCenterRemoveObserverWithoutWaiting(BRNotificationCenterRef center, const void* observer,
                                                      BRStringRef name, const void* object) {
  if (!center || !observer || (!name && !object)) return;
  const Key key = makeKey(name, object);
  remove({observer, &key, 0}, false);
}

void BRNotificationCenterRemoveEveryObserver(BRNotificationCenterRef center, const void* observer) {
  if (center && observer) remove({observer, nullptr, 0}, true);
}

void BRNotificationCenterPostNotification(BRNotificationCenterRef center, BRStringRef name,
                                          const void* object, BRDictionaryRef payload) {
  if (!center || !name) return;
  const Key exact = makeKey(name, object);
  const ListenerSnapshot* found =
      Key{nullptr, nullptr, exact.nameHash}.bucket().load(std::memory_order_relaxed);
  if (object) {
    const ListenerSnapshot* more[] = {exact.bucket().load(std::memory_order_relaxed),
                                      Key{nullptr, object, 0}.bucket().load(std::memory_order_relaxed)};
    found = found ? found : more[0] ? more[0] : more[1];
  }
  if (found) deliver(center, exact, payload);
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
