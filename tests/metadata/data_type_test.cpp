#include <kiv/metadata.h>
#include <bedra/literal.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/objects.hpp"

using namespace br::literals;

namespace {

PVStatus add(BRStringRef type, std::initializer_list<BRTypeRef> conforming,
             BRStringRef description = nullptr) {
  return PVMetadataDataTypeRegistryRegisterDataType(type, description, test::array(conforming).get());
}

bool conforms(BRStringRef type, BRStringRef other) {
  return PVMetadataDataTypeRegistryDataTypeConformsToDataType(type, other);
}

BRStringRef baseOf(BRStringRef type) {
  return PVMetadataDataTypeRegistryGetBaseDataTypeForConformingDataType(type);
}

TEST(MetadataDataType, TheRegistryBeginsWithTheBuiltInTypes) {
  BRArrayRef bases = PVMetadataDataTypeRegistryGetBaseDataTypes();
  ASSERT_EQ(BRArrayGetCount(bases), 24u);
  for (size_t i = 0; i < 24; ++i) {
    auto* type = static_cast<BRStringRef>(BRArrayGetValueAtIndex(bases, i));
    EXPECT_TRUE(PVMetadataDataTypeRegistryDataTypeIsBaseDataType(type));
    EXPECT_TRUE(PVMetadataDataTypeRegistryDataTypeIsRegistered(type));
    EXPECT_TRUE(BREqual(baseOf(type), type));
    EXPECT_NE(PVMetadataDataTypeRegistryGetDataTypeDescription(type), nullptr);
    EXPECT_EQ(PVMetadataDataTypeRegistryGetConformingDataTypes(type), nullptr);
    EXPECT_EQ(PVMetadataDataTypeRegistryRegisterDataType(type, "other"_br, nullptr), 0);
  }
  EXPECT_STREQ(
      BRStringGetUTF8(PVMetadataDataTypeRegistryGetDataTypeDescription("xq.metadata.datatype.int8"_br)),
      "8 bit integer");
  BRStringRef inFiles = "xq.metadata.datatype.UPC"_br;
  EXPECT_TRUE(PVMetadataDataTypeRegistryDataTypeIsBaseDataType(inFiles));
  EXPECT_FALSE(BRArrayContainsValue(bases, inFiles));
  EXPECT_TRUE(BRArrayContainsValue(bases, "xq.metadata.affine-transform-float64"_br));

  BRStringRef face = "xq.tavlo.detected-face"_br;
  EXPECT_FALSE(PVMetadataDataTypeRegistryDataTypeIsBaseDataType(face));
  EXPECT_TRUE(conforms(face, "xq.metadata.datatype.record-collection"_br));
  EXPECT_TRUE(conforms("xq.tavlo.direction"_br, kPVMetadataBaseDataType_UTF8));
  EXPECT_TRUE(BREqual(baseOf("xq.tavlo.location.ISO6709"_br), kPVMetadataBaseDataType_UTF8));
}

TEST(MetadataDataType, RegistrationFindsTheOneBase) {
  EXPECT_EQ(PVMetadataDataTypeRegistryRegisterDataType(nullptr, nullptr, nullptr), -16311);
  EXPECT_EQ(PVMetadataDataTypeRegistryRegisterDataType("b.plain"_br, nullptr, nullptr), -16314);
  EXPECT_EQ(add("b.none"_br, {}), -16314);
  EXPECT_EQ(add("b.mixed"_br, {kPVMetadataBaseDataType_UTF8, test::number(1).get()}), -16312);
  EXPECT_EQ(add("b.two"_br, {kPVMetadataBaseDataType_UTF8, kPVMetadataBaseDataType_UTF16}), -16315);
  EXPECT_EQ(add("b.unknown"_br, {"b.nobody"_br}), -16314);
  EXPECT_FALSE(PVMetadataDataTypeRegistryDataTypeIsRegistered("b.two"_br));
  EXPECT_EQ(baseOf("b.two"_br), nullptr);

  EXPECT_EQ(add("b.size"_br, {kPVMetadataBaseDataType_UInt16}, "a size"_br), 0);
  EXPECT_EQ(add("b.width"_br, {"b.nobody"_br, "b.size"_br, kPVMetadataBaseDataType_UInt16}), 0);
  EXPECT_TRUE(BREqual(baseOf("b.width"_br), kPVMetadataBaseDataType_UInt16));
  EXPECT_EQ(PVMetadataDataTypeRegistryGetDataTypeDescription("b.width"_br), nullptr);
  EXPECT_EQ(BRArrayGetCount(PVMetadataDataTypeRegistryGetConformingDataTypes("b.width"_br)), 3u);
  EXPECT_EQ(add("b.both"_br, {"b.width"_br, kPVMetadataBaseDataType_UTF8}), -16315);
}

TEST(MetadataDataType, RegisteringAgainChangesNothing) {
  ASSERT_EQ(add("c.take"_br, {kPVMetadataBaseDataType_UTF8, "xq.tavlo.direction"_br}, "take"_br), 0);
  EXPECT_EQ(add("c.take"_br, {"xq.tavlo.direction"_br, kPVMetadataBaseDataType_UTF8}, "other"_br), 0);
  EXPECT_TRUE(BREqual(PVMetadataDataTypeRegistryGetDataTypeDescription("c.take"_br), "take"_br));
  EXPECT_EQ(add("c.take"_br, {kPVMetadataBaseDataType_UTF8}), -16313);
  EXPECT_EQ(add("c.take"_br, {kPVMetadataBaseDataType_UTF8, "xq.tavlo.location.ISO6709"_br}), -16313);
  EXPECT_EQ(PVMetadataDataTypeRegistryRegisterDataType("c.take"_br, nullptr, nullptr), -16314);
  EXPECT_EQ(add(kPVMetadataBaseDataType_UTF8, {kPVMetadataBaseDataType_UTF8}), -16313);
}

// The registry keeps what it was given, also when the giver goes on to change it.
TEST(MetadataDataType, StringsAreCopied) {
  const auto name = br::Ref<BRString>::adopt(BRStringCreateMutableCopy(nullptr, "d.name"_br));
  const auto base =
      br::Ref<BRString>::adopt(BRStringCreateMutableCopy(nullptr, kPVMetadataBaseDataType_JSON));
  ASSERT_EQ(add(name.get(), {base.get()}, name.get()), 0);
  BRStringAppend(name.get(), "s"_br);
  BRStringAppend(base.get(), "s"_br);
  EXPECT_TRUE(conforms("d.name"_br, kPVMetadataBaseDataType_JSON));
  EXPECT_TRUE(BREqual(PVMetadataDataTypeRegistryGetDataTypeDescription("d.name"_br), "d.name"_br));
  EXPECT_TRUE(BREqual(baseOf("d.name"_br), kPVMetadataBaseDataType_JSON));
}

TEST(MetadataDataType, ConformanceGoesThroughOthersAndEndsAtTheUnknown) {
  ASSERT_EQ(add("e.1"_br, {kPVMetadataBaseDataType_UTF8}), 0);
  ASSERT_EQ(add("e.2"_br, {"e.1"_br}), 0);
  ASSERT_EQ(add("e.3"_br, {"e.1"_br, "e.2"_br}), 0);
  EXPECT_TRUE(conforms("e.3"_br, kPVMetadataBaseDataType_UTF8));
  EXPECT_FALSE(conforms("e.1"_br, "e.3"_br));
  EXPECT_FALSE(conforms("e.3"_br, kPVMetadataBaseDataType_UTF16));
  // An unknown type is found as one that is conformed to, and what lies behind it in the search is not.
  ASSERT_EQ(add("e.4"_br, {"e.unknown"_br, "e.2"_br}), 0);
  EXPECT_TRUE(conforms("e.4"_br, "e.unknown"_br));
  EXPECT_TRUE(conforms("e.4"_br, "e.2"_br));
  EXPECT_FALSE(conforms("e.4"_br, "e.1"_br));
  ASSERT_EQ(add("e.5"_br, {"e.2"_br, "e.unknown"_br}), 0);
  EXPECT_TRUE(conforms("e.5"_br, "e.1"_br));
  // Types that were unknown may come to conform in a circle.
  ASSERT_EQ(add("e.unknown"_br, {"e.4"_br}), 0);
  EXPECT_TRUE(conforms("e.4"_br, kPVMetadataBaseDataType_UTF8));
  EXPECT_FALSE(conforms("e.4"_br, "e.nobody"_br));
  // Equal types conform, registered or not.
  EXPECT_TRUE(conforms("e.nobody"_br, "e.nobody"_br));
  EXPECT_FALSE(conforms("e.nobody"_br, "e.1"_br));
  EXPECT_TRUE(conforms(nullptr, nullptr));
  EXPECT_FALSE(conforms(nullptr, "e.1"_br));
  EXPECT_FALSE(conforms("e.1"_br, nullptr));
}

TEST(MetadataDataType, DynamicBaseTypesAreTheirOwnBase) {
  BRStringRef own = "f.own"_br;
  EXPECT_EQ(KivMetadataDataTypeRegistryRegisterDynamicBaseDataType(nullptr, nullptr), -16311);
  ASSERT_EQ(KivMetadataDataTypeRegistryRegisterDynamicBaseDataType(own, "own"_br), 0);
  EXPECT_EQ(KivMetadataDataTypeRegistryRegisterDynamicBaseDataType(own, nullptr), 0);
  EXPECT_TRUE(PVMetadataDataTypeRegistryDataTypeIsBaseDataType(own));
  EXPECT_FALSE(BRArrayContainsValue(PVMetadataDataTypeRegistryGetBaseDataTypes(), own));
  EXPECT_TRUE(BREqual(baseOf(own), own));
  ASSERT_EQ(add("f.more"_br, {own}), 0);
  EXPECT_TRUE(BREqual(baseOf("f.more"_br), own));
  EXPECT_EQ(KivMetadataDataTypeRegistryRegisterDynamicBaseDataType("f.more"_br, nullptr), -16313);
}

TEST(MetadataDataTypeThreads, RegisterAndAskAtOnce) {
  constexpr int kThreads = 4, kTypes = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < kTypes; ++i) {
        const auto name = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(nullptr, "g.%d", i));
        EXPECT_EQ(add(name.get(), {kPVMetadataBaseDataType_PNG}, name.get()), 0);
        EXPECT_TRUE(conforms(name.get(), kPVMetadataBaseDataType_PNG));
        EXPECT_TRUE(BREqual(PVMetadataDataTypeRegistryGetDataTypeDescription(name.get()), name.get()));
      }
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
