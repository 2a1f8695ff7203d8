// A file that is read: as a byte stream, and as media.
#pragma once

#include <kiv/byte_stream.h>

#include <cstdint>
#include <optional>
#include <string>

#include "damage.hpp"

enum FileForm { kPlain, kPlainOrGzip };

class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // Says why not, or nothing. Does not wait: a pipe without a writer is refused like any other. Stream and
  // size are those of what a compressed file holds; the descriptor is the file's as it stands.
  std::string open(const std::string& name, FileForm form = kPlain);

  int descriptor() const { return descriptor_; }
  // What is wrong with a compressed file; stream and size are those of what is before it.
  const std::optional<Damage>& damage() const { return damage_; }
  KivByteStreamRef stream() const { return stream_; }
  int64_t size() const { return size_; }

 private:
  int descriptor_ = -1;
  KivByteStreamRef stream_ = nullptr;
  int64_t size_ = 0;
  std::optional<Damage> damage_;

  bool isGzip() const;
  std::string unpack();
};
