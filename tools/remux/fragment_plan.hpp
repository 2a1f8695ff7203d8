// How a movie's samples are divided into fragments.
#pragma once

#include <pevrin/time.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "interleaver.hpp"

// The samples of one fragment, by track.
using Fragment = std::vector<std::vector<MovieSample>>;

// A fragment begins with a sync sample of the leading track, not before the fragment before it has the length
// that is asked for, and takes from the other tracks what is decoded until the next one begins.
class FragmentPlan {
 public:
  // lead: the leading track, where the others are not cut: that of the pictures.
  FragmentPlan(const std::vector<Interleaver::Source>& sources, size_t lead, PVTime length);

  // False behind the last one.
  bool next(Fragment& fragment);

 private:
  struct Track {
    const MovieTrack* samples;
    SampleCursor cursor;
    int32_t timescale;
    std::optional<MovieSample> upcoming;

    PVTime time() const { return PVTimeMake(upcoming->decode, timescale); }
    // The upcoming sample, which lasts until the one after it; of a chunk what begins before the end.
    MovieSample take(PVTime end);
    // How many samples of the chunk that comes begin before the end.
    uint64_t countBefore(PVTime end) const;
  };

  std::vector<Track> tracks_;
  size_t lead_;
  PVTime length_;
};
