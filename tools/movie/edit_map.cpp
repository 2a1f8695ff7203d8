#include "edit_map.hpp"

#include <algorithm>
#include <iterator>
#include <map>

#include "sample_tables.hpp"

namespace {

constexpr int64_t kLargest = SampleTables::kLargestTime;

// How much media of the timescale a duration on the movie's shows; a part of a unit counts as one.
int64_t mediaLength(uint64_t duration, uint32_t movieTimescale, int32_t timescale, int32_t rate) {
  // 64, 31 and 31 bits: at most 126
  const auto scaled = static_cast<unsigned __int128>(duration) * static_cast<uint32_t>(timescale) *
                      static_cast<uint32_t>(rate);
  const auto divisor = static_cast<unsigned __int128>(movieTimescale) << 16;
  const auto length = (scaled + divisor - 1) / divisor;
  return length > static_cast<unsigned __int128>(kLargest) ? kLargest : static_cast<int64_t>(length);
}

// The parts of ranges that no range before has.
class Uncovered {
 public:
  template <class Use>
  void take(int64_t start, int64_t end, Use use) {
    if (start == end) return;
    auto next = covered_.upper_bound(start);
    if (next != covered_.begin() && std::prev(next)->second >= start) --next;
    int64_t from = start, first = start, last = end;
    while (next != covered_.end() && next->first <= end) {
      if (next->first > from) use(from, next->first);
      from = std::max(from, next->second);
      first = std::min(first, next->first);
      last = std::max(last, next->second);
      next = covered_.erase(next);
    }
    if (from < end) use(from, end);
    covered_.emplace(first, last);
  }

 private:
  std::map<int64_t, int64_t> covered_;  // start and end; they do not touch
};

}  // namespace

EditMap::EditMap(std::span<const Edit> edits, std::optional<uint32_t> movieTimescale, int32_t timescale)
    : timescale_(timescale) {
  if (!movieTimescale || *movieTimescale == 0 || *movieTimescale > INT32_MAX) return;
  const auto movieScale = static_cast<int32_t>(*movieTimescale);
  Uncovered uncovered;
  int64_t elapsed = 0;  // of the movie
  for (size_t i = 0; i < edits.size(); ++i) {
    const Edit& edit = edits[i];
    const bool last = i + 1 == edits.size();
    if (edit.mediaTime >= 0 && edit.mediaTime <= kLargest) {
      const int32_t rate = edit.rate < 0 ? 0x10000 : edit.rate;
      int64_t length = rate == 0 ? 1 : mediaLength(edit.segmentDuration, *movieTimescale, timescale, rate);
      if (edit.segmentDuration == 0) length = last && rate ? kLargest : 0;
      Segment segment{0, 0, edit.mediaTime, PVTimeMake(elapsed, movieScale), 0, false, rate};
      const __int128 begin = static_cast<__int128>(elapsed) * timescale;
      segment.isShift = rate == 0x10000 && begin % movieScale == 0 && begin / movieScale <= kLargest / 2;
      if (segment.isShift) segment.shift = static_cast<int64_t>(begin / movieScale) - edit.mediaTime;
      const int64_t mediaEnd = edit.mediaTime + std::min(length, INT64_MAX - edit.mediaTime);
      uncovered.take(edit.mediaTime, mediaEnd, [&](int64_t start, int64_t end) {
        segment.start = start;
        segment.end = end;
        segments_.push_back(segment);
      });
    }
    const auto left = static_cast<uint64_t>(kLargest - elapsed);
    elapsed += static_cast<int64_t>(std::min(edit.segmentDuration, left));
  }
  std::ranges::sort(segments_, {}, &Segment::start);
}

EditMap::Shown EditMap::at(int64_t composition, int64_t duration) const {
  if (segments_.empty()) return {PVTimeMake(composition, timescale_)};
  auto next = std::ranges::upper_bound(segments_, composition, {}, &Segment::start);
  auto segment = next == segments_.begin() ? next : std::prev(next);
  bool hidden = false;
  if (composition < segment->start || composition >= segment->end) {
    hidden = next == segments_.end() || next->start >= composition + duration;
    if (!hidden) segment = next;
  }
  Shown shown{kPVTimeInvalid, segment->rate, hidden};
  if (segment->isShift) {
    shown.time = PVTimeMake(composition + segment->shift, timescale_);
  } else if (segment->rate == 0) {
    shown.time = segment->time;
  } else {
    PVTime since = PVTimeMake(composition - segment->origin, timescale_);
    if (segment->rate != 0x10000) since = PVTimeMultiplyByRatio(since, 0x10000, segment->rate);
    shown.time = PVTimeAdd(segment->time, since);
  }
  return shown;
}
