// Which groups the samples of a track belong to (ISO/IEC 14496-12 8.9.2), such as those before which a
// decoder has to begin earlier.
#pragma once

#include <kiv/atom_stream.h>

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "damage.hpp"

// Takes the 'sbgp' atoms of a track's tables and fragments in the order of the file.
class SampleGroups {
 public:
  // What the samples are grouped by. A parameter makes it an atom of version 1.
  struct Grouping {
    PVFourCharCode type = 0;
    std::optional<uint32_t> parameter;
    auto operator<=>(const Grouping&) const = default;
  };
  struct Run {
    uint64_t first = 0, count = 0;  // samples, from 0
    uint32_t entry = 0;             // of the track's 'sgpd' of that type, from 1; 0 for no group
  };
  struct Members {
    std::vector<Run> runs;     // in the order of samples; between runs nothing is said
    bool inFragments = false;  // an entry is one of an 'sgpd' in the same fragment: it is above 0x10000
  };

  // Each is looked at for each fragment that is written. Movies have a few.
  static constexpr size_t kMostGroupings = 64;

  // An atom whose first sample is that one. It counts instead of what was said before of samples from there
  // on.
  std::optional<Fault> read(const KivAtomStream* stream, uint64_t firstSample);

  const std::map<Grouping, Members>& groupings() const { return groupings_; }

 private:
  std::map<Grouping, Members> groupings_;
};
