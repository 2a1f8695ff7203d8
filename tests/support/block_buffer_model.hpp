// Block buffers against a model: operations drawn from a string of bytes, each done to block buffers and to
// plain vectors that say what every byte must be. Used with random strings and by the fuzzer.
#ifndef TESTS_SUPPORT_BLOCK_BUFFER_MODEL_HPP
#define TESTS_SUPPORT_BLOCK_BUFFER_MODEL_HPP

#include <kiv/block_buffer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

namespace test {

class BlockBufferModel {
 public:
  explicit BlockBufferModel(std::span<const uint8_t> operations) : operations_(operations) {
    for (Pair& pair : pairs_) reset(pair);
  }

  void run() {
    while (!operations_.empty()) {
      step();
    }
    for (Pair& pair : pairs_) checkAll(pair);
  }

 private:
  // A byte of the model: where it really is. Buffers that share memory share these.
  using Bytes = std::vector<std::shared_ptr<uint8_t>>;
  struct Pair {
    br::Ref<PVBlockBuffer> buffer;
    Bytes bytes;
  };

  static void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "block buffer model: %s\n", what);
    std::abort();
  }

  uint8_t draw() {
    if (operations_.empty()) return 0;
    const uint8_t value = operations_.front();
    operations_ = operations_.subspan(1);
    return value;
  }
  Pair& drawPair() { return pairs_[draw() % std::size(pairs_)]; }

  void reset(Pair& pair) {
    pair.bytes.clear();
    require(PVBlockBufferCreateEmpty(nullptr, draw() % 4, 0, pair.buffer.out()) == 0, "create");
  }

  // Memory that is allocated at once or on the first write; the bytes are then set to a known value.
  void appendMemory(Pair& pair) {
    const size_t blockLength = 1 + draw() % 40, offset = draw() % blockLength;
    const size_t length = 1 + draw() % (blockLength - offset);
    const PVBlockBufferFlags flags = draw() & kPVBlockBufferAssureMemoryNowFlag;
    const size_t before = pair.bytes.size();
    require(PVBlockBufferAppendMemoryBlock(pair.buffer.get(), nullptr, blockLength, nullptr, nullptr, offset,
                                           length, flags) == 0,
            "append memory");
    if (!flags) {
      char byte;
      require(PVBlockBufferCopyDataBytes(pair.buffer.get(), before, 1, &byte) ==
                  kPVBlockBufferUnallocatedBlockErr,
              "memory came too early");
    }
    const uint8_t value = draw();
    require(PVBlockBufferFillDataBytes(static_cast<char>(value), pair.buffer.get(), before, length) == 0,
            "first fill");
    for (size_t i = 0; i < length; ++i) pair.bytes.push_back(std::make_shared<uint8_t>(value));
  }

  void appendBytes(Pair& pair) {
    std::vector<uint8_t> bytes(1 + draw() * 7u);
    const uint8_t value = draw();
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(value ^ i);
    require(KivBlockBufferAppendBytes(pair.buffer.get(), bytes.data(), bytes.size()) == 0, "append bytes");
    for (uint8_t byte : bytes) pair.bytes.push_back(std::make_shared<uint8_t>(byte));
  }

  void appendReference(Pair& pair, Pair& target) {
    const size_t offset = draw() % (target.bytes.size() + 1),
                 length = draw() % (target.bytes.size() + 2 - offset);
    const PVStatus status = PVBlockBufferAppendBufferReference(
        pair.buffer.get(), target.buffer.get(), offset, length, draw() & kPVBlockBufferDontOptimizeDepthFlag);
    const size_t available = target.bytes.size();
    if (available == 0) return require(status == kPVBlockBufferEmptyBBufErr, "empty target");
    if (offset >= available)
      return require(status == kPVBlockBufferBadOffsetParameterErr, "offset of reference");
    if (length > available - offset)
      return require(status == kPVBlockBufferBadLengthParameterErr, "length of reference");
    if (status == kPVBlockBufferBadPointerParameterErr) return;  // a circle
    require(status == 0, "append reference");
    const Bytes source = target.bytes;
    for (size_t i = offset; i < (length ? offset + length : available); ++i) pair.bytes.push_back(source[i]);
  }

  PVStatus expectedRangeStatus(const Pair& pair, size_t offset, size_t length) {
    if (pair.bytes.empty()) return kPVBlockBufferEmptyBBufErr;
    if (offset >= pair.bytes.size()) return kPVBlockBufferBadOffsetParameterErr;
    return length > pair.bytes.size() - offset ? kPVBlockBufferBadLengthParameterErr : 0;
  }

  void write(Pair& pair) {
    const size_t offset = draw() % (pair.bytes.size() + 1), length = 1 + draw() % (pair.bytes.size() + 1);
    const uint8_t value = draw();
    std::vector<uint8_t> source(length);
    for (size_t i = 0; i < length; ++i) source[i] = static_cast<uint8_t>(value + i);
    const PVStatus expected = expectedRangeStatus(pair, offset, length);
    require(PVBlockBufferReplaceDataBytes(source.data(), pair.buffer.get(), offset, length) == expected,
            "replace");
    if (expected) return;
    for (size_t i = 0; i < length; ++i) *pair.bytes[offset + i] = source[i];
    // Shared bytes may lie in the range twice: let the model win.
    for (size_t i = 0; i < length; ++i) source[i] = *pair.bytes[offset + i];
    require(PVBlockBufferReplaceDataBytes(source.data(), pair.buffer.get(), offset, length) == 0,
            "replace again");
  }

  void readRange(Pair& pair) {
    const size_t offset = draw() % (pair.bytes.size() + 1), length = 1 + draw() % (pair.bytes.size() + 1);
    std::vector<uint8_t> copy(length), temporary(length);
    char* pointer;
    const PVStatus expected = expectedRangeStatus(pair, offset, length);
    require(PVBlockBufferCopyDataBytes(pair.buffer.get(), offset, length, copy.data()) == expected, "copy");
    const PVStatus status =
        PVBlockBufferAccessDataBytes(pair.buffer.get(), offset, length, temporary.data(), &pointer);
    if (expected) return require(status != 0 && !pointer, "access past the end");
    require(status == 0, "access");
    const bool copied = pointer == reinterpret_cast<char*>(temporary.data());
    require(copied != PVBlockBufferIsRangeContiguous(pair.buffer.get(), offset, length),
            "access and contiguity");
    for (size_t i = 0; i < length; ++i) {
      require(copy[i] == *pair.bytes[offset + i], "copied byte");
      require(static_cast<uint8_t>(pointer[i]) == copy[i], "accessed byte");
    }
  }

  void makeContiguous(Pair& pair, Pair& destination) {
    if (pair.bytes.empty() || &pair == &destination) return;
    const size_t offset = draw() % pair.bytes.size(), length = 1 + draw() % (pair.bytes.size() - offset);
    const bool shares = PVBlockBufferIsRangeContiguous(pair.buffer.get(), offset, length);
    require(PVBlockBufferCreateContiguous(nullptr, pair.buffer.get(), nullptr, nullptr, offset, length, 0,
                                          destination.buffer.out()) == 0,
            "create contiguous");
    require(PVBlockBufferIsRangeContiguous(destination.buffer.get(), 0, 0), "is contiguous");
    destination.bytes.clear();
    for (size_t i = offset; i < offset + length; ++i)
      destination.bytes.push_back(shares ? pair.bytes[i] : std::make_shared<uint8_t>(*pair.bytes[i]));
  }

  void checkAll(Pair& pair) {
    require(PVBlockBufferGetDataLength(pair.buffer.get()) == pair.bytes.size(), "length");
    for (size_t offset = 0; offset < pair.bytes.size();) {
      size_t length = 0, total = 0;
      char* data = nullptr;
      require(PVBlockBufferGetDataPointer(pair.buffer.get(), offset, &length, &total, &data) == 0, "pointer");
      require(length > 0 && offset + length <= total && total == pair.bytes.size(), "length at offset");
      for (size_t i = 0; i < length; ++i)
        require(static_cast<uint8_t>(data[i]) == *pair.bytes[offset + i], "byte at pointer");
      offset += length;
    }
  }

  void step() {
    const uint8_t operation = draw();
    Pair& pair = drawPair();
    switch (operation % 8) {
      case 0:
        return pair.bytes.size() > 4000 ? reset(pair) : appendMemory(pair);
      case 1:
      case 2:
        return pair.bytes.size() > 4000 ? reset(pair) : appendReference(pair, drawPair());
      case 3:
        return write(pair);
      case 4:
        return readRange(pair);
      case 5:
        return makeContiguous(pair, drawPair());
      case 6:
        return checkAll(pair);
      case 7:
        return draw() % 4 && pair.bytes.size() < 4000 ? appendBytes(pair) : reset(pair);
    }
  }

  std::span<const uint8_t> operations_;
  Pair pairs_[4];
};

}  // namespace test

#endif
