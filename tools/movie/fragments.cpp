#include "fragments.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "table.hpp"

namespace {

constexpr PVStatus kMalformed = kKivAtomStreamError_MalformedAtom;

// Of 'tfhd'.
constexpr uint32_t kBaseDataOffset = 1, kDescription = 2, kDuration = 8, kSize = 0x10, kFlags = 0x20,
                   kBaseIsMoof = 0x20000;
// Of 'trun'.
constexpr uint32_t kDataOffset = 1, kFirstFlags = 4, kEntryFields = 0xF00;

int64_t dataLengthOf(const KivAtomStream* stream) {
  int64_t length = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &length);
  return length;
}

// Takes the optional words of an atom one after another.
class Words {
 public:
  Words(const AtomFields& fields, size_t at) : fields_(fields), at_(at) {}
  uint32_t next(bool present, uint32_t otherwise) {
    if (!present) return otherwise;
    at_ += 4;
    return fields_.u32(at_ - 4);
  }

 private:
  const AtomFields& fields_;
  size_t at_;
};

// Version and flags first, since flags say how many fields there are.
std::optional<Fault> readFields(const KivAtomStream* stream, AtomFields& fields, uint8_t lastVersion,
                                size_t always, size_t (*optional)(uint32_t flags)) {
  if (auto fault = fields.read(stream, lastVersion, 0)) return fault;
  return fields.read(stream, lastVersion, always + optional(fields.flags()));
}

// Adds up the words of entries.
uint64_t sumOf(const uint8_t* at, uint32_t count, size_t entryBytes) {
  uint64_t sum = 0;
  for (; count > 0; --count, at += entryBytes) sum += bigEndian32(at);
  return sum;
}

}  // namespace

void Fragments::beginMovieFragment(int64_t offset) { movieFragment_ = dataEnd_ = offset; }

void Fragments::beginTrackFragment() { track_.reset(); }

std::optional<Fault> Fragments::readDefaults(const KivAtomStream* stream) {
  AtomFields fields;
  if (auto fault = fields.read(stream, 0, 20)) return fault;
  defaults_.try_emplace(fields.u32(0),
                        Defaults{fields.u32(4), fields.u32(8), fields.u32(12), fields.u32(16)});
  return std::nullopt;
}

std::optional<Fault> Fragments::readHeader(const KivAtomStream* stream, std::span<const MovieTrack> tracks) {
  AtomFields fields;
  if (auto fault = readFields(stream, fields, 0, 4, [](uint32_t flags) -> size_t {
        return (flags & kBaseDataOffset ? 8 : 0) +
               4 * static_cast<size_t>(
                       __builtin_popcount(flags & (kDescription | kDuration | kSize | kFlags)));
      }))
    return fault;
  const uint32_t id = fields.u32(0), flags = fields.flags();
  const auto track = tracks_.find(id);
  if (track == tracks_.end()) return Fault{kMalformed, fmt::format("there is no track {}", id)};
  track_ = track->second;
  firstSample_ = tracks[*track_].tables.sampleCount + tracks[*track_].runSamples;
  if (const auto found = defaults_.find(id); found != defaults_.end())
    current_ = found->second;
  else
    current_ = {};
  base_ = flags & kBaseIsMoof ? movieFragment_ : dataEnd_;
  if (flags & kBaseDataOffset) {
    const uint64_t base = fields.u64(4);
    base_ = base > INT64_MAX ? MovieSample::kNowhere : static_cast<int64_t>(base);
  }
  Words words(fields, flags & kBaseDataOffset ? 12 : 4);
  current_.description = words.next(flags & kDescription, current_.description);
  current_.duration = words.next(flags & kDuration, current_.duration);
  current_.size = words.next(flags & kSize, current_.size);
  current_.flags = words.next(flags & kFlags, current_.flags);
  dataEnd_ = base_;
  return std::nullopt;
}

int64_t& Fragments::endTimeOf(size_t index, const MovieTrack& track) {
  return endTimes_.try_emplace(index, track.tables.endTime).first->second;
}

std::optional<Fault> Fragments::readDecodeTime(const KivAtomStream* stream,
                                               std::span<const MovieTrack> tracks) {
  if (!track_) return std::nullopt;
  AtomFields fields;
  if (auto fault = fields.read(stream, 1, 0)) return fault;
  const bool wide = fields.version() == 1;
  if (auto fault = fields.read(stream, 1, wide ? 8 : 4)) return fault;
  const uint64_t time = wide ? fields.u64(0) : fields.u32(0);
  if (time > static_cast<uint64_t>(SampleTables::kLargestTime))
    return Fault{kMalformed, fmt::format("its time {} is too large", time)};
  endTimeOf(*track_, tracks[*track_]) = static_cast<int64_t>(time);
  return std::nullopt;
}

