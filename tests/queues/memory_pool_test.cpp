#include <kiv/error.h>
#include <kiv/memory_pool.h>
#include <pevrin/base_object.h>
#include <pevrin/block_buffer.h>
#include <chrono>

#include "tests/support/objects.hpp"

namespace {

using namespace br::literals;
using Pool = br::Ref<PVMemoryPool>;

constexpr size_t kMiB = 1 << 20;

Pool makePool(BRTypeRef ageOut) {
  const auto options = test::dictionary({{kPVMemoryPoolOption_AgeOutPeriod, ageOut}});
  return Pool::adopt(PVMemoryPoolCreate(options.get()));
}
// No block is ever due, however slow the machine.
Pool makePool() { return makePool(test::number(INFINITY).get()); }

BRAllocatorRef allocatorOf(const Pool& pool) { return PVMemoryPoolGetAllocator(pool.get()); }
char* allocate(const Pool& pool, size_t size) {
  return static_cast<char*>(BRAllocatorAllocate(allocatorOf(pool), size));
}
void deallocate(const Pool& pool, void* block) { BRAllocatorDeallocate(allocatorOf(pool), block); }

KivMemoryPoolStatistics statisticsOf(const Pool& pool) {
  KivMemoryPoolStatistics statistics{};
  EXPECT_EQ(KivMemoryPoolGetStatistics(pool.get(), &statistics), 0);
  return statistics;
}

TEST(MemoryPoolTest, ReusesTheBlockFreedLastOfExactlyTheRoundedSize) {
  const Pool pool = makePool();
  char *first = allocate(pool, 3 * kMiB), *second = allocate(pool, 3 * kMiB - 4000),
       *small = allocate(pool, 1);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 4096, 0u);
  EXPECT_EQ(std::string(small, 4096), std::string(4096, '\0'));
  EXPECT_EQ(statisticsOf(pool).bytesInUse, 6 * kMiB + 4096);
  for (char* block : {first, second, small}) deallocate(pool, block);
  EXPECT_EQ(statisticsOf(pool).bytesForReuse, 6 * kMiB + 4096);

  EXPECT_EQ(allocate(pool, 3 * kMiB), second);
  EXPECT_EQ(allocate(pool, 3 * kMiB), first);
  char* between = allocate(pool, 2 * kMiB);
  EXPECT_EQ(allocate(pool, 4096), small);
  const auto now = statisticsOf(pool);
  EXPECT_EQ(now.blocksInUse, 4u);
  EXPECT_EQ(now.blocksForReuse, 0u);
  EXPECT_EQ(now.reuses, 3u);
  EXPECT_EQ(now.systemAllocations, 4u);
  EXPECT_EQ(now.systemReleases, 0u);
  for (char* block : {first, second, between, small}) deallocate(pool, block);
}

TEST(MemoryPoolTest, TheAgeOutPeriodIsHalfASecondUnlessAPositiveNumberIsGiven) {
  const auto zero = test::number(0), negative = test::number(-1), nan = test::number(NAN);
  std::vector<Pool> pools{Pool::adopt(PVMemoryPoolCreate(nullptr))};
  for (BRTypeRef odd : std::initializer_list<BRTypeRef>{zero.get(), negative.get(), nan.get(),
                                                        "0.0000000001"_br, kBRBooleanTrue})
    pools.push_back(makePool(odd));
  for (const Pool& pool : pools) {
    deallocate(pool, allocate(pool, kMiB));
    EXPECT_EQ(statisticsOf(pool).blocksForReuse, 1u);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(505));
  for (const Pool& pool : pools) {
    EXPECT_EQ(statisticsOf(pool).blocksForReuse, 1u) << "asking changes nothing";
    deallocate(pool, allocate(pool, 4096));
    EXPECT_EQ(statisticsOf(pool).systemReleases, 1u);
  }
  const auto instant = test::number(1e-10);  // cut to whole nanoseconds: due as soon as it is free
  const Pool pool = makePool(instant.get());
  deallocate(pool, allocate(pool, kMiB));
  EXPECT_EQ(statisticsOf(pool).systemReleases, 1u);
}

