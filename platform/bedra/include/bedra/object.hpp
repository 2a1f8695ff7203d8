// Making object types in C++: the opaque struct of the C interface is the implementation itself.
//
//   struct PVReel : BRObject {
//     static constexpr const char* className = "PVReel";
//     explicit PVReel(int32_t frames) : frames(frames) {}
//     ~PVReel();                                     // the finalizer
//     bool equals(const PVReel& other) const;        // optional; identity without it
//     BRHashCode hash() const;                       // optional, beside equals
//     BRStringRef copyDescription() const;           // optional
//     BRStringRef copyDebugDescription() const;      // optional
//     int32_t frames;
//   };
//   PVReel* reel = br::create<PVReel>(allocator, 0, 24);
//
// A type registers itself on first use. `extraBytes` asks for zero-filled room behind the struct, for inline arrays.
#ifndef BEDRA_OBJECT_HPP
#define BEDRA_OBJECT_HPP

#include <bedra/runtime.h>

#include <atomic>
#include <new>
#include <utility>

// The header that opens every object. The runtime fills it before the type's constructor runs, so the default
// constructor leaves it alone.
struct alignas(16) BRObject {
  BRTypeID typeID;
  uint32_t flags;      // br::ObjectFlag; atomic
  uint32_t count;      // references; atomic
  uint32_t cachedHash; // for the class's own use: 0 is "not computed"; atomic

  BRObject() noexcept {}
  constexpr BRObject(BRTypeID id, uint32_t flagBits, uint32_t references, uint32_t hash)
      : typeID(id), flags(flagBits), count(references), cachedHash(hash) {}
  // Any thread may set a flag at any time, so even a flag that never changes is read through here.
  bool hasFlag(uint32_t flag) const { return __atomic_load_n(&flags, __ATOMIC_RELAXED) & flag; }

  BRObject(const BRObject&) = delete;
  BRObject& operator=(const BRObject&) = delete;
};
static_assert(sizeof(BRObject) == kBRObjectHeaderBytes);

namespace br {

enum ObjectFlag : uint32_t {
  kHasOwnAllocator = 1u << 0,   // the allocator is remembered in the 16 bytes before the object
  kHasWeakReferences = 1u << 1, // a weak reference to it was made at some time
  kFinalizing = 1u << 2,        // the last reference has gone
  kClassFlag0 = 1u << 16,       // 16 and up: for the class's own use
  kClassFlag1 = 1u << 17,
};

inline constexpr uint32_t kImmortalCount = UINT32_MAX;

// Classes that have constant instances need an ID at compile time; the others get theirs when they register.
enum BuiltInTypeID : BRTypeID {
  kAllocatorTypeID = 1,
  kStringTypeID = 2,
  kBooleanTypeID = 3,
  kNullTypeID = 4,
  kFirstDynamicTypeID = 5,
};

// The record that the runtime reads, made from T's own members.
template <class T>
constexpr BRRuntimeClass makeClass() {
  BRRuntimeClass cls{};
  cls.className = T::className;
  cls.finalize = [](BRTypeRef object) { static_cast<T*>(const_cast<void*>(object))->~T(); };
  if constexpr (requires(const T& t) { t.equals(t); })
    cls.equal = [](BRTypeRef a, BRTypeRef b) { return static_cast<const T*>(a)->equals(*static_cast<const T*>(b)); };
  if constexpr (requires(const T& t) { t.hash(); })
    cls.hash = [](BRTypeRef object) -> BRHashCode { return static_cast<const T*>(object)->hash(); };
  if constexpr (requires(const T& t) { t.copyDescription(); })
    cls.copyFormattingDescription = [](BRTypeRef object, BRDictionaryRef) {
      return static_cast<const T*>(object)->copyDescription();
    };
  if constexpr (requires(const T& t) { t.copyDebugDescription(); })
    cls.copyDebugDescription = [](BRTypeRef object) { return static_cast<const T*>(object)->copyDebugDescription(); };
  return cls;
}

template <class T>
inline constexpr BRRuntimeClass kClassOf = makeClass<T>();

template <class T>
BRTypeID typeID() {
  if constexpr (requires { T::builtInTypeID; }) {
    return T::builtInTypeID;
  } else {
    static const BRTypeID id = BRRuntimeRegisterClass(&kClassOf<T>);
    return id;
  }
}

// Constructs a T behind the header that stands in the block. Without arguments "T()" would zero the header of a type
// whose constructor is implicit, so it is default-initialised.
template <class T, class... Arguments>
T* construct(void* block, Arguments&&... arguments) {
  if constexpr (sizeof...(Arguments) == 0)
    return new (block) T;
  else
    return new (block) T(std::forward<Arguments>(arguments)...);
}

// A new T, owned by the caller, or null when memory runs out.
template <class T, class... Arguments>
T* create(BRAllocatorRef allocator, size_t extraBytes, Arguments&&... arguments) {
  if (extraBytes > SIZE_MAX - sizeof(T)) return nullptr;
  void* block =
      const_cast<void*>(BRRuntimeCreateInstance(allocator, typeID<T>(), sizeof(T) - sizeof(BRObject) + extraBytes));
  return block ? construct<T>(block, std::forward<Arguments>(arguments)...) : nullptr;
}

// The same, with room behind the T that is not zero-filled: for arrays that would be written twice.
template <class T, class... Arguments>
T* createUnfilled(BRAllocatorRef allocator, size_t extraBytes, Arguments&&... arguments) {
  constexpr size_t kOwnBytes = sizeof(T) - sizeof(BRObject);
  if (extraBytes > SIZE_MAX - kOwnBytes) return nullptr;
  void* block = const_cast<void*>(BRRuntimeCreateUnfilledInstance(allocator, typeID<T>(),
                                                                 kOwnBytes + extraBytes, kOwnBytes));
  return block ? construct<T>(block, std::forward<Arguments>(arguments)...) : nullptr;
}

// The room asked for behind a T.
template <class Element, class T>
Element* extra(T* object) {
  static_assert(alignof(Element) <= alignof(T));
  return reinterpret_cast<Element*>(object + 1);
}

// True when the reference is an object of T's class.
template <class T>
bool isA(BRTypeRef object) {
  return object && BRGetTypeID(object) == typeID<T>();
}

}  // namespace br

#endif
