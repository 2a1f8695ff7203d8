#include <bedra/array.h>
#include <kiv/metadata.h>
#include <bedra/literal.hpp>
#include <string>

#include "tests/support/failing_allocator.hpp"
#include "tests/support/objects.hpp"

using namespace br::literals;

namespace {

using String = br::Ref<const BRString>;

String text(const std::string& utf8) {
  return String::adopt(BRStringCreateWithBytes(nullptr, utf8.data(), utf8.size(), kBRStringEncodingUTF8));
}

test::Data data(const std::string& bytes) {
  return test::dataOf({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

// The identifier, or the status.
std::string identifierOf(BRTypeRef key, BRStringRef keySpace) {
  BRStringRef made = "untouched"_br;
  const PVStatus status = PVMetadataCreateIdentifierForKeyAndKeySpace(nullptr, key, keySpace, &made);
  const String identifier = String::adopt(made);
  EXPECT_EQ(identifier.get() != nullptr, status == 0);
  return status == 0 ? BRStringGetUTF8(identifier.get()) : std::to_string(status);
}

TEST(MetadataIdentifier, IsKeySpaceAndKeyWithTheirEscapes) {
  const struct {
    const char *keySpace, *key, *identifier;
  } cases[] = {
      {"udta", "@nam", "udta/%A9nam"},
      {"udta", "\u00A9nam", "udta/%A9nam"},
      {"itsk", "@too", "itsk/%A9too"},
      {"uiso", "@nam", "uiso/@nam"},
      {"id3", "TIT2", "id3/TIT2"},
      {"id3 ", "a/b ", "id3/a%2Fb%20"},
      {"org.id3", "TPE1", "id3/TPE1"},
      {"icy ", "StreamTitle", "icy/StreamTitle"},
      {"org.avchd-info", "x", "avch/x"},
      {"comn", "title", "common/title"},
      {"mdta", "com.example.take/1:100%", "mdta/com.example.take%2F1:100%25"},
      {"mdta", "\u00E9t\u00E9", "mdta/%8Et%8E"},
      {"a/b", "k", "a%2Fb/k"},
      {"icy", "", "-16303"},
      {"udta", "name2", "-16303"},
      {"udta", "nam", "-16303"},
      {"udta", "\u4E2Dnam", "-16302"},
      {"mdta", "\u4E2D", "-16300"},
      {"abcde", "k", "-16306"},
      {"common", "title", "-16306"},
      {"", "k", "-16306"},
      {"\u4E2D", "k", "-16306"},
      {"anon", "k", "-16301"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(identifierOf(text(c.key).get(), text(c.keySpace).get()), c.identifier)
        << c.keySpace << ' ' << c.key;
  EXPECT_EQ(identifierOf(nullptr, "anon"_br), "anon");
  EXPECT_EQ(identifierOf(nullptr, "udta"_br), "-16302");
  EXPECT_EQ(identifierOf("name"_br, nullptr), "-16301");
  EXPECT_EQ(PVMetadataCreateIdentifierForKeyAndKeySpace(nullptr, "name"_br, "udta"_br, nullptr), -16301);
}

TEST(MetadataIdentifier, KeysOfFourBytesAreStringsNumbersAndData) {
  const auto numberOf = [](int64_t value) {
    return test::Number::adopt(BRNumberCreate(nullptr, kBRNumberTypeSInt64, &value));
  };
  EXPECT_EQ(identifierOf(numberOf(0x64617465).get(), "udta"_br), "udta/date");
  EXPECT_EQ(identifierOf(numberOf(0x406E616D).get(), "udta"_br), "udta/%A9nam");
  EXPECT_EQ(identifierOf(numberOf(0xA96E616D).get(), "udta"_br), "udta/%A9nam");
  EXPECT_EQ(identifierOf(numberOf(INT32_MIN).get(), "uiso"_br), "uiso/%80%00%00%00");
  EXPECT_EQ(identifierOf(numberOf(int64_t{1} << 32).get(), "udta"_br), "-16305");
  EXPECT_EQ(identifierOf(numberOf(INT64_C(-2147483649)).get(), "udta"_br), "-16305");
  EXPECT_EQ(identifierOf(test::number(1.5).get(), "udta"_br), "-16305");
  EXPECT_EQ(identifierOf(data("@ART").get(), "itsk"_br), "itsk/%A9ART");
  EXPECT_EQ(identifierOf(data("name2").get(), "itsk"_br), "-16303");
  EXPECT_EQ(identifierOf(test::array({}).get(), "itsk"_br), "-16304");
}

TEST(MetadataIdentifier, OtherKeysAreStringsAndDataThatHoldText) {
  EXPECT_EQ(identifierOf(data("com.a").get(), "mdta"_br), "mdta/com.a");
  EXPECT_EQ(identifierOf(data("\xEF\xBB\xBFk").get(), "mdta"_br), "mdta/k");
  EXPECT_EQ(identifierOf(data({"\xFE\xFF\0k", 4}).get(), "mdta"_br), "mdta/k");
  EXPECT_EQ(identifierOf(data({"\xFF\xFEk\0", 4}).get(), "mdta"_br), "mdta/k");
  EXPECT_EQ(identifierOf(data("\xFF\xFEk").get(), "mdta"_br), "-16302");
  EXPECT_EQ(identifierOf(data("\x80").get(), "mdta"_br), "-16302");
  EXPECT_EQ(identifierOf(data("").get(), "mdta"_br), "-16303");
  EXPECT_EQ(identifierOf(test::number(7).get(), "mdta"_br), "-16304");
}

TEST(MetadataIdentifier, CodesAreKeySpacesAndBack) {
  const struct {
    uint32_t code;
    const char* identifier;
    uint32_t back;
  } cases[] = {{0x75647461, "udta/name", 0x75647461},
               {0x69637920, "icy/name", 0x69637920},
               {0x69643320, "id3/name", 0x69643320},
               {0x69643300, "id3/name", 0x69643320},
               {0x636F6D6E, "common/name", 0x636F6D6E},
               {0x78000000, "x/name", 0x78000000},
               {0, nullptr, 0},
               {0x00616263, nullptr, 0},
               {0x61006263, nullptr, 0},
               {0x6162637F, nullptr, 0},
               {0x61621F63, nullptr, 0}};
  for (const auto& c : cases) {
    String identifier;
    uint32_t back = 0;
    const PVStatus status =
        KivMetadataCreateIdentifierForKeyAndOSTypeKeySpace(nullptr, "name"_br, c.code, identifier.out());
    EXPECT_EQ(status, c.identifier ? 0 : -16306) << std::hex << c.code;
    if (!c.identifier) continue;
    EXPECT_STREQ(BRStringGetUTF8(identifier.get()), c.identifier);
    EXPECT_EQ(KivMetadataGetKeySpaceAsOSTypeFromIdentifier(identifier.get(), &back), 0);
    EXPECT_EQ(back, c.back) << std::hex << c.code;
  }
  uint32_t code = 7;
  EXPECT_EQ(KivMetadataGetKeySpaceAsOSTypeFromIdentifier("anon"_br, &code), 0);
  EXPECT_EQ(code, 0x616E6F6Eu);
  EXPECT_EQ(KivMetadataGetKeySpaceAsOSTypeFromIdentifier("a%07/k"_br, &code), -16306);
  EXPECT_EQ(code, 0x616E6F6Eu);
  EXPECT_EQ(KivMetadataGetKeySpaceAsOSTypeFromIdentifier("udta/name"_br, nullptr), -16301);
}

// What an identifier was made of makes the same one again.
TEST(MetadataIdentifier, TheirPartsMakeThemAgain) {
  for (BRStringRef identifier : {"udta/%A9nam"_br, "uiso/@a%2F%00"_br, "id3/TIT2"_br, "common/a%2Fb"_br,
                                 "icy/x"_br, "mdta/com.example%20x"_br, "a%2Fb/%8E"_br, "avch/k"_br}) {
    String key, keySpace;
    test::Data bytes;
    ASSERT_EQ(PVMetadataCreateKeyFromIdentifier(nullptr, identifier, key.out()), 0);
    ASSERT_EQ(PVMetadataCreateKeyFromIdentifierAsBRData(nullptr, identifier, bytes.out()), 0);
    ASSERT_EQ(PVMetadataCreateKeySpaceFromIdentifier(nullptr, identifier, keySpace.out()), 0);
    EXPECT_EQ(identifierOf(key.get(), keySpace.get()), BRStringGetUTF8(identifier));
    EXPECT_EQ(identifierOf(bytes.get(), keySpace.get()), BRStringGetUTF8(identifier));
  }
  test::Data bytes;
  ASSERT_EQ(PVMetadataCreateKeyFromIdentifierAsBRData(nullptr, "udta/%A9nam"_br, bytes.out()), 0);
  EXPECT_TRUE(BREqual(bytes.get(), data("\xA9nam").get()));
}

TEST(MetadataIdentifier, WhatIsNoneIsTakenApartWithAnError) {
  const struct {
    const char* identifier;
    PVStatus key, keySpace;
  } cases[] = {
      {"anon", -16302, 0},         {"udta", -16306, -16306},      {"/name", -16306, -16306},
      {"abcde/k", -16306, -16306}, {"a%zz/k", -16306, -16306},    {"mdta/", -16303, 0},
      {"mdta/%z", -16302, 0},      {"udta/%A9name", -16303, 0},   {"mdta/a/b", 0, 0},
      {"", -16306, -16306},        {"%75dta/ab", -16303, 0},      {"id3%20/ab", -16303, 0},
      {"%61non/k", -16302, 0},     {"udta/\u4E2Dnam", -16302, 0},
  };
  for (const auto& c : cases) {
    String key, keySpace;
    test::Data bytes;
    EXPECT_EQ(PVMetadataCreateKeyFromIdentifier(nullptr, text(c.identifier).get(), key.out()), c.key)
        << c.identifier;
    EXPECT_EQ(PVMetadataCreateKeyFromIdentifierAsBRData(nullptr, text(c.identifier).get(), bytes.out()),
              c.key);
    EXPECT_EQ(PVMetadataCreateKeySpaceFromIdentifier(nullptr, text(c.identifier).get(), keySpace.out()),
              c.keySpace);
    EXPECT_EQ(key.get() != nullptr, c.key == 0);
    EXPECT_EQ(keySpace.get() != nullptr, c.keySpace == 0);
  }
  String none;
  EXPECT_EQ(PVMetadataCreateKeyFromIdentifier(nullptr, nullptr, none.out()), -16301);
  EXPECT_EQ(PVMetadataCreateKeySpaceFromIdentifier(nullptr, "udta/name"_br, nullptr), -16301);
}

TEST(MetadataIdentifier, OutOfMemoryIsToldAndNothingIsLost) {
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    String identifier, key, keySpace;
    test::Data bytes;
    const PVStatus statuses[] = {
        PVMetadataCreateIdentifierForKeyAndKeySpace(allocator, "com.example"_br, "mdta"_br, identifier.out()),
        PVMetadataCreateKeyFromIdentifier(allocator, "mdta/com.example"_br, key.out()),
        PVMetadataCreateKeyFromIdentifierAsBRData(allocator, "mdta/com.example"_br, bytes.out()),
        PVMetadataCreateKeySpaceFromIdentifier(allocator, "mdta/com.example"_br, keySpace.out())};
    const PVStatus outOfMemory[] = {-16300, -16302, -16300, -16306};
    int failures = 0;
    for (size_t i = 0; i < 4; ++i) {
      if (statuses[i] == 0) continue;
      ++failures;
      EXPECT_EQ(statuses[i], outOfMemory[i]) << i;
    }
    return failures ? test::Outcome::kOutOfMemory : test::Outcome::kSucceeded;
  });
}

}  // namespace
