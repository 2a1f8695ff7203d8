// A table of a movie file: entries of one size behind a few fields, kept as they stand in the file.
#pragma once

#include <kiv/atom_stream.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "big_endian.hpp"
#include "damage.hpp"

// What every reader of a full atom (ISO/IEC 14496-12 4.2.2) begins with: version, flags and the fields
// behind.
class AtomFields {
 public:
  static constexpr size_t kMostBytes = 32;

  // Reads version, flags and the first count bytes behind them. A version above the last one known is a
  // fault.
  std::optional<Fault> read(const KivAtomStream* stream, uint8_t lastVersion, size_t count);

  uint8_t version() const { return bytes_[0]; }
  uint32_t flags() const { return bigEndian32(bytes_.data()) & 0xFFFFFF; }
  // at counts from behind version and flags.
  uint32_t u32(size_t at) const { return bigEndian32(bytes_.data() + 4 + at); }
  uint64_t u64(size_t at) const { return bigEndian64(bytes_.data() + 4 + at); }

 private:
  std::array<uint8_t, 4 + kMostBytes> bytes_{};
};

class Table {
 public:
  // Keeps count entries of entryBits each, which begin at dataOffset of the current atom's data. When the
  // atom has room for fewer, it keeps those and says so.
  std::optional<Fault> read(const KivAtomStream* stream, int64_t dataOffset, uint64_t count,
                            unsigned entryBits);
  // There was an atom, of which nothing can be read.
  void markUnreadable() { state_ = State::Unreadable; }

  bool isPresent() const { return state_ != State::Missing; }
  bool isUnreadable() const { return state_ == State::Unreadable; }
  uint64_t count() const { return count_; }
  bool isEmpty() const { return count_ == 0; }
  // For a table that goes wrong at an entry.
  void cutTo(uint64_t count) { count_ = count < count_ ? count : count_; }
  const uint8_t* bytes() const { return bytes_.get(); }
  // The word at a place within an entry of entryBytes.
  uint32_t word(uint64_t index, size_t entryBytes, size_t at = 0) const {
    return bigEndian32(bytes_.get() + index * entryBytes + at);
  }

 private:
  enum class State : uint8_t { Missing, Unreadable, Read };

  std::unique_ptr<uint8_t[]> bytes_;
  uint64_t count_ = 0;
  State state_ = State::Missing;
};
