#include <kiv/error.h>
#include <kiv/sample_description.h>
#include <pevrin/text_description.h>
#include <pevrin/text_format_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/formats/records.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;

// Words of 16 bits.
std::string words(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += bigEndian(static_cast<uint16_t>(value), 2);
  return bytes;
}

std::string chars(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += static_cast<char>(value);
  return bytes;
}

const std::string kFontTable = atom("ftab", words({2, 3}) + "\5Serif" + words({300}) +
                                                "\7\xE5\xAD\x97"
                                                "Sans");

// flags, justification 257, background, box, style (start, height, ascent, font, face, filler, size, colour),
// name
const std::string kMovieText =
    record("text", bigEndian(0x40000002, 4) + bigEndian(257, 4) + words({1, 2, 3}) +
                       words({10, 20, 110, 220}) + bigEndian(7, 4) + words({24, 18, 5}) + chars({6, 0}) +
                       words({12, 65535, 0, 0}) + "\6Geneva" + atom("more", "x"));
// flags, justifications, background, box, style (start, end, font, face, size, colour), atoms
const std::string kTimedText = record(
    "tx3g", bigEndian(0x80000000, 4) + chars({1, -1, 0, 0, 0, 255}) + words({10, 20, 110, 220, 0, 9, 3}) +
                chars({5, 200, 255, 128, 0, 255}) + kFontTable + atom("btrt", "rates"));
const std::string kWebVTT = record("wvtt", atom("vttC", "WEBVTT") + atom("vlab", "source"));

PVStatus read(const std::string& bytes, Description& out, BRStringRef flavor = nullptr,
              BRAllocatorRef allocator = nullptr) {
  return PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData(allocator, bytesOf(bytes),
                                                                       bytes.size(), flavor, out.out());
}

Description made(const std::string& bytes, BRStringRef flavor = nullptr) {
  Description description;
  EXPECT_EQ(read(bytes, description, flavor), 0);
  return description;
}

std::string write(const Description& description, BRStringRef flavor = nullptr) {
  Record out;
  EXPECT_EQ(KivTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer(nullptr, description.get(),
                                                                              flavor, out.out()),
            0);
  return textOf(out.get());
}

Description withExtension(BRStringRef key, BRTypeRef value, PVFourCharCode subType) {
  Description description;
  EXPECT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Subtitle, subType,
                                      dictionary({{key, value}}).get(), description.out()),
            0);
  return description;
}

TEST(TextFormatDescription, DefaultsOfMovieText) {
  const Description text = made(kMovieText);
  EXPECT_EQ(PVFormatDescriptionGetMediaType(text.get()), kPVMediaType_Text);
  int32_t flags;
  int8_t horizontal, vertical;
  PVTextRect box;
  ASSERT_EQ(PVTextFormatDescriptionGetDisplayFlags(text.get(), &flags), 0);
  EXPECT_EQ(flags, 0x40000002);
  ASSERT_EQ(PVTextFormatDescriptionGetJustification(text.get(), &horizontal, &vertical), 0);
  EXPECT_EQ(horizontal, 1);
  EXPECT_EQ(vertical, 0);
  ASSERT_EQ(PVTextFormatDescriptionGetDefaultTextBox(text.get(), true, 150, &box), 0);
  EXPECT_TRUE(box.x == 20 && box.y == 10 && box.width == 200 && box.height == 100);
  uint16_t font;
  bool bold, italic, underline;
  double size;
  PVTextColor color;
  ASSERT_EQ(
      PVTextFormatDescriptionGetDefaultStyle(text.get(), &font, &bold, &italic, &underline, &size, &color),
      0);
  EXPECT_EQ(font, 5);
  EXPECT_TRUE(!bold && italic && underline);
  EXPECT_EQ(size, 12);
  EXPECT_TRUE(color.red == 1 && color.green == 0 && color.blue == 0 && color.alpha == 1);
  BRStringRef name;
  ASSERT_EQ(PVTextFormatDescriptionGetFontName(text.get(), 99, &name), 0);
  EXPECT_STREQ(BRStringGetUTF8(name), "Geneva");
}

