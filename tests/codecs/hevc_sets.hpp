// HEVC parameter sets for tests: real ones, as x265 3.5 wrote them, and a writer of any others.
#ifndef TESTS_CODECS_HEVC_SETS_HPP
#define TESTS_CODECS_HEVC_SETS_HPP

#include <kiv/hevc_bridge.h>

#include <functional>
#include <string>
#include <string_view>

#include "tests/codecs/bit_writer.hpp"

namespace test {

// Pairs of hexadecimal digits; spaces between them do not count.
inline Bytes fromHex(std::string_view digits) {
  Bytes bytes;
  std::string pair;
  for (const char digit : digits) {
    if (digit != ' ') pair += digit;
    if (pair.size() < 2) continue;
    bytes.push_back(static_cast<uint8_t>(std::stoi(pair, nullptr, 16)));
    pair.clear();
  }
  return bytes;
}

// 1920 x 1080 Main 10, 23.976 pictures a second, BT.2020 colours, HRD.
inline const Bytes kMain10VPS = fromHex("4001 0c01ffff 02200000030090000003000003 0078 959409");
inline const Bytes kMain10SPS = fromHex(
    "4201"                        // type 33, layer 0, temporal ID 0
    "01"                          // VPS 0, one sub-layer, nested
    "02 20000003 00"              // profile 2; compatible with 2 (bit 29); an emulation prevention byte
    "90 0000030000 03 00"         // progressive, frame only; reserved bits, two more such bytes
    "78"                          // level 4
    "a0 03c0 8011 07ca"           // SPS 0, 4:2:0, 1920 x 1088, the window ends 4 chroma lines above
    "d9 65654a4c2f"               // 10 bits; 8 bits of picture order count; coding tools
    "01 6a 12 20 13 6c"           // square samples; no range; colours 9, 16, 9; chroma location 2, 2
    "2000007d20 000bb80c"         // a tick of 1001 / 24000 s
    "0292cbc0002625a0001312d1");  // NAL HRD: delays of 12 and 6 bits, fixed rate; rate and size 78125
inline const Bytes kMain10PPS = fromHex("4401 c0 73 c1 89");  // IDs 0; wavefronts

// 720 x 576 fields, 4:2:2 with 10 bits, two sub-layers, PAL with samples of 64:45.
inline const Bytes kFieldsVPS = fromHex("40010c02ffff0408000003004d0800000300005a00009594aca048");
inline const Bytes kFieldsSPS = fromHex(
    "4201 02"                          // two sub-layers, not nested
    "04 08000003 00 4d 08000003 0000"  // profile 4, its flags: interlaced, 4:2:2 and 10 bits at most
    "5a 0000"                          // level 3; nothing for the lower sub-layer
    "b005a200904d965652b2a52617"       // SPS 0, 4:2:2, 720 x 576, no window; coding tools
    "ff8020 0016"                      // extended SAR 64:45
    "d2 8282829a"                      // overscan not appropriate; PAL; colours 5, 5, 5; fields; field info
    "000003000200000300 3210");        // a tick of 1 / 25 s, no HRD
inline const Bytes kFieldsPPS = fromHex("4401c073c189");

// 102 x 76 monochrome, full range, samples of 4:3.
inline const Bytes kMonochromeSPS = fromHex(
    "4201 01 04 08000003 00 9fc800000300001e"  // profile 4, monochrome at most
    "c0e2051c5cb965654a4c2f"                   // chroma format 0; 112 x 80 without 10 columns, 4 lines
    "0e6c 08000003 0008000003 01e040");

// 8192 x 4320, Main at level 6.2, high tier; scaling lists on, the default ones.
inline const Bytes kLargeSPS = fromHex(
    "4201 01 21 60000003 0090000003000003 00ba"
    "a0 0040 0200 10e1"  // sizes of 27 and 25 bits
    "65959529385e02020000030002000003007810");

// A sequence parameter set, value by value; what a test does not set is as plain as can be. 320 x 184.
struct HEVCSequence {
  using Part = std::function<void(BitWriter&)>;

  uint32_t profileSpace = 0;
  bool highTier = false;
  uint32_t profileIdc = 1;
  uint32_t compatibility = 0x60000000;
  uint64_t constraints = 0x900000000000;
  uint32_t levelIdc = 93;
  uint32_t subLayers = 1;
  bool nested = true;
  Part subLayerLevels = [](BitWriter&) {};
  uint64_t id = 0;
  uint64_t chromaFormat = 1;
  bool separatePlanes = false;
  uint64_t width = 320, height = 184;
  std::vector<uint64_t> window = {};  // left, right, top, bottom
  uint64_t lumaDepth = 8, chromaDepth = 8;
  Part scalingLists = [](BitWriter& to) { to.flag(false); };
  Part pcm = [](BitWriter& to) { to.flag(false); };
  Part referenceSets = [](BitWriter& to) { to.ue(0); };
  Part longTerm = [](BitWriter& to) { to.flag(false); };
  Part usability = nullptr;  // without: none

  Bytes unit() const {
    BitWriter to;
    to.bits(0x4201, 16).bits(0, 4).bits(subLayers - 1, 3).flag(nested);
    to.bits(profileSpace, 2).flag(highTier).bits(profileIdc, 5).bits(compatibility, 32).bits(constraints, 48);
    to.bits(levelIdc, 8);
    subLayerLevels(to);
    to.ue(id).ue(chromaFormat);
    if (chromaFormat == 3) to.flag(separatePlanes);
    to.ue(width).ue(height).flag(!window.empty());
    for (const uint64_t offset : window) to.ue(offset);
    to.ue(lumaDepth - 8).ue(chromaDepth - 8).ue(4).flag(true);
    for (uint32_t i = 0; i < subLayers; ++i) to.ue(4).ue(2).ue(0xFFFFFFFE);
    to.ue(0).ue(3).ue(0).ue(3).ue(1).ue(1);
    scalingLists(to);
    to.bits(1, 2);
    pcm(to);
    referenceSets(to);
    longTerm(to);
    to.bits(3, 2).flag(usability != nullptr);
    if (usability) usability(to);
    return to.flag(false).unit();
  }
};

// Usability information part by part, none of them there unless given.
struct HEVCUsability {
  using Part = std::function<void(BitWriter&)>;
  static void none(BitWriter& to) { to.flag(false); }

  Part aspectRatio = none, overscan = none, videoSignal = none, chromaLocation = none;
  Part fields = [](BitWriter& to) { to.bits(0, 4); };
  Part timing = none;  // with HRD
  Part restriction = none;

  void operator()(BitWriter& to) const {
    for (const Part* part :
         {&aspectRatio, &overscan, &videoSignal, &chromaLocation, &fields, &timing, &restriction})
      (*part)(to);
  }
  // Something to find again: samples of 20:11.
  static HEVCUsability marked() {
    HEVCUsability usability;
    usability.aspectRatio = [](BitWriter& to) { to.flag(true).bits(7, 8); };
    return usability;
  }
};

inline Bytes hevcPPS(uint64_t id, uint64_t spsID, bool tiles, bool wavefronts) {
  BitWriter to;
  to.bits(0x4401, 16).ue(id).ue(spsID).bits(0, 7).ue(0).ue(14).se(-26).bits(0, 2);
  to.flag(true).ue(3);  // cu_qp_delta_enabled
  to.se(-12).se(12).bits(0, 4);
  return to.flag(tiles).flag(wavefronts).unit();
}

}  // namespace test

#endif
