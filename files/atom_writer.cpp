// The cursor that writes atoms.
//
// Inside an atom, startOffset + atomSize is the destination's end, unless a child is writing. A writer over a
// block buffer without a parent owns its byte stream from the beginning of an atom to its end.
#include <kiv/atom_writer.h>

#include <algorithm>
#include <limits>

#include "runtime/byte_writer.hpp"
#include "runtime/error.hpp"

namespace {

using pv::signalError;

constexpr PVFourCharCode kUUIDType = 0x75756964;  // 'uuid'
constexpr size_t kExtendedTypeBytes = 16;
constexpr size_t kLongestHeaderBytes = 32;

bool ownsByteStream(const KivAtomWriter& writer) { return writer.blockBuffer && !writer.parent; }

void leaveAtom(KivAtomWriter& writer) {
  if (ownsByteStream(writer)) {
    BRRelease(writer.byteStream);
    writer.byteStream = nullptr;
  }
  writer.inAtom = false;
}

// Appends to the atom and counts the bytes in its size.
PVStatus append(KivAtomWriter& writer, const void* bytes, size_t length) {
  int64_t size, end;
  if (__builtin_add_overflow(writer.atomSize, length, &size) ||
      __builtin_add_overflow(writer.startOffset, size, &end))
    return signalError(kKivAtomWriterError_SizeTooLarge);
  if (PVStatus status = KivByteStreamAppend(writer.byteStream, bytes, length)) return status;
  writer.atomSize = size;
  return 0;
}

// The header goes out in one piece: no stream is left with half of one.
PVStatus begin(KivAtomWriter* writer, PVFourCharCode type, const uint8_t* extendedType, bool use64BitSize) {
  if (writer->inAtom) return signalError(kKivAtomWriterError_AlreadyInAtom);
  if (ownsByteStream(*writer))
    if (PVStatus status =
            KivByteStreamCreateWritableForBlockBuffer(nullptr, writer->blockBuffer, &writer->byteStream))
      return status;
  uint8_t bytes[kLongestHeaderBytes];
  pv::ByteWriter header(bytes, sizeof bytes);
  header.u32(use64BitSize ? 1 : 0).u32(type);
  if (use64BitSize) header.u64(0);
  if (extendedType) header.bytes(extendedType, kExtendedTypeBytes);
  writer->uses64BitSize = use64BitSize;
  writer->atomSize = 0;
  if (PVStatus status = append(*writer, bytes, header.position())) {
    leaveAtom(*writer);
    return status;
  }
  writer->headerSize = writer->atomSize;
  writer->inAtom = true;
  return 0;
}

PVStatus writeSize(const KivAtomWriter& writer) {
  uint8_t bytes[8];
  pv::ByteWriter size(bytes, sizeof bytes);
  if (writer.uses64BitSize) {
    size.u64(static_cast<uint64_t>(writer.atomSize));
    return KivByteStreamWriteAtOffset(writer.byteStream, writer.startOffset + 8, bytes, size.position());
  }
  if (writer.atomSize > std::numeric_limits<uint32_t>::max())
    return signalError(kKivAtomWriterError_SizeTooLarge);
  size.u32(static_cast<uint32_t>(writer.atomSize));
  return KivByteStreamWriteAtOffset(writer.byteStream, writer.startOffset, bytes, size.position());
}

// Null checks and "in an atom", in that order.
PVStatus checkInAtom(const KivAtomWriter* writer, const void* required) {
  if (!writer || !required) return signalError(kPVBaseObjectError_ParamErr);
  return writer->inAtom ? 0 : signalError(kKivAtomWriterError_NotInAtom);
}

}  // namespace

PVStatus KivAtomWriterInitWithBlockBuffer(PVBlockBufferRef blockBuffer, KivAtomWriter* writer) {
  if (!blockBuffer || !writer) return signalError(kPVBaseObjectError_ParamErr);
  *writer = {};
  writer->blockBuffer = blockBuffer;
  writer->startOffset = static_cast<int64_t>(PVBlockBufferGetDataLength(blockBuffer));
  return 0;
}

