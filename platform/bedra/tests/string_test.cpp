// Strings: storage, copies, appending, order, percent escapes, and running out of memory everywhere.
#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using String = br::Ref<const BRString>;
using MutableString = br::Ref<BRString>;
using test::Outcome;

String make(std::string_view text, BRAllocatorRef allocator = nullptr) {
  return String::adopt(BRStringCreateWithBytes(allocator, text.data(), text.size(), kBRStringEncodingUTF8));
}

std::string_view textOf(BRStringRef string) {
  return {BRStringGetUTF8(string), BRStringGetLengthBytes(string)};
}

TEST(String, ImmutableOneIsASingleBlockOfAnyLength) {
  for (size_t length = 0; length < 70; ++length) {
    test::FailingAllocator allocator;
    const std::string text(length, 'x');
    String string = make(text, allocator);
    EXPECT_EQ(allocator.requests(), 1);
    EXPECT_EQ(textOf(string.get()), text);
    EXPECT_EQ(BRStringGetUTF8(string.get())[length], '\0');
    EXPECT_EQ(BRGetAllocator(string.get()), allocator);
  }
}

TEST(String, LiteralsMutableAndImmutableStringsOfOneTextAreEqualAndHashAlike) {
  BRStringRef literal = "a text of 24 bytes or so"_br;
  String immutable = make(textOf(literal));
  auto changing = MutableString::adopt(BRStringCreateMutable(nullptr, 0));
  for (char c : textOf(literal)) {
    EXPECT_FALSE(BREqual(changing.get(), literal));
    EXPECT_NE(BRHash(changing.get()), BRHash(literal));  // and the hash that was cached is dropped
    ASSERT_TRUE(BRStringAppendBytes(changing.get(), &c, 1, kBRStringEncodingUTF8));
  }
  for (BRStringRef string : {immutable.get(), BRStringRef(changing.get())}) {
    EXPECT_TRUE(BREqual(string, literal));
    EXPECT_EQ(BRHash(string), BRHash(literal));
    EXPECT_EQ(BRGetTypeID(string), BRStringGetTypeID());
  }
  EXPECT_TRUE(BREqual(""_br, MutableString::adopt(BRStringCreateMutable(nullptr, 100)).get()));
  EXPECT_FALSE(BREqual("a\0b"_br, "a\0c"_br));
}

TEST(String, CopiesShareOnlyWhatCannotChange) {
  test::FailingAllocator other;
  String string = make("take 7");
  EXPECT_EQ(String::adopt(BRStringCreateCopy(nullptr, string.get())).get(), string.get());
  EXPECT_EQ(String::adopt(BRStringCreateCopy(kBRAllocatorSystem, string.get())).get(), string.get());
  EXPECT_NE(String::adopt(BRStringCreateCopy(other, string.get())).get(), string.get());
  EXPECT_EQ(String::adopt(BRStringCreateCopy(other, "constant"_br)).get(), "constant"_br);
  auto changing = MutableString::adopt(BRStringCreateMutableCopy(nullptr, string.get()));
  String snapshot = String::adopt(BRStringCreateCopy(nullptr, changing.get()));
  ASSERT_TRUE(BRStringAppend(changing.get(), " again"_br));
  EXPECT_EQ(textOf(snapshot.get()), "take 7");
  EXPECT_EQ(textOf(changing.get()), "take 7 again");
  EXPECT_EQ(textOf(String::adopt(BRCopyDescription(changing.get())).get()), "take 7 again");
}

TEST(String, AppendingItselfOrAPartOfItself) {
  auto string = MutableString::adopt(BRStringCreateMutable(nullptr, 0));
  std::string expected = "ab";
  ASSERT_TRUE(BRStringAppendCString(string.get(), "ab", kBRStringEncodingUTF8));
  for (int i = 0; i < 8; ++i) {
    ASSERT_TRUE(BRStringAppend(string.get(), string.get()));
    expected += expected;
    ASSERT_TRUE(
        BRStringAppendCString(string.get(), BRStringGetUTF8(string.get()) + 1, kBRStringEncodingUTF8));
    expected += std::string(expected, 1);
    ASSERT_TRUE(BRStringAppendFormat(string.get(), "%.3@|%.2s", string.get(), BRStringGetUTF8(string.get())));
    expected += expected.substr(0, 3) + "|" + expected.substr(0, 2);
    ASSERT_EQ(textOf(string.get()), expected);
  }
}

TEST(String, AppendingItselfReadAsAnotherEncoding) {
  auto string = MutableString::adopt(BRStringCreateMutable(nullptr, 0));
  ASSERT_TRUE(BRStringAppendCString(string.get(), "ab", kBRStringEncodingUTF8));
  for (size_t length = 2; length < 4096; length *= 2) {
    EXPECT_EQ(BRStringGetLengthBytes(string.get()), length);
    ASSERT_TRUE(
        BRStringAppendCString(string.get(), BRStringGetUTF8(string.get()), kBRStringEncodingWesternRoman));
  }
  EXPECT_STREQ(BRStringGetUTF8(string.get()) + 4094, "ab");
}

