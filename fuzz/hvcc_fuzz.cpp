// Walks any bytes as an 'hvcC' record. Then builds a record of the units it found, or of the input cut into
// units (a length byte before each); what was built must walk again.
#include <bedra/data.h>
#include <kiv/hevc_bridge.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <vector>

namespace {

struct Units {
  std::vector<const uint8_t*> pointers;
  std::vector<size_t> sizes;
};
void require(bool holds) { holds ? void() : std::abort(); }

Units walk(BRDataRef record) {
  Units units;
  size_t count = 0;
  if (KivHEVCBridge_GetHEVCParameterSetAtIndex(record, 0, nullptr, nullptr, &count, nullptr) != 0)
    return units;
  const uint8_t *begin = BRDataGetBytePtr(record), *end = begin + BRDataGetLength(record), *unit = nullptr;
  size_t size = 0;
  for (size_t i = 0; i < count && i < 64; ++i) {
    require(KivHEVCBridge_GetHEVCParameterSetAtIndex(record, i, &unit, &size, nullptr, nullptr) == 0);
    require(unit >= begin && unit <= end && size <= static_cast<size_t>(end - unit));
    units.pointers.push_back(unit);
    units.sizes.push_back(size);
  }
  require(KivHEVCBridge_GetHEVCParameterSetAtIndex(record, count, &unit, nullptr, nullptr, nullptr) != 0);
  KivHEVCBridge_GetSPSFromHVCC(begin, BRDataGetLength(record), 1, &unit, &size);
  return units;
}

void buildAndWalk(const Units& units) {
  BRDataRef made = nullptr;
  int32_t width = -1, height = -1;
  const PVStatus status = KivHEVCBridge_CreateHVCCFromHEVCParameterSets(
      nullptr, units.sizes.size(), units.pointers.data(), units.sizes.data(), 4, &width, &height, &made);
  require((status == 0) == (made != nullptr) && (status == 0 || (width == 0 && height == 0)));
  const auto record = br::Ref<const BRData>::adopt(made);
  if (record && units.sizes.size() <= 64) require(walk(record.get()).sizes.size() == units.sizes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  const auto record = br::Ref<const BRData>::adopt(BRDataCreate(nullptr, input, length));
  buildAndWalk(walk(record.get()));
  Units cut;
  for (size_t at = 0; at < length && input[at] < length - at; at += 1u + input[at]) {
    cut.pointers.push_back(input + at + 1);
    cut.sizes.push_back(input[at]);
  }
  buildAndWalk(cut);
  return 0;
}
