// Invariants: levels_[i] is the level whose atoms lie in the current atom of levels_[i - 1]; types_ holds the
// current type of each level, except that the innermost level has none between two of its atoms.
#include "atom_walk.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "atom_type.hpp"

namespace {

constexpr uint64_t kLargestSize = std::numeric_limits<int64_t>::max();

}  // namespace

// A header as it stands in the file, good or bad: an atom stream only stands on good ones.
struct AtomWalk::Header {
  int64_t offset = 0;
  int64_t left = 0;  // from the header's start to the end of the level
  size_t count = 0;  // bytes that could be read, up to 32
  std::array<uint8_t, 32> bytes{};

  uint64_t number(size_t at, size_t length) const {
    uint64_t value = 0;
    for (size_t i = 0; i < length; ++i) value = value << 8 | bytes[at + i];
    return value;
  }
  bool isTyped() const { return count >= 8; }
  bool isLarge() const { return number(0, 4) == 1; }
  PVFourCharCode type() const { return static_cast<PVFourCharCode>(number(4, 4)); }
  uint64_t size() const { return isLarge() ? number(8, 8) : number(0, 4); }
  int64_t headerSize() const { return (isLarge() ? 16 : 8) + (type() == fourCC("uuid") ? 16 : 0); }
  // Whether it could stand in a longer file.
  bool isSound() const {
    return isTyped() && size() <= kLargestSize && static_cast<int64_t>(size()) >= headerSize();
  }
};

void AtomWalk::run() {
  if (fileSize_ == 0) {
    visitor_.damaged({"", 0, kKivAtomStreamError_NotEnoughData, "the file is empty"});
    return;
  }
  enter(0, fileSize_, false, std::nullopt);
  while (!levels_.empty() && step()) {
  }
}

// One atom, or one end of a level. False when the visitor wants no more.
bool AtomWalk::step() {
  Level& level = levels_.back();
  const PVStatus status = level.finished ? kKivAtomStreamError_NoMoreAtoms : advance(level);
  if (status == kKivAtomStreamError_NoMoreAtoms) {
    leave();
    return true;
  }
  if (status != kPVStatus_Success) return damagedHeader(status);

  Atom atom;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(&level.stream, &atom.type, nullptr);
  KivAtomStreamGetCurrentAtomGlobalOffset(&level.stream, &atom.offset, &atom.size);
  KivAtomStreamGetCurrentAtomHeaderSize(&level.stream, &atom.headerSize);
  std::array<uint8_t, 16> uuid;
  if (KivAtomStreamGetCurrentAtomUUIDType(&level.stream, uuid.data()) == kPVStatus_Success) atom.uuid = uuid;
  return begin(atom, &level.stream, std::nullopt);
}

// A level is opened on its parent's cursor where that stands on the whole atom. Else it is opened on the byte
// stream: the end of a truncated one is not its parent's, and only the file's last atom may leave its size
// open, which a cursor would hand down. What stands in a small atom at the top, as in each fragment of a
// movie, is read at once; its levels are then walked in memory.
PVStatus AtomWalk::advance(Level& level) {
  if (level.opened) return KivAtomStreamAdvanceToNextAtom(&level.stream);
  PVStatus status;
  if (levels_.size() > 2 && !level.cutOff) {
    const KivAtomStream& parent = levels_[levels_.size() - 2].stream;
    int64_t dataOffset = 0;
    KivAtomStreamGetCurrentAtomDataGlobalOffset(&parent, 0, &dataOffset);
    status = KivAtomStreamInitWithParent(&parent, level.start - dataOffset, &level.stream);
  } else if (levels_.size() == 2 && readBlock(level)) {
    status = KivAtomStreamInitWithMemoryBlock(block_.data(), static_cast<size_t>(level.end - level.start),
                                              level.start, 0, &level.stream);
  } else {
    const uint32_t flags = levels_.size() == 1 ? kKivAtomStreamFlag_AllowZeroSize : 0;
    status = KivAtomStreamInitWithByteStreamWithSize(file_, level.start, level.end - level.start, flags,
                                                     &level.stream);
  }
  level.opened = status == kPVStatus_Success;
  return status;
}

// Reads a level that is small enough; deeper levels of this one may stand on the block.
bool AtomWalk::readBlock(const Level& level) {
  const int64_t length = level.end - level.start;
  if (length > static_cast<int64_t>(block_.size())) return false;
  size_t count = 0;
  return KivByteStreamRead(file_, level.start, static_cast<size_t>(length), block_.data(), &count) ==
             kPVStatus_Success &&
         count == static_cast<size_t>(length);
}

