#include "sample_groups.hpp"

#include <fmt/format.h>

#include "table.hpp"

namespace {

void cutTo(std::vector<SampleGroups::Run>& runs, uint64_t end) {
  while (!runs.empty() && runs.back().first >= end) runs.pop_back();
  if (!runs.empty() && runs.back().first + runs.back().count > end)
    runs.back().count = end - runs.back().first;
}

}  // namespace

std::optional<Fault> SampleGroups::read(const KivAtomStream* stream, uint64_t firstSample) {
  AtomFields fields;
  if (auto fault = fields.read(stream, 1, 8)) return fault;
  Grouping grouping{.type = fields.u32(0), .parameter = std::nullopt};
  size_t at = 4;
  if (fields.version() == 1) {
    if (auto fault = fields.read(stream, 1, 12)) return fault;
    grouping.parameter = fields.u32(4);
    at = 8;
  }
  if (groupings_.size() == kMostGroupings && !groupings_.contains(grouping))
    return Fault{kKivAtomStreamError_MalformedAtom,
                 fmt::format("the track's samples are grouped in more than {} ways", kMostGroupings)};
  Table entries;
  auto fault = entries.read(stream, static_cast<int64_t>(4 + at + 4), fields.u32(at), 64);
  auto& [runs, inFragments] = groupings_[grouping];
  cutTo(runs, firstSample);
  for (uint64_t i = 0; i < entries.count(); ++i) {
    const uint32_t count = entries.word(i, 8), entry = entries.word(i, 8, 4);
    if (!runs.empty() && runs.back().entry == entry && runs.back().first + runs.back().count == firstSample)
      runs.back().count += count;
    else if (count)
      runs.push_back({firstSample, count, entry});
    firstSample += count;
    inFragments |= entry > 0x10000;
  }
  return fault;
}
