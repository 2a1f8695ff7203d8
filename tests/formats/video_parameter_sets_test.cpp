#include <kiv/error.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>
#include <kiv/video_format_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/codecs/bit_writer.hpp"
#include "tests/support/objects.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;
using Description = br::Ref<PVFormatDescription>;

// x264, 720 x 480, High, from: ffmpeg -vf setsar=4/3 -x264-params
// colorprim=smpte170m:transfer=smpte240m:colormatrix=smpte170m:fullrange=on:chromaloc=2
const Bytes kH264SPS = {
    0x67,              // nal_ref_idc 3, sequence parameter set
    0x64, 0x00, 0x1e,  // High, no constraints, level 3.0
    0xac,              // set 0, 4:2:0, 8 bit
    0xb2,              // log2_max_frame_num 4, order count type 2, 3 reference frames ...
    0x01, 0x68, 0x7b,  // ... 45 by 30 macroblocks, frames only, not cropped, VUI with aspect ratio ...
    0x61,              // ... indicator 14; no overscan, video signal ...
    0xcd, 0xc1, 0x81, 0xc1, 0xad,  // ... full range, colour 6, 7, 6, chroma location 2 and 2 ...
    0xc0, 0x00, 0x00, 0xfa, 0x40, 0x00, 0x3a, 0x98, 0x03,  // ... 1001 / 60000, no HRD
    0xc5, 0x8b, 0x92};                                     // bitstream restrictions
const Bytes kH264PPS = {0x68,                              // nal_ref_idc 3, picture parameter set
                        0xeb, 0xc3, 0xcb, 0x22, 0xc0};     // set 0, refers to 0

// x265, 1920 x 1080, Main 10, from: ffmpeg -vf setsar=40/33 -pix_fmt yuv420p10le -x265-params
// colorprim=bt2020:transfer=bt2020-10:colormatrix=bt2020nc:range=limited:chromaloc=2
const Bytes kHEVCVPS = {0x40, 0x01,  // video parameter set
                        0x0c, 0x01, 0xff, 0xff, 0x02, 0x20, 0x00, 0x00, 0x03, 0x00, 0x90,
                        0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x78, 0x95, 0x98, 0x09};
const Bytes kHEVCSPS = {0x42, 0x01,                                      // sequence parameter set
                        0x01,                                            // of set 0, one sub-layer
                        0x02, 0x20, 0x00, 0x00, 0x03, 0x00,              // Main 10, compatible with itself
                        0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00,  // progressive, frames only
                        0x78,                                            // level 4
                        0xa0, 0x03, 0xc0, 0x80, 0x10, 0xe4,  // set 0, 4:2:0, 1920 x 1080, no window
                        0xd9, 0x65, 0x66, 0x92, 0x4c, 0xaf,  // 10 bit, block sizes, VUI with aspect ratio ...
                        0x05, 0x6a, 0x12, 0x1c, 0x13, 0x6c,  // ... 40:33, limited range, colour 9, 14, 9 ...
                        0x20, 0x00, 0x00, 0x03, 0x00, 0x20, 0x00, 0x00,
                        0x03, 0x03, 0x21};  // ... chroma location 2 and 2, 1 / 25
const Bytes kHEVCPPS = {0x44, 0x01,         // picture parameter set
                        0xc1, 0x72, 0xb4, 0x62, 0x40};

// The arguments of the creating functions.
struct Sets {
  Sets(std::initializer_list<Bytes> given) : sets(given) {
    for (const Bytes& set : sets) pointers.push_back(set.data()), sizes.push_back(set.size());
  }
  std::vector<Bytes> sets;
  std::vector<const uint8_t*> pointers;
  std::vector<size_t> sizes;
};

// Both codecs have one form.
struct Codec {
  decltype(&PVVideoFormatDescriptionCreateFromH264ParameterSets) create;
  decltype(&PVVideoFormatDescriptionGetH264ParameterSetAtIndex) get;
  decltype(&KivH264Bridge_CreateAVCCFromH264ParameterSets) createRecord;
};
const Codec kH264{PVVideoFormatDescriptionCreateFromH264ParameterSets,
                  PVVideoFormatDescriptionGetH264ParameterSetAtIndex,
                  KivH264Bridge_CreateAVCCFromH264ParameterSets};
