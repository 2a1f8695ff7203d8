#include <imlay/encoded_image_buffer.h>
#include <imlay/pixel_buffer.h>
#include <kiv/attachment.h>
#include <kiv/error.h>
#include <pevrin/block_buffer.h>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using Object = br::Ref<const void>;
using Dictionary = br::Ref<const BRDictionary>;

Object makeBlockBuffer(BRAllocatorRef allocator = nullptr) {
  PVBlockBufferRef buffer = nullptr;
  EXPECT_EQ(PVBlockBufferCreateEmpty(allocator, 0, 0, &buffer), 0);
  return Object::adopt(buffer);
}
Object makePicture() {
  IMPixelBufferRef picture = nullptr;
  EXPECT_EQ(IMPixelBufferCreate(nullptr, 1, 1, 32, 4, &picture), 0);
  return Object::adopt(picture);
}
Object makeEncodedPicture() {
  IMEncodedImageBufferRef picture = nullptr;
  EXPECT_EQ(IMEncodedImageBufferCreate(nullptr, {1, 1}, nullptr, &picture), 0);
  return Object::adopt(picture);
}
Dictionary copyOf(const Object& bearer, PVAttachmentMode mode) {
  return Dictionary::adopt(PVCopyDictionaryOfAttachments(nullptr, bearer.get(), mode));
}

// The bearers behave alike, whoever keeps their attachments.
class Bearers : public testing::TestWithParam<Object (*)()> {};
INSTANTIATE_TEST_SUITE_P(Attachments, Bearers,
                         testing::Values(
                             +[] { return makeBlockBuffer(); }, &makePicture, &makeEncodedPicture));

TEST_P(Bearers, AKeyHasOneValueAndOneMode) {
  Object bearer = GetParam()();
  PVAttachmentMode mode = 7;
  PVSetAttachment(bearer.get(), "take"_br, "one"_br, kPVAttachmentMode_ShouldNotPropagate);
  PVSetAttachment(bearer.get(), "take"_br, "two"_br, kPVAttachmentMode_ShouldPropagate);
  EXPECT_EQ(PVGetAttachment(bearer.get(), "take"_br, &mode), "two"_br);
  EXPECT_EQ(mode, kPVAttachmentMode_ShouldPropagate);
  EXPECT_FALSE(copyOf(bearer, kPVAttachmentMode_ShouldNotPropagate));
  EXPECT_EQ(BRDictionaryGetCount(copyOf(bearer, kPVAttachmentMode_ShouldPropagate).get()), 1u);
  PVSetAttachment(bearer.get(), "take"_br, nullptr, kPVAttachmentMode_ShouldPropagate);
  mode = 7;
  EXPECT_EQ(PVGetAttachment(bearer.get(), "take"_br, &mode), nullptr);
  EXPECT_EQ(mode, 7u);
  PVSetAttachment(bearer.get(), "a"_br, "1"_br, 0);
  PVSetAttachment(bearer.get(), "b"_br, "2"_br, 1);
  PVRemoveAttachment(bearer.get(), "a"_br);
  EXPECT_EQ(PVGetAttachment(bearer.get(), "a"_br, nullptr), nullptr);
  PVRemoveAllAttachments(bearer.get());
  EXPECT_EQ(PVGetAttachment(bearer.get(), "b"_br, nullptr), nullptr);
}

TEST_P(Bearers, MisuseIsCountedAndChangesNothing) {
  Object bearer = GetParam()();
  PVSetAttachment(bearer.get(), "a"_br, "1"_br, 0);
  const uint64_t errors = KivGetErrorCount();
  PVSetAttachment(bearer.get(), "a"_br, "2"_br, 2);
  PVSetAttachment(bearer.get(), nullptr, "2"_br, 0);
  EXPECT_EQ(PVGetAttachment(bearer.get(), nullptr, nullptr), nullptr);
  PVRemoveAttachment(bearer.get(), nullptr);
  EXPECT_FALSE(copyOf(bearer, 2));
  EXPECT_EQ(KivGetErrorCount(), errors + 5);
  const void *keys[] = {"a"_br, "b"_br}, *values[] = {"3"_br, "4"_br};
  auto both = Dictionary::adopt(BRDictionaryCreate(nullptr, keys, values, 2, &kBRTypeDictionaryKeyCallBacks,
                                                   &kBRTypeDictionaryValueCallBacks));
  PVSetAttachments(bearer.get(), both.get(), 2);
  EXPECT_EQ(PVGetAttachment(bearer.get(), "a"_br, nullptr), "1"_br);
  EXPECT_EQ(PVGetAttachment(bearer.get(), "b"_br, nullptr), nullptr);
  PVSetAttachments(bearer.get(), both.get(), 1);
  EXPECT_TRUE(BREqual(copyOf(bearer, 1).get(), both.get()));
}

TEST_P(Bearers, OnlyPropagatingAttachmentsGoAlong) {
  Object source = GetParam()(), destination = makePicture();
  PVSetAttachment(destination.get(), "own"_br, "kept"_br, 0);
  PVSetAttachment(source.get(), "stays"_br, "here"_br, 0);
  PVPropagateAttachments(source.get(), destination.get());
  EXPECT_FALSE(copyOf(destination, 1));
  PVSetAttachment(source.get(), "goes"_br, "along"_br, 1);
  PVPropagateAttachments(source.get(), destination.get());
  EXPECT_EQ(BRDictionaryGetCount(copyOf(destination, 1).get()), 1u);
  EXPECT_EQ(PVGetAttachment(destination.get(), "goes"_br, nullptr), "along"_br);
  EXPECT_EQ(PVGetAttachment(destination.get(), "own"_br, nullptr), "kept"_br);
}

