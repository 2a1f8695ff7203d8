// Adding to block buffers: memory, references, and the overflow chain that makes room.
#include <kiv/block_buffer.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "buffers/block_buffer.hpp"
#include "buffers/block_buffer_walk.hpp"
#include "runtime/error.hpp"

namespace pv::block {

namespace {

// Of the blocks that appendBytes makes.
constexpr size_t kSmallestGrowingBlock = 4096;
constexpr size_t kLargestGrowingBlock = size_t{1} << 20;

Chain* createChain(PVBlockBuffer& first) {
  constexpr size_t kFirstCapacity = 4;
  BRAllocatorRef allocator = BRGetAllocator(&first);
  void* memory = BRAllocatorAllocate(allocator, sizeof(Chain));
  void* links = BRAllocatorAllocate(allocator, kFirstCapacity * sizeof(Chain::Link));
  if (!memory || !links) {
    BRAllocatorDeallocate(allocator, memory);
    BRAllocatorDeallocate(allocator, links);
    return nullptr;
  }
  auto* chain = new (memory) Chain{.allocator = allocator,
                                   .alive = 1,
                                   .referenced = first.wasReferenced(),
                                   .count = 1,
                                   .capacity = kFirstCapacity,
                                   .end = first.ownLength(),
                                   .links = static_cast<Chain::Link*>(links)};
  BRRetain(allocator);
  chain->links[0] = {0, &first};
  return chain;
}

bool growIndex(Chain& chain) {
  if (chain.count < chain.capacity) return true;
  if (chain.capacity > SIZE_MAX / (2 * sizeof(Chain::Link))) return false;
  auto* larger = static_cast<Chain::Link*>(
      BRAllocatorAllocate(chain.allocator, 2 * chain.capacity * sizeof(Chain::Link)));
  if (!larger) return false;
  std::memcpy(larger, chain.links, chain.count * sizeof(Chain::Link));
  BRAllocatorDeallocate(chain.allocator, std::exchange(chain.links, larger));
  chain.capacity *= 2;
  return true;
}

// Puts an empty child behind the last member of a chain, or of the chain that this makes. Null, with nothing
// observable changed, when memory runs out.
PVBlockBuffer* addChild(PVBlockBuffer& tail) {
  PVBlockBuffer* child = createEmpty(BRGetAllocator(&tail), static_cast<uint32_t>(tail.capacity) - 1);
  if (!child) return nullptr;
  if (!tail.chain) tail.chain = createChain(tail);
  Chain* chain = tail.chain;
  if (!chain || !growIndex(*chain)) {
    BRRelease(child);
    return nullptr;
  }
  child->chain = chain;
  child->chainIndex = chain->count;
  chain->links[chain->count++] = {chain->end, child};
  chain->alive.fetch_add(1, std::memory_order_relaxed);
  tail.link().kind = Kind::kReference;
  tail.link().block = child;
  return child;
}

// Whether the bytes can be added at all: no length exceeds a size.
bool hasRoom(PVBlockBuffer& buffer, size_t length) {
  const size_t end = buffer.chain ? buffer.chain->end : buffer.ownLength();
  return length <= SIZE_MAX - end;
}

void extendBy(PVBlockBuffer& tail, size_t length) {
  tail.entries()[tail.count - 1].end += length;
  if (tail.chain) tail.chain->end += length;
}

// Adds an entry for length bytes; its end is filled in here.
PVStatus addEntry(PVBlockBuffer& buffer, const Entry& entry, size_t length) {
  PVBlockBuffer* tail = buffer.tail();
  tail->endGrowth();
  if (tail->isFull() && !(tail = addChild(*tail))) return kPVBlockBufferStructureAllocationFailedErr;
  Entry& added = tail->entries()[tail->count];
  added = entry;
  added.end = tail->ownLength();
  ++tail->count;
  extendBy(*tail, length);
  return 0;
}

// True when a reference from the buffer to the target would close a circle, or when memory runs out on the
// search. Costs nothing for a buffer that nobody has referenced, as buffers under construction are.
bool wouldCloseCircle(PVBlockBuffer& buffer, PVBlockBuffer& target) {
  if (buffer.isInSameChain(&target)) return true;
  if (!buffer.wasReferenced()) return false;
  ReferenceWalk walk(&target);
  while (const Entry* entry = walk.next())
    if (entry->isReference() && buffer.isInSameChain(entry->target())) return true;
  return walk.ranOutOfMemory();
}

PVStatus addReference(PVBlockBuffer& buffer, PVBlockBuffer& target, size_t offset, size_t length) {
  if (!hasRoom(buffer, length)) return kPVBlockBufferBadLengthParameterErr;
  PVBlockBuffer* tail = buffer.tail();
  if (tail->count > 0) {
    const Entry& last = tail->entries()[tail->count - 1];
    const size_t lastLength = last.end - tail->startOf(tail->count - 1);
    if (last.isReference() && last.target() == &target && last.offset + lastLength == offset) {
      extendBy(*tail, length);
      return 0;
    }
  }
  if (wouldCloseCircle(buffer, target)) return kPVBlockBufferBadPointerParameterErr;
  if (PVStatus status =
          addEntry(buffer, {.kind = Kind::kReference, .offset = offset, .block = &target}, length))
    return status;
  BRRetain(&target);
  target.noteReferenced();
  buffer.tail()->mayHoldReferences = true;
  return 0;
}

// Remembers where a buffer ends, to go back there.
class Savepoint {
 public:
  explicit Savepoint(PVBlockBuffer& buffer)
      : tail_(*buffer.tail()), count_(tail_.count), ownLength_(tail_.ownLength()) {}

