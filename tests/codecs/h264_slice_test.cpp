#include <bedra/data.h>
#include <gtest/gtest.h>
#include <kiv/h264_bridge.h>
#include <kiv/h264_slice.h>

#include <bedra/ref.hpp>
#include <sstream>
#include <string>

#include "tests/codecs/h264_samples.hpp"
#include "tests/support/failing_allocator.hpp"

namespace {

using namespace test;

constexpr PVStatus kInvalid = kKivBridgeError_InvalidParameter, kUnreadable = kKivBridgeError_UnreadableData;
constexpr KivH264InterlaceType kFrame = kKivH264InterlaceType_Frame,
                               kMBAFF = kKivH264InterlaceType_MBAFFFrame,
                               kTop = kKivH264InterlaceType_TopField,
                               kBottom = kKivH264InterlaceType_BottomField;

struct Measured {
  PVStatus status;
  size_t bits = 0, clear = 0;
  bool operator==(const Measured&) const = default;
};

Measured measure(const Bytes& slice, const Bytes& sps, const Bytes& pps) {
  Measured m;
  m.status = KivH264Bridge_MeasureSliceHeader(slice.data(), slice.size(), sps.data(), sps.size(), pps.data(),
                                              pps.size(), &m.bits, &m.clear);
  return m;
}

KivH264InterlaceType typeOf(const Bytes& slice, const Bytes& sps) {
  KivH264InterlaceType type = -1;
  EXPECT_EQ(
      KivH264Bridge_GetInterlaceTypeFromSlice(slice.data(), slice.size(), sps.data(), sps.size(), &type), 0);
  return type;
}

TEST(H264Slice, RealHeadersEndWhereTheirReadersSay) {
  const struct {
    Bytes slice;
    const Bytes &sps, &pps;
    size_t bits, clear;
    KivH264InterlaceType type;
  } cases[] = {
      {{0x65, 0x88, 0x84, 0x00, 0x47, 0xD2, 0xAC}, kHighSPS, kHighPPS, 32, 5, kFrame},  // IDR
      {{0x41, 0x9A, 0x22, 0x6C, 0x47, 0x7F, 0xD2}, kHighSPS, kHighPPS, 36, 6, kFrame},  // P
      {{0x01, 0x9E, 0x41, 0x79, 0x1D, 0xFF, 0xFE}, kHighSPS, kHighPPS, 34, 6, kFrame},  // B
      {{0x65, 0x88, 0x82, 0x02, 0x07, 0x7F, 0x60}, kInterlacedSPS, kInterlacedPPS, 36, 6, kMBAFF},
      {{0x01, 0x9E, 0x40, 0x97, 0x90, 0xB7, 0xF0}, kInterlacedSPS, kInterlacedPPS, 40, 6, kMBAFF},
      {{0x41, 0x9A, 0x41, 0x95, 0x10, 0xB7, 0xB3}, kInterlacedSPS, kInterlacedPPS, 40, 6, kMBAFF},
      {{0x41, 0x9A, 0x21, 0x6C, 0x43, 0x5F, 0xDC}, kHigh422SPS, kHigh422PPS, 38, 6, kFrame},  // weighted P
  };
  for (const auto& c : cases) {
    EXPECT_EQ(measure(c.slice, c.sps, c.pps), (Measured{0, c.bits, c.clear}));
    EXPECT_EQ(typeOf(c.slice, c.sps), c.type);
    uint32_t ppsID = 99;
    EXPECT_EQ(KivH264Bridge_GetPPSSequenceIDFromSlice(c.slice.data(), c.slice.size(), &ppsID), 0);
    EXPECT_EQ(ppsID, 0u);
    for (size_t length = 0; length < c.clear; ++length) {
      const Bytes cut(c.slice.begin(), c.slice.begin() + static_cast<ptrdiff_t>(length));
      EXPECT_EQ(measure(cut, c.sps, c.pps).status, length == 0 ? kInvalid : kUnreadable);
    }
  }
}

struct PPSFields {
  bool cabac = false, bottomOrder = false, weighted = false, deblocking = false, redundant = false;
  uint32_t id = 0, spsID = 0, weightedBi = 0, l0 = 1, l1 = 1, mapType = 0,
           changeRate = 0;  // 0: one slice group
  Bytes unit() const {
    BitWriter writer;
    writer.bits(0x68, 8).ue(id).ue(spsID).flag(cabac).flag(bottomOrder).ue(changeRate == 0 ? 0 : 1);
    if (changeRate != 0) writer.ue(mapType).flag(false).ue(changeRate - 1);
    writer.ue(l0 - 1).ue(l1 - 1).flag(weighted).bits(weightedBi, 2).se(0).se(0).se(0);
    return writer.flag(deblocking).flag(false).flag(redundant).unit();
  }
};

// Slice types.
constexpr uint32_t kP = 0, kB = 1, kI = 2, kSP = 3, kSI = 4;

// Writes what the text spells: "4:9" is 9 in 4 bits, "u7" and "s-7" are codes, "0" and "1" flags.
void spell(BitWriter& writer, const std::string& text) {
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const size_t colon = word.find(':');
    if (colon != std::string::npos)
      writer.bits(std::stoul(word.substr(colon + 1)), static_cast<uint32_t>(std::stoul(word)));
    else if (word[0] == 'u')
      writer.ue(std::stoul(word.substr(1)));
    else if (word[0] == 's')
      writer.se(std::stol(word.substr(1)));
    else
      writer.flag(word == "1");
  }
}

