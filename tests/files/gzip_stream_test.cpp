#include <kiv/gzip_stream.h>
#include <array>

#include "tests/files/media_bytes.hpp"
#include "tests/files/scripted_stream.hpp"

namespace {

using namespace test;

using Stream = br::Ref<PVBaseObject>;

// Compresses somewhat, and no two parts of it are alike.
std::string media(size_t length, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(i % 4 ? random() % 20 : i >> 12);
  return bytes;
}

std::string compressed(const std::string& bytes, int32_t level = -1) {
  ScriptedStream file(false);
  Stream stream;
  EXPECT_EQ(KivByteStreamCreateWritableForGzip(nullptr, file.get(), level, stream.out()), 0);
  for (size_t i = 0, piece = 1; i < bytes.size(); i += piece, piece = piece * 3 + 1)
    EXPECT_EQ(KivByteStreamAppend(stream.get(), bytes.data() + i, std::min(piece, bytes.size() - i)), 0);
  EXPECT_EQ(KivGzipByteStreamFinish(stream.get()), 0);
  return file->bytes;
}

// A reading stream over bytes that it keeps.
class Unpacked {
 public:
  explicit Unpacked(const std::string& bytes, uint32_t flags = 0) {
    file_->bytes = bytes;
    EXPECT_EQ(KivByteStreamCreateForGzip(nullptr, file_.get(), flags, stream_.out()), 0);
  }
  KivByteStreamRef get() const { return stream_.get(); }
  ScriptedStream& file() { return file_; }

  // The bytes, or the status.
  std::string read(int64_t offset, size_t length) const {
    std::string bytes(length, '?');
    size_t count = 0;
    const PVStatus status = KivByteStreamRead(get(), offset, length, bytes.data(), &count);
    bytes.resize(count);
    return status ? std::to_string(status) : bytes;
  }
  // The status of the whole, and how many bytes there are.
  std::pair<PVStatus, int64_t> verify() const {
    int64_t length = -1;
    const PVStatus status = KivGzipByteStreamVerify(get(), &length);
    return {status, length};
  }

 private:
  ScriptedStream file_{false};
  Stream stream_;
};

// What another program makes of the bytes.
std::string piped(const char* command, const std::string& bytes) {
  const std::string path = ::testing::TempDir() + "gzip_stream_test.gz";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
  std::FILE* output = popen((std::string(command) + " < '" + path + "'").c_str(), "r");
  std::string result;
  std::array<char, 65536> buffer;
  while (const size_t count = std::fread(buffer.data(), 1, buffer.size(), output))
    result.append(buffer.data(), count);
  EXPECT_EQ(pclose(output), 0);
  std::remove(path.c_str());
  return result;
}

TEST(GzipStream, AgreesWithGzipBothWays) {
  const std::string bytes = media(700000);
  for (int32_t level : {-1, 0, 1, 9})
    EXPECT_TRUE(piped("gzip -dc", compressed(bytes, level)) == bytes) << level;
  EXPECT_EQ(piped("gzip -dc", compressed("")), "");
  const Unpacked theirs(piped("gzip -c9", bytes));
  EXPECT_TRUE(theirs.read(0, 800000) == bytes);
  EXPECT_EQ(theirs.verify(), std::pair(0, int64_t{700000}));
}

TEST(GzipStream, IsReadAnywhere) {
  const std::string bytes = media(5 << 20) + media(3 << 20, 2);
  // two members, and padding
  const Unpacked stream(compressed(bytes.substr(0, 5 << 20)) + compressed(bytes.substr(5 << 20), 1) +
                        std::string(700, '\0'));
  std::mt19937 random(3);
  for (int round = 0; round < 300; ++round) {
    const size_t offset = random() % (bytes.size() + 100), length = random() % (round % 10 ? 5000 : 300000);
    const std::string wanted = offset < bytes.size() ? bytes.substr(offset, length) : "";
    ASSERT_TRUE(stream.read(static_cast<int64_t>(offset), length) == wanted) << offset << " " << length;
    br::Ref<PVBlockBuffer> buffer;
    ASSERT_EQ(KivByteStreamReadAndCreateBlockBuffer(stream.get(), static_cast<int64_t>(offset), length,
                                                    buffer.out()),
              0);
    ASSERT_TRUE(bytesOf(buffer.get()) == wanted);
  }
  int64_t length = 0;
  EXPECT_EQ(KivByteStreamGetTotalLength(stream.get(), &length), 0);
  EXPECT_EQ(length, 8 << 20);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), "x", 1), -12782);
}