  void restore() {
    if (PVBlockBuffer* added = tail_.child()) {
      tail_.link() = {};
      tail_.chain->count = tail_.chainIndex + 1;
      BRRelease(added);
    }
    while (tail_.count > count_) {
      Entry& entry = tail_.entries()[--tail_.count];
      BRRelease(entry.target());
      entry = {};
    }
    if (count_ > 0) tail_.entries()[count_ - 1].end = ownLength_;
    if (tail_.chain) tail_.chain->end = tail_.chain->links[tail_.chainIndex].start + ownLength_;
  }

 private:
  PVBlockBuffer& tail_;
  int32_t count_;
  size_t ownLength_;
};

// Adds references to the buffers that own a range's memory. A part that no memory backs yet, since a
// referenced buffer is shorter than the reference to it, becomes a reference to that shorter buffer.
PVStatus addResolved(PVBlockBuffer& buffer, PVBlockBuffer& target, size_t offset, size_t length) {
  while (length > 0) {
    PVBlockBuffer* owner = &target;
    size_t ownerOffset = offset;
    size_t part = length;
    // Without references among its entries, a buffer owns what it holds: no need to look which entry it is.
    while (owner->mayHoldReferences || ownerOffset >= owner->ownLength()) {
      const Position at = findEntry(owner, ownerOffset);
      if (!at.member) break;
      const Entry& entry = at.entry();
      part = std::min(part, at.remaining());
      if (!entry.isReference()) {
        owner = at.member;
        ownerOffset = owner->startOf(at.index) + at.consumed;
        break;
      }
      owner = entry.target();
      ownerOffset = entry.offset + at.consumed;
    }
    if (!owner->mayHoldReferences && ownerOffset < owner->ownLength())
      part = std::min(part, owner->ownLength() - ownerOffset);
    if (PVStatus status = addReference(buffer, *owner, ownerOffset, part)) return status;
    offset += part;
    length -= part;
  }
  return 0;
}

// Adds a block with room for the length and more, none of it data yet. Each block is as long as all that came before,
// within limits: there are few of them and little is wasted.
PVStatus startGrowing(PVBlockBuffer& buffer, GrowingBlock& growing, size_t length) {
  const size_t total = buffer.totalLength();
  const size_t blockLength = std::max(length, std::clamp(total, kSmallestGrowingBlock, kLargestGrowingBlock));
  // With all its room at first: a total past the largest size is found here and not by each append.
  if (PVStatus status = appendMemoryBlock(buffer, nullptr, blockLength, BRGetAllocator(&buffer), nullptr, 0,
                                          blockLength, kPVBlockBufferAssureMemoryNowFlag))
    return status;
  PVBlockBuffer& tail = *buffer.tail();
  Entry& entry = tail.entries()[tail.count - 1];
  entry.end -= blockLength;
  if (tail.chain) tail.chain->end -= blockLength;
  new (&growing) GrowingBlock;
  growing.bytes = growing.next = static_cast<char*>(entry.block);
  growing.limit = growing.bytes + blockLength;
  growing.start = total;
  growing.entryEnd = &entry.end;
  if (tail.chain) growing.chainEnd = &tail.chain->end;
  growing.watcher = &tail.grownBy;
  tail.grownBy = &growing;
  return 0;
}

}  // namespace

PVStatus assureEntry(Entry& entry) {
  if (entry.kind == Kind::kAllocatorPending) {
    entry.block = BRAllocatorAllocate(entry.allocator(), entry.blockLength);
    if (!entry.block) return kPVBlockBufferBlockAllocationFailedErr;
    entry.kind = Kind::kAllocatorBlock;
  } else if (entry.kind == Kind::kCustomPending) {
    entry.block = entry.custom()->allocateBlock(entry.custom()->refCon, entry.blockLength);
    if (!entry.block) return kPVBlockBufferBlockAllocationFailedErr;
    entry.kind = Kind::kCustomBlock;
  }
  return 0;
}

PVStatus appendMemoryBlock(PVBlockBuffer& buffer, void* block, size_t blockLength,
                           BRAllocatorRef blockAllocator, const PVBlockBufferCustomBlockSource* customSource,
                           size_t offset, size_t length, PVBlockBufferFlags flags) {
  if (!hasRoom(buffer, length)) return kPVBlockBufferBadLengthParameterErr;
  Entry entry{.offset = offset, .block = block, .blockLength = blockLength};
  if (customSource) {
    void* copy = BRAllocatorAllocate(BRGetAllocator(&buffer), sizeof *customSource);
    if (!copy) return kPVBlockBufferStructureAllocationFailedErr;
    entry.kind = block ? Kind::kCustomBlock : Kind::kCustomPending;
    entry.source = std::memcpy(copy, customSource, sizeof *customSource);
  } else {
    entry.kind = block ? Kind::kAllocatorBlock : Kind::kAllocatorPending;
    if (!blockAllocator) blockAllocator = kBRAllocatorSystem;
    if (blockAllocator != kBRAllocatorNull) BRRetain(blockAllocator);
    entry.source = const_cast<BRAllocator*>(blockAllocator);
  }
  PVStatus status = flags & kPVBlockBufferAssureMemoryNowFlag ? assureEntry(entry) : 0;
  if (!status) status = addEntry(buffer, entry, length);
  if (status) {
    // What the caller brought stays the caller's.
    if (block) entry.block = nullptr;
    releaseEntry(buffer, entry);
  }
  return status;
}

PVStatus appendBytes(PVBlockBuffer& buffer, const void* bytes, size_t length) {
  if (!buffer.growing) {
    void* memory = BRAllocatorAllocate(BRGetAllocator(&buffer), sizeof(GrowingBlock));
    if (!memory) return kPVBlockBufferStructureAllocationFailedErr;
    buffer.growing = new (memory) GrowingBlock;
  }
  if (!buffer.growing->fits(length))
    if (PVStatus status = startGrowing(buffer, *buffer.growing, length)) return status;
  buffer.growing->append(bytes, length);
  return 0;
}

PVStatus appendBufferReference(PVBlockBuffer& buffer, PVBlockBuffer& target, size_t offset, size_t length,
                               PVBlockBufferFlags flags) {
  const size_t available = target.totalLength();
  if (available > 0) {
    if (offset >= available) return kPVBlockBufferBadOffsetParameterErr;
    if (length > available - offset) return kPVBlockBufferBadLengthParameterErr;
    if (length == 0) length = available - offset;
  } else {
    if (!(flags & kPVBlockBufferPermitEmptyReferenceFlag)) return kPVBlockBufferEmptyBBufErr;
    if (length == 0 || length > SIZE_MAX - offset) return kPVBlockBufferBadLengthParameterErr;
  }
  if (available > 0 && !(flags & kPVBlockBufferDontOptimizeDepthFlag)) {
    Savepoint before(buffer);
    if (!addResolved(buffer, target, offset, length)) return 0;
    // No memory for the pieces: one reference to the whole says the same, less directly.
    before.restore();
  }
  return addReference(buffer, target, offset, length);
}

}  // namespace pv::block