const Codec kHEVC{KivVideoFormatDescriptionCreateFromHEVCParameterSets,
                  KivVideoFormatDescriptionGetHEVCParameterSetAtIndex,
                  KivHEVCBridge_CreateHVCCFromHEVCParameterSets};

PVStatus create(const Codec& codec, const Sets& sets, Description& description, int32_t headerLength = 4,
                BRAllocatorRef allocator = nullptr) {
  return codec.create(allocator, sets.sets.size(), sets.pointers.data(), sets.sizes.data(), headerLength,
                      description.out());
}

Data recordOf(const Codec& codec, const Sets& sets) {
  Data record;
  EXPECT_EQ(codec.createRecord(nullptr, sets.sets.size(), sets.pointers.data(), sets.sizes.data(), 4, nullptr,
                               nullptr, record.out()),
            0);
  return record;
}

Dictionary atoms(BRStringRef key, BRTypeRef payload) {
  return dictionary(
      {{kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms, dictionary({{key, payload}}).get()}});
}

Dictionary pixelAspect(int across, int down) {
  return dictionary({{kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing, number(across).get()},
                     {kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing, number(down).get()}});
}

Dictionary withAtoms(BRStringRef key, const Data& payload, Dictionary others) {
  BRDictionarySetValue(others.get(), kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms,
                       dictionary({{key, payload.get()}}).get());
  return others;
}

Dictionary expectedOfH264() {
  return withAtoms(
      "avcC"_br, recordOf(kH264, {kH264SPS, kH264PPS}),
      dictionary(
          {{kPVFormatDescriptionExtension_ChromaLocationTopField, kPVFormatDescriptionChromaLocation_Center},
           {kPVFormatDescriptionExtension_ChromaLocationBottomField,
            kPVFormatDescriptionChromaLocation_Center},
           {kPVFormatDescriptionExtension_ColorPrimaries, kPVFormatDescriptionColorPrimaries_SMPTE_C},
           {kPVFormatDescriptionExtension_TransferFunction,
            kPVFormatDescriptionTransferFunction_SMPTE_240M_1995},
           {kPVFormatDescriptionExtension_YCbCrMatrix, kPVFormatDescriptionYCbCrMatrix_ITU_R_601_4},
           {kPVFormatDescriptionExtension_FullRangeVideo, kBRBooleanTrue},
           {kPVFormatDescriptionExtension_PixelAspectRatio, pixelAspect(4, 3).get()},
           {kPVFormatDescriptionExtension_FieldCount, number(1).get()}}));
}

Dictionary expectedOfHEVC() {
  return withAtoms(
      "hvcC"_br, recordOf(kHEVC, {kHEVCVPS, kHEVCSPS, kHEVCPPS}),
      dictionary(
          {{kPVFormatDescriptionExtension_ChromaLocationTopField, kPVFormatDescriptionChromaLocation_Center},
           {kPVFormatDescriptionExtension_ChromaLocationBottomField,
            kPVFormatDescriptionChromaLocation_Center},
           {kPVFormatDescriptionExtension_ColorPrimaries, kPVFormatDescriptionColorPrimaries_ITU_R_2020},
           {kPVFormatDescriptionExtension_TransferFunction, kPVFormatDescriptionTransferFunction_ITU_R_2020},
           {kPVFormatDescriptionExtension_YCbCrMatrix, kPVFormatDescriptionYCbCrMatrix_ITU_R_2020},
           {kPVFormatDescriptionExtension_FullRangeVideo, kBRBooleanFalse},
           {kPVFormatDescriptionExtension_PixelAspectRatio, pixelAspect(40, 33).get()},
           {kPVFormatDescriptionExtension_FieldCount, number(1).get()}}));
}

