// The pictures of an HEVC stream.
#pragma once

#include <array>

#include "picture_order.hpp"
#include "picture_parser.hpp"

// Of the base layer; the units of other layers go with the picture that they come behind.
class HEVCPictures final : public PictureParser {
 public:
  UnitRole read(std::span<const uint8_t> unit, Between between) override;
  std::optional<SetPlace> set() const override { return set_; }
  const CodedPicture& picture() const override { return picture_; }
  std::optional<Rate> rate() const override;

 private:
  void readSet(std::span<const uint8_t> unit, SetKind kind);
  UnitRole readSlice(std::span<const uint8_t> unit);
  UnitRole beginPicture(const KivHEVCSliceInformation& slice, const KivHEVCParsedSPS& sps);

  std::array<std::optional<KivHEVCParsedSPS>, 16> sequences_;  // by ID, as last seen
  std::array<std::optional<KivHEVCParsedPPS>, 64> pictureSets_;
  std::optional<SetPlace> set_;
  bool anyPicture_ = false;
  bool sequenceEnded_ = true;  // before the first picture, and behind an end of sequence
  bool skipsLeading_ =
      false;  // the last random access point begins a sequence: its RASL pictures are not decoded
  HEVCPictureOrder order_;
  CodedPicture picture_;
  KivVideoUsability vui_{};
};
