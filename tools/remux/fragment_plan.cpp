#include "fragment_plan.hpp"

#include <algorithm>

#include "failure.hpp"

FragmentPlan::FragmentPlan(const std::vector<Interleaver::Source>& sources, size_t lead, PVTime length)
    : lead_(lead), length_(length) {
  for (const Interleaver::Source& source : sources) {
    Track track{source.samples, SampleCursor(*source.samples), static_cast<int32_t>(source.timescale),
                std::nullopt};
    MovieSample first;
    if (track.cursor.next(first)) track.upcoming = first;
    tracks_.push_back(track);
  }
}

uint64_t FragmentPlan::Track::countBefore(PVTime end) const {
  const auto count = static_cast<int64_t>(upcoming->count);
  const auto step = static_cast<int64_t>(samples->packingOf(upcoming->description).samples);
  const int64_t entryDuration = upcoming->duration / count * step;
  const PVTime distance = PVTimeSubtract(end, time());
  if (!PVTimeIsNumeric(distance) || entryDuration <= 0) return upcoming->count;
  const PVTime units =
      PVTimeConvertScale(distance, timescale, kPVTimeRoundingMethod_RoundTowardPositiveInfinity);
  return static_cast<uint64_t>(
      std::clamp((units.value + entryDuration - 1) / entryDuration * step, step, count));
}

MovieSample FragmentPlan::Track::take(PVTime end) {
  MovieSample taken = *upcoming, following;
  if (const uint64_t count = countBefore(end); count < taken.count) {
    // Sizes of packets are no multiples of those of samples.
    const MovieTrack::Packing packing = samples->packingOf(taken.description);
    const auto bytes = static_cast<int64_t>(count / packing.samples * packing.bytes);
    taken.duration = taken.duration / static_cast<int64_t>(taken.count) * static_cast<int64_t>(count);
    taken.size = bytes;
    taken.count = count;
    upcoming->index += count, upcoming->count -= count;
    upcoming->offset += bytes, upcoming->size -= bytes;
    upcoming->duration -= taken.duration;
    upcoming->decode += taken.duration, upcoming->composition += taken.duration;
    return taken;
  }
  upcoming.reset();
  if (!cursor.next(following)) return taken;
  upcoming = following;
  if (taken.count > 1) return taken;
  taken.duration = following.decode - taken.decode;
  if (taken.duration < 0 || taken.duration > UINT32_MAX)
    throw RemuxFailure(
        fmt::format("sample {} is decoded {} units after the one before it, which no fragment can say",
                    following.index, taken.duration));
  return taken;
}

bool FragmentPlan::next(Fragment& fragment) {
  fragment.assign(tracks_.size(), {});
  size_t lead = lead_;
  if (!tracks_[lead].upcoming) {
    // The leading track has ended; the earliest of the others goes on.
    for (size_t i = 0; i < tracks_.size(); ++i)
      if (tracks_[i].upcoming &&
          (!tracks_[lead].upcoming || PVTimeCompare(tracks_[i].time(), tracks_[lead].time()) < 0))
        lead = i;
    if (!tracks_[lead].upcoming) return false;
  }
  Track& leading = tracks_[lead];
  const PVTime end = PVTimeAdd(leading.time(), length_);
  do fragment[lead].push_back(leading.take(end));
  while (leading.upcoming && (!leading.upcoming->sync || PVTimeCompare(leading.time(), end) < 0));
  // The last one takes what is left.
  const PVTime boundary = leading.upcoming ? leading.time() : lead == lead_ ? end : kPVTimePositiveInfinity;
  for (size_t i = 0; i < tracks_.size(); ++i)
    while (i != lead && tracks_[i].upcoming && PVTimeCompare(tracks_[i].time(), boundary) < 0)
      fragment[i].push_back(tracks_[i].take(boundary));
  return true;
}
