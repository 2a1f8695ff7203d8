#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using test::FailingAllocator;
using Object = br::Ref<const void>;
using Array = br::Ref<BRArray>;
using Dictionary = br::Ref<BRDictionary>;

Array mutableArray(std::initializer_list<BRTypeRef> values = {}) {
  auto array = Array::adopt(BRArrayCreateMutable(nullptr, 0, &kBRTypeArrayCallBacks));
  for (BRTypeRef value : values) BRArrayAppendValue(array.get(), value);
  return array;
}

Dictionary mutableDictionary() {
  return Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, &kBRCopyStringDictionaryKeyCallBacks,
                                                     &kBRTypeDictionaryValueCallBacks));
}

Object deepCopy(BRTypeRef tree, BRAllocatorRef allocator = nullptr) {
  return Object::adopt(BRPropertyListCreateDeepCopy(allocator, tree));
}

BRTypeRef valueOf(const Object& dictionary, BRStringRef key) {
  return BRDictionaryGetValue(static_cast<BRDictionaryRef>(dictionary.get()), key);
}

// Everything that a property list may hold, mutable wherever that is possible.
struct Everything {
  Everything() {
    const int32_t number = 24;
    text = br::Ref<BRString>::adopt(BRStringCreateMutableCopy(nullptr, "before"_br));
    data = br::Ref<BRData>::adopt(BRDataCreateMutable(nullptr, 0));
    BRDataAppendBytes(data.get(), "bytes", 5);
    array = mutableArray({text.get(), kBRBooleanTrue, kBRNull});
    BRArrayAppendValue(array.get(),
                       Object::adopt(BRNumberCreate(nullptr, kBRNumberTypeSInt32, &number)).get());
    inner = mutableDictionary();
    BRDictionarySetValue(inner.get(), "array"_br, array.get());
    tree = mutableDictionary();
    BRDictionarySetValue(tree.get(), "text"_br, text.get());
    BRDictionarySetValue(tree.get(), "data"_br, data.get());
    BRDictionarySetValue(tree.get(), "inner"_br, inner.get());
    BRDictionarySetValue(tree.get(), "array"_br, array.get());
  }
  br::Ref<BRString> text;
  br::Ref<BRData> data;
  Array array;
  Dictionary inner, tree;
};

TEST(PropertyList, CopyEqualsTheTreeAndIsUntouchedByItsChanges) {
  FailingAllocator allocator;
  for (BRAllocatorRef used : {kBRAllocatorDefault, static_cast<BRAllocatorRef>(allocator)}) {
    Everything made;
    Object copy = deepCopy(made.tree.get(), used);
    EXPECT_TRUE(BREqual(copy.get(), made.tree.get()));
    BRStringAppend(made.text.get(), " after"_br);
    BRDataSetLength(made.data.get(), 1);
    BRArrayRemoveAllValues(made.array.get());
    BRDictionaryRemoveAllValues(made.inner.get());
    EXPECT_TRUE(BREqual(copy.get(), deepCopy(Everything().tree.get()).get()));
  }
}

TEST(PropertyList, CopyIsImmutableToTheLeavesAndSharedByItsCopies) {
  Object copy = deepCopy(Everything().tree.get());
  EXPECT_EQ(deepCopy(copy.get()).get(), copy.get());
  EXPECT_EQ(deepCopy("leaf"_br).get(), "leaf"_br);
  Object larger = deepCopy(mutableArray({copy.get()}).get());
  EXPECT_EQ(BRArrayGetValueAtIndex(static_cast<BRArrayRef>(larger.get()), 0), copy.get());
  auto* tree = static_cast<BRMutableDictionaryRef>(const_cast<void*>(copy.get()));
  auto* inner = static_cast<BRMutableDictionaryRef>(const_cast<void*>(valueOf(copy, "inner"_br)));
  auto* array = static_cast<BRMutableArrayRef>(const_cast<void*>(valueOf(copy, "array"_br)));
  EXPECT_FALSE(BRDictionarySetValue(tree, "more"_br, kBRNull));
  EXPECT_FALSE(BRDictionarySetValue(inner, "more"_br, kBRNull));
  EXPECT_FALSE(BRArrayAppendValue(array, kBRNull));
  auto* text = static_cast<BRMutableStringRef>(const_cast<void*>(valueOf(copy, "text"_br)));
  EXPECT_FALSE(BRStringAppend(text, "more"_br));
}

