// Each header is read once whole, as far as its fields go, and then taken apart field by field.
#include "movie_facts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>

#include "atom_type.hpp"

namespace {

// Takes big-endian numbers one after another.
class BigEndian {
 public:
  explicit BigEndian(const uint8_t* bytes) : at_(bytes) {}
  uint64_t take(size_t length) {
    uint64_t value = 0;
    for (; length > 0; --length) value = value << 8 | *at_++;
    return value;
  }

 private:
  const uint8_t* at_;
};

// The first bytes of a full atom's data: version, flags, then fields whose width depends on the version.
class Fields {
 public:
  explicit Fields(const KivAtomStream* stream) : stream_(stream) {}

  // Reads version, flags and the fields behind them, whose lengths are told for versions 0 and 1.
  std::optional<Fault> open(size_t length0, size_t length1) {
    PVStatus status = KivAtomStreamGetCurrentAtomVersionAndFlags(stream_, &version_, nullptr);
    if (status == kPVStatus_Success && version_ > 1)
      return Fault{kKivAtomStreamError_MalformedAtom, fmt::format("its version {} is not known", version_)};
    const size_t length = 4 + (wide() ? length1 : length0);
    if (status == kPVStatus_Success)
      status = KivAtomStreamReadCurrentAtomData(stream_, 0, length, bytes_.data());
    if (status == kPVStatus_Success) return std::nullopt;
    if (status != kKivAtomStreamError_OutOfBounds) return Fault{status, "its data could not be read"};
    int64_t dataLength = 0;
    KivAtomStreamGetCurrentAtomTypeAndDataLength(stream_, nullptr, &dataLength);
    return Fault{
        status, fmt::format("its data are {} bytes, too few for its {} bytes of fields", dataLength, length)};
  }

  bool wide() const { return version_ == 1; }
  uint32_t u32() { return static_cast<uint32_t>(numbers_.take(4)); }
  // Dates and durations: 64 bits in version 1, else 32.
  uint64_t scaled() { return numbers_.take(wide() ? 8 : 4); }
  // All ones mean that it is not known.
  std::optional<uint64_t> duration() {
    const uint64_t value = scaled();
    const uint64_t unknown =
        wide() ? std::numeric_limits<uint64_t>::max() : std::numeric_limits<uint32_t>::max();
    return value == unknown ? std::nullopt : std::optional(value);
  }

