// Reading HEVC parameter sets (ITU-T H.265 7.3) out of their payloads.
//
// Values that nobody asks for are stepped over at any length. A value outside its range is refused only where
// reading on depends on it, or where no picture could have it.
#ifndef PEVRIN_CODECS_HEVC_PARAMETER_SETS_HPP
#define PEVRIN_CODECS_HEVC_PARAMETER_SETS_HPP

#include <kiv/hevc_bridge.h>

#include "codecs/rbsp.hpp"
#include "runtime/bit_reader.hpp"

namespace pv::hevc {

// nal_unit_type, Table 7-1.
enum UnitType : uint8_t { kVPS = 32, kSPS = 33, kPPS = 34, kPrefixSEI = 39, kSuffixSEI = 40 };

constexpr uint32_t kUnitHeaderBits = 16;
constexpr uint32_t kMostSubLayers = 7;

// The header of a NAL unit (7.3.1.2) of the base layer.
struct UnitHeader {
  bool valid;
  uint8_t type;
};
// There must be at least one byte. A single one tells the type.
UnitHeader readUnitHeader(const uint8_t* bytes, size_t length);

// Of a payload from behind the unit's header on; records of zeros. False: it cannot be read.

// The set up to the bit depths: what a configuration record repeats.
bool pullSPSBeginning(BitReader& reader, KivHEVCParsedSPS& sps);
// All of it. The usability information may be cut short (<kiv/bridge.h>).
bool hevcbridge_PullParamSetSPS(BitReader& reader, KivHEVCParsedSPS& sps);
bool pullPPSBeginning(BitReader& reader, KivHEVCParsedPPS& pps);  // the IDs
bool pullPPS(BitReader& reader, KivHEVCParsedPPS& pps);

// Parses one NAL unit of the type. Statuses as in <kiv/hevc_bridge.h>, not signalled.
template <class Record>
PVStatus parseUnit(const uint8_t* bytes, size_t length, UnitType type, bool (*pull)(BitReader&, Record&),
                   Record& record) {
  if (!bytes || length == 0) return kKivBridgeError_InvalidParameter;
  const UnitHeader header = readUnitHeader(bytes, length);
  if (!header.valid || header.type != type) return kKivBridgeError_InvalidParameter;
  const nal::Rbsp payload(bytes, length);
  if (!payload.ok()) return kKivBridgeError_NoMemoryForCopy;
  BitReader reader(payload.bytes(), payload.length());
  reader.skip(kUnitHeaderBits);
  record = {};
  if (!pull(reader, record)) return kKivBridgeError_UnreadableData;
  return kPVStatus_Success;
}

// The picture inside its conformance window. False when the window leaves nothing, or the size is beyond
// what a picture can have.
bool pictureSize(const KivHEVCParsedSPS& sps, int32_t& width, int32_t& height);

}  // namespace pv::hevc

#endif
