#include "runtime/byte_reader.hpp"
#include "runtime/byte_writer.hpp"
#include "tests/support/test.hpp"

namespace {

const std::string kBytes = "\x01\x02\x03\x04\x05\x06\x07\x08\xFF\xFE";

TEST(ByteReader, ReadsBigEndianWordsAtAnyAlignment) {
  pv::ByteReader reader(kBytes.data() + 1, kBytes.size() - 1);
  EXPECT_EQ(reader.u16(), 0x0203);
  EXPECT_EQ(reader.u24(), 0x040506u);
  EXPECT_EQ(reader.u8(), 7);
  EXPECT_EQ(reader.position(), 6u);
  EXPECT_EQ(reader.u8(), 8);
  EXPECT_EQ(reader.s16(), -2);
  EXPECT_TRUE(reader.ok() && reader.atEnd());
  EXPECT_EQ(pv::ByteReader(kBytes.data(), 8).u64(), 0x0102030405060708u);
  EXPECT_EQ(pv::ByteReader(kBytes.data() + 6, 4).s32(), 0x0708FFFE);
  EXPECT_EQ(pv::ByteReader(kBytes.data() + 8, 1).s8(), -1);
}

// One sequence of reads over every prefix: it fails exactly when the bytes do not suffice, and stays failed.
TEST(ByteReader, FailsOnceAndForAll) {
  for (size_t length = 0; length <= kBytes.size(); ++length) {
    pv::ByteReader reader(kBytes.data(), length);
    const bool hadWord = reader.has(1, 4);
    const uint32_t word = reader.u32();
    EXPECT_EQ(hadWord, length >= 4);
    EXPECT_EQ(word, length >= 4 ? 0x01020304u : 0u);
    reader.skip(3);
    char pair[2] = {'?', '?'};
    reader.copy(pair, 2);
    EXPECT_EQ(reader.ok(), length >= 9);
    EXPECT_EQ(std::string(pair, 2), length >= 9 ? kBytes.substr(7, 2) : std::string(2, '\0'));
    if (reader.ok()) continue;
    EXPECT_TRUE(reader.atEnd());
    EXPECT_EQ(reader.u8(), 0);
    EXPECT_FALSE(reader.has(0));
    EXPECT_FALSE(reader.sub(0).ok());
  }
}

TEST(ByteReader, ChecksCountsWithoutOverflow) {
  pv::ByteReader reader(kBytes.data(), 8);
  EXPECT_TRUE(reader.has(2, 4));
  EXPECT_FALSE(reader.has(3, 4));
  EXPECT_FALSE(reader.has(UINT64_MAX, 8));
  EXPECT_FALSE(reader.has(uint64_t{1} << 62, 8));
  EXPECT_EQ(reader.take(SIZE_MAX), nullptr);
  EXPECT_FALSE(reader.ok());
}

TEST(ByteReader, SubReadersKeepToTheirBounds) {
  pv::ByteReader reader(kBytes.data(), kBytes.size());
  pv::ByteReader inner = reader.sub(2);
  EXPECT_EQ(inner.u32(), 0u);
  EXPECT_FALSE(inner.ok());
  EXPECT_TRUE(reader.ok());
  EXPECT_EQ(reader.u8(), 3);
  EXPECT_FALSE(reader.sub(8).ok());
  EXPECT_FALSE(reader.ok());
  pv::ByteReader nothing;
  EXPECT_TRUE(nothing.sub(0).ok());
  EXPECT_FALSE(nothing.sub(1).ok());
}

void writeRecord(pv::ByteWriter& writer) {
  writer.u32(0)
      .u8(1)
      .u16(0x0203)
      .u24(0xFF040506)
      .u64(0x0708090A0B0C0D0E)
      .bytes("xyz", 3)
      .zeros(2)
      .bytes(nullptr, 0);
  writer.patchU32(0, static_cast<uint32_t>(writer.position()));
}

TEST(ByteWriter, WritesWhatTheReaderReads) {
  pv::ByteWriter measure(nullptr, SIZE_MAX);
  writeRecord(measure);
  ASSERT_TRUE(measure.ok());
  ASSERT_EQ(measure.position(), 23u);
  std::string bytes(measure.position(), '?');
  pv::ByteWriter writer(bytes.data(), bytes.size());
  writeRecord(writer);
  ASSERT_TRUE(writer.ok());
  EXPECT_EQ(bytes, std::string("\0\0\0\x17\1\2\3\4\5\6\7\x08\x09\x0A\x0B\x0C\x0D\x0Exyz\0\0", 23));
}

TEST(ByteWriter, NeverWritesPastItsMemory) {
  for (size_t capacity = 0; capacity < 23; ++capacity) {
    std::string bytes(30, '?');
    pv::ByteWriter writer(bytes.data(), capacity);
    writeRecord(writer);
    EXPECT_FALSE(writer.ok());
    EXPECT_EQ(writer.remaining(), 0u);
    EXPECT_EQ(bytes.substr(capacity), std::string(30 - capacity, '?'));
  }
  char bytes[8];
  EXPECT_FALSE(pv::ByteWriter(bytes, 8).u16(1).patchU32(0, 1).ok());
  EXPECT_FALSE(pv::ByteWriter(bytes, 8).u32(1).patchU32(SIZE_MAX, 1).ok());
}

}  // namespace
