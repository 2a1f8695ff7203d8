// A walk over all atoms of a file, from the top down, that goes on past damage.
#pragma once

#include <kiv/atom_stream.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "atom_type.hpp"
#include "damage.hpp"

struct Atom {
  PVFourCharCode type = 0;
  int64_t offset = 0;      // of the header, in the file
  int64_t size = 0;        // with the header, as the file says
  int64_t headerSize = 0;  // 8, 16, 24 or 32
  std::optional<std::array<uint8_t, 16>> uuid;
  bool container = false;  // it is followed by its children and an end
  bool truncated = false;  // there is less of it than its size says

  int64_t dataOffset() const { return offset + headerSize; }
};

class AtomWalk;

// How often each type came. Most levels have few types: these are found side by side, without an allocation.
class TypeCounts {
 public:
  uint32_t& operator[](PVFourCharCode type) {
    for (size_t i = 0; i < fewCount_; ++i)
      if (types_[i] == type) return counts_[i];
    if (fewCount_ == kFew) return many_[type];
    types_[fewCount_] = type;
    return counts_[fewCount_++] = 0;
  }
  bool isEmpty() const { return fewCount_ == 0; }

 private:
  static constexpr size_t kFew = 8;

  size_t fewCount_ = 0;
  std::array<PVFourCharCode, kFew> types_;
  std::array<uint32_t, kFew> counts_;
  std::unordered_map<PVFourCharCode, uint32_t> many_;  // the others
};

// Hears of everything in the order of the file.
class AtomVisitor {
 public:
  // An atom begins. stream stands on it, or is null when the atom is truncated. False ends the walk.
  virtual bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) = 0;
  // The children of a container are done.
  virtual void endAtom() = 0;
  virtual void damaged(Damage damage) = 0;

 protected:
  ~AtomVisitor() = default;
};

// Levels that are open wait on a list, not on the call stack, and no atom is kept once it has been shown:
// memory grows with depth and with the number of different types on a level.
//
// An atom that claims more than there is, is shown and entered as far as it goes: a file cut short shows
// every atom before the cut. Of such a chain the innermost atom is reported, once. Any other damaged header
// ends its level, and the walk goes on behind the enclosing atom.
class AtomWalk {
 public:
  static constexpr size_t kMaxDepth = 65536;

  AtomWalk(KivByteStreamRef file, int64_t fileSize, AtomVisitor& visitor)
      : file_(file), fileSize_(fileSize), visitor_(visitor) {}

  void run();

  // For a visitor inside beginAtom: the types from the top down to the current atom.
  const std::vector<PVFourCharCode>& types() const { return types_; }
  // The same as text. A type that stands several times on its level carries a number from 1; of a very long
  // path the middle is left out.
  std::string path() { return pathOf(levels_.size()); }

 private:
  struct Level {
    int64_t start = 0;
    int64_t end = 0;      // where reading stops
    bool cutOff = false;  // the enclosing atom says that there is more
    bool opened = false;
    bool finished = false;
    KivAtomStream stream{};
    TypeCounts counts;          // of each type, so far
    PVFourCharCode type = 0;    // of the current atom
    uint32_t number = 0;        // of the current atom among its type
    TypeCounts totals;          // of each type on the level, once it was asked for
    std::optional<Damage> cut;  // what to report unless an inner atom is cut off too
  };
  struct Header;

  bool step();
  PVStatus advance(Level& level);
  bool readBlock(const Level& level);
  bool begin(Atom& atom, const KivAtomStream* stream, std::optional<Damage> cut);
  void enter(int64_t start, int64_t end, bool cutOff, std::optional<Damage> cut);
  void leave();
  bool damagedHeader(PVStatus status);
  bool truncatedAtom(const Header& header);
  bool endsList(const Header& header) const;
  std::string describe(const Header& header, PVStatus status) const;
  int64_t childrenOffset(const Atom& atom, Contents contents, int64_t end) const;
  int64_t nextOffset(const Level& level) const;
  Header readHeader(int64_t offset, int64_t end) const;
  bool isFollowed(Level& level) const;
  std::string pathOf(size_t depth);
  std::string parentName() const;

  KivByteStreamRef file_;
  int64_t fileSize_;
  AtomVisitor& visitor_;
  std::vector<uint8_t> block_ = std::vector<uint8_t>(size_t{16} << 10);  // a level of the second depth
  std::vector<Level> levels_;
  std::vector<PVFourCharCode> types_;
};
