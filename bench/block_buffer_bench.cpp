// Block buffers: building from blocks, sub-ranges, gathering and walking. Memory is not owned in any row:
// blocks of the null allocator here, wrapped memory with nothing to release there.
#include <benchmark/benchmark.h>
#include <pevrin/block_buffer.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#if HAVE_ABSL
#include <absl/strings/cord.h>
#endif
#if HAVE_GSTREAMER
#include <gst/gst.h>
#endif

#include "bench/second_thread.hpp"

namespace {

struct Piece {
  char* data;
  size_t length;
};

// Pieces in no order of memory, as payloads that came over a network.
std::vector<Piece> makePieces(size_t count, size_t length) {
  static std::vector<char> memory(size_t{32} << 20, 'm');
  std::vector<size_t> slots(count);
  std::iota(slots.begin(), slots.end(), 0);
  std::shuffle(slots.begin(), slots.end(), std::mt19937(7));
  std::vector<Piece> pieces;
  for (size_t slot : slots) pieces.push_back({memory.data() + slot * (length + 64), length});
  return pieces;
}

PVBlockBufferRef buildOurs(const std::vector<Piece>& pieces, uint32_t capacity) {
  PVBlockBufferRef buffer;
  PVBlockBufferCreateEmpty(nullptr, capacity, 0, &buffer);
  for (const Piece& piece : pieces)
    PVBlockBufferAppendMemoryBlock(buffer, piece.data, piece.length, kBRAllocatorNull, nullptr, 0,
                                   piece.length, 0);
  return buffer;
}

#if HAVE_ABSL
absl::Cord buildCord(const std::vector<Piece>& pieces) {
  absl::Cord cord;
  for (const Piece& piece : pieces)
    cord.Append(absl::MakeCordFromExternal(absl::string_view(piece.data, piece.length), [] {}));
  return cord;
}
#endif
#if HAVE_GSTREAMER
const bool gstReady = (gst_init(nullptr, nullptr), true);
GstBuffer* buildGst(const std::vector<Piece>& pieces) {
  GstBuffer* buffer = gst_buffer_new();
  for (const Piece& piece : pieces)
    gst_buffer_append_memory(buffer, gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY, piece.data,
                                                            piece.length, 0, piece.length, nullptr, nullptr));
  return buffer;
}
#endif

// BlockBuild: an object over so many blocks of a page, its count known beforehand; made and dropped.
void buildRowOurs(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, 4096);
  for (auto _ : state) BRRelease(buildOurs(pieces, static_cast<uint32_t>(pieces.size())));
}

// BlockAppend: the same with the count not known, so that all but the first go to overflow children.
void appendRowOurs(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, 1024);
  for (auto _ : state) BRRelease(buildOurs(pieces, 0));
}

// BlockSubrange64: a range of 64 blocks, by reference.
void subrangeRowOurs(benchmark::State& state, size_t count) {
  PVBlockBufferRef buffer = buildOurs(makePieces(count, 1024), 64);
  size_t offset = 0;
  for (auto _ : state) {
    offset = (offset + 4321) % 32000;
    PVBlockBufferRef range;
    PVBlockBufferCreateWithBufferReference(nullptr, buffer, offset, 20000 + offset, 0, &range);
    BRRelease(range);
  }
  BRRelease(buffer);
}

constexpr size_t kGathered = 65536;

// BlockGather64K: 64 KiB out of so many pieces into one.
void gatherRowOurs(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, kGathered / count);
  PVBlockBufferRef buffer = buildOurs(pieces, static_cast<uint32_t>(pieces.size()));
  std::vector<char> destination(kGathered);
  for (auto _ : state) {
    PVBlockBufferCopyDataBytes(buffer, 0, kGathered, destination.data());
    benchmark::ClobberMemory();
  }
  BRRelease(buffer);
}

