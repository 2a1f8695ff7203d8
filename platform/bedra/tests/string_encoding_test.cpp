// Encodings: what is accepted, what is refused, and that both directions agree.
#include <bit>
#include <set>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using namespace std::string_literals;
using String = br::Ref<const BRString>;

String decode(std::string_view bytes, BRStringEncoding encoding) {
  return String::adopt(BRStringCreateWithBytes(nullptr, bytes.data(), bytes.size(), encoding));
}

// The string's bytes in an encoding, or "<none>".
std::string encode(BRStringRef string, BRStringEncoding encoding) {
  auto data = br::Ref<const BRData>::adopt(BRStringCreateData(nullptr, string, encoding));
  if (!data) return "<none>";
  return {reinterpret_cast<const char*>(BRDataGetBytePtr(data.get())), BRDataGetLength(data.get())};
}

std::string utf8(char32_t scalar) {
  std::string text;
  if (scalar < 0x80) return {static_cast<char>(scalar)};
  const int continuations = scalar < 0x800 ? 1 : scalar < 0x10000 ? 2 : 3;
  text += static_cast<char>(0xF00 >> (continuations + 1) | scalar >> (6 * continuations));
  for (int i = continuations - 1; i >= 0; --i) text += static_cast<char>(0x80 | (scalar >> (6 * i) & 0x3F));
  return text;
}

TEST(StringEncoding, EveryCharacterSurvivesEveryUnicodeEncoding) {
  for (char32_t scalar = 0; scalar <= 0x10FFFF; scalar += scalar < 0x3000 ? 1 : 61) {
    const bool isSurrogate = scalar >= 0xD800 && scalar <= 0xDFFF;
    String string = decode(utf8(scalar), kBRStringEncodingUTF8);
    ASSERT_EQ(static_cast<bool>(string), !isSurrogate) << uint32_t{scalar};
    if (isSurrogate) continue;
    ASSERT_EQ(BRStringGetLengthUTF16(string.get()), scalar < 0x10000 ? 1u : 2u);
    for (BRStringEncoding encoding :
         {kBRStringEncodingUTF16, kBRStringEncodingUTF16BE, kBRStringEncodingUTF16LE}) {
      const std::string bytes = encode(string.get(), encoding);
      ASSERT_EQ(bytes.size(), 2 * BRStringGetLengthUTF16(string.get()));
      ASSERT_TRUE(BREqual(decode(bytes, encoding).get(), string.get())) << uint32_t{scalar};
    }
  }
}

TEST(StringEncoding, UTF16HasItsByteOrderAndPairs) {
  BRStringRef text = "A€😀"_br;
  EXPECT_EQ(encode(text, kBRStringEncodingUTF16BE), "\0A\x20\xAC\xD8\x3D\xDE\x00"s);
  EXPECT_EQ(encode(text, kBRStringEncodingUTF16LE), "A\0\xAC\x20\x3D\xD8\x00\xDE"s);
  const bool isLittle = std::endian::native == std::endian::little;
  EXPECT_EQ(encode(text, kBRStringEncodingUTF16),
            encode(text, isLittle ? kBRStringEncodingUTF16LE : kBRStringEncodingUTF16BE));
  EXPECT_EQ(encode(decode("\xFE\xFF\0A"s, kBRStringEncodingUTF16BE).get(), kBRStringEncodingUTF8), "\uFEFFA");
}

TEST(StringEncoding, MalformedBytesMakeNoString) {
  for (const std::string& bytes :
       {"\x80"s, "\xBF"s, "\xC0\x80"s, "\xC1\xBF"s, "\xC3"s, "\xC3("s, "\xE0\x9F\xBF"s, "\xE2\x82"s,
        "\xED\xA0\x80"s, "\xED\xBF\xBF"s, "\xF0\x8F\xBF\xBF"s, "\xF0\x9F\x98"s, "\xF4\x90\x80\x80"s,
        "\xF5\x80\x80\x80"s, "\xFF"s})
    for (size_t before : {0u, 1u, 7u, 8u, 17u}) {
      const std::string head(before, 'x');
      EXPECT_FALSE(decode(head + bytes, kBRStringEncodingUTF8)) << testing::PrintToString(bytes);
      EXPECT_FALSE(decode(head + bytes + head, kBRStringEncodingUTF8)) << testing::PrintToString(bytes);
    }
  for (const std::string& bytes : {"A"s, "\0A\0"s, "\xD8\x3D"s, "\xDE\x00"s, "\xD8\x3D\0A"s,
                                   "\xD8\x3D\xD8\x3D"s, "\xDE\x00\xD8\x3D"s, "\xD8\x3D\xDE"s})
    EXPECT_FALSE(decode(bytes, kBRStringEncodingUTF16BE)) << testing::PrintToString(bytes);
}

