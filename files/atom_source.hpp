// The three sources of atom streams.
#ifndef PEVRIN_FILES_ATOM_SOURCE_HPP
#define PEVRIN_FILES_ATOM_SOURCE_HPP

#include <kiv/atom_stream.h>

#include <algorithm>
#include <cstring>

namespace pv {

KivAtomSource atomSourceOverByteStream(KivByteStreamRef byteStream, int64_t totalLength);
KivAtomSource atomSourceOverBlockBuffer(PVBlockBufferRef blockBuffer);
KivAtomSource atomSourceOverMemory(const void* bytes, size_t length, int64_t globalOffset);

// The memory source's read, here so that the reader of headers need not call it through the pointer. An
// offset outside the block is a short read, which the caller signals.
inline PVStatus readAtomBytesFromMemory(const KivAtomSource* source, int64_t offset, size_t length,
                                        void* destination, size_t* lengthReadOut) {
  const int64_t inBlock = offset - source->globalOffset;
  if (inBlock >= source->totalLength) return kKivAtomStreamError_ShortRead;
  const size_t count = std::min(length, static_cast<size_t>(source->totalLength - inBlock));
  std::memcpy(destination, static_cast<const uint8_t*>(source->object) + inBlock, count);
  *lengthReadOut = count;
  return 0;
}

}  // namespace pv

#endif
