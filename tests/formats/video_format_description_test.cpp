#include <imlay/encoded_image_buffer.h>
#include <imlay/image_buffer_keys.h>
#include <imlay/pixel_buffer.h>
#include <kiv/error.h>
#include <kiv/video_format_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/support/objects.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;
using Description = br::Ref<PVFormatDescription>;
using Picture = br::Ref<IMImageBuffer>;

Description make(PVVideoCodecType codec, int32_t width, int32_t height,
                 const Dictionary& extensions = nullptr) {
  Description description;
  EXPECT_EQ(
      PVVideoFormatDescriptionCreate(nullptr, codec, width, height, extensions.get(), description.out()), 0);
  return description;
}

TEST(VideoFormatDescription, HoldsCodecAndSize) {
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    Description description;
    if (PVStatus status =
            PVVideoFormatDescriptionCreate(allocator, "avc1"_4cc, 1920, 1080, nullptr, description.out())) {
      EXPECT_EQ(status, -12711);
      EXPECT_FALSE(description);
      return Outcome::kOutOfMemory;
    }
    EXPECT_EQ(PVFormatDescriptionGetMediaType(description.get()), PVMediaType{kPVMediaType_Video});
    EXPECT_EQ(PVFormatDescriptionGetMediaSubType(description.get()), "avc1"_4cc);
    EXPECT_EQ(PVVideoFormatDescriptionGetDimensions(description.get()).width, 1920);
    EXPECT_EQ(PVVideoFormatDescriptionGetDimensions(description.get()).height, 1080);
    return Outcome::kSucceeded;
  });
  Description description = make("avc1"_4cc, 1, 1);
  EXPECT_EQ(PVVideoFormatDescriptionCreate(nullptr, 0, 1, 1, nullptr, description.out()), -12710);
  EXPECT_FALSE(description);
  EXPECT_EQ(PVVideoFormatDescriptionCreate(nullptr, "avc1"_4cc, 1, 1, nullptr, nullptr), -12710);
}

TEST(VideoFormatDescription, EqualityLooksAtSizeAndExtensions) {
  const Dictionary vendor = dictionary({{kPVFormatDescriptionExtension_Vendor, "pvrn"_br}});
  Description first = make("avc1"_4cc, 640, 480, vendor), same = make("avc1"_4cc, 640, 480, vendor);
  EXPECT_TRUE(PVFormatDescriptionEqual(first.get(), same.get()));
  EXPECT_EQ(BRHash(first.get()), BRHash(same.get()));
  for (const Description& other : {make("hvc1"_4cc, 640, 480, vendor), make("avc1"_4cc, 641, 480, vendor),
                                   make("avc1"_4cc, 640, 481, vendor), make("avc1"_4cc, 640, 480)})
    EXPECT_FALSE(PVFormatDescriptionEqual(first.get(), other.get()));
  EXPECT_TRUE(PVFormatDescriptionEqualIgnoringExtensionKeys(first.get(), make("avc1"_4cc, 640, 480).get(),
                                                            kPVFormatDescriptionExtension_Vendor, nullptr));
}

TEST(VideoFormatDescription, TextShowsCodecAndSize) {
  const auto shows = [](const Description& description, const char* lines) {
    auto text = br::Ref<const BRString>::adopt(BRCopyDescription(description.get()));
    return std::string(BRStringGetUTF8(text.get()), BRStringGetLengthBytes(text.get())).find(lines) !=
           std::string::npos;
  };
  EXPECT_TRUE(shows(make("avc1"_4cc, 1920, 1080),
                    "mediaSpecific: {\n\t\tcodecType: 'avc1'\t\tdimensions: 1920 x 1080 \n\t}"));
  EXPECT_TRUE(shows(make(0xFF, -1, 2), "{\n\t\tcodecType: 255\t\tdimensions: -1 x 2 \n\t}"));
  EXPECT_TRUE(shows(make(0x80414243, 1, 2),
                    "codecType: '\xEF\xBF\xBD"
                    "ABC'"));
}

