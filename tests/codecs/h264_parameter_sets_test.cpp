#include <kiv/error.h>
#include <kiv/h264_bridge.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/codecs/h264_samples.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace test;

constexpr PVStatus kAbsent = kKivBridgeError_InvalidParameter, kUnreadable = kKivBridgeError_UnreadableData;

// All answers, beginning with what no set says.
struct Answers {
  int32_t width = -1, height = -1;
  bool interlaced = false, fixed = false, picStruct = false, hrd = false, fullRange = false;
  float rate = -1;
  uint32_t delayBits = 99, horizontal = 99, vertical = 99, primaries = 99, transfer = 99, matrix = 99,
           top = 99, bottom = 99, id = 99;
  bool operator==(const Answers&) const = default;
};
struct Statuses {
  PVStatus size, interlace, id, range, aspect, colours, location, rate;
  bool operator==(const Statuses&) const = default;
};

Statuses ask(const uint8_t* sps, size_t length, Answers& a) {
  return {.size = KivH264Bridge_GetSPSWidthAndHeight(sps, length, &a.width, &a.height),
          .interlace = KivH264Bridge_GetSPSIsInterlaced(sps, length, &a.interlaced),
          .id = KivH264Bridge_GetSPSSequenceID(sps, length, &a.id),
          .range = KivH264Bridge_GetSPS_VUI_FullRangeVideo(sps, length, &a.fullRange),
          .aspect = KivH264Bridge_GetSPS_VUI_AspectRatio(sps, length, &a.horizontal, &a.vertical),
          .colours = KivH264Bridge_GetSPS_VUI_NCLC(sps, length, &a.primaries, &a.transfer, &a.matrix),
          .location = KivH264Bridge_GetSPS_VUI_ChromaLocation(sps, length, &a.top, &a.bottom),
          .rate = KivH264Bridge_GetSPS_VUI_Framerate(sps, length, &a.rate, &a.fixed, &a.picStruct, &a.hrd,
                                                     &a.delayBits)};
}
Statuses ask(const Bytes& sps, Answers& a) { return ask(sps.data(), sps.size(), a); }

constexpr Statuses all(PVStatus s) { return {s, s, s, s, s, s, s, s}; }
constexpr Statuses kWithoutVUI = {0, 0, 0, kAbsent, kAbsent, kAbsent, kAbsent, kAbsent};

// A set whose usability information is what write puts behind its flag.
Bytes withVUI(const std::function<void(BitWriter&)>& write, const SPSFields& fields = {}) {
  BitWriter writer = fields.write().flag(true);
  write(writer);
  return writer.zeros(40).unit();
}
void timing(BitWriter& writer, uint32_t units, uint32_t scale) {
  writer.zeros(4).flag(true).bits(units, 32).bits(scale, 32).flag(true);
}

TEST(H264SPS, RealSetsSayWhatTheirStreamsShow) {
  Answers high, interlaced, high422;
  EXPECT_EQ(ask(kHighSPS, high), (Statuses{0, 0, 0, 0, 0, 0, kAbsent, 0}));
  EXPECT_EQ(high, (Answers{.width = 1920,
                           .height = 1080,
                           .fixed = true,
                           .hrd = true,
                           .rate = 25,
                           .delayBits = 20,
                           .horizontal = 1,
                           .vertical = 1,
                           .primaries = 1,
                           .transfer = 1,
                           .matrix = 1,
                           .id = 0}));
  EXPECT_EQ(ask(kInterlacedSPS, interlaced), (Statuses{0, 0, 0, 0, 0, kAbsent, kAbsent, 0}));
  EXPECT_EQ(interlaced, (Answers{.width = 704,
                                 .height = 480,
                                 .interlaced = true,
                                 .fixed = true,
                                 .picStruct = true,
                                 .rate = 30000.f / 1001,
                                 .delayBits = 0,
                                 .horizontal = 10,
                                 .vertical = 11,
                                 .id = 0}));
  EXPECT_EQ(ask(kHigh422SPS, high422), (Statuses{0, 0, 0, 0, 0, 0, kAbsent, 0}));
  EXPECT_EQ(high422, (Answers{.width = 1280,
                              .height = 718,
                              .fixed = true,
                              .rate = 50,
                              .delayBits = 0,
                              .horizontal = 255,
                              .vertical = 256,
                              .primaries = 9,
                              .transfer = 16,
                              .matrix = 9,
                              .id = 0}));
  KivH264ParsedSPS sps;
  ASSERT_EQ(KivH264Bridge_ParseSPS(kHighSPS.data(), kHighSPS.size(), &sps), 0);
  EXPECT_EQ(sps.profileIdc, 100);
  EXPECT_EQ(sps.levelIdc, 40);
  EXPECT_EQ(sps.cpbRemovalDelayLength, 13u);
  EXPECT_EQ(sps.log2MaxPicOrderCntLsb, 6u);
}

