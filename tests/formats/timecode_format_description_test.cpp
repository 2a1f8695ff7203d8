#include <kiv/error.h>
#include <kiv/sample_description.h>
#include <pevrin/timecode_format_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/formats/records.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;

std::string timecodeRecord(const std::string& format, uint32_t flags, const std::string& atoms = "",
                           uint8_t frames = 30, uint32_t timescale = 30000) {
  return record(format, bigEndian(0, 4) + bigEndian(flags, 4) + bigEndian(timescale, 4) + bigEndian(1001, 4) +
                            static_cast<char>(frames) + '\0' + atoms);
}

std::string name(const std::string& text, uint16_t language = 0) {
  return atom("name", bigEndian(text.size(), 2) + bigEndian(language, 2) + text);
}

PVStatus read(const std::string& bytes, Description& out, BRAllocatorRef allocator = nullptr) {
  return PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData(
      allocator, bytesOf(bytes), bytes.size(), nullptr, out.out());
}

std::string write(PVFormatDescriptionRef description) {
  Record out;
  EXPECT_EQ(KivTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer(nullptr, description,
                                                                                      nullptr, out.out()),
            0);
  return textOf(out.get());
}

Description make(PVFourCharCode type, PVTime duration, uint32_t quanta, uint32_t flags,
                 BRDictionaryRef extensions = nullptr) {
  Description made;
  EXPECT_EQ(PVTimeCodeFormatDescriptionCreate(nullptr, type, duration, quanta, flags, extensions, made.out()),
            0);
  return made;
}

// The same description without the record that it remembers.
Description withoutVerbatim(const Description& read) {
  auto extensions = br::Ref<BRDictionary>::adopt(
      BRDictionaryCreateMutableCopy(nullptr, PVFormatDescriptionGetExtensions(read.get())));
  BRDictionaryRemoveValue(extensions.get(), kPVFormatDescriptionExtension_VerbatimSampleDescription);
  return make(PVFormatDescriptionGetMediaSubType(read.get()),
              PVTimeCodeFormatDescriptionGetFrameDuration(read.get()),
              PVTimeCodeFormatDescriptionGetFrameQuanta(read.get()),
              PVTimeCodeFormatDescriptionGetTimeCodeFlags(read.get()), extensions.get());
}

TEST(TimeCodeFormatDescription, CreationChecksItsArguments) {
  const PVTime frame = PVTimeMake(1001, 30000);
  struct Case {
    const char* name;
    PVFourCharCode type;
    PVTime duration;
    uint32_t quanta;
    PVStatus expected;
  };
  const Case cases[] = {{"good", "tmcd"_4cc, frame, 30, 0},
                        {"counter", "cn64"_4cc, frame, 30, 0},
                        {"indefinite", "tc64"_4cc, kPVTimeIndefinite, 1, 0},
                        {"type", "avc1"_4cc, frame, 30, -12710},
                        {"duration", "tmcd"_4cc, kPVTimeInvalid, 30, -12710},
                        {"quanta", "tmcd"_4cc, frame, 0, -12710}};
  for (const Case& c : cases) {
    auto* out = reinterpret_cast<PVFormatDescriptionRef>(1);
    EXPECT_EQ(PVTimeCodeFormatDescriptionCreate(nullptr, c.type, c.duration, c.quanta, 0, nullptr, &out),
              c.expected)
        << c.name;
    EXPECT_EQ(out == nullptr, c.expected != 0) << c.name;
    BRRelease(out);
  }
  EXPECT_EQ(PVTimeCodeFormatDescriptionCreate(nullptr, "tmcd"_4cc, frame, 30, 0, nullptr, nullptr), -12710);
}

TEST(TimeCodeFormatDescription, GettersRefuseWhatIsNoTimecode) {
  Description text;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, "text"_4cc, nullptr, text.out()), 0);
  for (PVFormatDescriptionRef wrong : {PVFormatDescriptionRef{}, text.get()}) {
    const uint64_t errors = KivGetErrorCount();
    EXPECT_FALSE(PVTimeIsValid(PVTimeCodeFormatDescriptionGetFrameDuration(wrong)));
    EXPECT_EQ(PVTimeCodeFormatDescriptionGetFrameQuanta(wrong), 0u);
    EXPECT_EQ(PVTimeCodeFormatDescriptionGetTimeCodeFlags(wrong), 0u);
    EXPECT_EQ(KivGetErrorCount(), errors + 3);
  }
}

