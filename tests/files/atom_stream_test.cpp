#include <kiv/atom_stream.h>
#include <kiv/error.h>

#include "tests/files/media_bytes.hpp"
#include "tests/files/scripted_stream.hpp"

namespace {

using namespace test;

class AtomStream : public ::testing::TestWithParam<SourceKind> {};
INSTANTIATE_TEST_SUITE_P(Sources, AtomStream, ::testing::ValuesIn(kSourceKinds),
                         [](const auto& source) { return nameOf(source.param); });

struct HeaderCase {
  const char* name;
  std::string bytes;
  uint32_t flags;
  PVStatus status;
  int64_t headerSize = 0;  // on success
  int64_t size = 0;
};

const std::vector<HeaderCase> kHeaders = {
    {"empty data", atom("free"), 0, 0, 8, 8},
    {"some data", atom("free", "xyz"), 0, 0, 8, 11},
    {"64-bit size", largeAtom("mdat", "xyz"), 0, 0, 16, 19},
    {"64-bit size, no data", largeAtom("mdat"), 0, 0, 16, 16},
    {"uuid", uuidAtom("xyz"), 0, 0, 24, 27},
    {"uuid with 64-bit size", largeUUIDAtom("xyz"), 0, 0, 32, 35},
    {"followed by another", atom("free") + "trailing", 0, 0, 8, 8},
    {"size 0 not allowed", header(0, "mdat") + "xyz", 0, kKivAtomStreamError_MalformedAtom},
    {"size 0 allowed", header(0, "mdat") + "xyz", 1, 0, 8, 11},
    {"size 0, only high flag bits", header(0, "mdat") + "xyz", 0xFFFFFF00, kKivAtomStreamError_MalformedAtom},
    {"size 0 allowed, uuid", header(0, "uuid") + kUUID + "xyz", 0xFF, 0, 24, 27},
    {"size 0 allowed, uuid cut", header(0, "uuid") + "0123", 1, kKivAtomStreamError_NotEnoughData},
    {"7 bytes", atom("free").substr(0, 7), 0, kKivAtomStreamError_NotEnoughData},
    {"size 2", header(2, "free") + "xyz", 0, kKivAtomStreamError_MalformedAtom},
    {"size 7", header(7, "free") + "xyz", 0, kKivAtomStreamError_MalformedAtom},
    {"size one past the end", header(12, "free") + "xyz", 0, kKivAtomStreamError_MalformedAtom},
    {"size 2^32 - 1", header(0xFFFFFFFF, "free") + "xyz", 0, kKivAtomStreamError_MalformedAtom},
    {"64-bit size cut", largeAtom("mdat").substr(0, 15), 0, kKivAtomStreamError_NotEnoughData},
    {"64-bit size 0", largeHeader(0, "mdat"), 1, kKivAtomStreamError_MalformedAtom},
    {"64-bit size below its header", largeHeader(15, "mdat"), 0, kKivAtomStreamError_MalformedAtom},
    {"64-bit size one past the end", largeHeader(17, "mdat"), 0, kKivAtomStreamError_MalformedAtom},
    {"64-bit size 2^63 - 1", largeHeader(INT64_MAX, "mdat"), 0, kKivAtomStreamError_MalformedAtom},
    {"64-bit size 2^63", largeHeader(uint64_t{1} << 63, "mdat"), 0, kKivAtomStreamError_MalformedAtom},
    {"64-bit size 2^64 - 1", largeHeader(UINT64_MAX, "mdat"), 0, kKivAtomStreamError_MalformedAtom},
    {"uuid cut", uuidAtom().substr(0, 23), 0, kKivAtomStreamError_NotEnoughData},
    {"uuid of size 8", header(8, "uuid") + kUUID, 0, kKivAtomStreamError_MalformedAtom},
    {"uuid of size 23", header(23, "uuid") + kUUID, 0, kKivAtomStreamError_MalformedAtom},
    {"uuid of 64-bit size 20", largeHeader(20, "uuid") + kUUID, 0, kKivAtomStreamError_MalformedAtom},
    {"uuid with 64-bit size, cut", largeUUIDAtom().substr(0, 31), 0, kKivAtomStreamError_NotEnoughData},
};

void expectStandsOn(const KivAtomStream& stream, const HeaderCase& wanted) {
  int64_t headerSize = 0, size = 0, dataLength = 0;
  EXPECT_EQ(KivAtomStreamGetCurrentAtomHeaderSize(&stream, &headerSize), 0);
  EXPECT_EQ(KivAtomStreamGetCurrentAtomGlobalOffset(&stream, nullptr, &size), 0);
  EXPECT_EQ(KivAtomStreamGetCurrentAtomTypeAndDataLength(&stream, nullptr, &dataLength), 0);
  EXPECT_EQ(headerSize, wanted.headerSize);
  EXPECT_EQ(size, wanted.size);
  EXPECT_EQ(dataLength, size - headerSize);
}

TEST_P(AtomStream, FirstHeaderIsTakenOrRefusedInSilence) {
  for (const HeaderCase& c : kHeaders) {
    SCOPED_TRACE(c.name);
    Source source(GetParam(), c.bytes);
    KivAtomStream stream;
    const uint64_t errorsBefore = KivGetErrorCount();
    ASSERT_EQ(source.open(stream, c.flags), c.status);
    EXPECT_EQ(KivGetErrorCount(), errorsBefore);
    if (c.status == 0) expectStandsOn(stream, c);
  }
}

TEST_P(AtomStream, LaterHeadersAreJudgedAlikeButMalformedOnesAreSignalled) {
  for (const HeaderCase& c : kHeaders) {
    SCOPED_TRACE(c.name);
    const unsigned signals = c.status == kKivAtomStreamError_MalformedAtom;
    Source source(GetParam(), atom("wide") + c.bytes);
    KivAtomStream stream;
    ASSERT_EQ(source.open(stream, c.flags), 0);
    uint64_t errorsBefore = KivGetErrorCount();
    ASSERT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), c.status);
    EXPECT_EQ(KivGetErrorCount() - errorsBefore, signals);
    expectStandsOn(stream, c.status == 0 ? c : kHeaders[0]);  // a failure leaves it on 'wide'

