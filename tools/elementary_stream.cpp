#include "elementary_stream.hpp"

#include <fmt/format.h>
#include <kiv/atom_stream.h>
#include <kiv/bridge.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_set>
#include <utility>

namespace {

constexpr int64_t kStartCodeBytes = 3;
// What is remembered of a file without end: sets, to tell repeats, and damages, to be told at the end.
constexpr size_t kRememberedBytes = 1 << 24;
constexpr size_t kListedDamages = 1000;

// Hands on the sets among the units that it is given, and keeps account of them.
class Listing final : public ParameterSetVisitor {
 public:
  Listing(KivByteStreamRef file, Codec codec, ParameterSetVisitor& visitor)
      : file_(file), codec_(codec), visitor_(visitor) {}

  bool parameterSet(ParameterSet set) override { return visitor_.parameterSet(std::move(set)); }
  void damaged(Damage damage) override {
    if (++damages_ <= kListedDamages) visitor_.damaged(std::move(damage));
  }

  // False when the visitor wants no more.
  bool unit(const NalUnit& unit) {
    ++units_;
    if (unit.length == 0) {
      damaged({"", unit.offset - kStartCodeBytes, kKivBridgeError_UnreadableData,
               "nothing follows this start code"});
      return true;
    }
    const auto kind = setKindOf(codec_, unit.beginning());
    if (!kind) return true;
    ++sets_;
    if (unit.length <= static_cast<int64_t>(kLargestSet)) return readSet(unit);
    damaged({"", unit.offset, kKivBridgeError_InvalidParameter,
             fmt::format("this {} is {} bytes; a parameter set is {} at most", setKindName(*kind),
                         unit.length, kLargestSet)});
    return true;
  }

  void end(int64_t fileSize) {
    if (damages_ > kListedDamages) {
      visitor_.damaged({"", fileSize, kKivBridgeError_UnreadableData,
                        fmt::format("{} more things are wrong and not listed", damages_ - kListedDamages)});
    } else if (sets_ == 0 && damages_ == 0) {
      damaged({"", 0, kKivBridgeError_InvalidParameter,
               units_ == 1 ? "its one NAL unit is not a parameter set"
                           : fmt::format("none of its {} NAL units is a parameter set", units_)});
    }
  }
  int64_t units() const { return units_; }

 private:
  bool readSet(const NalUnit& unit) {
    std::string bytes(static_cast<size_t>(unit.length), '\0');
    size_t count = 0;
    PVStatus status = KivByteStreamRead(file_, unit.offset, bytes.size(), bytes.data(), &count);
    if (status == kPVStatus_Success && count < bytes.size()) status = kKivAtomStreamError_ShortRead;
    if (status != kPVStatus_Success) {
      damaged({"", unit.offset, status, "the file could not be read here"});
      return true;
    }
    if (!remember(bytes)) return true;
    return visitParameterSet(codec_, {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()},
                             unit.offset, "", *this);
  }

  // False when it was there before.
  bool remember(const std::string& bytes) {
    constexpr size_t kOverheadBytes = 64;
    if (!seen_.insert(bytes).second) return false;
    seenBytes_ += bytes.size() + kOverheadBytes;
    if (seenBytes_ > kRememberedBytes) {
      seen_.clear();
      seenBytes_ = 0;
    }
    return true;
  }

  KivByteStreamRef file_;
  Codec codec_;
  ParameterSetVisitor& visitor_;
  std::unordered_set<std::string> seen_;
  size_t seenBytes_ = 0, damages_ = 0;
  int64_t units_ = 0, sets_ = 0;
};

// The file as one NAL unit.
void visitRawSet(KivByteStreamRef file, int64_t fileSize, Codec codec, Listing& listing) {
  NalUnit unit;
  unit.length = fileSize;
  size_t count = 0;
  KivByteStreamRead(file, 0, unit.header.size(), unit.header.data(), &count);
  if (setKindOf(codec, unit.beginning())) {
    listing.unit(unit);
  } else {
    listing.damaged(
        {"", 0, kKivBridgeError_InvalidParameter,
         "there is no start code in it, and it is not a parameter set; is this H.264 or HEVC video?"});
  }
}

}  // namespace

