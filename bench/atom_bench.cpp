// Walking and writing a level of 1000 atoms. The argument is the least payload; payloads vary by up to 15
// bytes.
#include <benchmark/benchmark.h>
#include <kiv/atom_stream.h>
#include <kiv/atom_writer.h>
#include <unistd.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#if HAVE_GSTREAMER
#include <gst/base/gstbytereader.h>
#include <gst/base/gstbytewriter.h>
#endif

#include "bench/second_thread.hpp"

namespace {

constexpr int kAtoms = 1000;
constexpr uint32_t kType = 0x66726565;  // 'free'
constexpr uint32_t kUUIDType = 0x75756964;
constexpr uint32_t kParentType = 0x6D6F6F76;

size_t payloadOf(const benchmark::State& state, int i) {
  return static_cast<size_t>(state.range(0) + i * 7 % 16);
}

void putWord(std::vector<uint8_t>& bytes, uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(word >> shift));
}

std::vector<uint8_t> makeLevel(const benchmark::State& state) {
  std::vector<uint8_t> bytes;
  for (int i = 0; i < kAtoms; ++i) {
    putWord(bytes, static_cast<uint32_t>(8 + payloadOf(state, i)));
    putWord(bytes, kType + static_cast<uint32_t>(i));
    bytes.resize(bytes.size() + payloadOf(state, i));
  }
  return bytes;
}

void setArguments(benchmark::internal::Benchmark* row) { row->Arg(0)->Arg(16)->Arg(64)->Arg(1024); }

// --- walking

template <class Init>
void walkWithStream(benchmark::State& state, Init init) {
  for (auto _ : state) {
    KivAtomStream stream;
    if (init(&stream) != 0) std::abort();
    uint64_t sum = 0;
    int count = 0;
    do {
      PVFourCharCode type;
      int64_t dataLength;
      KivAtomStreamGetCurrentAtomTypeAndDataLength(&stream, &type, &dataLength);
      sum += type + static_cast<uint64_t>(dataLength);
      ++count;
    } while (KivAtomStreamAdvanceToNextAtom(&stream) == 0);
    benchmark::DoNotOptimize(sum);
    if (count != kAtoms) std::abort();
  }
}

void walkMemory(benchmark::State& state) {
  const std::vector<uint8_t> bytes = makeLevel(state);
  walkWithStream(state, [&](KivAtomStream* stream) {
    return KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), 0, 0, stream);
  });
}

void walkBlockBuffer(benchmark::State& state) {
  std::vector<uint8_t> bytes = makeLevel(state);
  br::Ref<PVBlockBuffer> buffer;
  if (PVBlockBufferCreateWithMemoryBlock(nullptr, bytes.data(), bytes.size(), kBRAllocatorNull, nullptr, 0,
                                         bytes.size(), 0, buffer.out()) != 0)
    std::abort();
  walkWithStream(
      state, [&](KivAtomStream* stream) { return KivAtomStreamInitWithBBuf(buffer.get(), 0, 0, stream); });
}

void walkFile(benchmark::State& state) {
  const std::vector<uint8_t> bytes = makeLevel(state);
  char path[] = "/tmp/atom-bench-XXXXXX";
  const int descriptor = mkstemp(path);
  if (descriptor < 0 || write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    std::abort();
  unlink(path);
  br::Ref<PVBaseObject> file;
  if (KivByteStreamCreateForFileDescriptor(nullptr, descriptor, kKivByteStreamFile_CloseDescriptor,
                                           file.out()) != 0)
    std::abort();
  walkWithStream(state, [&](KivAtomStream* stream) {
    return KivAtomStreamInitWithByteStream(file.get(), 0, 0, stream);
  });
}

#if HAVE_GSTREAMER
// The same rules: a 64-bit size, an extended type, no size below the header, none past the end.
void walkWithByteReader(benchmark::State& state) {
  const std::vector<uint8_t> bytes = makeLevel(state);
  for (auto _ : state) {
    GstByteReader reader;
    gst_byte_reader_init(&reader, bytes.data(), static_cast<guint>(bytes.size()));
    uint64_t sum = 0;
    int count = 0;
    guint32 shortSize, type;
    while (gst_byte_reader_get_uint32_be(&reader, &shortSize) &&
           gst_byte_reader_get_uint32_be(&reader, &type)) {
      guint64 size = shortSize, headerSize = 8;
      if (shortSize == 1) {
        if (!gst_byte_reader_get_uint64_be(&reader, &size)) break;
        headerSize += 8;
      }
      if (type == kUUIDType) {
        if (!gst_byte_reader_skip(&reader, 16)) break;
        headerSize += 16;
      }
      if (size < headerSize || size - headerSize > gst_byte_reader_get_remaining(&reader)) break;
      gst_byte_reader_skip_unchecked(&reader, static_cast<guint>(size - headerSize));
      sum += type + (size - headerSize);
      ++count;
    }
    benchmark::DoNotOptimize(sum);
    if (count != kAtoms) std::abort();
  }
}
#endif

void walkPlainly(benchmark::State& state) {
  const std::vector<uint8_t> bytes = makeLevel(state);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (size_t at = 0; bytes.size() - at >= 8;) {
      uint32_t words[2];
      std::memcpy(words, bytes.data() + at, sizeof words);
      const uint32_t size = __builtin_bswap32(words[0]);
      if (size < 8 || size > bytes.size() - at) std::abort();
      sum += __builtin_bswap32(words[1]) + uint64_t{size - 8};
      at += size;
    }
    benchmark::DoNotOptimize(sum);
  }
}