    Source nested(GetParam(), atom("moov", "skip" + c.bytes) + atom("free", "more"));
    KivAtomStream parent, child{};
    ASSERT_EQ(nested.open(parent, c.flags), 0);
    errorsBefore = KivGetErrorCount();
    ASSERT_EQ(KivAtomStreamInitWithParent(&parent, 4, &child), c.status);
    EXPECT_EQ(KivGetErrorCount() - errorsBefore, signals);
    if (c.status == 0) expectStandsOn(child, c);
  }
}

// What a walk saw, one line per atom: depth, type, global offset, size; and the status that ended each level.
std::string walk(const KivAtomStream& first) {
  std::string seen;
  std::vector<KivAtomStream> levels = {first};
  while (!levels.empty()) {
    PVFourCharCode type;
    int64_t offset, size;
    KivAtomStreamGetCurrentAtomTypeAndDataLength(&levels.back(), &type, nullptr);
    KivAtomStreamGetCurrentAtomGlobalOffset(&levels.back(), &offset, &size);
    seen += std::string(levels.size(), '.') + bigEndian(type, 4) + " " + std::to_string(offset) + " " +
            std::to_string(size) + "\n";
    if (type == code("moov") || type == code("trak")) {
      KivAtomStream child;
      const PVStatus status = KivAtomStreamInitWithParent(&levels.back(), 0, &child);
      if (status == 0) {
        levels.push_back(child);
        continue;
      }
      seen += "no child: " + std::to_string(status) + "\n";
    }
    while (!levels.empty()) {
      const PVStatus status = KivAtomStreamAdvanceToNextAtom(&levels.back());
      if (status == 0) break;
      seen += "end: " + std::to_string(status) + "\n";
      levels.pop_back();
    }
  }
  return seen;
}

std::string walk(SourceKind kind, const std::string& bytes, uint32_t flags) {
  Source source(kind, bytes);
  KivAtomStream stream;
  const PVStatus status = source.open(stream, flags);
  return status == 0 ? walk(stream) : "refused: " + std::to_string(status) + "\n";
}

