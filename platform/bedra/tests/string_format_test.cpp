// Formats: every conversion against the C library's, %@, malformed text and formats, the locale.
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cfloat>
#include <climits>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using String = br::Ref<const BRString>;

template <class... Arguments>
std::string format(const char* text, Arguments... arguments) {
  auto string = String::adopt(BRStringCreateWithFormat(nullptr, text, arguments...));
  if (!string) return "<malformed>";
  return {BRStringGetUTF8(string.get()), BRStringGetLengthBytes(string.get())};
}

template <class... Arguments>
std::string libraryFormat(const std::string& text, Arguments... arguments) {
  char buffer[8192];
  const int length = std::snprintf(buffer, sizeof buffer, text.c_str(), arguments...);
  return {buffer, static_cast<size_t>(length)};
}

const char* const kShapes[] = {"",   "12", "-12", "012", "+",   " ",    "#",   "+-08", "1",     "0",
                               ".0", ".1", ".5",  ".40", "9.3", "-9.3", "+.3", "#.3",  "-+ #0", "# 020.7"};

// The value in every shape of every conversion letter, beside what the C library prints.
template <class Value>
void expectAsLibrary(const char* length, const char* letters, Value value) {
  for (const char* shape : kShapes)
    for (const char* letter = letters; *letter; ++letter) {
      const std::string text = std::string("[%") + shape + length + *letter + "]";
      EXPECT_EQ(format(text.c_str(), value), libraryFormat(text, value)) << text;
    }
}

TEST(StringFormat, IntegersPrintAsTheCLibraryDoes) {
  const char* letters = "diouxX";
  for (int64_t value :
       {int64_t{0}, int64_t{1}, int64_t{-1}, int64_t{1234567}, int64_t{INT32_MIN}, INT64_MAX, INT64_MIN}) {
    expectAsLibrary("hh", letters, static_cast<int>(value));
    expectAsLibrary("h", letters, static_cast<int>(value));
    expectAsLibrary("", letters, static_cast<int>(value));
    expectAsLibrary("l", letters, static_cast<long>(value));
    expectAsLibrary("ll", letters, static_cast<long long>(value));
    expectAsLibrary("j", letters, static_cast<intmax_t>(value));
    expectAsLibrary("z", letters, static_cast<size_t>(value));
    expectAsLibrary("t", letters, static_cast<ptrdiff_t>(value));
  }
}

TEST(StringFormat, FloatsCharactersStringsAndPointersPrintAsTheCLibraryDoes) {
  const char* letters = "eEfFgGaA";
  for (double value : std::initializer_list<double>{0.0, -0.0, 1.0, -1.5, 0.1, 1e-7, 123456789.0, DBL_MAX,
                                                    DBL_TRUE_MIN, INFINITY, -NAN}) {
    expectAsLibrary("", letters, value);
    expectAsLibrary("l", letters, value);
    expectAsLibrary("L", letters, static_cast<long double>(value) / 3);
  }
  for (const char* text : {"", "x", "reel", "a rather longer text"}) expectAsLibrary("", "s", text);
  expectAsLibrary("", "c", 'x');
  for (const char* shape : {"", "20", "-20"}) {
    const std::string text = std::string("%") + shape + "p|";
    EXPECT_EQ(format(text.c_str(), shape), libraryFormat(text, shape));
  }
}

TEST(StringFormat, WidthsAndPrecisionsFromArguments) {
  EXPECT_EQ(format("%*s|%-*s|%*s|", 4, "ab", 4, "ab", -4, "ab"), "  ab|ab  |ab  |");
  EXPECT_EQ(format("%*sPVReel %-10s%s = %@", 8, "", "key", "(P)", "value"_br),
            "        PVReel key       (P) = value");
  EXPECT_EQ(format("%.*f %.*s %.*d", 2, 3.14159, 2, "abc", -1, 0), "3.14 ab 0");
  EXPECT_EQ(format("%*.*d", 8, 5, 42), "   00042");
  EXPECT_EQ(format("100%% of %'d", 1234567), "100% of 1234567");
}

TEST(StringFormat, ObjectsPrintTheirDescription) {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutableCopy(nullptr, "chang"_br));
  BRStringAppend(text.get(), "ing"_br);
  EXPECT_EQ(format("%@ %@ %@ %@", "naïve"_br, kBRBooleanTrue, kBRNull, text.get()),
            "naïve true null changing");
  EXPECT_EQ(format("%@ %s", nullptr, static_cast<const char*>(nullptr)), "(null) (null)");
  EXPECT_EQ(format("[%8@|%-8@|%.2@|%*.*@]", "abc"_br, "abc"_br, "abc"_br, 4, 1, kBRBooleanFalse),
            "[     abc|abc     |ab|   f]");
}

