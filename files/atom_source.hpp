// The three sources of atom streams.
#ifndef PEVRIN_FILES_ATOM_SOURCE_HPP
#define PEVRIN_FILES_ATOM_SOURCE_HPP

#include <kiv/atom_stream.h>

namespace pv {

KivAtomSource atomSourceOverByteStream(KivByteStreamRef byteStream, int64_t totalLength);
KivAtomSource atomSourceOverBlockBuffer(PVBlockBufferRef blockBuffer);
KivAtomSource atomSourceOverMemory(const void* bytes, size_t length, int64_t globalOffset);

// The memory source's read. An offset outside the block is a short read, which the caller signals.
PVStatus readAtomBytesFromMemory(const KivAtomSource* source, int64_t offset, size_t length,
                                 void* destination, size_t* lengthReadOut);

// Where in memory a global offset of a memory source is.
inline const uint8_t* atomBytesInMemory(const KivAtomSource& source, int64_t offset) {
  return static_cast<const uint8_t*>(source.object) + (offset - source.globalOffset);
}

}  // namespace pv

#endif