struct Written {
  const char* what;
  SPSFields sps;
  PPSFields pps;
  KivH264InterlaceType type;
  BitWriter header;  // the unit's header byte included
};

// rest: from frame_num on.
Written written(const char* what, uint8_t unitHeader, uint32_t sliceType, const SPSFields& sps,
                const PPSFields& pps, const char* rest, KivH264InterlaceType type = kFrame) {
  Written slice{what, sps, pps, type, {}};
  spell(slice.header.bits(unitHeader, 8).ue(100000).ue(sliceType + 5).ue(pps.id), rest);
  return slice;
}

const std::vector<Written>& writtenSlices() {
  static const std::vector<Written> slices = {
      written("I", 0x01, kI, {}, {}, "4:5 6:9 s-3"),
      written("IDR with a long ID", 0x65, kI, {}, {}, "4:0 u65535 6:0 1 0 s0"),
      written("frame number of 16 bits", 0x01, kI, {.log2MaxFrameNum = 16}, {}, "16:0 6:1 s1"),
      written("no order count", 0x01, kI, {.pocType = 2}, {}, "4:0 s1"),
      written("order count of type 1", 0x01, kI, {.pocType = 1}, {.bottomOrder = true},
              "4:0 s-70000 s70000 s1"),
      written("top field", 0x01, kI, {.pocType = 1, .frameMbsOnly = false}, {.bottomOrder = true},
              "4:0 1 0 s9 s1", kTop),
      written("bottom field", 0x01, kI, {.frameMbsOnly = false}, {.bottomOrder = true}, "4:0 1 1 6:3 s1",
              kBottom),
      written("frame among fields", 0x01, kI, {.frameMbsOnly = false}, {.bottomOrder = true},
              "4:0 0 6:3 s-2 s1"),
      written("colour plane", 0x01, kI, {.profile = 244, .chromaFormat = 3, .separateColourPlane = true}, {},
              "2:2 4:0 6:3 s1"),
      written("redundant picture, deblocking", 0x01, kI, {}, {.deblocking = true, .redundant = true},
              "4:0 6:3 u127 s1 u0 s-6 s6"),
      written("no deblocking", 0x01, kI, {}, {.deblocking = true}, "4:0 6:3 s1 u1"),
      written("P with lists and marking", 0x41, kP, {}, {.cabac = true, .weightedBi = 1, .l0 = 9},
              "4:1 6:3 0 1 u0 u65535 u1 u0 u2 u7 u3 1 u1 u3 u2 u4 u3 u5 u6 u4 u7 u5 u6 u8 u0 u2 s1"),
      written("P with weights", 0x01, kP, {}, {.weighted = true, .l0 = 2},
              "4:1 6:3 1 u2 0 u5 u6 1 s-128 s127 1 s1 s2 s3 s4 0 0 0 1 s1 s2 s3 s-128 s1"),
      written("B with weights, monochrome", 0x01, kB, {.profile = 100, .chromaFormat = 0},
              {.cabac = true, .weighted = true, .weightedBi = 1, .l1 = 2},
              "4:1 6:3 1 0 0 1 u1 u2 u3 u7 1 s1 s2 0 1 s3 s4 u0 s1"),
      written("B with implicit weights", 0x01, kB, {}, {.weightedBi = 2}, "4:1 6:3 0 1 u31 u31 0 0 s1"),
      written("SP with weights", 0x41, kSP, {}, {.cabac = true, .weighted = true},
              "4:1 6:3 0 0 u1 u1 0 0 0 u0 s1 1 s-9"),
      written("SI", 0x21, kSI, {}, {.cabac = true, .weighted = true}, "4:1 6:3 0 s1 s-9"),
      // 12 map units in steps of 11: log2(1.09 + 1) takes 2 bits; in steps of 3 or 1: 3 and 4
      written("slice groups", 0x01, kI, {}, {.mapType = 3, .changeRate = 11}, "4:1 6:3 s1 2:2"),
      written("slice groups", 0x01, kI, {}, {.mapType = 4, .changeRate = 3}, "4:1 6:3 s1 3:4"),
      written("slice groups", 0x01, kI, {}, {.mapType = 5, .changeRate = 1}, "4:1 6:3 s1 4:12"),
      written("data partition A", 0x02, kI, {}, {.id = 255}, "4:1 6:3 s1"),
      written("auxiliary picture", 0x13, kI, {}, {}, "4:1 6:3 s1"),
  };
  return slices;
}

