// Atoms as byte strings, and the places that tests read them from.
#ifndef TESTS_FILES_MEDIA_BYTES_HPP
#define TESTS_FILES_MEDIA_BYTES_HPP

#include <fcntl.h>
#include <kiv/atom_stream.h>
#include <kiv/byte_stream.h>
#include <unistd.h>

#include "tests/support/test.hpp"

namespace test {

inline std::string bigEndian(uint64_t value, int byteCount) {
  std::string bytes;
  for (int i = byteCount - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

constexpr PVFourCharCode code(const char (&text)[5]) {
  PVFourCharCode value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(text[i]);
  return value;
}

inline const std::string kUUID = "0123456789abcdef";

// Headers with any size, honest or not.
inline std::string header(uint32_t size, const std::string& type) { return bigEndian(size, 4) + type; }
inline std::string largeHeader(uint64_t size, const std::string& type) {
  return header(1, type) + bigEndian(size, 8);
}

inline std::string atom(const std::string& type, const std::string& data = "") {
  return header(static_cast<uint32_t>(8 + data.size()), type) + data;
}
inline std::string largeAtom(const std::string& type, const std::string& data = "") {
  return largeHeader(16 + data.size(), type) + data;
}
inline std::string uuidAtom(const std::string& data = "") { return atom("uuid", kUUID + data); }
inline std::string largeUUIDAtom(const std::string& data = "") { return largeAtom("uuid", kUUID + data); }

// A block buffer that holds the bytes in blocks of pieceBytes.
inline br::Ref<PVBlockBuffer> blockBufferOf(const std::string& bytes, size_t pieceBytes) {
  br::Ref<PVBlockBuffer> buffer;
  EXPECT_EQ(PVBlockBufferCreateEmpty(nullptr, 0, 0, buffer.out()), 0);
  for (size_t offset = 0; offset < bytes.size(); offset += pieceBytes) {
    const size_t length = std::min(pieceBytes, bytes.size() - offset);
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, length, nullptr, nullptr, 0, length,
                                             kPVBlockBufferAssureMemoryNowFlag),
              0);
    EXPECT_EQ(PVBlockBufferReplaceDataBytes(bytes.data() + offset, buffer.get(), offset, length), 0);
    if (pieceBytes > bytes.size()) break;
  }
  return buffer;
}

inline std::string bytesOf(PVBlockBufferRef buffer) {
  std::string bytes(PVBlockBufferGetDataLength(buffer), '\0');
  if (!bytes.empty()) {
    EXPECT_EQ(PVBlockBufferCopyDataBytes(buffer, 0, bytes.size(), bytes.data()), 0);
  }
  return bytes;
}

// A file that goes with the test.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& bytes = "") {
    descriptor_ = mkstemp(path_.data());
    EXPECT_GE(descriptor_, 0);
    write(0, bytes);
  }
  ~TemporaryFile() {
    close(descriptor_);
    unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const char* path() const { return path_.c_str(); }
  int descriptor() const { return descriptor_; }
  void write(int64_t offset, const std::string& bytes) {
    EXPECT_EQ(pwrite(descriptor_, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
  }
  void resize(int64_t length) { EXPECT_EQ(ftruncate(descriptor_, length), 0); }

 private:
  std::string path_ = ::testing::TempDir() + "pevrin-XXXXXX";
  int descriptor_;
};

enum class SourceKind {
  kMemory,
  kBlockBuffer,
  kTinyBlocks,
  kStreamOverMemory,
  kStreamOverTinyBlocks,
  kStreamOverFile
};

inline const std::vector<SourceKind> kSourceKinds = {
    SourceKind::kMemory,           SourceKind::kBlockBuffer,          SourceKind::kTinyBlocks,
    SourceKind::kStreamOverMemory, SourceKind::kStreamOverTinyBlocks, SourceKind::kStreamOverFile};

inline const char* nameOf(SourceKind kind) {
  constexpr const char* kNames[] = {"Memory",           "BlockBuffer",          "TinyBlocks",
                                    "StreamOverMemory", "StreamOverTinyBlocks", "StreamOverFile"};
  return kNames[static_cast<int>(kind)];
}

// The same bytes behind any kind of source.
class Source {
 public:
  Source(SourceKind kind, const std::string& bytes) : bytes_(bytes.begin(), bytes.end()) {
    if (kind == SourceKind::kBlockBuffer) buffer_ = blockBufferOf(bytes, SIZE_MAX);
    if (kind == SourceKind::kTinyBlocks || kind == SourceKind::kStreamOverTinyBlocks)
      buffer_ = blockBufferOf(bytes, 3);
    PVStatus status = 0;
    if (kind == SourceKind::kStreamOverMemory)
      status = KivByteStreamCreateForMemory(nullptr, bytes_.data(), bytes_.size(), kBRAllocatorNull,
                                            stream_.out());
    if (kind == SourceKind::kStreamOverTinyBlocks)
      status = KivByteStreamCreateForBlockBuffer(nullptr, buffer_.get(), stream_.out());
    if (kind == SourceKind::kStreamOverFile) {
      file_.write(0, bytes);
      status = KivByteStreamCreateForFile(nullptr, file_.path(), kKivByteStreamFile_ReadOnly, stream_.out());
    }
    EXPECT_EQ(status, 0);
  }

  PVStatus open(KivAtomStream& stream, uint32_t flags = 0) {
    if (stream_) return KivAtomStreamInitWithByteStream(stream_.get(), 0, flags, &stream);
    if (buffer_) return KivAtomStreamInitWithBBuf(buffer_.get(), 0, flags, &stream);
    return KivAtomStreamInitWithMemoryBlock(bytes_.data(), bytes_.size(), 0, flags, &stream);
  }
  KivByteStreamRef byteStream() const { return stream_.get(); }
  PVBlockBufferRef blockBuffer() const { return buffer_.get(); }
  TemporaryFile& file() { return file_; }

 private:
  std::vector<char> bytes_;  // exactly as long as the data: the sanitizer guards its end
  TemporaryFile file_;
  br::Ref<PVBlockBuffer> buffer_;
  br::Ref<PVBaseObject> stream_;
};

}  // namespace test

#endif