TEST(StringEncoding, WesternRomanIsOneToOne) {
  std::set<std::string> seen;
  for (int byte = 0; byte < 256; ++byte) {
    const std::string bytes(1, static_cast<char>(byte));
    String string = decode(bytes, kBRStringEncodingWesternRoman);
    ASSERT_TRUE(string);
    EXPECT_EQ(encode(string.get(), kBRStringEncodingWesternRoman), bytes);
    EXPECT_TRUE(seen.insert(encode(string.get(), kBRStringEncodingUTF8)).second);
    EXPECT_EQ(encode(string.get(), kBRStringEncodingUTF8) == bytes, byte < 0x80);
  }
  const struct {
    uint8_t byte;
    char32_t scalar;
  } known[] = {{0x80, 0xC4},   {0x8E, 0xE9},   {0xA9, 0xA9},   {0xBD, 0x3A9}, {0xC9, 0x2026}, {0xCA, 0xA0},
               {0xD5, 0x2019}, {0xDB, 0x20AC}, {0xDE, 0xFB01}, {0xEF, 0xD4},  {0xF0, 0xF8FF}, {0xFF, 0x2C7}};
  for (const auto& k : known)
    EXPECT_EQ(encode(decode(std::string(1, static_cast<char>(k.byte)), kBRStringEncodingWesternRoman).get(),
                     kBRStringEncodingUTF8),
              utf8(k.scalar));
  for (const char* text : {"Ā", "ab¤", "日本", "😀", "\u2126"})
    EXPECT_EQ(encode(decode(text, kBRStringEncodingUTF8).get(), kBRStringEncodingWesternRoman), "<none>");
}

TEST(StringEncoding, GetCStringNeedsRoomForTheTerminatorAndStaysInside) {
  const struct {
    BRStringEncoding encoding;
    size_t neededBytes;
  } cases[] = {{kBRStringEncodingUTF8, 6}, {kBRStringEncodingWesternRoman, 4}, {kBRStringEncodingUTF16, 8}};
  for (const auto& c : cases)
    for (size_t room = 0; room < 12; ++room) {
      std::string buffer(16, '#');
      EXPECT_EQ(BRStringGetCString("a€z"_br, buffer.data(), room, c.encoding), room >= c.neededBytes) << room;
      EXPECT_EQ(buffer.substr(room), std::string(16 - room, '#'));
      if (room < c.neededBytes) continue;
      auto back = String::adopt(BRStringCreateWithCString(nullptr, buffer.data(), c.encoding));
      EXPECT_TRUE(BREqual(back.get(), "a€z"_br));
      EXPECT_EQ(buffer.substr(c.neededBytes), std::string(16 - c.neededBytes, '#'));
    }
  char buffer[16];
  EXPECT_FALSE(BRStringGetCString("日"_br, buffer, sizeof buffer, kBRStringEncodingWesternRoman));
  EXPECT_FALSE(BRStringGetCString("a"_br, buffer, sizeof buffer, 9));
  EXPECT_FALSE(BRStringGetCString("a"_br, nullptr, 5, kBRStringEncodingUTF8));
  EXPECT_FALSE(BRStringGetCString(nullptr, buffer, sizeof buffer, kBRStringEncodingUTF8));
}

TEST(StringEncoding, AppendConverts) {
  auto string = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  EXPECT_TRUE(BRStringAppendBytes(string.get(), "\xDB ", 2, kBRStringEncodingWesternRoman));
  EXPECT_TRUE(BRStringAppendBytes(string.get(), "\xD8\x3D\xDE\x00", 4, kBRStringEncodingUTF16BE));
  EXPECT_FALSE(BRStringAppendBytes(string.get(), "\xD8\x3D", 2, kBRStringEncodingUTF16BE));
  EXPECT_TRUE(BRStringAppendCString(string.get(), "!\0\0", kBRStringEncodingUTF16LE));
  EXPECT_STREQ(BRStringGetUTF8(string.get()), "€ 😀!");
}

}  // namespace
