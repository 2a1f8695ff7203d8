// The pictures of an H.264 stream.
#pragma once

#include <array>

#include "picture_order.hpp"
#include "picture_parser.hpp"

// Slices of auxiliary pictures and of layers above the base go with the picture that they come behind.
class H264Pictures final : public PictureParser {
 public:
  UnitRole read(std::span<const uint8_t> unit, Between between) override;
  std::optional<SetPlace> set() const override { return set_; }
  const CodedPicture& picture() const override { return picture_; }
  std::optional<Rate> rate() const override;

 private:
  struct Sequence {
    KivH264ParsedSPS sps;
    KivH264PicOrderCntCycle cycle;  // zeros unless the order count is of type 1
  };
  void readSPS(std::span<const uint8_t> unit);
  void readPPS(std::span<const uint8_t> unit);
  UnitRole readSlice(std::span<const uint8_t> unit, Between between);
  UnitRole beginPicture(const KivH264SlicePicture& slice, const Sequence& sequence);

  std::array<std::unique_ptr<const Sequence>, 32> sequences_;  // by ID, as last seen
  std::array<std::optional<KivH264ParsedPPS>, 256> pictureSets_;
  std::optional<SetPlace> set_;
  std::optional<KivH264SlicePicture> last_;  // first slice of the picture
  H264PictureOrder order_;
  CodedPicture picture_;
  KivVideoUsability vui_{};
};
