// Numbers, booleans and null.
//
// Representation: a number keeps the type it was made with, and its value in one of three forms: signed or
// unsigned 64 bits, or a double (a 32-bit float widens exactly). Comparison, equality, hash and conversion
// look at the value alone.
#include <bedra/number.h>
#include <bedra/literal.hpp>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "src/internal.hpp"
#include "src/string.hpp"

struct BRNumber : BRObject {
  static constexpr const char* className = "BRNumber";

  bool isFloat() const { return type >= kBRNumberTypeFloat32; }
  // Meant for integers only; holds every one of both signs.
  __int128 integer() const { return type == kBRNumberTypeUInt64 ? __int128{asUnsigned} : __int128{asSigned}; }

  bool equals(const BRNumber& other) const { return BRNumberCompare(this, &other) == kBRCompareEqualTo; }
  BRHashCode hash() const;
  BRStringRef copyDescription() const;

  BRNumberType type = 0;
  union {
    int64_t asSigned = 0;
    uint64_t asUnsigned;
    double asDouble;
  };
};

struct BRBoolean : BRObject {
  static constexpr const char* className = "BRBoolean";
  constexpr explicit BRBoolean(bool truth)
      : BRObject(br::kBooleanTypeID, 0, br::kImmortalCount, 0), value(truth) {}
  BRStringRef copyDescription() const {
    using namespace br::literals;
    return value ? "true"_br : "false"_br;
  }
  bool value;
};

struct BRNull : BRObject {
  static constexpr const char* className = "BRNull";
  constexpr BRNull() : BRObject(br::kNullTypeID, 0, br::kImmortalCount, 0) {}
  BRStringRef copyDescription() const {
    using namespace br::literals;
    return "null"_br;
  }
};

constinit const BRRuntimeClass br::booleanClass = br::makeClass<BRBoolean>();
constinit const BRRuntimeClass br::nullClass = br::makeClass<BRNull>();

namespace {

constinit const BRBoolean trueObject{true};
constinit const BRBoolean falseObject{false};
constinit const BRNull nullObject;

// 2^64 as a double, and above what any integer type holds.
constexpr double kTwoTo64 = 18446744073709551616.0;

// Calls action with a zero of the C type that a number type names; false for an unknown type.
template <class Action>
bool withType(BRNumberType type, Action action) {
  switch (type) {
    case kBRNumberTypeSInt8:
      return action(int8_t{});
    case kBRNumberTypeSInt16:
      return action(int16_t{});
    case kBRNumberTypeSInt32:
      return action(int32_t{});
    case kBRNumberTypeSInt64:
      return action(int64_t{});
    case kBRNumberTypeUInt8:
      return action(uint8_t{});
    case kBRNumberTypeUInt16:
      return action(uint16_t{});
    case kBRNumberTypeUInt32:
      return action(uint32_t{});
    case kBRNumberTypeUInt64:
      return action(uint64_t{});
    case kBRNumberTypeFloat32:
      return action(float{});
    case kBRNumberTypeFloat64:
      return action(double{});
    default:
      return false;
  }
}

template <class T>
BRComparisonResult order(T a, T b) {
  return a < b ? kBRCompareLessThan : a > b ? kBRCompareGreaterThan : kBRCompareEqualTo;
}

// Every NaN is equal to every other and comes before all that is not one.
BRComparisonResult compareDoubles(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return order(!std::isnan(a), !std::isnan(b));
  return order(a, b);
}

// Exact: the double is compared as the whole number below it in size, then by its fraction.
BRComparisonResult compareIntegerToDouble(__int128 a, double b) {
  if (std::isnan(b)) return kBRCompareGreaterThan;
  if (b >= kTwoTo64) return kBRCompareLessThan;
  if (b <= -kTwoTo64) return kBRCompareGreaterThan;
  const BRComparisonResult wholes = order<__int128>(a, static_cast<__int128>(b));
  return wholes != kBRCompareEqualTo ? wholes : order(0.0, b - std::trunc(b));
}

template <class Integer>
Integer saturate(__int128 value) {
  using Limits = std::numeric_limits<Integer>;
  if (value < __int128{Limits::min()}) return Limits::min();
  if (value > __int128{Limits::max()}) return Limits::max();
  return static_cast<Integer>(value);
}

// Toward zero; wide enough that what is clipped here is clipped by every integer type.
__int128 wholePart(double value) {
  if (std::isnan(value)) return 0;
  if (value >= kTwoTo64) return static_cast<__int128>(kTwoTo64);
  if (value <= -kTwoTo64) return static_cast<__int128>(-kTwoTo64);
  return static_cast<__int128>(value);
}

// Writes the number as a T; true when nothing was lost.
template <class T>
bool convert(const BRNumber& number, T& result) {
  if constexpr (std::is_integral_v<T>) {
    result = saturate<T>(number.isFloat() ? wholePart(number.asDouble) : number.integer());
    return number.isFloat() ? compareIntegerToDouble(result, number.asDouble) == kBRCompareEqualTo
                            : result == number.integer();
  } else {
    if (number.isFloat()) {
      result = static_cast<T>(number.asDouble);
      return compareDoubles(result, number.asDouble) == kBRCompareEqualTo;
    }
    result = static_cast<T>(number.integer());
    return compareIntegerToDouble(number.integer(), result) == kBRCompareEqualTo;
  }
}

}  // namespace

