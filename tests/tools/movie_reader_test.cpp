// The movie reader over movies written byte by byte: what ffmpeg does not write, and what nobody should.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <kiv/byte_stream.h>

#include <algorithm>
#include <bedra/ref.hpp>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "movie/movie_index.hpp"
#include "movie/output_order.hpp"

namespace {

std::string be(uint64_t number, int bytes) {
  std::string text;
  for (int shift = 8 * bytes - 8; shift >= 0; shift -= 8) text += static_cast<char>(number >> shift);
  return text;
}
std::string words(std::initializer_list<uint32_t> numbers) {
  std::string text;
  for (const uint32_t number : numbers) text += be(number, 4);
  return text;
}
std::string atom(const std::string& type, const std::string& data) {
  return be(8 + data.size(), 4) + type + data;
}
// A full atom: version and flags first.
std::string full(const std::string& type, std::initializer_list<uint32_t> numbers,
                 const std::string& rest = "") {
  return atom(type, words(numbers) + rest);
}

// A track whose tables are given; its timescale is 1000.
std::string track(uint32_t id, const std::string& tables, const std::string& handler = "vide") {
  return atom("trak", full("tkhd", {0, 0, 0, id, 0, 0}) +
                          atom("mdia", full("mdhd", {0, 0, 0, 1000, 0, 0}) +
                                           full("hdlr", {0, 0}, handler + std::string(12, 0)) +
                                           atom("minf", atom("stbl", tables))));
}
std::string moov(const std::string& tracks, const std::string& rest = "") {
  return atom("moov", full("mvhd", {0, 0, 0, 600, 0}) + tracks + rest);
}

// Six samples of 1 to 6 bytes in chunks of 2 at 200, 100 and 300.
const std::string kTimes = full("stts", {0, 2, 4, 10, 2, 20}),
                  kOffsets = full("ctts", {1 << 24, 2, 1, 15, 5, ~0u}),
                  kChunkRuns = full("stsc", {0, 1, 1, 2, 1}),
                  kSizes = full("stsz", {0, 0, 6, 1, 2, 3, 4, 5, 6}),
                  kChunks = full("stco", {0, 3, 200, 100, 300}), kSyncs = full("stss", {0, 2, 1, 4}),
                  kDependencies = full("sdtp", {0}, std::string("\x14\x18\x18\x24\x18\x18", 6));
const std::string kTables = kTimes + kOffsets + kChunkRuns + kSizes + kChunks + kSyncs + kDependencies;

struct Read {
  std::vector<std::vector<MovieSample>> tracks;
  std::vector<Damage> damages;
};

class Reader final : public AtomVisitor {
 public:
  explicit Reader(const std::string& bytes) : index(static_cast<int64_t>(bytes.size())) {
    br::Ref<PVBaseObject> stream;
    KivByteStreamCreateForMemory(nullptr, bytes.data(), bytes.size(), kBRAllocatorNull, stream.out());
    AtomWalk(stream.get(), static_cast<int64_t>(bytes.size()), *this).run();
    index.finish(facts, damages);
  }
  bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) override {
    if (auto fault = facts.read(walk.types(), stream)) damages.push_back({walk.path(), atom.offset, 0, ""});
    index.noteAtom(atom, stream, walk, facts, damages);
    return true;
  }
  void endAtom() override {}
  void damaged(Damage damage) override { damages.push_back(std::move(damage)); }

  MovieFacts facts;
  MovieIndex index;
  std::vector<Damage> damages;
};

Read readMovie(const std::string& bytes) {
  Reader reader(bytes);
  Read read{{}, reader.damages};
  for (const MovieTrack& one : reader.index.tracks()) {
    MovieSample sample;
    read.tracks.emplace_back();
    for (SampleCursor cursor(one); cursor.next(sample);) read.tracks.back().push_back(sample);
  }
  return read;
}

// "index+count decode composition duration offset size sync" of each sample.
std::string textOf(const std::vector<MovieSample>& samples) {
  std::string text;
  for (const MovieSample& s : samples) {
    text += s.count > 1 ? fmt::format("{}+{}", s.index, s.count) : fmt::format("{}", s.index);
    text += fmt::format(" {} {} {} ", s.decode, s.composition, s.duration);
    text += s.offset == MovieSample::kNowhere ? "-" : fmt::format("{}", s.offset);
    text += fmt::format(" {}{}\n", s.size, s.sync ? " sync" : "");
  }
  return text;
}

