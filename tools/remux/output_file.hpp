// A file that appears when it is complete.
#pragma once

#include <kiv/byte_stream.h>

#include <bedra/ref.hpp>
#include <string>

// Written beside the target under a name of its own, and renamed over it at the end: whatever happens before
// leaves the target as it was.
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
  std::string target_, path_;
  int descriptor_ = -1;
  br::Ref<PVBaseObject> stream_;
};
