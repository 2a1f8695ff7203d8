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

}  // namespace

OutputFile::OutputFile(const std::string& target) : target_(resolved(target)), path_(target_ + ".XXXXXX") {
  const mode_t mode = modeFor(target_);
  descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
  if (descriptor_ < 0) fail("the output cannot be made");
  const PVStatus status = fchmod(descriptor_, mode) != 0
                              ? kKivByteStreamError_OpenFailed
                              : KivByteStreamCreateForFileDescriptor(
                                    nullptr, descriptor_, kKivByteStreamFile_Writable, stream_.out());
  if (status == kPVStatus_Success) return;
  unlink(path_.c_str());
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
    if (KivByteStreamAppend(stream_.get(), start, length) != kPVStatus_Success)
      fail("the output cannot be written");
  }
}

void OutputFile::commit() {
  if (fsync(descriptor_) != 0) fail("the output cannot be written");
  if (std::rename(path_.c_str(), target_.c_str()) != 0) fail("the output cannot be put in its place");
  path_.clear();
}
