#include <kiv/atom_writer.h>
#include <kiv/error.h>

#include "tests/files/media_bytes.hpp"
#include "tests/files/scripted_stream.hpp"

namespace {

using namespace test;

const uint8_t* uuidBytes() { return reinterpret_cast<const uint8_t*>(kUUID.data()); }

// Where a test writes to: a block buffer, or a byte stream.
class Destination {
 public:
  explicit Destination(bool isBlockBuffer) : isBlockBuffer_(isBlockBuffer) {
    EXPECT_EQ(PVBlockBufferCreateEmpty(nullptr, 0, 0, buffer_.out()), 0);
  }
  KivAtomWriter writer() {
    KivAtomWriter made;
    EXPECT_EQ(isBlockBuffer_ ? KivAtomWriterInitWithBlockBuffer(buffer_.get(), &made)
                             : KivAtomWriterInitWithByteStream(stream_.get(), &made),
              0);
    return made;
  }
  std::string bytes() { return isBlockBuffer_ ? bytesOf(buffer_.get()) : stream_->bytes; }
  PVBlockBufferRef buffer() { return buffer_.get(); }

 private:
  bool isBlockBuffer_;
  br::Ref<PVBlockBuffer> buffer_;
  ScriptedStream stream_;
};

class AtomWriter : public ::testing::TestWithParam<bool> {
 protected:
  Destination destination{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Destinations, AtomWriter, ::testing::Values(true, false),
                         [](const auto& kind) { return kind.param ? "BlockBuffer" : "ByteStream"; });

int64_t sizeOf(const KivAtomWriter& writer) {
  int64_t size = -1;
  EXPECT_EQ(KivAtomWriterGetAtomSize(&writer, &size), 0);
  return size;
}

TEST_P(AtomWriter, NestsAndShowsTheBytesAtOnce) {
  ASSERT_EQ(PVBlockBufferAppendMemoryBlock(destination.buffer(), const_cast<char*>("head"), 4,
                                           kBRAllocatorNull, nullptr, 0, 4, 0),
            0);
  KivAtomWriter movie = destination.writer(), track, header;
  const std::string before = destination.bytes();
  ASSERT_EQ(KivAtomWriterBeginAtom(&movie, code("moov"), false), 0);
  EXPECT_EQ(destination.bytes(), before + bigEndian(0, 4) + "moov");
  ASSERT_EQ(KivAtomWriterInitWithParent(&movie, &track), 0);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(KivAtomWriterBeginAtom(&track, code("trak"), i == 1), 0);
    ASSERT_EQ(KivAtomWriterInitWithParent(&track, &header), 0);
    ASSERT_EQ(KivAtomWriterBeginAtom(&header, code("tkhd"), false), 0);
    ASSERT_EQ(KivAtomWriterAppendData(&header, "abc", 3), 0);
    EXPECT_EQ(sizeOf(track), i == 1 ? 16 : 8);
    ASSERT_EQ(KivAtomWriterEndAtom(&header), 0);
    EXPECT_EQ(sizeOf(track), i == 1 ? 27 : 19);
    ASSERT_EQ(KivAtomWriterEndAtom(&track), 0);
  }
  ASSERT_EQ(KivAtomWriterAppendData(&movie, "end", 3), 0);
  ASSERT_EQ(KivAtomWriterEndAtom(&movie), 0);
  const std::string child = atom("tkhd", "abc");
  EXPECT_EQ(destination.bytes(),
            before + atom("moov", atom("trak", child) + largeAtom("trak", child) + "end"));
}

TEST_P(AtomWriter, RefusesWhatIsOutOfTurn) {
  KivAtomWriter writer = destination.writer(), child;
  int64_t value = -1;
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(KivAtomWriterEndAtom(&writer), 0);  // nothing to end
  EXPECT_EQ(KivGetErrorCount(), errorsBefore);
  EXPECT_EQ(KivAtomWriterAppendData(&writer, "x", 1), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterAppendVersionAndFlags(&writer, 0, 0), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterAppendBlockBufferData(&writer, destination.buffer()), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterInitWithParent(&writer, &child), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterGetAtomSize(&writer, &value), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterGetAtomDataSize(&writer, &value), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterGetAtomGlobalDataOffset(&writer, &value), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(value, -1);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("free"), false), 0);
  EXPECT_EQ(KivAtomWriterBeginAtom(&writer, code("free"), false), kKivAtomWriterError_AlreadyInAtom);
  EXPECT_EQ(KivAtomWriterBeginUUIDAtom(&writer, uuidBytes(), false), kKivAtomWriterError_AlreadyInAtom);
  EXPECT_EQ(KivAtomWriterAppendData(&writer, nullptr, 1), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivAtomWriterAppendData(&writer, nullptr, 0), 0);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 10u);
  EXPECT_EQ(KivAtomWriterEndAtom(&writer), 0);
  EXPECT_EQ(destination.bytes(), atom("free"));
}

