#include <kiv/h264_bridge.h>

#include "tests/codecs/h264_samples.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace test;
using Data = br::Ref<const BRData>;

constexpr PVStatus kInvalid = kKivBridgeError_InvalidParameter, kUnreadable = kKivBridgeError_UnreadableData;

struct Built {
  PVStatus status;
  Bytes record;
  int32_t width = -1, height = -1;
};

Built build(const std::vector<Bytes>& sets, int32_t headerLength = 4, BRAllocatorRef allocator = nullptr) {
  std::vector<const uint8_t*> pointers;
  std::vector<size_t> sizes;
  for (const Bytes& set : sets) {
    pointers.push_back(set.data());
    sizes.push_back(set.size());
  }
  Built built;
  BRDataRef data = reinterpret_cast<BRDataRef>(&built);  // must be overwritten
  built.status =
      KivH264Bridge_CreateAVCCFromH264ParameterSets(allocator, sets.size(), pointers.data(), sizes.data(),
                                                    headerLength, &built.width, &built.height, &data);
  if (built.status != 0) {
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(built.width, 0);
    EXPECT_EQ(built.height, 0);
    return built;
  }
  built.record.assign(BRDataGetBytePtr(data), BRDataGetBytePtr(data) + BRDataGetLength(data));
  BRRelease(data);
  return built;
}

Bytes pps(uint32_t id, uint32_t size = 0) {
  Bytes set = BitWriter().bits(0x68, 8).ue(id).ue(0).unit();
  set.resize(std::max<size_t>(set.size(), size), 0xAA);
  return set;
}
Bytes extension(uint32_t id) { return BitWriter().bits(0x6D, 8).ue(id).ue(0).unit(); }