TEST(PropertyList, WhatCannotChangeIsShared) {
  FailingAllocator own;
  const BRAllocatorRef allocators[] = {nullptr, own};
  for (BRAllocatorRef used : allocators) {
    const double number = 2.5;
    auto word =
        br::Ref<const BRString>::adopt(BRStringCreateWithCString(used, "word", kBRStringEncodingUTF8));
    Object bytes = Object::adopt(BRDataCreate(used, "bytes", 5));
    Object count = Object::adopt(BRNumberCreate(nullptr, kBRNumberTypeFloat64, &number));
    const void *keys[] = {"a"_br, "b"_br, word.get()}, *leaves[] = {count.get(), bytes.get(), word.get()};
    Object inner = Object::adopt(BRDictionaryCreate(
        used, keys, leaves, 3, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
    const void* values[] = {"x"_br, inner.get()};
    Object frozen = Object::adopt(BRArrayCreate(used, values, 2, &kBRTypeArrayCallBacks));
    EXPECT_EQ(deepCopy(frozen.get(), used).get(), frozen.get());
    // beside something that may change it still is
    Array late = mutableArray({"y"_br});
    const void* mixed[] = {"x"_br, frozen.get(), late.get(), inner.get()};
    Object outer = Object::adopt(BRArrayCreate(used, mixed, 4, &kBRTypeArrayCallBacks));
    Object copy = deepCopy(outer.get(), used);
    ASSERT_TRUE(copy);
    EXPECT_NE(copy.get(), outer.get());
    EXPECT_TRUE(BREqual(copy.get(), outer.get()));
    auto at = [&](size_t i) { return BRArrayGetValueAtIndex(static_cast<BRArrayRef>(copy.get()), i); };
    EXPECT_EQ(at(1), frozen.get());
    EXPECT_NE(at(2), late.get());
    EXPECT_EQ(at(3), inner.get());
    // of another allocator, or holding without retaining: made anew
    EXPECT_NE(deepCopy(frozen.get(), used ? nullptr : static_cast<BRAllocatorRef>(own)).get(), frozen.get());
    const BRArrayCallBacks lent{0, nullptr, nullptr, nullptr, BREqual};
    Object loose = Object::adopt(BRArrayCreate(used, values, 1, &lent));
    Object kept = deepCopy(loose.get(), used);
    EXPECT_TRUE(kept);
    EXPECT_NE(kept.get(), loose.get());
  }
}

TEST(PropertyListThreads, OneTreeMayBeCopiedByMany) {
  const void* values[] = {"x"_br, "y"_br};
  Object frozen = Object::adopt(BRArrayCreate(nullptr, values, 2, &kBRTypeArrayCallBacks));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] { EXPECT_EQ(deepCopy(frozen.get()).get(), frozen.get()); });
  for (std::thread& thread : threads) thread.join();
}

struct Stranger : BRObject {
  static constexpr const char* className = "Stranger";
};

TEST(PropertyList, AnythingElseIsRefusedWhereverItStands) {
  Object stranger = Object::adopt(br::create<Stranger>(nullptr, 0));
  Object set = Object::adopt(BRSetCreate(nullptr, nullptr, 0, &kBRTypeSetCallBacks));
  Object loose = Object::adopt(BRArrayCreate(nullptr, nullptr, 0, nullptr));
  Object looseDictionary =
      Object::adopt(BRDictionaryCreateMutable(nullptr, 0, &kBRTypeDictionaryKeyCallBacks, nullptr));
  auto byNumber = Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, &kBRTypeDictionaryKeyCallBacks,
                                                              &kBRTypeDictionaryValueCallBacks));
  BRDictionarySetValue(byNumber.get(), kBRNull, kBRNull);
  for (BRTypeRef bad : {stranger.get(), set.get(), loose.get(), looseDictionary.get(),
                        static_cast<BRTypeRef>(byNumber.get()), static_cast<BRTypeRef>(nullptr)}) {
    EXPECT_EQ(deepCopy(bad).get(), nullptr);
    EXPECT_FALSE(BRPropertyListIsValid(bad));
    Everything made;
    EXPECT_TRUE(BRPropertyListIsValid(made.tree.get()));
    BRArrayAppendValue(made.array.get(), bad);
    EXPECT_EQ(deepCopy(made.tree.get()).get(), nullptr);
    EXPECT_FALSE(BRPropertyListIsValid(made.tree.get()));
  }
}

