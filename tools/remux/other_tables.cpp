#include "other_tables.hpp"

#include <algorithm>
#include <array>
#include <set>

#include "atom_output.hpp"
#include "atom_type.hpp"

namespace {

constexpr std::array kMadeAnew = {fourCC("stsd"), fourCC("stts"), fourCC("ctts"), fourCC("stss"),
                                  fourCC("sdtp"), fourCC("stsc"), fourCC("stsz"), fourCC("stz2"),
                                  fourCC("stco"), fourCC("co64")};

// Not lost either: what fragments have instead, groups, and what says nothing that the samples do not.
constexpr std::array kNotMissed = {fourCC("stbl"), fourCC("tfhd"), fourCC("tfdt"),
                                   fourCC("trun"), fourCC("sgpd"), fourCC("sbgp"),
                                   fourCC("cslg"), fourCC("free"), fourCC("skip")};

// Of what is left out.
constexpr size_t kMostNamed = 10;

// Where samples are encrypted, and how.
constexpr std::array kAuxiliary = {fourCC("saio"), fourCC("saiz"), fourCC("senc")};

template <size_t kCount>
bool contains(const std::array<PVFourCharCode, kCount>& types, PVFourCharCode type) {
  return std::ranges::find(types, type) != types.end();
}

}  // namespace

bool areTablesCopied(const MovieFile& movie, size_t track, bool fragmented) {
  return !fragmented && movie.index().tracks()[track].runs.empty();
}

bool isMadeAnew(PVFourCharCode type) { return contains(kMadeAnew, type); }

void writeGroups(KivAtomWriter& parent, const SampleGroups& groups, uint64_t first, uint64_t count) {
  for (const auto& [grouping, members] : groups.groupings()) {
    if (members.inFragments) continue;
    const uint64_t end = first + count;
    uint64_t at = first;
    Fields entries;
    const auto add = [&](uint64_t until, uint32_t entry) {
      if (until > at) entries.u32(static_cast<uint32_t>(until - at)).u32(entry);
      at = std::max(at, until);
    };
    auto run = std::ranges::partition_point(
        members.runs, [&](const SampleGroups::Run& one) { return one.first + one.count <= first; });
    for (; run != members.runs.end() && run->first < end; ++run) {
      add(run->first, 0);
      add(std::min(run->first + run->count, end), run->entry);
    }
    if (entries.bytes().empty()) continue;
    Fields fields;
    fields.u32(grouping.parameter ? 0x01000000 : 0).u32(grouping.type);
    if (grouping.parameter) fields.u32(*grouping.parameter);
    fields.u32(static_cast<uint32_t>(entries.bytes().size() / 8));
    fields.put(entries.bytes().data(), entries.bytes().size());
    writeAtom(parent, fourCC("sbgp"), fields);
  }
}

std::string leftOut(const MovieFile& movie, size_t track, bool fragmented) {
  const MovieTrack& samples = movie.index().tracks()[track];
  const bool copied = areTablesCopied(movie, track, fragmented);
  std::set<PVFourCharCode> types = samples.fragmentAtoms;
  types.erase(fourCC("uuid"));  // of use to their fragment, such as when the next one comes
  for (const auto& [type, offset] : samples.tableAtoms) types.insert(type);
  for (PVFourCharCode type : kAuxiliary)
    if (types.contains(type) && !(copied && type == fourCC("senc")))
      throw RemuxFailure(
          fmt::format("track {} has auxiliary information with its samples, which would be lost", track + 1));
  if (copied) return {};
  std::erase_if(types, [](PVFourCharCode type) { return isMadeAnew(type) || contains(kNotMissed, type); });
  std::string text;
  size_t count = 0;
  const auto add = [&](PVFourCharCode type, const char* what) {
    if (++count <= kMostNamed)
      text += fmt::format("{}'{}'{}", text.empty() ? "" : ", ", typeText(type), what);
  };
  for (PVFourCharCode type : types) add(type, "");
  for (const auto& [grouping, members] : samples.groups.groupings())
    if (members.inFragments) add(grouping.type, " groups");
  if (count > kMostNamed) text += fmt::format(" and {} more", count - kMostNamed);
  return text;
}