TEST(VideoParameterSets, MakeADescriptionOfAllThatTheySay) {
  const struct {
    const Codec& codec;
    Sets sets;
    PVVideoCodecType type;
    int32_t width, height;
    Dictionary extensions;
  } cases[] = {{kH264, {kH264SPS, kH264PPS}, kPVVideoCodecType_H264, 720, 480, expectedOfH264()},
               {kHEVC, {kHEVCVPS, kHEVCSPS, kHEVCPPS}, kPVVideoCodecType_HEVC, 1920, 1080, expectedOfHEVC()}};
  for (const auto& row : cases)
    test::walkAllocationFailures([&](BRAllocatorRef allocator) {
      Description description, expected;
      if (PVStatus status = create(row.codec, row.sets, description, 4, allocator)) {
        EXPECT_TRUE(status == -12711 || status == -12713) << status;
        EXPECT_FALSE(description);
        return Outcome::kOutOfMemory;
      }
      EXPECT_EQ(PVVideoFormatDescriptionCreate(nullptr, row.type, row.width, row.height, row.extensions.get(),
                                               expected.out()),
                0);
      EXPECT_TRUE(PVFormatDescriptionEqual(description.get(), expected.get()));
      return Outcome::kSucceeded;
    });
  Description description;
  ASSERT_EQ(create(kH264, cases[0].sets, description), 0);
  EXPECT_EQ(PVVideoFormatDescriptionGetPresentationDimensions(description.get(), true, true).width, 960);
}

TEST(VideoParameterSets, ComeBackOutOfADescription) {
  const struct {
    const Codec& codec;
    Sets sets;
  } cases[] = {{kH264, {kH264SPS, kH264PPS}}, {kHEVC, {kHEVCVPS, kHEVCSPS, kHEVCPPS}}};
  for (const auto& row : cases) {
    Description description;
    ASSERT_EQ(create(row.codec, row.sets, description, 2), 0);
    const uint8_t* bytes;
    size_t size, count;
    int32_t headerLength;
    for (size_t i = 0; i < row.sets.sets.size(); ++i) {
      ASSERT_EQ(row.codec.get(description.get(), i, &bytes, &size, &count, &headerLength), 0);
      EXPECT_EQ(Bytes(bytes, bytes + size), row.sets.sets[i]);
      EXPECT_EQ(count, row.sets.sets.size());
      EXPECT_EQ(headerLength, 2);
    }
    EXPECT_EQ(row.codec.get(description.get(), 99, nullptr, nullptr, &count, nullptr), 0);
    EXPECT_EQ(row.codec.get(description.get(), 99, &bytes, &size, &count, &headerLength), -12712);
    EXPECT_EQ(bytes, nullptr);
  }
}

TEST(VideoParameterSets, OneOfEachKindIsEnough) {
  Description shortcut, description;
  ASSERT_EQ(create(kH264, {kH264SPS, kH264PPS}, description), 0);
  ASSERT_EQ(KivVideoFormatDescriptionCreateFromSPSAndPPS(nullptr, kH264SPS.data(), kH264SPS.size(),
                                                         kH264PPS.data(), kH264PPS.size(), 4, shortcut.out()),
            0);
  EXPECT_TRUE(PVFormatDescriptionEqual(shortcut.get(), description.get()));
  auto shortened = [&](size_t spsSize, int32_t headerLength) {
    return KivVideoFormatDescriptionCreateFromSPSAndPPS(nullptr, kH264SPS.data(), spsSize, kH264PPS.data(),
                                                        kH264PPS.size(), headerLength, shortcut.out());
  };
  EXPECT_EQ(shortened(7, 4), -12714);  // long enough for a record, too short for the size
  EXPECT_FALSE(shortcut);
  EXPECT_EQ(shortened(kH264SPS.size(), 3), -12712);
  EXPECT_EQ(KivVideoFormatDescriptionCreateFromSPSAndPPS(nullptr, nullptr, 0, nullptr, 0, 4, nullptr),
            -12710);
}

