// Three ways through a block buffer: to one position, along a range, and to everything that can be reached.
#ifndef PEVRIN_BUFFERS_BLOCK_BUFFER_WALK_HPP
#define PEVRIN_BUFFERS_BLOCK_BUFFER_WALK_HPP

#include "buffers/block_buffer.hpp"

namespace pv::block {

// An entry and how far into it.
struct Position {
  PVBlockBuffer* member = nullptr;  // null: the buffer holds no data at the offset
  int32_t index = 0;
  size_t consumed = 0;

  const Entry& entry() const { return member->entries()[index]; }
  size_t remaining() const { return entry().end - member->startOf(index) - consumed; }
};

// The entry of a buffer, or of the chain that begins with it, that holds the offset. Does not follow
// references.
Position findEntry(PVBlockBuffer* buffer, size_t offset);

// Where the byte at an offset is in memory, references followed.
struct Location {
  PVStatus status = 0;  // or BadOffset: no data there; or UnallocatedBlock
  char* data = nullptr;
  size_t length = 0;                // bytes that follow without a gap, within the entries passed on the way
  PVBlockBuffer* origin = nullptr;  // the buffer that owns the memory
  size_t originOffset = 0;
};
Location locate(PVBlockBuffer* buffer, size_t offset);

// Yields a range's pieces of memory in order. A few levels of references are kept at hand; below those each
// piece is located anew.
class PieceCursor {
 public:
  struct Piece {
    char* data;
    size_t length;
  };

  // The range lies inside the buffer and is not empty.
  PieceCursor(PVBlockBuffer* buffer, size_t offset, size_t length)
      : frames_{{findEntry(buffer, offset), length}}, undelivered_(length) {}

  // Bytes not delivered yet; at 0 the walk is over.
  size_t undelivered() const { return undelivered_; }
  // The next piece; or UnallocatedBlock; or BadOffset when a referenced buffer is shorter than its reference
  // says. After a failure the cursor is of no further use, but undelivered() stands.
  PVStatus next(Piece& piece);

 private:
  static constexpr int kMaximumFrames = 6;
  struct Frame {
    Position at;
    size_t left;  // bytes of the range still to come from this level
  };

  Frame frames_[kMaximumFrames];
  int depth_ = 0;
  size_t undelivered_;
};

// Visits every entry of a buffer, its chain and all that they reference, in order; each buffer once.
class ReferenceWalk {
 public:
  explicit ReferenceWalk(PVBlockBuffer* first);
  ~ReferenceWalk();
  ReferenceWalk(const ReferenceWalk&) = delete;
  ReferenceWalk& operator=(const ReferenceWalk&) = delete;

  // The next entry, or null at the end and when memory runs out.
  Entry* next();
  bool ranOutOfMemory() const { return ranOutOfMemory_; }

 private:
  static constexpr size_t kInlineFrames = 16;
  struct Frame {
    PVBlockBuffer* member;
    int32_t index;
  };
  bool visitOnce(PVBlockBuffer* buffer);
  bool push(PVBlockBuffer* buffer);

  uint64_t mark_;
  Frame inline_[kInlineFrames];
  Frame* frames_ = inline_;
  size_t capacity_ = kInlineFrames;
  size_t depth_ = 0;
  PVBlockBuffer* pending_ = nullptr;  // referenced by the entry handed out last
  bool ranOutOfMemory_ = false;
};

}  // namespace pv::block

#endif
