#include <kiv/block_buffer.h>
#include <kiv/byte_stream.h>
#include <kiv/error.h>
#include <sys/stat.h>

#include "tests/files/media_bytes.hpp"
#include "tests/files/scripted_stream.hpp"

namespace {

using namespace test;

using Stream = br::Ref<PVBaseObject>;

std::string numbered(size_t length) {
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
  return bytes;
}

int64_t lengthOf(const Stream& stream) {
  int64_t length = -1;
  EXPECT_EQ(KivByteStreamGetTotalLength(stream.get(), &length), 0);
  return length;
}

std::string read(const Stream& stream, int64_t offset, size_t length) {
  std::string bytes(length, '?');
  size_t count = 0;
  EXPECT_EQ(KivByteStreamRead(stream.get(), offset, length, bytes.data(), &count), 0);
  bytes.resize(count);
  return bytes;
}

class ByteStream : public ::testing::TestWithParam<SourceKind> {};
INSTANTIATE_TEST_SUITE_P(Sources, ByteStream,
                         ::testing::Values(SourceKind::kStreamOverMemory, SourceKind::kStreamOverTinyBlocks,
                                           SourceKind::kStreamOverFile),
                         [](const auto& source) { return nameOf(source.param); });

TEST_P(ByteStream, ReadsWhatIsThere) {
  const std::string bytes = numbered(100000);
  Source source(GetParam(), bytes);
  const Stream stream = Stream::retain(source.byteStream());
  EXPECT_EQ(lengthOf(stream), 100000);
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    const size_t offset = random() % 100100, length = random() % (round % 20 == 0 ? 90000 : 40);
    const std::string wanted = offset < bytes.size() ? bytes.substr(offset, length) : "";
    ASSERT_EQ(read(stream, static_cast<int64_t>(offset), length), wanted) << offset << " " << length;
    if (round % 10 != 0) continue;
    br::Ref<PVBlockBuffer> buffer;
    ASSERT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream.get(), static_cast<int64_t>(offset), length,
                                                    buffer.out()),
              0);
    ASSERT_EQ(bytesOf(buffer.get()), wanted);
  }
  br::Ref<PVBlockBuffer> tail;
  ASSERT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream.get(), 99990, SIZE_MAX, tail.out()), 0);
  EXPECT_EQ(bytesOf(tail.get()), bytes.substr(99990));
  size_t count = 1;
  EXPECT_EQ(KivByteStreamRead(stream.get(), INT64_MAX, SIZE_MAX, &count, &count), 0);
  EXPECT_EQ(count, 0u);
}

TEST_P(ByteStream, RefusesBadArgumentsAndWrites) {
  Source source(GetParam(), "bytes");
  KivByteStreamRef stream = source.byteStream();
  char bytes[4];
  int64_t length;
  br::Ref<PVBlockBuffer> buffer;
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(KivByteStreamRead(nullptr, 0, 4, bytes, nullptr), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamRead(stream, -1, 4, bytes, nullptr), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamRead(stream, 0, 4, nullptr, nullptr), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream, -1, 4, buffer.out()), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream, 0, 4, nullptr), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamGetTotalLength(nullptr, &length), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamGetTotalLength(stream, nullptr), kKivByteStreamError_ParamErr);
  EXPECT_EQ(KivByteStreamAppend(stream, "x", 1), kPVBaseObjectError_ValueNotAvailable);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 8u);
  EXPECT_EQ(KivByteStreamWriteAtOffset(stream, 0, "x", 1), kPVBaseObjectError_ValueNotAvailable);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 8u);  // that one is no error
  EXPECT_TRUE(PVBaseObjectIsMemberOfClass(stream, KivByteStreamGetClassID()));
  EXPECT_EQ(BRGetTypeID(stream), KivByteStreamGetTypeID());
}

TEST(ByteStreams, MissingOperationsAreNotAvailable) {
  ScriptedStream stream;
  br::Ref<PVBlockBuffer> buffer;
  EXPECT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream.get(), 0, 1, buffer.out()),
            kPVBaseObjectError_ValueNotAvailable);
}

TEST(ByteStreams, OverBlockBuffersLendWhatTheyRead) {
  Source source(SourceKind::kStreamOverTinyBlocks, "abcdefghi");
  br::Ref<PVBlockBuffer> part;
  ASSERT_EQ(KivByteStreamReadAndCreateBlockBuffer(source.byteStream(), 2, 5, part.out()), 0);
  ASSERT_EQ(PVBlockBufferFillDataBytes('x', source.blockBuffer(), 0, 0), 0);
  EXPECT_EQ(bytesOf(part.get()), "xxxxx");
}