// The first byte of the unit that has so many payload bytes before it.
size_t placeOf(const Bytes& unit, size_t payloadOffset) {
  size_t zeros = 0;
  for (size_t i = 0; i < unit.size(); ++i) {
    const bool emulation = zeros >= 2 && unit[i] == 3;
    if (!emulation && payloadOffset-- == 0) return i;
    zeros = unit[i] == 0 ? zeros + 1 : 0;
  }
  return unit.size();
}

TEST(H264Slice, HeadersOfEveryForm) {
  for (const Written& slice : writtenSlices()) {
    const BitWriter& header = slice.header;
    const size_t bits = header.bitCount() - 8;
    const Bytes sps = slice.sps.unit(), pps = slice.pps.unit();
    for (const size_t dataBits : {0, 5, 200, 40000}) {
      BitWriter writer = header;
      const Bytes unit = writer.zeros(dataBits).unit();
      const size_t clear = placeOf(unit, (header.bitCount() + 7) / 8);
      EXPECT_EQ(measure(unit, sps, pps), (Measured{0, bits, clear})) << slice.what;
      EXPECT_EQ(typeOf(unit, sps), slice.type) << slice.what;
      uint32_t ppsID = 99;
      EXPECT_EQ(KivH264Bridge_GetPPSSequenceIDFromSlice(unit.data(), unit.size(), &ppsID), 0);
      EXPECT_EQ(ppsID, slice.pps.id);
    }
    for (size_t length = 1; length < header.bitCount() / 8; ++length)  // whole bytes of it, no stop bit
      EXPECT_EQ(
          measure(Bytes(header.bytes().begin(), header.bytes().begin() + static_cast<ptrdiff_t>(length)), sps,
                  pps)
              .status,
          kUnreadable)
          << slice.what << " " << length;
  }
}

TEST(H264Slice, EmulationPreventionBytesBelongToWhatStandsBeforeThem) {
  const Bytes sps = SPSFields{.pocType = 2}.unit(), pps = PPSFields{}.unit();
  // 64 bits of which the last 21, of a slice_qp_delta, are 0
  const Bytes header = BitWriter().bits(0x01, 8).ue(0).ue(kI + 5).ue(0).zeros(4).code(21).bytes();
  ASSERT_EQ(header.size(), 8u);
  const struct {
    Bytes behind;
    size_t clear;
  } cases[] = {{{0xFF, 0, 0, 3, 1}, 8}, {{3, 1, 2}, 9}, {{3, 0, 0, 3}, 9}, {{3}, 9}, {{}, 8}};
  for (const auto& c : cases) {
    Bytes slice = header;
    slice.insert(slice.end(), c.behind.begin(), c.behind.end());
    EXPECT_EQ(measure(slice, sps, pps), (Measured{0, 56, c.clear}));
  }
}

