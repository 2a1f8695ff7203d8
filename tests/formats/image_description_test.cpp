#include <kiv/sample_description.h>
#include <pevrin/image_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/formats/records.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;

const BRStringRef& kMovie = kPVImageDescriptionFlavor_TavloMovie;
const BRStringRef& kISO = kPVImageDescriptionFlavor_ISOFamily;

// The fixed fields of an image description; the defaults are what an ISO file has.
struct Fields {
  std::string format = "jpeg";
  uint16_t version = 0, revision = 0;
  std::string vendor = std::string(4, '\0');
  uint32_t temporal = 0, spatial = 0;
  uint16_t width = 720, height = 480;
  uint32_t horizontal = 72 << 16, vertical = 72 << 16, dataSize = 0;
  uint16_t frames = 1;
  std::string name;
  uint16_t depth = 24;
  uint16_t colorTable = 0xFFFF;

  std::string record(const std::string& behind = "") const {
    std::string pascal = static_cast<char>(name.size()) + name;
    pascal.resize(32);
    return test::record(format, bigEndian(version, 2) + bigEndian(revision, 2) + vendor +
                                    bigEndian(temporal, 4) + bigEndian(spatial, 4) + bigEndian(width, 2) +
                                    bigEndian(height, 2) + bigEndian(horizontal, 4) + bigEndian(vertical, 4) +
                                    bigEndian(dataSize, 4) + bigEndian(frames, 2) + pascal +
                                    bigEndian(depth, 2) + bigEndian(colorTable, 2) + behind);
  }
};

PVStatus read(const std::string& bytes, Description& out, BRStringRef flavor = kMovie,
              BRAllocatorRef allocator = nullptr) {
  return PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData(allocator, bytesOf(bytes),
                                                                         bytes.size(), flavor, out.out());
}

Description made(const std::string& bytes, BRStringRef flavor = kMovie) {
  Description description;
  EXPECT_EQ(read(bytes, description, flavor), 0);
  return description;
}

std::string write(const Description& description, BRStringRef flavor) {
  Record out;
  EXPECT_EQ(KivVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(nullptr, description.get(),
                                                                                flavor, out.out()),
            0);
  return textOf(out.get());
}

BRTypeRef extension(const Description& description, BRStringRef key) {
  return PVFormatDescriptionGetExtension(description.get(), key);
}

double numberIn(BRTypeRef number) {
  double value = -1;
  EXPECT_TRUE(number && BRGetTypeID(number) == BRNumberGetTypeID());
  if (number) BRNumberGetValue(static_cast<BRNumberRef>(number), kBRNumberTypeFloat64, &value);
  return value;
}

std::string colr(const std::string& type, std::initializer_list<int> codes, const std::string& behind = "") {
  std::string bytes = type;
  for (const int code : codes) bytes += bigEndian(static_cast<uint16_t>(code), 2);
  return atom("colr", bytes + behind);
}

std::string words(std::initializer_list<int64_t> values) {
  std::string bytes;
  for (const int64_t value : values) bytes += bigEndian(static_cast<uint32_t>(value), 4);
  return bytes;
}

// The keys of the atoms that were kept with their payload, joined.
std::string keptAtoms(const Description& description) {
  std::string text;
  BRTypeRef atoms = extension(description, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms);
  if (!atoms) return text;
  BRDictionaryApply(
      static_cast<BRDictionaryRef>(atoms),
      [](const void* key, const void*, void* context) {
        *static_cast<std::string*>(context) += BRStringGetUTF8(static_cast<BRStringRef>(key));
      },
      &text);
  return text;
}