// A list of a record, behind its count.
Bytes entries(const std::vector<Bytes>& sets) {
  Bytes bytes;
  for (const Bytes& set : sets) {
    bytes.push_back(static_cast<uint8_t>(set.size() >> 8));
    bytes.push_back(static_cast<uint8_t>(set.size()));
    bytes.insert(bytes.end(), set.begin(), set.end());
  }
  return bytes;
}
Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes bytes;
  for (const Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

TEST(AVCC, HoldsTheSetsAsTheMuxersOfOthersWriteThem) {
  const Built high = build({kHighSPS, kHighPPS});
  EXPECT_EQ(high.record, joined({{1, 0x64, 0x00, 0x28, 0xFF, 0xE1},
                                 entries({kHighSPS}),
                                 {1},
                                 entries({kHighPPS}),
                                 {0xFD, 0xF8, 0xF8, 0}}));
  EXPECT_EQ(high.width, 1920);
  EXPECT_EQ(high.height, 1080);
  EXPECT_EQ(build({kHigh422PPS, kHigh422SPS}, 2).record, joined({{1, 0x7A, 0x00, 0x20, 0xFD, 0xE1},
                                                                 entries({kHigh422SPS}),
                                                                 {1},
                                                                 entries({kHigh422PPS}),
                                                                 {0xFE, 0xFA, 0xFA, 0}}));
  EXPECT_EQ(
      build({kInterlacedSPS, kInterlacedPPS}, 1).record,
      joined({{1, 0x4D, 0x40, 0x1E, 0xFC, 0xE1}, entries({kInterlacedSPS}), {1}, entries({kInterlacedPPS})}));

  Data pair;
  EXPECT_EQ(
      KivH264Bridge_CreateAVCCFromSPSAndPPS(nullptr, kHighSPS.data(), kHighSPS.size(), kHighPPS.data(),
                                            kHighPPS.size(), 4, reinterpret_cast<BRDataRef*>(pair.out())),
      0);
  EXPECT_EQ(Bytes(BRDataGetBytePtr(pair.get()), BRDataGetBytePtr(pair.get()) + BRDataGetLength(pair.get())),
            high.record);
}

TEST(AVCC, SortsSetsAndSumsUpTheirHeads) {
  const Bytes sps3 = SPSFields{.profile = 66, .constraints = 0xC0, .level = 31, .id = 3}.unit();
  const Bytes sps1 = SPSFields{.profile = 77, .constraints = 0x40, .level = 13, .id = 1}.unit();
  const Built built = build({pps(9), sps3, extension(2), pps(0), extension(1), sps1, pps(9, 20)});
  EXPECT_EQ(built.record, joined({{1, 77, 0x40, 31, 0xFF, 0xE4},
                                  entries({sps1, extension(1), extension(2), sps3}),
                                  {3},
                                  entries({pps(0), pps(9), pps(9, 20)})}));
  EXPECT_EQ(built.width, 64);
  // the profiles with a list of their own for extensions; only their sets have a format to agree on
  const Bytes sps4 = SPSFields{.profile = 100, .level = 10, .id = 4, .chromaFormat = 0, .bitDepth = 9}.unit();
  EXPECT_EQ(build({sps4, sps1, extension(4), pps(0)}).record, joined({{1, 100, 0, 13, 0xFF, 0xE2},
                                                                      entries({sps1, sps4}),
                                                                      {1},
                                                                      entries({pps(0)}),
                                                                      {0xFC, 0xF9, 0xF9, 1},
                                                                      entries({extension(4)})}));
}

TEST(AVCC, SizesThatDifferOrCannotBeReadAreZero) {
  const Bytes small = SPSFields{.id = 1}.unit(), wide = SPSFields{.id = 2, .widthInMbs = 5}.unit();
  Bytes cut = SPSFields{.id = 1}.unit();
  cut.resize(6);
  for (const auto& sets :
       {std::vector{small, wide, pps(0)}, std::vector{cut, pps(0)}, std::vector{small, cut, pps(0)},
        std::vector{cut, small, pps(0)}, std::vector{SPSFields{.crop = {99, 0, 0, 0}}.unit(), pps(0)}}) {
    const Built built = build(sets);
    EXPECT_EQ(built.status, 0);
    EXPECT_EQ(built.width, 0);
    EXPECT_EQ(built.height, 0);
  }
}

TEST(AVCC, RefusesSetsThatDoNotFitOrDoNotRead) {
  const Bytes sps = SPSFields{.profile = 100}.unit(), main = SPSFields{}.unit();
  const auto withHeader = [](Bytes set, uint8_t header) {
    set[0] = header;
    return set;
  };
  const auto many = [&](size_t count, const Bytes& set) {
    std::vector<Bytes> sets(count, set);
    sets.push_back(main);
    sets.push_back(pps(0));
    return sets;
  };
  const struct {
    const char* what;
    std::vector<Bytes> sets;
    PVStatus status;
  } cases[] = {
      {"one set", {sps}, kInvalid},
      {"no PPS", {sps, sps}, kInvalid},
      {"no SPS", {pps(0), pps(1)}, kInvalid},
      {"an empty set", {sps, {}}, kInvalid},
      {"the longest set", {sps, pps(0, 65535)}, 0},
      {"too long a set", {sps, pps(0, 65536)}, kInvalid},
      {"forbidden bit", {sps, withHeader(pps(0), 0xE8)}, kInvalid},
      {"nal_ref_idc 0", {sps, withHeader(pps(0), 0x08)}, kInvalid},
      {"a slice", {sps, withHeader(pps(0), 0x65)}, kInvalid},
      {"an extension instead of a PPS", {main, extension(0)}, kInvalid},
      {"an extension instead of an SPS", {extension(0), pps(0)}, kInvalid},
      {"other chroma", {sps, SPSFields{.profile = 110, .chromaFormat = 0}.unit(), pps(0)}, kInvalid},
      {"other depth", {sps, SPSFields{.profile = 144, .bitDepth = 9}.unit(), pps(0)}, kInvalid},
      {"another format where none is told",
       {sps, SPSFields{.profile = 244, .bitDepth = 9}.unit(), pps(0)},
       0},
      {"an ID of 13 zeros", {sps, BitWriter().bits(0x68, 8).code(13).unit()}, kUnreadable},
      {"a header only", {sps, {0x68}}, kUnreadable},
      {"an SPS that ends before its ID", {{0x67, 77, 0, 30}, pps(0)}, kUnreadable},
      {"an SPS that ends in its format", {{0x67, 100, 0, 30, 0xA0}, pps(0)}, kUnreadable},
      {"31 SPS", many(30, main), 0},
      {"32 SPS", many(31, main), kInvalid},
      {"31 SPS with an extension", many(31, extension(0)), kInvalid},
      {"255 PPS", many(254, pps(1)), 0},
      {"256 PPS", many(255, pps(1)), kInvalid},
      {"an unreadable set before an invalid one", {{0x68}, withHeader(pps(0), 0x08)}, kUnreadable},
  };
  for (const auto& c : cases) EXPECT_EQ(build(c.sets).status, c.status) << c.what;
  auto extensions = many(255, extension(0));
  extensions.push_back(sps);
  EXPECT_EQ(build(extensions).status, 0);
  extensions.push_back(extension(0));
  EXPECT_EQ(build(extensions).status, kInvalid);
  for (const int32_t length : {-1, 0, 3, 5}) EXPECT_EQ(build({sps, pps(0)}, length).status, kInvalid);
  Data data;
  const uint8_t* const pointers[] = {sps.data(), nullptr};
  const size_t sizes[] = {sps.size(), 3};
  const auto create = [&](const uint8_t* const* p, const size_t* s, BRDataRef* out) {
    return KivH264Bridge_CreateAVCCFromH264ParameterSets(nullptr, 2, p, s, 4, nullptr, nullptr, out);
  };
  EXPECT_EQ(create(nullptr, sizes, data.out()), kInvalid);
  EXPECT_EQ(create(pointers, nullptr, data.out()), kInvalid);
  EXPECT_EQ(create(pointers, sizes, nullptr), kInvalid);
  EXPECT_EQ(create(pointers, sizes, data.out()), kInvalid);
}

TEST(AVCC, BuildingSurvivesFailingAllocations) {
  EXPECT_GE(walkAllocationFailures([](BRAllocatorRef allocator) {
              const PVStatus status = build({kHighSPS, kHighPPS}, 4, allocator).status;
              EXPECT_TRUE(status == 0 || status == kKivBridgeError_AllocationFailed) << status;
              return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
            }),
            3);
}

struct Found {
  PVStatus status;
  Bytes set;
  size_t count = 99;
  int32_t headerLength = 99;
};

Found find(const Bytes& record, size_t index) {
  const auto data = Data::adopt(BRDataCreate(nullptr, record.data(), record.size()));
  const uint8_t* pointer = record.data();
  size_t size = 99;
  Found found;
  found.status = KivH264Bridge_GetH264ParameterSetAtIndex(data.get(), index, &pointer, &size, &found.count,
                                                          &found.headerLength);
  if (found.status != 0) {
    EXPECT_EQ(pointer, nullptr);
    EXPECT_EQ(size + found.count + static_cast<size_t>(found.headerLength), 0u);
  } else {
    found.set.assign(pointer, pointer + size);
  }
  return found;
}

const Bytes kSPS1 = SPSFields{.profile = 110, .id = 1}.unit(),
            kSPS2 = SPSFields{.profile = 110, .id = 2}.unit();

TEST(AVCC, SetsAreFoundAcrossTheLists) {
  const std::vector<Bytes> sets = {kSPS1, kSPS2, pps(1), extension(1), extension(2)};
  const Bytes record = build(sets, 2).record;
  for (size_t i = 0; i < sets.size(); ++i) {
    const Found found = find(record, i);
    EXPECT_EQ(found.set, sets[i]);
    EXPECT_EQ(found.count, sets.size());
    EXPECT_EQ(found.headerLength, 2);
  }
  EXPECT_EQ(find(record, sets.size()).status, kInvalid);
  EXPECT_EQ(find(record, SIZE_MAX).status, kInvalid);

  const auto data = Data::adopt(BRDataCreate(nullptr, record.data(), record.size()));
  size_t count = 0, spsCount = 0, ppsCount = 0, length = 0;
  int32_t headerLength = 0;
  const uint8_t* pointer = nullptr;
  EXPECT_EQ(KivH264Bridge_GetH264ParameterSetAtIndex(data.get(), 99, nullptr, nullptr, &count, &headerLength),
            0);
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(KivH264Bridge_GetSPSAndPPSCountFromAVCC(data.get(), &spsCount, &ppsCount), 0);
  EXPECT_EQ(spsCount, 2u);
  EXPECT_EQ(ppsCount, 1u);
  EXPECT_EQ(KivH264Bridge_GetNALUnitHeaderLengthFromAVCC(data.get(), &headerLength), 0);
  EXPECT_EQ(headerLength, 2);
  EXPECT_EQ(KivH264Bridge_GetSPSFromAVCC(record.data(), record.size(), 1, &pointer, &length), 0);
  EXPECT_EQ(Bytes(pointer, pointer + length), kSPS2);
  EXPECT_EQ(KivH264Bridge_GetPPSFromAVCC(record.data(), record.size(), 0, &pointer, &length), 0);
  EXPECT_EQ(Bytes(pointer, pointer + length), pps(1));
  EXPECT_EQ(KivH264Bridge_GetSPSFromAVCC(record.data(), record.size(), 2, &pointer, &length), kInvalid);
  EXPECT_EQ(KivH264Bridge_GetPPSFromAVCC(record.data(), record.size(), 1, &pointer, &length), kInvalid);
}

TEST(AVCC, CutRecordsAreRefused) {
  const Bytes record = build({kSPS1, pps(1), extension(1)}).record;
  const size_t lists = record.size() - entries({extension(1)}).size() - 4;  // up to the chroma format
  for (size_t length = 0; length < record.size(); ++length) {
    const Bytes cut(record.begin(), record.begin() + static_cast<ptrdiff_t>(length));
    // a record may end behind the picture parameter sets
    EXPECT_EQ(find(cut, 0).status, length == lists ? 0 : kInvalid) << length;
    const auto data = Data::adopt(BRDataCreate(nullptr, cut.data(), cut.size()));
    size_t count = 99, size;
    int32_t headerLength = 99;
    const uint8_t* pointer;
    const PVStatus status = length >= lists ? 0 : kInvalid;
    EXPECT_EQ(KivH264Bridge_GetSPSAndPPSCountFromAVCC(data.get(), &count, nullptr), status);
    EXPECT_EQ(count, status == 0 ? 1u : 0u);
    EXPECT_EQ(KivH264Bridge_GetSPSFromAVCC(cut.data(), length, 0, &pointer, &size), status);
    EXPECT_EQ(KivH264Bridge_GetPPSFromAVCC(cut.data(), length, 0, &pointer, nullptr), status);
    EXPECT_EQ(KivH264Bridge_GetNALUnitHeaderLengthFromAVCC(data.get(), &headerLength),
              length >= 6 ? 0 : kInvalid);
  }
  Bytes other = record;
  other[0] = 2;
  EXPECT_EQ(find(other, 0).status, kInvalid);
  other = record;
  other[1] = 77;  // what follows the lists is not looked at for this profile
  EXPECT_EQ(find(other, 0).count, 2u);
  EXPECT_EQ(find({1, 77, 0, 30, 0xFE, 0xE0, 0}, 0).status, kInvalid);
}

TEST(AVCC, WhatIsNoDataIsRefused) {
  size_t count;
  const auto allocator = reinterpret_cast<BRDataRef>(kBRAllocatorSystem);
  for (BRDataRef object : {BRDataRef{}, allocator}) {
    EXPECT_EQ(KivH264Bridge_GetH264ParameterSetAtIndex(object, 0, nullptr, nullptr, &count, nullptr),
              kInvalid);
    EXPECT_EQ(KivH264Bridge_GetSPSAndPPSCountFromAVCC(object, &count, nullptr), kInvalid);
    EXPECT_EQ(KivH264Bridge_GetNALUnitHeaderLengthFromAVCC(object, nullptr), kInvalid);
  }
  EXPECT_EQ(KivH264Bridge_GetSPSFromAVCC(nullptr, 20, 0, nullptr, &count), kInvalid);
}

}  // namespace
