// Memory pools beside other ways to get a large block and give it back. An argument is the size in MiB. A few blocks
// are always in hand, as frames are on their way through a program.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <pevrin/memory_pool.h>
#include <bedra/runtime.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#if HAVE_AVUTIL
extern "C" {
#include <libavutil/buffer.h>
}
#endif

#include "bench/second_thread.hpp"

namespace {

constexpr size_t kInHand = 4, kPage = 4096;

struct Ours {
  using Block = void*;
  explicit Ours(size_t bytes) : size(bytes), pool(PVMemoryPoolCreate(nullptr)) {}
  ~Ours() { BRRelease(pool); }
  Block get() { return BRAllocatorAllocate(PVMemoryPoolGetAllocator(pool), size); }
  void put(Block block) { BRAllocatorDeallocate(PVMemoryPoolGetAllocator(pool), block); }
  static void* bytes(Block block) { return block; }
  size_t size;
  PVMemoryPoolRef pool;
};

struct Malloc {
  using Block = void*;
  explicit Malloc(size_t bytes) : size(bytes) {}
  Block get() { return std::malloc(size); }
  void put(Block block) { std::free(block); }
  static void* bytes(Block block) { return block; }
  size_t size;
};

struct Mapping {
  using Block = void*;
  explicit Mapping(size_t bytes) : size(bytes) {}
  Block get() { return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0); }
  void put(Block block) { munmap(block, size); }
  static void* bytes(Block block) { return block; }
  size_t size;
};

// One size, one thread, nothing ever given back.
struct FreeList {
  using Block = void*;
  explicit FreeList(size_t bytes) : mapping(bytes) {}
  ~FreeList() {
    for (Block block : free) mapping.put(block);
  }
  Block get() {
    if (free.empty()) return mapping.get();
    Block block = free.back();
    free.pop_back();
    return block;
  }
  void put(Block block) { free.push_back(block); }
  static void* bytes(Block block) { return block; }
  Mapping mapping;
  std::vector<Block> free;
};

#if HAVE_AVUTIL
struct AVPool {
  using Block = AVBufferRef*;
  explicit AVPool(size_t bytes) : pool(av_buffer_pool_init(bytes, nullptr)) {}
  ~AVPool() { av_buffer_pool_uninit(&pool); }
  Block get() { return av_buffer_pool_get(pool); }
  void put(Block block) { av_buffer_unref(&block); }
  static void* bytes(Block block) { return block->data; }
  AVBufferPool* pool;
};
#endif

#ifdef MIMALLOC_LIBRARY
// Loaded, not linked: linked it would take the place of everybody's malloc.
struct Mimalloc {
  using Block = void*;
  explicit Mimalloc(size_t bytes) : size(bytes) {}
  Block get() { return allocate(size); }
  void put(Block block) { release(block); }
  static void* bytes(Block block) { return block; }
  size_t size;

  inline static void* const library = dlopen(MIMALLOC_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  inline static void* (*const allocate)(size_t) = reinterpret_cast<void* (*)(size_t)>(dlsym(library, "mi_malloc"));
  inline static void (*const release)(void*) = reinterpret_cast<void (*)(void*)>(dlsym(library, "mi_free"));
};
#endif

template <class Source>
void getAndPut(benchmark::State& state, bool isWritten) {
  const size_t size = static_cast<size_t>(state.range(0)) << 20;
  Source source(size);
  typename Source::Block inHand[kInHand];
  for (auto& block : inHand) std::memset(Source::bytes(block = source.get()), 1, size);
  size_t next = 0;
  for (auto _ : state) {
    auto& block = inHand[next++ % kInHand];
    source.put(block);
    block = source.get();
    auto* bytes = static_cast<volatile char*>(Source::bytes(block));
    for (size_t i = 0; isWritten && i < size; i += kPage) bytes[i] = 1;
    benchmark::DoNotOptimize(block);
  }
  for (auto& block : inHand) source.put(block);
}

template <class Source>
void bare(benchmark::State& state) {
  getAndPut<Source>(state, false);
}
template <class Source>
void written(benchmark::State& state) {
  getAndPut<Source>(state, true);
}

void atSizes(benchmark::internal::Benchmark* bench) { bench->Arg(1)->Arg(3)->Arg(8); }

#define BOTH(Source, row)                                           \
  BENCHMARK(bare<Source>)->Name("PoolGetPut/" row)->Apply(atSizes); \
  BENCHMARK(written<Source>)->Name("PoolWritten/" row)->Apply(atSizes)

BOTH(Ours, "Ours");
BOTH(Malloc, "Peer:malloc");
BOTH(Mapping, "Plain:mmap");
BOTH(FreeList, "Plain:free list");
#if HAVE_AVUTIL
BOTH(AVPool, "Peer:AVBufferPool");
#endif
#ifdef MIMALLOC_LIBRARY
BOTH(Mimalloc, "Peer:mimalloc");
#endif

}  // namespace