TEST(TimeCodeFormatDescription, EqualityComparesDurationsAsTimes) {
  const auto one = make("tmcd"_4cc, PVTimeMake(1001, 30000), 30, 1);
  EXPECT_TRUE(PVFormatDescriptionEqual(one.get(), make("tmcd"_4cc, PVTimeMake(2002, 60000), 30, 1).get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(one.get(), make("tmcd"_4cc, PVTimeMake(1, 30), 30, 1).get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(one.get(), make("tmcd"_4cc, PVTimeMake(1001, 30000), 60, 1).get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(one.get(), make("tmcd"_4cc, PVTimeMake(1001, 30000), 30, 0).get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(one.get(), make("tc64"_4cc, PVTimeMake(1001, 30000), 30, 1).get()));
}

TEST(TimeCodeFormatDescription, TextTellsDurationQuantaAndFlags) {
  const auto text = br::Ref<const BRString>::adopt(
      BRCopyDescription(make("tmcd"_4cc, PVTimeMake(1001, 30000), 30, 1).get()));
  EXPECT_NE(std::string(BRStringGetUTF8(text.get()))
                .find("\t\tframeDuration: {1001/30000 = 0.033}\t\tframes/sec: 30\t\ttcFlags: 1"),
            std::string::npos)
      << BRStringGetUTF8(text.get());
}

TEST(TimeCodeFormatDescription, RecordsOfEveryFormComeBack) {
  for (const char* format : {"tmcd", "tc64"})
    for (const uint32_t flags : {1u, 8u, 15u}) {
      Description description;
      const std::string bytes = timecodeRecord(format, flags, name("Reel 7", 5));
      ASSERT_EQ(read(bytes, description), 0);
      EXPECT_EQ(PVTimeCodeFormatDescriptionGetTimeCodeFlags(description.get()), flags & ~8u);
      EXPECT_EQ(PVTimeCodeFormatDescriptionGetFrameQuanta(description.get()), 30u);
      EXPECT_EQ(write(description.get()), bytes) << "the remembered record";
      std::string written = bytes;
      written.replace(14, 2, bigEndian(0xFFFF, 2));
      EXPECT_EQ(write(withoutVerbatim(description).get()), written);
    }
  Description counter;
  ASSERT_EQ(read(timecodeRecord("tmcd", 8), counter), 0);
  EXPECT_EQ(PVFormatDescriptionGetMediaSubType(counter.get()), "cn32"_4cc);
}

TEST(TimeCodeFormatDescription, NamesAreFoundAmongAtoms) {
  struct Case {
    const char* what;
    std::string atoms;
    PVStatus expected;
    const char* name;
  };
  const Case cases[] = {
      {"first of two", atom("free", "x") + name("A\x8A") + name("B"), 0, "Aä"},  // 0x8A: Western Roman
      {"empty", name(""), 0, ""},
      {"too short for its fields", atom("name", "abc") + name("B"), 0, nullptr},
      {"atom of 7 bytes ends the list", bigEndian(7, 4) + "name" + name("B"), 0, nullptr},
      {"fewer than 8 bytes left", std::string(7, 'x'), 0, nullptr},
      {"reaches past the end", bigEndian(9, 4) + "free", -12714, nullptr},
      {"text longer than the atom", atom("name", bigEndian(3, 2) + bigEndian(0, 2) + "ab"), -12714, nullptr},
  };
  for (const Case& c : cases) {
    Description description;
    ASSERT_EQ(read(timecodeRecord("tmcd", 0, c.atoms), description), c.expected) << c.what;
    if (c.expected != 0) continue;
    BRTypeRef source = PVFormatDescriptionGetExtension(
        description.get(), kPVTimeCodeFormatDescriptionExtension_SourceReferenceName);
    ASSERT_EQ(source != nullptr, c.name != nullptr) << c.what;
    if (!source) continue;
    EXPECT_STREQ(BRStringGetUTF8(static_cast<BRStringRef>(BRDictionaryGetValue(
                     static_cast<BRDictionaryRef>(source), kPVTimeCodeFormatDescriptionKey_Value))),
                 c.name);
  }
}

TEST(TimeCodeFormatDescription, BadRecordsAreRefused) {
  struct Case {
    const char* what;
    std::string bytes;
    PVStatus expected;
  };
  const Case cases[] = {{"format", timecodeRecord("text", 0), -12712},
                        {"no frames", timecodeRecord("tmcd", 0, "", 0), -12710},
                        {"timescale 0", timecodeRecord("tmcd", 0, "", 30, 0), -12710},
                        {"timescale of 2^31", timecodeRecord("tmcd", 0, "", 30, 0x80000000), -12710}};
  for (const Case& c : cases) {
    Description description;
    EXPECT_EQ(read(c.bytes, description), c.expected) << c.what;
    EXPECT_EQ(description.get(), nullptr);
  }
  const std::string good = timecodeRecord("tmcd", 1, name("Reel"));
  for (size_t length = 0; length < good.size(); ++length) {
    Description description;
    const PVStatus expected = length < 34 ? -12712 : length < 42 ? 0 : -12714;
    EXPECT_EQ(read(std::string(good.data(), length), description), expected) << length;
  }
}

// An object of another type that has, where a timecode description has them, types and a frame duration.
struct Impostor : BRObject {
  static constexpr const char* className = "Impostor";
  PVFourCharCode types[2] = {"tmcd"_4cc, "tmcd"_4cc};
  const void* none[3] = {};
  PVTime frameDuration = PVTimeMake(1, 25);
  uint32_t quantaAndFlags[2] = {25, 0};
};

TEST(TimeCodeFormatDescription, WritingRefusesOtherDescriptionsAndNamesItCannotWrite) {
  Description text;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, "text"_4cc, nullptr, text.out()), 0);
  Description read1;
  ASSERT_EQ(read(timecodeRecord("tmcd", 0, name("Reel")), read1), 0);
  const Dictionary source = dictionary({{kPVTimeCodeFormatDescriptionKey_Value, "\xE6\xBC\xA2"_br},
                                        {kPVTimeCodeFormatDescriptionKey_LangCode, number(0).get()}});
  const Dictionary extensions =
      dictionary({{kPVTimeCodeFormatDescriptionExtension_SourceReferenceName, source.get()}});
  const auto unwritable = make("tmcd"_4cc, PVTimeMake(1, 25), 25, 0, extensions.get());
  const auto impostor = br::Ref<Impostor>::adopt(br::create<Impostor>(nullptr, 0));
  for (PVFormatDescriptionRef wrong : {PVFormatDescriptionRef{}, text.get(), unwritable.get(),
                                       reinterpret_cast<PVFormatDescriptionRef>(impostor.get())}) {
    auto* out = reinterpret_cast<PVBlockBufferRef>(1);
    EXPECT_EQ(PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer(nullptr, wrong,
                                                                                       nullptr, &out),
              kPVSampleDescriptionError_InvalidParameter);
    EXPECT_EQ(out, nullptr);
  }
}

TEST(TimeCodeFormatDescription, BlockBuffersInPiecesAreRead) {
  std::string bytes = timecodeRecord("tmcd", 1, name("Reel"));
  Description whole, pieces;
  ASSERT_EQ(read(bytes, whole), 0);
  ASSERT_EQ(PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionBlockBuffer(
                nullptr, test::inTwoPieces(bytes).get(), nullptr, pieces.out()),
            0);
  EXPECT_TRUE(PVFormatDescriptionEqual(whole.get(), pieces.get()));
}

TEST(TimeCodeFormatDescription, RunningOutOfMemoryLeavesNothingBehind) {
  const std::string bytes = timecodeRecord("tmcd", 1, name("Reel"));
  const int requests = walkReadFailures([&](BRAllocatorRef allocator) {
    Description description;
    return read(bytes, description, allocator);
  });
  EXPECT_GE(requests, 5);
  Description description;
  ASSERT_EQ(read(bytes, description), 0);
  const auto stripped = withoutVerbatim(description);
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    Record out;
    const PVStatus status = PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer(
        allocator, stripped.get(), nullptr, out.out());
    EXPECT_NE(status, kPVSampleDescriptionError_InvalidParameter);
    return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

}  // namespace