PVStatus PVBlockBufferAppendMemoryBlock(PVBlockBufferRef buffer, void* memoryBlock, size_t blockLength,
                                        BRAllocatorRef blockAllocator,
                                        const PVBlockBufferCustomBlockSource* customBlockSource,
                                        size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (blockLength == 0 || dataLength == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  if (offsetToData >= blockLength) return pv::signalError(kPVBlockBufferBadOffsetParameterErr);
  if (dataLength > blockLength - offsetToData) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  if (customBlockSource) {
    const bool usable =
        memoryBlock ? customBlockSource->freeBlock != nullptr : customBlockSource->allocateBlock != nullptr;
    if (customBlockSource->version != 0 || !usable)
      return pv::signalError(kPVBlockBufferBadCustomBlockSourceErr);
  } else if (!memoryBlock && blockAllocator == kBRAllocatorNull) {
    return pv::signalError(kPVBlockBufferBlockAllocationFailedErr);
  }
  const PVStatus status = pv::block::appendMemoryBlock(*buffer, memoryBlock, blockLength, blockAllocator,
                                                       customBlockSource, offsetToData, dataLength, flags);
  return status ? pv::signalError(status) : 0;
}

PVStatus KivBlockBufferAppendBytes(PVBlockBufferRef buffer, const void* bytes, size_t length) {
  if (!buffer || !bytes) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (length == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  const PVStatus status = pv::block::appendBytes(*buffer, bytes, length);
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferAppendBufferReference(PVBlockBufferRef buffer, PVBlockBufferRef targetBuffer,
                                            size_t offsetToData, size_t dataLength,
                                            PVBlockBufferFlags flags) {
  if (!buffer || !targetBuffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  const PVStatus status =
      pv::block::appendBufferReference(*buffer, *targetBuffer, offsetToData, dataLength, flags);
  return status ? pv::signalError(status) : 0;
}
