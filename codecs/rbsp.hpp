// The payload of a NAL unit: its bytes without emulation prevention (ITU-T H.264 7.3.1, H.265 7.3.1.1). Both
// codecs escape alike: inside a unit 00 00 is followed by 03 wherever the bytes might be taken for a start
// code.
#ifndef PEVRIN_CODECS_RBSP_HPP
#define PEVRIN_CODECS_RBSP_HPP

#include <kiv/bridge.h>

#include <cstddef>
#include <cstdint>

namespace pv::nal {

// Where the next emulation prevention byte stands, at `from` or behind it: the 03 of a 00 00 03 that begins
// at or behind `from`. length when there is none.
size_t findEmulationByte(const uint8_t* bytes, size_t length, size_t from);

// Copies the unit without its emulation prevention bytes, every one of them whatever follows it, and returns
// how many bytes there are then. out has room for length bytes. stopAt: stops early with that many bytes.
size_t removeEmulationBytes(const uint8_t* bytes, size_t length, uint8_t* out, size_t stopAt = SIZE_MAX);

// Where in the unit the byte stands that has so many payload bytes before it; length when there is none.
// Every byte before it belongs to the payload's beginning, an emulation prevention byte right before it too.
size_t offsetInUnit(const uint8_t* bytes, size_t length, size_t payloadOffset);

// The new data object, owned by the caller; null, signalled, for null or when memory runs out.
BRDataRef copyWithoutEmulationBytes(BRAllocatorRef allocator, BRDataRef data);

// A unit's payload for as long as it is parsed: in place when nothing is to be removed, else a copy, on the
// stack when the unit is of a parameter set's usual size.
class Rbsp {
 public:
  // Only the first `limit` bytes of the payload are wanted; there may be more.
  Rbsp(const uint8_t* bytes, size_t length, size_t limit = SIZE_MAX);
  ~Rbsp();
  Rbsp(const Rbsp&) = delete;
  Rbsp& operator=(const Rbsp&) = delete;

  // False when memory ran out for the copy: the status is then kKivBridgeError_NoMemoryForCopy.
  bool ok() const { return bytes_ != nullptr; }
  const uint8_t* bytes() const { return bytes_; }
  size_t length() const { return length_; }

 private:
  static constexpr size_t kStackBytes = 512;
  const uint8_t* bytes_;
  size_t length_;
  uint8_t* heap_ = nullptr;
  uint8_t stack_[kStackBytes];
};

}  // namespace pv::nal

#endif
