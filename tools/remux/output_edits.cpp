#include "output_edits.hpp"

#include <algorithm>

uint64_t rescaled(uint64_t value, uint32_t from, uint32_t to) {
  if (from == 0) return 0;
  return static_cast<uint64_t>((static_cast<unsigned __int128>(value) * to + from - 1) / from);
}

std::vector<Edit> outputEdits(const MovieFile& movie, size_t track, int64_t firstDecode, int64_t shownEnd) {
  const TrackFacts& said = movie.facts().tracks()[track];
  std::vector<Edit> edits = said.edits;
  if (movie.index().tracks()[track].runs.empty()) return edits;
  const auto onMovie = [&](int64_t length) {
    return rescaled(static_cast<uint64_t>(length), said.timescale.value_or(0),
                    movie.facts().timescale().value_or(0));
  };
  if (edits.empty() && firstDecode > 0) edits = {Edit{0, 0, 0x10000}};
  for (size_t i = 0; i < edits.size(); ++i) {
    if (edits[i].mediaTime < 0) continue;
    edits[i].mediaTime -= firstDecode;
    if (edits[i].mediaTime < 0) {
      const Edit gap{onMovie(-edits[i].mediaTime), -1, 0x10000};
      edits.insert(edits.begin() + static_cast<std::ptrdiff_t>(i), gap);
      edits[++i].mediaTime = 0;
    }
    if (edits[i].segmentDuration == 0 && i + 1 == edits.size())
      edits[i].segmentDuration = onMovie(std::max<int64_t>(0, shownEnd - edits[i].mediaTime));
  }
  return edits;
}

int64_t startByEdits(const MovieFile& movie, size_t track, int64_t firstDecode) {
  unsigned __int128 gap = 0;
  for (const Edit& edit : outputEdits(movie, track, firstDecode, 0)) {
    if (edit.mediaTime < 0) {
      gap += edit.segmentDuration;
      continue;
    }
    const uint32_t timescale = movie.facts().tracks()[track].timescale.value_or(0);
    const uint32_t movieTimescale = std::max<uint32_t>(1, movie.facts().timescale().value_or(0));
    const auto start =
        std::min<unsigned __int128>(gap * timescale / movieTimescale, SampleTables::kLargestTime);
    return static_cast<int64_t>(start) - edit.mediaTime;
  }
  return 0;
}