// More than the access points that are kept reach at first.
TEST(GzipStream, FindsItsWayBackInLongData) {
  constexpr size_t kBlock = 1 << 20, kBlocks = 300;
  ScriptedStream file(false);
  Stream writer;
  ASSERT_EQ(KivByteStreamCreateWritableForGzip(nullptr, file.get(), 1, writer.out()), 0);
  for (size_t i = 0; i < kBlocks; ++i) {
    const std::string block(kBlock, static_cast<char>(i));
    ASSERT_EQ(KivByteStreamAppend(writer.get(), block.data(), block.size()), 0);
  }
  ASSERT_EQ(KivGzipByteStreamFinish(writer.get()), 0);
  const Unpacked stream(file->bytes);
  EXPECT_EQ(stream.verify(), std::pair(0, int64_t{kBlock * kBlocks}));
  for (size_t i : {299u, 255u, 3u, 140u, 0u, 298u, 256u})
    EXPECT_EQ(stream.read(static_cast<int64_t>(i * kBlock + 77), 3), std::string(3, static_cast<char>(i)));
}

TEST(GzipStream, WhatIsBeforeDamageCanBeRead) {
  const std::string bytes = media(200000), packed = compressed(bytes);
  for (size_t length = 0; length < packed.size();
       length += length < 40 || length > packed.size() - 40 ? 1 : 997) {
    const Unpacked cut(packed.substr(0, length));
    const auto [status, readable] = cut.verify();
    EXPECT_EQ(status, kKivByteStreamError_TruncatedGzip) << length;
    ASSERT_TRUE(readable >= 0 && readable <= 200000);
    const auto count = static_cast<size_t>(readable);
    EXPECT_TRUE(cut.read(0, count) == bytes.substr(0, count));
    EXPECT_EQ(cut.read(0, count + 1), "-12809");
    EXPECT_EQ(cut.read(readable, 1), "-12809");
    br::Ref<PVBlockBuffer> buffer;
    EXPECT_EQ(KivByteStreamReadAndCreateBlockBuffer(cut.get(), 0, count, buffer.out()), 0);
    EXPECT_EQ(PVBlockBufferGetDataLength(buffer.get()), count);
    EXPECT_EQ(KivByteStreamReadAndCreateBlockBuffer(cut.get(), 0, 300000, buffer.out()), -12809);
    int64_t total = 7;
    EXPECT_EQ(KivByteStreamGetTotalLength(cut.get(), &total), -12809);
    EXPECT_EQ(total, 7);
    const Unpacked ending(packed.substr(0, length), kKivGzipByteStream_EndsAtDamage);
    EXPECT_EQ(KivByteStreamGetTotalLength(ending.get(), &total), 0);
    EXPECT_EQ(total, readable);
    EXPECT_TRUE(ending.read(0, 300000) == bytes.substr(0, count));
    EXPECT_EQ(ending.verify(), cut.verify());
  }
}

// A flipped bit is found, but where nothing depends on it: in the header whether it is text, the date, the
// system and the level.
TEST(GzipStream, AFlippedBitIsFound) {
  const std::string bytes = media(3000), packed = compressed(bytes);
  for (size_t bit = 0; bit < packed.size() * 8; bit += bit < 80 || bit > packed.size() * 8 - 64 ? 1 : 13) {
    std::string flipped = packed;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    const Unpacked stream(flipped);
    const auto [status, readable] = stream.verify();
    const bool isFree = bit == 3 * 8 || (bit / 8 >= 4 && bit / 8 <= 9);
    EXPECT_EQ(status == 0, isFree) << bit;
    if (isFree) {
      EXPECT_TRUE(stream.read(0, 4000) == bytes);
    }
  }
  EXPECT_EQ(Unpacked("").verify(), std::pair(PVStatus{-12809}, int64_t{0}));
  EXPECT_EQ(Unpacked("plain text").verify(), std::pair(PVStatus{-12808}, int64_t{0}));
  EXPECT_EQ(Unpacked(packed + "more").verify(), std::pair(PVStatus{-12808}, int64_t{3000}));
  EXPECT_EQ(Unpacked(packed + std::string(1, '\0') + packed).verify(),
            std::pair(PVStatus{-12808}, int64_t{3000}));
}