const std::string kTree =
    atom("ftyp", "isom") +
    atom("moov", atom("mvhd", "12345678") + uuidAtom() +
                     atom("trak", largeAtom("tkhd", "abc") + atom("free")) + atom("trak")) +
    largeUUIDAtom("zz") + header(0, "mdat") + "media";

TEST_P(AtomStream, WalksATree) {
  EXPECT_EQ(walk(GetParam(), kTree, kKivAtomStreamFlag_AllowZeroSize),
            ".ftyp 0 12\n"
            ".moov 12 91\n"
            "..mvhd 20 16\n"
            "..uuid 36 24\n"
            "..trak 60 35\n"
            "...tkhd 68 19\n"
            "...free 87 8\n"
            "end: -12890\n"
            "..trak 95 8\n"
            "no child: -12893\n"
            "end: -12890\n"
            ".uuid 103 34\n"
            ".mdat 137 13\n"
            "end: -12890\n");
}

TEST_P(AtomStream, EveryPrefixReadsTheSameFromEverySource) {
  for (size_t length = 1; length <= kTree.size(); ++length)
    for (uint32_t flags : {0u, 1u})
      ASSERT_EQ(walk(GetParam(), kTree.substr(0, length), flags),
                walk(SourceKind::kMemory, kTree.substr(0, length), flags))
          << length;
}

TEST_P(AtomStream, ReadsInsideTheDataOnly) {
  Source source(GetParam(), atom("free", "0123456789") + atom("skip", "after"));
  KivAtomStream stream;
  ASSERT_EQ(source.open(stream), 0);
  const struct {
    int64_t offset;
    size_t length;
    const char* data;  // null: out of bounds
  } cases[] = {{0, 10, "0123456789"},
               {3, 4, "3456"},
               {9, 1, "9"},
               {9, 0, ""},
               {8, 4, nullptr},
               {0, 11, nullptr},
               {10, 0, nullptr},
               {10, 1, nullptr},
               {-1, 1, nullptr},
               {1, SIZE_MAX, nullptr},
               {INT64_MAX, 1, nullptr},
               {INT64_MIN, 1, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.offset) + " " + std::to_string(c.length));
    char bytes[16] = {};
    const PVStatus wanted = c.data ? 0 : kKivAtomStreamError_OutOfBounds;
    ASSERT_EQ(KivAtomStreamReadCurrentAtomData(&stream, c.offset, c.length, bytes), wanted);
    EXPECT_EQ(std::string(bytes), c.data ? c.data : "");
    br::Ref<PVBlockBuffer> buffer;
    ASSERT_EQ(KivAtomStreamReadCurrentAtomDataAndCreateBBuf(&stream, c.offset, c.length, buffer.out()),
              wanted);
    if (wanted != 0) {
      EXPECT_FALSE(buffer);
      continue;
    }
    EXPECT_TRUE(PVBlockBufferIsRangeContiguous(buffer.get(), 0, 0));
    EXPECT_EQ(bytesOf(buffer.get()), c.length ? c.data : std::string("0123456789").substr(c.offset));
  }
  br::Ref<PVBlockBuffer> whole;
  ASSERT_EQ(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, whole.out()), 0);
  EXPECT_TRUE(PVBlockBufferIsRangeContiguous(whole.get(), 0, 0));
  EXPECT_EQ(bytesOf(whole.get()), atom("free", "0123456789"));
}

TEST_P(AtomStream, TellsVersionFlagsAndExtendedType) {
  Source source(GetParam(), atom("mvhd", "\x01\xAB\xCD\xEF") + uuidAtom("abc"));
  KivAtomStream stream;
  ASSERT_EQ(source.open(stream), 0);
  uint8_t version = 0, uuid[16];
  uint32_t flags = 0;
  ASSERT_EQ(KivAtomStreamGetCurrentAtomVersionAndFlags(&stream, &version, &flags), 0);
  EXPECT_EQ(version, 1);
  EXPECT_EQ(flags, 0xABCDEFu);
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(KivAtomStreamGetCurrentAtomUUIDType(&stream, uuid), kKivAtomStreamError_NotUUIDAtom);
  EXPECT_EQ(KivGetErrorCount(), errorsBefore);
  ASSERT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), 0);
  ASSERT_EQ(KivAtomStreamGetCurrentAtomUUIDType(&stream, uuid), 0);
  EXPECT_EQ(std::string(uuid, uuid + 16), kUUID);
  EXPECT_EQ(KivAtomStreamGetCurrentAtomVersionAndFlags(&stream, &version, &flags),
            kKivAtomStreamError_OutOfBounds);
}

