// What the NAL units of a stream are to its pictures.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "parameter_sets.hpp"

// How units are grouped into access units (ITU-T H.264 7.4.1.2.3, H.265 7.4.2.4.4).
enum class UnitRole : uint8_t {
  Other,        // goes with what stands before it
  Announcing,   // the first one behind a picture begins the next access unit, if there is another picture
  Separating,   // the same, and no picture stands on both sides of it
  Delimiter,    // begins an access unit
  NewPicture,   // the first slice of a picture, or of a field
  SamePicture,  // another slice of it
  Unreadable    // a slice of which it cannot be told
};

// A coded picture: a frame or, in H.264, a field that is coded by itself.
struct CodedPicture {
  int64_t order = 0;            // picture order count
  bool beginsSequence = false;  // what is shown before it is what was decoded before it
  bool sync = false;            // IDR; in HEVC any random access point
  bool intra = true;            // of I slices only
  bool unused = false;          // no other picture refers to it; in HEVC none of its sub-layer
  bool hidden = false;          // not meant to be shown, or cannot be decoded where the sequence begins
  bool redundant = false;       // slices of it are coded twice
  uint8_t leading = 0;          // as SampleDependencies::isLeading
  uint8_t temporalID = 0;
  enum class Field : uint8_t { None, Top, Bottom } field = Field::None;
  uint32_t frameNum = 0;
  bool forgetsReferences = false;
};

struct SetPlace {
  SetKind kind;
  uint32_t id;
};

class PictureParser {
 public:
  virtual ~PictureParser() = default;

  // What is known of what stands between the last slice and this unit.
  enum class Between : uint8_t { Nothing, Separation, Delimiter };
  // Units in the order of the stream.
  virtual UnitRole read(std::span<const uint8_t> unit, Between between) = 0;
  // Of the unit that was read: which set it is, if it is one that can be read.
  virtual std::optional<SetPlace> set() const = 0;
  // That of the last slice.
  virtual const CodedPicture& picture() const = 0;

  // Samples in a second, as the set of the last slice tells: over a sample's ticks.
  struct Rate {
    uint64_t timeScale, ticks;
  };
  virtual std::optional<Rate> rate() const = 0;
};

std::unique_ptr<PictureParser> createPictureParser(Codec codec);
