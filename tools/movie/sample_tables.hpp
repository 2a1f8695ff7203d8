// The sample tables of one track (ISO/IEC 14496-12 8.6.1 to 8.7.5): where each of its samples is, how large,
// when it is decoded and shown.
#pragma once

#include <pevrin/base.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "table.hpp"

// Nothing is unpacked: entries stay as they are in the file, and a cursor goes through all tables side by
// side.
//
// Of tables that disagree as many samples are believed as all of them have: entries of sizes, times and
// chunks. Composition offsets that run out are 0 from there on, as without a table; too few dependencies
// count for none. Composition offsets are signed in both versions, since version 0 is written that way, too.
class SampleTables {
 public:
  // Media times from -kLargestTime to kLargestTime leave room for sums of a few of them.
  static constexpr int64_t kLargestTime = int64_t{1} << 62;

  struct TableFault {
    PVFourCharCode table;  // 0 for the 'stbl' itself
    Fault fault;
  };

  // An atom of the track's 'stbl'. The first one of its type counts. stream is null when the atom is
  // truncated.
  std::optional<Fault> read(PVFourCharCode type, const KivAtomStream* stream);

  // Once all are read: settles the number of samples. Sizes that are all the same take no room in the file,
  // so that their number proves nothing: they are believed up to bytesLeft together, which is lessened by
  // them, unless whole chunks are one entry each.
  std::vector<TableFault> settle(bool inChunks, int64_t& bytesLeft);

  // Whether all samples are one size and one unit of time long, as those of uncompressed sound are.
  bool isUniform() const { return constantSize != 0 && times.count() == 1 && times.word(0, 8, 4) == 1; }

  uint64_t sampleCount = 0;
  int64_t endTime = 0;  // where the last sample ends
  Table times;          // stts: count, duration
  Table offsets;        // ctts: count, offset
  Table chunkRuns;      // stsc: first chunk, samples per chunk, description
  Table sizes;          // stsz, stz2: sizeBits each, unless constantSize
  Table chunks;         // stco, co64: offsets of chunkBytes each
  Table syncs;          // stss; without it all are sync samples
  Table dependencies;   // sdtp: a byte each
  uint32_t constantSize = 0;
  unsigned sizeBits = 32;  // 4, 8, 16 or 32
  size_t chunkBytes = 4;   // 4 or 8

 private:
  std::optional<Fault> readSizes(const KivAtomStream* stream, bool compact);
  void settleTimes(std::vector<TableFault>& faults);
  void settleChunks(std::vector<TableFault>& faults);
  void settleExtras(std::vector<TableFault>& faults);

  uint64_t declaredCount_ = 0;  // by stsz or stz2
  PVFourCharCode sizesType_ = 0, chunksType_ = 0;
};