TEST(H264Slice, RefusesWhatItCannotFollow) {
  const Bytes sps = SPSFields{}.unit(), pps = PPSFields{}.unit();
  const auto slice = [](uint8_t header, const char* rest) {
    BitWriter writer;
    spell(writer.bits(header, 8).ue(0), rest);
    return writer.zeros(100).unit();
  };
  const char* const good = "u0 u0 4:0 6:0 0 0 s0";
  const struct {
    const char* what;
    Bytes slice;
    PVStatus status;
  } cases[] = {{"P", slice(0x01, good), 0},
               {"SEI", slice(0x06, good), kInvalid},
               {"data partition B", slice(0x03, good), kInvalid},
               {"multiview slice", slice(0x74, good), kInvalid},
               {"unknown type", slice(0x01, "u10 u0"), kUnreadable},
               {"PPS 256", slice(0x01, "u2 u256"), kUnreadable},
               {"another PPS", slice(0x01, "u2 u1"), kInvalid},
               {"33 references", slice(0x01, "u0 u0 4:0 6:0 1 u32"), kUnreadable},
               {"unknown list change", slice(0x01, "u0 u0 4:0 6:0 0 1 u4"), kUnreadable},
               {"unknown marking", slice(0x21, "u2 u0 4:0 6:0 1 u7"), kUnreadable}};
  for (const auto& c : cases) EXPECT_EQ(measure(c.slice, sps, pps).status, c.status) << c.what;
  const Bytes fine = slice(0x01, good);
  EXPECT_EQ(measure(fine, SPSFields{.id = 1}.unit(), pps).status, kInvalid);
  EXPECT_EQ(measure(fine, SPSFields{.log2MaxFrameNum = 17}.unit(), pps).status, kUnreadable);
  EXPECT_EQ(measure(fine, pps, pps).status, kInvalid);
  EXPECT_EQ(measure(fine, sps, sps).status, kInvalid);
  EXPECT_EQ(KivH264Bridge_GetPPSSequenceIDFromSlice(nullptr, 5, nullptr), kInvalid);
  EXPECT_EQ(KivH264Bridge_GetPPSSequenceIDFromSlice(sps.data(), sps.size(), nullptr), kInvalid);
}

struct Told {
  PVStatus status;
  KivH264SlicePicture picture;
};

Told tell(const Bytes& slice, const Bytes& spsBytes, const Bytes& ppsBytes) {
  KivH264ParsedSPS sps;
  KivH264ParsedPPS pps;
  EXPECT_EQ(KivH264Bridge_ParseSPS(spsBytes.data(), spsBytes.size(), &sps), 0);
  EXPECT_EQ(KivH264Bridge_ParsePPS(ppsBytes.data(), ppsBytes.size(), &pps), 0);
  Told told{};
  told.picture.frameNum = 99;
  told.status = KivH264Bridge_GetSlicePicture(slice.data(), slice.size(), &sps, &pps, &told.picture);
  return told;
}

// Frames of fields in two slices each (x264), with the values that FFmpeg's trace_headers filter shows.
TEST(H264Slice, RealHeadersTellTheirPicture) {
  const Bytes sps = {0x67, 0x64, 0x00, 0x15, 0xAC, 0xD9, 0x42, 0x1B, 0x60, 0x22, 0x00, 0x00,
                     0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x65, 0x3E, 0x28, 0x53, 0x2C};
  const Bytes pps = {0x68, 0xFA, 0xA3, 0xCB, 0x22, 0xC0};
  const struct {
    Bytes slice;
    uint32_t firstMb, frameNum, lsb;
    uint8_t sliceType, unitType, refIDC;
  } cases[] = {
      {{0x65, 0x88, 0x82, 0x02, 0x0D, 0xFF, 0xCC, 0xD4, 0x46, 0x41}, 0, 0, 0, kI, 5, 3},
      {{0x65, 0x08, 0x88, 0x82, 0x02, 0x01, 0x2F, 0xF6, 0xE8, 0xC9}, 16, 0, 0, kI, 5, 3},
      {{0x41, 0x9A, 0x21, 0x96, 0x4D, 0xFF, 0xBC, 0x65, 0x62, 0xD6}, 0, 1, 6, kP, 1, 2},
      {{0x41, 0x08, 0x9A, 0x21, 0x96, 0x41, 0x3F, 0xFB, 0xA8, 0xCA}, 16, 1, 6, kP, 1, 2},
      {{0x41, 0x9E, 0x40, 0x97, 0x88, 0x4B, 0xFF, 0xF5, 0x9F, 0x87}, 0, 2, 2, kB, 1, 2},
      {{0x01, 0x9E, 0x61, 0x14, 0x42, 0x9F, 0xEF, 0x79, 0x90, 0xDE}, 0, 3, 4, kB, 1, 0},
  };
  for (const auto& c : cases) {
    const auto [status, picture] = tell(c.slice, sps, pps);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(picture.firstMbInSlice, c.firstMb);
    EXPECT_EQ(picture.frameNum, c.frameNum);
    EXPECT_EQ(picture.picOrderCntLsb, c.lsb);
    EXPECT_EQ(picture.deltaPicOrderCntBottom, 1);
    EXPECT_EQ(picture.sliceType, c.sliceType);
    EXPECT_EQ(picture.nalUnitType, c.unitType);
    EXPECT_EQ(picture.nalRefIDC, c.refIDC);
    EXPECT_FALSE(picture.fieldPic || picture.bottomField || picture.forgetsReferences);
    const Told cut = tell(Bytes(c.slice.begin(), c.slice.begin() + 3), sps, pps);
    EXPECT_EQ(cut.status, kUnreadable);
    EXPECT_EQ(cut.picture.frameNum, 99u);
  }
}