TEST(TextFormatDescription, DefaultsOfTimedText) {
  const Description text = made(kTimedText);
  EXPECT_EQ(PVFormatDescriptionGetMediaType(text.get()), kPVMediaType_Subtitle);
  int8_t horizontal, vertical;
  ASSERT_EQ(PVTextFormatDescriptionGetJustification(text.get(), &horizontal, &vertical), 0);
  EXPECT_EQ(horizontal, 1);
  EXPECT_EQ(vertical, -1);
  PVTextRect box;
  ASSERT_EQ(PVTextFormatDescriptionGetDefaultTextBox(text.get(), false, 150, &box), 0);
  EXPECT_TRUE(box.x == 20 && box.y == 140 && box.width == 200 && box.height == 100);
  bool bold, underline;
  double size;
  PVTextColor color;
  ASSERT_EQ(
      PVTextFormatDescriptionGetDefaultStyle(text.get(), nullptr, &bold, nullptr, &underline, &size, &color),
      0);
  EXPECT_TRUE(bold && underline);
  EXPECT_EQ(size, -56) << "200 in a signed byte";
  EXPECT_EQ(color.red, 1);
  EXPECT_EQ(color.green, 128 / 255.0);
  BRStringRef name;
  ASSERT_EQ(PVTextFormatDescriptionGetFontName(text.get(), 300, &name), 0);
  EXPECT_STREQ(BRStringGetUTF8(name), "字Sans");
  EXPECT_EQ(PVTextFormatDescriptionGetFontName(text.get(), 4, &name), -12710);
  EXPECT_EQ(name, nullptr);
}

TEST(TextFormatDescription, WhatIsMissingIsRefusedAndLeftAlone) {
  const Description bare = withExtension(kPVTextFormatDescriptionExtension_HorizontalJustification,
                                         made(kTimedText).get() ? kBRBooleanTrue : nullptr, "tx3g"_4cc);
  Description video;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, "vide"_4cc, "text"_4cc, nullptr, video.out()), 0);
  struct Case {
    PVFormatDescriptionRef description;
    PVStatus expected;
    uint64_t signalled;
  };
  const Description webVTT = made(kWebVTT);
  const Case cases[] = {
      {nullptr, -12710, 5}, {video.get(), -12710, 5}, {bare.get(), -12710, 5}, {webVTT.get(), -12718, 0}};
  for (const Case& c : cases) {
    const uint64_t errors = KivGetErrorCount();
    int32_t flags = 77;
    int8_t horizontal = 77, vertical = 77;
    PVTextRect box{77, 77, 77, 77};
    double size = 77;
    BRStringRef name = "untouched"_br;
    EXPECT_EQ(PVTextFormatDescriptionGetDisplayFlags(c.description, &flags), c.expected);
    EXPECT_EQ(PVTextFormatDescriptionGetJustification(c.description, &horizontal, &vertical), c.expected);
    EXPECT_EQ(PVTextFormatDescriptionGetDefaultTextBox(c.description, true, 0, &box), c.expected);
    EXPECT_EQ(PVTextFormatDescriptionGetDefaultStyle(c.description, nullptr, nullptr, nullptr, nullptr, &size,
                                                     nullptr),
              c.expected);
    EXPECT_EQ(PVTextFormatDescriptionGetFontName(c.description, 1, &name), c.expected);
    EXPECT_TRUE(flags == 77 && horizontal == 77 && vertical == 77 && box.x == 77 && size == 77);
    EXPECT_EQ(KivGetErrorCount() - errors, c.signalled);
  }
}

TEST(TextFormatDescription, NothingAskedForNeedsNothing) {
  const Description text = withExtension("Other"_br, kBRBooleanTrue, "tx3g"_4cc);
  EXPECT_EQ(PVTextFormatDescriptionGetDisplayFlags(text.get(), nullptr), 0);
  EXPECT_EQ(PVTextFormatDescriptionGetJustification(text.get(), nullptr, nullptr), 0);
  EXPECT_EQ(PVTextFormatDescriptionGetDefaultTextBox(text.get(), true, 0, nullptr), 0);
  EXPECT_EQ(PVTextFormatDescriptionGetFontName(text.get(), 0, nullptr), -12710);
}

