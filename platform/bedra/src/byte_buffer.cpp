// Growing blocks. An allocator without a reallocate callback cannot resize a block: then it is replaced.
#include "src/byte_buffer.hpp"

#include <algorithm>
#include <cstdint>

bool br::growBlock(ByteBlock& block, BRAllocatorRef allocator, size_t usedBytes, size_t neededBytes) {
  if (neededBytes <= block.capacityBytes) return true;
  if (neededBytes > PTRDIFF_MAX) return false;  // no block is that large; it also keeps the sum below in range
  constexpr size_t kSmallestBytes = 32;
  const size_t capacityBytes =
      std::max({neededBytes, kSmallestBytes, block.capacityBytes + block.capacityBytes / 2});
  void* grown = BRAllocatorReallocate(allocator, block.bytes, capacityBytes);
  if (!grown && block.bytes) {
    grown = BRAllocatorAllocate(allocator, capacityBytes);
    if (grown) {
      std::memcpy(grown, block.bytes, usedBytes);
      BRAllocatorDeallocate(allocator, block.bytes);
    }
  }
  if (!grown) return false;
  block = {static_cast<char*>(grown), capacityBytes};
  return true;
}

char* br::TextBuffer::reserve(size_t moreBytes) {
  if (failed_) return nullptr;
  if (moreBytes > roomBytes()) {
    const size_t neededBytes = lengthBytes_ + moreBytes + 1;
    const bool wasInline = !block_.bytes;
    failed_ = neededBytes <= moreBytes || !growBlock(block_, allocator_, lengthBytes_, neededBytes);
    if (failed_) return nullptr;
    if (wasInline) std::memcpy(block_.bytes, inline_, lengthBytes_);
  }
  return const_cast<char*>(bytes()) + lengthBytes_;
}
