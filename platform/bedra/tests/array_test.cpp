#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using test::FailingAllocator;
using test::Outcome;

int livingFrames;

struct Frame : BRObject {
  static constexpr const char* className = "Frame";
  explicit Frame(int number) : number(number) { ++livingFrames; }
  ~Frame() { --livingFrames; }
  bool equals(const Frame& other) const { return number == other.number; }
  int number;
};

br::Ref<Frame> frame(int number) { return br::Ref<Frame>::adopt(br::create<Frame>(nullptr, 0, number)); }

br::Ref<BRArray> mutableArray(BRAllocatorRef allocator = nullptr, size_t capacity = 0) {
  return br::Ref<BRArray>::adopt(BRArrayCreateMutable(allocator, capacity, &kBRTypeArrayCallBacks));
}

std::vector<int> numbersOf(BRArrayRef array) {
  std::vector<const void*> values(BRArrayGetCount(array));
  BRArrayGetValues(array, values.data());
  std::vector<int> numbers;
  for (const void* value : values) numbers.push_back(static_cast<const Frame*>(value)->number);
  return numbers;
}

TEST(Array, BehavesAsAVectorUnderRandomChanges) {
  std::mt19937 random(7);
  {
    auto array = mutableArray();
    std::vector<int> model;
    for (int step = 0; step < 20000; ++step) {
      const int number = static_cast<int>(random() % 50);
      const size_t index = random() % (model.size() + 2);
      const auto value = frame(number);
      switch (random() % 4) {
        case 0:
          ASSERT_EQ(BRArrayInsertValueAtIndex(array.get(), index, value.get()), index <= model.size());
          if (index <= model.size()) model.insert(model.begin() + index, number);
          break;
        case 1:
          ASSERT_EQ(BRArraySetValueAtIndex(array.get(), index, value.get()), index <= model.size());
          if (index == model.size())
            model.push_back(number);
          else if (index < model.size())
            model[index] = number;
          break;
        case 2:
          ASSERT_EQ(BRArrayRemoveValueAtIndex(array.get(), index), index < model.size());
          if (index < model.size()) model.erase(model.begin() + index);
          break;
        case 3: {
          const auto place = std::find(model.begin(), model.end(), number);
          ASSERT_EQ(BRArrayGetFirstIndexOfValue(array.get(), value.get()),
                    place == model.end() ? SIZE_MAX : static_cast<size_t>(place - model.begin()));
        }
      }
      if (step % 101 == 0) {
        ASSERT_EQ(numbersOf(array.get()), model);
      }
    }
    ASSERT_EQ(numbersOf(array.get()), model);
    BRArrayRemoveAllValues(array.get());
    EXPECT_EQ(livingFrames, 0);
  }
}

TEST(Array, ImmutableOneIsOneBlockAndRefusesChanges) {
  FailingAllocator allocator;
  std::vector<br::Ref<Frame>> frames;
  std::vector<const void*> values;
  for (int i = 0; i < 100; ++i) values.push_back(frames.emplace_back(frame(i)).get());
  auto array = br::Ref<BRArray>::adopt(const_cast<BRMutableArrayRef>(
      BRArrayCreate(allocator, values.data(), values.size(), &kBRTypeArrayCallBacks)));
  EXPECT_EQ(allocator.requests(), 1);
  for (BRMutableArrayRef target : {array.get(), static_cast<BRMutableArrayRef>(nullptr)}) {
    EXPECT_FALSE(BRArrayAppendValue(target, values[0]));
    EXPECT_FALSE(BRArrayInsertValueAtIndex(target, 0, values[0]));
    EXPECT_FALSE(BRArraySetValueAtIndex(target, 0, values[1]));
    EXPECT_FALSE(BRArrayRemoveValueAtIndex(target, 0));
    BRArrayRemoveAllValues(target);
  }
  EXPECT_EQ(BRArrayGetCount(array.get()), 100u);
  EXPECT_EQ(BRArrayGetValueAtIndex(array.get(), 99), values[99]);
  EXPECT_EQ(BRArrayGetValueAtIndex(array.get(), 100), nullptr);
  EXPECT_EQ(BRArrayGetCount(nullptr), 0u);
  EXPECT_EQ(BRArrayCreate(nullptr, nullptr, 1, nullptr), nullptr);
  EXPECT_EQ(BRArrayCreateMutable(nullptr, SIZE_MAX, nullptr), nullptr);
  const BRArrayCallBacks later = {1, nullptr, nullptr, nullptr, nullptr};
  EXPECT_EQ(BRArrayCreate(nullptr, values.data(), 1, &later), nullptr);
}

TEST(Array, CopiesShareOnlyWhenNothingCanTellAndCompareByValue) {
  FailingAllocator allocator;
  auto source = mutableArray();
  BRArrayAppendValue(source.get(), frame(1).get());
  auto copy = br::Ref<const BRArray>::adopt(BRArrayCreateCopy(nullptr, source.get()));
  auto same = br::Ref<const BRArray>::adopt(BRArrayCreateCopy(nullptr, copy.get()));
  auto elsewhere = br::Ref<const BRArray>::adopt(BRArrayCreateCopy(allocator, copy.get()));
  EXPECT_EQ(same.get(), copy.get());
  EXPECT_NE(elsewhere.get(), copy.get());
  EXPECT_TRUE(BREqual(source.get(), elsewhere.get()));
  EXPECT_EQ(BRHash(source.get()), BRHash(elsewhere.get()));
  BRArraySetValueAtIndex(source.get(), 0, frame(2).get());
  EXPECT_EQ(numbersOf(copy.get()), std::vector<int>{1});
  EXPECT_FALSE(BREqual(source.get(), copy.get()));
  const void* value = BRArrayGetValueAtIndex(copy.get(), 0);
  auto unretained = br::Ref<const BRArray>::adopt(BRArrayCreate(nullptr, &value, 1, nullptr));
  EXPECT_FALSE(BREqual(unretained.get(), copy.get()));
  EXPECT_TRUE(BRArrayContainsValue(copy.get(), frame(1).get()));
  EXPECT_FALSE(BRArrayContainsValue(unretained.get(), frame(1).get()));
}

TEST(Array, EveryFailedRequestLeavesTheArrayAsItWas) {
  BRArrayCallBacks copying = kBRTypeArrayCallBacks;
  copying.retain = [](BRAllocatorRef allocator, const void* value) -> const void* {
    return br::create<Frame>(allocator, 0, static_cast<const Frame*>(value)->number);
  };
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    auto array = br::Ref<BRArray>::adopt(BRArrayCreateMutable(allocator, 0, &copying));
    if (!array) return Outcome::kOutOfMemory;
    std::vector<int> model;
    for (int i = 0; i < 9; ++i) {
      if (BRArrayInsertValueAtIndex(array.get(), 0, frame(i).get())) model.insert(model.begin(), i);
      EXPECT_EQ(numbersOf(array.get()), model);
    }
    if (model.size() < 9) return Outcome::kOutOfMemory;
    if (BRArraySetValueAtIndex(array.get(), 3, frame(30).get())) model[3] = 30;
    EXPECT_EQ(numbersOf(array.get()), model);
    if (model[3] != 30) return Outcome::kOutOfMemory;
    auto copy = br::Ref<const BRArray>::adopt(BRArrayCreateCopy(allocator, array.get()));
    auto changing = br::Ref<BRArray>::adopt(BRArrayCreateMutableCopy(allocator, array.get()));
    return copy && changing ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
  EXPECT_EQ(requests, 1 + 9 + 2 + 1 + 2 * 10);
  EXPECT_EQ(livingFrames, 0);
}

}  // namespace