void gatherRowPlain(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, kGathered / count);
  std::vector<char> destination(kGathered);
  for (auto _ : state) {
    char* to = destination.data();
    for (const Piece& piece : pieces)
      to = static_cast<char*>(std::memcpy(to, piece.data, piece.length)) + piece.length;
    benchmark::ClobberMemory();
  }
}

// BlockWalk: every piece's pointer in turn, asked for by offset, in a chain of overflow children.
void walkRowOurs(benchmark::State& state, size_t count) {
  PVBlockBufferRef buffer = buildOurs(makePieces(count, 1024), 0);
  for (auto _ : state) {
    size_t length;
    char* data;
    for (size_t offset = 0; PVBlockBufferGetDataPointer(buffer, offset, &length, nullptr, &data) == 0;) {
      benchmark::DoNotOptimize(data);
      if ((offset += length) == PVBlockBufferGetDataLength(buffer)) break;
    }
  }
  BRRelease(buffer);
}

#if HAVE_ABSL
void buildRowCord(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, 4096);
  for (auto _ : state) benchmark::DoNotOptimize(buildCord(pieces));
}
void appendRowCord(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, 1024);
  for (auto _ : state) benchmark::DoNotOptimize(buildCord(pieces));
}

void subrangeRowCord(benchmark::State& state, size_t count) {
  const absl::Cord cord = buildCord(makePieces(count, 1024));
  size_t offset = 0;
  for (auto _ : state) {
    offset = (offset + 4321) % 32000;
    benchmark::DoNotOptimize(cord.Subcord(offset, 20000 + offset));
  }
}

void walkRowCord(benchmark::State& state, size_t count) {
  const absl::Cord cord = buildCord(makePieces(count, 1024));
  for (auto _ : state)
    for (absl::string_view chunk : cord.Chunks()) benchmark::DoNotOptimize(chunk);
}
#endif

#if HAVE_GSTREAMER
void buildRowGst(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, 4096);
  for (auto _ : state) gst_buffer_unref(buildGst(pieces));
}

// A GstBuffer of more than 16 pieces has merged them.
void gatherRowGst(benchmark::State& state, size_t count) {
  const auto pieces = makePieces(count, kGathered / count);
  GstBuffer* buffer = buildGst(pieces);
  std::vector<char> destination(kGathered);
  for (auto _ : state) {
    gst_buffer_extract(buffer, 0, destination.data(), kGathered);
    benchmark::ClobberMemory();
  }
  gst_buffer_unref(buffer);
}
#endif

using Row = void (*)(benchmark::State&, size_t);

void add(const char* family, const char* who, Row row, std::initializer_list<size_t> counts) {
  for (size_t count : counts)
    benchmark::RegisterBenchmark((family + std::to_string(count) + "/" + who).c_str(), row, count);
}

const bool rowsAdded = [] {
  add("BlockBuild", "Ours", buildRowOurs, {1, 8, 64, 4096});
  add("BlockAppend", "Ours", appendRowOurs, {64, 10000});
  add("BlockSubrange", "Ours", subrangeRowOurs, {64});
  add("BlockGather64K_", "Ours", gatherRowOurs, {1, 8, 64, 4096});
  add("BlockGather64K_", "Plain:memcpy", gatherRowPlain, {1, 8, 64, 4096});
  add("BlockWalk", "Ours", walkRowOurs, {64, 10000});
#if HAVE_ABSL
  add("BlockBuild", "Peer:absl::Cord", buildRowCord, {1, 8, 64, 4096});
  add("BlockAppend", "Peer:absl::Cord", appendRowCord, {64, 10000});
  add("BlockSubrange", "Peer:absl::Cord", subrangeRowCord, {64});
  add("BlockWalk", "Peer:absl::Cord", walkRowCord, {64, 10000});
#endif
#if HAVE_GSTREAMER
  add("BlockBuild", "Peer:GstBuffer", buildRowGst, {1, 8, 64});
  add("BlockGather64K_", "Peer:GstBuffer", gatherRowGst, {1, 8, 64});
#endif
  return true;
}();

}  // namespace
