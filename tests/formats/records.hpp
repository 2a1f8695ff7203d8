// Sample description records as byte strings, and what tests ask of them.
#ifndef TESTS_FORMATS_RECORDS_HPP
#define TESTS_FORMATS_RECORDS_HPP

#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>

#include "tests/files/media_bytes.hpp"
#include "tests/support/objects.hpp"

namespace test {

using Description = br::Ref<PVFormatDescription>;
using Record = br::Ref<PVBlockBuffer>;

inline const uint8_t* bytesOf(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}
inline uint8_t* bytesOf(std::string& text) { return reinterpret_cast<uint8_t*>(text.data()); }

// A record with an honest size.
inline std::string record(const std::string& format, const std::string& fields,
                          uint16_t dataReferenceIndex = 1) {
  return atom(format, std::string(6, '\0') + bigEndian(dataReferenceIndex, 2) + fields);
}

inline std::string textOf(PVBlockBufferRef buffer) {
  std::string text(PVBlockBufferGetDataLength(buffer), '\0');
  if (!text.empty()) {
    EXPECT_EQ(PVBlockBufferCopyDataBytes(buffer, 0, text.size(), text.data()), 0);
  }
  return text;
}

inline std::string textOf(BRTypeRef data) {
  EXPECT_TRUE(data && BRGetTypeID(data) == BRDataGetTypeID());
  auto* bytes = static_cast<BRDataRef>(data);
  return std::string(reinterpret_cast<const char*>(BRDataGetBytePtr(bytes)), BRDataGetLength(bytes));
}

// The text cut in two pieces that are not next to each other in memory; it must outlive the buffer.
inline Record inTwoPieces(std::string& text) {
  Record buffer;
  const size_t half = text.size() / 2;
  EXPECT_EQ(PVBlockBufferCreateEmpty(nullptr, 4, 0, buffer.out()), 0);
  for (auto [offset, length] : {std::pair{size_t{0}, half}, std::pair{half, text.size() - half}}) {
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, length, nullptr, nullptr, 0, length,
                                             kPVBlockBufferAssureMemoryNowFlag),
              0);
    EXPECT_EQ(PVBlockBufferReplaceDataBytes(text.data() + offset, buffer.get(), offset, length), 0);
  }
  return buffer;
}

// Calls with every cut of a record, its size made honest.
template <class Read>
void forEveryCut(const std::string& whole, Read read) {
  for (size_t length = 0; length < whole.size(); ++length) {
    std::string cut = whole.substr(0, length);
    if (length >= 4) cut.replace(0, 4, bigEndian(length, 4));
    cut.shrink_to_fit();
    read(cut, length);
  }
}

// Reads a record with an allocator that fails one request after the other. Returns their number.
template <class Action>
int walkReadFailures(Action action) {
  return walkAllocationFailures([&](BRAllocatorRef allocator) {
    const PVStatus status = action(allocator);
    EXPECT_TRUE(status == 0 || status == -12711 || status == -12713) << status;
    return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

}  // namespace test

#endif
