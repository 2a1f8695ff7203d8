// Reading what a gzip file of 16 MiB holds from end to end, in pieces. The argument is the bytes of a piece.
#include <benchmark/benchmark.h>
#include <kiv/gzip_stream.h>
#include <unistd.h>
#include <zlib.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t kLength = size_t{16} << 20;

// Written once, and gone with the program.
const std::string& packedFile() {
  struct File {
    std::string path = "/tmp/pevrin_gzip_bench.XXXXXX";
    File() {
      const int descriptor = mkstemp(path.data());
      br::Ref<PVBaseObject> file, packed;
      std::mt19937 random(1);
      std::vector<uint8_t> bytes(kLength);
      for (size_t i = 0; i < kLength; ++i) bytes[i] = static_cast<uint8_t>(i % 4 ? random() % 20 : i >> 12);
      if (descriptor < 0 ||
          KivByteStreamCreateForFileDescriptor(
              nullptr, descriptor, kKivByteStreamFile_Writable | kKivByteStreamFile_CloseDescriptor,
              file.out()) != 0 ||
          KivByteStreamCreateWritableForGzip(nullptr, file.get(), -1, packed.out()) != 0 ||
          KivByteStreamAppend(packed.get(), bytes.data(), bytes.size()) != 0 ||
          KivGzipByteStreamFinish(packed.get()) != 0)
        std::abort();
    }
    ~File() { unlink(path.c_str()); }
  };
  static const File file;
  return file.path;
}

void ours(benchmark::State& state) {
  const std::string& path = packedFile();
  std::vector<char> piece(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    br::Ref<PVBaseObject> file, stream;
    if (KivByteStreamCreateForFile(nullptr, path.c_str(), 0, file.out()) != 0 ||
        KivByteStreamCreateForGzip(nullptr, file.get(), 0, stream.out()) != 0)
      std::abort();
    int64_t offset = 0;
    for (size_t count = 1; count > 0; offset += static_cast<int64_t>(count))
      if (KivByteStreamRead(stream.get(), offset, piece.size(), piece.data(), &count) != 0) std::abort();
    if (offset != kLength) std::abort();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kLength));
}

void peer(benchmark::State& state) {
  const std::string& path = packedFile();
  std::vector<char> piece(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    gzFile file = gzopen(path.c_str(), "rb");
    size_t offset = 0;
    for (int count = 1; count > 0; offset += static_cast<size_t>(count))
      count = gzread(file, piece.data(), static_cast<unsigned>(piece.size()));
    if (offset != kLength) std::abort();
    gzclose(file);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kLength));
}

void setArguments(benchmark::internal::Benchmark* row) {
  row->Arg(64)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
}
BENCHMARK(ours)->Name("GzipRead/Ours")->Apply(setArguments);
BENCHMARK(peer)->Name("GzipRead/Peer:gzread")->Apply(setArguments);

}  // namespace