TEST(VideoFormatDescription, WhatIsNoVideoHasNoSize) {
  Description text;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, "tx3g"_4cc, nullptr, text.out()), 0);
  for (PVFormatDescriptionRef none : {static_cast<PVFormatDescriptionRef>(nullptr), text.get()}) {
    const uint64_t before = KivGetErrorCount();
    EXPECT_EQ(PVVideoFormatDescriptionGetDimensions(none).width, 0);
    EXPECT_EQ(PVVideoFormatDescriptionGetCleanAperture(none, true).size.width, 0);
    EXPECT_EQ(PVVideoFormatDescriptionGetPresentationDimensions(none, true, true).height, 0);
    EXPECT_EQ(KivGetErrorCount(), before + 3);
  }
}

TEST(VideoFormatDescription, CleanApertureIsUsedWhenItLiesInThePicture) {
  const struct {
    const char* name;
    double width, height, right, down;
    double x, y, yFromBottom, cleanWidth, cleanHeight;  // the rectangle
    double shownWidth, shownHeight;                     // the presentation dimensions
  } cases[] = {
      {"in the middle", 704, 480, 0, 0, 8, 0, 0, 704, 480, 704, 480},
      {"moved right and down", 700, 470, 4, -2, 14, 3, 7, 700, 470, 700, 470},
      {"at the edge", 700, 470, -10, 5, 0, 10, 0, 700, 470, 700, 470},
      {"the whole", 720, 480, 0, 0, 0, 0, 0, 720, 480, 720, 480},
      {"past the right edge", 704, 480, 8.5, 0, 0, 0, 0, 720, 480, 704, 480},
      {"past the lower edge", 704, 470, 0, 6, 0, 0, 0, 720, 480, 704, 470},
      {"too wide", 721, 480, 0, 0, 0, 0, 0, 720, 480, 720, 480},
      {"too high", 704, 481, 0, 0, 0, 0, 0, 720, 480, 720, 480},
      {"nothing", 0, 480, 0, 0, 0, 0, 0, 720, 480, 720, 480},
      {"less than nothing", 704, -1, 0, 0, 0, 0, 0, 720, 480, 720, 480},
      {"no number", NAN, 480, 0, 0, 0, 0, 0, 720, 480, 720, 480},
      {"no offset", 704, 480, NAN, 0, 0, 0, 0, 720, 480, 704, 480},
  };
  for (const auto& row : cases) {
    const Dictionary aperture =
        dictionary({{kPVFormatDescriptionKey_CleanApertureWidth, number(row.width).get()},
                    {kPVFormatDescriptionKey_CleanApertureHeight, number(row.height).get()},
                    {kPVFormatDescriptionKey_CleanApertureHorizontalOffset, number(row.right).get()},
                    {kPVFormatDescriptionKey_CleanApertureVerticalOffset, number(row.down).get()}});
    Description description = make(
        "DV  "_4cc, 720, 480, dictionary({{kPVFormatDescriptionExtension_CleanAperture, aperture.get()}}));
    const GRRect rect = PVVideoFormatDescriptionGetCleanAperture(description.get(), true);
    EXPECT_EQ(rect.origin.x, row.x) << row.name;
    EXPECT_EQ(rect.origin.y, row.y) << row.name;
    EXPECT_EQ(rect.size.width, row.cleanWidth) << row.name;
    EXPECT_EQ(rect.size.height, row.cleanHeight) << row.name;
    EXPECT_EQ(PVVideoFormatDescriptionGetCleanAperture(description.get(), false).origin.y, row.yFromBottom)
        << row.name;
    const GRSize shown = PVVideoFormatDescriptionGetPresentationDimensions(description.get(), true, true);
    EXPECT_EQ(shown.width, row.shownWidth) << row.name;
    EXPECT_EQ(shown.height, row.shownHeight) << row.name;
  }
}

