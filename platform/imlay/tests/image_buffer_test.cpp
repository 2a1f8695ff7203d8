#include <bedra/data.h>
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <bedra/string.h>
#include <gtest/gtest.h>
#include <imlay/encoded_image_buffer.h>
#include <imlay/pixel_buffer.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>
#include <cmath>

#include "tests/support/failing_allocator.hpp"

namespace {

using namespace br::literals;
using Picture = br::Ref<IMImageBuffer>;
constexpr uint32_t kBGRA = 0x42475241, kNV12 = 0x34323076;

TEST(PixelBuffer, KnowsWhatItIsAndOwnsZeroedRows) {
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    Picture picture;
    const IMStatus status = IMPixelBufferCreate(allocator, 3, 2, kBGRA, 16, picture.out());
    if (status) {
      EXPECT_EQ(status, kIMStatus_AllocationFailed);
      EXPECT_EQ(picture.get(), nullptr);
      return test::Outcome::kOutOfMemory;
    }
    EXPECT_EQ(BRGetTypeID(picture.get()), IMPixelBufferGetTypeID());
    EXPECT_EQ(IMPixelBufferGetPixelFormatType(picture.get()), kBGRA);
    EXPECT_EQ(IMPixelBufferGetWidth(picture.get()), 3u);
    EXPECT_EQ(IMPixelBufferGetHeight(picture.get()), 2u);
    EXPECT_EQ(IMPixelBufferGetBytesPerRow(picture.get()), 16u);
    const char* bytes = static_cast<char*>(IMPixelBufferGetBaseAddress(picture.get()));
    for (int i = 0; i < 32; ++i) EXPECT_EQ(bytes[i], 0);
    return test::Outcome::kSucceeded;
  });
}

TEST(PixelBuffer, GivesLentBytesBackOnceAndOnlyAfterSuccess) {
  int released = 0;
  char bytes[8];
  auto release = [](void* refCon, void* address) {
    EXPECT_NE(address, nullptr);
    ++*static_cast<int*>(refCon);
  };
  auto create = [&](size_t width, size_t height, void* base, size_t rowBytes, IMPixelBufferRef* out) {
    return IMPixelBufferCreateWithBytes(nullptr, width, height, kBGRA, base, rowBytes, release, &released,
                                        out);
  };
  Picture picture;
  EXPECT_EQ(create(1, 2, nullptr, 4, picture.out()), kIMStatus_InvalidArgument);
  EXPECT_EQ(create(1, 2, bytes, 4, nullptr), kIMStatus_InvalidArgument);
  EXPECT_EQ(create(0, 2, bytes, 4, picture.out()), kIMStatus_InvalidSize);
  EXPECT_EQ(create(1, 0, bytes, 4, picture.out()), kIMStatus_InvalidSize);
  EXPECT_EQ(create(1, 2, bytes, 0, picture.out()), kIMStatus_InvalidSize);
  EXPECT_EQ(create(1, 2, bytes, SIZE_MAX / 2 + 1, picture.out()), kIMStatus_InvalidSize);
  EXPECT_EQ(picture.get(), nullptr);
  EXPECT_EQ(create(1, 2, bytes, 4, picture.out()), 0);
  EXPECT_EQ(IMPixelBufferGetBaseAddress(picture.get()), bytes);
  EXPECT_EQ(released, 0);
  picture = nullptr;
  EXPECT_EQ(released, 1);
}