TEST(H264Slice, WrittenHeadersTellTheirPicture) {
  const auto picture = [](const char* what) {
    for (const Written& slice : writtenSlices()) {
      if (std::string(slice.what) != what) continue;
      const Told told = tell(slice.header.unit(), slice.sps.unit(), slice.pps.unit());
      EXPECT_EQ(told.status, 0) << what;
      return told.picture;
    }
    ADD_FAILURE() << what;
    return KivH264SlicePicture{};
  };
  EXPECT_EQ(picture("IDR with a long ID").idrPicID, 65535u);
  EXPECT_EQ(picture("order count of type 1").deltaPicOrderCnt[0], -70000);
  EXPECT_EQ(picture("order count of type 1").deltaPicOrderCnt[1], 70000);
  EXPECT_TRUE(picture("top field").fieldPic);
  EXPECT_FALSE(picture("top field").bottomField);
  EXPECT_EQ(picture("top field").deltaPicOrderCnt[0], 9);
  EXPECT_TRUE(picture("bottom field").bottomField);
  EXPECT_EQ(picture("bottom field").picOrderCntLsb, 3u);
  EXPECT_EQ(picture("frame among fields").deltaPicOrderCntBottom, -2);
  EXPECT_EQ(picture("redundant picture, deblocking").redundantPicCnt, 127u);
  EXPECT_TRUE(picture("P with lists and marking").forgetsReferences);
  EXPECT_EQ(picture("data partition A").ppsID, 255u);
  EXPECT_EQ(picture("data partition A").firstMbInSlice, 100000u);
}

TEST(H264Slice, PicturesNeedTheSetsOfTheSlice) {
  const Bytes slice = writtenSlices().front().header.unit();
  EXPECT_EQ(tell(slice, SPSFields{.id = 1}.unit(), PPSFields{}.unit()).status, kInvalid);
  EXPECT_EQ(tell(slice, SPSFields{}.unit(), PPSFields{.id = 1}.unit()).status, kInvalid);
  EXPECT_EQ(tell({}, SPSFields{}.unit(), PPSFields{}.unit()).status, kInvalid);
  EXPECT_EQ(tell({0x06, 0x80}, SPSFields{}.unit(), PPSFields{}.unit()).status, kInvalid);
  KivH264ParsedSPS sps{};
  KivH264ParsedPPS pps{};
  KivH264SlicePicture picture;
  const auto ask = [&](auto... arguments) {
    return KivH264Bridge_GetSlicePicture(slice.data(), slice.size(), arguments...);
  };
  EXPECT_EQ(ask(nullptr, &pps, &picture), kInvalid);
  EXPECT_EQ(ask(&sps, nullptr, &picture), kInvalid);
  EXPECT_EQ(ask(&sps, &pps, nullptr), kInvalid);
}

// Marking operations without end: read on up to a point.
TEST(H264Slice, LongHeadersAreFollowedSoFar) {
  const Bytes sps = SPSFields{}.unit(), pps = PPSFields{}.unit();
  for (const uint32_t operations : {100u, 600u, 4000u}) {
    BitWriter header;
    header.bits(0x21, 8).ue(0).ue(kI).ue(0).zeros(10).flag(true);
    for (uint32_t i = 0; i < operations; ++i) header.ue(1).code(7);  // 18 bits
    header.ue(0).se(0);
    BitWriter writer = header;
    const Bytes slice = writer.zeros(3000).unit();
    const bool followed = operations < 4000;
    EXPECT_EQ(measure(slice, sps, pps).status, followed ? 0 : kUnreadable);
    EXPECT_EQ(measure(slice, sps, pps).bits, followed ? header.bitCount() - 8 : 0);
  }
}

