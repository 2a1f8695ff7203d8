#include <kiv/hevc_slice.h>

#include "tests/codecs/hevc_sets.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace test;

constexpr PVStatus kInvalid = kKivBridgeError_InvalidParameter, kUnreadable = kKivBridgeError_UnreadableData;

KivHEVCParsedSPS parseSPS(const Bytes& unit) {
  KivHEVCParsedSPS sps{};
  EXPECT_EQ(KivHEVCBridge_ParseSPS(unit.data(), unit.size(), &sps), 0);
  return sps;
}

KivHEVCParsedPPS parsePPS(const Bytes& unit) {
  KivHEVCParsedPPS pps{};
  EXPECT_EQ(KivHEVCBridge_ParsePPS(unit.data(), unit.size(), &pps), 0);
  return pps;
}

struct Told {
  PVStatus status;
  KivHEVCSliceInformation slice;
};

Told tell(const Bytes& unit, const KivHEVCParsedSPS& sps, const KivHEVCParsedPPS& pps) {
  Told told{};
  told.slice.ppsID = 99;
  told.status = KivHEVCBridge_GetSliceInformation(unit.data(), unit.size(), &sps, &pps, &told.slice);
  return told;
}

// Two slices a picture, open GOP (x265), with the values that FFmpeg's trace_headers filter shows.
TEST(HEVCSlice, RealHeadersTellTheirPicture) {
  const auto sps = parseSPS(
      fromHex("42010101600000030090000003000003001ea01020616595964932bc0404000003000400000300642000"));
  const auto pps = parsePPS(fromHex("4401c172b40240"));
  EXPECT_EQ(sps.log2CtbSize, 6u);
  const struct {
    Bytes unit;
    uint8_t unitType, sliceType;
    uint32_t address, lsb;
  } cases[] = {
      {fromHex("2801af1dbc754e70"), kKivHEVCSlice_IDRNLP, 2, 0, 0},
      {fromHex("280133c740"), kKivHEVCSlice_IDRNLP, 2, 2, 0},
      {fromHex("0201d02149e10c63"), 1, 1, 0, 4},
      {fromHex("0201640852784318e8"), 1, 1, 2, 4},
      {fromHex("0201e04495786128"), 1, 0, 0, 2},
      {fromHex("000168093f5fa2c290"), kKivHEVCSlice_TrailN, 0, 2, 1},
      {fromHex("2a01ac2049089c64"), kKivHEVCSlice_CRA, 2, 0, 8},
      {fromHex("1201e0c225555f71"), kKivHEVCSlice_RASLR, 0, 0, 6},
      {fromHex("1001e0a6f5d7d22c"), kKivHEVCSlice_RASLN, 0, 0, 5},
  };
  for (const auto& c : cases) {
    const auto [status, slice] = tell(c.unit, sps, pps);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(slice.nalUnitType, c.unitType);
    EXPECT_EQ(slice.sliceType, c.sliceType);
    EXPECT_EQ(slice.firstSliceSegmentInPic, c.address == 0);
    EXPECT_EQ(slice.sliceSegmentAddress, c.address);
    EXPECT_EQ(slice.picOrderCntLsb, c.lsb);
    EXPECT_EQ(slice.temporalID, 0);
    EXPECT_TRUE(slice.picOutput);
    EXPECT_FALSE(slice.dependentSliceSegment || slice.noOutputOfPriorPics);
    const Told cut = tell(Bytes(c.unit.begin(), c.unit.begin() + 2), sps, pps);
    EXPECT_EQ(cut.status, kUnreadable);
    EXPECT_EQ(cut.slice.ppsID, 99u);
  }
}

BitWriter header(uint8_t type, bool first, uint32_t ppsID = 5) {
  BitWriter to;
  to.bits(uint64_t{type} << 9 | 3, 16).flag(first);  // temporal ID 2
  if (type >= kKivHEVCSlice_BLAWLP) to.flag(true);
  return to.ue(ppsID);
}

