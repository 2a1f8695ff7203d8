// Reading bits from bytes that nobody vouches for. A read past the end sets a sticky error and gives zeros.
#ifndef TONVIK_BIT_READER_HPP
#define TONVIK_BIT_READER_HPP

#include <cstddef>
#include <cstdint>

namespace tonvik {

class BitReader {
 public:
  BitReader(const uint8_t* bytes, size_t lengthBytes) : bytes_(bytes), lengthBytes_(lengthBytes) {}

  bool ok() const { return !failed_; }
  void fail() { failed_ = true; }
  size_t bitsLeft() const { return failed_ ? 0 : lengthBytes_ * 8 - at_; }

  // Up to 32 bits, the most significant one first.
  uint32_t bits(uint32_t count) {
    if (count > bitsLeft()) failed_ = true;
    uint32_t value = 0;
    for (; !failed_ && count > 0; --count, ++at_)
      value = value << 1 | (bytes_[at_ / 8] >> (7 - at_ % 8) & 1u);
    return value;
  }
  bool flag() { return bits(1) != 0; }
  void skip(size_t count) {
    if (count > bitsLeft()) failed_ = true;
    if (!failed_) at_ += count;
  }
  // To the next byte, counted from where the reader began.
  void align() { skip((8 - at_ % 8) % 8); }

  // From a byte boundary on: where the next byte lies, and how many there are.
  const uint8_t* next() const { return bytes_ + at_ / 8; }
  size_t bytesLeft() const { return bitsLeft() / 8; }

 private:
  const uint8_t* bytes_;
  size_t lengthBytes_;
  size_t at_ = 0;  // in bits, at most 8 * lengthBytes_
  bool failed_ = false;
};

}  // namespace tonvik

#endif
