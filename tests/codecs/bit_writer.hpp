// Writes the payloads of parameter sets, so that tests can say what they hold value by value.
//
//   auto sps = BitWriter().bits(0x67, 8).bits(100, 8).flag(true).ue(15).se(-2).unit();
#ifndef TESTS_CODECS_BIT_WRITER_HPP
#define TESTS_CODECS_BIT_WRITER_HPP

#include <bit>
#include <cstdint>
#include <vector>

namespace test {

using Bytes = std::vector<uint8_t>;

class BitWriter {
 public:
  // The low count bits, most significant first; count may be up to 64.
  BitWriter& bits(uint64_t value, uint32_t count) {
    while (count-- > 0) {
      if (bitCount_++ % 8 == 0) bytes_.push_back(0);
      bytes_.back() = static_cast<uint8_t>(bytes_.back() | (value >> count & 1) << (7 - (bitCount_ - 1) % 8));
    }
    return *this;
  }
  BitWriter& flag(bool value) { return bits(value, 1); }
  BitWriter& ue(uint64_t value) {
    const auto length = static_cast<uint32_t>(std::bit_width(value + 1));
    return bits(0, length - 1).bits(value + 1, length);
  }
  BitWriter& se(int64_t value) { return ue(static_cast<uint64_t>(value > 0 ? 2 * value - 1 : -2 * value)); }
  // A code of so many leading zeros, which may be more than any value has.
  BitWriter& code(uint32_t leadingZeros) { return zeros(leadingZeros).flag(true).zeros(leadingZeros); }
  BitWriter& zeros(size_t count) {
    for (; count > 0; --count) flag(false);
    return *this;
  }

  // So far, the last byte filled up with zeros.
  const Bytes& bytes() const { return bytes_; }
  size_t bitCount() const { return bitCount_; }
  // With the stop bit and emulation prevention bytes: a NAL unit.
  Bytes unit() const {
    BitWriter whole = *this;
    whole.flag(true);
    return escaped(whole.bytes_);
  }
  static Bytes escaped(const Bytes& payload) {
    Bytes unit;
    size_t zeros = 0;
    for (const uint8_t byte : payload) {
      if (zeros >= 2 && byte <= 3) {
        unit.push_back(3);
        zeros = 0;
      }
      zeros = byte == 0 ? zeros + 1 : 0;
      unit.push_back(byte);
    }
    return unit;
  }

 private:
  Bytes bytes_;
  size_t bitCount_ = 0;
};

}  // namespace test

#endif
