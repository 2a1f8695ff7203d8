// Block buffers as objects: creation, lengths, the end of their lives.
#include "buffers/block_buffer.hpp"

#include <kiv/attachment.h>
#include <kiv/block_buffer.h>

#include <algorithm>

#include "runtime/error.hpp"

using pv::block::Chain;
using pv::block::Entry;
using pv::block::Kind;

namespace {

pv::AttachmentStore& attachmentsOf(PVAttachmentBearerRef bearer) {
  return static_cast<PVBlockBuffer*>(const_cast<void*>(bearer))->attachments;
}

constexpr KivAttachmentBearerCallbacks kAttachmentCallbacks{
    .version = 0,
    .setAttachment =
        [](PVAttachmentBearerRef bearer, BRStringRef key, BRTypeRef value, PVAttachmentMode mode) {
          attachmentsOf(bearer).set(BRGetAllocator(bearer), key, value, mode);
        },
    .getAttachment = [](PVAttachmentBearerRef bearer, BRStringRef key,
                        PVAttachmentMode* modeOut) { return attachmentsOf(bearer).get(key, modeOut); },
    .removeAttachment = [](PVAttachmentBearerRef bearer,
                           BRStringRef key) { attachmentsOf(bearer).remove(key); },
    .removeAllAttachments = [](PVAttachmentBearerRef bearer) { attachmentsOf(bearer).removeAll(); },
    .copyDictionaryOfAttachments =
        [](BRAllocatorRef allocator, PVAttachmentBearerRef bearer, PVAttachmentMode mode) {
          return attachmentsOf(bearer).copy(allocator, mode);
        }};

}  // namespace

template <>
BRTypeID br::typeID<PVBlockBuffer>() {
  static const BRTypeID id = [] {
    const BRTypeID registered = BRRuntimeRegisterClass(&br::kClassOf<PVBlockBuffer>);
    KivRuntimeRegisterAttachmentBearerWithTypeID(&kAttachmentCallbacks, registered);
    return registered;
  }();
  return id;
}

namespace {

// Buffers whose last reference was given up by the finalizer of another one on this thread.
struct Retired {
  PVBlockBuffer* first = nullptr;
  bool draining = false;
};
constinit thread_local Retired retired;

void leaveChain(Chain* chain) {
  if (chain->alive.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  BRAllocatorRef allocator = chain->allocator;
  BRAllocatorDeallocate(allocator, chain->links);
  chain->~Chain();
  BRAllocatorDeallocate(allocator, chain);
  BRRelease(allocator);
}

}  // namespace

namespace pv::block {

PVBlockBuffer* createEmpty(BRAllocatorRef allocator, uint32_t subBlockCapacity) {
  const uint64_t entryCount = std::max<uint64_t>(2, uint64_t{subBlockCapacity} + 1);
  if (entryCount > INT32_MAX) return nullptr;
  return br::createUnfilled<PVBlockBuffer>(allocator, entryCount * sizeof(Entry),
                                           static_cast<int32_t>(entryCount));
}

void retire(PVBlockBuffer* buffer) {
  if (BRGetRetainCount(buffer) != 1) return BRRelease(buffer);
  // Whoever holds the only reference may use the buffer's fields.
  std::atomic_thread_fence(std::memory_order_acquire);
  buffer->nextRetired = retired.first;
  retired.first = buffer;
  if (retired.draining) return;
  retired.draining = true;
  while (PVBlockBuffer* next = retired.first) {
    retired.first = next->nextRetired;
    BRRelease(next);
  }
  retired.draining = false;
}

void releaseEntry(PVBlockBuffer& owner, Entry& entry) {
  switch (entry.kind) {
    case Kind::kUnused:
      return;
    case Kind::kReference:
      return retire(entry.target());
    case Kind::kAllocatorPending:
    case Kind::kAllocatorBlock:
      if (entry.allocator() == kBRAllocatorNull) return;
      BRAllocatorDeallocate(entry.allocator(), entry.block);
      return BRRelease(entry.allocator());
    case Kind::kCustomPending:
    case Kind::kCustomBlock: {
      auto* source = entry.custom();
      if (entry.block && source->freeBlock) source->freeBlock(source->refCon, entry.block, entry.blockLength);
      return BRAllocatorDeallocate(BRGetAllocator(&owner), source);
    }
  }
}

}  // namespace pv::block

PVBlockBuffer::~PVBlockBuffer() {
  if (growing) {
    if (growing->watcher) *growing->watcher = nullptr;
    BRAllocatorDeallocate(BRGetAllocator(this), growing);
  }
  for (int32_t i = 0; i < count; ++i) pv::block::releaseEntry(*this, entries()[i]);
  if (!chain) return;
  if (PVBlockBuffer* next = child()) pv::block::retire(next);
  leaveChain(chain);
}

BRTypeID PVBlockBufferGetTypeID(void) { return br::typeID<PVBlockBuffer>(); }

PVStatus PVBlockBufferCreateEmpty(BRAllocatorRef structureAllocator, uint32_t subBlockCapacity,
                                  PVBlockBufferFlags, PVBlockBufferRef* bufferOut) {
  if (!bufferOut) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  *bufferOut = pv::block::createEmpty(structureAllocator, subBlockCapacity);
  return *bufferOut ? 0 : pv::signalError(kPVBlockBufferStructureAllocationFailedErr);
}

namespace {

// What the creating functions share: an empty buffer, filled by one append, handed out when that succeeds.
template <class Append>
PVStatus createAndAppend(BRAllocatorRef allocator, PVBlockBufferRef* bufferOut, Append append) {
  if (!bufferOut) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  *bufferOut = nullptr;
  PVBlockBuffer* buffer = pv::block::createEmpty(allocator, 0);
  if (!buffer) return pv::signalError(kPVBlockBufferStructureAllocationFailedErr);
  if (PVStatus status = append(buffer)) {
    BRRelease(buffer);
    return status;
  }
  *bufferOut = buffer;
  return 0;
}

}  // namespace

PVStatus PVBlockBufferCreateWithMemoryBlock(BRAllocatorRef structureAllocator, void* memoryBlock,
                                            size_t blockLength, BRAllocatorRef blockAllocator,
                                            const PVBlockBufferCustomBlockSource* customBlockSource,
                                            size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags,
                                            PVBlockBufferRef* bufferOut) {
  return createAndAppend(structureAllocator, bufferOut, [&](PVBlockBuffer* buffer) {
    return PVBlockBufferAppendMemoryBlock(buffer, memoryBlock, blockLength, blockAllocator, customBlockSource,
                                          offsetToData, dataLength, flags);
  });
}

PVStatus PVBlockBufferCreateWithBufferReference(BRAllocatorRef structureAllocator,
                                                PVBlockBufferRef targetBuffer, size_t offsetToData,
                                                size_t dataLength, PVBlockBufferFlags flags,
                                                PVBlockBufferRef* bufferOut) {
  return createAndAppend(structureAllocator, bufferOut, [&](PVBlockBuffer* buffer) {
    return PVBlockBufferAppendBufferReference(buffer, targetBuffer, offsetToData, dataLength, flags);
  });
}

size_t PVBlockBufferGetDataLength(PVBlockBufferRef buffer) { return buffer ? buffer->totalLength() : 0; }

bool PVBlockBufferIsEmpty(PVBlockBufferRef buffer) { return !buffer || buffer->count == 0; }

PVBlockBufferRef KivBlockBufferRetain(PVBlockBufferRef buffer) {
  BRRetain(buffer);
  return buffer;
}

void KivBlockBufferRelease(PVBlockBufferRef buffer) { BRRelease(buffer); }