int64_t offsetOf(const KivAtomStream& stream) {
  int64_t offset = -1;
  EXPECT_EQ(KivAtomStreamGetCurrentAtomGlobalOffset(&stream, &offset, nullptr), 0);
  return offset;
}

TEST_P(AtomStream, FindsTypesOnItsLevel) {
  Source source(GetParam(), atom("aaaa") + atom("bbbb", "1") + atom("aaaa", "2") + header(3, "bad!"));
  KivAtomStream stream;
  ASSERT_EQ(source.open(stream), 0);
  EXPECT_EQ(KivAtomStreamPositionAtFirstAtomWithType(&stream, code("aaaa")), 0);
  EXPECT_EQ(offsetOf(stream), 0);
  EXPECT_EQ(KivAtomStreamAdvanceToNextAtomWithType(&stream, code("aaaa")), 0);
  EXPECT_EQ(offsetOf(stream), 17);
  EXPECT_EQ(KivAtomStreamPositionAtFirstAtomWithType(&stream, code("bbbb")),
            kKivAtomStreamError_MalformedAtom);
  EXPECT_EQ(offsetOf(stream), 17);
}

TEST_P(AtomStream, FollowsPathsOrStaysWhereItIs) {
  const std::string track = atom("trak", atom("tkhd") + atom("mdia", atom("mdhd") + atom("hdlr", "vide")));
  Source source(GetParam(), atom("free") + atom("moov", atom("mvhd") + track) + atom("moov", atom("trak")));
  const PVFourCharCode path[] = {code("moov"), code("trak"), code("mdia"), code("hdlr")};
  KivAtomStream stream, positioned;
  ASSERT_EQ(source.open(stream), 0);
  positioned = stream;
  ASSERT_EQ(KivAtomStreamPositionViaAtomPath(&positioned, 4, path), 0);
  char data[4];
  ASSERT_EQ(KivAtomStreamReadCurrentAtomData(&positioned, 0, 4, data), 0);
  EXPECT_EQ(std::string(data, 4), "vide");

  ASSERT_EQ(KivAtomStreamPositionViaAtomPath(&stream, 1, path), 0);
  KivAtomStream advanced = stream;
  ASSERT_EQ(KivAtomStreamAdvanceViaAtomPath(&advanced, 3, path + 1), 0);
  EXPECT_EQ(offsetOf(advanced), offsetOf(positioned));

  ASSERT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), 0);  // the second 'moov' has no 'mdia'
  const int64_t before = offsetOf(stream);
  EXPECT_EQ(KivAtomStreamAdvanceViaAtomPath(&stream, 3, path + 1), kKivAtomStreamError_NotEnoughData);
  EXPECT_EQ(KivAtomStreamPositionViaAtomPath(&stream, 4, path), kKivAtomStreamError_NotEnoughData);
  EXPECT_EQ(KivAtomStreamAdvanceViaAtomPath(&stream, 1, path), kKivAtomStreamError_NoMoreAtoms);
  EXPECT_EQ(KivAtomStreamAdvanceViaAtomPath(&stream, 0, path), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(offsetOf(stream), before);
}

TEST(AtomStreams, DescendAThousandLevels) {
  std::string bytes;
  for (int i = 0; i < 1000; ++i) bytes = atom("nest", bytes);
  const std::vector<PVFourCharCode> path(1000, code("nest"));
  KivAtomStream stream;
  ASSERT_EQ(KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), 0, 0, &stream), 0);
  EXPECT_EQ(KivAtomStreamAdvanceViaAtomPath(&stream, 1000, path.data()), kKivAtomStreamError_NotEnoughData);
  ASSERT_EQ(KivAtomStreamPositionViaAtomPath(&stream, 1000, path.data()), 0);
  EXPECT_EQ(offsetOf(stream), 8 * 999);
}

