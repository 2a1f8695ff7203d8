// A pool's own records come from malloc, which this stands in for to fail one request of this thread.
// Sanitizers do that themselves: their builds have no such test.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED 1
#endif
#endif
#ifndef SANITIZED

#include <bedra/runtime.h>
#include <gtest/gtest.h>
#include <kiv/error.h>
#include <kiv/memory_pool.h>

extern "C" void* __libc_malloc(size_t size);

namespace {
thread_local int requestsUntilFailure = 0;
}

extern "C" __attribute__((visibility("default"))) void* malloc(size_t size) noexcept {
  return requestsUntilFailure > 0 && --requestsUntilFailure == 0 ? nullptr : __libc_malloc(size);
}

namespace {

TEST(MemoryPoolAllocations, APoolThatCannotBeMadeIsNullAndSignalled) {
  BRRelease(PVMemoryPoolCreate(nullptr));  // registers the type
  for (int request = 1; request <= 3; ++request) {
    const uint64_t before = KivGetErrorCount();
    requestsUntilFailure = request;
    PVMemoryPoolRef pool = PVMemoryPoolCreate(nullptr);
    requestsUntilFailure = 0;
    EXPECT_EQ(pool, nullptr) << "request " << request;
    EXPECT_EQ(KivGetErrorCount(), before + 1);
    BRRelease(pool);
  }
  requestsUntilFailure = 4;
  PVMemoryPoolRef pool = PVMemoryPoolCreate(nullptr);
  EXPECT_EQ(requestsUntilFailure, 1) << "three requests make a pool";
  requestsUntilFailure = 1;
  EXPECT_EQ(BRAllocatorAllocate(PVMemoryPoolGetAllocator(pool), 1), nullptr);
  void* block = BRAllocatorAllocate(PVMemoryPoolGetAllocator(pool), 1);
  EXPECT_NE(block, nullptr);
  BRAllocatorDeallocate(PVMemoryPoolGetAllocator(pool), block);
  BRRelease(pool);
}

}  // namespace

#endif
#endif
