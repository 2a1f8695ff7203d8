// The parameter sets on their way into a configuration record ('avcC', 'hvcC'): checked, sorted, written.
#ifndef PEVRIN_CODECS_PARAMETER_SET_LIST_HPP
#define PEVRIN_CODECS_PARAMETER_SET_LIST_HPP

#include <bedra/allocator.h>
#include <bedra/data.h>
#include <kiv/bridge.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "runtime/byte_writer.hpp"

namespace pv::nal {

// Bytes and size as given; type and id are whatever the record sorts by.
struct ListedSet {
  const uint8_t* bytes;
  size_t size;
  size_t index;  // in the order given, which decides between equals
  uint32_t id;
  uint8_t type;
};

constexpr size_t kLongestSet = 65535;

inline bool isNALUnitHeaderLength(int32_t length) { return length == 1 || length == 2 || length == 4; }

class ParameterSetList {
 public:
  ParameterSetList(BRAllocatorRef allocator, size_t count) : allocator_(allocator), count_(count) {
    if (count > SIZE_MAX / sizeof(ListedSet)) return;
    sets_ = static_cast<ListedSet*>(BRAllocatorAllocate(allocator, count * sizeof(ListedSet)));
    std::uninitialized_value_construct_n(sets_, sets_ ? count : 0);
  }
  ~ParameterSetList() { BRAllocatorDeallocate(allocator_, sets_); }
  ParameterSetList(const ParameterSetList&) = delete;
  ParameterSetList& operator=(const ParameterSetList&) = delete;

  // False when memory ran out.
  bool ok() const { return sets_ != nullptr; }
  ListedSet& operator[](size_t index) { return sets_[index]; }
  ListedSet* begin() const { return sets_; }
  ListedSet* end() const { return sets_ + count_; }

  // By isBefore, equals in the order given.
  template <class Before>
  void sort(Before isBefore) {
    std::sort(begin(), end(), [&](const ListedSet& a, const ListedSet& b) {
      if (isBefore(a, b)) return true;
      return !isBefore(b, a) && a.index < b.index;
    });
  }

 private:
  BRAllocatorRef allocator_;
  size_t count_;
  ListedSet* sets_ = nullptr;
};

inline void writeEntry(ByteWriter& writer, const ListedSet& set) {
  writer.u16(static_cast<uint16_t>(set.size)).bytes(set.bytes, set.size);
}

// A data object of what write(writer) writes, twice: once to count. Null when memory runs out.
template <class Write>
BRDataRef createRecord(BRAllocatorRef allocator, Write write) {
  ByteWriter counter(nullptr, SIZE_MAX);
  write(counter);
  const size_t size = counter.position();
  void* block = BRAllocatorAllocate(allocator, size);
  if (!block) return nullptr;
  ByteWriter writer(block, size);
  write(writer);
  BRDataRef data = BRDataCreateWithBytesNoCopy(allocator, block, size, allocator);
  if (!data) BRAllocatorDeallocate(allocator, block);
  return data;
}

}  // namespace pv::nal

#endif