// The same set under another ID: the bit that says 0 says 1 in three.
Bytes otherSize(Bytes sps) {
  sps[6] ^= 0x01, sps[7] ^= 0x20;  // 44 macroblocks across become another number
  return sps;
}

TEST(VideoParameterSets, ThatMakeNoDescriptionAreRefused) {
  Bytes unreferenced = kH264PPS;
  unreferenced[0] = 0x08;
  const struct {
    const char* name;
    const Codec& codec;
    Sets sets;
    int32_t headerLength;
    PVStatus status;
  } cases[] = {
      {"one set", kH264, {kH264SPS}, 4, -12712},
      {"no picture parameter set", kH264, {kH264SPS, kH264SPS}, 4, -12712},
      {"a picture parameter set that nothing refers to", kH264, {kH264SPS, unreferenced}, 4, -12712},
      {"a header length of 3", kH264, {kH264SPS, kH264PPS}, 3, -12712},
      {"an empty set", kH264, {kH264SPS, {}}, 4, -12712},
      {"two sizes", kH264, {kH264SPS, otherSize(kH264SPS), kH264PPS}, 4, -12710},
      {"no size", kH264, {{kH264SPS.begin(), kH264SPS.begin() + 7}, kH264PPS}, 4, -12710},
      {"no video parameter set", kHEVC, {kHEVCSPS, kHEVCPPS, kHEVCPPS}, 4, -12712},
      {"a header length of 3", kHEVC, {kHEVCVPS, kHEVCSPS, kHEVCPPS}, 3, -12712},
  };
  for (const auto& row : cases) {
    auto* out = reinterpret_cast<PVFormatDescriptionRef>(1);
    EXPECT_EQ(row.codec.create(nullptr, row.sets.sets.size(), row.sets.pointers.data(), row.sets.sizes.data(),
                               row.headerLength, &out),
              row.status)
        << row.name;
    EXPECT_EQ(out, nullptr) << row.name;
  }
  const Sets good{kH264SPS, kH264PPS};
  EXPECT_EQ(kH264.create(nullptr, 2, good.pointers.data(), good.sizes.data(), 4, nullptr), -12710);
}

Description withAtom(PVVideoCodecType codec, PVFourCharCode atomType, const Bytes& payload,
                     const Dictionary& extra) {
  Description description;
  EXPECT_EQ(
      KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(
          nullptr, codec, 640, 480, atomType, payload.data(), payload.size(), extra.get(), description.out()),
      0);
  return description;
}

bool hasExtensions(const Description& description, const Dictionary& expected) {
  return BREqual(PVFormatDescriptionGetExtensions(description.get()), expected.get());
}

TEST(VideoParameterSets, AnAtomStandsAmongTheExtensions) {
  const Bytes payload = {1, 2, 3};
  const Dictionary vendor = dictionary({{kPVFormatDescriptionExtension_Vendor, "pvrn"_br}});
  EXPECT_TRUE(hasExtensions(withAtom("mp4v"_4cc, "esds"_4cc, payload, nullptr),
                            atoms("esds"_br, dataOf(payload).get())));
  Dictionary both = atoms("esds"_br, dataOf(payload).get());
  BRDictionarySetValue(both.get(), kPVFormatDescriptionExtension_Vendor, "pvrn"_br);
  EXPECT_TRUE(hasExtensions(withAtom("mp4v"_4cc, "esds"_4cc, payload, vendor), both));
  EXPECT_TRUE(hasExtensions(withAtom("mp4v"_4cc, "esds"_4cc, payload, atoms("else"_br, "x"_br)),
                            atoms("esds"_br, dataOf(payload).get())));
  EXPECT_TRUE(hasExtensions(withAtom("mp4v"_4cc, 0xA96E616D, payload, nullptr),
                            atoms("\u00A9nam"_br, dataOf(payload).get())));
  // nothing to add, not even the extra extensions
  EXPECT_EQ(PVFormatDescriptionGetExtensions(withAtom("mp4v"_4cc, 0, payload, vendor).get()), nullptr);
  EXPECT_EQ(PVFormatDescriptionGetExtensions(withAtom("mp4v"_4cc, "esds"_4cc, {}, vendor).get()), nullptr);
  Description description;
  auto create = [&](PVVideoCodecType codec, PVFormatDescriptionRef* out) {
    return KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(nullptr, codec, 1, 1, 1, "x", 1,
                                                                             nullptr, out);
  };
  EXPECT_EQ(create(0, description.out()), -12710);
  EXPECT_EQ(create(1, nullptr), -12710);
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    const PVStatus status = KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(
        allocator, "mp4v"_4cc, 1, 1, "esds"_4cc, "xyz", 3, vendor.get(), description.out());
    EXPECT_TRUE(description ? status == 0 : status == -12711 || status == -12713) << status;
    const Outcome outcome = description ? Outcome::kSucceeded : Outcome::kOutOfMemory;
    description = nullptr;
    return outcome;
  });
}