TEST_P(AtomWriter, TellsOffsetsAndSizes) {
  KivAtomWriter writer = destination.writer();
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("skip"), false), 0);
  ASSERT_EQ(KivAtomWriterEndAtom(&writer), 0);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("meta"), true), 0);
  ASSERT_EQ(KivAtomWriterAppendVersionAndFlags(&writer, 0, 0), 0);
  ASSERT_EQ(KivAtomWriterAppendData(&writer, "12345", 5), 0);
  int64_t dataOffset = 0, dataSize = 0;
  ASSERT_EQ(KivAtomWriterGetAtomGlobalDataOffset(&writer, &dataOffset), 0);
  ASSERT_EQ(KivAtomWriterGetAtomDataSize(&writer, &dataSize), 0);
  EXPECT_EQ(dataOffset, 8 + 20);
  EXPECT_EQ(sizeOf(writer), 25);
  EXPECT_EQ(dataSize, 5 + 8);  // the start offset is part of it
  EXPECT_EQ(KivAtomWriterEndAtom(&writer), 0);
}

TEST_P(AtomWriter, CopiesBlockBuffersAlsoTheOneItWrites) {
  KivAtomWriter writer = destination.writer();
  br::Ref<PVBlockBuffer> data = blockBufferOf("scattered", 2), empty = blockBufferOf("", 1);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("mdat"), false), 0);
  ASSERT_EQ(KivAtomWriterAppendBlockBufferData(&writer, data.get()), 0);
  ASSERT_EQ(KivAtomWriterAppendBlockBufferData(&writer, empty.get()), 0);
  ASSERT_EQ(PVBlockBufferFillDataBytes('?', data.get(), 0, 0), 0);
  std::string wanted = "scattered";
  if (GetParam()) {
    ASSERT_EQ(KivAtomWriterAppendBlockBufferData(&writer, destination.buffer()), 0);
    wanted += bigEndian(0, 4) + "mdatscattered";
  }
  ASSERT_EQ(KivAtomWriterEndAtom(&writer), 0);
  EXPECT_EQ(destination.bytes(), atom("mdat", wanted));
}

// Writes a random tree and returns the bytes it should have become.
std::string writeRandomTree(KivAtomWriter& writer, std::mt19937& random, int depth) {
  std::string wanted;
  for (unsigned i = 0, count = random() % 4; i <= count; ++i) {
    const bool large = random() % 4 == 0, isUUID = random() % 4 == 0;
    EXPECT_EQ(isUUID ? KivAtomWriterBeginUUIDAtom(&writer, uuidBytes(), large)
                     : KivAtomWriterBeginAtom(&writer, code("atom"), large),
              0);
    std::string data;
    if (random() % 4 == 0) {
      EXPECT_EQ(KivAtomWriterAppendVersionAndFlags(&writer, 2, 0xFF000003), 0);
      data = std::string("\2\0\0\3", 4);
    }
    const std::string more(random() % (random() % 8 == 0 ? 9000 : 20), static_cast<char>('a' + i));
    EXPECT_EQ(KivAtomWriterAppendData(&writer, more.data(), more.size()), 0);
    data += more;
    if (depth > 0) {
      KivAtomWriter child;
      EXPECT_EQ(KivAtomWriterInitWithParent(&writer, &child), 0);
      data += writeRandomTree(child, random, depth - 1);
    }
    EXPECT_EQ(KivAtomWriterEndAtom(&writer), 0);
    if (isUUID) data = kUUID + data;
    const std::string type = isUUID ? "uuid" : "atom";
    wanted += large ? largeAtom(type, data) : atom(type, data);
  }
  return wanted;
}

