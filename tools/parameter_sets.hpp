// What a parameter set of H.264 or HEVC says, given as its NAL unit.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "damage.hpp"

enum class Codec { H264, HEVC };
enum class SetKind { VPS, SPS, PPS };

// The most that the length fields of movies can say; larger sets are refused everywhere.
constexpr size_t kLargestSet = 65535;

// Of a sequence parameter set; numbers are as coded. Empty is what the set does not say.
struct SequenceFacts {
  struct Pair {
    uint32_t first, second;
  };
  struct Colour {
    uint32_t primaries, transfer, matrix;
  };
  uint32_t profile = 0;
  uint32_t level = 0;
  uint32_t constraintFlags = 0;  // H.264: the byte behind the profile
  bool highTier = false;         // HEVC
  int32_t width = 0;             // 0 when the cropping leaves nothing
  int32_t height = 0;
  bool fieldPictures = false;  // HEVC: width and height are those of a field
  std::optional<bool> interlaced;
  std::optional<float> frameRate;
  bool countsFields = false;             // the rate is that of fields
  std::optional<Pair> pixelAspectRatio;  // horizontal, vertical
  std::optional<Colour> colour;
  std::optional<bool> fullRange;
  std::optional<Pair> chromaLocation;  // of the top field, of the bottom field
};

struct ParameterSet {
  Codec codec = Codec::H264;
  SetKind kind = SetKind::SPS;
  int64_t offset = 0;  // of the NAL unit, in the file
  std::string path;    // of the atom that holds it; empty in an elementary stream
  uint32_t id = 0;
  uint32_t spsId = 0;      // PPS: the SPS it refers to
  SequenceFacts sequence;  // SPS
};

// Hears of parameter sets in the order of the file.
class ParameterSetVisitor {
 public:
  // False ends the search.
  virtual bool parameterSet(ParameterSet set) = 0;
  virtual void damaged(Damage damage) = 0;

 protected:
  ~ParameterSetVisitor() = default;
};

// What kind of set a NAL unit is; empty for every other unit. Sets of HEVC layers above the base layer are
// other units.
std::optional<SetKind> setKindOf(Codec codec, std::span<const uint8_t> unit);
// "sequence parameter set"
const char* setKindName(SetKind kind);

// Reads a set and hands it on, or what is wrong with it, or both; other units are passed over. offset and
// path are those of the set. False when the visitor wants no more.
bool visitParameterSet(Codec codec, std::span<const uint8_t> unit, int64_t offset, const std::string& path,
                       ParameterSetVisitor& visitor);
