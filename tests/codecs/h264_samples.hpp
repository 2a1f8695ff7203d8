// Parameter sets that an encoder (x264) wrote, and the means to write others.
#ifndef TESTS_CODECS_H264_SAMPLES_HPP
#define TESTS_CODECS_H264_SAMPLES_HPP

#include <vector>

#include "tests/codecs/bit_writer.hpp"

namespace test {

// High, 1920 × 1080 at 25 frames per second, with colours and HRD.
inline const Bytes kHighSPS = {
    0x67,              // nal_ref_idc 3, nal_unit_type 7
    0x64, 0x00, 0x28,  // profile_idc 100, no constraints, level 4.0
    0xAC,  // 1 seq_parameter_set_id 0, 010 chroma_format_idc 1, 1 and 1: 8 bits, 0 bypass, 0 scaling matrix
    0xD9,  // 1 frame_num of 4 bits, 1 pic_order_cnt_type 0, 011 of 6 bits, 001…
    0x40, 0x78,  // …01 4 reference frames, 0 gaps, 0000001111000: 120 macroblocks wide
    0x02, 0x27,  // 0000001000100: 68 high, 1 frame_mbs_only_flag, 1 direct_8x8_inference_flag, 1 cropping
    0xE5,        // 1 left, 1 right, 1 top, 00101 bottom 4
    0xC0, 0x5A,  // 1 VUI, 1 aspect ratio, 00000001 square, 0 overscan, 1 signal type, 101 unspecified, 0
                 // limited
    0x80, 0x80, 0x80,  // 1 colours, 00000001, 00000001, 0000000…
    0xA0, 0x00, 0x00, 0x03, 0x00,
    0x20,                    // …1, 0 chroma location, 1 timing, 32 bits: num_units_in_tick 1 (03 goes)
    0x00, 0x00, 0x06, 0x5C,  // 32 bits: time_scale 50, 1 fixed_frame_rate_flag, 1 NAL HRD, 1 one buffer, 0…
    0x88, 0x00, 0x1E, 0x84, 0x80, 0x00,
    0x4C,                     // …010 and 0010 scales, rate 15624 and size 78124 in 27 and 33 bits
    0x4B, 0x52, 0x61, 0x80,   // 0 cbr, 10010, 01100 and 00110: delays of 13 and 7 bits, 00000 time offset
    0x3C, 0x60, 0xC6, 0x58};  // in the 80: 0 VCL HRD, 0 low delay; in the 3C: 0 pic_struct, then the rest
inline const Bytes kHighPPS = {0x68, 0xEA, 0xEC, 0xB2, 0x2C};

// Main, 704 × 480 at 30000/1001 frames per second, macroblock-adaptive fields, pixels of 10:11.
inline const Bytes kInterlacedSPS = {
    0x67, 0x4D, 0x40, 0x1E,        // profile_idc 77, constraint_set1_flag, level 3.0
    0xEC, 0xA0, 0x58,              // …, 44 macroblocks wide, 15…
    0x3D,                          // …high, 0 frame_mbs_only_flag, 1 MBAFF
    0xB0, 0x31,                    // 1, 0 cropping, 1 VUI, 1 aspect ratio 3; 0, 0, 0, 1 timing
    0x00, 0x00, 0x03, 0x03, 0xE9,  // num_units_in_tick 1001
    0x00, 0x00, 0xEA, 0x60,        // time_scale 60000
    0x9F, 0x14, 0x29, 0x96};       // 1 fixed, 0 and 0 HRD, 1 pic_struct, then the rest
inline const Bytes kInterlacedPPS = {0x68, 0xFB, 0xA3, 0xCB, 0x20};

// High 4:2:2, 10 bits, 1280 × 718 at 50 frames per second, pixels of 255:256, colours of BT.2020 and PQ.
inline const Bytes kHigh422SPS = {0x67, 0x7A, 0x00, 0x20,  // profile_idc 122, level 3.2
                                  0xB6, 0xCD,              // 1 ID, 011 4:2:2, 011 and 011: 10 bits, …
                                  0x94, 0x05, 0x00, 0x5B,  // 80 macroblocks wide, 45 high, …, 1 cropping, …
                                  0xFB,                    // 011: bottom 2, in units of one line
                                  0xFF, 0xC0, 0x3F, 0xC0, 0x40,        // 11111111 extended: 255, 256
                                  0x1A, 0x84, 0x88, 0x04,              // 0, 1 101 0 1: colours 9, 16, 9, 0
                                  0xA0, 0x00, 0x00, 0x03, 0x00, 0x20,  // 1 timing: 1
                                  0x00, 0x00, 0x0C, 0x91,  // 100, 1 fixed, 0 and 0 HRD, 0 pic_struct, …
                                  0xE3, 0x06, 0x32, 0xC0};
inline const Bytes kHigh422PPS = {0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};

// What a set says; the usability information is the test's own to write.
struct SPSFields {
  uint32_t profile = 77, constraints = 0, level = 30, id = 0;
  uint32_t chromaFormat = 1, bitDepth = 8;  // written for profiles from 100 on
  bool separateColourPlane = false;
  uint32_t log2MaxFrameNum = 4, pocType = 0;
  uint32_t widthInMbs = 4, heightInMapUnits = 3;
  bool frameMbsOnly = true, mbaff = false;
  std::vector<uint32_t> crop = {};  // left, right, top, bottom

  // As far as vui_parameters_present_flag, which is next.
  BitWriter write() const {
    BitWriter writer;
    writer.bits(0x67, 8).bits(profile, 8).bits(constraints, 8).bits(level, 8).ue(id);
    if (profile >= 100) {
      writer.ue(chromaFormat);
      if (chromaFormat == 3) writer.flag(separateColourPlane);
      writer.ue(bitDepth - 8).ue(bitDepth - 8).flag(false).flag(false);
    }
    writer.ue(log2MaxFrameNum - 4).ue(pocType);
    if (pocType == 0) writer.ue(2);
    if (pocType == 1) writer.flag(false).se(0).se(0).ue(0);
    writer.ue(1).flag(false).ue(widthInMbs - 1).ue(heightInMapUnits - 1).flag(frameMbsOnly);
    if (!frameMbsOnly) writer.flag(mbaff);
    writer.flag(true).flag(!crop.empty());
    for (const uint32_t offset : crop) writer.ue(offset);
    return writer;
  }
  Bytes unit() const { return write().flag(false).unit(); }
};

}  // namespace test

#endif