TEST_P(AtomWriter, WritesRandomTrees) {
  std::mt19937 random(1);
  std::string wanted;
  for (int round = 0; round < 20; ++round) {
    KivAtomWriter writer = destination.writer();
    wanted += writeRandomTree(writer, random, 3);
    ASSERT_EQ(destination.bytes(), wanted);
  }
}

TEST(AtomWriters, LetTheirByteStreamGo) {
  br::Ref<PVBlockBuffer> buffer = blockBufferOf("", 1);
  KivAtomWriter writer;
  ASSERT_EQ(KivAtomWriterInitWithBlockBuffer(buffer.get(), &writer), 0);
  EXPECT_EQ(BRGetRetainCount(buffer.get()), 1u);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("free"), false), 0);
  EXPECT_EQ(BRGetRetainCount(buffer.get()), 2u);  // held by the writer's own stream
  ASSERT_EQ(KivAtomWriterEndAtom(&writer), 0);
  EXPECT_EQ(BRGetRetainCount(buffer.get()), 1u);
  EXPECT_EQ(writer.byteStream, nullptr);
}

TEST(AtomWriters, ManySmallAtomsShareBlocks) {
  br::Ref<PVBlockBuffer> buffer = blockBufferOf("", 1);
  KivAtomWriter parent, writer;
  ASSERT_EQ(KivAtomWriterInitWithBlockBuffer(buffer.get(), &parent), 0);
  ASSERT_EQ(KivAtomWriterBeginAtom(&parent, code("moov"), false), 0);
  ASSERT_EQ(KivAtomWriterInitWithParent(&parent, &writer), 0);
  for (uint32_t i = 0; i < 100000; ++i) {
    ASSERT_EQ(KivAtomWriterBeginAtom(&writer, i, false), 0);
    ASSERT_EQ(KivAtomWriterAppendData(&writer, &i, sizeof i), 0);
    ASSERT_EQ(KivAtomWriterEndAtom(&writer), 0);
  }
  ASSERT_EQ(KivAtomWriterEndAtom(&parent), 0);
  int pieces = 0;
  const size_t length = PVBlockBufferGetDataLength(buffer.get());
  EXPECT_EQ(length, 8u + 100000 * 12);
  for (size_t offset = 0, piece = 0; offset < length; offset += piece, ++pieces)
    ASSERT_EQ(PVBlockBufferGetDataPointer(buffer.get(), offset, &piece, nullptr, nullptr), 0);
  EXPECT_LT(pieces, 20);
  KivAtomStream stream;
  ASSERT_EQ(KivAtomStreamInitWithBBuf(buffer.get(), 0, 0, &stream), 0);
  ASSERT_EQ(KivAtomStreamInitWithParent(&stream, 0, &stream), 0);
  for (uint32_t i = 0; i < 100000; ++i) {
    ASSERT_EQ(stream.currentAtomType, i);
    ASSERT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), i < 99999 ? 0 : kKivAtomStreamError_NoMoreAtoms);
  }
}