TEST(GzipStream, AFailureBelowPassesAndIsNoDamage) {
  const std::string bytes = media(2 << 20);
  Unpacked stream(compressed(bytes));
  EXPECT_TRUE(stream.read(0, 10) == bytes.substr(0, 10));
  stream.file()->readStatus = kKivByteStreamError_ReadFailed;
  EXPECT_EQ(stream.read(1 << 20, 10), "-12805");
  EXPECT_EQ(stream.verify(), std::pair(PVStatus{-12805}, int64_t{-1}));
  stream.file()->readStatus = 0;
  EXPECT_TRUE(stream.read(1 << 20, 10) == bytes.substr(1 << 20, 10));
  EXPECT_EQ(stream.verify().first, 0);
}

TEST(GzipStream, AFailureToWriteIsToldFromThenOn) {
  ScriptedStream file(false);
  file->failingAppend = 2;
  Stream stream;
  ASSERT_EQ(KivByteStreamCreateWritableForGzip(nullptr, file.get(), 0, stream.out()), 0);
  const std::string bytes = media(100000);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), bytes.data(), bytes.size()), 0);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), bytes.data(), bytes.size()), -12806);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), "x", 1), -12806);
  EXPECT_EQ(KivGzipByteStreamFinish(stream.get()), -12806);
}

TEST(GzipStream, AWritingStreamGrowsUntilItIsFinished) {
  ScriptedStream file(false);
  Stream stream, other;
  EXPECT_EQ(KivByteStreamCreateWritableForGzip(nullptr, file.get(), 10, stream.out()), -12800);
  EXPECT_EQ(KivByteStreamCreateWritableForGzip(nullptr, nullptr, 1, stream.out()), -12800);
  EXPECT_EQ(KivByteStreamCreateForGzip(nullptr, nullptr, 0, stream.out()), -12800);
  EXPECT_EQ(KivByteStreamCreateForGzip(nullptr, file.get(), 2, stream.out()), -12800);
  ASSERT_EQ(KivByteStreamCreateWritableForGzip(nullptr, file.get(), 1, stream.out()), 0);
  ASSERT_EQ(KivByteStreamCreateForGzip(nullptr, file.get(), 0, other.out()), 0);
  EXPECT_EQ(KivGzipByteStreamFinish(other.get()), -12800);
  EXPECT_EQ(KivGzipByteStreamVerify(stream.get(), nullptr), -12800);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), "moov", 4), 0);
  int64_t length = 0;
  EXPECT_EQ(KivByteStreamGetTotalLength(stream.get(), &length), 0);
  EXPECT_EQ(length, 4);
  char byte;
  EXPECT_EQ(KivByteStreamRead(stream.get(), 0, 1, &byte, nullptr), -12782);
  EXPECT_EQ(KivByteStreamWriteAtOffset(stream.get(), 0, "m", 1), -12782);
  EXPECT_EQ(KivGzipByteStreamFinish(stream.get()), 0);
  EXPECT_EQ(KivGzipByteStreamFinish(stream.get()), 0);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), "x", 1), -12807);
  EXPECT_EQ(KivGzipByteStreamVerify(other.get(), &length), 0);
  // one that is let go is finished, too
  ASSERT_EQ(KivByteStreamCreateWritableForGzip(nullptr, file.get(), 1, stream.out()), 0);
  EXPECT_EQ(KivByteStreamAppend(stream.get(), "x", 1), 0);
  stream = nullptr;
  EXPECT_EQ(Unpacked(file->bytes).read(0, 10), "moovx");
}

TEST(GzipStream, OutOfMemoryIsToldAndPasses) {
  const std::string bytes = media(3 << 20), packed = compressed(bytes);
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    ScriptedStream in(false), out(false);
    in->bytes = packed;
    Stream reader, writer;
    std::string end(10, '?');
    PVStatus status = KivByteStreamCreateForGzip(allocator, in.get(), 0, reader.out());
    if (status == 0) status = KivByteStreamRead(reader.get(), (3 << 20) - 10, 10, end.data(), nullptr);
    if (status == 0) status = KivByteStreamRead(reader.get(), 10, 10, end.data(), nullptr);
    if (status == 0) {
      EXPECT_TRUE(end == bytes.substr(10, 10));
      status = KivByteStreamCreateWritableForGzip(allocator, out.get(), 1, writer.out());
    }
    EXPECT_TRUE(status == 0 || status == kPVStatus_OutOfMemory) << status;
    return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

TEST(GzipStreamThreads, ReadAtOnce) {
  const std::string bytes = media(4 << 20);
  const Unpacked stream(compressed(bytes));
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      std::mt19937 random(t);
      for (int i = 0; i < 20; ++i) {
        const size_t offset = random() % bytes.size();
        EXPECT_TRUE(stream.read(static_cast<int64_t>(offset), 500) == bytes.substr(offset, 500));
      }
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