struct Sets {
  KivHEVCParsedSPS sps = parseSPS(HEVCSequence{.chromaFormat = 3, .separatePlanes = true}.unit());
  KivHEVCParsedPPS pps = parsePPS(hevcPPS(5, 0, false, false));
};

TEST(HEVCSlice, WrittenHeadersTellTheirPicture) {
  Sets sets;
  sets.pps.dependentSliceSegmentsEnabled = sets.pps.outputFlagPresent = true;
  sets.pps.numExtraSliceHeaderBits = 3;
  ASSERT_EQ(sets.sps.log2CtbSize, 6u);  // 5 x 3 of them: addresses of 4 bits
  ASSERT_EQ(sets.sps.log2MaxPicOrderCntLsb, 8u);
  auto writer = header(kKivHEVCSlice_CRA, false).flag(false).bits(14, 4).bits(7, 3).ue(2).flag(false);
  const auto [status, slice] = tell(writer.bits(1, 2).bits(200, 8).unit(), sets.sps, sets.pps);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(slice.temporalID, 2);
  EXPECT_EQ(slice.ppsID, 5u);
  EXPECT_EQ(slice.sliceSegmentAddress, 14u);
  EXPECT_EQ(slice.sliceType, 2);
  EXPECT_EQ(slice.picOrderCntLsb, 200u);
  EXPECT_TRUE(slice.noOutputOfPriorPics);
  EXPECT_FALSE(slice.picOutput || slice.firstSliceSegmentInPic);
  const Told dependent = tell(header(1, false).flag(true).bits(3, 4).unit(), sets.sps, sets.pps);
  EXPECT_EQ(dependent.status, 0);
  EXPECT_TRUE(dependent.slice.dependentSliceSegment && dependent.slice.picOutput);
  EXPECT_EQ(dependent.slice.sliceSegmentAddress, 3u);
}

TEST(HEVCSlice, RefusesWhatItCannotFollow) {
  const Sets sets;
  const struct {
    const char* what;
    Bytes unit;
    PVStatus status;
  } cases[] = {
      {"I", header(1, true).ue(2).bits(0, 2).bits(9, 8).unit(), 0},
      {"nothing", {}, kInvalid},
      {"reserved type", header(22, true).ue(2).zeros(20).unit(), kInvalid},
      {"a set", hevcPPS(5, 0, false, false), kInvalid},
      {"another layer", {0x02, 0x09, 0xFF, 0xFF, 0xFF}, kInvalid},
      {"no temporal ID", {0x02, 0x00, 0xFF, 0xFF, 0xFF}, kInvalid},
      {"another PPS", header(1, true, 6).ue(2).zeros(20).unit(), kInvalid},
      {"PPS 64", header(1, true, 64).zeros(20).unit(), kUnreadable},
      {"slice type 3", header(1, true).ue(3).zeros(20).unit(), kUnreadable},
      {"outside the picture", header(1, false).bits(15, 4).ue(2).zeros(20).unit(), kUnreadable},
  };
  for (const auto& c : cases) EXPECT_EQ(tell(c.unit, sets.sps, sets.pps).status, c.status) << c.what;
  const Bytes& fine = cases[0].unit;
  for (size_t length = 1; length < 4; ++length)
    EXPECT_EQ(
        tell(Bytes(fine.begin(), fine.begin() + static_cast<ptrdiff_t>(length)), sets.sps, sets.pps).status,
        kUnreadable);
  Sets other;
  other.sps.spsID = 1;
  EXPECT_EQ(tell(fine, other.sps, other.pps).status, kInvalid);
  uint32_t ppsID = 0;
  EXPECT_EQ(KivHEVCBridge_GetPPSSequenceIDFromSlice(fine.data(), fine.size(), &ppsID), 0);
  EXPECT_EQ(ppsID, 5u);
  EXPECT_EQ(KivHEVCBridge_GetPPSSequenceIDFromSlice(nullptr, 4, &ppsID), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetPPSSequenceIDFromSlice(fine.data(), fine.size(), nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetSliceInformation(fine.data(), fine.size(), &sets.sps, &sets.pps, nullptr),
            kInvalid);
}

}  // namespace
