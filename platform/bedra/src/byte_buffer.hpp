// Growing blocks of bytes: under mutable strings and data, and the scratch buffer in which text is put
// together.
#ifndef BEDRA_SRC_BYTE_BUFFER_HPP
#define BEDRA_SRC_BYTE_BUFFER_HPP

#include <bedra/allocator.h>

#include <cstring>
#include <string_view>

namespace br {

// A block and its size. Whoever owns it knows its allocator and how much of it is in use.
struct ByteBlock {
  char* bytes = nullptr;
  size_t capacityBytes = 0;
};

// Makes the block hold at least neededBytes and keeps its first usedBytes; grows by half, so that appending
// is linear. False, with the block untouched, when memory runs out.
bool growBlock(ByteBlock& block, BRAllocatorRef allocator, size_t usedBytes, size_t neededBytes);

// Text being put together: on the stack while it is short, then in a block of the allocator. Running out of
// memory is remembered, so that a writer may go straight on and ask once.
class TextBuffer {
 public:
  explicit TextBuffer(BRAllocatorRef allocator) : allocator_(allocator) {}
  ~TextBuffer() { BRAllocatorDeallocate(allocator_, block_.bytes); }
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  // Room for that many more bytes and a NUL, or null; commit() says how many were written.
  char* reserve(size_t moreBytes);
  void commit(size_t writtenBytes) { lengthBytes_ += writtenBytes; }
  void append(std::string_view text) {
    if (char* room = reserve(text.size()); room && !text.empty()) {
      std::memcpy(room, text.data(), text.size());
      commit(text.size());
    }
  }
  void append(size_t count, char character) {
    if (char* room = reserve(count)) {
      std::memset(room, character, count);
      commit(count);
    }
  }
  void append(char character) { append(1, character); }

  std::string_view text() const { return {bytes(), lengthBytes_}; }
  // The same with a NUL behind it.
  const char* cString() {
    const_cast<char*>(bytes())[lengthBytes_] = '\0';
    return bytes();
  }
  // What reserve() offers now without growing, the NUL not counted.
  size_t roomBytes() const { return capacityBytes() - lengthBytes_ - 1; }
  bool failed() const { return failed_; }
  BRAllocatorRef allocator() const { return allocator_; }

 private:
  const char* bytes() const { return block_.bytes ? block_.bytes : inline_; }
  size_t capacityBytes() const { return block_.bytes ? block_.capacityBytes : sizeof inline_; }

  BRAllocatorRef allocator_;
  ByteBlock block_;
  size_t lengthBytes_ = 0;
  bool failed_ = false;
  char inline_[480];
};

}  // namespace br

#endif