TEST(VideoParameterSets, AreFoundWhereverTheAtomMayStand) {
  const Data record = recordOf(kH264, {kH264SPS, kH264PPS});
  const struct {
    const char* name;
    Dictionary extensions;
    PVStatus status;
  } cases[] = {
      {"data", atoms("avcC"_br, record.get()), 0},
      {"the first of an array", atoms("avcC"_br, array({record.get(), "x"_br}).get()), 0},
      {"an empty array", atoms("avcC"_br, array({}).get()), -12710},
      {"a string", atoms("avcC"_br, "avcC"_br), -12710},
      {"another atom", atoms("hvcC"_br, record.get()), -12710},
      {"atoms that are no dictionary",
       dictionary({{kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms, record.get()}}), -12710},
      {"no extensions", nullptr, -12710},
      {"a record of another version", atoms("avcC"_br, dataOf(Bytes(7)).get()), -12712},
  };
  for (const auto& row : cases) {
    Description description;
    ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Video, "avc3"_4cc, row.extensions.get(),
                                        description.out()),
              0);
    const uint8_t* bytes = kH264SPS.data();
    size_t size = 1, count = 1;
    int32_t headerLength = 1;
    EXPECT_EQ(kH264.get(description.get(), 0, &bytes, &size, &count, &headerLength), row.status) << row.name;
    EXPECT_EQ(size, row.status ? 0 : kH264SPS.size()) << row.name;
    EXPECT_EQ(count, row.status ? 0u : 2u) << row.name;
    EXPECT_EQ(bytes == nullptr, row.status != 0) << row.name;
    EXPECT_EQ(headerLength, row.status ? 0 : 4) << row.name;
  }
  EXPECT_EQ(kH264.get(nullptr, 0, nullptr, nullptr, nullptr, nullptr), -12710);
  EXPECT_EQ(kH264.get(reinterpret_cast<PVFormatDescriptionRef>(const_cast<BRData*>(record.get())), 0, nullptr,
                      nullptr, nullptr, nullptr),
            -12710);
}

// What the usability information of a made-up set says; negative: nothing.
struct Usability {
  int aspectRatio = -1, across = 0, down = 0;
  int fullRange = -1;
  int primaries = -1, transfer = -1, matrix = -1;
  int chromaTop = -1, chromaBottom = -1;
};

void write(BitWriter& sps, const Usability& u) {
  sps.flag(u.aspectRatio >= 0);
  if (u.aspectRatio >= 0) sps.bits(u.aspectRatio, 8);
  if (u.aspectRatio == 255) sps.bits(u.across, 16).bits(u.down, 16);
  sps.flag(false).flag(u.fullRange >= 0);  // no overscan; a video signal
  if (u.fullRange >= 0) sps.bits(5, 3).flag(u.fullRange).flag(u.primaries >= 0);
  if (u.primaries >= 0) sps.bits(u.primaries, 8).bits(u.transfer, 8).bits(u.matrix, 8);
  sps.flag(u.chromaTop >= 0);
  if (u.chromaTop >= 0) sps.ue(u.chromaTop).ue(u.chromaBottom);
  sps.zeros(5);  // timing, the two HRDs, pic_struct, restrictions
}

