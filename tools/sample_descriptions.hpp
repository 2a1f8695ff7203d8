// A movie's sample entries, made into format descriptions.
#pragma once

#include <bedra/string.h>
#include <kiv/byte_stream.h>
#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "atom_walk.hpp"
#include "damage.hpp"
#include "movie_facts.hpp"

struct SampleDescription {
  size_t track = 0;           // its index in the movie
  uint32_t number = 0;        // the entry's in its 'stsd', from 1
  PVFourCharCode format = 0;  // the entry's; the description's subtype may differ
  br::Ref<PVFormatDescription> description;
};

// Entries are noted while the movie is walked and read afterwards: what they are depends on the track's
// handler and on the file's brand, wherever these stand.
class SampleDescriptions {
 public:
  // The most of one movie: entries, and bytes of all of them together.
  static constexpr size_t kMostEntries = 1000;
  static constexpr int64_t kMostBytes = 16 << 20;

  // An atom begins, on which the walk stands.
  void noteAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk, size_t trackCount);

  // Reads the entries and adds to damages what is wrong with them; an entry that damages already name by its
  // offset is passed over. With verify every entry is also written again in the file's own flavour, and the
  // first byte that differs is reported.
  void read(KivByteStreamRef file, std::span<const TrackFacts> tracks, bool verify,
            std::vector<Damage>& damages);

  std::span<const SampleDescription> ofTrack(size_t track) const;

 private:
  struct Entry {
    size_t track;
    uint32_t number;
    PVFourCharCode format;
    int64_t offset, size;
    std::string path;
  };

  BRStringRef flavor() const;
  std::optional<Damage> readEntry(KivByteStreamRef file, const Entry& entry, PVMediaType handler,
                                  bool verify);

  PVFourCharCode brand_ = 0;  // the major one; 0 without an 'ftyp'
  std::vector<Entry> entries_;
  uint32_t number_ = 0;         // of the last entry in its 'stsd'
  int64_t bytes_ = 0;           // of the entries
  std::optional<Damage> more_;  // there are too many of them
  std::vector<SampleDescription> descriptions_;
};

// Writes a description as a sample entry of a track with that handler, in a flavour. False when it cannot be.
bool writeSampleEntry(PVFourCharCode handler, PVFormatDescriptionRef description, BRStringRef flavor,
                      br::Ref<PVBlockBuffer>& entryOut);