extern "C" {
constinit const BRBooleanRef kBRBooleanTrue = &trueObject;
constinit const BRBooleanRef kBRBooleanFalse = &falseObject;
constinit const BRNullRef kBRNull = &nullObject;
}

// A double that is a whole number hashes as the integer it equals; those beyond the integers by their bits.
BRHashCode BRNumber::hash() const {
  uint64_t bits;
  if (!isFloat()) {
    bits = asUnsigned;
  } else if (compareIntegerToDouble(wholePart(asDouble), asDouble) == kBRCompareEqualTo &&
             std::abs(asDouble) < kTwoTo64) {
    bits = static_cast<uint64_t>(wholePart(asDouble));
  } else {
    const double canonical = std::isnan(asDouble) ? std::numeric_limits<double>::quiet_NaN() : asDouble;
    std::memcpy(&bits, &canonical, sizeof bits);
  }
  return br::hashBits(bits);
}

BRStringRef BRNumber::copyDescription() const {
  char text[40];
  std::to_chars_result end{};
  if (type == kBRNumberTypeFloat64)
    end = std::to_chars(text, text + sizeof text, asDouble);
  else if (type == kBRNumberTypeFloat32)
    end = std::to_chars(text, text + sizeof text, static_cast<float>(asDouble));
  else if (type == kBRNumberTypeUInt64)
    end = std::to_chars(text, text + sizeof text, asUnsigned);
  else
    end = std::to_chars(text, text + sizeof text, asSigned);
  return br::createStringWithText(nullptr, {text, static_cast<size_t>(end.ptr - text)});
}

BRTypeID BRNumberGetTypeID(void) { return br::typeID<BRNumber>(); }

BRNumberRef BRNumberCreate(BRAllocatorRef allocator, BRNumberType type, const void* value) {
  if (!value || type < kBRNumberTypeSInt8 || type > kBRNumberTypeFloat64) return nullptr;
  BRNumber* number = br::create<BRNumber>(allocator, 0);
  if (!number) return nullptr;
  number->type = type;
  withType(type, [&](auto typed) {
    std::memcpy(&typed, value, sizeof typed);
    if constexpr (std::is_floating_point_v<decltype(typed)>)
      number->asDouble = typed;
    else if constexpr (std::is_same_v<decltype(typed), uint64_t>)
      number->asUnsigned = typed;
    else
      number->asSigned = typed;
    return true;
  });
  return number;
}

BRNumberType BRNumberGetType(BRNumberRef number) { return number ? number->type : 0; }

bool BRNumberIsFloat(BRNumberRef number) { return number && number->isFloat(); }

bool BRNumberGetValue(BRNumberRef number, BRNumberType type, void* value) {
  if (!number || !value) return false;
  return withType(type, [&](auto typed) {
    const bool lossless = convert(*number, typed);
    std::memcpy(value, &typed, sizeof typed);
    return lossless;
  });
}

BRComparisonResult BRNumberCompare(BRNumberRef a, BRNumberRef b) {
  if (!a || !b) return order<int>(a != nullptr, b != nullptr);
  if (a->isFloat() && b->isFloat()) return compareDoubles(a->asDouble, b->asDouble);
  if (b->isFloat()) return compareIntegerToDouble(a->integer(), b->asDouble);
  if (a->isFloat()) return -compareIntegerToDouble(b->integer(), a->asDouble);
  return order(a->integer(), b->integer());
}

BRTypeID BRBooleanGetTypeID(void) { return br::kBooleanTypeID; }

bool BRBooleanGetValue(BRBooleanRef boolean) { return boolean && boolean->value; }

BRTypeID BRNullGetTypeID(void) { return br::kNullTypeID; }