// A sequence parameter set of Baseline profile, 160 by 160 or twice as high.
Bytes makeSPS(bool isProgressive, const Usability* usability) {
  BitWriter sps;
  sps.bits(0x67, 8).bits(66, 8).bits(0, 8).bits(30, 8);
  sps.ue(0).ue(0).ue(2).ue(1).flag(false);  // ID, frame numbers, order count, reference frames
  sps.ue(9).ue(9).flag(isProgressive);
  if (!isProgressive) sps.flag(false);
  sps.flag(true).flag(false).flag(usability != nullptr);  // direct inference, no cropping
  if (usability) write(sps, *usability);
  return sps.unit();
}

// What the fallback adds to the record of a sequence parameter set and extensions that are there already.
Dictionary fallback(const Bytes& sps, const Dictionary& present = nullptr) {
  const Data record = recordOf(kH264, {sps, kH264PPS});
  Dictionary given = atoms("avcC"_br, record.get());
  if (present)
    BRDictionaryApply(
        present.get(),
        [](const void* key, const void* value, void* to) {
          BRDictionarySetValue(static_cast<BRMutableDictionaryRef>(to), key, value);
        },
        given.get());
  BRDictionaryRef extensions = static_cast<BRDictionaryRef>(BRRetain(given.get()));
  EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "avc1"_4cc, &extensions), 0);
  auto added = Dictionary::adopt(BRDictionaryCreateMutableCopy(nullptr, extensions));
  BRRelease(extensions);
  EXPECT_EQ(BRGetRetainCount(given.get()), 1u);
  BRDictionaryRemoveValue(added.get(), kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms);
  return added;
}

TEST(VUIFallback, AddsAValueForEachCodePointThatHasOne) {
  const char* primaries[256] = {};
  const char* transfers[256] = {};
  const char* matrices[256] = {};
  primaries[1] = "IMImageBufferColorPrimaries_ITU_R_709_2",
  primaries[5] = "IMImageBufferColorPrimaries_EBU_3213";
  primaries[6] = "IMImageBufferColorPrimaries_SMPTE_C", primaries[9] = "ITU_R_2020", primaries[11] = "DCI_P3";
  primaries[12] = "P3_D65", primaries[22] = "P22";
  transfers[1] = transfers[6] = "IMImageBufferTransferFunction_ITU_R_709_2", transfers[7] = "SMPTE_240M_1995";
  transfers[14] = "ITU_R_2020";
  matrices[1] = "IMImageBufferYCbCrMatrix_ITU_R_709_2", matrices[6] = "ITU_R_601_4",
  matrices[7] = "SMPTE_240M_1995";
  matrices[9] = "ITU_R_2020", matrices[11] = "DCI_P3", matrices[12] = "P3_D65";
  auto says = [](const Dictionary& added, BRStringRef key, const char* text) {
    auto value = static_cast<BRStringRef>(BRDictionaryGetValue(added.get(), key));
    return text ? value && std::string(BRStringGetUTF8(value)) == text : value == nullptr;
  };
  for (int code = 0; code < 256; ++code) {
    const Usability usability{.fullRange = 0, .primaries = code, .transfer = code, .matrix = code};
    const Dictionary added = fallback(makeSPS(true, &usability));
    EXPECT_TRUE(says(added, kPVFormatDescriptionExtension_ColorPrimaries, primaries[code])) << code;
    EXPECT_TRUE(says(added, kPVFormatDescriptionExtension_TransferFunction, transfers[code])) << code;
    EXPECT_TRUE(says(added, kPVFormatDescriptionExtension_YCbCrMatrix, matrices[code])) << code;
  }
}