std::optional<NalUnit> NalUnitScan::next() {
  while (!done_) {
    const std::optional<int64_t> found = begun_ ? findStartCode() : std::nullopt;
    if (found) {
      std::optional<NalUnit> finished;
      if (open_) {
        finished = finish(endBefore(*found));
      } else {
        strayBytes_ = endBefore(*found);
      }
      open_.emplace();
      open_->offset = *found + kStartCodeBytes;
      const auto at = static_cast<size_t>(open_->offset - windowStart_);
      std::copy_n(window_.begin() + static_cast<ptrdiff_t>(at),
                  std::min(window_.size() - at, open_->header.size()), open_->header.begin());
      searched_ = open_->offset;
      if (finished) return finished;
    } else if (begun_ && isLastWindow()) {
      done_ = true;
      if (open_) return finish(endBefore(fileSize_));
    } else if (!moveWindow()) {
      done_ = true;
    }
    begun_ = true;
  }
  return std::nullopt;
}

NalUnit NalUnitScan::finish(int64_t end) {
  NalUnit unit = *open_;
  unit.length = std::max<int64_t>(end - unit.offset, 0);
  return unit;
}

bool NalUnitScan::moveWindow() {
  const int64_t windowEnd = windowStart_ + static_cast<int64_t>(window_.size());
  const int64_t start = begun_ ? windowEnd - static_cast<int64_t>(kOverlapBytes) : 0;
  endOfNonZero_ = endBefore(start);
  window_.resize(kWindowBytes);
  size_t count = 0;
  status_ = KivByteStreamRead(file_, start, kWindowBytes, window_.data(), &count);
  const auto wanted = static_cast<size_t>(std::min<int64_t>(kWindowBytes, fileSize_ - start));
  if (status_ == kPVStatus_Success && count < wanted) status_ = kKivAtomStreamError_ShortRead;
  window_.resize(std::min(count, wanted));
  windowStart_ = start;
  searched_ = std::max(searched_, start);
  return status_ == kPVStatus_Success;
}

// Where the next 00 00 01 of the window begins; one that stands in the next window whole is left to that.
std::optional<int64_t> NalUnitScan::findStartCode() {
  const size_t behind = isLastWindow() ? 0 : kOverlapBytes - kStartCodeBytes + 1;
  const uint8_t* bytes = window_.data();
  size_t at = static_cast<size_t>(searched_ - windowStart_) + 2;
  while (at + behind < window_.size()) {
    const void* one = std::memchr(bytes + at, 1, window_.size() - behind - at);
    if (!one) break;
    at = static_cast<size_t>(static_cast<const uint8_t*>(one) - bytes);
    if (bytes[at - 1] == 0 && bytes[at - 2] == 0) return windowStart_ + static_cast<int64_t>(at) - 2;
    ++at;
  }
  return std::nullopt;
}

// Where the zero bytes begin that end at offset, a place in the window.
int64_t NalUnitScan::endBefore(int64_t offset) const {
  auto at = static_cast<size_t>(offset - windowStart_);
  while (at > 0 && window_[at - 1] == 0) --at;
  return at > 0 ? windowStart_ + static_cast<int64_t>(at) : endOfNonZero_;
}

Codec codecOfStream(KivByteStreamRef file, int64_t fileSize, std::optional<Codec> preferred) {
  NalUnitScan scan(file, fileSize);
  std::optional<Codec> first;
  while (const auto unit = scan.next()) {
    for (const Codec codec : {Codec::HEVC, Codec::H264}) {
      // An end of sequence of HEVC looks like a picture parameter set of H.264.
      const auto kind = setKindOf(codec, unit->beginning());
      if (!kind || (codec == Codec::H264 && kind != SetKind::SPS)) continue;
      if (!preferred || codec == *preferred) return codec;
      if (!first) first = codec;
    }
  }
  if (first) return *first;
  return preferred.value_or(Codec::H264);
}

void visitElementaryStream(KivByteStreamRef file, int64_t fileSize, Codec codec,
                           ParameterSetVisitor& visitor) {
  Listing listing(file, codec, visitor);
  if (fileSize == 0) return visitor.damaged({"", 0, kKivAtomStreamError_NotEnoughData, "the file is empty"});
  NalUnitScan scan(file, fileSize);
  while (const auto unit = scan.next()) {
    if (listing.units() == 0 && scan.strayBytes() > 0)
      listing.damaged({"", 0, kKivBridgeError_UnreadableData,
                       fmt::format("what comes before its first start code, {} {}, belongs to no NAL unit",
                                   scan.strayBytes(), scan.strayBytes() == 1 ? "byte" : "bytes")});
    if (!listing.unit(*unit)) return;
  }
  if (scan.status() != kPVStatus_Success)
    listing.damaged({"", fileSize, scan.status(), "the file could not be read to its end"});
  else if (listing.units() == 0)
    visitRawSet(file, fileSize, codec, listing);
  listing.end(fileSize);
}