TEST(VideoFormatDescription, PixelAspectRatioScalesTheWidth) {
  const auto with = [](BRTypeRef across, BRTypeRef down) {
    const Dictionary shape = dictionary({{kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing, across},
                                         {kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing, down}});
    const Dictionary aperture =
        dictionary({{kPVFormatDescriptionKey_CleanApertureWidth, number(700).get()},
                    {kPVFormatDescriptionKey_CleanApertureHeight, number(470).get()}});
    return make("DV  "_4cc, 720, 480,
                dictionary({{kPVFormatDescriptionExtension_PixelAspectRatio, shape.get()},
                            {kPVFormatDescriptionExtension_CleanAperture, aperture.get()}}));
  };
  const auto width = [](const Description& description, bool ratio, bool aperture) {
    return PVVideoFormatDescriptionGetPresentationDimensions(description.get(), ratio, aperture).width;
  };
  Description wide = with(number(4).get(), number(3).get());
  EXPECT_EQ(width(wide, true, false), 960);
  EXPECT_EQ(width(wide, false, false), 720);
  EXPECT_EQ(width(wide, true, true), 700 * (4. / 3.));
  EXPECT_EQ(PVVideoFormatDescriptionGetPresentationDimensions(wide.get(), true, false).height, 480);
  EXPECT_EQ(width(with(number(4).get(), number(0).get()), true, false), 720);
  EXPECT_EQ(width(with(number(-4).get(), number(3).get()), true, false), 720);
  EXPECT_EQ(width(with("4"_br, number(3).get()), true, false), 720);
  EXPECT_EQ(width(make("DV  "_4cc, 720, 480,
                       dictionary({{kPVFormatDescriptionExtension_PixelAspectRatio, "4:3"_br},
                                   {kPVFormatDescriptionExtension_CleanAperture, "all"_br}})),
                  true, true),
            720);
}

TEST(VideoFormatDescription, KeysAreThoseOfImageBuffers) {
  const struct {
    BRStringRef ours, theirs;
  } common[] = {
      {kPVFormatDescriptionExtension_CleanAperture, kIMImageBufferCleanApertureKey},
      {kPVFormatDescriptionExtension_FieldCount, kIMImageBufferFieldCountKey},
      {kPVFormatDescriptionExtension_FieldDetail, kIMImageBufferFieldDetailKey},
      {kPVFormatDescriptionExtension_PixelAspectRatio, kIMImageBufferPixelAspectRatioKey},
      {kPVFormatDescriptionExtension_ColorPrimaries, kIMImageBufferColorPrimariesKey},
      {kPVFormatDescriptionExtension_TransferFunction, kIMImageBufferTransferFunctionKey},
      {kPVFormatDescriptionExtension_GammaLevel, kIMImageBufferGammaLevelKey},
      {kPVFormatDescriptionExtension_YCbCrMatrix, kIMImageBufferYCbCrMatrixKey},
      {kPVFormatDescriptionExtension_ICCProfile, kIMImageBufferICCProfileKey},
      {kPVFormatDescriptionExtension_ChromaLocationTopField, kIMImageBufferChromaLocationTopFieldKey},
      {kPVFormatDescriptionExtension_ChromaLocationBottomField, kIMImageBufferChromaLocationBottomFieldKey},
      // beyond the common list
      {kPVFormatDescriptionKey_CleanApertureWidth, kIMImageBufferCleanApertureWidthKey},
      {kPVFormatDescriptionKey_CleanApertureHeight, kIMImageBufferCleanApertureHeightKey},
      {kPVFormatDescriptionKey_CleanApertureHorizontalOffset, kIMImageBufferCleanApertureHorizontalOffsetKey},
      {kPVFormatDescriptionKey_CleanApertureVerticalOffset, kIMImageBufferCleanApertureVerticalOffsetKey},
      {kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing,
       kIMImageBufferPixelAspectRatioHorizontalSpacingKey},
      {kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing,
       kIMImageBufferPixelAspectRatioVerticalSpacingKey},
      {kPVFormatDescriptionColorPrimaries_ITU_R_709_2, kIMImageBufferColorPrimaries_ITU_R_709_2},
      {kPVFormatDescriptionColorPrimaries_EBU_3213, kIMImageBufferColorPrimaries_EBU_3213},
      {kPVFormatDescriptionColorPrimaries_SMPTE_C, kIMImageBufferColorPrimaries_SMPTE_C},
      {kPVFormatDescriptionTransferFunction_ITU_R_709_2, kIMImageBufferTransferFunction_ITU_R_709_2},
      {kPVFormatDescriptionYCbCrMatrix_ITU_R_709_2, kIMImageBufferYCbCrMatrix_ITU_R_709_2},
      {kPVFormatDescriptionChromaLocation_Left, kIMImageBufferChromaLocation_Left},
      {kPVFormatDescriptionChromaLocation_Center, kIMImageBufferChromaLocation_Center},
      {kPVFormatDescriptionChromaLocation_TopLeft, kIMImageBufferChromaLocation_TopLeft},
      {kPVFormatDescriptionChromaLocation_Top, kIMImageBufferChromaLocation_Top},
      {kPVFormatDescriptionChromaLocation_BottomLeft, kIMImageBufferChromaLocation_BottomLeft},
      {kPVFormatDescriptionChromaLocation_Bottom, kIMImageBufferChromaLocation_Bottom},
      {kPVFormatDescriptionChromaLocation_DV420, kIMImageBufferChromaLocation_DV420},
  };
  for (const auto& row : common) EXPECT_TRUE(BREqual(row.ours, row.theirs)) << BRStringGetUTF8(row.ours);
  BRArrayRef list = PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers();
  ASSERT_EQ(BRArrayGetCount(list), 11u);
  for (size_t i = 0; i < 11; ++i) EXPECT_EQ(BRArrayGetValueAtIndex(list, i), common[i].ours);
  EXPECT_EQ(KivVideoFormatDescriptionCreateKeysCommonWithImageBuffers(), 0);
  EXPECT_EQ(PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers(), list);
}

