// The representation of block buffers, shared by the files that build, read and describe them.
//
// A block buffer is one allocation: the struct and its array of entries, of which those in use and the last
// are filled. Entry i covers the bytes from the end of entry i − 1 to its own end, so that a position is
// found by binary search. The last entry of the array is kept back: in a buffer that overflowed it links to a
// child buffer of the same capacity, which holds what follows; the child may have a child of its own. A
// buffer and the buffers below it in that way are the members of a chain.
//
// A chain of a million members must neither be walked by each append nor by each look-up. So its members
// share one index, which names each member and where in the chain its own data begin; the first member's
// total, like every other member's, is the chain's end less its own beginning. The index counts the members
// alive: a member in the middle may outlive those before it when it is referenced, and then simply is the
// first of the rest. A member reads only the part of the index from itself on, which it keeps alive through
// its links.
//
// References never form a cycle (append refuses those that would), so following them ends. Nothing here
// recurses along references or chains: look-ups loop, walks keep a stack of their own, and the last release
// of a long nest hands the buffers that die with it to a list (see retire).
//
// Readers write nothing. Only ReferenceWalk writes a mark, which is atomic: a buffer may be appended to
// another one while other threads read it.
#ifndef PEVRIN_BUFFERS_BLOCK_BUFFER_HPP
#define PEVRIN_BUFFERS_BLOCK_BUFFER_HPP

#include <pevrin/block_buffer.h>

#include <atomic>
#include <bedra/object.hpp>

#include "runtime/attachment_store.hpp"
#include "runtime/growing_block.hpp"

namespace pv::block {

enum class Kind : uint32_t {
  kUnused = 0,
  kReference = 1,
  kAllocatorPending = 2,  // memory to come from an allocator
  kAllocatorBlock = 3,
  kCustomPending = 4,  // memory to come from a custom block source
  kCustomBlock = 5,
};

struct Entry {
  Kind kind = Kind::kUnused;
  size_t end = 0;          // where the entry's bytes end, counted from the beginning of the member's own data
  size_t offset = 0;       // of the bytes inside the memory block, or inside the referenced buffer
  void* block = nullptr;   // the memory block, or the referenced buffer (retained)
  size_t blockLength = 0;  // of the whole memory block
  void* source = nullptr;  // the block allocator (retained), or the buffer's copy of the custom block source

  bool isMemory() const { return kind == Kind::kAllocatorBlock || kind == Kind::kCustomBlock; }
  bool isReference() const { return kind == Kind::kReference; }
  PVBlockBuffer* target() const { return static_cast<PVBlockBuffer*>(block); }
  char* bytes() const { return static_cast<char*>(block) + offset; }
  BRAllocatorRef allocator() const { return static_cast<BRAllocatorRef>(source); }
  PVBlockBufferCustomBlockSource* custom() const {
    return static_cast<PVBlockBufferCustomBlockSource*>(source);
  }
};

// The index of an overflow chain, made with its second member and freed with its last.
struct Chain {
  struct Link {
    size_t start;  // where the member's own data begin, counted from the chain's beginning
    PVBlockBuffer* member;
  };
  BRAllocatorRef allocator;      // retained; of the index and of the link array
  std::atomic<size_t> alive;     // members that still point here
  std::atomic<bool> referenced;  // some member is, or was, referenced by another buffer
  size_t count;
  size_t capacity;
  size_t end;  // of the chain's data
  Link* links;
};

}  // namespace pv::block

struct PVBlockBuffer : pv::BlockBufferHead {
  static constexpr const char* className = "PVBlockBuffer";
  using Entry = pv::block::Entry;

  explicit PVBlockBuffer(int32_t entryCount) : capacity(entryCount) { link() = {}; }
  ~PVBlockBuffer();
  BRStringRef copyDebugDescription() const;

  Entry* entries() { return br::extra<Entry>(this); }
  const Entry* entries() const { return reinterpret_cast<const Entry*>(this + 1); }
  size_t startOf(int32_t index) const { return index ? entries()[index - 1].end : 0; }
  size_t ownLength() const { return startOf(count); }
  size_t totalLength() const { return chain ? chain->end - chain->links[chainIndex].start : ownLength(); }

  // The entry that links to the overflow child, and the child or null.
  Entry& link() { return entries()[capacity - 1]; }
  PVBlockBuffer* child() const { return entries()[capacity - 1].target(); }
  PVBlockBuffer* tail() { return chain ? chain->links[chain->count - 1].member : this; }
  bool isFull() const { return count == capacity - 1; }

  void endGrowth() {
    if (grownBy) grownBy->limit = grownBy->next;
    if (grownBy) grownBy->watcher = nullptr;
    grownBy = nullptr;
  }

  bool isInSameChain(const PVBlockBuffer* other) const {
    return this == other || (chain && chain == other->chain);
  }
  bool wasReferenced() const {
    return (chain ? chain->referenced : referenced).load(std::memory_order_relaxed);
  }
  void noteReferenced() {
    if (!wasReferenced()) (chain ? chain->referenced : referenced).store(true, std::memory_order_relaxed);
  }

  pv::AttachmentStore attachments;
  int32_t count = 0;  // entries in use, the link not counted
  int32_t capacity;   // entries in the array, the link counted
  pv::block::Chain* chain = nullptr;
  size_t chainIndex = 0;
  PVBlockBuffer* nextRetired = nullptr;
  std::atomic<uint64_t> mark{0};        // the last ReferenceWalk that came by
  std::atomic<bool> referenced{false};  // see wasReferenced
  bool mayHoldReferences = false;       // false: the member's own entries are all memory
  pv::GrowingBlock* grownBy = nullptr;  // has its block in this member's last entry; must hear of a new one
};

template <>
BRTypeID br::typeID<PVBlockBuffer>();

namespace pv::block {

// An empty buffer, or null when memory runs out.
PVBlockBuffer* createEmpty(BRAllocatorRef allocator, uint32_t subBlockCapacity);

// Gives up a reference to a buffer from inside a buffer's finalizer. When it is the last one the buffer dies
// after the finalizer, not within it, so that long nests and chains do not pile up on the stack.
void retire(PVBlockBuffer* buffer);

// Gives the memory of an entry, its source or its reference back.
void releaseEntry(PVBlockBuffer& owner, Entry& entry);

// Allocates the block of a pending entry; kPVBlockBufferBlockAllocationFailedErr when that fails. Nothing for
// others.
PVStatus assureEntry(Entry& entry);

// The functions below do what the public ones of the same name do, on checked arguments and without
// signalling.
PVStatus appendMemoryBlock(PVBlockBuffer& buffer, void* block, size_t blockLength,
                           BRAllocatorRef blockAllocator, const PVBlockBufferCustomBlockSource* customSource,
                           size_t offset, size_t length, PVBlockBufferFlags flags);
PVStatus appendBufferReference(PVBlockBuffer& buffer, PVBlockBuffer& target, size_t offset, size_t length,
                               PVBlockBufferFlags flags);
PVStatus appendBytes(PVBlockBuffer& buffer, const void* bytes, size_t length);
PVStatus assureBlockMemory(PVBlockBuffer& buffer);
PVStatus copyDataBytes(PVBlockBuffer& buffer, size_t offset, size_t length, void* destination);

}  // namespace pv::block

#endif
