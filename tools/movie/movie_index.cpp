// Tables are settled when the first fragment comes, since fragments go on from where the tables end, and the
// rest of them at the end of the file.
#include "movie_index.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "atom_type.hpp"

namespace {

constexpr auto moov = fourCC("moov"), moof = fourCC("moof"), traf = fourCC("traf"), stbl = fourCC("stbl");
// The 'uuid' atom that stood for 'senc' before there was one.
constexpr std::array<uint8_t, 16> kSampleEncryption = {0xA2, 0x39, 0x4F, 0x52, 0x5A, 0x9B, 0x4F, 0x14,
                                                       0xA2, 0x44, 0x6C, 0x42, 0x7C, 0x64, 0x8D, 0xF4};
constexpr std::array kTablesPlace = {moov, fourCC("trak"), fourCC("mdia"), fourCC("minf"), stbl};

}  // namespace

void MovieIndex::noteAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk,
                          const MovieFacts& facts, std::vector<Damage>& damages) {
  const std::span<const PVFourCharCode> types = walk.types();
  std::optional<Fault> fault;
  if (types.front() == moof) {
    if (types.size() == 1) settle(facts, damages);
    fault = noteFragment(atom, stream, types.size());
  } else if (types.front() == moov) {
    if (types.size() == 3 && types[1] == fourCC("mvex") && atom.type == fourCC("trex") && stream)
      fault = fragments_.readDefaults(stream);
    tracks_.resize(facts.tracks().size());
    if (types.size() >= kTablesPlace.size() && types.size() <= kTablesPlace.size() + 1 &&
        std::ranges::equal(types.first(kTablesPlace.size()), kTablesPlace))
      noteTable(atom, stream, walk, damages);
  }
  if (fault) damages.push_back({walk.path(), atom.offset, fault->status, std::move(fault->message)});
}

void MovieIndex::noteTable(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk,
                           std::vector<Damage>& damages) {
  if (settled_ == tracks_.size()) return;  // a movie header behind its fragments
  MovieTrack& track = tracks_.back();
  track.tableAtoms.try_emplace(atom.type, atom.offset);
  if (atom.type == stbl) return;
  const bool isGroups = atom.type == fourCC("sbgp") && stream;
  if (auto fault = isGroups ? track.groups.read(stream, 0) : track.tables.read(atom.type, stream))
    damages.push_back({walk.path(), atom.offset, fault->status, std::move(fault->message)});
}

std::optional<Fault> MovieIndex::noteFragment(const Atom& atom, const KivAtomStream* stream, size_t depth) {
  if (depth == 1) fragments_.beginMovieFragment(atom.offset);
  if (depth == 2 && atom.type == traf) fragments_.beginTrackFragment();
  if (depth != 3 || !stream) return std::nullopt;
  if (atom.type == fourCC("tfhd")) return fragments_.readHeader(stream, tracks_);
  if (atom.type == fourCC("tfdt")) return fragments_.readDecodeTime(stream, tracks_);
  if (atom.type == fourCC("trun")) return fragments_.readRun(stream, tracks_, bytesLeft_);
  if (MovieTrack* track = fragments_.currentTrack(tracks_)) {
    track->fragmentAtoms.insert(atom.uuid == kSampleEncryption ? fourCC("senc") : atom.type);
    if (atom.type == fourCC("sbgp")) return track->groups.read(stream, fragments_.firstSample());
  }
  return std::nullopt;
}

void MovieIndex::settle(const MovieFacts& facts, std::vector<Damage>& damages) {
  for (; settled_ < tracks_.size(); ++settled_) {
    MovieTrack& track = tracks_[settled_];
    const TrackFacts& said = facts.tracks()[settled_];
    if (said.id) fragments_.setTrack(*said.id, settled_);
    track.inChunks = said.handler == fourCC("soun") && track.tables.isUniform();
    for (auto& [type, fault] : track.tables.settle(track.inChunks, bytesLeft_)) {
      auto [path, offset] = placeOf(settled_, type);
      damages.push_back({std::move(path), offset, fault.status, std::move(fault.message)});
    }
  }
}

// Made up here and not asked of the walk, which would look through the whole file for numbers.
std::pair<std::string, int64_t> MovieIndex::placeOf(size_t track, PVFourCharCode type) const {
  std::string path = tracks_.size() > 1 ? fmt::format("moov/trak[{}]/mdia/minf/stbl", track + 1)
                                        : "moov/trak/mdia/minf/stbl";
  const auto& places = tracks_[track].tableAtoms;
  if (const auto found = places.find(type); found != places.end() && type != stbl)
    return {path + "/" + typeText(type), found->second};
  const auto table = places.find(stbl);
  return {path, table == places.end() ? 0 : table->second};
}

std::pair<std::string, int64_t> MovieIndex::chunkTableOf(size_t track) const {
  return placeOf(track, tracks_[track].tableAtoms.contains(fourCC("co64")) ? fourCC("co64") : fourCC("stco"));
}