TEST(MovieReader, SamplesOfTables) {
  const Read read = readMovie(moov(track(1, kTables)) + atom("mdat", std::string(400, 0)));
  EXPECT_TRUE(read.damages.empty());
  ASSERT_EQ(read.tracks.size(), 1u);
  EXPECT_EQ(textOf(read.tracks[0]),
            "0 0 15 10 200 1 sync\n1 10 9 10 201 2\n2 20 19 10 100 3\n"
            "3 30 29 10 103 4 sync\n4 40 39 20 300 5\n5 60 59 20 305 6\n");
  const SampleDependencies said = read.tracks[0][3].dependencies;
  EXPECT_EQ(std::vector({said.isLeading, said.dependsOnOthers, said.isDependedOn, said.hasRedundancy}),
            (std::vector<uint8_t>{0, 2, 1, 0}));
}

TEST(MovieReader, UncompressedSoundComesInChunks) {
  const std::string tables = full("stts", {0, 1, 10, 1}) + full("stsc", {0, 2, 1, 4, 1, 3, 2, 1}) +
                             full("stsz", {0, 4, 10}) + full("co64", {0, 3, 0, 500, 0, 600, ~0u, ~0u});
  const Read read = readMovie(moov(track(1, tables, "soun")));
  EXPECT_EQ(textOf(read.tracks[0]), "0+4 0 0 4 500 16 sync\n4+4 4 4 4 600 16 sync\n8+2 8 8 2 - 8 sync\n");
}

// Bases, data offsets before the fragment, runs that follow each other, defaults at each level, no decode
// times.
TEST(MovieReader, SamplesOfFragments) {
  const std::string extends =
      atom("mvex", full("trex", {0, 1, 1, 10, 7, 0x10000}) + full("trex", {0, 2, 1, 5, 3, 0}));
  const std::string head =
      moov(track(1, kTables) + track(2, ""), extends) + atom("mdat", std::string(392, 0));
  const auto at = static_cast<uint32_t>(head.size());
  const std::string first =
      atom("traf", full("tfhd", {0x10, 1, 8}) + full("trun", {5, 2, ~99u, 0}) + full("trun", {0, 1}));
  const std::string second = atom("traf", full("tfhd", {0, 2}) + full("tfdt", {1 << 24, 1, 0}) +
                                              full("trun", {(1 << 24) + 0xB00, 2, 6, 9, ~1u, 7, 1, 4}));
  const std::string third = atom("traf", full("tfhd", {0x20008, 1, 11}) + full("trun", {1, 1, 50}));
  const std::string fourth =
      atom("traf", full("tfhd", {1, 2, 0, 77}) + full("trun", {0x401, 1, 3, 0x2010000}));
  const std::string fragments =
      atom("moof", first + second + third) + atom("moof", fourth) + std::string(50, 0);
  const Read read = readMovie(head + fragments);
  EXPECT_EQ(read.damages.size(), 0u) << read.damages[0].message;
  const auto place = [at](int offset) { return std::to_string(static_cast<int>(at) + offset); };
  ASSERT_EQ(read.tracks.size(), 2u);
  EXPECT_EQ(textOf({read.tracks[0].begin() + 6, read.tracks[0].end()}),
            "6 80 80 10 " + place(-100) + " 8 sync\n7 90 90 10 " + place(-92) + " 8\n8 100 100 10 " +
                place(-84) + " 8\n9 110 110 11 " + place(50) + " 7\n");
  EXPECT_EQ(textOf(read.tracks[1]), "0 4294967296 4294967294 6 " + place(-76) +
                                        " 9 sync\n1 4294967302 4294967306 7 " + place(-67) +
                                        " 1 sync\n2 4294967309 4294967309 5 80 3\n");
  ASSERT_EQ(read.tracks[1].size(), 3u);
  EXPECT_EQ(read.tracks[1][2].dependencies.dependsOnOthers, 2);
}

TEST(MovieReader, EveryPrefixEnds) {
  const std::string whole =
      moov(track(1, kTables), atom("mvex", full("trex", {0, 1, 1, 10, 7, 0}))) +
      std::string("\0\0\1\x9cmdat", 8) + std::string(404, 0) +
      atom("moof", atom("traf", full("tfhd", {0x20, 1, 0}) + full("trun", {0xF01, 1, 8, 1, 2, 3, 4})));
  ASSERT_EQ(readMovie(whole).tracks[0].size(), 7u);
  ASSERT_TRUE(readMovie(whole).damages.empty());
  size_t most = 0;
  for (size_t length = 0; length < whole.size(); ++length) {
    const Read read = readMovie(std::string(whole.data(), length));
    const size_t count = read.tracks.empty() ? 0 : read.tracks[0].size();
    EXPECT_GE(count, most) << length;  // more of the file never says less
    EXPECT_LT(count, 7u);
    most = count;
    const bool between = length == whole.find("mdat") - 4 || length == whole.find("moof") - 4;
    EXPECT_EQ(read.damages.empty(), between) << length;
  }
}

struct Lie {
  const char* what;
  std::string tables;
  size_t samplesLeft;
  const char* path;
};