TEST(AtomWriters, NeedA64BitSizeFrom4GiBOn) {
  const std::string chunk(1 << 20, 'x');
  for (bool large : {false, true}) {
    ScriptedStream stream;
    stream->keepsBytes = false;
    KivAtomWriter parent, writer;
    ASSERT_EQ(KivAtomWriterInitWithByteStream(stream.get(), &parent), 0);
    ASSERT_EQ(KivAtomWriterBeginAtom(&parent, code("moov"), true), 0);
    ASSERT_EQ(KivAtomWriterInitWithParent(&parent, &writer), 0);
    for (int64_t excess : {-1, 0}) {  // just below 2^32, and 2^32
      ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("mdat"), large), 0);
      while (sizeOf(writer) < (int64_t{1} << 32) + excess) {
        const auto missing = static_cast<size_t>((int64_t{1} << 32) + excess - sizeOf(writer));
        ASSERT_EQ(KivAtomWriterAppendData(&writer, chunk.data(), std::min(chunk.size(), missing)), 0);
      }
      const int64_t start = writer.startOffset, parentSize = sizeOf(parent), size = sizeOf(writer);
      const bool fits = large || excess < 0;
      EXPECT_EQ(KivAtomWriterEndAtom(&writer), fits ? 0 : kKivAtomWriterError_SizeTooLarge);
      EXPECT_EQ(writer.startOffset - start, fits ? size : 0);
      EXPECT_EQ(sizeOf(parent) - parentSize, fits ? size : 0);
      EXPECT_FALSE(writer.inAtom);
    }
    EXPECT_EQ(KivAtomWriterEndAtom(&parent), 0);
  }
}

TEST(AtomWriters, SurviveStreamsThatCannotPatchOrFail) {
  ScriptedStream growing(false);
  KivAtomWriter writer;
  ASSERT_EQ(KivAtomWriterInitWithByteStream(growing.get(), &writer), 0);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("free"), false), 0);
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(KivAtomWriterEndAtom(&writer), kPVBaseObjectError_ValueNotAvailable);
  EXPECT_EQ(KivGetErrorCount(), errorsBefore);
  EXPECT_FALSE(writer.inAtom);

  ScriptedStream failing;
  ASSERT_EQ(KivAtomWriterInitWithByteStream(failing.get(), &writer), 0);
  failing->failingAppend = 1;
  EXPECT_EQ(KivAtomWriterBeginUUIDAtom(&writer, uuidBytes(), true), kKivByteStreamError_WriteFailed);
  EXPECT_FALSE(writer.inAtom);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("free"), false), 0);
  failing->failingAppend = 3;
  EXPECT_EQ(KivAtomWriterAppendData(&writer, "xyz", 3), kKivByteStreamError_WriteFailed);
  EXPECT_EQ(sizeOf(writer), 8);
  ASSERT_EQ(KivAtomWriterAppendData(&writer, "abc", 3), 0);
  failing->writeStatus = -9;
  EXPECT_EQ(KivAtomWriterEndAtom(&writer), -9);
  failing->lengthStatus = -8;
  EXPECT_EQ(KivAtomWriterInitWithByteStream(failing.get(), &writer), -8);

  ScriptedStream endless;
  endless->discardedBytes = INT64_MAX - 10;
  ASSERT_EQ(KivAtomWriterInitWithByteStream(endless.get(), &writer), 0);
  ASSERT_EQ(KivAtomWriterBeginAtom(&writer, code("free"), false), 0);
  EXPECT_EQ(KivAtomWriterAppendData(&writer, "abc", 3), kKivAtomWriterError_SizeTooLarge);
}

TEST(AtomWriter, ChildOfAnEndedAtomBeginsNothing) {
  br::Ref<PVBlockBuffer> buffer;
  ASSERT_EQ(PVBlockBufferCreateEmpty(nullptr, 0, 0, buffer.out()), 0);
  KivAtomWriter parent, child;
  ASSERT_EQ(KivAtomWriterInitWithBlockBuffer(buffer.get(), &parent), 0);
  ASSERT_EQ(KivAtomWriterBeginAtom(&parent, 1, false), 0);
  ASSERT_EQ(KivAtomWriterInitWithParent(&parent, &child), 0);
  ASSERT_EQ(KivAtomWriterEndAtom(&parent), 0);
  EXPECT_EQ(KivAtomWriterBeginAtom(&child, 2, false), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(KivAtomWriterBeginAtom(&child, 2, true), kKivAtomWriterError_NotInAtom);
  EXPECT_EQ(PVBlockBufferGetDataLength(buffer.get()), 8u);
}

}  // namespace
