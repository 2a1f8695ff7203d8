// Bits and payloads: the reader of codes, and the removal of emulation prevention bytes.
#include <kiv/error.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>

#include "runtime/bit_reader.hpp"
#include "tests/codecs/bit_writer.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace test;
using pv::BitReader;

// One thing that a reader reads: bits, an unsigned code, a signed code, or a code that it steps over.
struct Item {
  enum Kind { kBits, kUnsigned, kSigned, kSkipped } kind;
  uint32_t count;
  int64_t value;

  void write(BitWriter& writer) const {
    if (kind == kBits)
      writer.bits(static_cast<uint64_t>(value), count);
    else if (kind == kSigned)
      writer.se(value);
    else
      writer.ue(static_cast<uint64_t>(value));
  }
  int64_t read(BitReader& reader) const {
    if (kind == kBits) return reader.bits(count);
    if (kind == kUnsigned) return reader.ue<BitReader::kAnyCode>();
    if (kind == kSigned) return reader.se<BitReader::kAnyCode>();
    reader.skipCode();
    return value;
  }
};

TEST(BitReaders, ReadWhatWasWritten) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 300; ++round) {
    std::vector<Item> items;
    BitWriter writer;
    for (int i = 0; i < 60; ++i) {
      const auto kind = static_cast<Item::Kind>(random() % 4);
      const auto count = static_cast<uint32_t>(1 + random() % 32);
      auto value = static_cast<int64_t>(random() >> (64 - count));
      if (kind != Item::kBits) value = std::min<int64_t>(value, UINT32_MAX - 1);
      if (kind == Item::kSigned) value = random() % 2 == 0 ? value / 2 : -value / 2;
      items.push_back({kind, count, value});
      items.back().write(writer);
    }
    BitReader reader(writer.bytes().data(), writer.bytes().size());
    for (const Item& item : items) ASSERT_EQ(item.read(reader), item.value);
    ASSERT_TRUE(reader.ok());
    ASSERT_EQ(reader.position(), writer.bitCount());
  }
}

TEST(BitReaders, FailAtTheEndOrAtCodesThatAreTooLong) {
  for (uint32_t zeros = 0; zeros < 40; ++zeros) {
    const Bytes whole = BitWriter().bits(1, 1).code(zeros).zeros(80).bytes();
    BitReader shortCodes(whole.data(), whole.size()), anyCodes = shortCodes, skipping = shortCodes;
    for (BitReader* reader : {&shortCodes, &anyCodes, &skipping}) reader->skip(1);
    EXPECT_EQ(shortCodes.ue(), zeros <= 12 ? (1u << zeros) - 1 : 0);
    EXPECT_EQ(shortCodes.ok(), zeros <= 12);
    anyCodes.ue<BitReader::kAnyCode>();
    EXPECT_EQ(anyCodes.ok(), zeros <= 31);
    EXPECT_FALSE(shortCodes.ranOut() || anyCodes.ranOut());
    skipping.skipCode();
    EXPECT_EQ(skipping.position(), 2 * zeros + 2);
    // the same, cut before its last bit
    if (zeros == 0) continue;
    const size_t bits = 2 * zeros + 1;
    const Bytes cut = BitWriter().zeros((8 - (bits - 1) % 8) % 8).code(zeros).bytes();
    const size_t offset = (8 - (bits - 1) % 8) % 8;
    BitReader reader(cut.data(), cut.size() - 1), skipper = reader;
    reader.skip(offset);
    skipper.skip(offset);
    EXPECT_EQ(reader.ue(), 0u);
    EXPECT_EQ(reader.ranOut(), zeros <= 12) << zeros;
    skipper.skipCode();
    EXPECT_TRUE(skipper.ranOut()) << zeros;
  }
  const uint8_t bytes[] = {0xFF, 0xFF};
  BitReader reader(bytes, 2);
  EXPECT_EQ(reader.bits(15), 0x7FFFu);
  EXPECT_EQ(reader.bits(2), 0u);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.bits(1), 0u);  // and it stays so
  BitReader skipping(bytes, 2);
  skipping.skip(16);
  EXPECT_TRUE(skipping.ok());
  skipping.skip(SIZE_MAX);
  EXPECT_TRUE(skipping.ranOut());
}

// Byte by byte: an 03 behind two zero bytes goes, and counting begins anew.
Bytes withoutEmulationBytes(const Bytes& unit) {
  Bytes payload;
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    payload.push_back(byte);
  }
  return payload;
}

Bytes copied(const Bytes& unit, decltype(&KivH264Bridge_CopyDataWithEmulationPreventionBytesRemoved) copy) {
  using Data = br::Ref<const BRData>;
  const auto data = Data::adopt(BRDataCreate(nullptr, unit.data(), unit.size()));
  const auto result = Data::adopt(copy(nullptr, data.get()));
  if (!result) return {0xBA, 0xD0};
  const uint8_t* bytes = BRDataGetBytePtr(result.get());
  return Bytes(bytes, bytes + BRDataGetLength(result.get()));
}

TEST(EmulationPrevention, EveryThreeBehindTwoZerosGoes) {
  std::mt19937 random(2);
  for (int round = 0; round < 3000; ++round) {
    Bytes unit(random() % 40);
    for (uint8_t& byte : unit)
      byte = random() % 3 == 0 ? static_cast<uint8_t>(random() % 5) : random() % 4 == 0 ? 3 : 0;
    const Bytes payload = withoutEmulationBytes(unit);
    ASSERT_EQ(copied(unit, KivH264Bridge_CopyDataWithEmulationPreventionBytesRemoved), payload);
    ASSERT_EQ(copied(unit, KivHEVCBridge_CopyDataWithEmulationPreventionBytesRemoved), payload);
  }
}

TEST(EmulationPrevention, FailedCopiesAreSignalled) {
  const auto data = br::Ref<const BRData>::adopt(BRDataCreate(nullptr, "\0\0\3\1", 4));
  for (auto copy : {KivH264Bridge_CopyDataWithEmulationPreventionBytesRemoved,
                    KivHEVCBridge_CopyDataWithEmulationPreventionBytesRemoved}) {
    const uint64_t errorsBefore = KivGetErrorCount();
    EXPECT_EQ(copy(nullptr, nullptr), nullptr);
    EXPECT_EQ(KivGetErrorCount() - errorsBefore, 1u);
    EXPECT_EQ(walkAllocationFailures([&](BRAllocatorRef allocator) {
                const auto made = br::Ref<const BRData>::adopt(copy(allocator, data.get()));
                return made ? Outcome::kSucceeded : Outcome::kOutOfMemory;
              }),
              2);
  }
}

}  // namespace