TEST(H264SPS, SizesAreCroppedInTheUnitsOfTheChromaFormat) {
  const struct {
    SPSFields fields;
    int32_t width, height;
  } cases[] = {
      {{}, 64, 48},
      {{.crop = {1, 2, 1, 3}}, 64 - 6, 48 - 8},
      {{.frameMbsOnly = false, .crop = {0, 0, 0, 2}}, 64, 96 - 8},
      {{.profile = 100, .chromaFormat = 0, .crop = {1, 2, 3, 4}}, 64, 48},  // monochrome is not cropped
      {{.profile = 122, .chromaFormat = 2, .crop = {1, 0, 1, 0}}, 62, 47},
      {{.profile = 244, .chromaFormat = 3, .crop = {1, 0, 1, 0}}, 63, 47},
      {{.profile = 244, .chromaFormat = 3, .frameMbsOnly = false, .crop = {1, 0, 1, 0}}, 63, 94},
      {{.profile = 100, .chromaFormat = 4, .crop = {1, 0, 1, 0}}, 62, 46},
      {{.widthInMbs = 8191, .heightInMapUnits = 8191, .frameMbsOnly = false}, 131056, 262112},
  };
  for (const auto& c : cases) {
    Answers answers;
    const Bytes sps = c.fields.unit();
    EXPECT_EQ(ask(sps, answers), kWithoutVUI);
    EXPECT_EQ(answers.width, c.width) << c.fields.chromaFormat;
    EXPECT_EQ(answers.height, c.height) << c.fields.chromaFormat;
    EXPECT_EQ(answers.interlaced, !c.fields.frameMbsOnly);
  }
}

TEST(H264SPS, SizesThatAreNoneAreRefusedAlone) {
  Answers answers;
  Statuses statuses = kWithoutVUI;
  statuses.size = kUnreadable;
  for (const auto& fields : {SPSFields{.crop = {32, 0, 0, 0}}, SPSFields{.crop = {0, 0, 8000, 8000}}})
    EXPECT_EQ(ask(fields.unit(), answers), statuses);
  EXPECT_EQ(answers.width, -1);
  KivH264ParsedSPS sps{};
  sps.picWidthInMbs = sps.picHeightInMapUnits = UINT32_MAX;
  EXPECT_EQ(KivH264Bridge_GetWidthAndHeightFromParsedSPS(&sps, nullptr, nullptr), kUnreadable);
  EXPECT_EQ(KivH264Bridge_GetWidthAndHeightFromParsedSPS(nullptr, nullptr, nullptr), kAbsent);
}

