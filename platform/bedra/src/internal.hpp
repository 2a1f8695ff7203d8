// What Bedra's own files share.
#ifndef BEDRA_SRC_INTERNAL_HPP
#define BEDRA_SRC_INTERNAL_HPP

#include <bedra/allocator.h>
#include <bedra/object.hpp>

namespace br {

// The classes with IDs known at compile time.
extern const BRRuntimeClass allocatorClass;
extern const BRRuntimeClass stringClass;
extern const BRRuntimeClass booleanClass;
extern const BRRuntimeClass nullClass;

// An instance as BRRuntimeCreateInstance makes it, of which only the first zeroedBytes behind the header are
// zero-filled: the caller fills the rest at once. For inline bytes that would be written twice.
BRTypeRef createInstance(BRAllocatorRef allocator, BRTypeID typeID, size_t extraBytes, size_t zeroedBytes);

// As br::create, with room behind the T that is not zero-filled.
template <class T, class... Arguments>
T* createUnfilled(BRAllocatorRef allocator, size_t extraBytes, Arguments&&... arguments) {
  constexpr size_t kOwnBytes = sizeof(T) - sizeof(BRObject);
  if (extraBytes > SIZE_MAX - kOwnBytes) return nullptr;
  void* block = const_cast<void*>(createInstance(allocator, typeID<T>(), kOwnBytes + extraBytes, kOwnBytes));
  return block ? construct<T>(block, std::forward<Arguments>(arguments)...) : nullptr;
}

// Tells every weak reference to the object that it is gone. The object's count is 0; after the call no weak reference
// reads the object any more.
void clearWeakReferences(BRObject* object);

// Spreads numbers that differ in few bits, such as pointers and small integers, over a table.
inline BRHashCode hashBits(uint64_t bits) {
  bits ^= bits >> 32;
  return bits * 0x9E3779B97F4A7C15u >> 16 ^ bits;
}

inline BRHashCode hashPointer(const void* pointer) { return hashBits(reinterpret_cast<uintptr_t>(pointer)); }

// True when an object made with the wished-for allocator would have the object's own.
inline bool sameAllocator(BRTypeRef object, BRAllocatorRef allocator) {
  return BRGetAllocator(object) == (allocator ? allocator : kBRAllocatorSystem);
}

}  // namespace br

#endif