TEST(VUIFallback, PlacesChroma) {
  const struct {
    int top, bottom;
    const char *topName, *bottomName;
  } cases[] = {{0, 0, "Left", "Left"},      {1, 3, "Center", "Top"},        {2, 2, "Center", "Center"},
               {2, 1, "TopLeft", "Center"}, {4, 5, "BottomLeft", "Bottom"}, {255, 255, "DV420", "DV420"},
               {6, 0, nullptr, "Left"},     {3, 254, "Top", nullptr}};
  auto says = [](const Dictionary& added, BRStringRef key, const char* name) {
    auto value = static_cast<BRStringRef>(BRDictionaryGetValue(added.get(), key));
    return name ? value && BRStringGetUTF8(value) == std::string("IMImageBufferChromaLocation_") + name
                : !value;
  };
  for (const auto& row : cases) {
    const Usability usability{.chromaTop = row.top, .chromaBottom = row.bottom};
    const Dictionary added = fallback(makeSPS(true, &usability));
    EXPECT_TRUE(says(added, kPVFormatDescriptionExtension_ChromaLocationTopField, row.topName)) << row.top;
    EXPECT_TRUE(says(added, kPVFormatDescriptionExtension_ChromaLocationBottomField, row.bottomName))
        << row.bottom;
  }
}

TEST(VUIFallback, AddsNothingThatIsNotSaid) {
  const Dictionary fieldCount = dictionary({{kPVFormatDescriptionExtension_FieldCount, number(1).get()}});
  EXPECT_TRUE(BREqual(fallback(makeSPS(true, nullptr)).get(), fieldCount.get()));
  EXPECT_EQ(BRDictionaryGetCount(fallback(makeSPS(false, nullptr)).get()), 0u);
  // usability information, though without a video signal, means limited range
  const Dictionary limited = dictionary({{kPVFormatDescriptionExtension_FullRangeVideo, kBRBooleanFalse}});
  const Usability usabilities[] = {
      {}, {.aspectRatio = 0}, {.aspectRatio = 17}, {.aspectRatio = 255, .across = 0, .down = 9}};
  for (const Usability& usability : usabilities)
    EXPECT_TRUE(BREqual(fallback(makeSPS(false, &usability)).get(), limited.get())) << usability.aspectRatio;
  const Usability wide{.aspectRatio = 255, .across = 64, .down = 45, .fullRange = 1};
  EXPECT_TRUE(
      BREqual(fallback(makeSPS(false, &wide)).get(),
              dictionary({{kPVFormatDescriptionExtension_FullRangeVideo, kBRBooleanTrue},
                          {kPVFormatDescriptionExtension_PixelAspectRatio, pixelAspect(64, 45).get()}})
                  .get()));
}

TEST(VUIFallback, LeavesWhatIsThere) {
  const Usability all{.aspectRatio = 14,
                      .fullRange = 1,
                      .primaries = 1,
                      .transfer = 1,
                      .matrix = 1,
                      .chromaTop = 0,
                      .chromaBottom = 0};
  const Dictionary present = dictionary({{kPVFormatDescriptionExtension_ColorPrimaries, "mine"_br},
                                         {kPVFormatDescriptionExtension_TransferFunction, "mine"_br},
                                         {kPVFormatDescriptionExtension_YCbCrMatrix, "mine"_br},
                                         {kPVFormatDescriptionExtension_FullRangeVideo, "mine"_br},
                                         {kPVFormatDescriptionExtension_PixelAspectRatio, "mine"_br},
                                         {kPVFormatDescriptionExtension_FieldCount, "mine"_br},
                                         {kPVFormatDescriptionExtension_ChromaLocationTopField, "mine"_br}});
  EXPECT_TRUE(BREqual(fallback(makeSPS(true, &all), present).get(), present.get()));
  // the bottom field is left out with the top one, and does not hold it back
  BRDictionaryRemoveValue(present.get(), kPVFormatDescriptionExtension_ChromaLocationTopField);
  BRDictionarySetValue(present.get(), kPVFormatDescriptionExtension_ChromaLocationBottomField, "mine"_br);
  const Dictionary added = fallback(makeSPS(true, &all), present);
  EXPECT_EQ(BRDictionaryGetValue(added.get(), kPVFormatDescriptionExtension_ChromaLocationTopField),
            kPVFormatDescriptionChromaLocation_Left);
  EXPECT_EQ(BRDictionaryGetValue(added.get(), kPVFormatDescriptionExtension_ChromaLocationBottomField),
            "mine"_br);
}

