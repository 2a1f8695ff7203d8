#include "interleaver.hpp"

void Interleaver::Track::advance() {
  MovieSample sample;
  upcoming.reset();
  if (cursor.next(sample)) upcoming = sample;
}

Interleaver::Interleaver(const std::vector<Source>& sources) {
  for (const Source& source : sources) {
    tracks_.push_back({SampleCursor(*source.samples), source.timescale, std::nullopt, source.start});
    Track& track = tracks_.back();
    track.advance();
    if (track.upcoming) track.shift -= track.upcoming->decode;
  }
}

bool Interleaver::isEarlier(const Track& one, const Track& other) {
  return (one.upcoming->decode + one.shift) * other.timescale <
         (other.upcoming->decode + other.shift) * one.timescale;
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