TEST(MemoryPoolTest, FlushReturnsWhatWaitsAndInvalidationEndsReuse) {
  const Pool pool = makePool();
  char *first = allocate(pool, kMiB), *second = allocate(pool, kMiB), *third = allocate(pool, kMiB);
  deallocate(pool, first);
  PVMemoryPoolFlush(pool.get());
  EXPECT_EQ(statisticsOf(pool).systemReleases, 1u);
  deallocate(pool, second);
  EXPECT_EQ(statisticsOf(pool).blocksForReuse, 1u) << "a flushed pool recycles on";
  PVMemoryPoolInvalidate(pool.get());
  EXPECT_EQ(statisticsOf(pool).systemReleases, 2u);
  deallocate(pool, third);
  deallocate(pool, allocate(pool, kMiB));
  PVMemoryPoolFlush(pool.get());
  PVMemoryPoolInvalidate(pool.get());
  const auto now = statisticsOf(pool);
  EXPECT_EQ(now.systemReleases, 4u);
  EXPECT_EQ(now.reuses + now.blocksInUse + now.blocksForReuse + now.bytesInUse + now.bytesForReuse, 0u);
}

TEST(MemoryPoolTest, ReallocatingMovesTheBytesAndAFailureLeavesTheOldBlock) {
  const Pool pool = makePool();
  char* block = allocate(pool, 3 * 4096);
  std::memset(block, 'a', 3 * 4096);
  char* grown = static_cast<char*>(BRAllocatorReallocate(allocatorOf(pool), block, 5 * 4096));
  EXPECT_EQ(std::string(grown, 3 * 4096), std::string(3 * 4096, 'a'));
  EXPECT_EQ(BRAllocatorReallocate(allocatorOf(pool), grown, SIZE_MAX), nullptr);
  EXPECT_EQ(statisticsOf(pool).blocksInUse, 1u);
  char* shrunk = static_cast<char*>(BRAllocatorReallocate(allocatorOf(pool), grown, 3 * 4096));
  EXPECT_EQ(shrunk, block) << "the block that was freed when it grew";
  EXPECT_EQ(shrunk[3 * 4096 - 1], 'a');
  char stranger = 0;
  EXPECT_EQ(BRAllocatorReallocate(allocatorOf(pool), &stranger, 4096), nullptr);
  for (void* ignored : {static_cast<void*>(&stranger), static_cast<void*>(shrunk + 4096)})
    deallocate(pool, ignored);
  EXPECT_EQ(statisticsOf(pool).blocksInUse, 1u);
  deallocate(pool, shrunk);
}

TEST(MemoryPoolTest, TheAllocatorOutlivesItsPoolForWhoeverKeepsIt) {
  PVBlockBufferRef frame = nullptr;
  br::Ref<const BRData> object;
  br::Ref<const BRAllocator> kept;
  {
    const Pool pool = makePool();
    kept = br::Ref<const BRAllocator>::retain(allocatorOf(pool));
    ASSERT_EQ(PVBlockBufferCreateWithMemoryBlock(kept.get(), nullptr, kMiB, kept.get(), nullptr, 0, kMiB,
                                                 kPVBlockBufferAssureMemoryNowFlag, &frame),
              0);
    object = br::Ref<const BRData>::adopt(BRDataCreate(kept.get(), "reel", 4));
    EXPECT_EQ(statisticsOf(pool).blocksInUse, 3u);
  }
  EXPECT_EQ(PVBlockBufferFillDataBytes('x', frame, 0, 0), 0);
  EXPECT_EQ(std::memcmp(BRDataGetBytePtr(object.get()), "reel", 4), 0);
  BRRelease(frame);
  object = nullptr;
  BRAllocatorDeallocate(kept.get(), BRAllocatorAllocate(kept.get(), kMiB));
  EXPECT_EQ(BRGetRetainCount(kept.get()), 1u);
}

TEST(MemoryPoolTest, BlocksInUseKeepTheAllocatorWhenNobodyElseDoes) {
  Pool pool = makePool();
  BRAllocatorRef allocator = allocatorOf(pool);
  char *first = allocate(pool, kMiB), *second = allocate(pool, kMiB);
  EXPECT_EQ(BRGetRetainCount(allocator), 1u);
  pool = nullptr;
  BRAllocatorDeallocate(allocator, first);
  second[kMiB - 1] = 1;
  second = static_cast<char*>(BRAllocatorReallocate(allocator, second, 2 * kMiB));
  EXPECT_EQ(second[kMiB - 1], 1);
  EXPECT_EQ(BRGetRetainCount(allocator), 1u);
  BRAllocatorDeallocate(allocator, second);  // the allocator has gone with it
}

