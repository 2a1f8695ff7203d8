// Reading and writing the bytes of block buffers.
#include <kiv/block_buffer.h>

#include <algorithm>
#include <cstring>

#include "buffers/block_buffer.hpp"
#include "buffers/block_buffer_walk.hpp"
#include "runtime/error.hpp"

namespace pv::block {

namespace {

// The checks that copying, replacing and filling share. A length of 0 passes.
PVStatus checkRange(const PVBlockBuffer& buffer, size_t offset, size_t length) {
  if (buffer.count == 0) return kPVBlockBufferEmptyBBufErr;
  const size_t total = buffer.totalLength();
  if (offset >= total) return kPVBlockBufferBadOffsetParameterErr;
  return length > total - offset ? kPVBlockBufferBadLengthParameterErr : 0;
}

// Hands each piece of the range to write(piece, position in the range). Memory that is not there yet is
// allocated for the whole buffer, once.
template <class Write>
PVStatus writePieces(PVBlockBuffer& buffer, size_t offset, size_t length, Write write) {
  bool assured = false;
  for (size_t done = 0;;) {
    PieceCursor cursor(&buffer, offset + done, length - done);
    PVStatus status = 0;
    PieceCursor::Piece piece;
    while (cursor.undelivered() > 0 && !(status = cursor.next(piece))) {
      write(piece, done);
      done += piece.length;
    }
    if (status != kPVBlockBufferUnallocatedBlockErr || assured) return status;
    if ((status = assureBlockMemory(buffer))) return status;
    assured = true;
  }
}

}  // namespace

PVStatus assureBlockMemory(PVBlockBuffer& buffer) {
  ReferenceWalk walk(&buffer);
  while (Entry* entry = walk.next())
    if (PVStatus status = assureEntry(*entry)) return status;
  return walk.ranOutOfMemory() ? kPVBlockBufferBlockAllocationFailedErr : 0;
}

PVStatus copyDataBytes(PVBlockBuffer& buffer, size_t offset, size_t length, void* destination) {
  PieceCursor cursor(&buffer, offset, length);
  for (char* to = static_cast<char*>(destination); cursor.undelivered() > 0;) {
    PieceCursor::Piece piece;
    if (PVStatus status = cursor.next(piece)) return status;
    std::memmove(to, piece.data, piece.length);
    to += piece.length;
  }
  return 0;
}

}  // namespace pv::block

using pv::block::locate;
using pv::block::Location;

PVStatus PVBlockBufferAssureBlockMemory(PVBlockBufferRef buffer) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (buffer->count == 0) return pv::signalError(kPVBlockBufferEmptyBBufErr);
  const PVStatus status = pv::block::assureBlockMemory(*buffer);
  return status ? pv::signalError(status) : 0;
}

PVStatus KivBlockBufferGetDataPointerAndOrigin(PVBlockBufferRef buffer, size_t offset,
                                               size_t* lengthAtOffsetOut, size_t* totalLengthOut,
                                               char** dataPointerOut, PVBlockBufferRef* originOut,
                                               size_t* originOffsetOut) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  const Location found = locate(buffer, offset);
  if (found.status) return pv::signalError(found.status);
  if (lengthAtOffsetOut) *lengthAtOffsetOut = found.length;
  if (totalLengthOut) *totalLengthOut = buffer->totalLength();
  if (dataPointerOut) *dataPointerOut = found.data;
  if (originOut) *originOut = found.origin;
  if (originOffsetOut) *originOffsetOut = found.originOffset;
  return 0;
}

PVStatus PVBlockBufferGetDataPointer(PVBlockBufferRef buffer, size_t offset, size_t* lengthAtOffsetOut,
                                     size_t* totalLengthOut, char** dataPointerOut) {
  return KivBlockBufferGetDataPointerAndOrigin(buffer, offset, lengthAtOffsetOut, totalLengthOut,
                                               dataPointerOut, nullptr, nullptr);
}

PVStatus PVBlockBufferCopyDataBytes(PVBlockBufferRef buffer, size_t offsetToData, size_t dataLength,
                                    void* destination) {
  if (!buffer || !destination) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (dataLength == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  PVStatus status = pv::block::checkRange(*buffer, offsetToData, dataLength);
  if (!status) status = pv::block::copyDataBytes(*buffer, offsetToData, dataLength, destination);
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferReplaceDataBytes(const void* sourceBytes, PVBlockBufferRef buffer,
                                       size_t offsetIntoBuffer, size_t dataLength) {
  if (!buffer || !sourceBytes) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (dataLength == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  PVStatus status = pv::block::checkRange(*buffer, offsetIntoBuffer, dataLength);
  if (!status)
    status = pv::block::writePieces(*buffer, offsetIntoBuffer, dataLength, [&](auto piece, size_t done) {
      std::memmove(piece.data, static_cast<const char*>(sourceBytes) + done, piece.length);
    });
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferFillDataBytes(char fillByte, PVBlockBufferRef buffer, size_t offsetIntoBuffer,
                                    size_t dataLength) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (dataLength > SIZE_MAX / 2) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  if (PVStatus status = pv::block::checkRange(*buffer, offsetIntoBuffer, dataLength))
    return pv::signalError(status);
  if (dataLength == 0) dataLength = buffer->totalLength() - offsetIntoBuffer;
  const PVStatus status =
      pv::block::writePieces(*buffer, offsetIntoBuffer, dataLength,
                             [&](auto piece, size_t) { std::memset(piece.data, fillByte, piece.length); });
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferAccessDataBytes(PVBlockBufferRef buffer, size_t offset, size_t length,
                                      void* temporaryBlock, char** pointerOut) {
  if (!buffer || !temporaryBlock || !pointerOut) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  *pointerOut = nullptr;
  if (length == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  const Location first = locate(buffer, offset);
  if (first.status) return pv::signalError(first.status);
  if (first.length >= length) {
    *pointerOut = first.data;
    return 0;
  }
  if (length > buffer->totalLength() - offset) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  PVStatus status = pv::block::copyDataBytes(*buffer, offset, length, temporaryBlock);
  // Past the first byte an end of data is a length too long, also inside a reference that promises more.
  if (status == kPVBlockBufferBadOffsetParameterErr) status = kPVBlockBufferBadLengthParameterErr;
  if (status) return pv::signalError(status);
  *pointerOut = static_cast<char*>(temporaryBlock);
  return 0;
}
