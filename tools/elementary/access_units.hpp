// The access units of an elementary stream, and the parameter sets that stand in it.
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "damage.hpp"
#include "picture_parser.hpp"
#include "unit_scan.hpp"

// One picture, frame or field, with everything that belongs to it.
struct AccessUnit {
  int64_t offset = 0;      // of its first NAL unit
  int64_t end = 0;         // of its last
  uint64_t dataBytes = 0;  // of its units, each with a length field
  uint64_t setBytes = 0;   // of those among them that are parameter sets
  uint32_t units = 0;
  bool readable = false;  // the picture is known
  CodedPicture picture;
};

constexpr int64_t kLengthFieldBytes = 4;

// Parameter sets by kind and ID.
class SetCollection {
 public:
  explicit SetCollection(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  void add(SetPlace set, UnitPlace place);
  // What comes now comes behind the first picture.
  void beginPictures() { early_ = latest_; }

  using Sets = std::map<std::pair<SetKind, uint32_t>, UnitPlace>;
  const Sets& early() const { return early_; }    // before the first picture
  const Sets& latest() const { return latest_; }  // at the end
  // Whether one has replaced another that was there with the first picture, or came later.
  bool changed() const { return changed_; }

 private:
  std::span<const uint8_t> bytes_;
  Sets early_, latest_;
  bool changed_ = false;
};

class AccessUnitReader {
 public:
  AccessUnitReader(std::span<const uint8_t> bytes, Codec codec);

  // False behind the last one, and when something is wrong. Units before the first picture that can be read
  // come as unreadable ones.
  bool next(AccessUnit& unit);
  const std::optional<Damage>& damage() const { return damage_; }

  const SetCollection& sets() const { return sets_; }
  // Of the pictures, as the first one's sets tell.
  std::optional<PictureParser::Rate> rate() const { return rate_; }

 private:
  bool add(UnitPlace place, AccessUnit& finished);
  bool addSlice(UnitRole role, UnitPlace place, AccessUnit& finished);
  bool finish(AccessUnit& finished);
  void take(AccessUnit& to, UnitPlace place);
  void fail(int64_t offset, const char* what);

  std::span<const uint8_t> bytes_;
  Codec codec_;
  std::unique_ptr<PictureParser> parser_;
  UnitScan scan_;
  SetCollection sets_;
  std::optional<PictureParser::Rate> rate_;
  std::optional<Damage> damage_;
  AccessUnit current_;
  AccessUnit ahead_;         // what stands behind the current one's slices, and may begin the next one
  bool hasPicture_ = false;  // the current one has slices
  bool separated_ = false;   // ahead_ has a unit that separates
  bool anyReadable_ = false;
};