TEST(MemoryPoolTest, DescriptionsAndNull) {
  const Pool pool = makePool();
  char* block = allocate(pool, 1);
  deallocate(pool, allocate(pool, 2 * 4096));
  const auto textOf = [](BRStringRef made) {
    const auto text = br::Ref<const BRString>::adopt(made);
    return std::string(BRStringGetUTF8(text.get()));
  };
  char start[200];
  std::snprintf(start, sizeof start, "[KivMemoryPool %p]", static_cast<void*>(pool.get()));
  EXPECT_EQ(textOf(BRCopyDescription(pool.get())), start);
  EXPECT_EQ(textOf(BRCopyDescription(allocatorOf(pool))), "KivMemoryPoolAllocator");
  EXPECT_STREQ(BRTypeGetName(PVMemoryPoolGetTypeID()), "KivMemoryPool");
  std::snprintf(start, sizeof start,
                "KivMemoryPool %p retainCount: 1 recyclingEnabled poolingAllocator: %p blocksInUse: ",
                static_cast<void*>(pool.get()), static_cast<const void*>(allocatorOf(pool)));
  const std::string enabled = textOf(BRCopyDebugDescription(pool.get()));
  EXPECT_EQ(enabled.substr(0, std::strlen(start)), start);
  std::snprintf(start, sizeof start, " { %p: 4096 } blocksForReuse: 0x", static_cast<void*>(block));
  EXPECT_NE(enabled.find(start), std::string::npos) << enabled;
  EXPECT_EQ(enabled.substr(enabled.size() - 8), ": 8192 )");
  PVMemoryPoolInvalidate(pool.get());
  EXPECT_NE(textOf(BRCopyDebugDescription(pool.get())).find(" recyclingDisabled "), std::string::npos);
  deallocate(pool, block);

  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(PVMemoryPoolGetAllocator(nullptr), nullptr);
  PVMemoryPoolFlush(nullptr);
  PVMemoryPoolInvalidate(nullptr);
  KivMemoryPoolStatistics statistics;
  EXPECT_EQ(KivMemoryPoolGetStatistics(nullptr, &statistics), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivMemoryPoolGetStatistics(pool.get(), nullptr), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivGetErrorCount(), before + 5);
}

// Allocates, marks, hands to nobody else and frees, with up to eight blocks in hand; the marks must stand.
void useBlocks(BRAllocatorRef allocator, uint8_t mark, std::atomic<int>& damaged, std::atomic<int>& steps) {
  struct Block {
    uint8_t* bytes = nullptr;
    size_t size = 0;
  } blocks[8];
  uint32_t random = mark;
  for (int step = 0; step < 4000; ++step, ++steps) {
    random = random * 1664525 + 1013904223;
    Block& block = blocks[random >> 29];
    if (block.bytes) {
      if (block.bytes[0] != mark || block.bytes[block.size - 1] != mark) ++damaged;
      BRAllocatorDeallocate(allocator, block.bytes);
    }
    block.size = (1 + (random >> 16) % 4) * 8192;
    block.bytes = static_cast<uint8_t*>(BRAllocatorAllocate(allocator, block.size));
    block.bytes[0] = block.bytes[block.size - 1] = mark;
  }
  for (Block& block : blocks) BRAllocatorDeallocate(allocator, block.bytes);
}

TEST(MemoryPoolThreadsTest, BlocksAreNobodyElsesWhileAgeOutFlushAndTheEndOfThePoolGoOn) {
  const auto period = test::number(2e-5);
  Pool pool = makePool(period.get());
  const auto allocator = br::Ref<const BRAllocator>::retain(allocatorOf(pool));
  std::atomic<int> damaged{0}, steps{0};
  std::vector<std::thread> threads;
  for (uint8_t mark = 1; mark <= 4; ++mark)
    threads.emplace_back([&, mark] { useBlocks(allocator.get(), mark, damaged, steps); });
  while (steps < 6000) {
    PVMemoryPoolFlush(pool.get());
    const auto now = statisticsOf(pool);
    EXPECT_EQ(now.systemAllocations - now.systemReleases, now.blocksInUse + now.blocksForReuse);
    std::this_thread::yield();
  }
  const auto last = statisticsOf(pool);
  EXPECT_GT(last.reuses, 0u);
  EXPECT_GT(last.systemReleases, 0u);
  PVMemoryPoolInvalidate(pool.get());
  while (steps < 9000) std::this_thread::yield();
  pool = nullptr;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(damaged, 0);
  EXPECT_EQ(BRGetRetainCount(allocator.get()), 1u);
}

}  // namespace
