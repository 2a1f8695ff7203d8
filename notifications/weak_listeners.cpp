// Weak listeners.
//
// Representation: a registration is a link. The platform's center knows it by a number, which it has in the
// place of a listener; a table finds the link by the number, another by its key string. A number is never
// used again, so a call that comes too late finds nothing. Numbers have the top bit set, as no address in a
// program has: they are never taken for a listener of somebody else.
//
// A link in the tables is retained by them. linkLock is never held while a callback runs or a reference to a
// client's object is released.
#include <bedra/allocator.h>
#include <bedra/string.h>
#include <bedra/weak_reference.h>
#include <kiv/notification_center.h>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include <mutex>
#include <new>

#include "notifications/linked_table.hpp"
#include "runtime/error.hpp"

namespace {

using pv::signalError;
struct Link : BRObject {
  static constexpr const char* className = "KivWeakListenerLink";

  br::Ref<const BRString> key;
  br::Ref<const BRString> name;  // the key's text cannot tell none from one that reads "(null)"
  const void* object = nullptr;
  br::Ref<const BRWeakReference> listener;  // none when the client passed no listener: refused later
  PVNotificationCallback callback = nullptr;
  uint32_t flags = 0;
  br::Ref<BRWorkQueue> queue;
  uint64_t number = 0;

  // Guarded by linkLock:
  Link* nextByKey = nullptr;
  Link* nextByNumber = nullptr;
  uint64_t keyHash = 0;
  uint64_t numberHash = 0;
};
using LinkRef = br::Ref<Link>;

constinit std::mutex linkLock;
constinit pv::LinkedTable<Link, &Link::nextByKey, &Link::keyHash> linksByKey;
constinit pv::LinkedTable<Link, &Link::nextByNumber, &Link::numberHash> linksByNumber;
constinit uint64_t nextNumber = uint64_t{1} << 63;

br::Ref<const BRString> createKey(const void* listener, PVNotificationCallback callback, BRStringRef name,
                                  const void* object) {
  return br::Ref<const BRString>::adopt(BRStringCreateWithFormat(
      nullptr, "weak--%p--%p--%@--%p--listener", listener, reinterpret_cast<void*>(callback), name, object));
}

// All but the number; null when memory runs out.
LinkRef createLink(BRTypeRef listener, PVNotificationCallback callback, BRStringRef name, const void* object,
                   uint32_t flags, BRWorkQueueRef queue) {
  auto link = LinkRef::adopt(br::create<Link>(nullptr, 0));
  if (!link) return nullptr;
  link->key = createKey(listener, callback, name, object);
  if (!link->key) return nullptr;
  if (name) {
    link->name = br::Ref<const BRString>::adopt(BRStringCreateCopy(nullptr, name));
    if (!link->name) return nullptr;
  }
  link->object = object;
  if (listener) {
    link->listener = br::Ref<const BRWeakReference>::adopt(BRWeakReferenceCreate(nullptr, listener));
    if (!link->listener) return nullptr;
  }
  link->callback = callback;
  link->flags = flags;
  link->queue = br::Ref<BRWorkQueue>::retain(queue);
  return link;
}

// Under the lock.
Link* findInTable(BRStringRef key, BRStringRef name) {
  return linksByKey.find(BRHash(key), [key, name](const Link& link) {
    return BREqual(link.key.get(), key) && BREqual(link.name.get(), name);
  });
}

LinkRef findByKey(BRStringRef key, BRStringRef name) {
  std::lock_guard guard(linkLock);
  return LinkRef::retain(findInTable(key, name));
}

LinkRef findByNumber(uint64_t number) {
  std::lock_guard guard(linkLock);
  return LinkRef::retain(
      linksByNumber.find(number, [number](const Link& link) { return link.number == number; }));
}

// False when a link with its key is there.
bool insertLink(Link* link) {
  std::lock_guard guard(linkLock);
  if (findInTable(link->key.get(), link->name.get())) return false;
  linksByKey.insert(link, BRHash(link->key.get()));
  linksByNumber.insert(link, link->number);
  BRRetain(link);
  return true;
}

// The platform knows the link by this.
void* numberAsListener(const Link* link) { return reinterpret_cast<void*>(link->number); }

// Takes the link out of the tables, unless somebody else has, and its registration away.
void removeLink(PVNotificationCenterRef center, const LinkRef& link) {
  {
    std::lock_guard guard(linkLock);
    const uint64_t number = link->number;
    if (!linksByNumber.find(number, [number](const Link& other) { return other.number == number; })) return;
    linksByKey.remove(link.get());
    linksByNumber.remove(link.get());
  }
  const auto remove = link->flags & kKivWeakListenerFlag_RemoveWithoutWaiting
                          ? BRNotificationCenterRemoveObserverWithoutWaiting
                          : BRNotificationCenterRemoveObserver;
  remove(center, numberAsListener(link.get()), link->name.get(), link->object);
  BRRelease(link.get());
}

br::Ref<const void> copyListener(const Link& link) {
  return br::Ref<const void>::adopt(BRWeakReferenceCopyObject(link.listener.get()));
}

// ---- Delivery

BRWorkQueueRef deferredReleaseQueue() {
  static const BRWorkQueueRef queue =
      BRWorkQueueCreate(nullptr, "xq.pevrin.notificationcenter.deferredRelease");
  return queue;
}

// A call, at once or waiting on a queue.
struct WeakCall {
  LinkRef link;
  br::Ref<const void> listener;
  br::Ref<BRNotificationCenter> center;
  br::Ref<const BRString> name;
  const void* object;
  br::Ref<const BRDictionary> payload;
  br::Ref<const void> retainedObject;
};

void releaseListener(br::Ref<const void> listener, uint32_t flags) {
  if (!(flags & kKivWeakListenerFlag_DeferRelease)) return;
  auto release = [](void* context) { BRRelease(context); };
  void* context = const_cast<void*>(listener.get());
  if (BRWorkQueueAsync(deferredReleaseQueue(), release, context)) (void)listener.detach();
}

void runWeakCall(void* context) {
  auto* call = static_cast<WeakCall*>(context);
  call->link->callback(call->center.get(), const_cast<void*>(call->listener.get()), call->name.get(),
                       call->object, call->payload.get());
  releaseListener(std::move(call->listener), call->link->flags);
  call->~WeakCall();
  BRAllocatorDeallocate(nullptr, call);
}

void deliverOnQueue(LinkRef link, br::Ref<const void> listener, PVNotificationCenterRef center,
                    BRStringRef name, const void* object, BRDictionaryRef payload) {
  void* block = BRAllocatorAllocate(nullptr, sizeof(WeakCall));
  if (block) {
    BRWorkQueueRef queue = link->queue.get();
    const bool retainsObject = link->flags & kKivWeakListenerFlag_RetainObject;
    auto* call = new (block) WeakCall{link,
                                      listener,
                                      br::Ref<BRNotificationCenter>::retain(center),
                                      br::Ref<const BRString>::retain(name),
                                      object,
                                      br::Ref<const BRDictionary>::retain(payload),
                                      br::Ref<const void>::retain(retainsObject ? object : nullptr)};
    if (BRWorkQueueAsync(queue, runWeakCall, call)) return;
    call->~WeakCall();
    BRAllocatorDeallocate(nullptr, block);
  }
  signalError(kPVNotificationCenterError_AllocationFailed);
  releaseListener(std::move(listener), link->flags);
}

// What the platform's center calls for every weak listener.
void dispatch(PVNotificationCenterRef center, void* number, BRStringRef name, const void* object,
              BRDictionaryRef payload) {
  LinkRef link = findByNumber(reinterpret_cast<uintptr_t>(number));
  if (!link) return;
  br::Ref<const void> listener = copyListener(*link);
  if (!listener) return;
  if (link->queue) {
    deliverOnQueue(std::move(link), std::move(listener), center, name, object, payload);
    return;
  }
  link->callback(center, const_cast<void*>(listener.get()), name, object, payload);
  releaseListener(std::move(listener), link->flags);
}

}  // namespace