// Random appends and writes against a string, with reads in between.
void writeAgainstModel(const Stream& stream, std::string model) {
  std::mt19937 random(3);
  for (int round = 0; round < 2000; ++round) {
    const std::string piece = numbered(1 + random() % (round % 50 == 0 ? 20000 : 30));
    if (random() % 2 == 0) {
      ASSERT_EQ(KivByteStreamAppend(stream.get(), piece.data(), piece.size()), 0);
      model += piece;
    } else {
      const size_t offset = random() % (model.size() + 10);
      const bool fits = offset + piece.size() <= model.size();
      ASSERT_EQ(
          KivByteStreamWriteAtOffset(stream.get(), static_cast<int64_t>(offset), piece.data(), piece.size()),
          fits ? 0 : kKivByteStreamError_OutOfRange);
      if (fits) model.replace(offset, piece.size(), piece);
    }
    const size_t at = random() % model.size();
    ASSERT_EQ(read(stream, static_cast<int64_t>(at), 50), model.substr(at, 50));
    ASSERT_EQ(lengthOf(stream), static_cast<int64_t>(model.size()));
  }
  EXPECT_EQ(read(stream, 0, model.size() + 1), model);
  EXPECT_EQ(KivByteStreamWriteAtOffset(stream.get(), INT64_MAX, "x", 1), kKivByteStreamError_OutOfRange);
}

TEST(ByteStreams, OverBlockBuffersWrite) {
  br::Ref<PVBlockBuffer> buffer = blockBufferOf("some bytes", 4);
  Stream stream;
  ASSERT_EQ(KivByteStreamCreateWritableForBlockBuffer(nullptr, buffer.get(), stream.out()), 0);
  writeAgainstModel(stream, "some bytes");
  // what others append in between stays theirs, also the room behind it in their block
  char lent[] = "lent room";
  ASSERT_EQ(PVBlockBufferAppendMemoryBlock(buffer.get(), lent, 9, kBRAllocatorNull, nullptr, 0, 4, 0), 0);
  ASSERT_EQ(KivByteStreamAppend(stream.get(), "own", 3), 0);
  EXPECT_EQ(read(stream, lengthOf(stream) - 7, 10), "lentown");
  EXPECT_STREQ(lent, "lent room");
}

TEST(ByteStreams, BlocksOfAppendedBytesOutliveTheBuffer) {
  br::Ref<PVBlockBuffer> buffer = blockBufferOf("abc", 1), part, rest;
  Stream stream;
  ASSERT_EQ(KivByteStreamCreateWritableForBlockBuffer(nullptr, buffer.get(), stream.out()), 0);
  ASSERT_EQ(KivByteStreamAppend(stream.get(), "defgh", 5), 0);
  ASSERT_EQ(PVBlockBufferCreateWithBufferReference(nullptr, buffer.get(), 4, 3, 0, part.out()), 0);
  PVBlockBufferRef origin;  // the member of the buffer that holds the block
  ASSERT_EQ(KivBlockBufferGetDataPointerAndOrigin(part.get(), 0, nullptr, nullptr, nullptr, &origin, nullptr),
            0);
  rest = br::Ref<PVBlockBuffer>::retain(origin);
  stream = nullptr;
  buffer = nullptr;
  ASSERT_EQ(KivBlockBufferAppendBytes(rest.get(), "ij", 2), 0);
  EXPECT_EQ(bytesOf(part.get()), "efg");
  EXPECT_EQ(bytesOf(rest.get()), "defghij");
}

TEST(ByteStreams, OverFilesWrite) {
  TemporaryFile file("some bytes");
  Stream stream;
  ASSERT_EQ(KivByteStreamCreateForFile(nullptr, file.path(), kKivByteStreamFile_Writable, stream.out()), 0);
  writeAgainstModel(stream, "some bytes");
  ASSERT_EQ(
      KivByteStreamCreateForFile(nullptr, file.path(),
                                 kKivByteStreamFile_Writable | kKivByteStreamFile_Truncate, stream.out()),
      0);
  EXPECT_EQ(lengthOf(stream), 0);
}

