// What a movie's headers say of times and tracks.
#pragma once

#include <kiv/atom_stream.h>
#include <pevrin/time.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "damage.hpp"

// A count of units on a timescale, either of which the file may lack or leave open.
struct Duration {
  std::optional<uint64_t> value;  // empty when not stored, or stored as "unknown" (all ones)
  std::optional<uint32_t> timescale;

  // Invalid when there is no such time.
  PVTime time() const;
};

struct Edit {
  uint64_t segmentDuration;  // on the movie's timescale
  int64_t mediaTime;         // on the track's timescale; -1 for an empty edit
  int32_t rate;              // 16.16

  double rateAsDouble() const { return rate / 65536.0; }
};

struct TrackFacts {
  std::optional<uint32_t> id;              // tkhd
  std::optional<PVFourCharCode> handler;   // hdlr
  std::optional<uint32_t> timescale;       // mdhd
  std::optional<uint64_t> duration;        // mdhd, on the track's timescale
  std::optional<uint64_t> editedDuration;  // tkhd, on the movie's timescale
  std::vector<Edit> edits;                 // elst
};

// Gathers the facts of the first moov/mvhd and moov/mvex/mehd and of every moov/trak (ISO/IEC
// 14496-12 8.2, 8.3, 8.4, 8.6.6, 8.8.2), versions 0 and 1.
class MovieFacts {
 public:
  // An atom begins: types lead to it from the top of the file. stream stands on it; null when the atom is
  // truncated and its data are not to be read. Says what is wrong with the atom's data, after taking from
  // them what it can.
  std::optional<Fault> read(std::span<const PVFourCharCode> types, const KivAtomStream* stream);

  bool hasMovie() const { return hasMovie_; }
  // Whether there are movie fragments, or may be, that the movie's duration does not count.
  bool fragmentsNotCounted() const { return fragmented_ && !fragmentDuration_; }
  std::optional<uint32_t> timescale() const { return timescale_; }
  // The movie header's; that of a fragmented movie may be 0, and then the one of its mehd counts, if there is
  // one.
  Duration duration() const;
  Duration mediaDuration(const TrackFacts& track) const { return {track.duration, track.timescale}; }
  Duration editedDuration(const TrackFacts& track) const { return {track.editedDuration, timescale_}; }
  const std::vector<TrackFacts>& tracks() const { return tracks_; }

 private:
  std::optional<Fault> readMovieHeader(const KivAtomStream* stream);
  std::optional<Fault> readMovieExtendsHeader(const KivAtomStream* stream);
  std::optional<Fault> readTrackHeader(const KivAtomStream* stream);
  std::optional<Fault> readMediaHeader(const KivAtomStream* stream);
  std::optional<Fault> readHandler(const KivAtomStream* stream);
  std::optional<Fault> readEditList(const KivAtomStream* stream);

  bool hasMovie_ = false;
  bool fragmented_ = false;
  std::optional<uint32_t> timescale_;
  std::optional<uint64_t> duration_, fragmentDuration_;
  std::vector<TrackFacts> tracks_;
};
