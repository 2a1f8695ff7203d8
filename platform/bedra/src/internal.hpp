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

// Tells every weak reference to the object that it is gone. The object's count is 0; after the call no weak
// reference reads the object any more.
void clearWeakReferences(BRObject* object);

// Spreads numbers that differ in few bits, such as pointers and small integers, over a table.
inline BRHashCode hashBits(uint64_t bits) {
  bits ^= bits >> 32;
  return bits * 0x9E3779B97F4A7C15u >> 16 ^ bits;
}

inline BRHashCode hashPointer(const void* pointer) { return hashBits(reinterpret_cast<uintptr_t>(pointer)); }

inline std::atomic_ref<uint32_t> countOf(BRTypeRef object) {
  return std::atomic_ref(static_cast<BRObject*>(const_cast<void*>(object))->count);
}
inline bool isImmortal(BRTypeRef object) {
  return countOf(object).load(std::memory_order_relaxed) == kImmortalCount;
}

// What the kBRType… callbacks of dictionaries do. Tables that find these in their records do it themselves.
const void* retainObject(BRAllocatorRef, const void* object);
void releaseObject(BRAllocatorRef, const void* object);

// True when an object made with the wished-for allocator would have the object's own.
inline bool sameAllocator(BRTypeRef object, BRAllocatorRef allocator) {
  return BRGetAllocator(object) == (allocator ? allocator : kBRAllocatorSystem);
}

}  // namespace br

#endif
