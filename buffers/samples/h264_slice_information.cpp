// The H.264 slices in a sample buffer's data.
#include <bedra/array.h>
#include <bedra/data.h>
#include <bedra/dictionary.h>
#include <kiv/bridge.h>
#include <kiv/h264_bridge.h>
#include <kiv/h264_sample_buffer.h>

#include <algorithm>
#include <array>
#include <bedra/literal.hpp>
#include <memory>

#include "buffers/samples/sample_buffer.hpp"

using namespace br::literals;
using namespace pv::sample;
using pv::signalError;

namespace {

using ParsingInfo =
    std::unique_ptr<KivH264HLSfMP4ParsingInfo, decltype(&KivH264Bridge_HLSfMP4ParsingInfoDestroy)>;

// Slice headers are looked for in this much of a NAL unit.
constexpr size_t kHeadBytes = 4096;
constexpr uint8_t kUnitTypeMask = 0x1F;

BRDataRef avcCOf(PVFormatDescriptionRef format) {
  BRTypeRef atoms =
      PVFormatDescriptionGetExtension(format, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms);
  if (!atoms || BRGetTypeID(atoms) != BRDictionaryGetTypeID()) return nullptr;
  BRTypeRef avcC = BRDictionaryGetValue(static_cast<BRDictionaryRef>(atoms), "avcC"_br);
  if (BRGetTypeID(avcC) == BRArrayGetTypeID())
    avcC = BRArrayGetValueAtIndex(static_cast<BRArrayRef>(avcC), 0);
  return avcC && BRGetTypeID(avcC) == BRDataGetTypeID() ? static_cast<BRDataRef>(avcC) : nullptr;
}

bool isSlice(uint8_t unitHeader) {
  const uint8_t type = unitHeader & kUnitTypeMask;
  return type == 1 || type == 2 || type == 5 || type == 19;
}

// The NAL units of a block buffer, one after the other.
class UnitWalk {
 public:
  UnitWalk(PVBlockBufferRef data, int32_t lengthBytes)
      : data_(data), end_(PVBlockBufferGetDataLength(data)), lengthBytes_(static_cast<size_t>(lengthBytes)) {}

  bool atEnd() const { return position_ == end_; }
  // Steps over the length field. A unit may be empty.
  PVStatus next() {
    std::array<uint8_t, 4> field;
    if (end_ - position_ < lengthBytes_) return signalError(kKivBridgeError_UnreadableData);
    if (PVStatus status = PVBlockBufferCopyDataBytes(data_, position_, lengthBytes_, field.data()))
      return status;
    offset_ = position_ + lengthBytes_;
    length_ = 0;
    for (size_t i = 0; i < lengthBytes_; ++i) length_ = length_ << 8 | field[i];
    if (length_ > end_ - offset_) return signalError(kKivBridgeError_UnreadableData);
    position_ = offset_ + length_;
    return 0;
  }
  // The beginning of the unit, copied when it does not stand in one piece.
  PVStatus head(char** bytesOut, size_t* lengthOut) {
    *lengthOut = std::min(length_, kHeadBytes);
    return PVBlockBufferAccessDataBytes(data_, offset_, *lengthOut, copy_.data(), bytesOut);
  }
  size_t offset() const { return offset_; }
  size_t length() const { return length_; }

 private:
  PVBlockBufferRef data_;
  size_t end_, lengthBytes_;
  size_t position_ = 0, offset_ = 0, length_ = 0;
  std::array<char, kHeadBytes> copy_;
};

}  // namespace

PVStatus KivH264Bridge_GetSliceInformationFromSampleBuffer(PVSampleBufferRef buffer, size_t room,
                                                           KivH264SliceInformation* slicesOut,
                                                           size_t* countOut) {
  if (PVStatus status = refused(buffer)) return status;
  BRDataRef avcC = avcCOf(buffer->format.get());
  if (!avcC || (!slicesOut && !countOut)) return signalError(kKivBridgeError_InvalidParameter);
  int32_t lengthBytes = 0;
  if (PVStatus status = KivH264Bridge_GetNALUnitHeaderLengthFromAVCC(avcC, &lengthBytes)) return status;
  if (!buffer->block() || !PVSampleBufferDataIsReady(buffer))
    return signalError(kPVSampleBufferError_DataNotReady);
  KivH264HLSfMP4ParsingInfoRef parsed;
  if (PVStatus status = KivH264Bridge_CreateHLSfMP4ParsingInfoFromAVCCData(nullptr, avcC, &parsed))
    return status;
  const ParsingInfo info(parsed, KivH264Bridge_HLSfMP4ParsingInfoDestroy);
  size_t count = 0;
  for (UnitWalk units(buffer->block(), lengthBytes); !units.atEnd();) {
    if (PVStatus status = units.next()) return status;
    if (units.length() == 0) continue;
    char* bytes;
    size_t length;
    if (PVStatus status = units.head(&bytes, &length)) return status;
    const auto* unit = reinterpret_cast<const uint8_t*>(bytes);
    if (!isSlice(unit[0])) continue;
    if (slicesOut && count < room) {
      KivH264SliceInformation& slice = slicesOut[count];
      if (PVStatus status = KivH264Bridge_GetSliceInformation(info.get(), unit, length, &slice))
        return status;
      slice.offset = units.offset();
      slice.length = units.length();
    }
    ++count;
  }
  if (countOut) *countOut = count;
  return slicesOut && count > room ? signalError(kPVSampleBufferError_ArrayTooSmall) : 0;
}
