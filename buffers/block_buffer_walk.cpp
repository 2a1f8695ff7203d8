// Finding positions, walking ranges and walking references.
#include "buffers/block_buffer_walk.hpp"

#include <algorithm>
#include <cstring>

namespace pv::block {

namespace {

// The first of a member's own entries that ends past the offset; the offset lies in the member.
int32_t searchEntries(const PVBlockBuffer* member, size_t offset) {
  const Entry* entries = member->entries();
  int32_t first = 0;
  for (int32_t count = member->count; count > 1;) {
    const int32_t half = count / 2;
    first += entries[first + half - 1].end <= offset ? half : 0;
    count -= half;
  }
  return first;
}

}  // namespace

Position findEntry(PVBlockBuffer* buffer, size_t offset) {
  if (offset >= buffer->ownLength()) {
    const Chain* chain = buffer->chain;
    if (!chain || offset >= chain->end - chain->links[buffer->chainIndex].start) return {};
    offset += chain->links[buffer->chainIndex].start;
    const Chain::Link* link =
        std::upper_bound(chain->links + buffer->chainIndex, chain->links + chain->count, offset,
                         [](size_t value, const Chain::Link& other) { return value < other.start; }) -
        1;
    buffer = link->member;
    offset -= link->start;
  }
  const int32_t index = searchEntries(buffer, offset);
  return {buffer, index, offset - buffer->startOf(index)};
}

Location locate(PVBlockBuffer* buffer, size_t offset) {
  for (size_t atMost = SIZE_MAX;;) {
    const Position at = findEntry(buffer, offset);
    if (!at.member) return {.status = kPVBlockBufferBadOffsetParameterErr};
    const Entry& entry = at.entry();
    atMost = std::min(atMost, at.remaining());
    if (entry.isMemory())
      return {.data = entry.bytes() + at.consumed,
              .length = atMost,
              .origin = at.member,
              .originOffset = at.member->startOf(at.index) + at.consumed};
    if (!entry.isReference()) return {.status = kPVBlockBufferUnallocatedBlockErr};
    buffer = entry.target();
    offset = entry.offset + at.consumed;
  }
}

void PieceWalk::enter(PVBlockBuffer* buffer, size_t offset, size_t length) {
  const Position at = findEntry(buffer, offset);
  *top_ = {nullptr, nullptr, at.consumed, 0, length, at.member};
  if (!at.member) return;
  top_->entry = at.member->entries() + at.index;
  top_->entriesEnd = at.member->entries() + at.member->count;
  top_->position = at.member->startOf(at.index) + at.consumed;
}

PVStatus PieceWalk::next(Piece& piece) {
  for (;;) {
    Frame& frame = *top_;
    if (frame.left == 0) {
      --top_;
      continue;
    }
    if (!frame.member) return kPVBlockBufferBadOffsetParameterErr;
    if (frame.entry == frame.entriesEnd) {
      PVBlockBuffer* child = frame.member->child();
      frame = {nullptr, nullptr, 0, 0, frame.left, child};
      if (child) {
        frame.entry = child->entries();
        frame.entriesEnd = frame.entry + child->count;
      }
      continue;
    }
    const Entry& entry = *frame.entry;
    const size_t offset = entry.offset + frame.consumed;
    size_t length = std::min(entry.end - frame.position, frame.left);
    const bool isMemory = entry.isMemory();
    if (!isMemory && !entry.isReference()) return kPVBlockBufferUnallocatedBlockErr;
    const bool located = !isMemory && top_ == frames_ + kMaximumFrames - 1;
    if (isMemory) {
      piece = {static_cast<char*>(entry.block) + offset, length};
    } else if (located) {
      const Location found = locate(entry.target(), offset);
      if (found.status) return found.status;
      length = std::min(found.length, length);
      piece = {found.data, length};
    }
    frame.position += length;
    frame.left -= length;
    frame.consumed += length;
    if (frame.position == entry.end) {
      ++frame.entry;
      frame.consumed = 0;
    }
    if (isMemory || located) {
      left_ -= length;
      return 0;
    }
    ++top_;
    enter(entry.target(), offset, length);
  }
}

ReferenceWalk::ReferenceWalk(PVBlockBuffer* first) {
  static constinit std::atomic<uint64_t> lastMark{0};
  mark_ = lastMark.fetch_add(1, std::memory_order_relaxed) + 1;
  visitOnce(first);
  push(first);
}

ReferenceWalk::~ReferenceWalk() {
  if (frames_ != inline_) BRAllocatorDeallocate(nullptr, frames_);
}

// Two walks at a time may overwrite each other's marks: then a buffer is visited again, which does no harm.
bool ReferenceWalk::visitOnce(PVBlockBuffer* buffer) {
  return buffer->mark.exchange(mark_, std::memory_order_relaxed) != mark_;
}

bool ReferenceWalk::push(PVBlockBuffer* buffer) {
  if (depth_ == capacity_) {
    auto* larger = static_cast<Frame*>(BRAllocatorAllocate(nullptr, 2 * capacity_ * sizeof(Frame)));
    if (!larger) return false;
    std::memcpy(larger, frames_, depth_ * sizeof(Frame));
    if (frames_ != inline_) BRAllocatorDeallocate(nullptr, frames_);
    frames_ = larger;
    capacity_ *= 2;
  }
  frames_[depth_++] = {buffer, 0};
  return true;
}

Entry* ReferenceWalk::next() {
  if (PVBlockBuffer* target = std::exchange(pending_, nullptr))
    if (visitOnce(target) && !push(target)) {
      ranOutOfMemory_ = true;
      depth_ = 0;
    }
  while (depth_ > 0) {
    Frame& frame = frames_[depth_ - 1];
    if (frame.index < frame.member->count) {
      Entry& entry = frame.member->entries()[frame.index++];
      if (entry.isReference()) pending_ = entry.target();
      return &entry;
    }
    PVBlockBuffer* child = frame.member->child();
    if (child && visitOnce(child))
      frame = {child, 0};
    else
      --depth_;
  }
  return nullptr;
}

}  // namespace pv::block
