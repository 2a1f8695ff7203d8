// What the reader and the writer of gzip streams share.
#ifndef PEVRIN_FILES_GZIP_HPP
#define PEVRIN_FILES_GZIP_HPP

#include <bedra/allocator.h>
#include <kiv/gzip_stream.h>
#include <zlib.h>

namespace pv::gzip {

// For inflateInit2 and deflateInit2: the largest window, inside gzip's header and trailer.
constexpr int kWindowBits = 15 + 16;

// A codec's state that gets its memory from the allocator, which must outlive it.
inline z_stream codecState(BRAllocatorRef allocator) {
  z_stream state{};
  state.zalloc = [](voidpf from, uInt count, uInt size) -> voidpf {
    return BRAllocatorAllocate(static_cast<BRAllocatorRef>(from), size_t{count} * size);
  };
  state.zfree = [](voidpf from, voidpf block) {
    BRAllocatorDeallocate(static_cast<BRAllocatorRef>(from), block);
  };
  state.opaque = const_cast<BRAllocator*>(allocator);
  return state;
}

}  // namespace pv::gzip

#endif