TEST(PixelBuffer, PlanesFollowEachOtherAligned) {
  const IMPixelBufferPlane planes[] = {{nullptr, 5, 3, 5}, {nullptr, 3, 2, 6}};
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Picture picture;
    if (IMStatus status = IMPixelBufferCreatePlanar(allocator, 5, 3, kNV12, 2, planes, picture.out())) {
      EXPECT_EQ(status, kIMStatus_AllocationFailed);
      return test::Outcome::kOutOfMemory;
    }
    EXPECT_TRUE(IMPixelBufferIsPlanar(picture.get()));
    EXPECT_EQ(IMPixelBufferGetPlaneCount(picture.get()), 2u);
    EXPECT_EQ(IMPixelBufferGetBytesPerRow(picture.get()), 5u);
    EXPECT_EQ(IMPixelBufferGetWidthOfPlane(picture.get(), 1), 3u);
    EXPECT_EQ(IMPixelBufferGetHeightOfPlane(picture.get(), 1), 2u);
    EXPECT_EQ(IMPixelBufferGetBytesPerRowOfPlane(picture.get(), 1), 6u);
    EXPECT_EQ(IMPixelBufferGetBaseAddressOfPlane(picture.get(), 2), nullptr);
    auto* first = static_cast<char*>(IMPixelBufferGetBaseAddress(picture.get()));
    auto* second = static_cast<char*>(IMPixelBufferGetBaseAddressOfPlane(picture.get(), 1));
    EXPECT_EQ(IMPixelBufferGetBaseAddressOfPlane(picture.get(), 0), first);
    EXPECT_EQ(second - first, 16);
    EXPECT_EQ(second[11], 0);
    return test::Outcome::kSucceeded;
  });
}

TEST(PixelBuffer, LentPlanesAreCheckedAndGivenBackAtTheFirst) {
  char luma[8], chroma[4];
  void* released = nullptr;
  auto release = [](void* refCon, void* address) { *static_cast<void**>(refCon) = address; };
  auto create = [&](std::initializer_list<IMPixelBufferPlane> planes, IMPixelBufferRef* out) {
    return IMPixelBufferCreateWithPlanarBytes(nullptr, 4, 2, kNV12, planes.size(), planes.begin(), release,
                                              &released, out);
  };
  Picture picture;
  const IMPixelBufferPlane good{luma, 4, 2, 4};
  EXPECT_EQ(create({good, {nullptr, 2, 1, 4}}, picture.out()), kIMStatus_InvalidArgument);
  EXPECT_EQ(create({good}, nullptr), kIMStatus_InvalidArgument);
  EXPECT_EQ(IMPixelBufferCreatePlanar(nullptr, 4, 2, kNV12, 1, nullptr, picture.out()),
            kIMStatus_InvalidArgument);
  EXPECT_EQ(IMPixelBufferCreatePlanar(nullptr, 4, 2, kNV12, 0, &good, picture.out()), kIMStatus_InvalidSize);
  for (const IMPixelBufferPlane& bad : {IMPixelBufferPlane{chroma, 0, 1, 4},
                                        {chroma, 2, 0, 4},
                                        {chroma, 2, 1, 0},
                                        {chroma, 2, 2, SIZE_MAX / 2},
                                        {chroma, 2, 2, SIZE_MAX / 2 + 1}})
    EXPECT_EQ(create({good, bad}, picture.out()), kIMStatus_InvalidSize);
  EXPECT_EQ(create({good, {chroma, 2, 1, 4}}, picture.out()), 0);
  EXPECT_EQ(IMPixelBufferGetBaseAddressOfPlane(picture.get(), 1), chroma);
  EXPECT_EQ(released, nullptr);
  picture = nullptr;
  EXPECT_EQ(released, luma);
}