// A record, and what the real writer makes of its description: the filler of 'text' is 0 and "ftab" comes
// first.
TEST(TextDescription, RecordsComeBackVerbatimAndThroughTheWriter) {
  const BRStringRef keys[] = {kPVFormatDescriptionExtension_VerbatimSampleDescription,
                              kPVFormatDescriptionExtension_VerbatimISOSampleEntry};
  for (const std::string& bytes : {kMovieText, kTimedText, kWebVTT}) {
    std::string odd = bytes;
    odd.replace(8, 8, "\1\2\3\4\5\6\0\7", 8);  // reserved bytes, index
    for (BRStringRef flavor : {kPVImageDescriptionFlavor_TavloMovie, kPVImageDescriptionFlavor_ISOFamily}) {
      const Description description = made(odd, flavor);
      EXPECT_EQ(write(description, flavor), odd);
      BRStringRef other = flavor == kPVImageDescriptionFlavor_ISOFamily ? kPVImageDescriptionFlavor_TavloMovie
                                                                        : kPVImageDescriptionFlavor_3GPFamily;
      EXPECT_EQ(write(description, other), bytes);
      EXPECT_TRUE(PVFormatDescriptionEqualIgnoringExtensionKeys(description.get(), made(bytes, other).get(),
                                                                keys[0], nullptr));
    }
  }
}

TEST(TextDescription, BadRecordsAreRefused) {
  struct Case {
    const char* what;
    std::string bytes;
    PVStatus expected;
  };
  const std::string fields = kTimedText.substr(16, 30);
  std::string tooLong = kMovieText, tooShort = kTimedText;
  tooLong.replace(0, 4, bigEndian(tooLong.size() + 1, 4));
  tooShort.replace(0, 4, bigEndian(45, 4));
  const Case cases[] = {
      {"format", record("text", "").replace(4, 4, "abcd"), -12717},
      {"beyond the bytes", tooLong, -12714},
      {"too small", tooShort, -12714},
      {"font name", record("text", std::string(42, '\0') + "\5abcd"), -12714},
      {"atom", record("tx3g", fields + bigEndian(9, 4) + "free"), -12714},
      {"font count", record("tx3g", fields + atom("ftab", words({2, 3}) + "\1A")), -12714},
      {"font name in the table", record("tx3g", fields + atom("ftab", words({1, 3}) + "\2A")), -12714},
  };
  for (const Case& c : cases) {
    Description description;
    EXPECT_EQ(read(c.bytes, description), c.expected) << c.what;
  }
  Description description;
  EXPECT_EQ(read(kWebVTT, description, "OtherFamily"_br), -12717);
  // cut anywhere, with an honest size: never more than a status
  for (const std::string& whole : {kMovieText, kTimedText, kWebVTT})
    forEveryCut(whole, [&](const std::string& cut, size_t length) {
      const PVStatus status = read(cut, description);
      EXPECT_TRUE(status == 0 || status == -12714 || (status == -12712 && length < 16)) << length;
    });
}

TEST(TextDescription, FontNamesThatDoNotFitAreNotWritten) {
  const std::string longName(256, 'x');
  const auto name = br::Ref<const BRString>::adopt(
      BRStringCreateWithCString(nullptr, longName.c_str(), kBRStringEncodingUTF8));
  for (BRTypeRef wrong : {BRTypeRef{name.get()}, BRTypeRef{"漢"_br}}) {
    const Description text =
        withExtension(kPVTextFormatDescriptionExtension_DefaultFontName, wrong, "text"_4cc);
    PVBlockBufferRef out;
    EXPECT_EQ(
        PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer(nullptr, text.get(), nullptr, &out),
        -12717);
    EXPECT_EQ(out, nullptr);
  }
}

TEST(TextDescription, RunningOutOfMemoryLeavesNothingBehind) {
  for (const std::string& bytes : {kMovieText, kTimedText})
    walkReadFailures([&](BRAllocatorRef allocator) {
      Description description;
      return read(bytes, description, nullptr, allocator);
    });
}

}  // namespace
