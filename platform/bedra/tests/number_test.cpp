// Numbers: conversion, order, equality and hash over values near every limit; booleans and null.
#include <cfloat>

#include "tests/support/test.hpp"

namespace {

using Number = br::Ref<const BRNumber>;

template <class T>
constexpr BRNumberType kTypeOf = std::is_same_v<T, float> ? kBRNumberTypeFloat32
                                 : std::is_same_v<T, double>
                                     ? kBRNumberTypeFloat64
                                     : (std::is_signed_v<T> ? kBRNumberTypeSInt8 : kBRNumberTypeUInt8) +
                                           (sizeof(T) == 1   ? 0u
                                            : sizeof(T) == 2 ? 1u
                                            : sizeof(T) == 4 ? 2u
                                                             : 3u);

template <class T>
Number make(T value) {
  return Number::adopt(BRNumberCreate(nullptr, kTypeOf<T>, &value));
}

std::string describe(BRTypeRef object) {
  auto text = br::Ref<const BRString>::adopt(BRCopyDescription(object));
  return BRStringGetUTF8(text.get());
}

// What the number gives as a T, and whether that was lossless.
template <class T>
std::pair<T, bool> as(const Number& number) {
  T value{};
  const bool lossless = BRNumberGetValue(number.get(), kTypeOf<T>, &value);
  return {value, lossless};
}

// Values near every limit, in exactly the order of their size; equal ones stand together in one row.
const std::vector<std::vector<Number>>& ladder() {
  static const std::vector<std::vector<Number>> rows = [] {
    constexpr double kTwo53 = 9007199254740992, kTwo63 = 9223372036854775808.0, kTwo64 = 2 * kTwo63;
    std::vector<std::vector<Number>> made;
    auto row = [&made](auto... values) { made.push_back({make(values)...}); };
    row(std::nan(""), -std::nan("7"), std::nanf("1"));
    row(-INFINITY, static_cast<double>(-INFINITY));
    row(-DBL_MAX);
    row(-FLT_MAX, static_cast<double>(-FLT_MAX));
    row(-kTwo64);
    row(std::nextafter(-kTwo63, -INFINITY));
    row(INT64_MIN, -kTwo63, -0x1p63f);
    row(INT64_MIN + 1);
    row(-9007199254740993);
    row(-kTwo53, INT64_C(-9007199254740992));
    row(-1.5, -1.5f);
    row(int8_t{-1}, int16_t{-1}, int32_t{-1}, int64_t{-1}, -1.0f, -1.0);
    row(-DBL_TRUE_MIN);
    row(0, 0u, 0.0, -0.0, -0.0f, uint64_t{0}, int8_t{0});
    row(DBL_TRUE_MIN);
    row(0.1);
    row(0.1f);
    row(uint8_t{1}, uint16_t{1}, uint32_t{1}, uint64_t{1}, int64_t{1}, 1.0f, 1.0);
    row(std::nextafter(1.0, 2.0));
    row(uint64_t{9007199254740991}, kTwo53 - 1);
    row(INT64_C(9007199254740992), kTwo53, static_cast<float>(kTwo53));
    row(INT64_C(9007199254740993), uint64_t{9007199254740993});
    row(kTwo53 + 2, INT64_C(9007199254740994));
    row(std::nextafter(kTwo63, 0));
    row(INT64_MAX, uint64_t{INT64_MAX});
    row(kTwo63, uint64_t{1} << 63, 0x1p63f);
    row((uint64_t{1} << 63) + 1);
    row(std::nextafter(kTwo64, 0));
    row(UINT64_MAX);
    row(kTwo64, 0x1p64f);
    row(INFINITY, static_cast<double>(INFINITY));
    return made;
  }();
  return rows;
}

TEST(Number, OrderEqualityAndHashGoByExactValueAcrossTypes) {
  for (size_t i = 0; i < ladder().size(); ++i)
    for (size_t j = 0; j < ladder().size(); ++j)
      for (const Number& a : ladder()[i])
        for (const Number& b : ladder()[j]) {
          const std::string pair = describe(a.get()) + " and " + describe(b.get());
          EXPECT_EQ(BRNumberCompare(a.get(), b.get()), i < j ? -1 : i > j) << pair;
          EXPECT_EQ(BREqual(a.get(), b.get()), i == j) << pair;
          if (i == j) {
            EXPECT_EQ(BRHash(a.get()), BRHash(b.get())) << pair;
          }
        }
}

// Law: a conversion is lossless exactly when the number made of its result compares equal; and a lossy one to
// an integer type is off toward zero by less than one, or the end of the range on the number's side.
template <class T>
void expectConversionLaw() {
  for (const auto& row : ladder())
    for (const Number& number : row) {
      const auto [value, lossless] = as<T>(number);
      const Number back = make(value);
      EXPECT_EQ(lossless, BREqual(back.get(), number.get()))
          << describe(number.get()) << " as " << kTypeOf<T>;
      if (lossless || !std::is_integral_v<T>) continue;
      const auto [exact, ignored] = as<double>(number);
      if (value == std::numeric_limits<T>::max() || value == std::numeric_limits<T>::min())
        EXPECT_EQ(BRNumberCompare(number.get(), back.get()), exact > 0 ? 1 : -1) << describe(number.get());
      else
        EXPECT_EQ(static_cast<double>(value), std::isnan(exact) ? 0 : std::trunc(exact))
            << describe(number.get());
    }
}

TEST(Number, ConversionsAreLosslessOrNearest) {
  expectConversionLaw<int8_t>();
  expectConversionLaw<int16_t>();
  expectConversionLaw<int32_t>();
  expectConversionLaw<int64_t>();
  expectConversionLaw<uint8_t>();
  expectConversionLaw<uint16_t>();
  expectConversionLaw<uint32_t>();
  expectConversionLaw<uint64_t>();
  expectConversionLaw<float>();
  expectConversionLaw<double>();
}

TEST(Number, KnownConversions) {
  EXPECT_EQ(as<int8_t>(make(300)), std::pair(int8_t{127}, false));
  EXPECT_EQ(as<int8_t>(make(-128.0)), std::pair(int8_t{-128}, true));
  EXPECT_EQ(as<uint32_t>(make(-1)), std::pair(0u, false));
  EXPECT_EQ(as<int32_t>(make(-2.9)), std::pair(-2, false));
  EXPECT_EQ(as<int32_t>(make(std::nan(""))), std::pair(0, false));
  EXPECT_EQ(as<int64_t>(make(1e300)), std::pair(INT64_MAX, false));
  EXPECT_EQ(as<uint64_t>(make(INFINITY)), std::pair(UINT64_MAX, false));
  EXPECT_EQ(as<double>(make(INT64_C(9007199254740993))), std::pair(9007199254740992.0, false));
  EXPECT_EQ(as<double>(make(UINT64_MAX)), std::pair(18446744073709551616.0, false));
  EXPECT_EQ(as<float>(make(1e300)), std::pair(INFINITY, false));
  EXPECT_EQ(as<float>(make(0.1)), std::pair(0.1f, false));
  const auto [nan, lossless] = as<float>(make(std::nan("")));
  EXPECT_TRUE(std::isnan(nan) && lossless);
  EXPECT_EQ(BRNumberGetType(make(int16_t{5}).get()), kBRNumberTypeSInt16);
  EXPECT_TRUE(BRNumberIsFloat(make(5.0f).get()));
  EXPECT_FALSE(BRNumberIsFloat(make(uint64_t{5}).get()));
}

TEST(Number, Descriptions) {
  EXPECT_EQ(describe(make(int8_t{-128}).get()), "-128");
  EXPECT_EQ(describe(make(UINT64_MAX).get()), "18446744073709551615");
  EXPECT_EQ(describe(make(0.1f).get()), "0.1");
  EXPECT_EQ(describe(make(29.97).get()), "29.97");
  EXPECT_EQ(describe(make(1.0).get()), "1");
  EXPECT_EQ(describe(make(-INFINITY).get()), "-inf");
  EXPECT_EQ(describe(make(-DBL_TRUE_MIN).get()), "-5e-324");
  EXPECT_EQ(describe(make(DBL_MAX).get()), "1.7976931348623157e+308");
  EXPECT_EQ(describe(kBRBooleanTrue), "true");
  EXPECT_EQ(describe(kBRBooleanFalse), "false");
  EXPECT_EQ(describe(kBRNull), "null");
}

TEST(Number, BadArgumentsAreRefused) {
  int32_t value = 77;
  for (BRNumberType type : {0u, 11u, UINT32_MAX}) {
    EXPECT_EQ(BRNumberCreate(nullptr, type, &value), nullptr);
    EXPECT_FALSE(BRNumberGetValue(make(5).get(), type, &value));
  }
  EXPECT_EQ(BRNumberCreate(nullptr, kBRNumberTypeSInt32, nullptr), nullptr);
  EXPECT_FALSE(BRNumberGetValue(make(5).get(), kBRNumberTypeSInt32, nullptr));
  EXPECT_FALSE(BRNumberGetValue(nullptr, kBRNumberTypeSInt32, &value));
  EXPECT_EQ(value, 77);
  EXPECT_EQ(BRNumberGetType(nullptr), 0u);
  EXPECT_EQ(BRNumberCompare(nullptr, make(-INFINITY).get()), kBRCompareLessThan);
  EXPECT_FALSE(BRBooleanGetValue(nullptr));
  EXPECT_FALSE(BRBooleanGetValue(kBRBooleanFalse));
  EXPECT_TRUE(BRBooleanGetValue(kBRBooleanTrue));
  EXPECT_FALSE(BREqual(kBRBooleanTrue, make(1).get()));
}

TEST(Number, IsOneBlockAndReportsRunningOut) {
  const int requests = test::walkAllocationFailures([](BRAllocatorRef allocator) {
    const double value = 2.5;
    Number number = Number::adopt(BRNumberCreate(allocator, kBRNumberTypeFloat64, &value));
    return number ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  EXPECT_EQ(requests, 1);
}

}  // namespace