BENCHMARK(walkMemory)->Name("AtomWalk1000/Ours")->Apply(setArguments);
#if HAVE_GSTREAMER
BENCHMARK(walkWithByteReader)->Name("AtomWalk1000/Peer:GstByteReader")->Apply(setArguments);
#endif
BENCHMARK(walkPlainly)->Name("AtomWalk1000/Plain:loop")->Apply(setArguments);
BENCHMARK(walkBlockBuffer)->Name("AtomWalk1000BlockBuffer/Ours")->Apply(setArguments);
BENCHMARK(walkMemory)->Name("AtomWalk1000BlockBuffer/Plain:memory")->Apply(setArguments);
BENCHMARK(walkFile)->Name("AtomWalk1000File/Ours")->Apply(setArguments);
BENCHMARK(walkMemory)->Name("AtomWalk1000File/Plain:memory")->Apply(setArguments);

// --- writing: 1000 atoms inside one, to growing memory

const uint8_t kPayload[2048] = {};

void writeWithWriter(benchmark::State& state) {
  for (auto _ : state) {
    PVBlockBufferRef buffer;
    PVBlockBufferCreateEmpty(nullptr, 0, 0, &buffer);
    KivAtomWriter parent, writer;
    KivAtomWriterInitWithBlockBuffer(buffer, &parent);
    PVStatus status = KivAtomWriterBeginAtom(&parent, kParentType, false);
    KivAtomWriterInitWithParent(&parent, &writer);
    for (int i = 0; i < kAtoms; ++i) {
      status |= KivAtomWriterBeginAtom(&writer, kType, false);
      status |= KivAtomWriterAppendData(&writer, kPayload, payloadOf(state, i));
      status |= KivAtomWriterEndAtom(&writer);
    }
    status |= KivAtomWriterEndAtom(&parent);
    if (status != 0) std::abort();
    BRRelease(buffer);
  }
}

// Each atom outermost: the writer makes and drops a byte stream for every one.
void writeOutermost(benchmark::State& state) {
  for (auto _ : state) {
    PVBlockBufferRef buffer;
    PVBlockBufferCreateEmpty(nullptr, 0, 0, &buffer);
    KivAtomWriter writer;
    KivAtomWriterInitWithBlockBuffer(buffer, &writer);
    PVStatus status = 0;
    for (int i = 0; i < kAtoms; ++i) {
      status |= KivAtomWriterBeginAtom(&writer, kType, false);
      status |= KivAtomWriterAppendData(&writer, kPayload, payloadOf(state, i));
      status |= KivAtomWriterEndAtom(&writer);
    }
    if (status != 0) std::abort();
    BRRelease(buffer);
  }
}

#if HAVE_GSTREAMER
guint beginWithByteWriter(GstByteWriter* writer, uint32_t type) {
  const guint start = gst_byte_writer_get_pos(writer);
  if (!gst_byte_writer_put_uint32_be(writer, 0) || !gst_byte_writer_put_uint32_be(writer, type)) std::abort();
  return start;
}

void endWithByteWriter(GstByteWriter* writer, guint start) {
  const guint end = gst_byte_writer_get_pos(writer);
  gst_byte_writer_set_pos(writer, start);
  if (!gst_byte_writer_put_uint32_be(writer, end - start)) std::abort();
  gst_byte_writer_set_pos(writer, end);
}

void writeWithByteWriter(benchmark::State& state) {
  for (auto _ : state) {
    GstByteWriter writer;
    gst_byte_writer_init(&writer);
    const guint parent = beginWithByteWriter(&writer, kParentType);
    for (int i = 0; i < kAtoms; ++i) {
      const guint start = beginWithByteWriter(&writer, kType);
      if (!gst_byte_writer_put_data(&writer, kPayload, static_cast<guint>(payloadOf(state, i)))) std::abort();
      endWithByteWriter(&writer, start);
    }
    endWithByteWriter(&writer, parent);
    benchmark::DoNotOptimize(writer.parent.data);
    gst_byte_writer_reset(&writer);
  }
}
#endif

void writePlainly(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<uint8_t> bytes(8);
    for (int i = 0; i < kAtoms; ++i) {
      const size_t length = payloadOf(state, i);
      const uint32_t words[2] = {__builtin_bswap32(static_cast<uint32_t>(8 + length)),
                                 __builtin_bswap32(kType)};
      const auto* header = reinterpret_cast<const uint8_t*>(words);
      bytes.insert(bytes.end(), header, header + 8);
      bytes.insert(bytes.end(), kPayload, kPayload + length);
    }
    benchmark::DoNotOptimize(bytes.data());
  }
}

BENCHMARK(writeWithWriter)->Name("AtomWrite1000/Ours")->Apply(setArguments);
#if HAVE_GSTREAMER
BENCHMARK(writeWithByteWriter)->Name("AtomWrite1000/Peer:GstByteWriter")->Apply(setArguments);
#endif
BENCHMARK(writePlainly)->Name("AtomWrite1000/Plain:vector")->Apply(setArguments);
BENCHMARK(writeOutermost)->Name("AtomWrite1000Outermost/Ours")->Apply(setArguments);
#if HAVE_GSTREAMER
BENCHMARK(writeWithByteWriter)->Name("AtomWrite1000Outermost/Peer:GstByteWriter")->Apply(setArguments);
#endif

}  // namespace
