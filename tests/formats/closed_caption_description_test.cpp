#include <kiv/sample_description.h>
#include <pevrin/closed_caption_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/formats/records.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;

PVStatus read(const std::string& bytes, Description& out, BRAllocatorRef allocator = nullptr) {
  return PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData(
      allocator, bytesOf(bytes), bytes.size(), nullptr, out.out());
}

std::string write(PVFormatDescriptionRef description) {
  Record out;
  EXPECT_EQ(KivClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer(
                nullptr, description, nullptr, out.out()),
            0);
  return textOf(out.get());
}

// What is read of the record's atoms, written again.
std::string again(const std::string& atoms) {
  Description description;
  EXPECT_EQ(read(record("c608", atoms), description), 0);
  return write(description.get()).substr(16);
}

TEST(ClosedCaptionDescription, EveryFormatComesBackWithItsIndexUnset) {
  for (const char* format : {"c608", "p608", "c708"}) {
    Description description;
    ASSERT_EQ(read(record(format, ""), description), 0);
    EXPECT_EQ(PVFormatDescriptionGetExtensions(description.get()), nullptr);
    EXPECT_EQ(PVFormatDescriptionGetMediaType(description.get()), kPVMediaType_ClosedCaption);
    EXPECT_EQ(write(description.get()), record(format, "", 0xFFFF));
  }
}

TEST(ClosedCaptionDescription, AtomsAreKept) {
  const std::string ccdp = atom("ccdp", "payload"), other = atom(
                                                        "\xA9"
                                                        "abc",
                                                        "x");
  EXPECT_EQ(again(atom("free", "gap") + ccdp + other), ccdp + other);
  EXPECT_EQ(again(ccdp + atom("ccdp", "second")), ccdp) << "the first of a type";
  EXPECT_EQ(again(ccdp + bigEndian(20, 4) + "long" + "too short"), ccdp);
  EXPECT_EQ(again(ccdp + bigEndian(7, 4) + "smal" + ccdp), ccdp);
  EXPECT_EQ(again(atom("ccdp")), "") << "8 bytes are too few to be looked at";
}

TEST(ClosedCaptionDescription, EntriesThatAreNoAtomsAreNotWritten) {
  const uint8_t bytes[] = {'a', 'b'};
  const Data data = dataOf(bytes);
  const Dictionary atoms = dictionary({{"goodness"_br, data.get()},
                                       {"numb"_br, kBRBooleanTrue},
                                       {"arry"_br, array({data.get()}).get()},
                                       {"abc"_br, data.get()}});
  const Dictionary extensions =
      dictionary({{kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms, atoms.get()}});
  Description description;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_ClosedCaption, "c608"_4cc, extensions.get(),
                                      description.out()),
            0);
  EXPECT_EQ(write(description.get()), record("c608", atom("good", "ab"), 0xFFFF));
}

TEST(ClosedCaptionDescription, BadRecordsAreRefused) {
  struct Case {
    const char* what;
    uint32_t size;
    std::string format;
    PVStatus expected;
  };
  const Case cases[] = {{"size of 8", 8, "c608", -12714},
                        {"size beyond the bytes", 17, "c608", -12714},
                        {"negative size", 0x80000010, "c608", -12714},
                        {"format", 16, "tx3g", -12712}};
  for (const Case& c : cases) {
    Description description;
    std::string bytes = record(c.format, "");
    bytes.replace(0, 4, bigEndian(c.size, 4));
    EXPECT_EQ(read(bytes, description), c.expected) << c.what;
  }
  for (size_t length = 0; length < 16; ++length) {
    Description description;
    EXPECT_EQ(read(record("c608", "").substr(0, length), description), -12712) << length;
  }
  Description text;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, "c608"_4cc, nullptr, text.out()), 0);
  PVBlockBufferRef out;
  EXPECT_EQ(PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer(
                nullptr, text.get(), nullptr, &out),
            -12712);
  EXPECT_EQ(out, nullptr);
}

TEST(ClosedCaptionDescription, RunningOutOfMemoryLeavesNothingBehind) {
  const std::string bytes = record("c608", atom("ccdp", "payload") + atom("more", "x"));
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Description description;
    const PVStatus status = read(bytes, description, allocator);
    // atoms that there was no memory for are missing
    const size_t length = status == 0 ? write(description.get()).size() : 0;
    if (length == 16) {
      EXPECT_EQ(PVFormatDescriptionGetExtensions(description.get()), nullptr);
    }
    const bool whole = length == bytes.size();
    return whole ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

}  // namespace
