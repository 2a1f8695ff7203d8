#include "access_units.hpp"

#include <fmt/format.h>
#include <kiv/bridge.h>

#include <algorithm>

namespace {

// Far more than pictures have; each becomes two parts of a sample's data.
constexpr uint32_t kMostUnits = 1 << 16;

std::span<const uint8_t> bytesOf(std::span<const uint8_t> stream, UnitPlace place) {
  return stream.subspan(static_cast<size_t>(place.offset), static_cast<size_t>(place.length));
}

// Puts what stands behind an access unit into it.
void merge(AccessUnit& unit, const AccessUnit& behind) {
  if (behind.units == 0) return;
  if (unit.units == 0) unit.offset = behind.offset;
  unit.end = behind.end;
  unit.dataBytes += behind.dataBytes;
  unit.setBytes += behind.setBytes;
  unit.units += behind.units;
}

}  // namespace

void SetCollection::add(SetPlace set, UnitPlace place) {
  const auto [at, isNew] = latest_.try_emplace({set.kind, set.id}, place);
  if (isNew) return;
  if (!early_.empty() && !std::ranges::equal(bytesOf(bytes_, at->second), bytesOf(bytes_, place)))
    changed_ = true;
  at->second = place;
}

AccessUnitReader::AccessUnitReader(std::span<const uint8_t> bytes, Codec codec)
    : bytes_(bytes),
      codec_(codec),
      parser_(createPictureParser(codec)),
      scan_(bytes, 0, static_cast<int64_t>(bytes.size())),
      sets_(bytes) {}

bool AccessUnitReader::next(AccessUnit& unit) {
  while (const auto place = damage_ ? std::nullopt : scan_.next())
    if (add(*place, unit)) return true;
  return !damage_ && finish(unit);
}

// True when it has finished an access unit, which is given out. The new unit is then in the next one.
bool AccessUnitReader::add(UnitPlace place, AccessUnit& finished) {
  using enum PictureParser::Between;
  const UnitRole role = parser_->read(bytesOf(bytes_, place), !hasPicture_ ? Delimiter
                                                              : separated_ ? Separation
                                                                           : Nothing);
  if (const auto set = parser_->set()) sets_.add(*set, place);
  bool finishes = false;
  switch (role) {
    case UnitRole::Delimiter:
      finishes = finish(finished);
      take(current_, place);
      break;
    case UnitRole::Separating:
    case UnitRole::Announcing:
      separated_ |= role == UnitRole::Separating;
      take(hasPicture_ ? ahead_ : current_, place);
      break;
    case UnitRole::Other:
      take(ahead_.units != 0 ? ahead_ : current_, place);
      if (ahead_.units == 0) current_.picture = parser_->picture();
      break;
    default:
      finishes = addSlice(role, place, finished);
  }
  if (ahead_.units > kMostUnits || current_.units > kMostUnits)
    fail(place.offset, "there are more than 65,536 NAL units in this picture");
  return finishes && !damage_;
}

bool AccessUnitReader::addSlice(UnitRole role, UnitPlace place, AccessUnit& finished) {
  bool finishes = false;
  if (role == UnitRole::NewPicture || (role == UnitRole::Unreadable && ahead_.units != 0))
    finishes = finish(finished);
  merge(current_, ahead_);
  ahead_ = {};
  separated_ = false;
  hasPicture_ = true;
  take(current_, place);
  if (role == UnitRole::Unreadable) {
    if (anyReadable_)
      fail(place.offset, "the header of this slice, or a parameter set of it, cannot be read");
    return finishes;
  }
  if (!anyReadable_) {
    anyReadable_ = true;
    sets_.beginPictures();
    rate_ = parser_->rate();
  }
  current_.readable = true;
  current_.picture = parser_->picture();
  return finishes;
}

// Gives out the current one when there is a picture in it.
bool AccessUnitReader::finish(AccessUnit& finished) {
  if (!hasPicture_) return false;
  finished = current_;
  current_ = ahead_;
  ahead_ = {};
  hasPicture_ = separated_ = false;
  return true;
}

void AccessUnitReader::take(AccessUnit& to, UnitPlace place) {
  AccessUnit one;
  one.offset = place.offset;
  one.end = place.offset + place.length;
  one.dataBytes = static_cast<uint64_t>(kLengthFieldBytes + place.length);
  one.setBytes = setKindOf(codec_, bytesOf(bytes_, place)) ? one.dataBytes : 0;
  one.units = 1;
  merge(to, one);
}

void AccessUnitReader::fail(int64_t offset, const char* what) {
  if (!damage_) damage_ = {"", offset, kKivBridgeError_UnreadableData, what};
}
