// Which thread is delivering what: the part of the notification center that lets a post read without a lock,
// and lets a removal or a barrier wait for callbacks in progress.
//
// Representation: a post opens a DeliveryFrame, which says which listener snapshots it reads, for which
// object, and which listener it is calling. The first frames of a thread stand in the thread's own record;
// records are linked into a list that only grows, and serve a later thread when theirs ends. A post nested
// deeper than that (or one whose record could not be allocated) uses a frame on its stack, linked into a list
// under the lock.
//
// Invariants:
//  - A frame that holds a snapshot has checked, after saying so, that the snapshot was still published. So a
//    snapshot that was replaced and that no frame holds afterwards is read by nobody.
//  - A frame calls a listener only when it has checked, after naming it as current, that it was still
//    registered. So a listener that was removed and that no frame names afterwards is not being called and
//    will not be.
// Both need the frame's store to be ordered before its check, and the other side's change before its look at
// the frames. The other side is rare: it asks the kernel for a barrier on every running thread (membarrier),
// so that a post gets by with a compiler barrier. Where the kernel refuses, both sides use a full fence.
#ifndef BEDRA_SRC_DELIVERIES_HPP
#define BEDRA_SRC_DELIVERIES_HPP

#include <bedra/notification_center.h>

#include <atomic>
#include <mutex>

namespace br {

// One registration. Only `removed` ever changes, from 0 to 1.
struct Listener {
  uint64_t serial;   // order of registration in the process, from 1
  BRStringRef name;  // null for any
  const void* object;
  const void* observer;
  BRNotificationCallback callback;
  uint32_t nameHash;  // 0 for any
  mutable uint32_t removed;

  bool isRemoved() const { return std::atomic_ref(removed).load(std::memory_order_relaxed) != 0; }
  void setRemoved() const { std::atomic_ref(removed).store(1, std::memory_order_relaxed); }
};

// The registrations of one bucket, in order; they stand behind the struct.
struct ListenerSnapshot {
  uint32_t count;
  ListenerSnapshot* nextRetired;

  Listener* begin() { return reinterpret_cast<Listener*>(this + 1); }
  const Listener* begin() const { return reinterpret_cast<const Listener*>(this + 1); }
  const Listener* end() const { return begin() + count; }
};
static_assert(sizeof(ListenerSnapshot) % alignof(Listener) == 0);

struct ThreadDeliveries;

// A post looks into the buckets of (name, object), (name, any) and (any, object).
inline constexpr size_t kSnapshotsPerPost = 3;

struct DeliveryFrame {
  std::atomic<const Listener*> current{};
  std::atomic<const void*> object{};
  std::atomic<const ListenerSnapshot*> held[kSnapshotsPerPost]{};
  std::atomic<uint32_t> generation{};  // counts the posts that used the frame

  // Of frames on a stack only, guarded by deliveryLock:
  const ThreadDeliveries* owner = nullptr;
  DeliveryFrame* nextOnStack = nullptr;
  uint64_t order = 0;
};

inline constexpr uint32_t kFramesPerThread = 4;

struct alignas(64) ThreadRecord {
  DeliveryFrame frames[kFramesPerThread];
  ThreadRecord* next = nullptr;
  // Guarded by deliveryLock:
  bool inUse = true;
  bool waitsInsideDelivery = false;
};

struct ThreadDeliveries {
  ThreadRecord* record;
  uint32_t depth;
};
extern constinit thread_local ThreadDeliveries threadDeliveries;

// Guards the registry, the list of retired snapshots and the lists of frames. No callback runs with it held.
extern constinit std::mutex deliveryLock;
// What frames have to attend to after each store, beside the usual: the number of threads in
// waitForDeliveries, and kNeedsFullFences until the kernel has agreed to run barriers for us. Asked for in
// one load.
extern constinit std::atomic<uint32_t> deliveryAttention;
inline constexpr uint32_t kNeedsFullFences = 1u << 31;

// Called once, before anything else here.
void prepareDeliveries();

// A frame of the thread's record, or one made in the room given.
DeliveryFrame* enterDeliverySlowly(void* roomForFrame);
void leaveDeliverySlowly(DeliveryFrame* onStack);
void attendToDeliveries();

// Orders a frame's store before the check that follows, and wakes those who may wait for what it ended.
inline void orderAndWake() {
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (deliveryAttention.load(std::memory_order_relaxed) != 0) [[unlikely]]
    attendToDeliveries();
}

// A frame for as long as a post lasts.
class Delivery {
 public:
  explicit Delivery(const void* object) : thread_(threadDeliveries) {
    const uint32_t depth = thread_.depth++;
    frame_ = thread_.record && depth < kFramesPerThread ? &thread_.record->frames[depth]
                                                        : enterDeliverySlowly(room_);
    frame_->generation.store(frame_->generation.load(std::memory_order_relaxed) + 1,
                             std::memory_order_release);
    frame_->object.store(object, std::memory_order_release);
  }
  ~Delivery() {
    frame_->current.store(nullptr, std::memory_order_release);
    frame_->object.store(nullptr, std::memory_order_release);
    for (auto& held : frame_->held) held.store(nullptr, std::memory_order_release);
    --thread_.depth;
    if (static_cast<void*>(frame_) == room_) [[unlikely]]
      leaveDeliverySlowly(frame_);
    orderAndWake();
  }
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Holds what the bucket publishes; null when it publishes nothing.
  const ListenerSnapshot* hold(size_t index, const std::atomic<ListenerSnapshot*>& bucket) {
    const ListenerSnapshot* snapshot = bucket.load(std::memory_order_acquire);
    for (;;) {
      frame_->held[index].store(snapshot, std::memory_order_release);
      orderAndWake();
      const ListenerSnapshot* published = bucket.load(std::memory_order_acquire);
      if (published == snapshot) return snapshot;
      snapshot = published;
    }
  }

  // Says which listener is called next; the one before has returned. The caller then checks that it is
  // registered.
  void setCurrent(const Listener* listener) {
    frame_->current.store(listener, std::memory_order_release);
    orderAndWake();
  }

 private:
  ThreadDeliveries& thread_;
  DeliveryFrame* frame_;
  alignas(DeliveryFrame) char room_[sizeof(DeliveryFrame)];  // used only when the thread's record is full
};

// Waits until no other thread is in a delivery that was in progress at the call and that matches. Called with
// deliveryLock held, which it gives up while it waits. A thread that is itself inside a delivery passes over
// threads that wait here from inside a delivery: they may be waiting for it.
void waitForDeliveries(std::unique_lock<std::mutex>& lock, bool (*matches)(const DeliveryFrame&, const void*),
                       const void* context);

// Hands over a snapshot that is no longer published. Called with deliveryLock held. Snapshots that turn out
// to be read by nobody are linked onto *unread, for the caller to destroy without the lock; `now` asks to
// find all of those, else they are looked for when enough have gathered.
void retireSnapshot(ListenerSnapshot* snapshot, bool now, ListenerSnapshot** unread);

}  // namespace br

#endif
