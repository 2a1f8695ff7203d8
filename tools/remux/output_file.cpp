#include "output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure.hpp"

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw RemuxFailure(fmt::format("{}: {}", what, std::strerror(errno)));
}

// The mode of the file that is replaced, or that of a new file.
mode_t modeFor(const std::string& target) {
  struct stat info {};
  if (stat(target.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) throw RemuxFailure("the output is not a regular file");
    return info.st_mode & 07777;
  }
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Where a link leads to, so that the file there is replaced and not the link.
std::string resolved(const std::string& path) {
  char* real = realpath(path.c_str(), nullptr);
  std::string result = real ? real : path;
  std::free(real);
  return result;
}

// The name by which a file without one can be linked.
std::string nameOf(int descriptor) { return fmt::format("/proc/self/fd/{}", descriptor); }

// What the target's name begins with: its folder and a slash, or nothing.
std::string folderOf(const std::string& target) { return target.substr(0, target.rfind('/') + 1); }

// A file without a name in the target's folder; negative where the file system has none.
int openNameless(const std::string& target) {
  const std::string folder = folderOf(target) + ".";
  const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (descriptor < 0 || access(nameOf(descriptor).c_str(), F_OK) == 0) return descriptor;
  close(descriptor);
  return -1;
}

}  // namespace

OutputFile::OutputFile(const std::string& target) : target_(resolved(target)) {
  const mode_t mode = modeFor(target_);
  descriptor_ = openNameless(target_);
  if (descriptor_ < 0) {
    std::string path = target_ + ".XXXXXX";
    descriptor_ = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor_ < 0) fail("the output cannot be made");
    path_ = path;
  }
  const PVStatus status = fchmod(descriptor_, mode) != 0
                              ? kKivByteStreamError_OpenFailed
                              : KivByteStreamCreateForFileDescriptor(
                                    nullptr, descriptor_, kKivByteStreamFile_Writable, stream_.out());
  if (status == kPVStatus_Success) return;
  if (!path_.empty()) unlink(path_.c_str());
  close(descriptor_);
  check(status, "the output cannot be made");
}

OutputFile::~OutputFile() {
  stream_ = nullptr;
  if (descriptor_ >= 0) close(descriptor_);
  if (!path_.empty()) unlink(path_.c_str());
}

void OutputFile::append(PVBlockBufferRef bytes) {
  const size_t total = PVBlockBufferGetDataLength(bytes);
  for (size_t offset = 0, length; offset < total; offset += length) {
    char* start = nullptr;
    check(PVBlockBufferGetDataPointer(bytes, offset, &length, nullptr, &start),
          "the output cannot be written");
    check(KivByteStreamAppend(stream_.get(), start, length), "the output cannot be written");
  }
}

void OutputFile::commit() {
  if (fsync(descriptor_) != 0) fail("the output cannot be written");
  for (int number = getpid(); path_.empty(); ++number) {
    const std::string path = fmt::format("{}.pevrin.{}", folderOf(target_), number);
    if (linkat(AT_FDCWD, nameOf(descriptor_).c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0)
      path_ = path;
    else if (errno != EEXIST)
      fail("the output cannot be put in its place");
  }
  if (std::rename(path_.c_str(), target_.c_str()) != 0) fail("the output cannot be put in its place");
  path_.clear();
}
