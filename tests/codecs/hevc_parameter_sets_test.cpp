#include <kiv/error.h>
#include <kiv/hevc_bridge.h>

#include "tests/codecs/hevc_sets.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace test;

constexpr PVStatus kInvalid = kKivBridgeError_InvalidParameter;
constexpr PVStatus kUnreadable = kKivBridgeError_UnreadableData;

// What all the questions answer: the status, then the values of those that answered, each preceded by a
// letter.
struct Answers {
  int32_t width = -1, height = -1;
  bool interlaced = false, fixedRate = false, fieldInfo = false, hrd = false, fullRange = false;
  float rate = -1;
  uint32_t delayBits = 99, horizontal = 99, vertical = 99, primaries = 99, transfer = 99, matrix = 99;
  uint32_t top = 99, bottom = 99, id = 99;
  PVStatus size, interlacing, frameRate, aspectRatio, colours, range, chroma, identity;

  explicit Answers(const Bytes& sps) : Answers(sps, sps.size()) {}
  Answers(const Bytes& sps, size_t length) {
    const Bytes exact(sps.begin(),
                      sps.begin() + static_cast<ptrdiff_t>(length));  // for the address sanitizer
    const uint8_t* bytes = exact.data();
    size = KivHEVCBridge_GetSPSWidthAndHeight(bytes, length, &width, &height);
    interlacing = KivHEVCBridge_GetSPSIsInterlaced(bytes, length, &interlaced);
    frameRate =
        KivHEVCBridge_GetSPS_VUI_Framerate(bytes, length, &rate, &fixedRate, &fieldInfo, &hrd, &delayBits);
    aspectRatio = KivHEVCBridge_GetSPS_VUI_AspectRatio(bytes, length, &horizontal, &vertical);
    colours = KivHEVCBridge_GetSPS_VUI_NCLC(bytes, length, &primaries, &transfer, &matrix);
    range = KivHEVCBridge_GetSPS_VUI_FullRangeVideo(bytes, length, &fullRange);
    chroma = KivHEVCBridge_GetSPS_VUI_ChromaLocation(bytes, length, &top, &bottom);
    identity = KivHEVCBridge_GetSPSSequenceID(bytes, length, &id);
  }
  // In the order of the set: what breaks one breaks those behind it.
  std::vector<PVStatus> statuses() const {
    return {size, identity, aspectRatio, colours, range, chroma, interlacing, frameRate};
  }
};

KivHEVCParsedSPS parsed(const Bytes& unit) {
  KivHEVCParsedSPS sps{};
  EXPECT_EQ(KivHEVCBridge_ParseSPS(unit.data(), unit.size(), &sps), 0);
  return sps;
}
PVStatus parseStatus(const Bytes& unit) {
  KivHEVCParsedSPS sps;
  return KivHEVCBridge_ParseSPS(unit.data(), unit.size(), &sps);
}