// stream is null for a truncated atom; cut is then what to report of it, if anything.
bool AtomWalk::begin(Atom& atom, const KivAtomStream* stream, std::optional<Damage> cut) {
  Level& level = levels_.back();
  const PVFourCharCode parent = types_.empty() ? 0 : types_.back();
  const int64_t end = stream ? atom.offset + atom.size : level.end;
  level.type = atom.type;
  level.number = ++level.counts[atom.type];
  types_.push_back(atom.type);

  const Contents contents = contentsOf(atom.type, parent);
  atom.container = contents != Contents::Data;
  if (!visitor_.beginAtom(atom, stream, *this)) return false;
  if (!atom.container) {
    if (cut) visitor_.damaged(std::move(*cut));
    types_.pop_back();
    return true;
  }
  const int64_t start = childrenOffset(atom, contents, end);
  if (stream && start > end)
    visitor_.damaged({path(), atom.offset, kKivAtomStreamError_OutOfBounds,
                      fmt::format("its data are {} bytes, too few for its {} bytes of fields",
                                  end - atom.dataOffset(), start - atom.dataOffset())});
  if (start < end && levels_.size() == kMaxDepth) {
    visitor_.damaged({path(), atom.offset, kKivAtomStreamError_MalformedAtom,
                      fmt::format("atoms nested more than {} deep are not looked into", kMaxDepth)});
    visitor_.endAtom();
    types_.pop_back();
    return true;
  }
  enter(start, end, stream == nullptr, std::move(cut));
  return true;
}

void AtomWalk::enter(int64_t start, int64_t end, bool cutOff, std::optional<Damage> cut) {
  Level& level = levels_.emplace_back();
  level.start = start;
  level.end = end;
  level.cutOff = cutOff;
  level.finished = start >= end;
  level.cut = std::move(cut);
}

void AtomWalk::leave() {
  if (levels_.back().cut) visitor_.damaged(std::move(*levels_.back().cut));
  levels_.pop_back();
  if (levels_.empty()) return;
  visitor_.endAtom();
  types_.pop_back();
}

// The next header of the innermost level cannot be taken: says why and ends the level. The atom is named when
// its type can be read; it is not shown, since where it ends is not known.
bool AtomWalk::damagedHeader(PVStatus status) {
  Level& level = levels_.back();
  level.finished = true;
  const Header header = readHeader(nextOffset(level), level.end);
  if (status == kKivAtomStreamError_NotEnoughData && (level.cutOff || endsList(header))) return true;
  if (status == kKivAtomStreamError_MalformedAtom && header.isSound()) return truncatedAtom(header);
  if (header.isTyped()) {
    level.type = header.type();
    level.number = ++level.counts[level.type];
  }
  visitor_.damaged(
      {pathOf(levels_.size() - (header.isTyped() ? 0 : 1)), header.offset, status, describe(header, status)});
  return true;
}

// QuickTime lets a zero of 32 bits end the list in a 'udta' and in a sample entry.
bool AtomWalk::endsList(const Header& header) const {
  if (header.left != 4 || header.count != 4 || header.number(0, 4) != 0 || levels_.size() < 2) return false;
  return types_.back() == fourCC("udta") ||
         (types_.size() > 1 && types_[types_.size() - 2] == fourCC("stsd"));
}

std::string AtomWalk::describe(const Header& header, PVStatus status) const {
  if (status == kKivAtomStreamError_NotEnoughData) {
    if (header.left >= 8)
      return fmt::format("its header takes {} bytes, but {} ends after {}", header.headerSize(), parentName(),
                         header.left);
    return fmt::format("{} stray {} at the end of {}: too few for an atom header", header.left,
                       header.left == 1 ? "byte" : "bytes", parentName());
  }
  if (status == kKivAtomStreamError_MalformedAtom && header.isTyped()) {
    const uint64_t size = header.size();
    if (size == 0 && !header.isLarge())
      return "its size is 0 (\"to the end of the file\"), which only the last atom of the file may have";
    if (size > kLargestSize) return fmt::format("its size of {} bytes is more than any file can have", size);
    return fmt::format("its size is {} bytes, less than its header of {}", size, header.headerSize());
  }
  return status == kKivAtomStreamError_ShortRead ? "the file became shorter while it was read"
                                                 : "the file could not be read here";
}

