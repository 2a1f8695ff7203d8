#include "picture_parser.hpp"

#include "h264_pictures.hpp"
#include "hevc_pictures.hpp"

std::unique_ptr<PictureParser> createPictureParser(Codec codec) {
  if (codec == Codec::HEVC) return std::make_unique<HEVCPictures>();
  return std::make_unique<H264Pictures>();
}