std::optional<Fault> Fragments::readRun(const KivAtomStream* stream, std::span<MovieTrack> tracks,
                                        int64_t& bytesLeft) {
  if (!track_) return std::nullopt;  // reported with the 'tfhd'
  MovieTrack& track = tracks[*track_];
  AtomFields fields;
  if (auto fault = readFields(stream, fields, 1, 4, [](uint32_t flags) -> size_t {
        return 4 * static_cast<size_t>(__builtin_popcount(flags & (kDataOffset | kFirstFlags)));
      }))
    return fault;
  const uint32_t flags = fields.flags();
  FragmentRun run{.count = fields.u32(0),
                  .fields = flags & kEntryFields,
                  .duration = current_.duration,
                  .size = current_.size,
                  .flags = current_.flags,
                  .firstFlags = fields.u32(flags & kDataOffset ? 8 : 4),
                  .description = current_.description};
  if ((flags & kFirstFlags) == 0) run.firstFlags = current_.flags;

  std::optional<Fault> fault;
  const size_t begin = 8 + 4 * static_cast<size_t>(__builtin_popcount(flags & (kDataOffset | kFirstFlags)));
  const uint64_t left = static_cast<uint64_t>(dataLengthOf(stream)) - begin;
  const uint64_t room = run.fields ? left / run.entryBytes()
                                   : static_cast<uint64_t>(bytesLeft) / std::max<uint32_t>(run.size, 1);
  if (run.count > room) {
    fault = run.fields ? Fault{kKivAtomStreamError_OutOfBounds,
                               fmt::format("it lists {} samples but has room for {}", run.count, room)}
                       : Fault{kMalformed, fmt::format("it counts {} samples of {} bytes, more than the file "
                                                       "has room for",
                                                       run.count, run.size)};
    run.count = static_cast<uint32_t>(room);
  }
  if (run.count == 0) return fault;
  const size_t bytes = run.count * run.entryBytes();
  if (bytes > 0) {
    uint8_t* entries = track.runEntries.room(bytes);
    if (PVStatus status =
            KivAtomStreamReadCurrentAtomData(stream, static_cast<int64_t>(begin), bytes, entries))
      return Fault{status, "its data could not be read"};
    run.entries = entries;
  } else {
    bytesLeft -= int64_t{run.count} * std::max<uint32_t>(run.size, 1);
  }
  if (auto lost = place(run, fields, track)) fault = std::move(lost);
  return fault;
}

// Where the run is, in time and in the file, and what follows from it for the next one.
std::optional<Fault> Fragments::place(FragmentRun& run, const AtomFields& fields, MovieTrack& track) {
  const uint8_t* entries = run.entries;
  const bool durations = run.fields & FragmentRun::kDurations;
  const uint64_t duration =
      durations ? sumOf(entries, run.count, run.entryBytes()) : uint64_t{run.duration} * run.count;
  const uint64_t size = run.fields & FragmentRun::kSizes
                            ? sumOf(entries + (durations ? 4 : 0), run.count, run.entryBytes())
                            : uint64_t{run.size} * run.count;
  int64_t& time = endTimeOf(*track_, track);
  run.decode = time;
  if (duration > static_cast<uint64_t>(SampleTables::kLargestTime - time))
    return Fault{kMalformed, "its times are too large"};
  time += static_cast<int64_t>(duration);

  run.offset = dataEnd_;
  if (fields.flags() & kDataOffset) {
    const auto relative = static_cast<int32_t>(fields.u32(4));
    if (base_ < 0 || __builtin_add_overflow(base_, relative, &run.offset) || run.offset < 0)
      run.offset = MovieSample::kNowhere;
  }
  if (run.offset < 0 || size > INT64_MAX ||
      __builtin_add_overflow(run.offset, static_cast<int64_t>(size), &dataEnd_))
    dataEnd_ = MovieSample::kNowhere;
  track.runEntries.keep(run.count * run.entryBytes());
  track.runs.push_back(run);
  track.runSamples += run.count;
  if (dataEnd_ >= 0 && dataEnd_ <= fileSize_) return std::nullopt;
  if (run.offset < 0)
    return Fault{kKivAtomStreamError_NotEnoughData, "its samples begin at no place that a file has"};
  return Fault{kKivAtomStreamError_NotEnoughData,
               fmt::format("its {} samples go from byte {} on past the end of the file, which has {}",
                           run.count, run.offset, fileSize_)};
}