TEST(ImageDescription, FixedFieldsBecomeExtensionsWhenTheySaySomething) {
  const Description plain = made(Fields{}.record());
  EXPECT_EQ(BRDictionaryGetCount(PVFormatDescriptionGetExtensions(plain.get())), 2u)
      << "depth and the record";
  const Description rich =
      made(Fields{"raw ", 1, 2, "vend", 512, 1024, 65535, 1, 300 << 16, 0x00488000, 77, 3, "Größe", 32, 8}
               .record());
  EXPECT_EQ(PVFormatDescriptionGetMediaSubType(rich.get()), "raw "_4cc);
  const PVVideoDimensions size = PVVideoFormatDescriptionGetDimensions(rich.get());
  EXPECT_TRUE(size.width == 65535 && size.height == 1);
  struct Case {
    BRStringRef key;
    double value;
  };
  for (const Case& c : {Case{kPVFormatDescriptionExtension_Version, 1},
                        {kPVFormatDescriptionExtension_RevisionLevel, 2},
                        {kPVFormatDescriptionExtension_TemporalQuality, 512},
                        {kPVFormatDescriptionExtension_SpatialQuality, 1024},
                        {kPVFormatDescriptionExtension_HorizontalResolution, 300},
                        {kPVFormatDescriptionExtension_VerticalResolution, 72.5},
                        {kPVFormatDescriptionExtension_DataSize, 77},
                        {kPVFormatDescriptionExtension_FrameCount, 3},
                        {kPVFormatDescriptionExtension_Depth, 32},
                        {kPVFormatDescriptionExtension_ColorTable, 8}})
    EXPECT_EQ(numberIn(extension(rich, c.key)), c.value) << BRStringGetUTF8(c.key);
  EXPECT_TRUE(BREqual(extension(rich, kPVFormatDescriptionExtension_Vendor), "vend"_br));
  EXPECT_TRUE(BREqual(extension(rich, kPVFormatDescriptionExtension_FormatName), "Größe"_br));
}

TEST(ImageDescription, AtomsBecomeExtensions) {
  const Description video =
      made(Fields{}.record(colr("nclx", {9, 14, 9}, "\x80") + atom("pasp", words({4, 3})) +
                           atom("clap", words({1401, 2, 480, 1, -3, 2, 0, 1})) + atom("fiel", "\2\6") +
                           atom("gama", words({0x23333})) + atom("chrm", std::string("\0\2", 2)) +
                           colr("prof", {}, "icc") + atom("jpgz", "?")));
  const auto is = [&](BRStringRef key, BRStringRef value) { return BREqual(extension(video, key), value); };
  EXPECT_TRUE(
      is(kPVFormatDescriptionExtension_ColorPrimaries, kPVFormatDescriptionColorPrimaries_ITU_R_2020));
  EXPECT_TRUE(
      is(kPVFormatDescriptionExtension_TransferFunction, kPVFormatDescriptionTransferFunction_ITU_R_2020));
  EXPECT_TRUE(is(kPVFormatDescriptionExtension_YCbCrMatrix, kPVFormatDescriptionYCbCrMatrix_ITU_R_2020));
  EXPECT_EQ(extension(video, kPVFormatDescriptionExtension_FullRangeVideo), kBRBooleanTrue);
  EXPECT_TRUE(
      is(kPVFormatDescriptionExtension_FieldDetail, kPVFormatDescriptionFieldDetail_TemporalBottomFirst));
  EXPECT_TRUE(is(kPVFormatDescriptionExtension_ChromaLocationBottomField,
                 kPVFormatDescriptionChromaLocation_TopLeft));
  EXPECT_EQ(numberIn(extension(video, kPVFormatDescriptionExtension_FieldCount)), 2);
  EXPECT_EQ(numberIn(extension(video, kPVFormatDescriptionExtension_GammaLevel)), 0x23333 / 65536.0);
  EXPECT_EQ(textOf(extension(video, kPVFormatDescriptionExtension_ICCProfile)), "icc");
  EXPECT_EQ(keptAtoms(video), "jpgz");
  const GRRect aperture = PVVideoFormatDescriptionGetCleanAperture(video.get(), true);
  EXPECT_TRUE(aperture.size.width == 700.5 && aperture.size.height == 480 && aperture.origin.x == 8.25);
  EXPECT_EQ(PVVideoFormatDescriptionGetPresentationDimensions(video.get(), true, false).width, 960);
}

// What extensions cannot say is kept with its payload, and the extensions have what they can say.
TEST(ImageDescription, AtomsThatSayMoreAreKept) {
  for (const std::string& odd :
       {colr("nclc", {9, 16, 9}), colr("nclc", {1, 6, 1}), colr("nclc", {2, 2, 2}),
        colr("nclx", {1, 1, 1}, "\x01"), colr("nclc", {1, 1}), colr("rICC", {}, "icc"), colr("othr", {}),
        atom("pasp", words({0, 1})), atom("clap", words({1, 0, 1, 1, 0, 1, 0, 1})), atom("fiel", "\2\3"),
        atom("fiel", "\3\1"), atom("gama", "abc"), atom("chrm", "\6\1"), atom("fiel", "\1\1more"),
        atom("colr", "")}) {
    const Description video = made(Fields{}.record(odd), kMovie);
    EXPECT_EQ(keptAtoms(video), odd.substr(4, 4));
    EXPECT_EQ(write(video, kISO), Fields{}.record(odd)) << "written as it was";
  }
  const Description both = made(Fields{}.record(colr("nclc", {9, 16, 9}) + colr("prof", {}, "icc")));
  EXPECT_TRUE(BREqual(extension(both, kPVFormatDescriptionExtension_ColorPrimaries),
                      kPVFormatDescriptionColorPrimaries_ITU_R_2020));
  EXPECT_EQ(write(both, kISO), Fields{}.record(colr("nclc", {9, 16, 9}) + colr("prof", {}, "icc")));
}

