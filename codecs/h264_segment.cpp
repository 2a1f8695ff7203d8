// The parameter sets of an 'avcC' record, parsed and found by their IDs.
//
// One block: the info, then the sequence, then the picture parameter sets. Nothing changes once it is made.
#include <bedra/allocator.h>
#include <bedra/data.h>

#include <array>
#include <bedra/ref.hpp>
#include <new>

#include "codecs/h264_avcc.hpp"
#include "codecs/h264_slice_header.hpp"
#include "runtime/error.hpp"

struct KivH264HLSfMP4ParsingInfo {
  br::Ref<const BRAllocator> allocator;
  std::array<const KivH264ParsedSPS*, pv::h264::kMostSPSID + 1> spsByID{};
  std::array<const KivH264ParsedPPS*, pv::h264::kMostPPSID + 1> ppsByID{};
};

namespace {

using namespace pv;
using Info = KivH264HLSfMP4ParsingInfo;

// Calls visit for the units of the type among those of a list: records also hold extension sets among others.
template <class Visit>
auto ofType(h264::UnitType type, Visit visit) {
  return [=](const uint8_t* bytes, size_t size) {
    if (size != 0 && h264::typeOf(bytes) == type) visit(bytes, size);
  };
}

// Both lists, or false for a malformed record.
template <class VisitSPS, class VisitPPS>
bool walkSets(BRDataRef avcC, VisitSPS visitSPS, VisitPPS visitPPS) {
  if (!h264::isAVCC(avcC)) return false;
  h264::AVCCWalker walker(BRDataGetBytePtr(avcC), BRDataGetLength(avcC));
  walker.sequenceSets(ofType(h264::kSPS, visitSPS));
  walker.pictureSets(ofType(h264::kPPS, visitPPS));
  return walker.ok();
}

// Parses sets into the records behind the info, one after the other, and remembers the first failure.
class Parser {
 public:
  Parser(Info* info, size_t spsCount)
      : info_(info),
        sps_(reinterpret_cast<KivH264ParsedSPS*>(info + 1)),
        pps_(reinterpret_cast<KivH264ParsedPPS*>(sps_ + spsCount)) {}

  void addSPS(const uint8_t* bytes, size_t size) {
    auto* sps = new (sps_++) KivH264ParsedSPS;
    if (parse(bytes, size, h264::kSPS, h264::PullParamSetSPS, *sps))
      file<KivH264ParsedSPS>(info_->spsByID, sps->seqParameterSetID, sps);
  }
  void addPPS(const uint8_t* bytes, size_t size) {
    auto* pps = new (pps_++) KivH264ParsedPPS;
    if (parse(bytes, size, h264::kPPS, h264::pullPPS, *pps))
      file<KivH264ParsedPPS>(info_->ppsByID, pps->picParameterSetID, pps);
  }

  PVStatus status() const { return status_; }

 private:
  template <class Record>
  bool parse(const uint8_t* bytes, size_t size, h264::UnitType type, bool (*pull)(BitReader&, Record&),
             Record& record) {
    if (status_ == kPVStatus_Success) status_ = h264::parseUnit(bytes, size, type, pull, record);
    return status_ == kPVStatus_Success;
  }
  template <class Record, size_t kIDs>
  void file(std::array<const Record*, kIDs>& byID, uint32_t id, const Record* record) {
    if (id < byID.size())
      byID[id] = record;
    else
      status_ = kKivBridgeError_UnreadableData;
  }

  Info* info_;
  KivH264ParsedSPS* sps_;
  KivH264ParsedPPS* pps_;
  PVStatus status_ = kPVStatus_Success;
};

}  // namespace

