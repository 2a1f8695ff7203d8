// A file that appears when it is complete.
#pragma once

#include <kiv/byte_stream.h>

#include <bedra/ref.hpp>
#include <string>

// Written in the target's folder without a name, so that a stop leaves nothing behind; linked beside the
// target and renamed over it at the end. Where the file system has only files with names, written under one
// of its own.
class OutputFile {
 public:
  // Throws RemuxFailure.
  explicit OutputFile(const std::string& target);
  // Without commit the file goes.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  KivByteStreamRef stream() const { return stream_.get(); }
  void append(PVBlockBufferRef bytes);
  // Puts the file in the place of the target, on the disk.
  void commit();

 private:
  std::string target_;
  std::string path_;  // empty while there is no name
  int descriptor_ = -1;
  br::Ref<PVBaseObject> stream_;
};
