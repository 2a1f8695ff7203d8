// Byte streams over regular files.
//
// Small reads are served from a window of bytes read ahead. A read that the window holds whole costs no
// system call; any other small read moves the window to start at its offset. How far the window reaches
// doubles while the reads move on near it, up to 64 KiB, and falls back to 4 KiB after a jump, so that
// hopping over large atoms does not read what is hopped over. Large reads go past the window. The window and
// its bytes are guarded by the lock; nothing else changes after creation. A write empties the window.
#include <bedra/string.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <mutex>

#include "files/byte_stream.hpp"

namespace {

using pv::signalError;

constexpr size_t kLargestReach = 64 * 1024;
constexpr size_t kSmallestReach = 4 * 1024;
constexpr size_t kLargeRead = 16 * 1024;
constexpr size_t kLargestSystemCall = size_t{1} << 30;

struct Descriptor {
  int number = -1;
  bool isOwned = false;

  Descriptor(int number_, bool isOwned_) : number(number_), isOwned(isOwned_) {}
  Descriptor(Descriptor&& other) noexcept
      : number(other.number), isOwned(std::exchange(other.isOwned, false)) {}
  ~Descriptor() {
    if (isOwned) close(number);
  }
};

// Reads until there are length bytes or the file ends.
PVStatus readFrom(int descriptor, int64_t offset, size_t length, void* destination, size_t& count) {
  count = 0;
  while (count < length) {
    const ssize_t got =
        pread(descriptor, static_cast<uint8_t*>(destination) + count,
              std::min(length - count, kLargestSystemCall), offset + static_cast<int64_t>(count));
    if (got == 0) break;
    if (got > 0)
      count += static_cast<size_t>(got);
    else if (errno != EINTR)
      return signalError(kKivByteStreamError_ReadFailed);
  }
  return 0;
}

PVStatus writeTo(int descriptor, int64_t offset, const void* bytes, size_t length) {
  for (size_t count = 0; count < length;) {
    const ssize_t put =
        pwrite(descriptor, static_cast<const uint8_t*>(bytes) + count,
               std::min(length - count, kLargestSystemCall), offset + static_cast<int64_t>(count));
    if (put > 0)
      count += static_cast<size_t>(put);
    else if (put == 0 || errno != EINTR)
      return signalError(kKivByteStreamError_WriteFailed);
  }
  return 0;
}

struct FileStorage {
  explicit FileStorage(Descriptor descriptor_) : descriptor(std::move(descriptor_)) {}

  Descriptor descriptor;
  std::mutex lock;
  int64_t windowStart = 0;
  size_t windowLength = 0;
  size_t reach = 0;
  uint8_t window[kLargestReach];

