// Reading H.264 parameter sets (ITU-T H.264 7.3.2) out of their payloads.
//
// Values that nobody asks for are stepped over at any length. A value outside its range is refused only where
// reading on depends on it.
#ifndef PEVRIN_CODECS_H264_PARAMETER_SETS_HPP
#define PEVRIN_CODECS_H264_PARAMETER_SETS_HPP

#include <kiv/h264_bridge.h>

#include "codecs/rbsp.hpp"
#include "runtime/bit_reader.hpp"

namespace pv::h264 {

// nal_unit_type, Table 7-1.
enum UnitType : uint8_t {
  kSlice = 1,
  kPartitionA = 2,
  kIDRSlice = 5,
  kSPS = 7,
  kPPS = 8,
  kSPSExtension = 13,
  kAuxiliarySlice = 19
};

constexpr uint8_t kForbiddenBit = 0x80;
constexpr uint8_t kRefIdcBits = 0x60;
constexpr uint32_t kUnitHeaderBits = 8;

// There must be at least one byte, here and below.
inline uint8_t typeOf(const uint8_t* unit) { return unit[0] & 0x1F; }

// Of a payload from behind the unit's header on; records of zeros. False: it cannot be read.

// profile_idc to seq_parameter_set_id, and what follows it for some profiles.
bool pullSPSBeginning(BitReader& reader, KivH264ParsedSPS& sps);
bool pullChromaFormat(BitReader& reader, KivH264ParsedSPS& sps);
bool PullParamSetSPS(BitReader& reader, KivH264ParsedSPS& sps);
struct PicOrderCntCycle : KivH264PicOrderCntCycle {
  bool present;
};
bool pullPicOrderCntCycle(BitReader& reader, PicOrderCntCycle& cycle);
bool pullPPSBeginning(BitReader& reader, KivH264ParsedPPS& pps);  // the IDs
bool pullPPS(BitReader& reader, KivH264ParsedPPS& pps);

// Parses one NAL unit of the type. Statuses as in <kiv/h264_bridge.h>, not signalled.
template <class Record>
PVStatus parseUnit(const uint8_t* bytes, size_t length, UnitType type, bool (*pull)(BitReader&, Record&),
                   Record& record) {
  if (!bytes || length == 0 || typeOf(bytes) != type) return kKivBridgeError_InvalidParameter;
  const nal::Rbsp payload(bytes, length);
  if (!payload.ok()) return kKivBridgeError_NoMemoryForCopy;
  BitReader reader(payload.bytes(), payload.length());
  reader.skip(kUnitHeaderBits);
  record = {};
  if (!pull(reader, record)) return kKivBridgeError_UnreadableData;
  return kPVStatus_Success;
}

// The frame as it is cropped. False when that leaves nothing, or a side is beyond 32 bits.
bool frameSize(const KivH264ParsedSPS& sps, int32_t& width, int32_t& height);

}  // namespace pv::h264

#endif
