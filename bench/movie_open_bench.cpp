// Opening a two-hour movie, 25 pictures a second and 48 kHz sound in packets of 1024: until where every
// sample is, is known (MovieOpen), and until every sample has also been looked at once (MovieOpenAndRead).
// Plain with its tables at the end, and in fragments of two seconds. The media are holes in the file.
#include <benchmark/benchmark.h>
#include <kiv/byte_stream.h>
#include <unistd.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <string>
#include <vector>

#if HAVE_AVFORMAT
extern "C" {
#include <libavformat/avformat.h>
}
#endif

#include "bench/second_thread.hpp"
#include "movie/movie_index.hpp"
#include "movie/sample_cursor.hpp"

namespace {

constexpr uint32_t kPictures = 180'000, kPackets = 337'500, kFragments = 3600;
constexpr uint32_t kPictureBytes = 20'000, kPacketBytes = 340;

std::string words(std::initializer_list<uint32_t> numbers) {
  std::string text;
  for (const uint32_t number : numbers)
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(number >> shift);
  return text;
}
std::string atom(const char* type, const std::string& data) {
  return words({static_cast<uint32_t>(8 + data.size())}) + type + data;
}

uint32_t sizeOf(bool picture, uint32_t i) {
  return picture ? kPictureBytes + i * 7919 % 5000 : kPacketBytes + i * 31 % 60;
}
// One anchor, then two B-pictures that are shown before it.
uint32_t compositionOffset(uint32_t i) { return i % 3 == 0 ? 512 : i % 3 == 1 ? 1536 : 0; }

std::string tablesOf(bool picture, uint32_t count) {
  std::string sizes = words({0, 0, count}), offsets = words({0, count}), chunks, syncs;
  const uint32_t perChunk = picture ? 13 : 24, chunkCount = (count + perChunk - 1) / perChunk;
  uint64_t place = 0;
  for (uint32_t i = 0; i < count; ++i) {
    if (i % perChunk == 0)
      chunks += words({static_cast<uint32_t>(place >> 32), static_cast<uint32_t>(place)});
    if (i % 50 == 0) syncs += words({i + 1});
    sizes += words({sizeOf(picture, i)});
    offsets += words({1, compositionOffset(i)});
    place += sizeOf(picture, i);
  }
  std::string tables =
      atom("stts", words({0, count ? 1u : 0u}) + (count ? words({count, picture ? 512u : 1024u}) : "")) +
      atom("stsc", words({0, count ? 1u : 0u}) + (count ? words({1, perChunk, 1}) : "")) +
      atom("stsz", sizes) + atom("co64", words({0, count ? chunkCount : 0}) + chunks);
  if (picture && count) tables += atom("ctts", offsets) + atom("stss", words({0, (count + 49) / 50}) + syncs);
  return tables;
}

std::string track(uint32_t id, bool picture, uint32_t count) {
  const uint32_t timescale = picture ? 12800 : 48000, duration = count * (picture ? 512 : 1024);
  const std::string entry =
      picture ? atom("mp4v", std::string(6, 0) + std::string("\0\1", 2) + std::string(70, 0))
              : atom("twos", std::string(6, 0) + std::string("\0\1", 2) + std::string(20, 0));
  const std::string matrix = words({0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000});
  return atom(
      "trak",
      atom("tkhd", words({7, 0, 0, id, 0, 7'200'000, 0, 0, 0, 0}) + matrix + words({640 << 16, 360 << 16})) +
          atom("mdia", atom("mdhd", words({0, 0, 0, timescale, duration, 0x55C40000})) +
                           atom("hdlr", words({0, 0}) + (picture ? "vide" : "soun") + std::string(13, 0)) +
                           atom("minf", atom("stbl", atom("stsd", words({0, 1}) + entry) +
                                                         tablesOf(picture, count)))));
}

std::string moov(bool fragmented) {
  std::string body = atom("mvhd", words({0, 0, 0, 1000, 7'200'000}) + std::string(80, 0)) +
                     track(1, true, fragmented ? 0 : kPictures) + track(2, false, fragmented ? 0 : kPackets);
  if (fragmented)
    body += atom("mvex", atom("trex", words({0, 1, 1, 512, 0, 0x1010000})) +
                             atom("trex", words({0, 2, 1, 1024, 0, 0})));
  return atom("moov", body);
}

std::string runOf(bool picture, uint32_t first, uint32_t count, uint32_t& bytes) {
  std::string run = words({picture ? 0xA05u : 0x201u, count, 8});
  if (picture) run += words({0x2000000});
  for (uint32_t i = first; i < first + count; ++i) {
    run += words({sizeOf(picture, i)});
    if (picture) run += words({compositionOffset(i)});
    bytes += sizeOf(picture, i);
  }
  return atom("trun", run);
}

std::string fragment(uint32_t number, uint32_t& mediaBytes) {
  std::string body = atom("mfhd", words({0, number + 1}));
  for (const bool picture : {true, false}) {
    const uint32_t all = picture ? kPictures : kPackets,
                   first = static_cast<uint32_t>(uint64_t{all} * number / kFragments),
                   end = static_cast<uint32_t>(uint64_t{all} * (number + 1) / kFragments);
    body += atom("traf", atom("tfhd", words({0x20000, picture ? 1u : 2u})) +
                             atom("tfdt", words({0, first * (picture ? 512 : 1024)})) +
                             runOf(picture, first, end - first, mediaBytes));
  }
  return atom("moof", body);
}

// A file that goes with the process.
class File {
 public:
  explicit File(bool fragmented) {
    descriptor_ = mkstemp(path_);
    put(atom("ftyp", std::string("isom\0\0\2\0isomiso2", 16)));
    if (fragmented) put(moov(true));
    for (uint32_t i = 0; fragmented && i < kFragments; ++i) {
      uint32_t bytes = 0;
      fragments_.push_back(length_);
      put(fragment(i, bytes));
      put(words({8 + bytes}) + "mdat");
      length_ += bytes;
    }
    if (!fragmented) {
      put(words({1}) + "mdat" + words({1, 0}));
      length_ += (int64_t{1} << 32) - 16;
      put(moov(false));
    }
    if (ftruncate(descriptor_, length_) != 0) std::abort();
  }
  ~File() {
    close(descriptor_);
    unlink(path_);
  }
  const char* path() const { return path_; }
  int descriptor() const { return descriptor_; }
  const std::vector<int64_t>& fragments() const { return fragments_; }

