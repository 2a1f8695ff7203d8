// Reading bits and Exp-Golomb codes (ITU-T H.264 7.2 and 9.1) from bytes that nobody vouches for, most
// significant bit first.
//
// A reader walks a run of bytes that it does not own and never touches one outside it. A read past the end
// sets a sticky error and gives zeros; so a parser reads straight through and asks once:
//
//   pv::BitReader reader(bytes, length);
//   const uint32_t profile = reader.bits(8);
//   const uint32_t id = reader.ue();
//   if (!reader.ok()) return pv::signalError(kUnreadable);
//
// Up to 64 bits wait in a cache, the next one at its top; below the valid ones it may already hold bits of
// the bytes that the next refill takes, and past the end it holds zeros.
#ifndef PEVRIN_RUNTIME_BIT_READER_HPP
#define PEVRIN_RUNTIME_BIT_READER_HPP

#include <algorithm>
#include <bit>

#include "runtime/byte_reader.hpp"

namespace pv {

class BitReader {
 public:
  // A ue(v) of at most 2^13 − 2: as many leading zeros as one look at a 32-bit word settles.
  static constexpr uint32_t kShortCode = 12;
  // Every ue(v) of the standards, up to 2^32 − 2.
  static constexpr uint32_t kAnyCode = 31;

  BitReader(const void* bytes, size_t length)
      : begin_(static_cast<const uint8_t*>(bytes)), next_(begin_), end_(begin_ + length) {}

  // False from the first read past the end, or of a code that is too long, on.
  bool ok() const { return !failed_; }
  // Whether it was the end that the reader failed at.
  bool ranOut() const { return ranOut_; }
  void fail() {
    failed_ = true;
    next_ = end_;
    cache_ = valid_ = 0;
  }
  // In bits, from the beginning. Tells nothing after a failure.
  size_t position() const { return static_cast<size_t>(next_ - begin_) * 8 - valid_; }
  size_t bitsLeft() const { return static_cast<size_t>(end_ - next_) * 8 + valid_; }

  // The next count bits, 32 at most.
  uint32_t bits(uint32_t count) {
    if (count == 0 || !need(count)) return 0;
    const auto value = static_cast<uint32_t>(cache_ >> (64 - count));
    drop(count);
    return value;
  }
  bool flag() { return bits(1) != 0; }
  void skip(size_t count) {
    if (count > bitsLeft()) return runOut();
    for (; count > 32; count -= 32) bits(32);
    bits(static_cast<uint32_t>(count));
  }

  // An unsigned code of at most longest leading zeros.
  template <uint32_t longest = kShortCode>
  uint32_t ue() {
    static_assert(longest <= kAnyCode);
    if (valid_ < 2 * kShortCode + 1) refill();
    const auto zeros = static_cast<uint32_t>(std::countl_zero(cache_));
    if (2 * zeros + 1 > valid_ || zeros > longest) return longCode(longest);
    const auto value = static_cast<uint32_t>((cache_ >> (63 - 2 * zeros)) - 1);
    drop(2 * zeros + 1);
    return value;
  }
  // A code whose value must not be above most.
  uint32_t ueUpTo(uint32_t most) {
    const uint32_t value = ue();
    if (value <= most) return value;
    fail();
    return 0;
  }
  // A signed code.
  template <uint32_t longest = kShortCode>
  int32_t se() {
    const uint32_t code = ue<longest>();
    return static_cast<int32_t>(code & 1 ? code / 2 + 1 : 0 - code / 2);
  }
  // Steps over a code whose value nobody asks for, of any length.
  void skipCode() {
    if (valid_ < 2 * kShortCode + 1) refill();
    const auto zeros = static_cast<uint32_t>(std::countl_zero(cache_));
    2 * zeros + 1 <= valid_ ? drop(2 * zeros + 1) : skipLongCode();
  }
  void skipCodes(uint32_t count) {
    for (; count > 0 && ok(); --count) skipCode();
  }

 private:
  bool need(uint32_t count) {
    if (valid_ < count) refill();
    if (valid_ >= count) return true;
    runOut();
    return false;
  }
  void runOut() {
    ranOut_ |= !failed_;
    fail();
  }
  // Fewer than valid_.
  void drop(uint32_t count) {
    cache_ <<= count;
    valid_ -= count;
  }
  // At least 57 valid bits, or all that are left.
  void refill() {
    if (end_ - next_ >= 8) {
      cache_ |= loadBigEndian<uint64_t>(next_) >> valid_;
      next_ += (63 - valid_) >> 3;
      valid_ |= 56;
      return;
    }
    for (; valid_ <= 56 && next_ != end_; valid_ += 8) cache_ |= uint64_t{*next_++} << (56 - valid_);
  }
  // The code at the cache's top when it does not stand there whole.
  [[gnu::noinline]] uint32_t longCode(uint32_t longest) {
    refill();
    const auto zeros = static_cast<uint32_t>(std::countl_zero(cache_));
    if (std::min(zeros, valid_) > longest) {
      fail();
      return 0;
    }
    if (2 * zeros + 1 > bitsLeft()) {
      runOut();
      return 0;
    }
    bits(zeros);
    return bits(zeros + 1) - 1;
  }

  // The code at the cache's top when it does not stand there whole, again.
  [[gnu::noinline]] void skipLongCode() {
    refill();
    const auto cached = static_cast<uint32_t>(std::countl_zero(cache_));
    if (2 * cached + 1 <= valid_) return drop(2 * cached + 1);
    size_t zeros = 0;
    while (ok() && !flag()) ++zeros;
    skip(zeros);
  }

  const uint8_t* begin_;
  const uint8_t* next_;
  const uint8_t* end_;
  uint64_t cache_ = 0;
  uint32_t valid_ = 0;
  bool failed_ = false;
  bool ranOut_ = false;
};

}  // namespace pv

#endif
