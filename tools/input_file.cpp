#include "input_file.hpp"

#include <bedra/runtime.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <kiv/gzip_stream.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

InputFile::~InputFile() {
  BRRelease(stream_);
  if (descriptor_ >= 0) close(descriptor_);
}

bool InputFile::isGzip() const {
  constexpr uint8_t kMagic[] = {0x1F, 0x8B, 8};
  uint8_t beginning[sizeof kMagic] = {};
  return KivByteStreamRead(stream_, 0, sizeof beginning, beginning, nullptr) == kPVStatus_Success &&
         std::memcmp(beginning, kMagic, sizeof kMagic) == 0;
}

std::string InputFile::unpack() {
  KivByteStreamRef compressed = stream_;
  PVStatus status =
      KivByteStreamCreateForGzip(nullptr, compressed, kKivGzipByteStream_EndsAtDamage, &stream_);
  BRRelease(compressed);
  if (status == kPVStatus_Success) status = KivGzipByteStreamVerify(stream_, &size_);
  if (status == kKivByteStreamError_TruncatedGzip)
    damage_ = {"", size_, status, "the compressed file ends here, too early"};
  else if (status == kKivByteStreamError_MalformedGzip)
    damage_ = {"", size_, status, "the compressed file is damaged here"};
  else if (status != kPVStatus_Success)
    return fmt::format("Cannot be unpacked (status {})", status);
  return "";
}

std::string InputFile::open(const std::string& name, FileForm form) {
  descriptor_ = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  struct stat info {};
  if (descriptor_ < 0 && errno != ENXIO) return std::strerror(errno);
  if (descriptor_ >= 0 && fstat(descriptor_, &info) != 0) return std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return "Is a directory";
  if (!S_ISREG(info.st_mode)) return "Not a regular file; it is read out of order, which only a file allows";
  PVStatus status =
      KivByteStreamCreateForFileDescriptor(nullptr, descriptor_, kKivByteStreamFile_ReadOnly, &stream_);
  if (status == kPVStatus_Success) status = KivByteStreamGetTotalLength(stream_, &size_);
  if (status != kPVStatus_Success) return fmt::format("Cannot be read (status {})", status);
  if (!isGzip()) return "";
  return form == kPlainOrGzip ? unpack() : "Compressed with gzip; unpack it first";
}