TEST(AtomStreams, ReportGlobalOffsetsOfMemoryThatStandsElsewhere) {
  const std::string bytes = atom("moov", atom("mvhd", "data"));
  const int64_t length = static_cast<int64_t>(bytes.size());
  for (int64_t base : {int64_t{1000}, int64_t{-50}, INT64_MAX - length, INT64_MIN}) {
    SCOPED_TRACE(base);
    KivAtomStream stream, child;
    ASSERT_EQ(KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), base, 0, &stream), 0);
    ASSERT_EQ(KivAtomStreamInitWithParent(&stream, 0, &child), 0);
    int64_t offset = 0;
    ASSERT_EQ(KivAtomStreamGetCurrentAtomDataGlobalOffset(&child, 4, &offset), 0);
    EXPECT_EQ(offset, base + 20);
    EXPECT_EQ(KivAtomStreamGetCurrentAtomDataGlobalOffset(&child, 5, &offset),
              kKivAtomStreamError_OutOfBounds);
    ASSERT_EQ(KivAtomStreamGetCurrentAtomOffsetInParent(&child, &offset), 0);
    EXPECT_EQ(offset, 0);
    char data[4];
    ASSERT_EQ(KivAtomStreamReadCurrentAtomData(&child, 0, 4, data), 0);
    EXPECT_EQ(std::string(data, 4), "data");
    br::Ref<PVBlockBuffer> copy;
    ASSERT_EQ(KivAtomStreamReadCurrentAtomDataAndCreateBBuf(&child, 1, 3, copy.out()), 0);
    EXPECT_EQ(bytesOf(copy.get()), "ata");
  }
  KivAtomStream stream;
  EXPECT_EQ(KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), INT64_MAX - length + 1, 0, &stream),
            kKivAtomStreamError_NotEnoughData);
}

TEST(AtomStreams, CheckWhereTheyStart) {
  const std::string bytes = atom("free", "x") + atom("moov", atom("mvhd"));
  Source source(SourceKind::kStreamOverTinyBlocks, bytes);
  const int64_t length = static_cast<int64_t>(bytes.size());
  KivAtomStream stream;
  uint64_t errorsBefore = KivGetErrorCount();
  for (int64_t start : {int64_t{-1}, length, length + 1, INT64_MAX, INT64_MIN}) {
    EXPECT_EQ(KivAtomStreamInitWithByteStream(source.byteStream(), start, 0, &stream),
              kKivAtomStreamError_NotEnoughData);
    EXPECT_EQ(KivAtomStreamInitWithBBuf(source.blockBuffer(), start, 0, &stream),
              kKivAtomStreamError_NotEnoughData);
  }
  EXPECT_EQ(KivAtomStreamInitWithMemoryBlock(bytes.data(), 0, 0, 0, &stream), kKivAtomStreamError_ShortRead);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 11u);

  PVFourCharCode type = 0;
  int64_t size = 0;
  ASSERT_EQ(KivAtomUtilityGetAtomTypeAndLengthInByteStream(source.byteStream(), 9, 0, &type, &size), 0);
  EXPECT_EQ(type, code("moov"));
  EXPECT_EQ(size, 16);
  ASSERT_EQ(KivAtomUtilityGetAtomTypeAndLengthInBBuf(source.blockBuffer(), 17, 0, &type, &size), 0);
  EXPECT_EQ(type, code("mvhd"));
  // the range ends where the caller says, or where the stream does
  auto sized = [&](int64_t rangeSize) {
    return KivAtomUtilityGetAtomTypeAndLengthInByteStreamWithSize(source.byteStream(), 9, rangeSize, 0, &type,
                                                                  &size);
  };
  EXPECT_EQ(sized(16), 0);
  EXPECT_EQ(sized(INT64_MAX), 0);
  EXPECT_EQ(sized(15), kKivAtomStreamError_MalformedAtom);
  EXPECT_EQ(sized(7), kKivAtomStreamError_NotEnoughData);
  EXPECT_EQ(sized(-1), kKivAtomStreamError_NotEnoughData);
}