TEST(String, AppendingIsLinearAndWorksWithoutAReallocateCallback) {
  BRAllocatorContext context{};
  static int requests;
  requests = 0;
  context.allocate = [](size_t size, void*) { return ++requests, malloc(size); };
  context.deallocate = [](void* block, void*) { free(block); };
  auto allocator = br::Ref<const BRAllocator>::adopt(BRAllocatorCreate(nullptr, &context));
  auto string = MutableString::adopt(BRStringCreateMutable(allocator.get(), 0));
  std::string expected;
  for (int i = 0; i < 20000; ++i) {
    ASSERT_TRUE(BRStringAppendFormat(string.get(), "%d,", i));
    expected += std::to_string(i) + ",";
  }
  EXPECT_EQ(textOf(string.get()), expected);
  EXPECT_LT(requests, 40);
}

TEST(String, OrderIsTotalAndByCodePoint) {
  const char* sorted[] = {"",       "A",      "AB",     "B",          "a",         "é",
                          "\uD7FF", "\uE000", "\uFFFD", "\U00010000", "\U0010FFFF"};
  for (size_t i = 0; i < std::size(sorted); ++i)
    for (size_t j = 0; j < std::size(sorted); ++j) {
      const int expected = i < j ? -1 : i > j;
      EXPECT_EQ(BRStringCompare(make(sorted[i]).get(), make(sorted[j]).get()), expected) << i << " " << j;
    }
  EXPECT_EQ(BRStringCompare(nullptr, ""_br), kBRCompareEqualTo);
}