PVStatus KivNotificationCenterAddWeakListener(PVNotificationCenterRef center, BRTypeRef listener,
                                              PVNotificationCallback callback, BRStringRef name,
                                              const void* object, uint32_t flags, BRWorkQueueRef queue) {
  LinkRef link = createLink(listener, callback, name, object, flags, queue);
  if (!link) return signalError(kPVNotificationCenterError_AllocationFailed);
  if (LinkRef other = findByKey(link->key.get(), name)) {
    if (copyListener(*other)) return signalError(kPVNotificationCenterError_ParamErr);
    // The other's listener has gone, and this one was made where it had been.
    removeLink(center, other);
  }
  {
    std::lock_guard guard(linkLock);
    link->number = nextNumber++;
  }
  void* number = listener ? numberAsListener(link.get()) : nullptr;
  const PVStatus status =
      PVNotificationCenterAddListener(center, number, callback ? dispatch : nullptr, name, object);
  if (status != kPVStatus_Success) return status;
  if (insertLink(link.get())) return kPVStatus_Success;
  // Another thread has made the same registration meanwhile.
  BRNotificationCenterRemoveObserver(center, number, name, object);
  return signalError(kPVNotificationCenterError_ParamErr);
}

PVStatus KivNotificationCenterRemoveWeakListener(PVNotificationCenterRef center, BRTypeRef listener,
                                                 PVNotificationCallback callback, BRStringRef name,
                                                 const void* object) {
  if (!center) return signalError(kPVNotificationCenterError_CenterRequired);
  if (!listener) return signalError(kPVNotificationCenterError_ListenerRequired);
  auto key = createKey(listener, callback, name, object);
  if (!key) return signalError(kPVNotificationCenterError_AllocationFailed);
  if (LinkRef link = findByKey(key.get(), name)) removeLink(center, link);
  return kPVStatus_Success;
}