 private:
  const KivAtomStream* stream_;
  uint8_t version_ = 0;
  std::array<uint8_t, 36> bytes_{};  // those of a version 1 track header
  BigEndian numbers_{bytes_.data() + 4};
};

// A timescale and a duration that a time can hold.
std::optional<Fault> checkTime(std::optional<uint32_t> timescale, std::optional<uint64_t> duration) {
  constexpr PVStatus status = kKivAtomStreamError_MalformedAtom;
  if (timescale && *timescale == 0) return Fault{status, "its timescale is 0"};
  if (timescale && *timescale > static_cast<uint32_t>(std::numeric_limits<int32_t>::max()))
    return Fault{status, fmt::format("its timescale {} is too large", *timescale)};
  if (duration && *duration > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
    return Fault{status, fmt::format("its duration {} is too large", *duration)};
  return std::nullopt;
}

Edit readEdit(const uint8_t* bytes, bool wide) {
  BigEndian numbers(bytes);
  Edit edit{};
  edit.segmentDuration = numbers.take(wide ? 8 : 4);
  const uint64_t mediaTime = numbers.take(wide ? 8 : 4);
  edit.mediaTime = wide ? static_cast<int64_t>(mediaTime) : static_cast<int32_t>(mediaTime);
  edit.rate = static_cast<int32_t>(numbers.take(4));
  return edit;
}

}  // namespace

PVTime Duration::time() const {
  if (!value || !timescale || checkTime(timescale, value)) return kPVTimeInvalid;
  return PVTimeMake(static_cast<int64_t>(*value), static_cast<int32_t>(*timescale));
}

Duration MovieFacts::duration() const {
  const bool none = duration_ && *duration_ == 0;
  return {none && fragmentDuration_ ? fragmentDuration_ : duration_, timescale_};
}

std::optional<Fault> MovieFacts::read(std::span<const PVFourCharCode> types, const KivAtomStream* stream) {
  constexpr auto moov = fourCC("moov"), trak = fourCC("trak"), mdia = fourCC("mdia");
  struct Reader {
    std::array<PVFourCharCode, 4> path;
    std::optional<Fault> (MovieFacts::*read)(const KivAtomStream*);
  };
  static constexpr std::array kReaders = {
      Reader{{moov, fourCC("mvhd")}, &MovieFacts::readMovieHeader},
      Reader{{moov, fourCC("mvex"), fourCC("mehd")}, &MovieFacts::readMovieExtendsHeader},
      Reader{{moov, trak, fourCC("tkhd")}, &MovieFacts::readTrackHeader},
      Reader{{moov, trak, fourCC("edts"), fourCC("elst")}, &MovieFacts::readEditList},
      Reader{{moov, trak, mdia, fourCC("mdhd")}, &MovieFacts::readMediaHeader},
      Reader{{moov, trak, mdia, fourCC("hdlr")}, &MovieFacts::readHandler},
  };
  if (types.back() == fourCC("moof") || types.back() == fourCC("mvex")) fragmented_ = true;
  if (types.size() < 2 || types.size() > 4 || types[0] != moov) return std::nullopt;
  if (types.size() == 2 && types[1] == trak) tracks_.emplace_back();
  if (!stream) return std::nullopt;
  std::array<PVFourCharCode, 4> path{};
  std::ranges::copy(types, path.begin());
  const auto found = std::ranges::find(kReaders, path, &Reader::path);
  return found == kReaders.end() ? std::nullopt : (this->*found->read)(stream);
}

std::optional<Fault> MovieFacts::readMovieHeader(const KivAtomStream* stream) {
  if (hasMovie_) return std::nullopt;
  Fields fields(stream);
  if (auto fault = fields.open(16, 28)) return fault;
  fields.scaled();  // created
  fields.scaled();  // modified
  hasMovie_ = true;
  timescale_ = fields.u32();
  duration_ = fields.duration();
  return checkTime(timescale_, duration_);
}

std::optional<Fault> MovieFacts::readMovieExtendsHeader(const KivAtomStream* stream) {
  if (fragmentDuration_) return std::nullopt;
  Fields fields(stream);
  if (auto fault = fields.open(4, 8)) return fault;
  fragmentDuration_ = fields.duration();
  return checkTime(std::nullopt, fragmentDuration_);
}

std::optional<Fault> MovieFacts::readTrackHeader(const KivAtomStream* stream) {
  TrackFacts& track = tracks_.back();
  Fields fields(stream);
  if (auto fault = fields.open(20, 32)) return fault;
  fields.scaled();  // created
  fields.scaled();  // modified
  track.id = fields.u32();
  fields.u32();  // reserved
  track.editedDuration = fields.duration();
  return checkTime(std::nullopt, track.editedDuration);
}

std::optional<Fault> MovieFacts::readMediaHeader(const KivAtomStream* stream) {
  TrackFacts& track = tracks_.back();
  Fields fields(stream);
  if (auto fault = fields.open(16, 28)) return fault;
  fields.scaled();  // created
  fields.scaled();  // modified
  track.timescale = fields.u32();
  track.duration = fields.duration();
  return checkTime(track.timescale, track.duration);
}

std::optional<Fault> MovieFacts::readHandler(const KivAtomStream* stream) {
  Fields fields(stream);
  if (auto fault = fields.open(8, 8)) return fault;
  fields.u32();  // reserved; 'mhlr' in QuickTime
  tracks_.back().handler = fields.u32();
  return std::nullopt;
}

std::optional<Fault> MovieFacts::readEditList(const KivAtomStream* stream) {
  Fields header(stream);
  if (auto fault = header.open(4, 4)) return fault;
  const uint32_t count = header.u32();
  const bool wide = header.wide();
  const size_t entrySize = wide ? 20 : 12;
  int64_t dataLength = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &dataLength);
  const int64_t room = (dataLength - 8) / static_cast<int64_t>(entrySize);

  std::vector<Edit>& edits = tracks_.back().edits;
  edits.clear();
  for (int64_t i = 0; i < std::min<int64_t>(count, room); ++i) {
    std::array<uint8_t, 20> bytes;
    const PVStatus status = KivAtomStreamReadCurrentAtomData(stream, 8 + i * static_cast<int64_t>(entrySize),
                                                             entrySize, bytes.data());
    if (status != kPVStatus_Success) return Fault{status, "its data could not be read"};
    edits.push_back(readEdit(bytes.data(), wide));
  }
  if (count > room)
    return Fault{kKivAtomStreamError_OutOfBounds,
                 fmt::format("it lists {} edits but has room for {}", count, room)};
  return std::nullopt;
}
