// Walks any bytes as an 'avcC' record, and builds one anew of the sets that it holds.
#include <bedra/data.h>
#include <kiv/h264_bridge.h>
#include <kiv/h264_slice.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <vector>

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

size_t countOf(BRDataRef record) {
  size_t count;
  KivH264Bridge_GetH264ParameterSetAtIndex(record, 0, nullptr, nullptr, &count, nullptr);  // 0 on failure
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  const auto record = br::Ref<const BRData>::adopt(BRDataCreate(nullptr, input, length));
  const uint8_t* bytes = BRDataGetBytePtr(record.get());
  const size_t count = countOf(record.get());
  std::vector<const uint8_t*> sets(count);
  std::vector<size_t> sizes(count);
  size_t spsCount = 0, ppsCount = 0, size;
  int32_t headerLength, width, height;
  const uint8_t* set;
  for (size_t i = 0; i < count; ++i) {
    require(KivH264Bridge_GetH264ParameterSetAtIndex(record.get(), i, &sets[i], &sizes[i], nullptr,
                                                     &headerLength) == 0);
    require(sets[i] >= bytes && sets[i] + sizes[i] <= bytes + length && headerLength >= 1 &&
            headerLength <= 4);
  }
  KivH264Bridge_GetSPSAndPPSCountFromAVCC(record.get(), &spsCount, &ppsCount);
  for (size_t i = 0; i < spsCount + ppsCount; ++i) {
    require((i < spsCount ? KivH264Bridge_GetSPSFromAVCC(bytes, length, i, &set, &size)
                          : KivH264Bridge_GetPPSFromAVCC(bytes, length, i - spsCount, &set, &size)) == 0);
    require(count == 0 || (set == sets[i] && size == sizes[i]));
  }
  KivH264HLSfMP4ParsingInfoRef info;
  KivH264Bridge_CreateHLSfMP4ParsingInfoFromAVCCData(nullptr, record.get(), &info);
  KivH264Bridge_HLSfMP4ParsingInfoDestroy(info);
  const auto build = [&](br::Ref<const BRData>& built) {
    return KivH264Bridge_CreateAVCCFromH264ParameterSets(nullptr, count, sets.data(), sizes.data(), 4, &width,
                                                         &height, built.out()) == 0;
  };
  br::Ref<const BRData> built, again;
  if (!build(built)) return 0;
  require(countOf(built.get()) == count && (width == 0) == (height == 0));
  // Sorted sets stay where they are.
  for (size_t i = 0; i < count; ++i)
    KivH264Bridge_GetH264ParameterSetAtIndex(built.get(), i, &sets[i], &sizes[i], nullptr, nullptr);
  require(build(again) && BREqual(built.get(), again.get()));
  return 0;
}
