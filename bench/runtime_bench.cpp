// What an object costs: a reference taken and dropped, and a life from creation to the last release.
#include <bedra/allocator.h>
#include <bedra/runtime.h>
#include <benchmark/benchmark.h>
#include <bedra/object.hpp>

#include <cstdlib>
#include <memory>

#if HAVE_GLIB
#include <glib-object.h>
#endif

#include "bench/second_thread.hpp"

namespace {

struct Reel : BRObject {
  static constexpr const char* className = "Reel";
  explicit Reel(int64_t frames) : frames(frames) {}
  int64_t frames;
};

struct PlainReel {
  explicit PlainReel(int64_t frames) : frames(frames) {}
  char header[16];
  int64_t frames;
};

#if HAVE_GLIB
struct GReel {
  GObject parent;
  int64_t frames;
};
struct GReelClass {
  GObjectClass parent;
};
G_DEFINE_TYPE(GReel, g_reel, G_TYPE_OBJECT)
void g_reel_class_init(GReelClass*) {}
void g_reel_init(GReel*) {}

GReel* makeGReel(int64_t frames) {
  auto* reel = static_cast<GReel*>(g_object_new(g_reel_get_type(), nullptr));
  reel->frames = frames;
  return reel;
}
#endif

constexpr size_t kObjects = 64;

// Takes and drops a reference to each of a few objects in turn.
template <class Make, class Retain, class Release>
void retainRelease(benchmark::State& state, Make make, Retain retain, Release release) {
  decltype(make(0)) objects[kObjects];
  for (size_t i = 0; i < kObjects; ++i) objects[i] = make(static_cast<int64_t>(i));
  size_t i = 0;
  for (auto _ : state) {
    auto* object = objects[i++ % kObjects];
    retain(object);
    benchmark::DoNotOptimize(object);
    release(object);
  }
  for (auto* object : objects) release(object);
}

void retainReleaseOurs(benchmark::State& state) {
  retainRelease(
      state, [](int64_t n) { return br::create<Reel>(nullptr, 0, n); }, [](Reel* r) { BRRetain(r); },
      [](Reel* r) { BRRelease(r); });
}
BENCHMARK(retainReleaseOurs)->Name("RetainRelease/Ours");

#if HAVE_GLIB
void retainReleaseGObject(benchmark::State& state) {
  retainRelease(
      state, makeGReel, [](GReel* r) { g_object_ref(r); }, [](GReel* r) { g_object_unref(r); });
}
BENCHMARK(retainReleaseGObject)->Name("RetainRelease/Peer:GObject");
#endif

void retainReleaseSharedPtr(benchmark::State& state) {
  std::shared_ptr<PlainReel> objects[kObjects];
  for (size_t i = 0; i < kObjects; ++i) objects[i] = std::make_shared<PlainReel>(static_cast<int64_t>(i));
  size_t i = 0;
  for (auto _ : state) {
    std::shared_ptr<PlainReel> object = objects[i++ % kObjects];
    benchmark::DoNotOptimize(object);
  }
}
BENCHMARK(retainReleaseSharedPtr)->Name("RetainRelease/Plain:shared_ptr copy");

template <class Make, class Release>
void createRelease(benchmark::State& state, Make make, Release release) {
  int64_t i = 0;
  for (auto _ : state) {
    auto object = make(++i);
    benchmark::DoNotOptimize(object);
    release(object);
  }
}

void createReleaseOurs(benchmark::State& state) {
  createRelease(
      state, [](int64_t n) { return br::create<Reel>(nullptr, 0, n); }, [](Reel* r) { BRRelease(r); });
}
BENCHMARK(createReleaseOurs)->Name("ObjectCreateRelease/Ours");

#if HAVE_GLIB
void createReleaseGObject(benchmark::State& state) {
  createRelease(state, makeGReel, [](GReel* r) { g_object_unref(r); });
}
BENCHMARK(createReleaseGObject)->Name("ObjectCreateRelease/Peer:GObject");
#endif

void createReleaseSharedPtr(benchmark::State& state) {
  createRelease(
      state, [](int64_t n) { return std::make_shared<PlainReel>(n); }, [](auto& reel) { reel.reset(); });
}
BENCHMARK(createReleaseSharedPtr)->Name("ObjectCreateRelease/Plain:make_shared");

void createReleaseMalloc(benchmark::State& state) {
  createRelease(
      state, [](int64_t n) { return new (std::malloc(sizeof(PlainReel))) PlainReel(n); },
      [](PlainReel* r) { std::free(r); });
}
BENCHMARK(createReleaseMalloc)->Name("ObjectCreateRelease/Plain:malloc and free");

}  // namespace