PVStatus KivH264Bridge_CreateHLSfMP4ParsingInfoFromAVCCData(BRAllocatorRef allocator, BRDataRef avcC,
                                                            KivH264HLSfMP4ParsingInfoRef* infoOut) {
  if (!infoOut) return signalError(kKivBridgeError_InvalidParameter);
  *infoOut = nullptr;
  size_t spsCount = 0, ppsCount = 0;
  if (!walkSets(
          avcC, [&](const uint8_t*, size_t) { ++spsCount; }, [&](const uint8_t*, size_t) { ++ppsCount; }))
    return signalError(kKivBridgeError_InvalidParameter);
  void* block = BRAllocatorAllocate(
      allocator, sizeof(Info) + spsCount * sizeof(KivH264ParsedSPS) + ppsCount * sizeof(KivH264ParsedPPS));
  if (!block) return signalError(kKivBridgeError_AllocationFailed);
  auto* info = new (block) Info{.allocator = br::Ref<const BRAllocator>::retain(allocator)};
  Parser parser(info, spsCount);
  walkSets(
      avcC, [&](const uint8_t* bytes, size_t size) { parser.addSPS(bytes, size); },
      [&](const uint8_t* bytes, size_t size) { parser.addPPS(bytes, size); });
  if (PVStatus status = parser.status()) {
    KivH264Bridge_HLSfMP4ParsingInfoDestroy(info);
    return signalError(status);
  }
  *infoOut = info;
  return kPVStatus_Success;
}

void KivH264Bridge_HLSfMP4ParsingInfoDestroy(KivH264HLSfMP4ParsingInfoRef info) {
  if (!info) return;
  const br::Ref<const BRAllocator> allocator = info->allocator;
  info->~KivH264HLSfMP4ParsingInfo();
  BRAllocatorDeallocate(allocator.get(), info);
}

namespace {

PVStatus measure(const Info& info, const uint8_t* nalUnit, size_t length, h264::MeasuredSliceHeader& out) {
  const auto findSets = [&](uint32_t ppsID, const KivH264ParsedSPS*& sps, const KivH264ParsedPPS*& pps) {
    pps = info.ppsByID[ppsID];
    sps =
        pps && pps->seqParameterSetID < info.spsByID.size() ? info.spsByID[pps->seqParameterSetID] : nullptr;
    return sps != nullptr;
  };
  const PVStatus status = h264::measureSliceHeader(nalUnit, length, findSets, out);
  return status ? signalError(status) : kPVStatus_Success;
}

}  // namespace

PVStatus KivH264Bridge_LocateSliceHeaderForHLSfMP4EncryptableNAL(KivH264HLSfMP4ParsingInfoRef info,
                                                                 const uint8_t* nalUnit, size_t length,
                                                                 bool* isEncryptableOut,
                                                                 size_t* clearBytesOut) {
  if (!info || !nalUnit || length == 0) return signalError(kKivBridgeError_InvalidParameter);
  const uint8_t type = h264::typeOf(nalUnit);
  const bool encryptable = type == h264::kSlice || type == h264::kIDRSlice;
  h264::MeasuredSliceHeader header{};
  if (encryptable)
    if (PVStatus status = measure(*info, nalUnit, length, header)) return status;
  if (isEncryptableOut) *isEncryptableOut = encryptable;
  if (clearBytesOut) *clearBytesOut = encryptable ? header.clearBytes : length;
  return kPVStatus_Success;
}

PVStatus KivH264Bridge_GetSliceInformation(KivH264HLSfMP4ParsingInfoRef info, const uint8_t* nalUnit,
                                           size_t length, KivH264SliceInformation* informationOut) {
  if (!info || !informationOut) return signalError(kKivBridgeError_InvalidParameter);
  h264::MeasuredSliceHeader header{};
  if (PVStatus status = measure(*info, nalUnit, length, header)) return status;
  *informationOut = {.offset = 0,
                     .length = length,
                     .clearBytes = header.clearBytes,
                     .ppsID = header.slice.ppsID,
                     .interlaceType = header.interlaceType,
                     .sliceType = header.slice.sliceType,
                     .nalUnitType = header.slice.nalUnitType,
                     .nalRefIDC = header.slice.nalRefIDC};
  return kPVStatus_Success;
}
