#include "interleaver.hpp"

void Interleaver::Track::advance() {
  MovieSample sample;
  upcoming.reset();
  if (cursor.next(sample)) upcoming = sample;
}

Interleaver::Interleaver(const std::vector<Source>& sources) {
  for (const Source& source : sources) {
    tracks_.push_back({SampleCursor(*source.samples), source.timescale, std::nullopt});
    tracks_.back().advance();
  }
}

bool Interleaver::isEarlier(const Track& one, const Track& other) {
  return static_cast<__int128>(one.upcoming->decode) * other.timescale <
         static_cast<__int128>(other.upcoming->decode) * one.timescale;
}

bool Interleaver::next(OutputChunk& chunk) {
  Track* first = nullptr;
  for (Track& track : tracks_)
    if (track.upcoming && (!first || isEarlier(track, *first))) first = &track;
  if (!first) return false;
  chunk.track = static_cast<size_t>(first - tracks_.data());
  chunk.description = first->upcoming->description;
  chunk.samples.clear();
  // What a sample is said to last may not be how long after it the next one comes, and is not what is
  // written.
  const __int128 begin = first->upcoming->decode;
  // Of samples that are all decoded at once a chunk would not end.
  while (first->upcoming && first->upcoming->description == chunk.description &&
         chunk.samples.size() < 4096 && (first->upcoming->decode - begin) * 2 < first->timescale) {
    chunk.samples.push_back(*first->upcoming);
    first->advance();
  }
  return true;
}
