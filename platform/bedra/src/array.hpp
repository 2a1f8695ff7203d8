// The array object, for files that build arrays in place.
//
// Representation: `capacity` values, of which the first `count` are there. An immutable array is one block,
// its values behind the object; a mutable one moves to a block of its own when it outgrows the room behind
// it. A copy of a callback record that is not known to be constant stands right behind the object.
#ifndef BEDRA_SRC_ARRAY_HPP
#define BEDRA_SRC_ARRAY_HPP

#include <bedra/array.h>
#include <bedra/object.hpp>

struct BRArray : BRObject {
  static constexpr const char* className = "BRArray";

  // An empty array with inline room; NULL callbacks are spelled out.
  static BRArray* create(BRAllocatorRef allocator, size_t capacity, const BRArrayCallBacks* callbacks,
                         bool isMutable);
  ~BRArray();

  bool isMutable() const { return hasFlag(br::kClassFlag0); }
  bool equals(const BRArray& other) const;
  BRHashCode hash() const { return count; }
  BRStringRef copyDescription() const;

  bool makeRoom(size_t wanted);
  // Retains the value and puts it at an index up to count; there must be room.
  bool insert(size_t index, const void* value);
  // Takes over the caller's reference; there must be room.
  void append(const void* value) { values[count++] = value; }

  const void** values = nullptr;
  size_t count = 0;
  size_t capacity = 0;
  const BRArrayCallBacks* callbacks = nullptr;
  bool ownsStorage = false;
  // Levels of containers when a property-list copy made the array, else 0.
  uint16_t propertyListLevels = 0;
};

#endif
