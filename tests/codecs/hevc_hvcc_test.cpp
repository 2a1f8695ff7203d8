#include <kiv/error.h>
#include <kiv/hevc_bridge.h>

#include "tests/codecs/hevc_sets.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using namespace test;

constexpr PVStatus kInvalid = kKivBridgeError_InvalidParameter;
constexpr PVStatus kUnreadable = kKivBridgeError_UnreadableData;

const Bytes kPrefixSEI = fromHex("4e01 05 01 aa 80");
const Bytes kSuffixSEI = fromHex("5001 84 01 bb 80");

struct Record {
  br::Ref<const BRData> data;
  int32_t width = -1, height = -1;
  PVStatus status;

  explicit Record(const std::vector<Bytes>& sets, int32_t lengthBytes = 4,
                  BRAllocatorRef allocator = nullptr) {
    std::vector<const uint8_t*> pointers;
    std::vector<size_t> sizes;
    for (const Bytes& set : sets) {
      pointers.push_back(set.data());
      sizes.push_back(set.size());
    }
    data = br::Ref<const BRData>::adopt(BRDataCreate(nullptr, "x", 1));  // to be seen replaced
    BRDataRef made = data.get();
    status = KivHEVCBridge_CreateHVCCFromHEVCParameterSets(allocator, sets.size(), pointers.data(),
                                                           sizes.data(), lengthBytes, &width, &height, &made);
    data = br::Ref<const BRData>::adopt(made);
  }
  Bytes bytes() const {
    const uint8_t* from = BRDataGetBytePtr(data.get());
    return Bytes(from, from + BRDataGetLength(data.get()));
  }
};

br::Ref<const BRData> dataOf(const Bytes& bytes, size_t length) {
  return br::Ref<const BRData>::adopt(BRDataCreate(nullptr, bytes.data(), length));
}

// Version; profile; compatibility and constraint flags; level; segmentation, parallelism; chroma format and
// depths; frame rate; sub-layers, nesting and length size; number of arrays: as ffmpeg 5.1 wrote them for the
// same streams.
TEST(HVCC, HoldsTheSetsOfARealStream) {
  const struct {
    const char* what;
    std::vector<Bytes> sets;
    int32_t width, height;
    const char* head;
  } cases[] = {{"Main 10",
                {kMain10VPS, kMain10SPS, kMain10PPS},
                1920,
                1080,
                "01 02 20000000 900000000000 78 f000 fc fd fa fa 0000 0f 03"},
               {"4:2:2 fields",
                {kFieldsVPS, kFieldsSPS, kFieldsPPS},
                720,
                576,
                "01 04 08000000 4d0800000000 5a f000 fc fe fa fa 0000 13 03"},
               {"monochrome",
                {kFieldsVPS, kMonochromeSPS, kFieldsPPS},
                102,
                76,
                "01 04 08000000 9fc800000000 1e f000 fc fc f8 f8 0000 0f 03"},
               {"high tier",
                {kFieldsVPS, kLargeSPS, kFieldsPPS},
                8192,
                4320,
                "01 21 60000000 900000000000 ba f000 fc fd f8 f8 0000 0f 03"}};
  for (const auto& item : cases) {
    Bytes expected = fromHex(item.head);
    for (size_t i = 0; i < 3; ++i) {  // complete arrays of types 32, 33 and 34
      const Bytes& set = item.sets[i];
      const uint8_t entry[] = {static_cast<uint8_t>(0xA0 + i), 0, 1, 0, static_cast<uint8_t>(set.size())};
      expected.insert(expected.end(), std::begin(entry), std::end(entry));
      expected.insert(expected.end(), set.begin(), set.end());
    }
    const Record record(item.sets);
    EXPECT_EQ(record.status, 0) << item.what;
    EXPECT_EQ(record.bytes(), expected) << item.what;
    EXPECT_EQ(std::tie(record.width, record.height), std::tie(item.width, item.height)) << item.what;
    EXPECT_EQ(Record({item.sets[2], item.sets[0], item.sets[1]}).bytes(), expected) << item.what;
  }
}

