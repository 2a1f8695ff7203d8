// Reading big-endian records from bytes that nobody vouches for.
//
// A reader walks a run of bytes that it does not own. A read past the end sets a sticky error, gives zeros
// and leaves nothing more to read; so a parser reads straight through and asks once:
//
//   pv::ByteReader reader(bytes, length);
//   const uint32_t count = reader.u32();
//   pv::ByteReader entries = reader.sub(reader.u16());   // bounds and an error state of its own
//   if (!reader.ok()) return pv::signalError(kShortRecord);
//
// A declared count is checked before it is believed: `if (!reader.has(count, kEntryBytes)) …`.
#ifndef PEVRIN_RUNTIME_BYTE_READER_HPP
#define PEVRIN_RUNTIME_BYTE_READER_HPP

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pv {

template <class Word>
constexpr Word swapped(Word word) {
  if constexpr (sizeof(Word) == 1) return word;
  if constexpr (sizeof(Word) == 2) return __builtin_bswap16(word);
  if constexpr (sizeof(Word) == 4) return __builtin_bswap32(word);
  if constexpr (sizeof(Word) == 8) return __builtin_bswap64(word);
}

// Between this machine's order and big-endian, either way.
template <class Word>
constexpr Word bigEndian(Word word) {
  return std::endian::native == std::endian::big ? word : swapped(word);
}

// A word at an address of any alignment.
template <class Word>
Word loadBigEndian(const void* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return bigEndian(word);
}

class ByteReader {
 public:
  ByteReader() = default;
  ByteReader(const void* bytes, size_t length)
      : begin_(static_cast<const uint8_t*>(bytes)), at_(begin_), end_(begin_ + length) {}

  // False from the first read past the end on.
  bool ok() const { return !failed_; }
  size_t remaining() const { return static_cast<size_t>(end_ - at_); }
  size_t position() const { return static_cast<size_t>(at_ - begin_); }
  bool atEnd() const { return at_ == end_; }
  // Whether count elements of elementBytes each are still there. Safe for any count.
  bool has(uint64_t count, size_t elementBytes = 1) const {
    return ok() && (elementBytes == 0 || count <= remaining() / elementBytes);
  }

  uint8_t u8() {
    const uint8_t* from = take(1);
    return from ? *from : 0;
  }
  uint16_t u16() { return word<uint16_t>(); }
  uint32_t u24() {
    const uint8_t* from = take(3);
    return from ? uint32_t{from[0]} << 16 | uint32_t{from[1]} << 8 | from[2] : 0;
  }
  uint32_t u32() { return word<uint32_t>(); }
  uint64_t u64() { return word<uint64_t>(); }
  int8_t s8() { return static_cast<int8_t>(u8()); }
  int16_t s16() { return static_cast<int16_t>(u16()); }
  int32_t s32() { return static_cast<int32_t>(u32()); }
  int64_t s64() { return static_cast<int64_t>(u64()); }

  // The next count bytes where they lie, or null when there are not so many.
  const uint8_t* take(size_t count) {
    if (count > remaining()) {
      failed_ = true;
      at_ = end_;
      return nullptr;
    }
    const uint8_t* from = at_;
    at_ += count;
    return from;
  }
  // Copies the next count bytes, or fills the destination with zeros.
  void copy(void* destination, size_t count) {
    if (count == 0) return;
    const uint8_t* from = take(count);
    from ? std::memcpy(destination, from, count) : std::memset(destination, 0, count);
  }
  void skip(size_t count) { take(count); }
  void fail() {
    failed_ = true;
    at_ = end_;
  }

  // A reader over the next count bytes, which this one steps over. When there are not so many, both have
  // failed.
  ByteReader sub(size_t count) {
    ByteReader reader(at_, has(count) ? count : 0);
    reader.failed_ = !has(count);
    skip(count);
    return reader;
  }

 private:
  template <class Word>
  Word word() {
    const uint8_t* from = take(sizeof(Word));
    return from ? loadBigEndian<Word>(from) : 0;
  }

  const uint8_t* begin_ = nullptr;
  const uint8_t* at_ = nullptr;
  const uint8_t* end_ = nullptr;
  bool failed_ = false;
};

}  // namespace pv

#endif