  bool windowHolds(int64_t offset, size_t length) const {
    return offset >= windowStart && offset - windowStart <= static_cast<int64_t>(windowLength) &&
           length <= windowLength - static_cast<size_t>(offset - windowStart);
  }
  // Lets the window start at the offset and hold the length, if the file does.
  PVStatus moveWindow(int64_t offset, size_t length);
  PVStatus readThroughWindow(int64_t offset, size_t length, void* destination, size_t& count);
  void dropWindow() {
    std::lock_guard guard(lock);
    windowLength = 0;
  }
  PVStatus getLength(int64_t& length) const {
    struct stat status;
    if (fstat(descriptor.number, &status) != 0) return signalError(kKivByteStreamError_ReadFailed);
    length = status.st_size;
    return 0;
  }
  BRStringRef copyDebugDescription() const {
    int64_t length = -1;
    getLength(length);
    return BRStringCreateWithFormat(nullptr, "file descriptor %d of %lld bytes", descriptor.number,
                                    static_cast<long long>(length));
  }
};

PVStatus FileStorage::moveWindow(int64_t offset, size_t length) {
  const int64_t ahead = offset - windowStart;
  const bool isNear = ahead >= 0 && ahead <= static_cast<int64_t>(windowLength + reach);
  reach = isNear ? std::clamp(2 * reach, kSmallestReach, kLargestReach) : kSmallestReach;
  windowStart = offset;
  windowLength = 0;
  const auto mostBytes = static_cast<uint64_t>(std::numeric_limits<int64_t>::max() - offset);
  return readFrom(descriptor.number, offset, std::min<uint64_t>(std::max(reach, length), mostBytes), window,
                  windowLength);
}

PVStatus FileStorage::readThroughWindow(int64_t offset, size_t length, void* destination, size_t& count) {
  std::lock_guard guard(lock);
  if (!windowHolds(offset, length))
    if (PVStatus status = moveWindow(offset, length)) {
      windowLength = 0;
      return status;
    }
  const size_t skipped = static_cast<size_t>(offset - windowStart);
  count = std::min(length, windowLength - skipped);
  std::memcpy(destination, window + skipped, count);
  return 0;
}

PVStatus read(KivByteStreamRef stream, int64_t offset, size_t length, void* destination,
              size_t* lengthReadOut) {
  auto& file = pv::storageOf<FileStorage>(stream);
  size_t count = 0;
  const PVStatus status = length < kLargeRead
                              ? file.readThroughWindow(offset, length, destination, count)
                              : readFrom(file.descriptor.number, offset, length, destination, count);
  if (status == 0) *lengthReadOut = count;
  return status;
}

PVStatus getTotalLength(KivByteStreamRef stream, int64_t* lengthOut) {
  int64_t length;
  if (PVStatus status = pv::storageOf<FileStorage>(stream).getLength(length)) return status;
  *lengthOut = length;
  return 0;
}

PVStatus append(KivByteStreamRef stream, const void* bytes, size_t length) {
  auto& file = pv::storageOf<FileStorage>(stream);
  int64_t end;
  if (PVStatus status = file.getLength(end)) return status;
  if (length > static_cast<uint64_t>(std::numeric_limits<int64_t>::max() - end))
    return signalError(kKivByteStreamError_OutOfRange);
  file.dropWindow();
  const PVStatus status = writeTo(file.descriptor.number, end, bytes, length);
  // what fitted of it is no use: the file shall end where it did, if the system lets it
  if (status != 0) {
    const int why = errno;
    [[maybe_unused]] const int ignored = ftruncate(file.descriptor.number, end);
    errno = why;
  }
  return status;
}

PVStatus writeAtOffset(KivByteStreamRef stream, int64_t offset, const void* bytes, size_t length) {
  auto& file = pv::storageOf<FileStorage>(stream);
  int64_t end;
  if (PVStatus status = file.getLength(end)) return status;
  if (offset > end || length > static_cast<uint64_t>(end - offset))
    return signalError(kKivByteStreamError_OutOfRange);
  file.dropWindow();
  return writeTo(file.descriptor.number, offset, bytes, length);
}

constexpr PVBaseClass kBaseClass = pv::byteStreamBaseClass<FileStorage>();
constexpr KivByteStreamClass kReadingClass = {0,       read,   pv::readIntoNewBlock, getTotalLength,
                                              nullptr, nullptr};
constexpr KivByteStreamClass kWritingClass = {0,      read,         pv::readIntoNewBlock, getTotalLength,
                                              append, writeAtOffset};
constexpr KivByteStreamVTable kReadingVTable = {{nullptr, &kBaseClass}, &kReadingClass};
constexpr KivByteStreamVTable kWritingVTable = {{nullptr, &kBaseClass}, &kWritingClass};

PVStatus statusOfOpenFailure(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return kKivByteStreamError_NotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return kKivByteStreamError_AccessDenied;
    case EISDIR:
    case ENXIO:
      return kKivByteStreamError_NotRegularFile;
    default:
      return kKivByteStreamError_OpenFailed;
  }
}

