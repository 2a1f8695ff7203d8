// A class of byte streams made outside the library, which does as a test says.
#ifndef TESTS_FILES_SCRIPTED_STREAM_HPP
#define TESTS_FILES_SCRIPTED_STREAM_HPP

#include <kiv/byte_stream.h>

#include "tests/support/test.hpp"

namespace test {

// What it holds, and what its operations answer. It lives outside the object, whose storage points here.
struct Script {
  std::string bytes;
  bool keepsBytes = true;  // false: appends only count
  int64_t discardedBytes = 0;
  int appends = 0;
  int failingAppend = 0;  // counted from 1
  PVStatus lengthStatus = 0;
  PVStatus readStatus = 0;
  PVStatus writeStatus = 0;
};

class ScriptedStream {
 public:
  explicit ScriptedStream(bool writesAtOffset = true) {
    EXPECT_EQ(PVDerivedObjectCreate(nullptr, writesAtOffset ? &kVTable.base : &kAppendingVTable.base,
                                    KivByteStreamGetClassID(), stream_.out()),
              0);
    *static_cast<Script**>(PVBaseObjectGetDerivedStorage(stream_.get())) = &script_;
  }
  ScriptedStream(const ScriptedStream&) = delete;
  ScriptedStream& operator=(const ScriptedStream&) = delete;

  KivByteStreamRef get() const { return stream_.get(); }
  Script* operator->() { return &script_; }

 private:
  static Script& script(KivByteStreamRef stream) {
    return **static_cast<Script**>(PVBaseObjectGetDerivedStorage(stream));
  }
  static PVStatus read(KivByteStreamRef stream, int64_t offset, size_t length, void* destination,
                       size_t* countOut) {
    const Script& own = script(stream);
    if (own.readStatus != 0) return own.readStatus;
    const size_t from = std::min(static_cast<size_t>(offset), own.bytes.size());
    *countOut = std::min(length, own.bytes.size() - from);
    std::memcpy(destination, own.bytes.data() + from, *countOut);
    return 0;
  }
  static PVStatus getTotalLength(KivByteStreamRef stream, int64_t* lengthOut) {
    const Script& own = script(stream);
    if (own.lengthStatus == 0) *lengthOut = static_cast<int64_t>(own.bytes.size()) + own.discardedBytes;
    return own.lengthStatus;
  }
  static PVStatus append(KivByteStreamRef stream, const void* bytes, size_t length) {
    Script& own = script(stream);
    if (++own.appends == own.failingAppend) return kKivByteStreamError_WriteFailed;
    if (own.keepsBytes)
      own.bytes.append(static_cast<const char*>(bytes), length);
    else
      own.discardedBytes += static_cast<int64_t>(length);
    return 0;
  }
  static PVStatus writeAtOffset(KivByteStreamRef stream, int64_t offset, const void* bytes, size_t length) {
    Script& own = script(stream);
    if (own.writeStatus == 0 && own.keepsBytes)
      own.bytes.replace(static_cast<size_t>(offset), length, static_cast<const char*>(bytes), length);
    return own.writeStatus;
  }

  static constexpr PVBaseClass kBaseClass = {1,       sizeof(Script*), nullptr, nullptr, nullptr,
                                             nullptr, nullptr,         nullptr, nullptr};
  static constexpr KivByteStreamClass kClass = {0, read, nullptr, getTotalLength, append, writeAtOffset};
  static constexpr KivByteStreamClass kAppendingClass = {0, read, nullptr, getTotalLength, append, nullptr};
  static constexpr KivByteStreamVTable kVTable = {{nullptr, &kBaseClass}, &kClass};
  static constexpr KivByteStreamVTable kAppendingVTable = {{nullptr, &kBaseClass}, &kAppendingClass};

  Script script_;
  br::Ref<PVBaseObject> stream_;
};

}  // namespace test

#endif