TEST(Attachments, OtherObjectsAndNullBearNone) {
  for (BRTypeRef object : {BRTypeRef(nullptr), BRTypeRef("text"_br)}) {
    const uint64_t errors = KivGetErrorCount();
    PVSetAttachment(object, "a"_br, "1"_br, 0);
    EXPECT_EQ(PVGetAttachment(object, "a"_br, nullptr), nullptr);
    PVRemoveAttachment(object, "a"_br);
    PVRemoveAllAttachments(object);
    EXPECT_EQ(PVCopyDictionaryOfAttachments(nullptr, object, 0), nullptr);
    PVPropagateAttachments(object, object);
    EXPECT_EQ(KivGetErrorCount(), errors);
  }
}

TEST(Attachments, ABlockBufferKeepsTheOldValueWhenMemoryRunsOut) {
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    PVBlockBufferRef made = nullptr;
    if (PVBlockBufferCreateEmpty(allocator, 0, 0, &made)) return test::Outcome::kOutOfMemory;
    Object buffer = Object::adopt(made);
    PVSetAttachment(made, "take"_br, "one"_br, 0);
    const BRTypeRef before = PVGetAttachment(made, "take"_br, nullptr);
    PVSetAttachment(made, "take"_br, "two"_br, 1);
    const BRTypeRef after = PVGetAttachment(made, "take"_br, nullptr);
    EXPECT_TRUE(after == "two"_br || after == before);
    return before && after == "two"_br ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
}

PVAttachmentMode lastMode;
const KivAttachmentBearerCallbacks kRecorder{
    0,
    [](PVAttachmentBearerRef, BRStringRef, BRTypeRef, PVAttachmentMode mode) { lastMode = mode; },
    [](PVAttachmentBearerRef, BRStringRef, PVAttachmentMode*) { return BRTypeRef(); },
    [](PVAttachmentBearerRef, BRStringRef) {},
    [](PVAttachmentBearerRef) {},
    [](BRAllocatorRef, PVAttachmentBearerRef, PVAttachmentMode) { return BRDictionaryRef(); }};

TEST(AttachmentRegistry, TakesOneCompleteRecordPerType) {
  const BRTypeID strings = BRGetTypeID("text"_br);
  KivAttachmentBearerCallbacks second = kRecorder, newer = kRecorder, incomplete = kRecorder;
  newer.version = 1;
  incomplete.copyDictionaryOfAttachments = nullptr;
  const uint64_t errors = KivGetErrorCount();
  KivRuntimeRegisterAttachmentBearerWithTypeID(nullptr, strings);
  KivRuntimeRegisterAttachmentBearerWithTypeID(&newer, strings);
  KivRuntimeRegisterAttachmentBearerWithTypeID(&incomplete, strings);
  KivRuntimeUnregisterAttachmentBearerWithTypeID(strings);
  EXPECT_EQ(KivRuntimeGetAttachmentBearerCallbacksWithTypeID(strings), nullptr);
  EXPECT_EQ(KivGetErrorCount(), errors + 4);
  KivRuntimeRegisterAttachmentBearerWithTypeID(&kRecorder, strings);
  EXPECT_EQ(KivGetErrorCount(), errors + 4);
  KivRuntimeRegisterAttachmentBearerWithTypeID(&second, strings);
  EXPECT_EQ(KivGetErrorCount(), errors + 5);
  EXPECT_EQ(KivRuntimeGetAttachmentBearerCallbacksWithTypeID(strings), &kRecorder);
  const void *key = "a"_br, *value = "1"_br;
  auto one = Dictionary::adopt(BRDictionaryCreate(nullptr, &key, &value, 1, nullptr, nullptr));
  PVSetAttachments("text"_br, one.get(), 9);
  EXPECT_EQ(lastMode, 9u);  // the bearer's to check
  KivRuntimeUnregisterAttachmentBearerWithTypeID(strings);
  EXPECT_EQ(KivRuntimeGetAttachmentBearerCallbacksWithTypeID(strings), nullptr);
}

TEST(AttachmentRegistryThreads, TypesRegisterWhileOthersAreLookedUp) {
  Object buffer = makeBlockBuffer();
  PVSetAttachment(buffer.get(), "a"_br, "1"_br, 0);
  std::atomic<int> misses{0};
  std::vector<std::thread> threads;
  for (BRTypeID reader = 0; reader < 3; ++reader)
    threads.emplace_back([&, reader] {
      for (BRTypeID i = 0; i < 300; ++i) {
        KivRuntimeRegisterAttachmentBearerWithTypeID(&kRecorder, 100000 + reader * 1000 + i);
        misses += PVGetAttachment(buffer.get(), "a"_br, nullptr) != "1"_br;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(misses, 0);
  for (BRTypeID id = 100000; id < 103000; ++id)
    if (KivRuntimeGetAttachmentBearerCallbacksWithTypeID(id))
      KivRuntimeUnregisterAttachmentBearerWithTypeID(id);
}

}  // namespace
