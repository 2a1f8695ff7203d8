// The memory block behind a block buffer's last appended bytes, with room for more.
//
// buffers/ makes such blocks when bytes are appended to a block buffer. files/ writes small pieces by the
// million and puts them here without a call. While nothing else has been appended the room behind the data is
// free to use; the data themselves stay where they are as long as the buffer lives.
#ifndef PEVRIN_RUNTIME_GROWING_BLOCK_HPP
#define PEVRIN_RUNTIME_GROWING_BLOCK_HPP

#include <bedra/object.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pv {

struct GrowingBlock {
  char* bytes =
      nullptr;  // bytes … next hold data, next … limit is room; none once something else was appended
  char* next = nullptr;
  char* limit = nullptr;
  size_t start = 0;  // where in the buffer the block's data begin

  // The lengths that grow with the data: the entry's end, and the chain's (else the one here).
  size_t* entryEnd = nullptr;
  size_t* chainEnd = &unchainedEnd;
  size_t unchainedEnd = 0;
  GrowingBlock** watcher =
      nullptr;  // points here while the entry is the buffer's last; see PVBlockBuffer::grownBy

  bool fits(size_t length) const { return length <= static_cast<size_t>(limit - next); }
  // Appends bytes that fit. The copy comes last: nothing need be kept across the call.
  void append(const void* from, size_t length) {
    char* to = next;
    next += length;
    *entryEnd += length;
    *chainEnd += length;
    std::memcpy(to, from, length);
  }
  // Whether the bytes at an offset of the buffer are all data of this block.
  bool holds(size_t offset, size_t length) const {
    const size_t used = static_cast<size_t>(next - bytes);
    return used >= length && offset - start <= used - length;  // an offset before the start wraps round
  }
  void replace(size_t offset, const void* from, size_t length) {
    std::memcpy(bytes + (offset - start), from, length);
  }
};

// What opens every block buffer.
struct BlockBufferHead : BRObject {
  GrowingBlock* growing = nullptr;  // owned; null until bytes are appended
};

}  // namespace pv

#endif