TEST(MovieReader, TablesThatLie) {
  const std::string stbl = "moov/trak/mdia/minf/stbl";
  const Lie lies[] = {
      {"more times than there is room for", full("stts", {0, ~0u, 4, 10}) + kChunkRuns + kSizes + kChunks, 4,
       "/stts"},
      {"more sizes than there is room for", kTimes + kChunkRuns + full("stsz", {0, 0, ~0u, 1, 2}) + kChunks,
       2, "/stsz"},
      {"more samples of one size than bytes",
       full("stts", {0, 1, ~0u, 10}) + full("stsc", {0, 1, 1, ~0u, 1}) + full("stsz", {0, 1 << 20, ~0u}) +
           kChunks,
       0, "/stsz"},
      {"no times", kChunkRuns + kSizes + kChunks, 0, ""},
      {"sizes of 5 bits", kTimes + kChunkRuns + full("stz2", {0, 5, 6, 0}) + kChunks, 0, "/stz2"},
      {"an unknown version", full("stts", {7 << 24, 2, 4, 10, 2, 20}) + kChunkRuns + kSizes + kChunks, 0,
       "/stts"},
      {"fewer chunks than samples", kTimes + kChunkRuns + kSizes + full("stco", {0, 1, 200}), 2, "/stsc"},
      {"chunks that go backwards",
       kTimes + full("stsc", {0, 3, 1, 1, 1, 3, 1, 1, 2, 9, 1}) + kSizes + kChunks, 3, "/stsc"},
      {"chunks from 0", kTimes + full("stsc", {0, 1, 0, 2, 1}) + kSizes + kChunks, 0, "/stsc"},
      {"chunks of nothing", kTimes + full("stsc", {0, 1, 1, 0, 1}) + kSizes + kChunks, 0, "/stsc"},
      {"sync samples that go backwards",
       kTimes + kChunkRuns + kSizes + kChunks + full("stss", {0, 3, 1, 4, 2}), 6, "/stss"},
      {"sync samples behind the last", kTimes + kChunkRuns + kSizes + kChunks + full("stss", {0, 2, 1, 7}), 6,
       "/stss"},
      {"too few offsets", kTimes + kChunkRuns + kSizes + kChunks + full("ctts", {0, 1, 2, 5}), 6, "/ctts"},
      {"too few dependencies", kTimes + kChunkRuns + kSizes + kChunks + full("sdtp", {0}, "abc"), 6, "/sdtp"},
  };
  for (const Lie& lie : lies) {
    SCOPED_TRACE(lie.what);
    const Read read = readMovie(moov(track(1, lie.tables)));
    EXPECT_EQ(read.tracks[0].size(), lie.samplesLeft);
    ASSERT_FALSE(read.damages.empty());
    const std::string path = stbl + lie.path;
    EXPECT_TRUE(std::ranges::any_of(read.damages, [&](const Damage& one) { return one.path == path; }))
        << read.damages[0].path;
  }
}

TEST(MovieReader, FragmentsThatLie) {
  const std::string extends = atom("mvex", full("trex", {0, 1, 1, 10, 1, 0}));
  const struct {
    const char* what;
    std::string traf;
    size_t samples;
  } lies[] = {
      {"no such track", full("tfhd", {0, 9}) + full("trun", {1, 1, 0}), 0},
      {"more samples than entries", full("tfhd", {0, 1}) + full("trun", {0x200, ~0u, 1, 1}), 2},
      {"more samples than bytes", full("tfhd", {0x10, 1, 0}) + full("trun", {0, ~0u}), 0},
      {"a time too large",
       full("tfhd", {0, 1}) + full("tfdt", {1 << 24, ~0u, 0}) + full("trun", {0x200, 1, 1}), 1},
      {"durations too large",
       full("tfhd", {0, 1}) + full("tfdt", {1 << 24, 0x40000000, 0}) + full("trun", {0x300, 1, 9, 1}), 0},
      {"a place too far", full("tfhd", {1, 1, 0x7FFFFFFF, ~0u}) + full("trun", {0x201, 1, 9, 1}), 1},
      {"a place before the file", full("tfhd", {0, 1}) + full("trun", {0x201, 1, 1u << 31, 1}), 1},
      {"bytes behind the file", full("tfhd", {0, 1}) + full("trun", {0x200, 1, ~0u}), 1},
  };
  for (const auto& lie : lies) {
    SCOPED_TRACE(lie.what);
    const std::string bytes = moov(track(1, ""), extends) + atom("moof", atom("traf", lie.traf));
    const Read read = readMovie(bytes);
    // half as many samples as bytes can be told without entries
    const size_t samples = lie.samples                                          ? lie.samples
                           : std::string(lie.what) == "more samples than bytes" ? bytes.size()
                                                                                : 0;
    EXPECT_EQ(read.tracks[0].size(), samples);
    ASSERT_EQ(read.damages.size(), 1u);
    EXPECT_EQ(read.damages[0].path.substr(0, 9), "moof/traf");
    EXPECT_GE(read.damages[0].offset, static_cast<int64_t>(bytes.find("traf")));
  }
}

