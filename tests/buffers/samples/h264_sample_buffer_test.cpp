// The slices of H.264 samples.
#include <kiv/bridge.h>
#include <kiv/h264_sample_buffer.h>
#include <pevrin/video_format_description.h>

#include "tests/buffers/samples/samples.hpp"
#include "tests/codecs/h264_samples.hpp"
#include "tests/support/objects.hpp"

namespace {

using namespace test;

Format h264Format(int32_t lengthBytes) {
  const uint8_t* sets[] = {kHighSPS.data(), kHighPPS.data()};
  const size_t sizes[] = {kHighSPS.size(), kHighPPS.size()};
  Format format;
  EXPECT_EQ(
      PVVideoFormatDescriptionCreateFromH264ParameterSets(nullptr, 2, sets, sizes, lengthBytes, format.out()),
      0);
  return format;
}

// A buffer of NAL units with length fields, in blocks of a few bytes.
Sample sampleOf(std::initializer_list<Bytes> units, int32_t lengthBytes, size_t cutOff = 0) {
  Bytes stream;
  for (const Bytes& unit : units) {
    for (int32_t i = lengthBytes; i-- > 0;) stream.push_back(static_cast<uint8_t>(unit.size() >> (8 * i)));
    stream.insert(stream.end(), unit.begin(), unit.end());
  }
  stream.resize(stream.size() - cutOff);
  const Block block = blockOf(stream.size(), 3);
  EXPECT_EQ(PVBlockBufferReplaceDataBytes(stream.data(), block.get(), 0, stream.size()), 0);
  return make({.data = block, .format = h264Format(lengthBytes)});
}

const Bytes kIDR{0x65, 0x88, 0x84, 0x00, 0x47, 0xD2, 0xAC}, kB{0x01, 0x9E, 0x41, 0x79, 0x1D, 0xFF, 0xFE};
const Bytes kSEI{0x06, 0x05, 0x01, 0x00, 0x80};

TEST(H264SampleBuffer, TellsEachSlice) {
  for (int32_t lengthBytes : {1, 2, 4}) {
    const auto width = static_cast<size_t>(lengthBytes);
    const Sample sample = sampleOf({kSEI, kIDR, {}, kB}, lengthBytes);
    size_t count = 0;
    ASSERT_EQ(KivH264Bridge_GetSliceInformationFromSampleBuffer(sample.get(), 0, nullptr, &count), 0);
    EXPECT_EQ(count, 2u);
    KivH264SliceInformation slices[2];
    ASSERT_EQ(KivH264Bridge_GetSliceInformationFromSampleBuffer(sample.get(), 2, slices, nullptr), 0);
    EXPECT_EQ(slices[0].offset, width + kSEI.size() + width);
    EXPECT_EQ(slices[0].length, kIDR.size());
    EXPECT_EQ(slices[0].clearBytes, 5u);
    EXPECT_EQ(slices[0].sliceType, 2);
    EXPECT_EQ(slices[0].nalUnitType, 5);
    EXPECT_EQ(slices[0].nalRefIDC, 3);
    EXPECT_EQ(slices[1].offset, 4 * width + kSEI.size() + kIDR.size());
    EXPECT_EQ(slices[1].clearBytes, 6u);
    EXPECT_EQ(slices[1].sliceType, 1);
    EXPECT_EQ(slices[1].nalRefIDC, 0);
    EXPECT_EQ(KivH264Bridge_GetSliceInformationFromSampleBuffer(sample.get(), 1, slices, &count), -12737);
    EXPECT_EQ(count, 2u);
  }
}

TEST(H264SampleBuffer, TakesTheFirstOfSeveralRecords) {
  const Format one = h264Format(4);
  auto* atoms = static_cast<BRDictionaryRef>(PVFormatDescriptionGetExtension(
      one.get(), kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms));
  const void* records[] = {BRDictionaryGetValue(atoms, "avcC"_br), "another"_br};
  const auto both = br::Ref<const BRArray>::adopt(BRArrayCreate(nullptr, records, 2, &kBRTypeArrayCallBacks));
  const Dictionary extensions = dictionary({{kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms,
                                             dictionary({{"avcC"_br, both.get()}}).get()}});
  Format format;
  ASSERT_EQ(
      PVVideoFormatDescriptionCreate(nullptr, kPVVideoCodecType_H264, 16, 16, extensions.get(), format.out()),
      0);
  const Block block = blockOf(4, 4);
  ASSERT_EQ(PVBlockBufferReplaceDataBytes("\0\0\0", block.get(), 0, 4), 0);
  size_t count = 1;
  EXPECT_EQ(KivH264Bridge_GetSliceInformationFromSampleBuffer(make({.data = block, .format = format}).get(),
                                                              0, nullptr, &count),
            0);
  EXPECT_EQ(count, 0u);
}

TEST(H264SampleBuffer, RefusesWhatCannotBeRead) {
  size_t count = 0;
  const auto status = [&](const Sample& sample) {
    KivH264SliceInformation slices[2];
    return KivH264Bridge_GetSliceInformationFromSampleBuffer(sample.get(), 2, slices, &count);
  };
  EXPECT_EQ(status(nullptr), -12731);
  EXPECT_EQ(status(make({.data = blockOf(4)})), kKivBridgeError_InvalidParameter);
  EXPECT_EQ(status(make({.format = h264Format(4)})), -12733);
  EXPECT_EQ(status(sampleOf({kSEI, kIDR}, 4, 1)), kKivBridgeError_UnreadableData);
  EXPECT_EQ(status(sampleOf({kSEI, {}}, 4, 1)), kKivBridgeError_UnreadableData);
  EXPECT_EQ(status(sampleOf({{0x65}}, 4)), kKivBridgeError_UnreadableData);
  EXPECT_EQ(status(sampleOf({kIDR, {0x65, 0x88, 0x40, 0x80}}, 4)), kKivBridgeError_InvalidParameter)
      << "another set";
}

}  // namespace