// Takes the descriptor only on success.
PVStatus createOver(BRAllocatorRef allocator, Descriptor& descriptor, uint32_t flags,
                    KivByteStreamRef* streamOut) {
  const int number = descriptor.number;
  struct stat status;
  if (fstat(number, &status) != 0) return signalError(kKivByteStreamError_OpenFailed);
  if (!S_ISREG(status.st_mode)) return signalError(kKivByteStreamError_NotRegularFile);
  br::Ref<PVBaseObject> stream;
  if (PVStatus created = pv::createByteStream<FileStorage>(
          allocator, flags & kKivByteStreamFile_Writable ? kWritingVTable : kReadingVTable, stream.out(),
          Descriptor(number, false)))
    return created;
  if ((flags & kKivByteStreamFile_Truncate) && ftruncate(number, 0) != 0)
    return signalError(kKivByteStreamError_WriteFailed);
  pv::storageOf<FileStorage>(stream.get()).descriptor.isOwned = std::exchange(descriptor.isOwned, false);
  *streamOut = stream.detach();
  return 0;
}

// Whether the flags are among those allowed and those for writing come with Writable.
bool areFlags(uint32_t flags, uint32_t allowed) {
  constexpr uint32_t kForWriting = kKivByteStreamFile_Create | kKivByteStreamFile_Truncate;
  return (flags & ~allowed) == 0 &&
         ((flags & kForWriting) == 0 || (flags & kKivByteStreamFile_Writable) != 0);
}

}  // namespace

PVStatus KivByteStreamCreateForFile(BRAllocatorRef allocator, const char* path, uint32_t flags,
                                    KivByteStreamRef* streamOut) {
  if (!streamOut) return signalError(kKivByteStreamError_ParamErr);
  *streamOut = nullptr;
  if (!path ||
      !areFlags(flags, kKivByteStreamFile_Writable | kKivByteStreamFile_Create | kKivByteStreamFile_Truncate))
    return signalError(kKivByteStreamError_ParamErr);
  // O_NONBLOCK: opening a pipe must not wait for its other end; regular files ignore it
  int mode = O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (flags & kKivByteStreamFile_Writable ? O_RDWR : O_RDONLY);
  if (flags & kKivByteStreamFile_Create) mode |= O_CREAT;
  int number;
  do number = open(path, mode, 0666);
  while (number < 0 && errno == EINTR);
  if (number < 0) return signalError(statusOfOpenFailure(errno));
  Descriptor descriptor(number, true);
  return createOver(allocator, descriptor, flags, streamOut);
}

PVStatus KivByteStreamCreateForFileDescriptor(BRAllocatorRef allocator, int fileDescriptor, uint32_t flags,
                                              KivByteStreamRef* streamOut) {
  if (!streamOut) return signalError(kKivByteStreamError_ParamErr);
  *streamOut = nullptr;
  if (!areFlags(flags, kKivByteStreamFile_Writable | kKivByteStreamFile_Truncate |
                           kKivByteStreamFile_CloseDescriptor))
    return signalError(kKivByteStreamError_ParamErr);
  const int mode = fcntl(fileDescriptor, F_GETFL);
  if (mode < 0) return signalError(kKivByteStreamError_OpenFailed);
  const bool mayRead = (mode & O_ACCMODE) != O_WRONLY && (mode & O_PATH) == 0;
  const bool mayWrite = (mode & O_ACCMODE) == O_RDWR && (mode & O_APPEND) == 0;
  if (!mayRead || ((flags & kKivByteStreamFile_Writable) && !mayWrite))
    return signalError(kKivByteStreamError_AccessDenied);
  Descriptor descriptor(fileDescriptor, false);
  if (PVStatus status = createOver(allocator, descriptor, flags, streamOut)) return status;
  pv::storageOf<FileStorage>(*streamOut).descriptor.isOwned =
      (flags & kKivByteStreamFile_CloseDescriptor) != 0;
  return 0;
}