// Extensions have room for one atom of a kind.
TEST(ImageDescription, OfSeveralAtomsTheFirstIsToldAndAllAreKept) {
  const std::string profile = colr("prof", {}, "icc"), ratio = atom("pasp", words({4, 3}));
  struct Case {
    std::string first, second;
  };
  for (const auto& [first, second] :
       {Case{colr("nclc", {1, 1, 1}), colr("nclx", {9, 16, 9}, std::string(1, '\0'))},
        {profile, colr("rICC", {}, "other")},
        {ratio, ratio},
        {ratio, atom("pasp", words({0, 1}))},
        {atom("fiel", "\2\1"), atom("fiel", "\1\3")},
        {atom("gama", "abc"), atom("gama", words({1}))}}) {
    const Description video = made(Fields{}.record(first + second)), alone = made(Fields{}.record(first));
    const std::string written = write(video, kISO);
    EXPECT_EQ(written, Fields{}.record(first + second));
    const auto equal = [&](const Description& other, BRTypeRef ignored) {
      return PVFormatDescriptionEqualIgnoringExtensionKeys(video.get(), other.get(), ignored, nullptr);
    };
    EXPECT_TRUE(equal(made(written, kISO), kPVFormatDescriptionExtension_VerbatimSampleDescription));
    EXPECT_TRUE(equal(alone, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms)) << first;
  }
}

struct Sample {
  const char* name;
  std::string bytes;
};

std::vector<Sample> samples() {
  const std::string colors = bigEndian(7, 4) + bigEndian(0, 2) + bigEndian(1, 2) + std::string(16, 'c');
  Fields indexed;
  indexed.colorTable = 0;
  Fields rich{"mp4v",
              1,
              2,
              "vend",
              512,
              1024,
              640,
              480,
              300 << 16,
              0x00488000,
              77,
              3,
              "Encoder of 31 bytes, all of them",
              32,
              8};
  rich.name.resize(31);
  return {
      {"plain", Fields{}.record()},
      {"rich", rich.record(atom("esds", "one") + atom("free", "f"))},
      {"indexed", indexed.record(colors + atom("abcd", "x"))},
      {"atoms", Fields{}.record(atom("dvcC", "1") + atom("btrt", "2") + atom("dvcC", "3") +
                                atom("fiel", "\2\1") + colr("nclc", {1, 1, 1}) + atom("pasp", words({1, 1})) +
                                atom("clap", words({7, 2, 9, 1, -1, 2, 0, 1})) +
                                atom("gama", words({0x23333})) + atom("chrm", "\1\1"))}};
}

TEST(ImageDescription, RecordsComeBackVerbatimAndThroughTheWriter) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.name);
    std::string odd = sample.bytes;
    odd.replace(8, 8, "\1\2\3\4\5\6\0\7", 8);  // reserved bytes, index
    for (auto [flavor, other] : {std::pair{kMovie, kISO}, std::pair{kISO, kMovie}}) {
      const Description video = made(odd, flavor);
      EXPECT_EQ(write(video, flavor), odd);
      const std::string written = write(video, other);
      EXPECT_TRUE(PVFormatDescriptionEqualIgnoringExtensionKeys(
          video.get(), made(written, other).get(), kPVFormatDescriptionExtension_VerbatimSampleDescription,
          nullptr));
      if (std::string(sample.name) != "atoms") {
        EXPECT_EQ(written, sample.bytes);
      }
    }
  }
  // the order of atoms is the writer's, and equal types come together
  const Description video = made(samples()[3].bytes, kISO);
  std::string expected = samples()[3].bytes;
  const size_t at = expected.find("btrt") - 4;
  expected.replace(at, 18, expected.substr(at + 9, 9) + expected.substr(at, 9));
  EXPECT_EQ(write(video, kMovie), expected);
}

TEST(ImageDescription, ARecordThatNoLongerFitsTheDescriptionIsNotRepeated) {
  const Description video = made(Fields{}.record());
  Description resized;
  ASSERT_EQ(PVVideoFormatDescriptionCreate(nullptr, "jpeg"_4cc, 320, 240,
                                           PVFormatDescriptionGetExtensions(video.get()), resized.out()),
            0);
  Fields fields;
  fields.width = 320;
  fields.height = 240;
  EXPECT_EQ(write(resized, kMovie), fields.record());
}