TEST(AtomStreams, ChildrenStartInsideTheParentsData) {
  const std::string bytes = atom("moov", atom("mvhd"));
  KivAtomStream parent, child;
  ASSERT_EQ(KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), 0, 0, &parent), 0);
  for (auto [offset, signals] :
       {std::pair<int64_t, uint64_t>{-1, 1}, {9, 1}, {INT64_MAX, 1}, {8, 0}, {1, 0}}) {
    const uint64_t errorsBefore = KivGetErrorCount();
    EXPECT_EQ(KivAtomStreamInitWithParent(&parent, offset, &child), kKivAtomStreamError_NotEnoughData)
        << offset;
    EXPECT_EQ(KivGetErrorCount() - errorsBefore, signals) << offset;
  }
}

TEST(AtomStreams, PassOnWhatTheSourceSays) {
  ScriptedStream source;
  source->bytes = atom("moov", atom("mvhd", "data")) + atom("free");
  KivAtomStream stream, child;
  source->lengthStatus = -5;
  EXPECT_EQ(KivAtomStreamInitWithByteStream(source.get(), 0, 0, &stream), -5);
  source->lengthStatus = 0;
  source->readStatus = -6;
  EXPECT_EQ(KivAtomStreamInitWithByteStream(source.get(), 0, 0, &stream), -6);
  source->readStatus = 0;
  ASSERT_EQ(KivAtomStreamInitWithByteStream(source.get(), 0, 0, &stream), 0);
  ASSERT_EQ(KivAtomStreamInitWithParent(&stream, 0, &child), 0);
  source->readStatus = -7;
  EXPECT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), -7);
  char data[4];
  EXPECT_EQ(KivAtomStreamReadCurrentAtomData(&child, 0, 4, data), -7);
  br::Ref<PVBlockBuffer> buffer;
  EXPECT_EQ(KivAtomStreamReadCurrentAtomAndCreateBBuf(&child, buffer.out()),
            kPVBaseObjectError_ValueNotAvailable);
}

TEST(AtomStreams, FindThatTheirFileShrank) {
  Source source(SourceKind::kStreamOverFile, atom("mdat", std::string(40000, 'x')) + atom("free", "tail"));
  KivAtomStream stream;
  ASSERT_EQ(source.open(stream), 0);
  source.file().resize(30000);
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), kKivAtomStreamError_ShortRead);
  std::string data(20000, '\0');
  EXPECT_EQ(KivAtomStreamReadCurrentAtomData(&stream, 10000, 20000, data.data()),
            kKivAtomStreamError_ShortRead);
  br::Ref<PVBlockBuffer> buffer;
  EXPECT_EQ(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, buffer.out()), kKivAtomStreamError_ShortRead);
  EXPECT_FALSE(buffer);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 3u);
  EXPECT_EQ(KivAtomStreamReadCurrentAtomData(&stream, 9000, 20000, data.data()), 0);
}

TEST(AtomStreams, AreHarmlessWhenZeroed) {
  KivAtomStream stream{}, child;
  char data[4];
  br::Ref<PVBlockBuffer> buffer;
  EXPECT_EQ(KivAtomStreamAdvanceToNextAtom(&stream), kKivAtomStreamError_NoMoreAtoms);
  EXPECT_EQ(KivAtomStreamReadCurrentAtomData(&stream, 0, 1, data), kKivAtomStreamError_OutOfBounds);
  EXPECT_EQ(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, buffer.out()),
            kKivAtomStreamError_OutOfBounds);
  EXPECT_EQ(KivAtomStreamInitWithParent(&stream, 0, &child), kKivAtomStreamError_NotEnoughData);
  EXPECT_EQ(KivAtomStreamAdvanceToNextAtom(nullptr), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivAtomStreamInitWithBBuf(nullptr, 0, 0, &stream), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivAtomStreamInitWithByteStream(nullptr, 0, 0, &stream), kPVBaseObjectError_ParamErr);
}

}  // namespace