TEST(VUIFallback, TellsWhatComesBeforeABreak) {
  int told = 0;
  for (size_t length = 3; length < kHEVCSPS.size(); ++length) {
    const Bytes sps(kHEVCSPS.begin(), kHEVCSPS.begin() + static_cast<ptrdiff_t>(length));
    KivHEVCParsedSPS parsed;
    if (KivHEVCBridge_ParseSPS(sps.data(), sps.size(), &parsed) != 0) continue;
    const Data record = recordOf(kHEVC, {kHEVCVPS, sps, kHEVCPPS});
    const Dictionary given = atoms("hvcC"_br, record.get());
    BRDictionaryRef extensions = static_cast<BRDictionaryRef>(BRRetain(given.get()));
    EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "hvc1"_4cc, &extensions), 0);
    const struct {
      BRStringRef key;
      int part;
    } facts[] = {
        {kPVFormatDescriptionExtension_PixelAspectRatio, kKivVideoUsabilityPart_AspectRatio},
        {kPVFormatDescriptionExtension_FullRangeVideo, kKivVideoUsabilityPart_VideoSignalType},
        {kPVFormatDescriptionExtension_ColorPrimaries, kKivVideoUsabilityPart_VideoSignalType},
        {kPVFormatDescriptionExtension_ChromaLocationTopField, kKivVideoUsabilityPart_ChromaLocation},
        {kPVFormatDescriptionExtension_FieldCount, kKivVideoUsabilityPart_FieldInfo}};
    for (const auto& fact : facts) {
      const bool isThere = BRDictionaryContainsKey(extensions, fact.key);
      EXPECT_EQ(isThere, parsed.vui.lastPartRead >= fact.part) << length << ", part " << fact.part;
      told += isThere;
    }
    BRRelease(extensions);
  }
  EXPECT_GT(told, 5);
}

TEST(VUIFallback, NeedsAnAtomOfTheCodec) {
  const Data record = recordOf(kH264, {kH264SPS, kH264PPS});
  const Dictionary given = atoms("avcC"_br, record.get());
  BRDictionaryRef extensions = given.get();
  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "mp4v"_4cc, &extensions), 0);
  EXPECT_EQ(KivGetErrorCount(), before + 1);
  EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "avc1"_4cc, nullptr), -12712);
  EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "hvc1"_4cc, &extensions), 0);
  EXPECT_EQ(extensions, given.get());
  BRDictionaryRef none = nullptr;
  EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "avc1"_4cc, &none), 0);
  EXPECT_EQ(none, nullptr);
  // every cut of a record: as long as a set of either list is not whole, nothing is added
  for (size_t length = 0; length < BRDataGetLength(record.get()); ++length) {
    const Dictionary cut = atoms("avcC"_br, dataOf({BRDataGetBytePtr(record.get()), length}).get());
    extensions = static_cast<BRDictionaryRef>(BRRetain(cut.get()));
    EXPECT_EQ(KivBridge_MakeFallbackExtensionsFromVUI(nullptr, "avc1"_4cc, &extensions), 0);
    EXPECT_EQ(extensions == cut.get(), length < 11 + kH264SPS.size() + kH264PPS.size()) << length;
    BRRelease(extensions);
  }
  for (PVVideoCodecType codec : {"avc1"_4cc, "cavc"_4cc, "drmi"_4cc, "eavc"_4cc, "qavc"_4cc, "zavc"_4cc})
    EXPECT_TRUE(hasExtensions(withAtom(codec, "avcC"_4cc,
                                       {BRDataGetBytePtr(record.get()),
                                        BRDataGetBytePtr(record.get()) + BRDataGetLength(record.get())},
                                       nullptr),
                              expectedOfH264()));
}

}  // namespace
