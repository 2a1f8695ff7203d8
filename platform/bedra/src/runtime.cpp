// The class table, instances and reference counts.
//
// Representation: an object opens with BRObject. When its allocator is not the system's, 16 bytes before it
// hold the retained allocator and the flag kHasOwnAllocator is set. The class table is a fixed array that
// only grows: a slot is written once, before its ID is handed out, so lookups take no lock.
//
// The count is 1 for a new object. The thread that finds it at 1 on release is the last owner and needs no
// atomic write, unless weak references exist: those may take a reference at any time while the count is above
// 0, so there the count goes to 0 atomically first. It cannot miss a first weak reference that another thread
// makes: that thread holds a reference of its own until after it set the flag, so the count is not 1 before
// the flag can be seen. Finalizers run with the count at 1, so that a balanced retain and release inside one
// is harmless; kFinalizing keeps new weak references from naming the object then.
#include <bedra/allocator.h>
#include <bedra/log.h>
#include <bedra/runtime.h>
#include <bedra/string.h>
#include <bedra/object.hpp>

#include <atomic>
#include <cstring>
#include <mutex>

#include "src/internal.hpp"

namespace {

using br::kImmortalCount;

constexpr BRTypeID kMaximumClasses = 4096;

constinit std::atomic<const BRRuntimeClass*> classTable[kMaximumClasses] = {
    nullptr, &br::allocatorClass, &br::stringClass, &br::booleanClass, &br::nullClass};
constinit BRTypeID nextTypeID = br::kFirstDynamicTypeID;  // guarded by classTableLock
constinit std::mutex classTableLock;

constexpr size_t kAllocatorPrefixBytes = 16;

BRObject* mutableObject(BRTypeRef object) { return static_cast<BRObject*>(const_cast<void*>(object)); }
std::atomic_ref<uint32_t> countOf(BRObject* object) { return std::atomic_ref(object->count); }
std::atomic_ref<uint32_t> flagsOf(BRObject* object) { return std::atomic_ref(object->flags); }

// Ours without the bounds check: the ID comes from an object's header.
const BRRuntimeClass& classOf(const BRObject* object) {
  return *classTable[object->typeID].load(std::memory_order_acquire);
}

BRAllocatorRef& rememberedAllocator(BRObject* object) {
  return *reinterpret_cast<BRAllocatorRef*>(reinterpret_cast<char*>(object) - kAllocatorPrefixBytes);
}

// Most instances are small, and for those a few narrow stores beat memset: its wide ones cost more than the whole rest of
// a creation where the machine has to wake the vector unit for them. The barrier keeps the compiler from making a call of
// the loop.
void zeroFill(char* bytes, size_t count) {
  if (count > 256) {
    std::memset(bytes, 0, count);
    return;
  }
  for (; count >= 16; bytes += 16, count -= 16) {
    __builtin_memset(bytes, 0, 16);
    asm volatile("" ::: "memory");
  }
  for (; count > 0; ++bytes, --count) {
    *bytes = 0;
    asm volatile("" ::: "memory");
  }
}

void destroy(BRObject* object) {
  auto flags = flagsOf(object);
  flags.store(flags.load(std::memory_order_relaxed) | br::kFinalizing, std::memory_order_relaxed);
  if (auto finalize = classOf(object).finalize) finalize(object);
  if (object->hasFlag(br::kHasOwnAllocator)) {
    BRAllocatorRef allocator = rememberedAllocator(object);
    BRAllocatorDeallocate(allocator, &rememberedAllocator(object));
    BRRelease(allocator);
  } else {
    BRAllocatorDeallocate(kBRAllocatorSystem, object);
  }
}

}  // namespace

BRTypeID BRRuntimeRegisterClass(const BRRuntimeClass* cls) {
  if (!cls || cls->version != 0 || !cls->className) return 0;
  std::lock_guard guard(classTableLock);
  if (nextTypeID == kMaximumClasses) return 0;
  classTable[nextTypeID].store(cls, std::memory_order_release);
  return nextTypeID++;
}

const BRRuntimeClass* BRRuntimeGetClass(BRTypeID typeID) {
  return typeID < kMaximumClasses ? classTable[typeID].load(std::memory_order_acquire) : nullptr;
}