TEST(ByteStreams, RefuseWhatIsNoReadableFile) {
  const std::string folder = ::testing::TempDir(), pipe = folder + "pevrin-pipe",
                    missing = folder + "pevrin-missing";
  unlink(pipe.c_str());
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const struct {
    std::string path;
    uint32_t flags;
    PVStatus status;
  } cases[] = {{missing, 0, kKivByteStreamError_NotFound},
               {missing, kKivByteStreamFile_Writable, kKivByteStreamError_NotFound},
               {missing + "/below", 0, kKivByteStreamError_NotFound},
               {folder, 0, kKivByteStreamError_NotRegularFile},
               {folder, kKivByteStreamFile_Writable, kKivByteStreamError_NotRegularFile},
               {pipe, 0, kKivByteStreamError_NotRegularFile},
               {pipe, kKivByteStreamFile_Writable, kKivByteStreamError_NotRegularFile},
               {"/dev/null", 0, kKivByteStreamError_NotRegularFile},
               {std::string(5000, 'x'), 0, kKivByteStreamError_OpenFailed},
               {missing, kKivByteStreamFile_Create, kKivByteStreamError_ParamErr},
               {missing, 1u << 31, kKivByteStreamError_ParamErr}};
  for (const auto& c : cases) {
    Stream stream;
    EXPECT_EQ(KivByteStreamCreateForFile(nullptr, c.path.c_str(), c.flags, stream.out()), c.status) << c.path;
    EXPECT_FALSE(stream);
  }
  unlink(pipe.c_str());
  Stream stream;
  EXPECT_EQ(KivByteStreamCreateForFile(nullptr, nullptr, 0, stream.out()), kKivByteStreamError_ParamErr);
  ASSERT_EQ(KivByteStreamCreateForFile(nullptr, missing.c_str(),
                                       kKivByteStreamFile_Writable | kKivByteStreamFile_Create, stream.out()),
            0);
  EXPECT_EQ(lengthOf(stream), 0);
  unlink(missing.c_str());
}

TEST(ByteStreams, OverDescriptorsLeaveThemOrCloseThem) {
  TemporaryFile file("bytes");
  auto create = [](int descriptor, uint32_t flags, Stream& stream) {
    return KivByteStreamCreateForFileDescriptor(nullptr, descriptor, flags, stream.out());
  };
  auto isOpen = [](int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; };
  Stream stream;
  EXPECT_EQ(create(-1, 0, stream), kKivByteStreamError_OpenFailed);
  const int writing = open(file.path(), O_WRONLY), reading = open(file.path(), O_RDONLY),
            appending = open(file.path(), O_RDWR | O_APPEND);
  EXPECT_EQ(create(writing, kKivByteStreamFile_CloseDescriptor, stream), kKivByteStreamError_AccessDenied);
  EXPECT_TRUE(isOpen(writing));
  EXPECT_EQ(create(reading, kKivByteStreamFile_Writable, stream), kKivByteStreamError_AccessDenied);
  EXPECT_EQ(create(appending, kKivByteStreamFile_Writable, stream), kKivByteStreamError_AccessDenied);
  ASSERT_EQ(create(reading, 0, stream), 0);
  EXPECT_EQ(read(stream, 1, 9), "ytes");
  EXPECT_EQ(lseek(reading, 0, SEEK_CUR), 0);
  stream = nullptr;
  EXPECT_TRUE(isOpen(reading));
  ASSERT_EQ(create(reading, kKivByteStreamFile_CloseDescriptor, stream), 0);
  stream = nullptr;
  EXPECT_FALSE(isOpen(reading));
  close(writing);
  close(appending);
}

TEST(ByteStreams, OverFilesThatChange) {
  const std::string bytes = numbered(200000);
  TemporaryFile file(bytes);
  Stream stream;
  ASSERT_EQ(KivByteStreamCreateForFile(nullptr, file.path(), 0, stream.out()), 0);
  EXPECT_EQ(read(stream, 190000, 8), bytes.substr(190000, 8));
  file.resize(100000);
  EXPECT_EQ(lengthOf(stream), 100000);
  EXPECT_EQ(read(stream, 99996, 8), bytes.substr(99996, 4));
  EXPECT_EQ(read(stream, 90000, 100000), bytes.substr(90000, 10000));
  br::Ref<PVBlockBuffer> buffer;
  ASSERT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream.get(), 150000, 10, buffer.out()), 0);
  EXPECT_EQ(bytesOf(buffer.get()), "");
  EXPECT_EQ(read(stream, INT64_MAX - 10, 8), "");
  file.write(100000, "more");
  EXPECT_EQ(read(stream, 99996, 8), bytes.substr(99996, 4) + "more");
}

TEST(ByteStreams, ReachPast4GiB) {
  TemporaryFile file;
  const int64_t far = (int64_t{5} << 30) + 3;
  file.write(far, atom("free", "far"));  // the rest is a hole
  Stream stream;
  ASSERT_EQ(KivByteStreamCreateForFile(nullptr, file.path(), 0, stream.out()), 0);
  EXPECT_EQ(lengthOf(stream), far + 11);
  EXPECT_EQ(read(stream, far + 8, 10), "far");
  KivAtomStream atoms;
  ASSERT_EQ(KivAtomStreamInitWithByteStream(stream.get(), far, 0, &atoms), 0);
  EXPECT_EQ(atoms.currentAtomSize, 11);
}

