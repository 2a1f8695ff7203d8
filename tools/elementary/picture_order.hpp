// Picture order counts: in which order pictures are shown that come in decoding order.
#pragma once

#include <kiv/h264_slice.h>
#include <kiv/hevc_slice.h>

#include <cstdint>
#include <optional>

// ITU-T H.264 8.2.1, picture after picture: fields one by one. Counts say something within a sequence, which
// an IDR picture begins, or one that forgets all references.
class H264PictureOrder {
 public:
  // That of the field that is shown first, for frames. cycle: for pic_order_cnt_type 1 only. Empty for one
  // that no stream can have.
  std::optional<int64_t> next(const KivH264SlicePicture& picture, const KivH264ParsedSPS& sps,
                              const KivH264PicOrderCntCycle& cycle);

 private:
  struct Counts {
    int64_t top = 0, bottom = 0;  // a field has both alike
  };
  Counts ofLsb(const KivH264SlicePicture& picture, const KivH264ParsedSPS& sps);
  std::optional<Counts> ofCycle(const KivH264SlicePicture& picture,
                                const KivH264PicOrderCntCycle& cycle) const;
  Counts ofFrameNum(const KivH264SlicePicture& picture) const;

  int64_t previousMsb_ = 0, previousLsb_ = 0;  // of the last reference picture
  uint32_t previousFrameNum_ = 0;
  int64_t frameNumOffset_ = 0;
};

// ITU-T H.265 8.3.1.
class HEVCPictureOrder {
 public:
  // beginsSequence: the picture is a random access point that is decoded without what stands before it.
  int64_t next(const KivHEVCSliceInformation& slice, const KivHEVCParsedSPS& sps, bool beginsSequence);

 private:
  int64_t previous_ = 0;  // of the last picture that leading pictures and higher sub-layers do not disturb
};