TEST(ImageDescription, CleanApertureWithoutRationalsAndLongNamesAreWritten) {
  const Dictionary aperture =
      dictionary({{kPVFormatDescriptionKey_CleanApertureWidth, number(700.5).get()},
                  {kPVFormatDescriptionKey_CleanApertureHeight, number(480).get()},
                  {kPVFormatDescriptionKey_CleanApertureHorizontalOffset, number(-1.25).get()},
                  {kPVFormatDescriptionKey_CleanApertureVerticalOffset, number(1.0 / 3).get()}});
  const Dictionary extensions =
      dictionary({{kPVFormatDescriptionExtension_CleanAperture, aperture.get()},
                  {kPVFormatDescriptionExtension_FormatName, "A name of thirty bytes, then: 漢"_br}});
  Description video;
  ASSERT_EQ(PVVideoFormatDescriptionCreate(nullptr, "jpeg"_4cc, 720, 480, extensions.get(), video.out()), 0);
  Fields fields;
  fields.depth = 0;
  fields.name = "A name of thirty bytes, then: ";
  EXPECT_EQ(write(video, kISO), fields.record(atom("clap", words({1401, 2, 480, 1, -5, 4, 21845, 65536}))));
}

TEST(ImageDescription, BadRecordsAreRefused) {
  struct Case {
    const char* what;
    std::string bytes;
    BRStringRef flavor;
    PVStatus expected;
  };
  const std::string good = Fields{}.record(atom("abcd", "payload"));
  const auto sized = [&](size_t size) { return std::string(good).replace(0, 4, bigEndian(size, 4)); };
  Fields indexed, none;
  indexed.colorTable = 0;
  none.format = std::string(4, '\0');
  const Case cases[] = {
      {"85 bytes", sized(85), kMovie, -12714},
      {"beyond the bytes", sized(good.size() + 1), kMovie, -12714},
      {"atom", Fields{}.record(bigEndian(9, 4) + "abcd"), kMovie, -12714},
      {"no colour table", indexed.record(), kMovie, -12714},
      {"short colour table",
       indexed.record(bigEndian(0, 4) + bigEndian(0, 2) + bigEndian(1, 2) + std::string(15, 'c')), kMovie,
       -12714},
      {"negative colour table", indexed.record(bigEndian(0, 6) + bigEndian(0xFFFF, 2)), kMovie, -12714},
      {"sound's flavour", good, kPVSoundDescriptionFlavor_TavloMovieV2, -12717},
      {"flavour", good, "Other"_br, -12717},
      {"format 0", none.record(), kMovie, -12710},
  };
  for (const Case& c : cases) {
    Description description;
    EXPECT_EQ(read(c.bytes, description, c.flavor), c.expected) << c.what;
    EXPECT_EQ(description.get(), nullptr) << c.what;
  }
  for (const Sample& sample : samples())
    forEveryCut(sample.bytes, [](const std::string& cut, size_t length) {
      Description description;
      const PVStatus status = read(cut, description);
      EXPECT_TRUE(length < 86 ? status == -12714 : status == 0 || status == -12714) << length;
    });
}

TEST(ImageDescription, WritingRefusesWhatNoRecordCanSay) {
  Description text, wide;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, "text"_4cc, nullptr, text.out()), 0);
  ASSERT_EQ(PVVideoFormatDescriptionCreate(nullptr, "jpeg"_4cc, 65536, 1, nullptr, wide.out()), 0);
  struct Case {
    PVFormatDescriptionRef description;
    PVStatus expected;
  };
  for (const Case& c : {Case{nullptr, -12712}, Case{text.get(), -12712}, Case{wide.get(), -12717}}) {
    auto* out = reinterpret_cast<PVBlockBufferRef>(1);
    EXPECT_EQ(PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(nullptr, c.description, kISO,
                                                                                 &out),
              c.expected);
    EXPECT_EQ(out, nullptr);
  }
}

TEST(ImageDescription, RunningOutOfMemoryLeavesNothingBehind) {
  const std::string bytes = samples()[3].bytes;
  walkReadFailures([&](BRAllocatorRef allocator) {
    Description description;
    return read(bytes, description, kMovie, allocator);
  });
  const Description video = made(bytes, kISO);
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    Record out;
    const PVStatus status = PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(
        allocator, video.get(), kMovie, out.out());
    return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

}  // namespace
