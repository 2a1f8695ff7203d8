// Follows slice headers with any parameter sets: a byte each for the lengths of the two sets, the sets, the
// slice.
#include <kiv/h264_slice.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

void require(bool holds) {
  if (!holds) std::abort();
}

Bytes take(const uint8_t*& at, const uint8_t* end, size_t length) {
  const uint8_t* from = at;
  at += std::min(length, static_cast<size_t>(end - at));
  return Bytes(from, at);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  if (length < 2) return 0;
  const uint8_t *at = input + 2, *end = input + length;
  const Bytes sps = take(at, end, input[0]), pps = take(at, end, input[1]), slice(at, end);
  const auto measure = [&](size_t sliceLength, size_t* bits, size_t* clear) {
    return KivH264Bridge_MeasureSliceHeader(slice.data(), sliceLength, sps.data(), sps.size(), pps.data(),
                                            pps.size(), bits, clear);
  };
  uint32_t ppsID = 0;
  KivH264InterlaceType type = -1;
  size_t bits = 0, clear = 0, sameBits = 0, sameClear = 0;
  const PVStatus asked = KivH264Bridge_GetPPSSequenceIDFromSlice(slice.data(), slice.size(), &ppsID);
  const PVStatus typed =
      KivH264Bridge_GetInterlaceTypeFromSlice(slice.data(), slice.size(), sps.data(), sps.size(), &type);
  require(typed == 0 ? type >= kKivH264InterlaceType_Frame && type <= kKivH264InterlaceType_BottomField
                     : type == -1);
  if (measure(slice.size(), &bits, &clear) != 0) return 0;
  require(asked == 0 && typed == 0 && ppsID <= 255);
  require(clear <= slice.size() && clear * 8 >= bits + 8);
  // The clear bytes are all that it takes.
  const Bytes head(slice.begin(), slice.begin() + static_cast<ptrdiff_t>(clear));
  require(KivH264Bridge_MeasureSliceHeader(head.data(), head.size(), sps.data(), sps.size(), pps.data(),
                                           pps.size(), &sameBits, &sameClear) == 0);
  require(sameBits == bits && sameClear == clear);
  // And not a byte less: the payload's last byte is among the last two of them.
  require(clear < 3 || measure(clear - 2, nullptr, nullptr) != 0);
  return 0;
}
