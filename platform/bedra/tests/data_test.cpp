// Data: the three ways to hold bytes, their equality, growth, and who gives the bytes back.
#include "tests/support/test.hpp"

namespace {

using Data = br::Ref<const BRData>;
using MutableData = br::Ref<BRData>;
using test::Outcome;

std::string_view bytesOf(BRDataRef data) {
  return {reinterpret_cast<const char*>(BRDataGetBytePtr(data)), BRDataGetLength(data)};
}

std::string describe(std::string_view bytes) {
  Data data = Data::adopt(BRDataCreate(nullptr, bytes.data(), bytes.size()));
  auto text = br::Ref<const BRString>::adopt(BRCopyDescription(data.get()));
  return BRStringGetUTF8(text.get());
}

TEST(Data, SameBytesAreEqualHoweverTheyAreHeld) {
  for (size_t length : {0u, 1u, 15u, 16u, 511u, 512u, 513u, 4000u}) {
    std::string bytes(length, 'x');
    Data inlined = Data::adopt(BRDataCreate(nullptr, bytes.data(), length));
    Data lent = Data::adopt(BRDataCreateWithBytesNoCopy(nullptr, bytes.data(), length, kBRAllocatorNull));
    MutableData changing = MutableData::adopt(BRDataCreateMutableCopy(nullptr, inlined.get()));
    EXPECT_EQ(bytesOf(inlined.get()), bytes);
    EXPECT_EQ(bytesOf(changing.get()), bytes);
    EXPECT_EQ(BRDataGetBytePtr(lent.get()), reinterpret_cast<const uint8_t*>(bytes.data()));
    for (BRDataRef other : {lent.get(), BRDataRef(changing.get())}) {
      EXPECT_TRUE(BREqual(inlined.get(), other));
      EXPECT_EQ(BRHash(inlined.get()), BRHash(other));
    }
    EXPECT_EQ(reinterpret_cast<uintptr_t>(BRDataGetBytePtr(inlined.get())) % 16, 0u);
    if (length == 0) continue;
    BRDataGetMutableBytePtr(changing.get())[length - 1] = 'y';
    EXPECT_FALSE(BREqual(inlined.get(), changing.get()));
    EXPECT_NE(BRHash(inlined.get()), BRHash(changing.get()));
  }
}

TEST(Data, NoCopyBytesGoBackToTheirAllocatorOnce) {
  test::FailingAllocator bytesAllocator, objectAllocator;
  void* bytes = BRAllocatorAllocate(bytesAllocator, 100);
  std::memset(bytes, 7, 100);
  objectAllocator.failRequest(1);
  EXPECT_EQ(BRDataCreateWithBytesNoCopy(objectAllocator, bytes, 100, bytesAllocator), nullptr);
  EXPECT_EQ(bytesAllocator.liveBlocks(), 1) << "a failed creation leaves the bytes to the caller";
  Data data = Data::adopt(BRDataCreateWithBytesNoCopy(objectAllocator, bytes, 100, bytesAllocator));
  Data copy = Data::adopt(BRDataCreateCopy(objectAllocator, data.get()));
  EXPECT_NE(copy.get(), data.get()) << "a copy must not depend on lent bytes";
  data = nullptr;
  EXPECT_EQ(bytesAllocator.liveBlocks(), 0);
  EXPECT_EQ(bytesOf(copy.get()), std::string(100, '\7'));
  void* block = std::malloc(8);
  Data::adopt(BRDataCreateWithBytesNoCopy(nullptr, block, 8, nullptr));  // freed: the leak checker would tell
}

TEST(Data, CopiesShareOnlyWhatCannotChange) {
  test::FailingAllocator other;
  Data data = Data::adopt(BRDataCreate(nullptr, "abc", 3));
  EXPECT_EQ(Data::adopt(BRDataCreateCopy(kBRAllocatorSystem, data.get())).get(), data.get());
  EXPECT_NE(Data::adopt(BRDataCreateCopy(other, data.get())).get(), data.get());
  MutableData changing = MutableData::adopt(BRDataCreateMutableCopy(other, data.get()));
  Data snapshot = Data::adopt(BRDataCreateCopy(other, changing.get()));
  BRDataGetMutableBytePtr(changing.get())[0] = 'X';
  EXPECT_EQ(bytesOf(snapshot.get()), "abc");
}

TEST(Data, RandomGrowthAndCutsMatchAString) {
  std::mt19937 random(5);
  test::FailingAllocator allocator;
  MutableData data = MutableData::adopt(BRDataCreateMutable(allocator, 0));
  std::string model;
  for (int step = 0; step < 3000; ++step) {
    const size_t length = random() % 50;
    switch (random() % 4) {
      case 0:
        ASSERT_TRUE(BRDataSetLength(data.get(), length * 20));
        model.resize(length * 20);
        break;
      case 1: {  // its own bytes
        const size_t from = random() % (model.size() + 1), count = std::min(length, model.size() - from);
        ASSERT_TRUE(BRDataAppendBytes(data.get(), BRDataGetBytePtr(data.get()) + from, count));
        model += std::string(model, from, count);
        break;
      }
      default: {
        const std::string bytes(length, static_cast<char>(step));
        ASSERT_TRUE(BRDataAppendBytes(data.get(), bytes.data(), length));
        model += bytes;
      }
    }
    ASSERT_EQ(bytesOf(data.get()), model);
  }
}

TEST(Data, BadArgumentsAreRefusedAndNullReadsAsEmpty) {
  Data data = Data::adopt(BRDataCreate(nullptr, "abc", 3));
  auto immutable = const_cast<BRMutableDataRef>(data.get());
  EXPECT_EQ(BRDataGetMutableBytePtr(immutable), nullptr);
  EXPECT_FALSE(BRDataAppendBytes(immutable, "x", 1));
  EXPECT_FALSE(BRDataSetLength(immutable, 0));
  EXPECT_EQ(BRDataCreate(nullptr, nullptr, 1), nullptr);
  EXPECT_EQ(BRDataCreate(nullptr, "x", SIZE_MAX), nullptr);
  EXPECT_EQ(BRDataCreateWithBytesNoCopy(nullptr, nullptr, 1, nullptr), nullptr);
  EXPECT_EQ(BRDataCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRDataCreateMutableCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRDataGetLength(nullptr), 0u);
  EXPECT_EQ(BRDataGetBytePtr(nullptr), nullptr);
  MutableData changing = MutableData::adopt(BRDataCreateMutableCopy(nullptr, data.get()));
  EXPECT_FALSE(BRDataAppendBytes(changing.get(), nullptr, 1));
  EXPECT_FALSE(BRDataAppendBytes(changing.get(), "x", SIZE_MAX - 1));
  EXPECT_FALSE(BRDataSetLength(changing.get(), SIZE_MAX));
  EXPECT_EQ(bytesOf(changing.get()), "abc");
}

TEST(Data, DescriptionIsBounded) {
  EXPECT_EQ(describe(""), "<0 bytes: >");
  EXPECT_EQ(describe("\x01\xFFz"), "<3 bytes: 01ff7a>");
  EXPECT_EQ(describe(std::string(32, 'a')),
            "<32 bytes: " + std::string("6161616161616161616161616161616161616161616161616161616161616161>"));
  EXPECT_EQ(describe(std::string(33, 'a')),
            "<33 bytes: 6161616161616161616161616161616161616161616161616161616161616161…>");
}

TEST(Data, RunningOutOfMemoryMakesNothingAndChangesNothing) {
  const std::string bytes(100, 'b');
  EXPECT_EQ(test::walkAllocationFailures([&](BRAllocatorRef allocator) {
              Data data = Data::adopt(BRDataCreate(allocator, bytes.data(), bytes.size()));
              return data ? Outcome::kSucceeded : Outcome::kOutOfMemory;
            }),
            1);
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    MutableData data = MutableData::adopt(BRDataCreateMutable(allocator, 10));
    if (!data) return Outcome::kOutOfMemory;
    bool all = BRDataAppendBytes(data.get(), "0123456789", 10);
    const bool appended = BRDataAppendBytes(data.get(), bytes.data(), bytes.size());
    EXPECT_EQ(bytesOf(data.get()), appended ? "0123456789" + bytes : "0123456789");
    const size_t length = BRDataGetLength(data.get());
    all = BRDataSetLength(data.get(), 5000) && appended && all;
    EXPECT_EQ(BRDataGetLength(data.get()), all || BRDataGetLength(data.get()) == 5000 ? 5000 : length);
    return all ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

}  // namespace