// An atom with a good header that ends behind its level. Inside an atom that the end of the file cut off, it
// takes over that one's report; inside one whose own size was wrong, that report stands.
bool AtomWalk::truncatedAtom(const Header& header) {
  Level& level = levels_.back();
  Atom atom;
  atom.type = header.type();
  atom.offset = header.offset;
  atom.size = static_cast<int64_t>(header.size());
  atom.headerSize = header.headerSize();
  atom.truncated = true;
  if (atom.type == fourCC("uuid")) {
    atom.uuid.emplace();
    std::copy_n(header.bytes.begin() + (atom.headerSize - 16), 16, atom.uuid->begin());
  }

  const bool top = levels_.size() == 1;
  if (level.cutOff && level.end < fileSize_) return begin(atom, nullptr, std::nullopt);
  level.cut.reset();
  std::string message;
  if (top || level.cutOff) {
    message =
        fmt::format("the file ends inside this atom: {} of its {} bytes are there", header.left, atom.size);
    if (top && atom.offset == 0 && !beginsMovies(atom.type)) message += "; is this a movie file?";
  } else {
    message = fmt::format("its size of {} bytes goes {} past the end of {}", atom.size,
                          atom.size - header.left, parentName());
  }
  level.type = atom.type;
  level.number = level.counts[atom.type] + 1;
  Damage cut{path(), atom.offset, kKivAtomStreamError_MalformedAtom, std::move(message)};
  return begin(atom, nullptr, std::move(cut));
}

// Where the atoms in an atom begin, which may be behind its end. Version and flags of an ISO 'meta' are all
// 0; a QuickTime one begins with the size of its first atom.
int64_t AtomWalk::childrenOffset(const Atom& atom, Contents contents, int64_t end) const {
  constexpr int64_t kCountBytes = 8, kVisualFieldBytes = 78;
  if (contents == Contents::Entries) return atom.dataOffset() + kCountBytes;
  if (contents == Contents::VisualEntry) return atom.dataOffset() + kVisualFieldBytes;
  if (contents != Contents::Meta) return atom.dataOffset();
  const Header first = readHeader(atom.dataOffset(), end);
  const bool full = first.count >= 4 && first.number(0, 4) == 0;
  return atom.dataOffset() + (full ? 4 : 0);
}

int64_t AtomWalk::nextOffset(const Level& level) const {
  if (!level.opened) return level.start;
  int64_t offset = 0, size = 0;
  KivAtomStreamGetCurrentAtomGlobalOffset(&level.stream, &offset, &size);
  return offset + size;
}

AtomWalk::Header AtomWalk::readHeader(int64_t offset, int64_t end) const {
  Header header;
  header.offset = offset;
  header.left = end - offset;
  const auto wanted = static_cast<size_t>(std::clamp<int64_t>(header.left, 0, header.bytes.size()));
  if (KivByteStreamRead(file_, offset, wanted, header.bytes.data(), &header.count) != kPVStatus_Success)
    header.count = 0;
  return header;
}

// Whether another atom of the current type comes on the level, for the numbers in paths. The first question
// looks ahead to the level's end with a copy of the cursor and counts all types, so that many questions cost
// no more.
bool AtomWalk::isFollowed(Level& level) const {
  if (level.finished) return false;
  if (level.totals.isEmpty()) {
    level.totals = level.counts;
    KivAtomStream ahead = level.stream;
    PVStatus status;
    while ((status = KivAtomStreamAdvanceToNextAtom(&ahead)) == kPVStatus_Success) {
      PVFourCharCode type = 0;
      KivAtomStreamGetCurrentAtomTypeAndDataLength(&ahead, &type, nullptr);
      ++level.totals[type];
    }
    if (status == kKivAtomStreamError_MalformedAtom) {
      int64_t offset = 0, size = 0;
      KivAtomStreamGetCurrentAtomGlobalOffset(&ahead, &offset, &size);
      const Header damaged = readHeader(offset + size, level.end);
      if (damaged.isTyped()) ++level.totals[damaged.type()];
    }
  }
  return level.totals[level.type] > level.number;
}

std::string AtomWalk::pathOf(size_t depth) {
  constexpr size_t kShownAtEachEnd = 12;
  std::string text;
  for (size_t i = 0; i < depth; ++i) {
    if (i > 0) text += '/';
    if (i == kShownAtEachEnd && depth > 2 * kShownAtEachEnd) {
      i = depth - kShownAtEachEnd;
      text += fmt::format("...{} more.../", i - kShownAtEachEnd);
    }
    Level& level = levels_[i];
    text += typeText(level.type);
    if (level.number > 1 || isFollowed(level)) text += fmt::format("[{}]", level.number);
  }
  return text;
}

std::string AtomWalk::parentName() const {
  return levels_.size() == 1 ? "the file" : fmt::format("'{}'", typeText(types_.back()));
}
