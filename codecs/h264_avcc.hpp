// The 'avcC' record, AVCDecoderConfigurationRecord of ISO/IEC 14496-15 5.3.3.1:
//
//    0  configurationVersion, 1
//    1  AVCProfileIndication
//    2  profile_compatibility
//    3  AVCLevelIndication
//    4  111111, lengthSizeMinusOne (2)
//    5  111, numOfSequenceParameterSets (5)
//       for each: length (16) and its bytes
//    …  numOfPictureParameterSets (8)
//       for each: length (16) and its bytes
//    …  for profiles 100, 110, 122 and 144:
//       111111, chroma_format (2)
//       11111, bit_depth_luma_minus8 (3)
//       11111, bit_depth_chroma_minus8 (3)
//       numOfSequenceParameterSetExt (8)
//       for each: length (16) and its bytes
#ifndef PEVRIN_CODECS_H264_AVCC_HPP
#define PEVRIN_CODECS_H264_AVCC_HPP

#include <kiv/h264_bridge.h>

#include "runtime/byte_reader.hpp"

namespace pv::h264 {

constexpr uint8_t kAVCCVersion = 1;
constexpr size_t kAVCCProfileAt = 1;
constexpr size_t kAVCCLengthSizeAt = 4;
constexpr size_t kAVCCSetsAt = 5;
constexpr size_t kAVCCLeastBytes = 6;
constexpr uint8_t kAVCCSequenceCountBits = 0x1F;
constexpr size_t kAVCCFormatBytes = 3;

// Whether records of the profile end with the chroma format and the extension sets.
constexpr bool hasExtensionList(uint8_t profile) {
  return profile == 100 || profile == 110 || profile == 122 || profile == 144;
}

// A walk through a record in memory, list by list; there must be a version 1 and the least bytes.
class AVCCWalker {
 public:
  AVCCWalker(const uint8_t* record, size_t length)
      : profile_(record[kAVCCProfileAt]), reader_(record + kAVCCSetsAt, length - kAVCCSetsAt) {}

  // Each list once, in this order. Calls visit(bytes, size) for each set, and returns how many the list says
  // there are. What it says is true when ok() holds afterwards.
  template <class Visit>
  uint32_t sequenceSets(Visit visit) {
    return list(reader_.u8() & kAVCCSequenceCountBits, visit);
  }
  template <class Visit>
  uint32_t pictureSets(Visit visit) {
    return list(reader_.u8(), visit);
  }
  template <class Visit>
  uint32_t extensionSets(Visit visit) {
    if (!hasExtensionList(profile_) || reader_.atEnd()) return 0;
    reader_.skip(kAVCCFormatBytes);
    return list(reader_.u8(), visit);
  }

  bool ok() const { return reader_.ok(); }

 private:
  template <class Visit>
  uint32_t list(uint32_t count, Visit visit) {
    for (uint32_t i = 0; i < count && reader_.ok(); ++i) {
      const size_t size = reader_.u16();
      if (const uint8_t* bytes = reader_.take(size)) visit(bytes, size);
    }
    return count;
  }

  uint8_t profile_;
  ByteReader reader_;
};

inline bool isAVCC(const uint8_t* record, size_t length) {
  return record && length >= kAVCCLeastBytes && record[0] == kAVCCVersion;
}
bool isAVCC(BRDataRef record);

inline int32_t nalUnitHeaderLengthOf(const uint8_t* record) { return (record[kAVCCLengthSizeAt] & 3) + 1; }

}  // namespace pv::h264

#endif
