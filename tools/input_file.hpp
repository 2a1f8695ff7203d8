// A file that is read: as a byte stream, and as media.
#pragma once

#include <kiv/byte_stream.h>

#include <cstdint>
#include <string>

class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Says why not, or nothing. Does not wait: a pipe without a writer is refused like any other.
  std::string open(const std::string& name);

  int descriptor() const { return descriptor_; }
  KivByteStreamRef stream() const { return stream_; }
  int64_t size() const { return size_; }

 private:
  int descriptor_ = -1;
  KivByteStreamRef stream_ = nullptr;
  int64_t size_ = 0;
};
