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

// Walks a range's pieces of memory in order. A few levels of references are kept at hand; below those each
// piece is located anew.
class PieceWalk {
 public:
  // The range lies inside the buffer and is not empty.
  PieceWalk(PVBlockBuffer* buffer, size_t offset, size_t length) : left_(length) {
    enter(buffer, offset, length);
  }

  // Calls use(data, length) with each piece. Ends early with UnallocatedBlock; or with BadOffset when a
  // referenced buffer is shorter than its reference says.
  template <class Use>
  PVStatus run(Use use) {
    while (left_ > 0) {
      useWholeBlocks(use);
      if (left_ == 0) break;
      Piece piece;
      if (PVStatus status = next(piece)) return status;
      use(piece.data, piece.length);
    }
    return 0;
  }

 private:
  static constexpr int kMaximumFrames = 6;
  // Where the walk is in one buffer.
  struct Frame {
    const Entry* entry;
    const Entry* entriesEnd;
    size_t consumed;        // bytes of the entry that are behind
    size_t position;        // of the next byte, in the member's own data
    size_t left;            // bytes of the range still to come from this level
    PVBlockBuffer* member;  // null: there are no data at the place
  };

  struct Piece {
    char* data;
    size_t length;
  };

  // The common case in a tight loop: blocks that lie in the range entirely.
  template <class Use>
  void useWholeBlocks(Use& use) {
    Frame& frame = *top_;
    if (frame.consumed > 0) return;
    const Entry* entry = frame.entry;
    const Entry* const entriesEnd = frame.entriesEnd;
    const size_t end = frame.position + frame.left;
    size_t position = frame.position;
    for (; entry != entriesEnd && entry->isMemory() && entry->end <= end; ++entry) {
      use(entry->bytes(), entry->end - position);
      position = entry->end;
    }
    left_ -= position - frame.position;
    frame.left -= position - frame.position;
    frame.position = position;
    frame.entry = entry;
  }

  void enter(PVBlockBuffer* buffer, size_t offset, size_t length);
  PVStatus next(Piece& piece);

  Frame frames_[kMaximumFrames];
  Frame* top_ = frames_;
  size_t left_;  // of the whole range
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