TEST(HEVCParameterSets, RealSetsAnswerEveryQuestion) {
  const Answers main10(kMain10SPS);
  EXPECT_EQ(main10.statuses(), std::vector<PVStatus>(8, 0));
  EXPECT_EQ(std::tie(main10.width, main10.height, main10.id), std::make_tuple(1920, 1080, 0u));
  EXPECT_EQ(std::tie(main10.horizontal, main10.vertical), std::make_tuple(1u, 1u));
  EXPECT_EQ(std::tie(main10.primaries, main10.transfer, main10.matrix), std::make_tuple(9u, 16u, 9u));
  EXPECT_EQ(std::tie(main10.top, main10.bottom), std::make_tuple(2u, 2u));
  EXPECT_EQ(std::tie(main10.interlaced, main10.fullRange), std::make_tuple(false, false));
  EXPECT_EQ(std::tie(main10.fixedRate, main10.fieldInfo, main10.hrd), std::make_tuple(true, false, true));
  EXPECT_FLOAT_EQ(main10.rate, 24000.0f / 1001);
  EXPECT_EQ(main10.delayBits, 18u);

  const Answers fields(kFieldsSPS);
  EXPECT_EQ(fields.statuses(), (std::vector<PVStatus>{0, 0, 0, 0, 0, kInvalid, 0, 0}));
  EXPECT_EQ(std::tie(fields.width, fields.height), std::make_tuple(720, 576));
  EXPECT_EQ(std::tie(fields.horizontal, fields.vertical), std::make_tuple(64u, 45u));
  EXPECT_EQ(std::tie(fields.primaries, fields.transfer, fields.matrix), std::make_tuple(5u, 5u, 5u));
  EXPECT_EQ(std::tie(fields.interlaced, fields.fieldInfo, fields.hrd), std::make_tuple(true, true, false));
  EXPECT_EQ(std::tie(fields.rate, fields.delayBits), std::make_tuple(25.0f, 0u));

  const Answers monochrome(kMonochromeSPS);
  EXPECT_EQ(std::tie(monochrome.width, monochrome.height), std::make_tuple(102, 76));
  EXPECT_EQ(std::tie(monochrome.horizontal, monochrome.vertical, monochrome.fullRange),
            std::make_tuple(4u, 3u, true));
  EXPECT_EQ(monochrome.colours, kInvalid);

  const Answers large(kLargeSPS);
  EXPECT_EQ(std::tie(large.width, large.height, large.rate), std::make_tuple(8192, 4320, 60.0f));
}

TEST(HEVCParameterSets, RecordsHoldWhatIsCoded) {
  const KivHEVCParsedSPS main10 = parsed(kMain10SPS), fields = parsed(kFieldsSPS), large = parsed(kLargeSPS);
  EXPECT_EQ(std::tie(main10.profileIdc, main10.levelIdc, main10.tierFlag), std::make_tuple(2, 120, false));
  EXPECT_EQ(main10.profileCompatibilityFlags, 0x20000000u);
  EXPECT_EQ(main10.constraintFlags, 0x900000000000u);
  EXPECT_EQ(std::tie(main10.bitDepthLuma, main10.bitDepthChroma), std::make_tuple(10u, 10u));
  EXPECT_EQ(std::tie(main10.picHeightInLumaSamples, main10.confWinBottom), std::make_tuple(1088u, 4u));
  EXPECT_EQ(std::tie(main10.nalHRDPresent, main10.vclHRDPresent), std::make_tuple(true, false));
  EXPECT_EQ(std::tie(fields.maxSubLayers, fields.temporalIdNesting), std::make_tuple(2u, false));
  EXPECT_EQ(std::tie(fields.interlacedSource, fields.fieldSeq, fields.chromaFormatIdc),
            std::make_tuple(true, true, 2u));
  EXPECT_EQ(std::tie(fields.vui.videoFormat, fields.vui.overscanInfoPresent, fields.vui.overscanAppropriate),
            std::make_tuple(1, true, false));
  EXPECT_EQ(std::tie(large.tierFlag, large.levelIdc), std::make_tuple(true, 186));
  EXPECT_EQ(fields.vui.lastPartRead, kKivVideoUsabilityPart_BitstreamRestriction);
}

// A set that ends early answers as the whole set does, or that it cannot be read; the longer, the more.
TEST(HEVCParameterSets, PrefixesAnswerLikeTheWholeOrNotAtAll) {
  for (const Bytes& sps : {kMain10SPS, kFieldsSPS, kMonochromeSPS, kLargeSPS}) {
    const Answers whole(sps);
    std::vector<PVStatus> before(8, kUnreadable);
    EXPECT_EQ(Answers(sps, 0).statuses(), std::vector<PVStatus>(8, kInvalid));
    for (size_t length = 1; length < sps.size(); ++length) {
      const Answers prefix(sps, length);
      const std::vector<PVStatus> now = prefix.statuses();
      for (size_t i = 0; i < now.size(); ++i) {
        EXPECT_TRUE(now[i] == kUnreadable || now[i] == whole.statuses()[i]) << length << " " << i;
        EXPECT_TRUE(before[i] == kUnreadable || now[i] == before[i]) << length << " " << i;
        if (i > 1 && now[i] != kUnreadable) {
          EXPECT_NE(now[i - 1], kUnreadable) << length << " " << i;
        }
      }
      EXPECT_EQ(prefix.width, prefix.size == 0 ? whole.width : -1);
      EXPECT_EQ(prefix.primaries, prefix.colours == 0 ? whole.primaries : 99u);
      EXPECT_EQ(prefix.vertical, prefix.aspectRatio == 0 ? whole.vertical : 99u);
      EXPECT_EQ(prefix.rate, prefix.frameRate == 0 ? whole.rate : -1.0f);
      before = now;
    }
  }
}