TEST(VideoFormatDescriptionThreads, TheCommonKeysAreMadeOnce) {
  std::vector<BRArrayRef> answers(4);
  std::vector<std::thread> threads;
  for (BRArrayRef& answer : answers)
    threads.emplace_back([&] { answer = PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers(); });
  for (std::thread& thread : threads) thread.join();
  for (BRArrayRef answer : answers) EXPECT_EQ(answer, answers[0]);
  EXPECT_EQ(BRGetRetainCount(answers[0]), 1u);
}

constexpr uint32_t kBGRA = "BGRA"_4cc;

Picture makePicture(size_t width = 4, size_t height = 3, size_t bytesPerRow = 32, uint32_t format = kBGRA) {
  Picture picture;
  EXPECT_EQ(IMPixelBufferCreate(nullptr, width, height, format, bytesPerRow, picture.out()), 0);
  IMBufferSetAttachment(picture.get(), kIMImageBufferColorPrimariesKey, kIMImageBufferColorPrimaries_EBU_3213,
                        kIMAttachmentMode_ShouldPropagate);
  IMBufferSetAttachment(picture.get(), kIMImageBufferFieldCountKey, number(1).get(),
                        kIMAttachmentMode_ShouldNotPropagate);
  IMBufferSetAttachment(picture.get(), "camera"_br, "front"_br, kIMAttachmentMode_ShouldPropagate);
  return picture;
}

Description describe(const Picture& picture) {
  Description description;
  EXPECT_EQ(PVVideoFormatDescriptionCreateForImageBuffer(nullptr, picture.get(), description.out()), 0);
  return description;
}

TEST(VideoFormatDescription, OfAnImageBufferHasWhatBothShare) {
  Picture picture = makePicture();
  const Dictionary expected =
      dictionary({{kPVFormatDescriptionExtension_BytesPerRow, number(32).get()},
                  {kPVFormatDescriptionExtension_Version, number(2).get()},
                  {kPVFormatDescriptionExtension_ColorPrimaries, kPVFormatDescriptionColorPrimaries_EBU_3213},
                  {kPVFormatDescriptionExtension_FieldCount, number(1).get()}});
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Description description;
    if (PVStatus status =
            PVVideoFormatDescriptionCreateForImageBuffer(allocator, picture.get(), description.out())) {
      EXPECT_EQ(status, -12711);
      EXPECT_FALSE(description);
      return Outcome::kOutOfMemory;
    }
    EXPECT_TRUE(PVFormatDescriptionEqual(description.get(), make(kBGRA, 4, 3, expected).get()));
    EXPECT_TRUE(PVVideoFormatDescriptionMatchesImageBuffer(description.get(), picture.get()));
    return Outcome::kSucceeded;
  });
}

