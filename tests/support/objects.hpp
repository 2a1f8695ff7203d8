// Small Bedra objects, made in one line.
#ifndef TESTS_SUPPORT_OBJECTS_HPP
#define TESTS_SUPPORT_OBJECTS_HPP

#include <span>

#include "tests/support/test.hpp"

namespace test {

using Dictionary = br::Ref<BRDictionary>;
using Array = br::Ref<const BRArray>;
using Data = br::Ref<const BRData>;
using Number = br::Ref<const BRNumber>;

struct Pair {
  BRStringRef key;
  BRTypeRef value;
};

inline Dictionary dictionary(std::initializer_list<Pair> pairs) {
  auto made = Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, &kBRTypeDictionaryKeyCallBacks,
                                                          &kBRTypeDictionaryValueCallBacks));
  for (const Pair& pair : pairs) EXPECT_TRUE(BRDictionarySetValue(made.get(), pair.key, pair.value));
  return made;
}

inline Array array(std::initializer_list<BRTypeRef> values) {
  return Array::adopt(BRArrayCreate(nullptr, values.begin(), values.size(), &kBRTypeArrayCallBacks));
}

inline Data dataOf(std::span<const uint8_t> bytes) {
  return Data::adopt(BRDataCreate(nullptr, bytes.data(), bytes.size()));
}

inline Number number(double value) {
  return Number::adopt(BRNumberCreate(nullptr, kBRNumberTypeFloat64, &value));
}

}  // namespace test

#endif