 private:
  void put(const std::string& bytes) {
    if (pwrite(descriptor_, bytes.data(), bytes.size(), length_) != static_cast<ssize_t>(bytes.size()))
      std::abort();
    length_ += static_cast<int64_t>(bytes.size());
  }

  char path_[32] = "/tmp/movie-bench-XXXXXX";
  int descriptor_;
  int64_t length_ = 0;
  std::vector<int64_t> fragments_;
};

const File& fileOf(bool fragmented) {
  static const File files[] = {File(false), File(true)};
  return files[fragmented];
}

class Reader final : public AtomVisitor {
 public:
  explicit Reader(int64_t size) : index(size) {}
  bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) override {
    if (facts.read(walk.types(), stream)) std::abort();
    index.noteAtom(atom, stream, walk, facts, damages);
    return true;
  }
  void endAtom() override {}
  void damaged(Damage damage) override { damages.push_back(std::move(damage)); }

  MovieFacts facts;
  MovieIndex index;
  std::vector<Damage> damages;
};

void open(benchmark::State& state, bool fragmented, bool readAll) {
  for (auto _ : state) {
    br::Ref<PVBaseObject> stream;
    int64_t size = 0;
    if (KivByteStreamCreateForFile(nullptr, fileOf(fragmented).path(), 0, stream.out()) != 0 ||
        KivByteStreamGetTotalLength(stream.get(), &size) != 0)
      std::abort();
    Reader reader(size);
    AtomWalk(stream.get(), size, reader).run();
    reader.index.finish(reader.facts, reader.damages);
    if (!reader.damages.empty() || reader.index.tracks().size() != 2) std::abort();
    benchmark::DoNotOptimize(reader.index);
    if (!readAll) continue;
    uint64_t count = 0;
    int64_t sum = 0;
    MovieSample sample;
    for (const MovieTrack& one : reader.index.tracks())
      for (SampleCursor cursor(one); cursor.next(sample); ++count)
        sum += sample.offset + sample.composition + sample.size;
    benchmark::DoNotOptimize(sum);
    if (count != kPictures + kPackets) std::abort();
  }
}

void openPlain(benchmark::State& state) { open(state, false, false); }
void openFragments(benchmark::State& state) { open(state, true, false); }
void readPlain(benchmark::State& state) { open(state, false, true); }
void readFragments(benchmark::State& state) { open(state, true, true); }
BENCHMARK(openPlain)->Name("MovieOpenPlain/Ours");
BENCHMARK(openFragments)->Name("MovieOpenFragments/Ours");
BENCHMARK(readPlain)->Name("MovieOpenAndReadPlain/Ours");
BENCHMARK(readFragments)->Name("MovieOpenAndReadFragments/Ours");

// What the system takes for a page from each fragment.
void readPages(benchmark::State& state) {
  char page[4096];
  for (auto _ : state)
    for (const int64_t offset : fileOf(true).fragments())
      if (pread(fileOf(true).descriptor(), page, sizeof page, offset) <= 0) std::abort();
}
BENCHMARK(readPages)->Name("MovieOpenFragments/Plain:pread");

#if HAVE_AVFORMAT
// It makes its index of all samples as it opens.
void openWithAvformat(benchmark::State& state, bool fragmented) {
  av_log_set_level(AV_LOG_QUIET);
  for (auto _ : state) {
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, fileOf(fragmented).path(), nullptr, nullptr) < 0) std::abort();
    uint32_t count = 0;
    for (unsigned i = 0; i < context->nb_streams; ++i)
      count += static_cast<uint32_t>(avformat_index_get_entries_count(context->streams[i]));
    if (count != kPictures + kPackets) std::abort();
    avformat_close_input(&context);
  }
}

void avformatPlain(benchmark::State& state) { openWithAvformat(state, false); }
void avformatFragments(benchmark::State& state) { openWithAvformat(state, true); }
BENCHMARK(avformatPlain)->Name("MovieOpenPlain/Peer:avformat_open_input");
BENCHMARK(avformatFragments)->Name("MovieOpenFragments/Peer:avformat_open_input");
BENCHMARK(avformatPlain)->Name("MovieOpenAndReadPlain/Peer:avformat_open_input");
BENCHMARK(avformatFragments)->Name("MovieOpenAndReadFragments/Peer:avformat_open_input");
#endif

}  // namespace