Array nested(int levels, BRTypeRef core = nullptr) {
  Array array = mutableArray();
  if (core) BRArrayAppendValue(array.get(), core);
  for (int i = 1; i < levels; ++i) array = mutableArray({array.get()});
  return array;
}

TEST(PropertyList, DepthIsBoundedAlsoThroughSharedCopies) {
  EXPECT_TRUE(deepCopy(nested(kBRPropertyListMaximumDepth).get()));
  EXPECT_FALSE(deepCopy(nested(kBRPropertyListMaximumDepth + 1).get()));
  EXPECT_FALSE(deepCopy(nested(20000).get()));
  EXPECT_TRUE(BRPropertyListIsValid(nested(kBRPropertyListMaximumDepth).get()));
  EXPECT_FALSE(BRPropertyListIsValid(nested(kBRPropertyListMaximumDepth + 1).get()));
  Object half = deepCopy(nested(300).get());
  EXPECT_TRUE(deepCopy(nested(212, half.get()).get()));
  EXPECT_FALSE(deepCopy(nested(213, half.get()).get()));
}

TEST(PropertyList, RunningOutOfMemoryLeaksNothing) {
  Everything made;
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    return deepCopy(made.tree.get(), allocator) ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  EXPECT_GT(requests, 6);
}

std::string describe(BRTypeRef object) {
  auto text = br::Ref<const BRString>::adopt(BRCopyDescription(object));
  return BRStringGetUTF8(text.get());
}

TEST(CollectionText, ShowsContentsInOrderAndIndented) {
  const int32_t rate = 48000;
  Dictionary dictionary = mutableDictionary();
  BRDictionarySetValue(dictionary.get(), "rate"_br,
                       Object::adopt(BRNumberCreate(nullptr, kBRNumberTypeSInt32, &rate)).get());
  const void* members[] = {"a"_br, "b"_br};
  Object set = Object::adopt(BRSetCreate(nullptr, members, 2, &kBRTypeSetCallBacks));
  BRDictionarySetValue(dictionary.get(), "marks"_br,
                       mutableArray({"x"_br, mutableArray().get(), set.get()}).get());
  EXPECT_EQ(describe(dictionary.get()),
            "{\n"
            "    rate = 48000;\n"
            "    marks = [\n"
            "        x,\n"
            "        [],\n"
            "        {\n"
            "            a,\n"
            "            b\n"
            "        }\n"
            "    ];\n"
            "}");
  const void* word = reinterpret_cast<const void*>(0x2a);
  EXPECT_EQ(describe(Object::adopt(BRArrayCreate(nullptr, &word, 1, nullptr)).get()), "[\n    0x2a\n]");
}

TEST(CollectionText, IsBoundedInDepthAndLength) {
  const std::string deep = describe(nested(1000).get());
  EXPECT_LT(deep.size(), 4000u);
  EXPECT_NE(deep.find("[… 1]"), std::string::npos);
  Array doubling = mutableArray({"x"_br});
  for (int i = 0; i < 60; ++i) doubling = mutableArray({doubling.get(), doubling.get()});
  EXPECT_LT(describe(doubling.get()).size(), 4u << 20);
  Array wide = mutableArray();
  for (int i = 0; i < 300000; ++i) BRArrayAppendValue(wide.get(), "element"_br);
  const std::string text = describe(wide.get());
  EXPECT_LT(text.size(), 1u << 20);
  EXPECT_EQ(text.substr(text.size() - 8), "0 more\n]");
  EXPECT_EQ(describe(mutableArray({"x"_br}).get()), "[\n    x\n]");
}

}  // namespace
