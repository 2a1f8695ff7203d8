#include "input_file.hpp"

#include <bedra/runtime.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

InputFile::~InputFile() {
  BRRelease(stream_);
  if (descriptor_ >= 0) close(descriptor_);
}

std::string InputFile::open(const std::string& name) {
  descriptor_ = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  struct stat info {};
  if (descriptor_ < 0 && errno != ENXIO) return std::strerror(errno);
  if (descriptor_ >= 0 && fstat(descriptor_, &info) != 0) return std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return "Is a directory";
  if (!S_ISREG(info.st_mode)) return "Not a regular file; it is read out of order, which only a file allows";
  PVStatus status =
      KivByteStreamCreateForFileDescriptor(nullptr, descriptor_, kKivByteStreamFile_ReadOnly, &stream_);
  if (status == kPVStatus_Success) status = KivByteStreamGetTotalLength(stream_, &size_);
  return status == kPVStatus_Success ? "" : fmt::format("Cannot be read (status {})", status);
}
