#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using test::Outcome;

const void* word(uintptr_t number) { return reinterpret_cast<const void*>(number); }

TEST(Set, BehavesAsValuesInOrderOfAdditionUnderRandomChanges) {
  for (int keySpace : {9, 200}) {
    std::mt19937 random(keySpace);
    auto set = br::Ref<BRSet>::adopt(BRSetCreateMutable(nullptr, 0, nullptr));
    std::vector<const void*> model;
    for (int step = 0; step < 20000; ++step) {
      const void* value = word(random() % keySpace);
      const auto place = std::find(model.begin(), model.end(), value);
      const bool there = place != model.end();
      ASSERT_EQ(BRSetContainsValue(set.get(), value), there);
      if (random() % 2) {
        ASSERT_EQ(BRSetAddValue(set.get(), value), !there);
        if (!there) model.push_back(value);
      } else {
        ASSERT_EQ(BRSetRemoveValue(set.get(), value), there);
        if (there) model.erase(place);
      }
      if (step % 101) continue;
      std::vector<const void*> values(BRSetGetCount(set.get()));
      BRSetGetValues(set.get(), values.data());
      ASSERT_EQ(values, model);
    }
    auto copy = br::Ref<const BRSet>::adopt(BRSetCreateCopy(nullptr, set.get()));
    EXPECT_TRUE(BREqual(copy.get(), set.get()));
    EXPECT_EQ(BRHash(copy.get()), BRHash(set.get()));
    BRSetRemoveAllValues(set.get());
    EXPECT_EQ(BRSetGetCount(set.get()), 0u);
    EXPECT_EQ(BRSetGetCount(copy.get()), model.size());
  }
}

TEST(Set, HoldsTheFirstOfEqualObjectsAndAnswersWithIt) {
  auto other = br::Ref<const BRString>::adopt(BRStringCreateWithCString(nullptr, "a", kBRStringEncodingUTF8));
  const void* values[] = {"a"_br, other.get(), "b"_br};
  auto set = br::Ref<const BRSet>::adopt(BRSetCreate(nullptr, values, 3, &kBRTypeSetCallBacks));
  EXPECT_EQ(BRSetGetCount(set.get()), 2u);
  EXPECT_EQ(BRSetGetValue(set.get(), other.get()), "a"_br);
  EXPECT_EQ(BRSetGetValue(set.get(), "c"_br), nullptr);
  EXPECT_EQ(BRGetRetainCount(other.get()), 1u);
  std::vector<const void*> seen;
  BRSetApply(
      set.get(), [](const void* value, void* out) { static_cast<decltype(seen)*>(out)->push_back(value); },
      &seen);
  EXPECT_EQ(seen, (std::vector<const void*>{"a"_br, "b"_br}));
  EXPECT_FALSE(BRSetAddValue(const_cast<BRMutableSetRef>(set.get()), "c"_br));
  EXPECT_FALSE(BRSetRemoveValue(const_cast<BRMutableSetRef>(set.get()), "a"_br));
}

TEST(Set, EveryFailedRequestLeavesTheSetAsItWas) {
  const int requests = test::walkAllocationFailures([](BRAllocatorRef allocator) {
    auto set = br::Ref<BRSet>::adopt(BRSetCreateMutable(allocator, 0, &kBRTypeSetCallBacks));
    if (!set) return Outcome::kOutOfMemory;
    for (int i = 0; i < 40; ++i) {
      auto text = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(nullptr, "%d", i));
      if (BRSetAddValue(set.get(), text.get())) continue;
      EXPECT_EQ(BRSetGetCount(set.get()), static_cast<size_t>(i));
      EXPECT_FALSE(BRSetContainsValue(set.get(), text.get()));
      EXPECT_TRUE(BRSetContainsValue(set.get(), "0"_br));
      return Outcome::kOutOfMemory;
    }
    auto copy = br::Ref<BRSet>::adopt(BRSetCreateMutableCopy(allocator, set.get()));
    return copy ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
  EXPECT_EQ(requests, 1 + 4 + 2);  // the set, growth to 8, 16, 32 and 64, the copy and its table
}

}  // namespace
