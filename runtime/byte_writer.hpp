// Writing big-endian records into memory of a fixed size.
//
// A writer fills a run of bytes that it does not own. A write past the end sets a sticky error and writes
// nothing, also no part of itself; from then on every write is dropped. Write straight through and ask once:
//
//   uint8_t record[16];
//   pv::ByteWriter writer(record, sizeof record);
//   writer.u32(size).u32('free').bytes(payload, payloadLength);
//   if (!writer.ok()) …
//
// A writer without memory (null, SIZE_MAX) writes nothing and counts: run the same code once for the size,
// once for the bytes.
#ifndef PEVRIN_RUNTIME_BYTE_WRITER_HPP
#define PEVRIN_RUNTIME_BYTE_WRITER_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "runtime/byte_reader.hpp"

namespace pv {

template <class Word>
void storeBigEndian(void* to, Word word) {
  word = bigEndian(word);
  std::memcpy(to, &word, sizeof word);
}

class ByteWriter {
 public:
  ByteWriter(void* memory, size_t capacity) : memory_(static_cast<uint8_t*>(memory)), capacity_(capacity) {}

  // False from the first write past the end on.
  bool ok() const { return !failed_; }
  // The bytes written so far.
  size_t position() const { return position_; }
  size_t remaining() const { return failed_ ? 0 : capacity_ - position_; }

  ByteWriter& u8(uint8_t value) { return word(value, 1); }
  ByteWriter& u16(uint16_t value) { return word(value, 2); }
  ByteWriter& u24(uint32_t value) { return word(value, 3); }
  ByteWriter& u32(uint32_t value) { return word(value, 4); }
  ByteWriter& u64(uint64_t value) { return word(value, 8); }
  ByteWriter& bytes(const void* from, size_t count) {
    if (uint8_t* to = advance(count)) std::memcpy(to, from, count);
    return *this;
  }
  ByteWriter& zeros(size_t count) {
    if (uint8_t* to = advance(count)) std::memset(to, 0, count);
    return *this;
  }

  // Puts a word over four bytes written before, as for a size that is known only at the end.
  ByteWriter& patchU32(size_t at, uint32_t value) {
    if (position_ < 4 || at > position_ - 4) failed_ = true;
    if (!failed_ && memory_) storeBigEndian(memory_ + at, value);
    return *this;
  }

 private:
  // Where the next count bytes go; null when there is nothing to write.
  uint8_t* advance(size_t count) {
    if (count > remaining()) failed_ = true;
    if (failed_ || count == 0) return nullptr;
    uint8_t* to = memory_ ? memory_ + position_ : nullptr;
    position_ += count;
    return to;
  }
  // The low byteCount bytes of the value.
  ByteWriter& word(uint64_t value, size_t byteCount) {
    uint8_t* to = advance(byteCount);
    if (!to) return *this;
    const uint64_t ordered = bigEndian(value << (64 - 8 * byteCount));
    std::memcpy(to, &ordered, byteCount);
    return *this;
  }

  uint8_t* memory_;
  size_t capacity_;
  size_t position_ = 0;
  bool failed_ = false;
};

}  // namespace pv

#endif
