#include <kiv/error.h>
#include <kiv/sample_description.h>

#include "runtime/byte_reader.hpp"
#include "tests/formats/records.hpp"

namespace {

using namespace test;

using Swap = PVStatus (*)(uint8_t*, size_t);

struct Kind {
  const char* name;
  Swap toHost;
  Swap toBig;
  std::string record;
  // Which bytes belong to which field: a run of equal letters is one field that is swapped, '.' is left
  // alone.
  std::string fields;
};

std::string counted(size_t length) {
  std::string bytes;
  for (size_t i = 0; i < length; ++i) bytes += static_cast<char>(i + 1);
  return bytes;
}

// The 16 common bytes and those of the kind.
const std::string kHeader = "aaaabbbbccccddee";
const std::string kSound = kHeader + "aabbccccddeeffgghhhh";
const std::string kImage = kHeader + "aabbccccddddeeeeffgghhhhiiiijjjjkk" + std::string(32, '.') + "aabb";
const std::string kText = kHeader + "aaaabbbbccddeeffgghhiijjjjkkllmm..nnooppqq";

std::vector<Kind> kinds() {
  const auto sound = [](uint16_t version, size_t length) {
    return record("twos", bigEndian(version, 2) + counted(length - 18) + "tail");
  };
  const std::string colors = bigEndian(7, 4) + bigEndian(8, 2) + bigEndian(1, 2) + counted(16);
  const auto image = [](uint16_t colorTableID, const std::string& behind) {
    return record("raw ", counted(68) + bigEndian(colorTableID, 2) + behind);
  };
  return {
      {"sound 0", PVSwapBigEndianSoundDescriptionToHost, PVSwapHostEndianSoundDescriptionToBig, sound(0, 36),
       kSound},
      {"sound 1", KivEndianSoundDescriptionData_BtoN, KivEndianSoundDescriptionData_NtoB, sound(1, 52),
       kSound + "aaaabbbbccccdddd"},
      {"sound 2", PVSwapBigEndianSoundDescriptionToHost, PVSwapHostEndianSoundDescriptionToBig, sound(2, 72),
       kSound + "aaaabbbbbbbbccccddddeeeeffffgggghhhh"},
      {"image", PVSwapBigEndianImageDescriptionToHost, PVSwapHostEndianImageDescriptionToBig,
       image(0xFFFF, "tail"), kImage},
      {"image with colours", KivEndianImageDescriptionData_BtoN, KivEndianImageDescriptionData_NtoB,
       image(0, colors + "tail"), kImage + "aaaabbccddeeffgghhiijjkk"},
      {"text", PVSwapBigEndianTextDescriptionToHost, PVSwapHostEndianTextDescriptionToBig,
       record("text", counted(42) + "\4Name"), kText},
      {"timed text", KivEndianTextDescriptionData_BtoN, KivEndianTextDescriptionData_NtoB,
       record("tx3g", counted(30) + "tail"), kHeader + "aaaa......bbccddeeffgghh......"},
      {"captions", PVSwapBigEndianClosedCaptionDescriptionToHost,
       PVSwapHostEndianClosedCaptionDescriptionToBig, record("c608", "tail"), kHeader},
      {"timecode", PVSwapBigEndianTimeCodeDescriptionToHost, PVSwapHostEndianTimeCodeDescriptionToBig,
       record("tmcd", counted(18) + "tail"), kHeader + "aaaabbbbccccdddd.."},
  };
}

// The record with each run of equal letters reversed.
std::string reversedFields(std::string bytes, const std::string& fields) {
  for (size_t begin = 0; begin < fields.size();) {
    const size_t end = std::min(fields.find_first_not_of(fields[begin], begin), fields.size());
    if (fields[begin] != '.') std::reverse(bytes.begin() + begin, bytes.begin() + end);
    begin = end;
  }
  return bytes;
}

TEST(RecordSwap, TurnsEveryFieldAndNothingElse) {
  for (const Kind& kind : kinds()) {
    SCOPED_TRACE(kind.name);
    std::string bytes = kind.record;
    ASSERT_EQ(kind.toHost(bytesOf(bytes), bytes.size()), 0);
    EXPECT_EQ(bytes, std::endian::native == std::endian::big ? kind.record
                                                             : reversedFields(kind.record, kind.fields));
    ASSERT_EQ(kind.toBig(bytesOf(bytes), bytes.size()), 0);
    EXPECT_EQ(bytes, kind.record);
  }
}

TEST(RecordSwap, RefusesRecordsThatAreTooShort) {
  for (const Kind& kind : kinds()) {
    SCOPED_TRACE(kind.name);
    EXPECT_EQ(kind.toHost(nullptr, 100), kPVSampleDescriptionError_InvalidParameter);
    const size_t fixed = kind.fields.size();
    for (size_t length = 0; length < fixed; ++length) {
      // a buffer of its own, so that a read behind it is seen
      std::string bytes = kind.record.substr(0, length);
      if (length >= 4) bytes.replace(0, 4, bigEndian(length, 4));
      bytes.shrink_to_fit();
      const std::string before = bytes;
      const PVStatus status = kind.toHost(bytesOf(bytes), bytes.size());
      const bool lenient = std::string(kind.name) == "image with colours" && length >= 86;
      EXPECT_EQ(status == 0, lenient) << length;
      EXPECT_EQ(bytes, before) << length;
    }
  }
}

TEST(RecordSwap, SizesAndVersionsThatLieAreMalformed) {
  struct Case {
    const char* name;
    Swap swap;
    size_t at;
    uint64_t value;
    int width;
    size_t kind;
  };
  const auto all = kinds();
  const Case cases[] = {
      {"sound version 3", PVSwapBigEndianSoundDescriptionToHost, 16, 3, 2, 0},
      {"sound version 1 in 51 bytes", PVSwapBigEndianSoundDescriptionToHost, 0, 51, 4, 1},
      {"sound beyond the bytes", PVSwapBigEndianSoundDescriptionToHost, 0, 1000, 4, 0},
      {"image of 85 bytes", PVSwapBigEndianImageDescriptionToHost, 0, 85, 4, 3},
      {"image beyond the bytes", PVSwapBigEndianImageDescriptionToHost, 0, 0xFFFFFFFF, 4, 3},
      {"text beyond the bytes", PVSwapBigEndianTextDescriptionToHost, 0, 1000, 4, 5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes = all[c.kind].record;
    bytes.replace(c.at, static_cast<size_t>(c.width), bigEndian(c.value, c.width));
    const std::string before = bytes;
    EXPECT_EQ(c.swap(bytesOf(bytes), bytes.size()), kPVSampleDescriptionError_MalformedRecord);
    EXPECT_EQ(bytes, before);
  }
}

TEST(RecordSwap, ColourTableThatDoesNotFitIsSignalledAndLeftAlone) {
  for (const uint16_t last : {2, 3, 0x7FFF, 0xFFFF}) {
    std::string bytes = kinds()[4].record;
    bytes.replace(92, 2, bigEndian(last, 2));
    bytes.replace(0, 4, bigEndian(bytes.size() - 4, 4));  // without the tail
    const std::string before = bytes;
    const uint64_t errors = KivGetErrorCount();
    EXPECT_EQ(PVSwapBigEndianImageDescriptionToHost(bytesOf(bytes), bytes.size()), 0);
    EXPECT_EQ(KivGetErrorCount(), errors + 1);
    EXPECT_EQ(bytes, before);
  }
}

}  // namespace