TEST(HEVCParameterSets, UnitsOfOtherKindsAreRefused) {
  const struct {
    const char* what;
    uint8_t first, second;
    PVStatus status;
  } cases[] = {{"a picture parameter set", 0x44, 0x01, kInvalid},
               {"the forbidden bit", 0xC2, 0x01, kInvalid},
               {"layer 1", 0x42, 0x09, kInvalid},
               {"layer 32", 0x43, 0x01, kInvalid},
               {"no temporal ID", 0x42, 0x00, kInvalid},
               {"another temporal ID", 0x42, 0x07, 0}};
  for (const auto& item : cases) {
    Bytes unit = kMain10SPS;
    unit[0] = item.first;
    unit[1] = item.second;
    EXPECT_EQ(Answers(unit).statuses(), std::vector<PVStatus>(8, item.status)) << item.what;
  }
  const uint64_t errorsBefore = KivGetErrorCount();
  EXPECT_EQ(KivHEVCBridge_GetSPSWidthAndHeight(nullptr, 9, nullptr, nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_ParseSPS(kMain10SPS.data(), kMain10SPS.size(), nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_ParsePPS(kMain10PPS.data(), kMain10PPS.size(), nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetWidthAndHeightFromParsedSPS(nullptr, nullptr, nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetPPSSequenceID(kMain10SPS.data(), kMain10SPS.size(), nullptr, nullptr), kInvalid);
  EXPECT_EQ(KivGetErrorCount() - errorsBefore, 5u);
  // No output need be given.
  EXPECT_EQ(KivHEVCBridge_GetSPSWidthAndHeight(kMain10SPS.data(), kMain10SPS.size(), nullptr, nullptr), 0);
  EXPECT_EQ(KivHEVCBridge_GetSPS_VUI_Framerate(kMain10SPS.data(), kMain10SPS.size(), nullptr, nullptr,
                                               nullptr, nullptr, nullptr),
            0);
}

TEST(HEVCParameterSets, WindowsAreCountedInChromaSamples) {
  const struct {
    uint64_t format;
    bool separate;
    int32_t width, height;
  } cases[] = {{0, false, 320 - 10, 184 - 5},
               {1, false, 320 - 20, 184 - 10},
               {2, false, 320 - 20, 184 - 5},
               {3, false, 320 - 10, 184 - 5},
               {3, true, 320 - 10, 184 - 5}};
  for (const auto& item : cases) {
    const Answers answers(
        HEVCSequence{.chromaFormat = item.format, .separatePlanes = item.separate, .window = {3, 7, 1, 4}}
            .unit());
    EXPECT_EQ(answers.width, item.width) << item.format;
    EXPECT_EQ(answers.height, item.height) << item.format;
  }
}

TEST(HEVCParameterSets, ImpossibleValuesAreUnreadable) {
  constexpr uint64_t kGreatest = 0xFFFFFFFE, kMost = 0x7FFFFFFF;
  const std::pair<const char*, HEVCSequence> cases[] = {
      {"width 0", {.width = 0}},
      {"height 0", {.height = 0}},
      {"a width of 2^31", {.width = kMost + 1}},
      {"a height of 2^32 - 2", {.height = kGreatest}},
      {"a width of 33 bits", {.width = 0xFFFFFFFF}},
      {"no column left", {.window = {80, 80, 0, 0}}},
      {"no line left", {.window = {0, 0, 0, 92}}},
      {"a window that wraps", {.width = kMost, .window = {kGreatest, kGreatest, 0, 0}}},
      {"ID 16", {.id = 16}},
      {"chroma format 4", {.chromaFormat = 4}},
      {"17 bits of luma", {.lumaDepth = 17}},
      {"17 bits of chroma", {.chromaDepth = 17}},
      {"65 reference sets", {.referenceSets = [](BitWriter& to) { to.ue(65).zeros(100); }}},
      {"17 reference pictures",
       {.referenceSets = [](BitWriter& to) { to.ue(1).ue(9).ue(8).bits(~0ull, 64); }}},
      {"33 long-term pictures", {.longTerm = [](BitWriter& to) { to.flag(true).ue(33).zeros(600); }}}};
  for (const auto& [what, sequence] : cases) {
    const Answers answers(sequence.unit());
    EXPECT_EQ(answers.size, kUnreadable) << what;
    EXPECT_EQ(answers.width, -1) << what;
  }
  HEVCSequence largest{.width = kMost, .height = kMost, .window = {1, 0, 0, 0}};
  EXPECT_EQ(Answers(largest.unit()).width, static_cast<int32_t>(kMost - 2));
  Bytes eightSubLayers = HEVCSequence().unit();
  eightSubLayers[2] |= 0x0E;
  EXPECT_EQ(parseStatus(eightSubLayers), kUnreadable);
}

// Everything that stands between the size and the usability information, each in its longest form.
TEST(HEVCParameterSets, CodingToolsOfAnyFormAreSteppedOver) {
  HEVCSequence sequence;
  sequence.usability = HEVCUsability::marked();
  sequence.subLayers = 7;
  sequence.subLayerLevels = [](BitWriter& to) {
    to.bits(0b11'10'10'00'11'01, 12).bits(0, 4);
    for (int profiles = 0; profiles < 4; ++profiles) to.bits(~0ull, 64).bits(~0ull, 24);
    for (int levels = 0; levels < 3; ++levels) to.bits(~0ull, 8);
  };
  sequence.scalingLists = [](BitWriter& to) {
    to.flag(true).flag(true);
    for (int size = 0; size < 4; ++size)
      for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
        to.flag(matrix % 2 == 0);
        if (matrix % 2 == 1) {
          to.ue(1);
          continue;
        }
        if (size > 1) to.se(247);
        for (int i = 0; i < (size == 0 ? 16 : 64); ++i) to.se(i % 2 ? -128 : 127);
      }
  };
  sequence.pcm = [](BitWriter& to) { to.flag(true).bits(0x77, 8).ue(0).ue(2).flag(true); };
  sequence.longTerm = [](BitWriter& to) {
    to.flag(true).ue(32);
    for (int i = 0; i < 32; ++i) to.bits(255, 8).flag(true);
  };
  const Bytes unit = sequence.unit();
  const Answers answers(unit);
  EXPECT_GT(unit.size(), 512u);
  EXPECT_EQ(std::tie(answers.width, answers.horizontal, answers.vertical), std::make_tuple(320, 20u, 11u));
  EXPECT_EQ(parsed(unit).maxSubLayers, 7u);
  for (size_t length = 1; length < unit.size() - 5; ++length)
    ASSERT_EQ(parseStatus(Bytes(unit.begin(), unit.begin() + static_cast<ptrdiff_t>(length))), kUnreadable);
}

// A set coded as a difference has a flag for each picture of the set before, so those must be counted
// exactly.
TEST(HEVCParameterSets, ReferenceSetsCodedAsDifferences) {
  // Two pictures before, at -1 and -3, one behind, at +2.
  const auto firstSet = [](BitWriter& to) {
    to.ue(2).ue(1).ue(0).flag(true).ue(1).flag(false).ue(1).flag(true);
  };
  // Moved by a distance; a flag for each of the pictures and for the one that they belong to.
  const auto difference = [](BitWriter& to, int distance, const std::vector<int>& kept) {
    to.flag(true).flag(distance < 0).ue(static_cast<uint64_t>(std::abs(distance) - 1));
    for (const int flag : kept)
      if (flag == 2)
        to.flag(true);  // used by the current picture
      else
        to.flag(false).flag(flag == 1);
  };
  const struct {
    const char* what;
    std::vector<std::pair<int, std::vector<int>>> sets;  // a distance of 0: an explicit set, empty
  } cases[] = {
      {"all kept", {{-1, {2, 1, 2, 1}}, {-2, {1, 1, 1, 1, 2}}}},  // -2, -4, -1 and +1
      {"some dropped", {{-1, {1, 0, 0, 2}}, {5, {1, 0, 2}}}},     // two are left
      // -1 is dropped, so that -2, +1, +3 are left, then -2, so that +2, +3, +5 are
      {"some become the current picture", {{1, {2, 2, 2, 2}}, {2, {2, 2, 2, 2}}, {-9, {1, 1, 1, 1}}}},
      {"an explicit one between", {{0, {}}, {40000, {2}}}}};
  for (const auto& item : cases) {
    const auto sets = [&](BitWriter& to) {
      firstSet(to.ue(1 + item.sets.size()));
      for (const auto& [distance, kept] : item.sets)
        distance == 0 ? void(to.flag(false).ue(0).ue(0)) : difference(to, distance, kept);
    };
    const Answers answers(HEVCSequence{.referenceSets = sets, .usability = HEVCUsability::marked()}.unit());
    EXPECT_EQ(answers.size, 0) << item.what;
    EXPECT_EQ(std::tie(answers.horizontal, answers.vertical), std::make_tuple(20u, 11u)) << item.what;
    EXPECT_EQ(answers.interlacing, 0) << item.what;
  }
  const auto growing = [&](BitWriter& to) {  // a picture more with each set
    to.ue(20).ue(0).ue(0);
    for (int pictures = 0; pictures < 19; ++pictures) {
      to.flag(true).flag(true).ue(0);
      for (int i = 0; i <= pictures; ++i) to.flag(true);
    }
  };
  EXPECT_EQ(parseStatus(HEVCSequence{.referenceSets = growing}.unit()), kUnreadable);
}

// Rates, sizes and other values that nobody asks for, with more leading zeros than any value has.
BitWriter& longHRD(BitWriter& to, uint32_t buffers, bool subPictures) {
  to.flag(true).bits(1, 32).bits(50, 32).flag(true).code(40).flag(true);  // timing
  to.flag(true).flag(true).flag(subPictures);
  if (subPictures) to.bits(0x7FFFF, 19);
  to.bits(0xFF, 8);
  if (subPictures) to.bits(0xF, 4);
  to.bits(31, 5).bits(23, 5).bits(30, 5);
  to.flag(true).code(33).ue(buffers - 1);  // fixed rate
  for (uint32_t i = 0; i < 2 * buffers; ++i) {
    for (int value = 0; value < (subPictures ? 4 : 2); ++value) to.code(value % 2 ? 31 : 50);
    to.flag(true);
  }
  return to;
}

TEST(HEVCParameterSets, HRDValuesOfAnyLengthAreSteppedOver) {
  for (const bool subPictures : {false, true}) {
    HEVCUsability usability;
    usability.timing = [=](BitWriter& to) { longHRD(to, 32, subPictures); };
    usability.restriction = [](BitWriter& to) {
      to.flag(true).bits(0, 3).ue(4095).code(40).ue(0).ue(0).ue(0);
    };
    const Bytes unit = HEVCSequence{.usability = usability}.unit();
    const Answers answers(unit);
    EXPECT_EQ(std::tie(answers.rate, answers.fixedRate, answers.hrd), std::make_tuple(50.0f, true, true));
    EXPECT_EQ(answers.delayBits, 24u + 31);
    EXPECT_EQ(parsed(unit).minSpatialSegmentationIdc, 4095u);
  }
}

// Each sub-layer in a form of its own; the highest one says whether the rate is fixed.
TEST(HEVCParameterSets, HRDOfSubLayers) {
  HEVCUsability usability;
  usability.timing = [](BitWriter& to) {
    to.flag(true).bits(1001, 32).bits(60000, 32).flag(false).flag(true);
    to.flag(false).flag(true).flag(false).bits(0, 13).bits(5, 5).bits(6, 5);
    to.flag(true).ue(0).ue(1).ue(9).ue(9).flag(false).ue(9).ue(9).flag(false);  // fixed: two buffers
    to.flag(false).flag(true).ue(3).ue(0).ue(9).ue(9).flag(true);               // within the sequence
    to.flag(false).flag(false).flag(true).ue(9).ue(9).flag(true);               // low delay: one buffer
  };
  usability.restriction = [](BitWriter& to) { to.flag(true).bits(7, 3).ue(17).ue(0).ue(0).ue(0).ue(0); };
  HEVCSequence sequence{.subLayers = 3, .subLayerLevels = [](BitWriter& to) { to.bits(0, 16); }};
  sequence.usability = usability;
  const Bytes unit = sequence.unit();
  const Answers answers(unit);
  EXPECT_EQ(std::tie(answers.fixedRate, answers.hrd, answers.delayBits), std::make_tuple(false, true, 13u));
  EXPECT_EQ(parsed(unit).minSpatialSegmentationIdc, 17u);
  EXPECT_EQ(std::make_tuple(parsed(unit).nalHRDPresent, parsed(unit).vclHRDPresent),
            std::make_tuple(false, true));
}

TEST(HEVCParameterSets, UsabilityThatBreaksOffKeepsWhatCameBefore) {
  constexpr PVStatus U = kUnreadable, I = kInvalid;
  const HEVCUsability::Part colours = [](BitWriter& to) {
    to.flag(true).bits(5, 3).flag(true).flag(true).bits(0x010203, 24);
  };
  const HEVCUsability::Part badCode = [](BitWriter& to) { to.flag(true).code(20).ue(0); };
  const HEVCUsability::Part badHRD = [](BitWriter& to) { longHRD(to, 33, false); };
  const HEVCUsability::Part badRestriction = [](BitWriter& to) {
    to.flag(true).bits(0, 3).ue(4096).bits(0xF, 4);
  };
  const struct {
    const char* what;
    HEVCUsability usability;
    std::vector<PVStatus> statuses;  // size, ID, aspect ratio, colours, range, chroma, interlacing, rate
    uint8_t lastPart;
  } cases[] = {
      {"chroma location", {.videoSignal = colours, .chromaLocation = badCode}, {0, 0, I, 0, 0, U, U, U}, 3},
      {"HRD", {.videoSignal = colours, .timing = badHRD}, {0, 0, I, 0, 0, I, 0, 0}, 6},
      {"restriction", {.restriction = badRestriction}, {0, 0, I, I, 0, I, 0, I}, 7}};
  for (const auto& item : cases) {
    const Bytes unit = HEVCSequence{.usability = item.usability}.unit();
    EXPECT_EQ(Answers(unit).statuses(), item.statuses) << item.what;
    const KivHEVCParsedSPS sps = parsed(unit);
    EXPECT_EQ(sps.vui.lastPartRead, item.lastPart) << item.what;
    EXPECT_FALSE(sps.vui.chromaLocInfoPresent || sps.nalHRDPresent || sps.minSpatialSegmentationIdc)
        << item.what;
    EXPECT_EQ(sps.vui.chromaSampleLocTypeTopField, 0u);
  }
}

TEST(HEVCParameterSets, WithoutUsabilityOrPartsOfIt) {
  constexpr PVStatus I = kInvalid;
  const Bytes plain = HEVCSequence().unit();
  EXPECT_EQ(Answers(plain).statuses(), (std::vector<PVStatus>{0, 0, I, I, I, I, 0, I}));
  const KivHEVCParsedSPS sps = parsed(plain);
  EXPECT_EQ(std::tie(sps.vui.videoFormat, sps.vui.colourPrimaries, sps.vui.transferCharacteristics,
                     sps.vui.matrixCoefficients),
            std::make_tuple(5, 2, 2, 2));
  for (const uint32_t indicator : {0, 17, 254}) {
    HEVCUsability usability;
    usability.aspectRatio = [=](BitWriter& to) { to.flag(true).bits(indicator, 8); };
    const Answers answers(HEVCSequence{.usability = usability}.unit());
    EXPECT_EQ(answers.statuses(), (std::vector<PVStatus>{0, 0, 0, I, 0, I, 0, I})) << indicator;
    EXPECT_EQ(std::tie(answers.horizontal, answers.vertical), std::make_tuple(99u, 99u)) << indicator;
  }
  for (const auto& [units, scale] : {std::pair{0, 25}, {1, 0}}) {
    HEVCUsability usability;
    usability.timing = [u = units, s = scale](BitWriter& to) {
      to.flag(true).bits(u, 32).bits(s, 32).bits(0, 2);
    };
    EXPECT_EQ(Answers(HEVCSequence{.usability = usability}.unit()).frameRate, kInvalid);
  }
}

TEST(HEVCParameterSets, InterlacingComesFromTheSourceAndTheFields) {
  constexpr uint64_t kProgressive = uint64_t{1} << 47, kInterlaced = uint64_t{1} << 46;
  const struct {
    uint64_t constraints;
    bool fieldSeq, interlaced;
  } cases[] = {{kProgressive, false, false},
               {kInterlaced, false, true},
               {kProgressive | kInterlaced, false, false},
               {0, false, false},
               {kProgressive, true, true}};
  for (const auto& item : cases) {
    HEVCUsability usability;
    usability.fields = [&](BitWriter& to) {
      to.flag(false).flag(item.fieldSeq).flag(false).flag(true).ue(1).ue(2).ue(3).ue(4);
    };
    const Answers answers(HEVCSequence{.constraints = item.constraints, .usability = usability}.unit());
    EXPECT_EQ(answers.interlaced, item.interlaced) << item.constraints << " " << item.fieldSeq;
    EXPECT_EQ(std::tie(answers.width, answers.height), std::make_tuple(320, 184));  // no display window
  }
}

TEST(HEVCParameterSets, PictureParameterSets) {
  for (const bool tiles : {false, true})
    for (const bool wavefronts : {false, true}) {
      const Bytes unit = hevcPPS(63, 15, tiles, wavefronts);
      KivHEVCParsedPPS pps{};
      ASSERT_EQ(KivHEVCBridge_ParsePPS(unit.data(), unit.size(), &pps), 0);
      EXPECT_EQ(std::tie(pps.ppsID, pps.spsID, pps.tilesEnabled, pps.entropyCodingSyncEnabled),
                std::make_tuple(63u, 15u, tiles, wavefronts));
      for (size_t length = 1; length < unit.size(); ++length) {
        const Bytes prefix(unit.begin(), unit.begin() + static_cast<ptrdiff_t>(length));
        uint32_t ppsID = 99, spsID = 99;
        EXPECT_EQ(KivHEVCBridge_GetPPSSequenceID(prefix.data(), length, &ppsID, &spsID),
                  length < 5 ? kUnreadable : 0);
        EXPECT_EQ(std::tie(ppsID, spsID), length < 5 ? std::make_tuple(99u, 99u) : std::make_tuple(63u, 15u));
        const PVStatus cut =
            length < unit.size() - 1 ? kUnreadable : 0;  // the last byte has the stop bit only
        EXPECT_EQ(KivHEVCBridge_ParsePPS(prefix.data(), length, &pps), cut) << length;
      }
    }
  KivHEVCParsedPPS pps;
  for (const Bytes& unit : {hevcPPS(64, 0, false, false), hevcPPS(0, 16, false, false)})
    EXPECT_EQ(KivHEVCBridge_ParsePPS(unit.data(), unit.size(), &pps), kUnreadable);
}

}  // namespace
