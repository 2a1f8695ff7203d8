#include "configuration_record.hpp"

#include <bedra/data.h>
#include <bedra/runtime.h>
#include <fmt/format.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>

#include <memory>
#include <type_traits>

#include "atom_type.hpp"

namespace {

struct Release {
  void operator()(BRTypeRef object) const { BRRelease(object); }
};
using Data = std::unique_ptr<std::remove_pointer_t<BRMutableDataRef>, Release>;

// No 'avcC' can be longer than 36 million bytes: 31 sets of one kind, 255 of the two others.
constexpr int64_t kMostBytes = 1 << 26;
// Each unit is found by walking the record; so many at most keep that short.
constexpr size_t kMostUnits = 4096;

// Whether such a unit may stand in a record. Besides sets these hold SPS extensions (H.264), and messages and
// sets of other layers (HEVC).
bool mayStandInRecord(Codec codec, std::span<const uint8_t> unit) {
  if (unit.empty() || unit[0] & 0x80) return false;
  const int type = unit[0] & 0x1F;
  return codec == Codec::HEVC || type == 7 || type == 8 || type == 13 || type == 15;
}

// All data of the atom.
std::optional<Fault> readData(const KivAtomStream* stream, Data& data) {
  int64_t length = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &length);
  if (length > kMostBytes)
    return Fault{kKivBridgeError_InvalidParameter,
                 fmt::format("its data are {} bytes, far more than parameter sets take", length)};
  const auto size = static_cast<size_t>(length);
  data.reset(BRDataCreateMutable(nullptr, size));
  if (!data || !BRDataSetLength(data.get(), size)) return Fault{kPVStatus_OutOfMemory, "memory ran out"};
  if (size == 0) return std::nullopt;
  const PVStatus status =
      KivAtomStreamReadCurrentAtomData(stream, 0, size, BRDataGetMutableBytePtr(data.get()));
  return status == kPVStatus_Success ? std::nullopt
                                     : std::optional(Fault{status, "its data could not be read"});
}

auto unitAt(Codec codec) {
  return codec == Codec::H264 ? KivH264Bridge_GetH264ParameterSetAtIndex
                              : KivHEVCBridge_GetHEVCParameterSetAtIndex;
}

std::optional<Fault> countUnits(Codec codec, BRDataRef record, size_t& count) {
  if (const PVStatus status = unitAt(codec)(record, 0, nullptr, nullptr, &count, nullptr)) {
    const size_t size = BRDataGetLength(record);
    return Fault{status, fmt::format("this configuration record of {} {} is malformed or cut short", size,
                                     size == 1 ? "byte" : "bytes")};
  }
  if (count > kMostUnits)
    return Fault{kKivBridgeError_InvalidParameter,
                 fmt::format("it holds {} NAL units; records of up to {} are read", count, kMostUnits)};
  return std::nullopt;
}

}  // namespace

std::optional<Codec> codecOfRecord(PVFourCharCode type) {
  if (type == fourCC("avcC")) return Codec::H264;
  if (type == fourCC("hvcC")) return Codec::HEVC;
  return std::nullopt;
}

void visitConfigurationRecord(Codec codec, const KivAtomStream* stream, int64_t atomOffset,
                              const std::string& path, ParameterSetVisitor& visitor) {
  Data record;
  auto fault = readData(stream, record);
  size_t count = 0;
  if (!fault) fault = countUnits(codec, record.get(), count);
  if (fault) return visitor.damaged({path, atomOffset, fault->status, std::move(fault->message)});

  int64_t dataOffset = 0;
  KivAtomStreamGetCurrentAtomDataGlobalOffset(stream, 0, &dataOffset);
  const auto bytes = BRDataGetBytePtr(record.get());
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* unit = nullptr;
    size_t size = 0;
    if (unitAt(codec)(record.get(), i, &unit, &size, nullptr, nullptr) != kPVStatus_Success) return;
    const int64_t offset = dataOffset + (unit - bytes);
    if (!mayStandInRecord(codec, {unit, size}))
      visitor.damaged(
          {path, offset, kKivBridgeError_InvalidParameter,
           fmt::format("entry {} of the record, of {} bytes, is not a parameter set", i + 1, size)});
    else if (!visitParameterSet(codec, {unit, size}, offset, path, visitor))
      return;
  }
}