PVStatus KivAtomWriterInitWithByteStream(KivByteStreamRef byteStream, KivAtomWriter* writer) {
  if (!byteStream || !writer) return signalError(kPVBaseObjectError_ParamErr);
  int64_t end = 0;
  if (PVStatus status = KivByteStreamGetTotalLength(byteStream, &end)) return status;
  *writer = {};
  writer->byteStream = byteStream;
  writer->startOffset = end;
  return 0;
}

PVStatus KivAtomWriterInitWithParent(KivAtomWriter* parent, KivAtomWriter* child) {
  if (PVStatus status = checkInAtom(parent, child)) return status;
  if (parent == child) return signalError(kPVBaseObjectError_ParamErr);
  *child = {};
  child->blockBuffer = parent->blockBuffer;
  child->byteStream = parent->byteStream;
  child->parent = parent;
  child->startOffset = parent->startOffset + parent->atomSize;
  return 0;
}

PVStatus KivAtomWriterBeginAtom(KivAtomWriter* writer, PVFourCharCode type, bool use64BitSize) {
  if (!writer) return signalError(kPVBaseObjectError_ParamErr);
  return begin(writer, type, nullptr, use64BitSize);
}

PVStatus KivAtomWriterBeginUUIDAtom(KivAtomWriter* writer, const uint8_t uuid[16], bool use64BitSize) {
  if (!writer || !uuid) return signalError(kPVBaseObjectError_ParamErr);
  return begin(writer, kUUIDType, uuid, use64BitSize);
}

PVStatus KivAtomWriterAppendVersionAndFlags(KivAtomWriter* writer, uint8_t version, uint32_t flags) {
  if (PVStatus status = checkInAtom(writer, writer)) return status;
  uint8_t bytes[4];
  pv::storeBigEndian(bytes, uint32_t{version} << 24 | (flags & 0xFFFFFF));
  if (PVStatus status = append(*writer, bytes, sizeof bytes)) return status;
  writer->headerSize += sizeof bytes;
  return 0;
}

PVStatus KivAtomWriterAppendData(KivAtomWriter* writer, const void* bytes, size_t length) {
  if (PVStatus status = checkInAtom(writer, writer)) return status;
  if (length == 0) return 0;
  if (!bytes) return signalError(kPVBaseObjectError_ParamErr);
  return append(*writer, bytes, length);
}

PVStatus KivAtomWriterAppendBlockBufferData(KivAtomWriter* writer, PVBlockBufferRef blockBuffer) {
  if (PVStatus status = checkInAtom(writer, blockBuffer)) return status;
  // the length is taken first: the buffer may be the one that is written to
  const size_t length = PVBlockBufferGetDataLength(blockBuffer);
  for (size_t offset = 0, piece; offset < length; offset += piece) {
    char* bytes;
    if (PVStatus status = PVBlockBufferGetDataPointer(blockBuffer, offset, &piece, nullptr, &bytes))
      return status;
    piece = std::min(piece, length - offset);
    if (PVStatus status = append(*writer, bytes, piece)) return status;
  }
  return 0;
}

PVStatus KivAtomWriterEndAtom(KivAtomWriter* writer) {
  if (!writer) return signalError(kPVBaseObjectError_ParamErr);
  if (!writer->inAtom) return 0;
  const PVStatus status = writeSize(*writer);
  if (status == 0) {
    if (writer->parent) writer->parent->atomSize += writer->atomSize;
    writer->startOffset += writer->atomSize;
  }
  leaveAtom(*writer);
  return status;
}

PVStatus KivAtomWriterGetAtomGlobalDataOffset(const KivAtomWriter* writer, int64_t* offsetOut) {
  if (PVStatus status = checkInAtom(writer, offsetOut)) return status;
  *offsetOut = writer->startOffset + writer->headerSize;
  return 0;
}

PVStatus KivAtomWriterGetAtomSize(const KivAtomWriter* writer, int64_t* sizeOut) {
  if (PVStatus status = checkInAtom(writer, sizeOut)) return status;
  *sizeOut = writer->atomSize;
  return 0;
}

PVStatus KivAtomWriterGetAtomDataSize(const KivAtomWriter* writer, int64_t* sizeOut) {
  if (PVStatus status = checkInAtom(writer, sizeOut)) return status;
  *sizeOut = writer->atomSize - writer->headerSize + writer->startOffset;
  return 0;
}