TEST(ImageBuffer, AnEncodedOneIsNoPixelBuffer) {
  auto data = br::Ref<const BRData>::adopt(BRDataCreate(nullptr, "jpeg", 4));
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Picture picture;
    if (IMStatus status = IMEncodedImageBufferCreate(allocator, {640.5, 480}, data.get(), picture.out())) {
      EXPECT_EQ(status, kIMStatus_AllocationFailed);
      return test::Outcome::kOutOfMemory;
    }
    EXPECT_EQ(BRGetTypeID(picture.get()), IMEncodedImageBufferGetTypeID());
    EXPECT_EQ(IMImageBufferGetEncodedSize(picture.get()).width, 640.5);
    EXPECT_EQ(IMEncodedImageBufferGetData(picture.get()), data.get());
    EXPECT_EQ(IMPixelBufferGetWidth(picture.get()), 0u);
    EXPECT_EQ(IMPixelBufferGetHeight(picture.get()), 0u);
    EXPECT_EQ(IMPixelBufferGetBytesPerRow(picture.get()), 0u);
    EXPECT_EQ(IMPixelBufferGetPixelFormatType(picture.get()), 0u);
    EXPECT_FALSE(IMPixelBufferIsPlanar(picture.get()));
    return test::Outcome::kSucceeded;
  });
  EXPECT_EQ(BRGetRetainCount(data.get()), 1u);
  Picture picture;
  for (GRSize size : {GRSize{0, 1}, {1, -1}, {NAN, 1}, {1, INFINITY}})
    EXPECT_EQ(IMEncodedImageBufferCreate(nullptr, size, nullptr, picture.out()), kIMStatus_InvalidSize);
  ASSERT_EQ(IMPixelBufferCreate(nullptr, 3, 2, kBGRA, 16, picture.out()), 0);
  EXPECT_EQ(IMImageBufferGetEncodedSize(picture.get()).height, 2);
  EXPECT_EQ(IMEncodedImageBufferGetData(picture.get()), nullptr);
  EXPECT_EQ(IMPixelBufferGetPlaneCount(picture.get()), 0u);
  EXPECT_EQ(IMPixelBufferGetWidthOfPlane(picture.get(), 0), 0u);
}

TEST(PixelBuffer, AttachmentIsRemovedByItsOwnKey) {
  Picture picture;
  ASSERT_EQ(IMPixelBufferCreate(nullptr, 1, 1, kBGRA, 4, picture.out()), 0);
  for (IMAttachmentMode mode : {0u, 1u}) {
    auto key = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(nullptr, "mode %u", mode));
    IMBufferSetAttachment(picture.get(), key.get(), kBRBooleanTrue, mode);
  }
  const void* key = nullptr;
  BRDictionaryGetKeysAndValues(IMBufferGetAttachments(picture.get(), 0), &key, nullptr);
  IMBufferRemoveAttachment(picture.get(), static_cast<BRStringRef>(key));
  EXPECT_EQ(IMBufferGetAttachment(picture.get(), "mode 0"_br, nullptr), nullptr);
  EXPECT_EQ(IMBufferGetAttachment(picture.get(), "mode 1"_br, nullptr), kBRBooleanTrue);
}

TEST(PixelBuffer, AttachmentsHaveOneValueAndOneMode) {
  Picture picture;
  ASSERT_EQ(IMPixelBufferCreate(nullptr, 1, 1, kBGRA, 4, picture.out()), 0);
  IMAttachmentMode mode = 7;
  EXPECT_EQ(IMBufferGetAttachments(picture.get(), 0), nullptr);
  IMBufferSetAttachment(picture.get(), "lens"_br, "wide"_br, kIMAttachmentMode_ShouldNotPropagate);
  IMBufferSetAttachment(picture.get(), "lens"_br, "long"_br, kIMAttachmentMode_ShouldPropagate);
  IMBufferSetAttachment(picture.get(), "lens"_br, "bad"_br, 2);
  EXPECT_EQ(IMBufferGetAttachment(picture.get(), "lens"_br, &mode), "long"_br);
  EXPECT_EQ(mode, kIMAttachmentMode_ShouldPropagate);
  EXPECT_EQ(IMBufferGetAttachments(picture.get(), 0), nullptr);
  EXPECT_EQ(BRDictionaryGetCount(IMBufferGetAttachments(picture.get(), 1)), 1u);
  IMBufferSetAttachment(picture.get(), "take"_br, "one"_br, kIMAttachmentMode_ShouldNotPropagate);
  IMBufferRemoveAttachment(picture.get(), "lens"_br);
  EXPECT_EQ(IMBufferGetAttachment(picture.get(), "lens"_br, nullptr), nullptr);
  IMBufferRemoveAllAttachments(picture.get());
  EXPECT_EQ(IMBufferGetAttachment(picture.get(), "take"_br, nullptr), nullptr);
}

}  // namespace
