// Values of property lists as C++ has them; empty, or null, when the object is absent or of another class.
#pragma once

#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <bedra/runtime.h>
#include <bedra/string.h>
#include <pevrin/format_description.h>

#include <optional>
#include <string_view>

inline std::optional<std::string_view> stringIn(BRTypeRef object) {
  if (!object || BRGetTypeID(object) != BRStringGetTypeID()) return std::nullopt;
  auto* string = static_cast<BRStringRef>(object);
  return std::string_view(BRStringGetUTF8(string), BRStringGetLengthBytes(string));
}

inline std::optional<double> numberIn(BRTypeRef object) {
  double value = 0;
  if (!object || BRGetTypeID(object) != BRNumberGetTypeID()) return std::nullopt;
  BRNumberGetValue(static_cast<BRNumberRef>(object), kBRNumberTypeFloat64, &value);
  return value;
}

inline BRDictionaryRef dictionaryIn(BRTypeRef object) {
  return object && BRGetTypeID(object) == BRDictionaryGetTypeID() ? static_cast<BRDictionaryRef>(object)
                                                                  : nullptr;
}

inline std::optional<bool> booleanIn(BRTypeRef object) {
  if (!object || BRGetTypeID(object) != BRBooleanGetTypeID()) return std::nullopt;
  return BRBooleanGetValue(static_cast<BRBooleanRef>(object));
}

// The horizontal and the vertical spacing of pixels.
struct PixelAspect {
  double horizontal, vertical;
};
std::optional<PixelAspect> pixelAspectOf(PVFormatDescriptionRef description);

// The name of a timecode's source.
std::optional<std::string_view> sourceNameOf(PVFormatDescriptionRef description);