BRTypeRef BRRuntimeCreateUnfilledInstance(BRAllocatorRef allocator, BRTypeID typeID, size_t extraBytes,
                                          size_t zeroedBytes) {
  const BRRuntimeClass* cls = BRRuntimeGetClass(typeID);
  if (!cls || extraBytes > SIZE_MAX - sizeof(BRObject) - kAllocatorPrefixBytes) return nullptr;
  const size_t sizeBytes = sizeof(BRObject) + extraBytes;
  BRObject* object;
  uint32_t flags = 0;
  if (!allocator || allocator == kBRAllocatorSystem) {
    object = static_cast<BRObject*>(BRAllocatorAllocate(kBRAllocatorSystem, sizeBytes));
    if (!object) return nullptr;
  } else {
    char* block = static_cast<char*>(BRAllocatorAllocate(allocator, kAllocatorPrefixBytes + sizeBytes));
    if (!block) return nullptr;
    object = reinterpret_cast<BRObject*>(block + kAllocatorPrefixBytes);
    rememberedAllocator(object) = static_cast<BRAllocatorRef>(BRRetain(allocator));
    flags = br::kHasOwnAllocator;
  }
  object->typeID = typeID;
  object->flags = flags;
  object->count = 1;
  object->cachedHash = 0;
  zeroFill(reinterpret_cast<char*>(object + 1), zeroedBytes);
  if (cls->init) cls->init(object);
  return object;
}

BRTypeRef BRRuntimeCreateInstance(BRAllocatorRef allocator, BRTypeID typeID, size_t extraBytes) {
  return BRRuntimeCreateUnfilledInstance(allocator, typeID, extraBytes, extraBytes);
}

BRTypeRef BRRetain(BRTypeRef ref) {
  if (!ref) return nullptr;
  auto count = countOf(mutableObject(ref));
  if (count.load(std::memory_order_relaxed) != kImmortalCount) count.fetch_add(1, std::memory_order_relaxed);
  return ref;
}

void BRRelease(BRTypeRef ref) {
  if (!ref) return;
  BRObject* object = mutableObject(ref);
  auto count = countOf(object);
  const uint32_t references = count.load(std::memory_order_acquire);
  if (references == kImmortalCount) return;
  if (references != 1 || object->hasFlag(br::kHasWeakReferences)) {
    if (count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (object->hasFlag(br::kHasWeakReferences)) br::clearWeakReferences(object);
    count.store(1, std::memory_order_relaxed);
  }
  destroy(object);
}

uint32_t BRGetRetainCount(BRTypeRef object) {
  return object ? countOf(mutableObject(object)).load(std::memory_order_relaxed) : 0;
}

BRTypeID BRGetTypeID(BRTypeRef object) { return object ? static_cast<const BRObject*>(object)->typeID : 0; }

BRAllocatorRef BRGetAllocator(BRTypeRef ref) {
  if (!ref) return kBRAllocatorSystem;
  BRObject* object = mutableObject(ref);
  return object->hasFlag(br::kHasOwnAllocator) ? rememberedAllocator(object) : kBRAllocatorSystem;
}

const char* BRTypeGetName(BRTypeID typeID) {
  const BRRuntimeClass* cls = BRRuntimeGetClass(typeID);
  return cls ? cls->className : nullptr;
}

bool BREqual(BRTypeRef a, BRTypeRef b) {
  if (a == b) return true;
  if (!a || !b || BRGetTypeID(a) != BRGetTypeID(b)) return false;
  auto equal = classOf(mutableObject(a)).equal;
  return equal && equal(a, b);
}

BRHashCode BRHash(BRTypeRef object) {
  if (!object) return 0;
  auto hash = classOf(mutableObject(object)).hash;
  return hash ? hash(object) : br::hashPointer(object);
}

BRStringRef BRCopyDescription(BRTypeRef object) {
  if (!object) return BRStringCreateWithCString(nullptr, "(null)", kBRStringEncodingUTF8);
  const BRRuntimeClass& cls = classOf(mutableObject(object));
  if (cls.copyFormattingDescription)
    if (BRStringRef text = cls.copyFormattingDescription(object, nullptr)) return text;
  return BRStringCreateWithFormat(nullptr, "<%s %p>", cls.className, object);
}

BRStringRef BRCopyDebugDescription(BRTypeRef object) {
  if (object)
    if (auto describe = classOf(mutableObject(object)).copyDebugDescription)
      if (BRStringRef text = describe(object)) return text;
  return BRCopyDescription(object);
}