TEST(String, BadArgumentsAreRefusedAndNullReadsAsEmpty) {
  EXPECT_EQ(BRStringCreateWithBytes(nullptr, nullptr, 1, kBRStringEncodingUTF8), nullptr);
  EXPECT_EQ(BRStringCreateWithBytes(nullptr, "x", 1, 0), nullptr);
  EXPECT_EQ(BRStringCreateWithBytes(nullptr, "x", 1, 6), nullptr);
  EXPECT_EQ(BRStringCreateWithCString(nullptr, nullptr, kBRStringEncodingUTF8), nullptr);
  EXPECT_EQ(BRStringCreateWithFormat(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRStringCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRStringCreateMutableCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRStringCreateMutable(nullptr, SIZE_MAX), nullptr);
  EXPECT_EQ(textOf(nullptr), "");
  EXPECT_EQ(BRStringGetLengthUTF16(nullptr), 0u);
  auto immutable = const_cast<BRMutableStringRef>("fixed"_br);
  EXPECT_FALSE(BRStringAppend(immutable, "x"_br));
  EXPECT_FALSE(BRStringAppendCString(immutable, "x", kBRStringEncodingUTF8));
  EXPECT_FALSE(BRStringAppendFormat(immutable, "x"));
  auto string = MutableString::adopt(BRStringCreateMutable(nullptr, 0));
  EXPECT_FALSE(BRStringAppend(string.get(), nullptr));
  EXPECT_FALSE(BRStringAppendBytes(string.get(), "\xFF", 1, kBRStringEncodingUTF8));
  EXPECT_FALSE(BRStringAppendFormat(string.get(), "text %"));
  EXPECT_EQ(textOf(string.get()), "");
}

struct EscapeCase {
  const char *text, *leaveAlone, *escapeToo, *escaped;
  BRStringEncoding encoding = kBRStringEncodingUTF8;
};

TEST(String, PercentEscapes) {
  const EscapeCase cases[] = {
      {"", "", "", ""},
      {"AZaz09-._~", "", "", "AZaz09-._~"},
      {"a b/c%d", "", "", "a%20b%2Fc%25d"},
      {"a b/c%d", "/ ", "", "a b/c%25d"},
      {"a.b/c", "/", "/.", "a%2Eb%2Fc"},
      {"é€😀", "", "", "%C3%A9%E2%82%AC%F0%9F%98%80"},
      {"é€😀", "€", "", "%C3%A9€%F0%9F%98%80"},
      {"è", "é", "", "%C3%A8"},
      {"©nam", "", "", "%A9nam", kBRStringEncodingWesternRoman},
      {"€/é", "é", "", "%DB%2Fé", kBRStringEncodingWesternRoman},
  };
  for (const EscapeCase& c : cases) {
    String text = make(c.text);
    auto escaped = String::adopt(BRStringCreateByAddingPercentEscapesInEncoding(
        nullptr, text.get(), make(c.leaveAlone).get(), make(c.escapeToo).get(), c.encoding));
    ASSERT_TRUE(escaped) << c.text;
    EXPECT_EQ(textOf(escaped.get()), c.escaped);
    auto back =
        String::adopt(BRStringCreateByReplacingPercentEscapesInEncoding(nullptr, escaped.get(), c.encoding));
    EXPECT_TRUE(back && BREqual(back.get(), text.get())) << c.escaped;
  }
  EXPECT_EQ(BRStringCreateByAddingPercentEscapesInEncoding(nullptr, "😀"_br, nullptr, nullptr,
                                                           kBRStringEncodingWesternRoman),
            nullptr);
  EXPECT_EQ(BRStringCreateByAddingPercentEscapesInEncoding(nullptr, "a"_br, nullptr, nullptr,
                                                           kBRStringEncodingUTF16),
            nullptr);
}

TEST(String, ReplacingEscapesRefusesWhatIsMalformed) {
  for (const char* text :
       {"%", "a%", "%4", "%4g", "%g4", "%%41", "%+1", "%C3", "%C3x%A9", "%ED%A0%80", "%FF"})
    EXPECT_EQ(BRStringCreateByReplacingPercentEscapes(nullptr, make(text).get()), nullptr) << text;
  auto replaced = [](const char* text) {
    return std::string(
        textOf(String::adopt(BRStringCreateByReplacingPercentEscapes(nullptr, make(text).get())).get()));
  };
  EXPECT_EQ(replaced("%c3%A9%2f%41é"), "é/Aé");
  EXPECT_EQ(replaced("a%00b"), std::string("a\0b", 3));
}

TEST(String, RunningOutOfMemoryMakesNothingAndLeaksNothing) {
  const std::string longText(2000, 'y');
  using Create = BRStringRef (*)(BRAllocatorRef, const char* longText);
  const Create creates[] = {
      [](BRAllocatorRef a, const char* t) { return BRStringCreateWithCString(a, t, kBRStringEncodingUTF8); },
      [](BRAllocatorRef a, const char*) {
        return BRStringCreateWithBytes(a, "\xDB", 1, kBRStringEncodingWesternRoman);
      },
      [](BRAllocatorRef a, const char* t) {
        return BRStringCreateWithFormat(a, "%s\xFF%s %2000d %ls", t, t, 5, L"é");
      },
      [](BRAllocatorRef a, const char*) { return BRStringCreateCopy(a, make("short").get()); },
      [](BRAllocatorRef a, const char*) { return BRStringRef(BRStringCreateMutable(a, 9)); },
      [](BRAllocatorRef a, const char* t) {
        return BRStringRef(BRStringCreateMutableCopy(a, make(t).get()));
      },
      [](BRAllocatorRef a, const char* t) {
        return BRStringCreateByAddingPercentEscapes(a, make(t).get(), nullptr, "y"_br);
      },
      [](BRAllocatorRef a, const char* t) {
        return BRStringCreateByReplacingPercentEscapes(a, make(t).get());
      },
  };
  for (Create create : creates) {
    const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
      return String::adopt(create(allocator, longText.c_str())) ? Outcome::kSucceeded : Outcome::kOutOfMemory;
    });
    EXPECT_GE(requests, 1);
  }
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    auto data = br::Ref<const BRData>::adopt(BRStringCreateData(allocator, "é"_br, kBRStringEncodingUTF16));
    return data ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

TEST(String, FailedAppendLeavesTheStringAsItWas) {
  using Append = bool (*)(BRMutableStringRef);
  const Append appends[] = {
      [](BRMutableStringRef s) { return BRStringAppend(s, "much more than the block has room for"_br); },
      [](BRMutableStringRef s) {
        return BRStringAppendBytes(s, "\xDB\xDB\xDB\xDB\xDB\xDB\xDB\xDB\xDB\xDB\xDB", 11,
                                   kBRStringEncodingWesternRoman);
      },
      [](BRMutableStringRef s) { return BRStringAppendFormat(s, "%1000d\xFF", 5); },
      [](BRMutableStringRef s) { return BRStringAppend(s, s); },
  };
  for (Append append : appends) {
    test::FailingAllocator allocator;
    auto string = MutableString::adopt(BRStringCreateMutable(allocator, 0));
    ASSERT_TRUE(BRStringAppend(string.get(), "just thirty-one bytes are here."_br));
    for (int n = 1;; ++n) {
      const BRHashCode hash = BRHash(string.get());
      allocator.failRequest(n);
      // without memory for a larger block, a second request is made for a new one
      if (append(string.get())) break;
      EXPECT_EQ(textOf(string.get()), "just thirty-one bytes are here.");
      EXPECT_EQ(BRHash(string.get()), hash);
      ASSERT_LT(n, 10);
    }
  }
}

}  // namespace
