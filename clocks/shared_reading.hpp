// What readers of a timebase need, for any thread to read without a lock: a sequence lock.
//
// Representation: a number that is odd while a change is being made, and the words of the reading. A reader
// takes the number, the words, and the number again: when it was even and is the same, the words belong
// together. All are atomic, so that torn words are merely useless and not a race.
//
// A change begins before its writer asks the master for the time and ends when the result is written; and a
// reader that asks the clock looks at the number once more afterwards. So no reader applies an old transform
// to a moment after the one at which the change took effect: a timebase that is being stopped is never read
// later than where it stops.
//
// Order: words are stored with release and loaded with acquire, so that who sees a word of a change also sees
// that the change has begun, and who sees its end sees all its words. The beginning is a read-modify-write
// with full ordering: no writer reads a clock before readers can see that.
#ifndef PEVRIN_CLOCKS_SHARED_READING_HPP
#define PEVRIN_CLOCKS_SHARED_READING_HPP

#include <kiv/sync.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "clocks/ns_line.hpp"

namespace pv {

// How the time is found.
enum class ReadingKind : uint64_t {
  kStanding,    // it is the anchor
  kByHostTime,  // by the host time clock
  kByMaster,    // the mutex says what the master is
  kByTarget     // a read-only timebase
};

struct Reading {
  ReadingKind kind = ReadingKind::kStanding;
  NsLine line;  // of the transform
  PVSyncTransform transform{};
};

class SharedReading {
 public:
  // For writers, one at a time. A change within a change is part of it.
  void begin() { sequence_.fetch_or(1, std::memory_order_seq_cst); }
  void end(const Reading& reading) {
    kind_.store(reading.kind, std::memory_order_release);
    lineRate_.store(reading.line.rate, std::memory_order_release);
    lineFromNs_.store(reading.line.fromNs, std::memory_order_release);
    lineToNs_.store(reading.line.toNs, std::memory_order_release);
    const auto words = std::bit_cast<Words>(reading.transform);
    for (size_t i = 0; i < kWords; ++i) words_[i].store(words.word[i], std::memory_order_release);
    sequence_.store((sequence() | 1) + 1, std::memory_order_release);
  }

  // For readers: the number, then what is wanted, then isStill. What belongs to an odd number is good for
  // nothing.
  uint64_t sequence() const { return sequence_.load(std::memory_order_acquire); }
  static bool isBeingChanged(uint64_t sequence) { return sequence & 1; }
  bool isStill(uint64_t sequence) const { return sequence_.load(std::memory_order_acquire) == sequence; }
  // The same, after a clock was read: the address is computed from the time, which keeps the processor from
  // looking at the number first.
  bool isStillAfter(int64_t timeNs, uint64_t sequence) const {
    const std::atomic<uint64_t>* number = &sequence_ + (static_cast<uint64_t>(timeNs) >> 63);
    return number->load(std::memory_order_acquire) == sequence;
  }

  ReadingKind kind() const { return kind_.load(std::memory_order_acquire); }
  NsLine line() const {
    return {lineRate_.load(std::memory_order_acquire), lineFromNs_.load(std::memory_order_acquire),
            lineToNs_.load(std::memory_order_acquire), false};
  }
  // Good by itself, being one word: while a change is made it is the rate before or after.
  double rate() const { return std::bit_cast<double>(words_[kRateWord].load(std::memory_order_acquire)); }
  PVSyncTransform transform() const {
    Words words;
    for (size_t i = 0; i < kWords; ++i) words.word[i] = words_[i].load(std::memory_order_acquire);
    return std::bit_cast<PVSyncTransform>(words);
  }

 private:
  static constexpr size_t kWords = sizeof(PVSyncTransform) / sizeof(uint64_t);
  static constexpr size_t kRateWord = offsetof(PVSyncTransform, rate) / sizeof(uint64_t);
  struct Words {
    uint64_t word[kWords];
  };
  static_assert(sizeof(Words) == sizeof(PVSyncTransform));

  std::atomic<uint64_t> sequence_{0};
  std::atomic<ReadingKind> kind_{ReadingKind::kStanding};
  std::atomic<double> lineRate_{0.0};
  std::atomic<int64_t> lineFromNs_{0};
  std::atomic<int64_t> lineToNs_{0};
  std::atomic<uint64_t> words_[kWords]{};
};

}  // namespace pv

#endif
