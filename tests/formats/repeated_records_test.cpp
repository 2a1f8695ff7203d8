// Programs read and write entries by the thousand: nothing may be left of any of them.
#include <pevrin/image_description.h>
#include <pevrin/sound_description.h>

#include "tests/formats/records.hpp"

namespace {

using namespace test;

// Each record is read in the ISO flavour, and written as it was and anew as a movie's.
template <class Read, class Write>
void expectNothingLeft(const std::string& bytes, const Read& read, const Write& write) {
  test::FailingAllocator allocator;
  int requestsOfOne = 0;
  for (int i = 1; i <= 1000; ++i) {
    {
      test::Description description;
      test::Record same, anew;
      ASSERT_EQ(read(allocator, test::bytesOf(bytes), bytes.size(), kPVImageDescriptionFlavor_ISOFamily,
                     description.out()),
                0);
      ASSERT_EQ(write(allocator, description.get(), kPVImageDescriptionFlavor_ISOFamily, same.out()), 0);
      ASSERT_EQ(write(allocator, description.get(), kPVImageDescriptionFlavor_TavloMovie, anew.out()), 0);
      ASSERT_EQ(test::textOf(same.get()), bytes);
      ASSERT_NE(test::textOf(anew.get()), bytes);
    }
    ASSERT_EQ(allocator.liveBlocks(), 0) << "after " << i;
    if (i == 1) requestsOfOne = allocator.requests();
    ASSERT_EQ(allocator.requests(), i * requestsOfOne) << "each costs the same";
  }
}

TEST(RepeatedRecords, LeaveNothingBehind) {
  // High, 4:2:0, 720 x 480 with usability information
  const std::string avcC(
      "\1\x64\0\x1e\xff\xe1\0\x1b\x67\x64\0\x1e\xac\xb2\1\x68\x7b\x61\xcd\xc1\x81\xc1\xad\xc0\0\0\xfa\x40\0"
      "\x3a\x98\3\xc5\x8b\x92\1\0\6\x68\xeb\xc3\xcb\x22\xc0\xfd\xf8\xf8\0",
      48);
  const std::string image =
      test::record("avc1", std::string(16, '\0') + bigEndian(720, 2) + bigEndian(480, 2) +
                               bigEndian(72 << 16, 4) + bigEndian(72 << 16, 4) + bigEndian(1, 6) +
                               std::string(32, '\0') + bigEndian(0x18FFFF, 4) + atom("avcC", avcC) +
                               atom("pasp", bigEndian(4, 4) + bigEndian(3, 4)) + atom("btrt", "rates"));
  expectNothingLeft(image, PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData,
                    PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer);
  // AAC LC of two channels, 48 kHz
  const std::string specific = "\5\2" + bigEndian(0x1190, 2);
  const std::string decoder = "\4\x11\x40\x15" + std::string(11, '\0') + specific;
  const std::string es = "\3\x19" + bigEndian(1, 2) + '\0' + decoder + "\6\1\2";
  const std::string sound =
      test::record("mp4a", std::string(8, '\0') + bigEndian(2, 2) + bigEndian(16, 2) + bigEndian(0, 4) +
                               bigEndian(uint64_t{48000} << 16, 4) + atom("esds", bigEndian(0, 4) + es) +
                               atom("btrt", "rates"));
  expectNothingLeft(sound, PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData,
                    PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer);
}

}  // namespace