// The movie's timescale is 600, the track's 1000.
TEST(EditMap, WhereSamplesAreShown) {
  constexpr int32_t kOne = 0x10000;
  const struct {
    const char* what;
    std::vector<Edit> edits;
    int64_t composition;
    PVTime expected;
    bool hidden;
  } cases[] = {
      {"no edits", {}, 70, PVTimeMake(70, 1000), false},
      {"from the middle", {{600, 50, kOne}}, 70, PVTimeMake(20, 1000), false},
      {"before the edit", {{600, 50, kOne}}, 30, PVTimeMake(-20, 1000), true},
      {"across its start", {{600, 50, kOne}}, 45, PVTimeMake(-5, 1000), false},
      {"behind its end", {{600, 50, kOne}}, 1050, PVTimeMake(1000, 1000), true},
      {"at its last unit", {{600, 50, kOne}}, 1049, PVTimeMake(999, 1000), false},
      {"behind a gap", {{300, -1, kOne}, {600, 50, kOne}}, 70, PVTimeMake(520, 1000), false},
      {"behind a gap that is no whole number of units",
       {{1, -1, kOne}, {600, 0, kOne}},
       70,
       PVTimeMake(215, 3000),
       false},
      {"in the second edit", {{60, 500, kOne}, {60, 100, kOne}}, 150, PVTimeMake(150, 1000), false},
      {"between two edits of the media",
       {{60, 100, kOne}, {60, 500, kOne}},
       300,
       PVTimeMake(200, 1000),
       true},
      {"in both edits", {{60, 100, kOne}, {600, 0, kOne}}, 150, PVTimeMake(50, 1000), false},
      {"around the one before", {{60, 100, kOne}, {600, 0, kOne}}, 250, PVTimeMake(350, 1000), false},
      {"at twice the speed", {{600, 100, 2 * kOne}}, 300, PVTimeMake(100, 1000), false},
      {"at half the speed", {{600, 100, kOne / 2}}, 300, PVTimeMake(400, 1000), false},
      {"where the picture is held", {{60, 100, 0}, {600, 101, kOne}}, 100, PVTimeMake(0, 1), false},
      {"behind the held picture", {{60, 100, 0}, {600, 101, kOne}}, 111, PVTimeMake(110, 1000), false},
      {"an open end", {{0, 50, kOne}}, 1 << 30, PVTimeMake((1 << 30) - 50, 1000), false},
      {"only gaps", {{600, -1, kOne}}, 70, PVTimeMake(70, 1000), false},
      {"the farthest there is",
       {{~0ull, -1, kOne}, {~0ull, INT64_MAX, kOne}},
       70,
       PVTimeMake(70, 1000),
       false},
  };
  for (const auto& one : cases) {
    const EditMap::Shown shown = EditMap(one.edits, 600, 1000).at(one.composition, 10);
    EXPECT_EQ(PVTimeCompare(shown.time, one.expected), 0)
        << one.what << ": " << shown.time.value << "/" << shown.time.timescale;
    EXPECT_FALSE(PVTimeHasBeenRounded(shown.time)) << one.what;
    EXPECT_EQ(shown.hidden, one.hidden) << one.what;
  }
}

// Against the plain way of finding it, over more samples than are looked at together.
TEST(UpcomingTimes, AreTheEarliestOfAllThatFollow) {
  std::mt19937 random(5);
  std::string offsets, sizes;
  std::vector<int64_t> times;
  constexpr uint32_t kCount = 1000;
  for (uint32_t i = 0; i < kCount; ++i) {
    const uint32_t offset = i % 300 == 7 ? 5000 : random() % 40;
    offsets += words({1, offset});
    times.push_back(10 * i + offset);
  }
  Reader reader(moov(track(1, full("stts", {0, 1, kCount, 10}) + full("ctts", {0, kCount}, offsets) +
                                  full("stsc", {0, 1, 1, kCount, 1}) + full("stsz", {0, 1, kCount}) +
                                  full("stco", {0, 1, 0}))));
  ASSERT_TRUE(reader.damages.empty()) << reader.damages[0].message;
  const EditMap edits({}, 600, 1000);
  UpcomingTimes upcoming(reader.index.tracks()[0], edits);
  ASSERT_EQ(upcoming.sampleCount(), kCount);
  for (uint32_t i = 0; i + 1 < kCount; ++i)
    ASSERT_EQ(upcoming.next().value, *std::min_element(times.begin() + i + 1, times.end())) << i;
  EXPECT_TRUE(PVTimeIsPositiveInfinity(upcoming.next()));
}

}  // namespace
