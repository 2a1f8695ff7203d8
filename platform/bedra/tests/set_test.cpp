#include <bedra/bedra.h>
#include <gtest/gtest.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <algorithm>
#include <random>
#include <vector>

namespace {

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

}  // namespace