TEST(HVCC, TakesSetsInAnyNumberAndOrder) {
  const Bytes pps0 = hevcPPS(0, 1, false, true), pps2 = hevcPPS(2, 1, false, true);
  const Bytes other2 = hevcPPS(2, 3, false, true);
  const Bytes sps1 = HEVCSequence{.id = 1}.unit(), sps3 = HEVCSequence{.id = 3}.unit();
  Bytes vps5 = kMain10VPS;
  vps5[2] = 0x5C;
  const Record record({kSuffixSEI, pps2, sps3, vps5, other2, sps1, kPrefixSEI, pps0, kMain10VPS}, 2);
  ASSERT_EQ(record.status, 0);
  const std::vector<Bytes> expected = {kMain10VPS, vps5,   sps1,       sps3,      pps0,
                                       pps2,       other2, kPrefixSEI, kSuffixSEI};
  for (size_t i = 0; i < expected.size(); ++i) {
    const uint8_t* pointer = nullptr;
    size_t size = 0, count = 0;
    int32_t lengthBytes = 0;
    ASSERT_EQ(
        KivHEVCBridge_GetHEVCParameterSetAtIndex(record.data.get(), i, &pointer, &size, &count, &lengthBytes),
        0);
    EXPECT_EQ(Bytes(pointer, pointer + size), expected[i]) << i;
    EXPECT_EQ(std::tie(count, lengthBytes), std::make_tuple(9u, 2));
  }
  const Bytes bytes = record.bytes();
  auto arrayAt = [&, at = size_t{22}](size_t units) mutable {  // completeness and type of the next array
    const uint8_t head = bytes[at + 1];
    at += 3;
    for (; units > 0; --units) at += 2u + bytes[at + 2];
    return head;
  };
  EXPECT_EQ(bytes[22], 5);
  for (const auto& [units, head] : {std::pair{2u, 0xA0}, {2, 0xA1}, {3, 0xA2}, {1, 0x27}, {1, 0x28}})
    EXPECT_EQ(arrayAt(units), head);

  for (const auto& [index, expectedSet] : {std::pair{size_t{0}, sps1}, {1, sps3}}) {
    const uint8_t* pointer = nullptr;
    size_t size = 0;
    ASSERT_EQ(KivHEVCBridge_GetSPSFromHVCC(bytes.data(), bytes.size(), index, &pointer, &size), 0);
    EXPECT_EQ(Bytes(pointer, pointer + size), expectedSet);
  }
  size_t size = 0;
  EXPECT_EQ(KivHEVCBridge_GetPPSFromHVCC(bytes.data(), bytes.size(), 2, nullptr, &size), 0);
  EXPECT_EQ(size, other2.size());
  EXPECT_EQ(KivHEVCBridge_GetSPSFromHVCC(bytes.data(), bytes.size(), 2, nullptr, nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetPPSFromHVCC(bytes.data(), bytes.size(), 3, nullptr, nullptr), kInvalid);
}

// The head asks for what all sets together need.
TEST(HVCC, SumsUpSeveralSequences) {
  HEVCSequence small{
      .highTier = true, .profileIdc = 2, .compatibility = 0x20000000, .constraints = 0xB00000000001};
  small.levelIdc = 93;
  HEVCSequence large{
      .compatibility = 0x60000001, .constraints = 0x900000000001, .levelIdc = 123, .subLayers = 3};
  large.nested = false;
  large.subLayerLevels = [](BitWriter& to) { to.bits(0, 16); };
  large.id = 1;
  const Record record({kMain10VPS, large.unit(), small.unit(), kMain10PPS});
  ASSERT_EQ(record.status, 0);
  EXPECT_EQ(std::tie(record.width, record.height), std::make_tuple(320, 184));
  const Bytes head = fromHex("01 22 20000000 900000000001 7b f000 fc fd f8 f8 0000 1b 03");
  Bytes bytes = record.bytes();
  bytes.resize(head.size());
  EXPECT_EQ(bytes, head);

  large.width = 640;
  const Record sizes({kMain10VPS, small.unit(), large.unit(), kMain10PPS});
  EXPECT_EQ(sizes.status, 0);
  EXPECT_EQ(std::tie(sizes.width, sizes.height), std::make_tuple(0, 0));
  EXPECT_EQ(sizes.bytes()[1], 0x22);  // the tier does not depend on the order

  const std::pair<const char*, HEVCSequence> different[] = {{"profile space", {.profileSpace = 1, .id = 1}},
                                                            {"chroma format", {.id = 1, .chromaFormat = 2}},
                                                            {"luma depth", {.id = 1, .lumaDepth = 10}},
                                                            {"chroma depth", {.id = 1, .chromaDepth = 10}}};
  for (const auto& [what, sequence] : different)
    EXPECT_EQ(Record({kMain10VPS, small.unit(), sequence.unit(), kMain10PPS}).status, kInvalid) << what;
}

TEST(HVCC, ExplainsSegmentation) {
  const auto segmented = [](uint64_t id, uint64_t segmentation) {
    HEVCUsability usability;
    usability.restriction = [=](BitWriter& to) { to.flag(true).bits(0, 3).ue(segmentation).bits(0xF, 4); };
    return HEVCSequence{.id = id, .usability = usability}.unit();
  };
  const Bytes slices = hevcPPS(0, 0, false, false), tiles = hevcPPS(1, 0, true, false),
              wavefronts = hevcPPS(2, 0, false, true), both = hevcPPS(3, 0, true, true);
  const Bytes unreadable = {kMain10PPS.begin(), kMain10PPS.begin() + 3};
  const struct {
    uint64_t first, second;
    std::vector<Bytes> pictureSets;
    int segmentation, parallelism;
  } cases[] = {{9, 9, {slices}, 9, 1},       {4095, 9, {tiles}, 9, 2},
               {9, 10, {wavefronts}, 9, 3},  {9, 9, {both}, 9, 0},
               {9, 9, {tiles, tiles}, 9, 2}, {9, 9, {tiles, wavefronts}, 9, 0},
               {9, 9, {both, tiles}, 9, 0},  {9, 9, {unreadable}, 9, 0},
               {0, 9, {tiles}, 0, 0},        {9, 9, {tiles, both, both}, 9, 0}};
  for (const auto& item : cases) {
    std::vector<Bytes> sets = {kMain10VPS, segmented(0, item.first), segmented(1, item.second)};
    sets.insert(sets.end(), item.pictureSets.begin(), item.pictureSets.end());
    const Record record(sets);
    ASSERT_EQ(record.status, 0);
    EXPECT_EQ((record.bytes()[13] & 15) << 8 | record.bytes()[14], item.segmentation);
    EXPECT_EQ(record.bytes()[15], 0xFC | item.parallelism) << item.first << " " << item.pictureSets.size();
  }
}

TEST(HVCC, RefusesWhatCannotStandInARecord) {
  const auto cut = [](const Bytes& set, size_t length) {
    return Bytes(set.begin(), set.begin() + static_cast<ptrdiff_t>(length));
  };
  const auto with = [](const Bytes& set, size_t at, uint8_t value) {
    Bytes changed = set;
    changed[at] = value;
    return changed;
  };
  const Bytes &v = kMain10VPS, &s = kMain10SPS, &p = kMain10PPS;
  Bytes tooLong = p;
  tooLong.resize(65536);
  const struct {
    const char* what;
    std::vector<Bytes> sets;
    PVStatus status;
  } cases[] = {{"two sets", {v, s}, kInvalid},
               {"no picture set", {v, s, s}, kInvalid},
               {"no sequence set", {v, p, p}, kInvalid},
               {"no video set", {s, s, p}, kInvalid},
               {"an empty set", {v, s, p, {}}, kInvalid},
               {"65,536 bytes", {v, s, tooLong}, kInvalid},
               {"the forbidden bit", {v, s, with(p, 0, 0xC4)}, kInvalid},
               {"another layer", {v, s, p, with(p, 1, 0x09)}, kInvalid},
               {"no temporal ID", {v, s, with(p, 1, 0)}, kInvalid},
               {"a slice", {v, s, p, with(p, 0, 0x26)}, kInvalid},
               {"16 bits", {v, HEVCSequence{.lumaDepth = 16}.unit(), p}, kInvalid},
               {"a bare header", {cut(v, 2), s, p}, kUnreadable},
               {"a message of a byte", {v, s, p, cut(kPrefixSEI, 1)}, kUnreadable},
               {"a sequence set without depths", {v, cut(s, 24), p}, kUnreadable},
               {"a picture set without IDs", {v, s, with(cut(p, 3), 2, 0)}, kUnreadable}};
  for (const auto& item : cases) {
    const uint64_t errorsBefore = KivGetErrorCount();
    const Record record(item.sets);
    EXPECT_EQ(record.status, item.status) << item.what;
    EXPECT_EQ(record.data.get(), nullptr) << item.what;
    EXPECT_EQ(std::tie(record.width, record.height), std::make_tuple(0, 0)) << item.what;
    EXPECT_EQ(KivGetErrorCount() - errorsBefore, 1u) << item.what;
  }
  for (const int32_t lengthBytes : {-1, 0, 3, 5}) EXPECT_EQ(Record({v, s, p}, lengthBytes).status, kInvalid);
  EXPECT_EQ(Record({v, cut(s, 30), p}).status, 0);  // to the depths at least: in the record, of unknown size
  EXPECT_EQ(Record({v, cut(s, 30), p}).width, 0);

  const uint8_t* pointers[] = {v.data(), s.data(), nullptr};
  const size_t sizes[] = {v.size(), s.size(), p.size()};
  BRDataRef out = nullptr;
  const auto create = [&](const uint8_t* const* sets, const size_t* lengths, BRDataRef* hvcCOut) {
    return KivHEVCBridge_CreateHVCCFromHEVCParameterSets(nullptr, 3, sets, lengths, 4, nullptr, nullptr,
                                                         hvcCOut);
  };
  EXPECT_EQ(create(nullptr, sizes, &out), kInvalid);
  EXPECT_EQ(create(pointers, nullptr, &out), kInvalid);
  EXPECT_EQ(create(pointers, sizes, &out), kInvalid);  // a null set
  pointers[2] = p.data();
  EXPECT_EQ(create(pointers, sizes, nullptr), kInvalid);
}

TEST(HVCC, RunsOutOfMemoryWithoutLosingAny) {
  const int requests = walkAllocationFailures([](BRAllocatorRef allocator) {
    const Record record({kMain10VPS, kMain10SPS, kMain10PPS}, 4, allocator);
    if (record.status == 0) return Outcome::kSucceeded;
    EXPECT_EQ(record.status, kKivBridgeError_AllocationFailed);
    EXPECT_EQ(record.data.get(), nullptr);
    EXPECT_EQ(record.width, 0);
    return Outcome::kOutOfMemory;
  });
  EXPECT_GT(requests, 1);
}

TEST(HVCC, TruncatedRecordsGiveNothing) {
  const Bytes whole = Record({kMain10VPS, kMain10SPS, kMain10PPS, kPrefixSEI}).bytes();
  for (size_t length = 0; length < whole.size(); ++length) {
    const auto data = dataOf(whole, length);
    const uint8_t* pointer = whole.data();
    size_t size = 9, count = 9;
    int32_t lengthBytes = 9;
    EXPECT_EQ(KivHEVCBridge_GetHEVCParameterSetAtIndex(data.get(), 0, &pointer, &size, &count, &lengthBytes),
              kInvalid);
    EXPECT_EQ(std::tie(pointer, size, count, lengthBytes), std::make_tuple(nullptr, 0u, 0u, 0)) << length;
    const Bytes exact(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_EQ(KivHEVCBridge_GetSPSFromHVCC(exact.data(), length, 0, &pointer, &size), kInvalid);
    EXPECT_EQ(KivHEVCBridge_GetPPSFromHVCC(exact.data(), length, 0, &pointer, &size), kInvalid);
    EXPECT_EQ(KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(data.get(), &lengthBytes),
              length < 23 ? kInvalid : 0);
    EXPECT_EQ(lengthBytes, length < 23 ? 0 : 4);
  }
}

TEST(HVCC, ReadsRecordsOfOthers) {
  // Two arrays of sequence sets, incomplete, with an empty unit; a type of its own; bytes behind the end.
  Bytes record = fromHex(
      "01 01 60000000 900000000000 5d f000 fc fd f8 f8 0000 0d 04  21 0001 0003 420101"
      "a1 0002 0000 0003 420102  3f 0001 0002 7e01  22 0000  ff");
  const auto data = dataOf(record, record.size());
  size_t size = 9, count = 9;
  const uint8_t* pointer = nullptr;
  ASSERT_EQ(KivHEVCBridge_GetSPSFromHVCC(record.data(), record.size(), 2, &pointer, &size), 0);
  EXPECT_EQ(Bytes(pointer, pointer + size), fromHex("420102"));
  EXPECT_EQ(KivHEVCBridge_GetSPSFromHVCC(record.data(), record.size(), 1, &pointer, &size), 0);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(KivHEVCBridge_GetPPSFromHVCC(record.data(), record.size(), 0, nullptr, nullptr), kInvalid);
  // Any index will do when no set is asked for.
  EXPECT_EQ(KivHEVCBridge_GetHEVCParameterSetAtIndex(data.get(), 99, nullptr, nullptr, &count, nullptr), 0);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(KivHEVCBridge_GetHEVCParameterSetAtIndex(data.get(), 4, nullptr, &size, &count, nullptr),
            kInvalid);
  EXPECT_EQ(count, 0u);
  int32_t lengthBytes = 0;
  EXPECT_EQ(KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(data.get(), &lengthBytes), 0);
  EXPECT_EQ(lengthBytes, 2);
  EXPECT_EQ(KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(nullptr, &lengthBytes), kInvalid);
  const auto text = br::Ref<const BRString>::adopt(BRStringCreateCopy(nullptr, "not data"_br));
  const auto notData = reinterpret_cast<BRDataRef>(text.get());
  EXPECT_EQ(KivHEVCBridge_GetNALUnitHeaderLengthFromHVCC(notData, &lengthBytes), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetHEVCParameterSetAtIndex(notData, 0, &pointer, &size, &count, nullptr), kInvalid);
  EXPECT_EQ(KivHEVCBridge_GetSPSFromHVCC(nullptr, 99, 0, &pointer, &size), kInvalid);
  record[0] = 0;
  EXPECT_EQ(KivHEVCBridge_GetSPSFromHVCC(record.data(), record.size(), 0, &pointer, &size), kInvalid);
}

}  // namespace