TEST(H264SPS, AspectRatiosOfAllIndicators) {
  constexpr uint32_t kTable[17][2] = {{99, 99}, {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                      {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                      {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
  for (uint32_t indicator = 0; indicator < 256; ++indicator) {
    Answers answers;
    const Bytes sps =
        withVUI([&](BitWriter& vui) { vui.flag(true).bits(indicator, 8).bits(0xFFFE0003, 32); });
    EXPECT_EQ(ask(sps, answers).aspect, 0);
    const bool extended = indicator == 255, known = indicator < 17;
    EXPECT_EQ(answers.horizontal, extended ? 0xFFFEu : known ? kTable[indicator][0] : 99u) << indicator;
    EXPECT_EQ(answers.vertical, extended ? 3u : known ? kTable[indicator][1] : 99u) << indicator;
  }
}

TEST(H264SPS, RatesAreOfFramesExceptOfPlainFields) {
  const struct {
    uint32_t pocType;
    bool frameMbsOnly, mbaff, picStruct;
    float rate;
  } cases[] = {{1, false, false, false, 50}, {0, false, false, false, 25}, {2, false, false, false, 25},
               {1, true, false, false, 25},  {1, false, true, false, 25},  {1, false, false, true, 25}};
  for (const auto& c : cases) {
    Answers answers;
    const auto vui = [&](BitWriter& writer) {
      timing(writer, 2, 100);
      writer.zeros(2).flag(c.picStruct);
    };
    const Bytes sps = withVUI(vui, {.pocType = c.pocType, .frameMbsOnly = c.frameMbsOnly, .mbaff = c.mbaff});
    EXPECT_EQ(ask(sps, answers).rate, 0);
    EXPECT_EQ(answers.rate, c.rate);
    EXPECT_EQ(answers.picStruct, c.picStruct);
  }
  for (const uint32_t units : {0u, 1u}) {
    Answers answers;
    EXPECT_EQ(ask(withVUI([&](BitWriter& vui) { timing(vui, units, units == 0 ? 50 : 0); }), answers).rate,
              kAbsent);
    EXPECT_EQ(answers.rate, -1);
  }
}

// hrd_parameters with codes of so many leading zeros for each rate and size.
void hrd(BitWriter& writer, uint32_t buffers, uint32_t zeros, uint32_t removalBits, uint32_t outputBits) {
  writer.flag(true).ue(buffers - 1).bits(0, 8);
  for (uint32_t i = 0; i < buffers; ++i) writer.code(zeros).code(zeros).flag(false);
  writer.bits(7, 5).bits(removalBits - 1, 5).bits(outputBits - 1, 5).bits(0, 5);
}

TEST(H264SPS, HRDParametersOfAnyLengthAreSteppedOver) {
  Answers answers;
  EXPECT_EQ(ask(withVUI([](BitWriter& vui) {
                  timing(vui, 1, 50);
                  hrd(vui, 32, 31, 24, 32);
                  hrd(vui, 2, 100, 1, 1);
                  vui.flag(false).flag(true);
                }),
                answers)
                .rate,
            0);
  EXPECT_TRUE(answers.hrd && answers.picStruct);
  EXPECT_EQ(answers.delayBits, 24u + 32);
  EXPECT_EQ(ask(withVUI([](BitWriter& vui) {
                  timing(vui, 1, 50);
                  vui.flag(false);
                  hrd(vui, 1, 3, 5, 6);
                }),
                answers)
                .rate,
            0);
  EXPECT_EQ(answers.delayBits, 11u);
}

TEST(H264SPS, ImplausibleUsabilityInformationCostsNothingBeforeIt) {
  Answers answers;
  const auto beginning = [](BitWriter& vui) {
    vui.flag(true).bits(3, 8).flag(false).flag(true).bits(5, 3).flag(true).flag(true).bits(0x010D06, 24);
  };
  // a chroma location of 13 leading zeros
  EXPECT_EQ(ask(withVUI([&](BitWriter& vui) {
                  beginning(vui);
                  vui.flag(true).code(13);
                }),
                answers),
            (Statuses{0, 0, 0, 0, 0, 0, kUnreadable, kUnreadable}));
  EXPECT_EQ(answers, (Answers{.width = 64,
                              .height = 48,
                              .fullRange = true,
                              .horizontal = 10,
                              .vertical = 11,
                              .primaries = 1,
                              .transfer = 13,
                              .matrix = 6,
                              .id = 0}));
  // 33 coded picture buffers: without the HRD, and a frame is a frame
  const auto buffers = [&](BitWriter& vui) {
    beginning(vui);
    vui.flag(true).ue(1).ue(8190).flag(true).bits(1, 32).bits(50, 32).flag(true);
    vui.flag(true).ue(32).zeros(30);
  };
  EXPECT_EQ(ask(withVUI(buffers, {.frameMbsOnly = false}), answers), all(0));
  EXPECT_EQ(answers.rate, 25);
  EXPECT_TRUE(answers.fixed && !answers.hrd && !answers.picStruct);
  EXPECT_EQ(answers.delayBits, 0u);
  EXPECT_EQ(answers.bottom, 8190u);
}

TEST(H264SPS, CutSetsAnswerNothing) {
  for (const Bytes* sps : {&kHighSPS, &kInterlacedSPS, &kHigh422SPS}) {
    const size_t usable = sps->size() - (sps == &kInterlacedSPS ? 3 : sps == &kHighSPS ? 3 : 4);
    for (size_t length = 0; length < sps->size(); ++length) {
      Answers answers;
      const Statuses statuses = ask(sps->data(), length, answers);
      if (length >= usable) {
        EXPECT_EQ(statuses.size, 0) << length;
        continue;
      }
      EXPECT_EQ(statuses, all(length == 0 ? kAbsent : kUnreadable)) << length;
      EXPECT_EQ(answers, Answers{});
    }
  }
}

TEST(H264SPS, CodesAreReadUpToTwelveLeadingZeros) {
  Answers answers;
  const auto write = [](uint32_t idZeros, uint32_t framesInCycle, uint32_t pocType) {
    BitWriter writer;
    writer.bits(0x67, 8).bits(77, 8).bits(0, 8).bits(30, 8).code(idZeros).ue(0).ue(pocType);
    if (pocType == 1) {
      writer.flag(false).code(31).code(60).ue(framesInCycle);  // offsets of any length
      for (uint32_t i = 0; i < framesInCycle; ++i) writer.code(20);
    }
    return writer.ue(1).flag(false).ue(3).ue(2).flag(true).flag(true).flag(false).flag(false).unit();
  };
  EXPECT_EQ(ask(write(12, 0, 2), answers), kWithoutVUI);
  EXPECT_EQ(answers.id, 4095u);
  EXPECT_EQ(ask(write(13, 0, 2), answers), all(kUnreadable));
  EXPECT_EQ(ask(write(0, 255, 1), answers), kWithoutVUI);
  EXPECT_EQ(answers.height, 48);
  EXPECT_EQ(ask(write(0, 256, 1), answers), all(kUnreadable));
  EXPECT_EQ(ask(write(0, 0, 3), answers), all(kUnreadable));
}

TEST(H264SPS, ScalingListsAreSteppedOver) {
  for (const uint32_t chromaFormat : {1u, 3u}) {
    BitWriter writer;
    writer.bits(0x67, 8).bits(100, 8).bits(0, 8).bits(30, 8).ue(0).ue(chromaFormat);
    if (chromaFormat == 3) writer.flag(false);
    writer.ue(0).ue(0).flag(false).flag(true);
    const uint32_t lists = chromaFormat == 3 ? 12 : 8;
    for (uint32_t list = 0; list < lists; ++list) {
      const uint32_t size = list < 6 ? 16 : 64;
      writer.flag(list != 1);
      if (list == 1) continue;              // falls back
      if (list == 0) writer.se(-8);         // the default list
      if (list == 2) writer.se(4).se(-12);  // ends behind one value
      if (list > 2)
        for (uint32_t i = 0; i < size; ++i) writer.se(i % 3 == 2 ? 2 : 127);  // past 255 and back
    }
    writer.ue(0).ue(2).ue(1).flag(false).ue(3).ue(2).flag(true).flag(true).flag(false).flag(false);
    Answers answers;
    EXPECT_EQ(ask(writer.unit(), answers), kWithoutVUI);
    EXPECT_EQ(answers.width, 64);
    EXPECT_EQ(answers.height, 48);
  }
}

TEST(H264SPS, ProfilesThatCodeTheirChromaFormat) {
  constexpr uint32_t kCoding[] = {44, 83, 86, 100, 110, 118, 122, 128, 134, 135, 138, 139, 144, 244};
  for (uint32_t profile = 0; profile < 256; ++profile) {
    const bool codes = std::count(std::begin(kCoding), std::end(kCoding), profile) != 0;
    // 4:2:0, 8 bits, no matrix; without these fields other values, of which 3 is no picture order count type
    BitWriter writer;
    writer.bits(0x67, 8).bits(profile, 8).bits(0, 8).bits(30, 8).ue(0).ue(1).ue(codes ? 0 : 3).ue(0).zeros(2);
    writer.ue(0).ue(2).ue(1).flag(false).ue(3).ue(2).flag(true).flag(true).flag(false).flag(false);
    Answers answers;
    EXPECT_EQ(ask(writer.unit(), answers), codes ? kWithoutVUI : all(kUnreadable)) << profile;
  }
}

TEST(H264SPS, RefusesWhatIsNoSet) {
  Answers answers;
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(ask(nullptr, 5, answers), all(kAbsent));
  EXPECT_EQ(ask(kHighSPS.data(), 0, answers), all(kAbsent));
  EXPECT_EQ(ask(kHighPPS, answers), all(kAbsent));
  EXPECT_EQ(KivH264Bridge_ParseSPS(kHighSPS.data(), kHighSPS.size(), nullptr), kAbsent);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 8u * 3 + 1);
  EXPECT_EQ(answers, Answers{});
  EXPECT_EQ(KivH264Bridge_GetSPS_VUI_Framerate(kHighSPS.data(), kHighSPS.size(), nullptr, nullptr, nullptr,
                                               nullptr, nullptr),
            0);
}

// Reads end where the bytes do: behind them lies a page that nobody may touch.
TEST(H264SPS, IsReadInPlaceUpToTheEndOfAPage) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  auto* end = static_cast<uint8_t*>(pages) + page;
  ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
  const Bytes plain = SPSFields{.profile = 100, .crop = {0, 0, 0, 4}}.unit();
  for (const Bytes* sps : {&kHighSPS, &plain})
    for (size_t gap = 0; gap < 8; ++gap) {
      uint8_t* place = end - gap - sps->size();
      std::copy(sps->begin(), sps->end(), place);
      Answers answers;
      EXPECT_EQ(ask(place, sps->size(), answers).size, 0);
      EXPECT_EQ(answers.height, sps == &plain ? 40 : 1080);
    }
  munmap(pages, 2 * page);
}

TEST(H264PPS, TellsItsIDsAndWhatSlicesNeed) {
  KivH264ParsedPPS pps;
  ASSERT_EQ(KivH264Bridge_ParsePPS(kInterlacedPPS.data(), kInterlacedPPS.size(), &pps), 0);
  EXPECT_TRUE(pps.entropyCodingMode && pps.bottomFieldPicOrderInFramePresent &&
              pps.deblockingFilterControlPresent);
  EXPECT_FALSE(pps.weightedPred || pps.redundantPicCntPresent);
  EXPECT_EQ(pps.numRefIdxL0DefaultActive, 3u);
  EXPECT_EQ(pps.weightedBipredIdc, 2u);
  EXPECT_EQ(pps.picInitQP, 23);
  for (size_t length = 0; length + 1 < kInterlacedPPS.size(); ++length)
    EXPECT_EQ(KivH264Bridge_ParsePPS(kInterlacedPPS.data(), length, &pps),
              length == 0 ? kAbsent : kUnreadable);

  uint32_t ppsID = 99, spsID = 99;
  const Bytes set = BitWriter().bits(0x28, 8).ue(255).ue(31).unit();
  EXPECT_EQ(KivH264Bridge_GetPPSSequenceID(set.data(), set.size(), &ppsID, &spsID), 0);
  EXPECT_EQ(ppsID, 255u);
  EXPECT_EQ(spsID, 31u);
  EXPECT_EQ(KivH264Bridge_GetPPSSequenceID(set.data(), 1, &ppsID, &spsID), kUnreadable);
  EXPECT_EQ(KivH264Bridge_GetPPSSequenceID(kHighSPS.data(), 9, &ppsID, &spsID), kAbsent);
}

TEST(H264PPS, SliceGroupsOfEveryKind) {
  const auto write = [](uint32_t groups, uint32_t type, const std::function<void(BitWriter&)>& map) {
    BitWriter writer;
    writer.bits(0x68, 8).ue(7).ue(2).flag(false).flag(false).ue(groups - 1).ue(type);
    map(writer);
    return writer.ue(4)
        .ue(5)
        .flag(true)
        .bits(1, 2)
        .se(-26)
        .se(0)
        .se(2)
        .flag(true)
        .flag(false)
        .flag(true)
        .unit();
  };
  const std::function<void(BitWriter&)> maps[] = {
      [](BitWriter& w) { w.ue(9).ue(8).ue(40000); },    [](BitWriter&) {},
      [](BitWriter& w) { w.ue(1).ue(2).ue(3).ue(4); },  [](BitWriter& w) { w.flag(true).ue(99999); },
      [](BitWriter& w) { w.flag(true).ue(99999); },     [](BitWriter& w) { w.flag(true).ue(99999); },
      [](BitWriter& w) { w.ue(9999).zeros(2 * 10000); }};
  for (uint32_t type = 0; type < 8; ++type) {
    KivH264ParsedPPS pps;
    const Bytes set = write(3, type, maps[std::min(type, 6u)]);
    ASSERT_EQ(KivH264Bridge_ParsePPS(set.data(), set.size(), &pps), type == 7 ? kUnreadable : 0) << type;
    if (type == 7) break;
    EXPECT_EQ(pps.numRefIdxL1DefaultActive, 6u) << type;
    EXPECT_EQ(pps.picInitQP, 0);
    EXPECT_TRUE(pps.weightedPred && pps.redundantPicCntPresent);
    EXPECT_EQ(pps.sliceGroupChangeRate, type >= 3 && type <= 5 ? 100000u : 0u);
  }
  KivH264ParsedPPS pps;
  const Bytes tooMany = write(9, 1, maps[1]);
  EXPECT_EQ(KivH264Bridge_ParsePPS(tooMany.data(), tooMany.size(), &pps), kUnreadable);
}

TEST(H264ParameterSets, TellTheirCycleOfOrderCounts) {
  BitWriter writer;
  writer.bits(0x67, 8).bits(66, 8).bits(0, 8).bits(30, 8).ue(0).ue(0).ue(1).flag(false);
  const Bytes unit = writer.se(-7).se(1 << 20).ue(3).se(4).se(-2).se(300).unit();
  KivH264PicOrderCntCycle cycle{};
  ASSERT_EQ(KivH264Bridge_GetSPSPicOrderCntCycle(unit.data(), unit.size(), &cycle), 0);
  EXPECT_EQ(cycle.offsetForNonRefPic, -7);
  EXPECT_EQ(cycle.offsetForTopToBottomField, 1 << 20);
  EXPECT_EQ(cycle.numRefFrames, 3u);
  EXPECT_EQ(cycle.offsetForRefFrame[0], 4);
  EXPECT_EQ(cycle.offsetForRefFrame[1], -2);
  EXPECT_EQ(cycle.offsetForRefFrame[2], 300);
  EXPECT_EQ(cycle.offsetForRefFrame[3], 0);
  for (size_t length = 1; length + 1 < unit.size(); ++length)
    EXPECT_EQ(KivH264Bridge_GetSPSPicOrderCntCycle(unit.data(), length, &cycle),
              kKivBridgeError_UnreadableData);
  const Bytes other = SPSFields{}.unit();
  EXPECT_EQ(KivH264Bridge_GetSPSPicOrderCntCycle(other.data(), other.size(), &cycle),
            kKivBridgeError_InvalidParameter);
  EXPECT_EQ(KivH264Bridge_GetSPSPicOrderCntCycle(unit.data(), unit.size(), nullptr),
            kKivBridgeError_InvalidParameter);
}

}  // namespace
