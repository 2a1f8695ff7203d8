// The samples of one track, in decoding order: those of its sample tables, then those of its fragments.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "sample_groups.hpp"
#include "sample_tables.hpp"

// What is said of a sample (ISO/IEC 14496-12 8.6.4). Each is 2 bits: 0 for unknown, 1 for yes, 2 for no,
// except that of isLeading 1 and 3 are yes.
struct SampleDependencies {
  uint8_t isLeading = 0, dependsOnOthers = 0, isDependedOn = 0, hasRedundancy = 0;
};

// One sample, or the samples of one chunk of uncompressed sound.
struct MovieSample {
  // Where its bytes are said to be when that is not a place in any file.
  static constexpr int64_t kNowhere = INT64_MIN;

  uint64_t index = 0;  // of the first, in the track, from 0
  uint64_t count = 1;
  int64_t decode = 0, composition = 0, duration = 0;  // of all together, in units of the track's timescale
  int64_t offset = 0;                                 // in the file, or negative
  int64_t size = 0;                                   // of all together
  uint32_t description = 0;                           // from 1; 0 for none
  bool sync = true;
  SampleDependencies dependencies;
};

// The samples of one 'trun' atom: its entries and what is the same for all of them.
struct FragmentRun {
  enum : uint32_t { kDurations = 0x100, kSizes = 0x200, kFlags = 0x400, kOffsets = 0x800 };  // of an entry

  int64_t decode = 0;                // of the first sample
  int64_t offset = 0;                // of its bytes, or MovieSample::kNowhere
  const uint8_t* entries = nullptr;  // in MovieTrack::runEntries
  uint32_t count = 0;
  uint32_t fields = 0;                         // which of the above
  uint32_t duration = 0, size = 0, flags = 0;  // of samples whose entry does not say it
  uint32_t firstFlags = 0;                     // of the first, likewise
  uint32_t description = 0;

  size_t entryBytes() const {
    return 4 * ((fields >> 8 & 1) + (fields >> 9 & 1) + (fields >> 10 & 1) + (fields >> 11 & 1));
  }
};

// Bytes that stay where they are while more come.
class EntryStore {
 public:
  // Room for count bytes, which keep may then take.
  uint8_t* room(size_t count) {
    if (count > left_) {
      left_ = count > kBlock ? count : kBlock;
      blocks_.push_back(std::make_unique_for_overwrite<uint8_t[]>(left_));
      next_ = blocks_.back().get();
    }
    return next_;
  }
  void keep(size_t count) {
    next_ += count;
    left_ -= count;
  }

 private:
  static constexpr size_t kBlock = size_t{64} << 10;

  std::vector<std::unique_ptr<uint8_t[]>> blocks_;
  uint8_t* next_ = nullptr;
  size_t left_ = 0;
};

struct MovieTrack {
  // Sound in packets of one size: so many bytes hold so many samples.
  struct Packing {
    uint32_t bytes = 0, samples = 1;
  };

  SampleTables tables;
  // Whether the sample tables are given out a chunk at a time.
  bool inChunks = false;
  std::vector<Packing> packings;  // by description from 1
  std::vector<FragmentRun> runs;
  EntryStore runEntries;    // as they stand in the file
  uint64_t runSamples = 0;  // of all runs
  SampleGroups groups;
  // The types of the atoms in its 'stbl', and that itself, each with the offset of the first; and of those in
  // its 'traf's.
  std::map<PVFourCharCode, int64_t> tableAtoms;
  std::set<PVFourCharCode> fragmentAtoms;

  // In QuickTime files a size of 1 in the tables leaves it to the description how large samples are.
  Packing packingOf(uint32_t description) const {
    const size_t at = size_t{description} - 1;
    const bool isDescribed = tables.constantSize == 1 && at < packings.size() && packings[at].bytes;
    return isDescribed ? packings[at] : Packing{tables.constantSize, 1};
  }
};
