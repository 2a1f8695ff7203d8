// Booleans and null. Numbers follow.
#include <bedra/number.h>
#include <bedra/object.hpp>

#include "src/internal.hpp"

struct BRBoolean : BRObject {
  static constexpr const char* className = "BRBoolean";
  constexpr explicit BRBoolean(bool truth)
      : BRObject(br::kBooleanTypeID, 0, br::kImmortalCount, 0), value(truth) {}
  bool value;
};

struct BRNull : BRObject {
  static constexpr const char* className = "BRNull";
  constexpr BRNull() : BRObject(br::kNullTypeID, 0, br::kImmortalCount, 0) {}
};

constinit const BRRuntimeClass br::booleanClass = br::makeClass<BRBoolean>();
constinit const BRRuntimeClass br::nullClass = br::makeClass<BRNull>();

namespace {
constinit const BRBoolean trueObject{true};
constinit const BRBoolean falseObject{false};
constinit const BRNull nullObject;
}  // namespace

extern "C" {
constinit const BRBooleanRef kBRBooleanTrue = &trueObject;
constinit const BRBooleanRef kBRBooleanFalse = &falseObject;
constinit const BRNullRef kBRNull = &nullObject;
}
