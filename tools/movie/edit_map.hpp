// When a movie shows what stands at a time of a track's media: its edit list (ISO/IEC 14496-12 8.6.6).
#pragma once

#include <pevrin/time.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "movie_facts.hpp"

// Edits follow each other on the movie's timeline. An empty one leaves a gap; one of rate 0 holds the picture
// that stands at its media time; any other shows its duration times its rate of the media. A last edit of
// duration 0 goes on to the media's end, as in fragmented movies.
//
// A sample is shown once: by the edit that shows the first instant of it that any edit shows, and of edits
// that repeat the same media by the first. A sample that no edit shows is hidden. It stands on the line of
// the edit that shows the media before it, or of the first one after it when there is none: samples that only
// prepare the decoder for the first edit have times before it, which may be negative. Without an edit list,
// or one that shows no media, movie and media times are the same.
//
// Times are exact, in the track's timescale or, where a gap is no whole number of its units, in a common one.
class EditMap {
 public:
  struct Shown {
    PVTime time;             // on the movie's timeline
    int32_t rate = 0x10000;  // 16.16; 0 holds the picture
    bool hidden = false;
  };

  // The track's timescale is positive. A rate below 0 counts as 1.
  EditMap(std::span<const Edit> edits, std::optional<uint32_t> movieTimescale, int32_t timescale);

  Shown at(int64_t composition, int64_t duration) const;

 private:
  // Of the media from start up to end; they do not overlap and are in order.
  struct Segment {
    int64_t start, end;
    int64_t origin;     // the media time that the edit shows first
    PVTime time;        // when it does
    int64_t shift = 0;  // from media to movie time, when rate and timescale allow
    bool isShift = false;
    int32_t rate;
  };

  int32_t timescale_;
  std::vector<Segment> segments_;
};