TEST(ByteStreams, GiveMemoryBackAtTheirEnd) {
  FailingAllocator allocator;
  Stream stream;
  void* bytes = BRAllocatorAllocate(allocator, 16);
  EXPECT_EQ(KivByteStreamCreateForMemory(nullptr, nullptr, 1, nullptr, stream.out()),
            kKivByteStreamError_ParamErr);
  ASSERT_EQ(KivByteStreamCreateForMemory(nullptr, bytes, 16, allocator, stream.out()), 0);
  EXPECT_EQ(allocator.liveBlocks(), 1);
  stream = nullptr;
  EXPECT_EQ(allocator.liveBlocks(), 0);
  ASSERT_EQ(KivByteStreamCreateForMemory(nullptr, nullptr, 0, nullptr, stream.out()), 0);
  EXPECT_EQ(read(stream, 0, 5), "");
}

TEST(ByteStreams, RunOutOfMemoryCleanly) {
  TemporaryFile file("bytes");
  br::Ref<PVBlockBuffer> shared = blockBufferOf("bytes", 2);
  using Create = PVStatus (*)(BRAllocatorRef, TemporaryFile&, PVBlockBufferRef, KivByteStreamRef*);
  const Create creators[] = {
      [](BRAllocatorRef allocator, TemporaryFile& f, PVBlockBufferRef, KivByteStreamRef* out) {
        return KivByteStreamCreateForFile(allocator, f.path(), kKivByteStreamFile_Writable, out);
      },
      [](BRAllocatorRef allocator, TemporaryFile& f, PVBlockBufferRef, KivByteStreamRef* out) {
        return KivByteStreamCreateForFileDescriptor(allocator, f.descriptor(), 0, out);
      },
      [](BRAllocatorRef allocator, TemporaryFile&, PVBlockBufferRef buffer, KivByteStreamRef* out) {
        return KivByteStreamCreateForBlockBuffer(allocator, buffer, out);
      },
      [](BRAllocatorRef allocator, TemporaryFile&, PVBlockBufferRef buffer, KivByteStreamRef* out) {
        return KivByteStreamCreateWritableForBlockBuffer(allocator, buffer, out);
      },
      [](BRAllocatorRef allocator, TemporaryFile&, PVBlockBufferRef, KivByteStreamRef* out) {
        return KivByteStreamCreateForMemory(allocator, "bytes", 5, kBRAllocatorNull, out);
      }};
  for (Create create : creators)
    EXPECT_GT(walkAllocationFailures([&](BRAllocatorRef allocator) {
                Stream stream;
                const PVStatus status = create(allocator, file, shared.get(), stream.out());
                EXPECT_EQ(status, stream ? 0 : kPVStatus_OutOfMemory);
                return stream ? Outcome::kSucceeded : Outcome::kOutOfMemory;
              }),
              0);
  EXPECT_EQ(BRGetRetainCount(shared.get()), 1u);
}

TEST(ByteStreams, FailedAppendsLeaveTheBlockBufferAlone) {
  walkAllocationFailures([](BRAllocatorRef allocator) {
    br::Ref<PVBlockBuffer> buffer;
    if (PVBlockBufferCreateEmpty(allocator, 0, 0, buffer.out()) != 0) return Outcome::kOutOfMemory;
    Stream stream;
    EXPECT_EQ(KivByteStreamCreateWritableForBlockBuffer(nullptr, buffer.get(), stream.out()), 0);
    const std::string piece = numbered(3000);
    for (int64_t i = 0; i < 20; ++i) {
      if (KivByteStreamAppend(stream.get(), piece.data(), piece.size()) == 0) continue;
      EXPECT_EQ(lengthOf(stream), 3000 * i);
      return Outcome::kOutOfMemory;
    }
    return Outcome::kSucceeded;
  });
}

TEST(ByteStreamThreads, ReadOneFileTogether) {
  const std::string bytes = numbered(300000);
  Source source(SourceKind::kStreamOverFile, bytes);
  const Stream stream = Stream::retain(source.byteStream());
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed)
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      for (int round = 0; round < 500; ++round) {
        const size_t offset = random() % bytes.size(), length = random() % (round % 10 == 0 ? 30000 : 60);
        ASSERT_EQ(read(stream, static_cast<int64_t>(offset), length), bytes.substr(offset, length));
      }
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
