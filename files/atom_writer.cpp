// The cursor that writes atoms.
//
// Inside an atom, startOffset + atomSize is the destination's end, unless a child is writing. A writer over a
// block buffer without a parent owns its byte stream from the beginning of an atom to its end.
#include <kiv/atom_writer.h>

#include <algorithm>
#include <limits>

#include "runtime/byte_writer.hpp"
#include "runtime/error.hpp"
#include "runtime/growing_block.hpp"

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

// The block at the end of the block buffer that is written to, or null. It belongs to what the byte stream
// stands on; small pieces go into it directly.
pv::GrowingBlock* growingBlockOf(const KivAtomWriter& writer) {
  return writer.blockBuffer ? reinterpret_cast<const pv::BlockBufferHead*>(writer.blockBuffer)->growing
                            : nullptr;
}

[[gnu::noinline]] PVStatus appendToStream(KivAtomWriter& writer, const void* bytes, size_t length) {
  if (length == 0) return 0;
  int64_t size, end;
  if (__builtin_add_overflow(writer.atomSize, length, &size) ||
      __builtin_add_overflow(writer.startOffset, size, &end))
    return signalError(kKivAtomWriterError_SizeTooLarge);
  if (PVStatus status = KivByteStreamAppend(writer.byteStream, bytes, length)) return status;
  writer.atomSize = size;
  return 0;
}

// Appends to the atom and counts the bytes in its size.
inline PVStatus append(KivAtomWriter& writer, const void* bytes, size_t length) {
  pv::GrowingBlock* block = growingBlockOf(writer);
  if (!block || !block->fits(length)) [[unlikely]]
    return appendToStream(writer, bytes, length);
  writer.atomSize += static_cast<int64_t>(length);
  block->append(bytes, length);
  return 0;
}

PVStatus write(const KivAtomWriter& writer, int64_t offset, const void* bytes, size_t length) {
  pv::GrowingBlock* block = growingBlockOf(writer);
  if (!block || !block->holds(static_cast<size_t>(offset), length))
    return KivByteStreamWriteAtOffset(writer.byteStream, offset, bytes, length);
  block->replace(static_cast<size_t>(offset), bytes, length);
  return 0;
}

// Opens the byte stream that the atom goes to, if that is the writer's own.
PVStatus openByteStream(KivAtomWriter& writer) {
  if (!ownsByteStream(writer)) return 0;
  return KivByteStreamCreateWritableForBlockBuffer(nullptr, writer.blockBuffer, &writer.byteStream);
}

void enterAtom(KivAtomWriter& writer, int64_t headerSize, bool use64BitSize) {
  writer.headerSize = headerSize;
  writer.atomSize = headerSize;
  writer.uses64BitSize = use64BitSize;
  writer.inAtom = true;
}

// The common case: a header of 8 bytes where there is room for it, inside a parent. False, with nothing done,
// for others.
inline bool beginInGrowingBlock(KivAtomWriter& writer, PVFourCharCode type) {
  if (!writer.parent || !writer.parent->inAtom || writer.inAtom) return false;
  pv::GrowingBlock* block = growingBlockOf(writer);
  const uint64_t header = pv::bigEndian(uint64_t{type});  // the size 0, the type
  if (!block || !block->fits(sizeof header)) return false;
  enterAtom(writer, sizeof header, false);
  block->append(&header, sizeof header);
  return true;
}

// Any header goes out in one piece: no destination is left with half of one.
[[gnu::noinline]] PVStatus begin(KivAtomWriter& writer, PVFourCharCode type, const uint8_t* extendedType,
                                 bool use64BitSize) {
  if (writer.inAtom) return signalError(kKivAtomWriterError_AlreadyInAtom);
  // The parent's byte stream may have gone with its atom.
  if (writer.parent && !writer.parent->inAtom) return signalError(kKivAtomWriterError_NotInAtom);
  if (PVStatus status = openByteStream(writer)) return status;
  uint8_t bytes[kLongestHeaderBytes];
  pv::ByteWriter header(bytes, sizeof bytes);
  header.u32(use64BitSize ? 1 : 0).u32(type);
  if (use64BitSize) header.u64(0);
  if (extendedType) header.bytes(extendedType, kExtendedTypeBytes);
  writer.atomSize = 0;
  if (PVStatus status = append(writer, bytes, header.position())) {
    leaveAtom(writer);
    return status;
  }
  enterAtom(writer, writer.atomSize, use64BitSize);
  return 0;
}

PVStatus writeSize(const KivAtomWriter& writer) {
  if (writer.uses64BitSize) {
    const uint64_t size = pv::bigEndian(static_cast<uint64_t>(writer.atomSize));
    return write(writer, writer.startOffset + 8, &size, sizeof size);
  }
  if (writer.atomSize > std::numeric_limits<uint32_t>::max())
    return signalError(kKivAtomWriterError_SizeTooLarge);
  const uint32_t size = pv::bigEndian(static_cast<uint32_t>(writer.atomSize));
  return write(writer, writer.startOffset, &size, sizeof size);
}

// Counts an atom whose size is written.
inline void countAtom(KivAtomWriter& writer) {
  if (writer.parent) writer.parent->atomSize += writer.atomSize;
  writer.startOffset += writer.atomSize;
}

// The common case again: a 32-bit size to be put into the block at hand. False, with nothing done, for
// others.
inline bool endInGrowingBlock(KivAtomWriter& writer) {
  pv::GrowingBlock* block = growingBlockOf(writer);
  const auto size = static_cast<uint32_t>(writer.atomSize);
  if (!block || !writer.parent || writer.uses64BitSize || size != writer.atomSize ||
      !block->holds(static_cast<size_t>(writer.startOffset), sizeof size))
    return false;
  const uint32_t bytes = pv::bigEndian(size);
  block->replace(static_cast<size_t>(writer.startOffset), &bytes, sizeof bytes);
  countAtom(writer);
  writer.inAtom = false;
  return true;
}

[[gnu::noinline]] PVStatus end(KivAtomWriter& writer) {
  const PVStatus status = writeSize(writer);
  if (status == 0) countAtom(writer);
  leaveAtom(writer);
  return status;
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
  if (!use64BitSize && beginInGrowingBlock(*writer, type)) return 0;
  return begin(*writer, type, nullptr, use64BitSize);
}

PVStatus KivAtomWriterBeginUUIDAtom(KivAtomWriter* writer, const uint8_t uuid[16], bool use64BitSize) {
  if (!writer || !uuid) return signalError(kPVBaseObjectError_ParamErr);
  return begin(*writer, kUUIDType, uuid, use64BitSize);
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
  if (PVStatus status = checkInAtom(writer, writer)) [[unlikely]]
    return status;
  if (!bytes) [[unlikely]]
    return length == 0 ? 0 : signalError(kPVBaseObjectError_ParamErr);
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
  if (!writer) [[unlikely]]
    return signalError(kPVBaseObjectError_ParamErr);
  if (!writer->inAtom) return 0;
  if (endInGrowingBlock(*writer)) [[likely]]
    return 0;
  return end(*writer);
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