TEST(StringFormat, TextStaysValidUTF8) {
  EXPECT_EQ(format("%s", "a\xFFz"), "a\uFFFDz");
  EXPECT_EQ(format("raw \xC3"), "raw \uFFFD");
  EXPECT_EQ(format("%s|", "\xE2\x82"), "\uFFFD|");
  EXPECT_EQ(format("%s", "\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(format("%c%c%c%c", 0xA9, 'n', 'a', 'm'), "\uFFFDnam");
  EXPECT_EQ(format("%c%c", 0xC3, 0xA9), "é");
  EXPECT_EQ(format("%.1s|%.3s|%.3@|%.4@", "é", "aé€", "aé€"_br, "é€"_br), "|aé|aé|é");
  EXPECT_EQ(
      format("%lc%ls|%.4ls|%lc", static_cast<wint_t>(0x1F600), L"é€", L"é€", static_cast<wint_t>(0xD800)),
      "😀é€|é|\uFFFD");
  EXPECT_EQ(format("a%cb", 0), std::string("a\0b", 3));
  const char unterminated[4] = {'m', 'o', 'o', 'v'};
  EXPECT_EQ(format("%.4s", unterminated), "moov");
}

TEST(StringFormat, MalformedFormatsMakeNothing) {
  int count = 7;
  for (const char* text : {"%", "a %-", "%12", "%.", "%l", "%n", "%hhn", "%1$d", "%y", "%m", "%hs", "%Ld",
                           "%hf", "%lp", "%l@", "%5%", "%99999999999d", "%.99999999999f", "%**d"}) {
    EXPECT_EQ(format(text, &count, &count, &count), "<malformed>") << text;
    EXPECT_EQ(count, 7);
  }
  EXPECT_EQ(format("%*d", INT_MIN, 1), "<malformed>");
}

TEST(StringFormat, LengthHasNoLimit) {
  const std::string text(3'000'000, 'x');
  EXPECT_EQ(format("<%s%s>", text.c_str(), text.c_str()), "<" + text + text + ">");
  EXPECT_EQ(format("%1000000d%-1000000s|", 5, "ab").size(), 2'000'001u);
  for (int width = 470; width < 490; ++width) {  // about the size of the scratch memory on the stack
    const std::string head(static_cast<size_t>(width - 1), ' ');
    EXPECT_EQ(format("%*d%s", width, 5, "ab"), head + "5ab");
    EXPECT_EQ(format("%*s%s", width, "5", "ab"), head + "5ab");
    EXPECT_EQ(format("%*.1f%s", width + 2, 5.0, "ab"), head + "5.0ab");
  }
}

// A locale whose decimal point is a comma, in the C library's file format.
void writeCommaLocale(const std::string& folder) {
  const char numeric[] =
      "\x14\x11\x03\x20\x06\0\0\0\x20\0\0\0\x22\0\0\0\x24\0\0\0\x28\0\0\0\x2c\0\0\0\x30\0\0\0"
      ",\0.\0\x03\x03\0\0,\0\0\0.\0\0\0ANSI_X3.4-1968";
  mkdir(folder.c_str(), 0700);
  std::FILE* file = std::fopen((folder + "/LC_NUMERIC").c_str(), "wb");
  ASSERT_NE(file, nullptr);
  std::fwrite(numeric, 1, sizeof numeric, file);
  std::fclose(file);
}

TEST(StringFormat, LocaleHasNoSay) {
  const std::string name = "bedra_comma_locale_" + std::to_string(getpid());
  const std::string folder = testing::TempDir() + name;
  writeCommaLocale(folder);
  setenv("LOCPATH", testing::TempDir().c_str(), 1);
  ASSERT_NE(setlocale(LC_NUMERIC, name.c_str()), nullptr);
  EXPECT_EQ(libraryFormat("%.2f", 1.5), "1,50");
  EXPECT_EQ(format("%.2f %g %La %'d", 1.5, 0.25, 1.0L, 1234567), "1.50 0.25 0x8p-3 1234567");
  EXPECT_EQ(libraryFormat("%.2f", 1.5), "1,50") << "the thread's locale was not put back";
  setlocale(LC_NUMERIC, "C");
  unsetenv("LOCPATH");
  std::remove((folder + "/LC_NUMERIC").c_str());
  std::remove(folder.c_str());
}

}  // namespace