using Info = KivH264HLSfMP4ParsingInfoRef;

PVStatus createInfo(const std::vector<Bytes>& sets, Info* out, BRAllocatorRef allocator = nullptr) {
  std::vector<const uint8_t*> pointers;
  std::vector<size_t> sizes;
  for (const Bytes& set : sets) {
    pointers.push_back(set.data());
    sizes.push_back(set.size());
  }
  br::Ref<const BRData> avcC;
  EXPECT_EQ(KivH264Bridge_CreateAVCCFromH264ParameterSets(nullptr, sets.size(), pointers.data(), sizes.data(),
                                                          4, nullptr, nullptr, avcC.out()),
            0);
  return KivH264Bridge_CreateHLSfMP4ParsingInfoFromAVCCData(allocator, avcC.get(), out);
}

TEST(H264Segment, LocatesTheHeadersOfSlices) {
  const Bytes sps31 = SPSFields{.id = 31, .pocType = 2}.unit();
  const Bytes extension = BitWriter().bits(0x6D, 8).ue(0).ue(0).unit();
  Info info = nullptr;
  ASSERT_EQ(createInfo({SPSFields{}.unit(), sps31, extension, PPSFields{}.unit(),
                        PPSFields{.id = 255, .spsID = 31}.unit(), PPSFields{.id = 7, .spsID = 9}.unit()},
                       &info),
            0);
  const auto locate = [&](const Bytes& unit, bool& encryptable, size_t& clear) {
    return KivH264Bridge_LocateSliceHeaderForHLSfMP4EncryptableNAL(info, unit.data(), unit.size(),
                                                                   &encryptable, &clear);
  };
  const auto slice = [](uint8_t header, uint32_t ppsID) {
    return BitWriter().bits(header, 8).ue(0).ue(kI).ue(ppsID).bits(0, 4).se(0).zeros(100).unit();
  };
  bool encryptable = false;
  size_t clear = 0;
  EXPECT_EQ(locate(slice(0x01, 255), encryptable, clear), 0);  // 8 + 1 + 3 + 17 + 4 + 1 bits
  EXPECT_TRUE(encryptable);
  EXPECT_EQ(clear, 5u);
  for (const uint8_t header : {0x02, 0x06, 0x67, 0x13, 0x14}) {
    EXPECT_EQ(locate(slice(header, 255), encryptable, clear), 0);
    EXPECT_FALSE(encryptable);
    EXPECT_EQ(clear, slice(header, 255).size());
  }
  EXPECT_EQ(locate(slice(0x01, 8), encryptable, clear), kInvalid);  // not in the record
  EXPECT_EQ(locate(slice(0x01, 7), encryptable, clear), kInvalid);  // nor is its SPS
  EXPECT_EQ(locate({0x01}, encryptable, clear), kUnreadable);
  EXPECT_EQ(locate({}, encryptable, clear), kInvalid);
  KivH264Bridge_HLSfMP4ParsingInfoDestroy(info);
  KivH264Bridge_HLSfMP4ParsingInfoDestroy(nullptr);
}

TEST(H264Segment, InfosNeedReadableSetsAndMemory) {
  Info info = reinterpret_cast<Info>(&info);
  EXPECT_EQ(createInfo({SPSFields{.id = 32}.unit(), PPSFields{}.unit()}, &info), kUnreadable);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(createInfo({SPSFields{}.unit(), PPSFields{.id = 256}.unit()}, &info), kUnreadable);
  EXPECT_EQ(createInfo({SPSFields{}.unit(), {0x68, 0xE0}}, &info), kUnreadable);
  EXPECT_EQ(KivH264Bridge_CreateHLSfMP4ParsingInfoFromAVCCData(nullptr, nullptr, &info), kInvalid);
  EXPECT_EQ(KivH264Bridge_LocateSliceHeaderForHLSfMP4EncryptableNAL(nullptr, nullptr, 0, nullptr, nullptr),
            kInvalid);
  EXPECT_EQ(walkAllocationFailures([](BRAllocatorRef allocator) {
              Info made = nullptr;
              const PVStatus status = createInfo({kHighSPS, kHighPPS}, &made, allocator);
              EXPECT_TRUE(status == 0 || status == kKivBridgeError_AllocationFailed);
              EXPECT_EQ(made != nullptr, status == 0);
              KivH264Bridge_HLSfMP4ParsingInfoDestroy(made);
              return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
            }),
            1);
}

}  // namespace
