// The metadata of a movie and of its tracks.
#pragma once

#include <string>
#include <vector>

#include "atom_walk.hpp"
#include "damage.hpp"
#include "metadata_item.hpp"

// Fed from a walk over the movie's atoms: user data ('udta' of QuickTime, and the texts of ISO and 3GPP),
// items of 'ilst', by four-byte keys or by a list of 'keys', and ID3v2 tags in an 'ID32' (ISO/IEC
// 14496-12 8.10, 8.11; 3GPP TS 26.244 8).
class MetadataItems {
 public:
  // Of one movie: items, bytes of a value, and bytes of all values together.
  static constexpr size_t kMostItems = 4096;
  static constexpr size_t kMostValueBytes = size_t{64} << 10;
  static constexpr size_t kMostBytes = size_t{16} << 20;

  // An atom begins, on which the walk stands. trackCount: of the tracks so far.
  void noteAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk, size_t trackCount,
                std::vector<Damage>& damages);

  const std::vector<MetadataItem>& items() const { return items_; }

 private:
  // An atom whose data are looked at: the first of them when there are very many.
  struct Place {
    const Atom& atom;
    AtomWalk& walk;
    std::vector<uint8_t> data;
    uint64_t length;  // of all
  };

  using Note = void (MetadataItems::*)(const Place&);

  static Note noteOf(const Atom& atom, PVFourCharCode parent, PVFourCharCode grandparent);
  void beginMeta();
  void beginItem(PVFourCharCode key);
  void noteBrand(const Place& place);
  void noteHandler(const Place& place);
  void noteUserData(const Place& place);
  void noteInternationalText(const Place& place);
  bool noteAssetText(const Place& place);
  void noteKeys(const Place& place);
  void notePartOfItem(const Place& place);
  void noteData(const Place& place);
  void noteTag(const Place& place);

  void add(std::string identifier, BRStringRef dataType, std::span<const uint8_t> bytes, uint64_t length);
  void add(std::string identifier, BRStringRef dataType, std::string_view text);
  void fail(const Place& place, std::string message);

  std::vector<MetadataItem> items_;
  size_t bytes_ = 0;
  bool isFull_ = false;
  std::vector<Damage>* damages_ = nullptr;  // of the call
  std::optional<size_t> track_;
  PVFourCharCode brand_ = 0;  // the file's major one

  // Of the 'meta' that the walk is in.
  PVFourCharCode handler_ = 0;
  std::vector<std::string> keys_;  // as identifiers
  // Of the item in its 'ilst'.
  std::string identifier_, name_;
};
