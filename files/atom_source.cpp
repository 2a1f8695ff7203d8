// Where atom streams get their bytes: byte streams, block buffers and memory. Offsets arrive checked against
// the range of the stream, which lies inside the source as it was when the stream was made; a source may have
// shrunk since.
#include "files/atom_source.hpp"

#include <algorithm>
#include <bedra/ref.hpp>
#include <cstring>

#include "runtime/error.hpp"

namespace pv {
namespace {

KivByteStreamRef byteStreamOf(const KivAtomSource* source) {
  return static_cast<KivByteStreamRef>(const_cast<void*>(source->object));
}

PVStatus readFromByteStream(const KivAtomSource* source, int64_t offset, size_t length, void* destination,
                            size_t* lengthReadOut) {
  return KivByteStreamRead(byteStreamOf(source), offset, length, destination, lengthReadOut);
}

PVStatus createFromByteStream(const KivAtomSource* source, int64_t offset, size_t length,
                              PVBlockBufferRef* blockBufferOut) {
  return KivByteStreamReadAndCreateBlockBuffer(byteStreamOf(source), offset, length, blockBufferOut);
}

PVBlockBufferRef blockBufferOf(const KivAtomSource* source) {
  return static_cast<PVBlockBufferRef>(const_cast<void*>(source->object));
}

PVStatus readFromBlockBuffer(const KivAtomSource* source, int64_t offset, size_t length, void* destination,
                             size_t* lengthReadOut) {
  if (length != 0)
    if (PVStatus status = PVBlockBufferCopyDataBytes(blockBufferOf(source), static_cast<size_t>(offset),
                                                     length, destination))
      return status;
  *lengthReadOut = length;
  return 0;
}

PVStatus createFromBlockBuffer(const KivAtomSource* source, int64_t offset, size_t length,
                               PVBlockBufferRef* blockBufferOut) {
  return PVBlockBufferCreateWithBufferReference(nullptr, blockBufferOf(source), static_cast<size_t>(offset),
                                                length, 0, blockBufferOut);
}

PVStatus createFromMemory(const KivAtomSource* source, int64_t offset, size_t length,
                          PVBlockBufferRef* blockBufferOut) {
  br::Ref<PVBlockBuffer> copy;
  if (PVStatus status =
          PVBlockBufferCreateWithMemoryBlock(nullptr, nullptr, length, nullptr, nullptr, 0, length,
                                             kPVBlockBufferAssureMemoryNowFlag, copy.out()))
    return status;
  if (PVStatus status =
          PVBlockBufferReplaceDataBytes(atomBytesInMemory(*source, offset), copy.get(), 0, length))
    return status;
  *blockBufferOut = copy.detach();
  return 0;
}

}  // namespace

PVStatus readAtomBytesFromMemory(const KivAtomSource* source, int64_t offset, size_t length,
                                 void* destination, size_t* lengthReadOut) {
  const int64_t inBlock = offset - source->globalOffset;
  if (inBlock >= source->totalLength) return kKivAtomStreamError_ShortRead;
  *lengthReadOut = std::min(length, static_cast<size_t>(source->totalLength - inBlock));
  std::memcpy(destination, atomBytesInMemory(*source, offset), *lengthReadOut);
  return 0;
}

KivAtomSource atomSourceOverByteStream(KivByteStreamRef byteStream, int64_t totalLength) {
  return {byteStream, totalLength, readFromByteStream, createFromByteStream, 0};
}

KivAtomSource atomSourceOverBlockBuffer(PVBlockBufferRef blockBuffer) {
  return {blockBuffer, static_cast<int64_t>(PVBlockBufferGetDataLength(blockBuffer)), readFromBlockBuffer,
          createFromBlockBuffer, 0};
}

KivAtomSource atomSourceOverMemory(const void* bytes, size_t length, int64_t globalOffset) {
  return {bytes, static_cast<int64_t>(length), readAtomBytesFromMemory, createFromMemory, globalOffset};
}

}  // namespace pv