TEST(VideoFormatDescription, OfAnImageBufferIsRefusedWithoutPixelFormat) {
  auto refuses = [](const Picture& picture) {
    Description description = make(kBGRA, 1, 1);
    const PVStatus status =
        PVVideoFormatDescriptionCreateForImageBuffer(nullptr, picture.get(), description.out());
    return status == -12710 && !description;
  };
  EXPECT_TRUE(refuses(nullptr));
  EXPECT_EQ(PVVideoFormatDescriptionCreateForImageBuffer(nullptr, makePicture().get(), nullptr), -12710);
  EXPECT_TRUE(refuses(makePicture(4, 3, 32, 0)));
  Picture encoded, huge;
  ASSERT_EQ(IMEncodedImageBufferCreate(nullptr, {640, 480}, nullptr, encoded.out()), 0);
  EXPECT_TRUE(refuses(encoded));
  char byte;
  for (const auto& size : {std::pair<size_t, size_t>{size_t{INT32_MAX} + 1, 1}, {1, size_t{INT32_MAX} + 1}}) {
    ASSERT_EQ(IMPixelBufferCreateWithBytes(nullptr, size.first, 1, kBGRA, &byte, size.second, nullptr,
                                           nullptr, huge.out()),
              0);
    EXPECT_TRUE(refuses(huge));
    const auto cut = [](size_t value) { return static_cast<int32_t>(value); };
    const Dictionary row =
        dictionary({{kPVFormatDescriptionExtension_BytesPerRow, number(cut(size.second)).get()}});
    EXPECT_FALSE(
        PVVideoFormatDescriptionMatchesImageBuffer(make(kBGRA, cut(size.first), 1, row).get(), huge.get()));
  }
  Picture odd = makePicture();
  auto set = br::Ref<const BRSet>::adopt(BRSetCreate(nullptr, nullptr, 0, &kBRTypeSetCallBacks));
  IMBufferSetAttachment(odd.get(), kIMImageBufferGammaLevelKey, set.get(), kIMAttachmentMode_ShouldPropagate);
  EXPECT_TRUE(refuses(odd));
}

TEST(VideoFormatDescription, MatchesOnlyWhatAgrees) {
  const Description description = describe(makePicture());
  auto matches = [&](const Picture& picture) {
    return PVVideoFormatDescriptionMatchesImageBuffer(description.get(), picture.get());
  };
  EXPECT_TRUE(matches(makePicture()));
  EXPECT_FALSE(matches(makePicture(5)));
  EXPECT_FALSE(matches(makePicture(4, 2)));
  EXPECT_FALSE(matches(makePicture(4, 3, 48)));
  EXPECT_FALSE(matches(makePicture(4, 3, 32, "RGBA"_4cc)));
  Picture more = makePicture(), fewer = makePicture(), other = makePicture(), stranger = makePicture();
  IMBufferSetAttachment(more.get(), kIMImageBufferGammaLevelKey, number(2.2).get(), 0);
  IMBufferRemoveAttachment(fewer.get(), kIMImageBufferFieldCountKey);
  IMBufferSetAttachment(other.get(), kIMImageBufferFieldCountKey, number(2).get(), 0);
  IMBufferSetAttachment(stranger.get(), "camera"_br, "rear"_br, 0);
  EXPECT_FALSE(matches(more));
  EXPECT_FALSE(matches(fewer));
  EXPECT_FALSE(matches(other));
  EXPECT_TRUE(matches(stranger));

  // without extensions: no bytes per row to agree with, but attachments disagree
  Picture bare = makePicture();
  EXPECT_FALSE(PVVideoFormatDescriptionMatchesImageBuffer(make(kBGRA, 4, 3).get(), bare.get()));
  IMBufferRemoveAllAttachments(bare.get());
  EXPECT_TRUE(PVVideoFormatDescriptionMatchesImageBuffer(make(kBGRA, 4, 3).get(), bare.get()));
  const Dictionary text = dictionary({{kPVFormatDescriptionExtension_BytesPerRow, "32"_br}});
  EXPECT_FALSE(PVVideoFormatDescriptionMatchesImageBuffer(make(kBGRA, 4, 3, text).get(), bare.get()));

  const uint64_t before = KivGetErrorCount();
  EXPECT_FALSE(matches(nullptr));
  EXPECT_FALSE(PVVideoFormatDescriptionMatchesImageBuffer(nullptr, bare.get()));
  EXPECT_EQ(KivGetErrorCount(), before + 2);
}

}  // namespace
