// Sample buffers, made in one line.
#ifndef TESTS_BUFFERS_SAMPLES_SAMPLES_HPP
#define TESTS_BUFFERS_SAMPLES_SAMPLES_HPP

#include <pevrin/attachment.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/sample_buffer.h>
#include <pevrin/sample_buffer_data.h>
#include <numeric>

#include "tests/support/test.hpp"

inline bool operator==(const PVTime& a, const PVTime& b) {
  return PVTimeCompare(a, b) == 0 && a.timescale == b.timescale;
}
inline void PrintTo(const PVTime& time, std::ostream* out) {
  *out << time.value << "/" << time.timescale << " flags " << time.flags;
}
inline bool operator==(const PVSampleTimingInfo& a, const PVSampleTimingInfo& b) {
  return a.duration == b.duration && a.presentationTimeStamp == b.presentationTimeStamp &&
         a.decodeTimeStamp == b.decodeTimeStamp;
}

namespace test {

using namespace br::literals;

using Sample = br::Ref<PVSampleBuffer>;
using Format = br::Ref<PVFormatDescription>;
using Block = br::Ref<PVBlockBuffer>;
using Timing = std::vector<PVSampleTimingInfo>;
using Sizes = std::vector<size_t>;

inline PVTime at(int64_t value, int32_t timescale = 30) { return PVTimeMake(value, timescale); }

// Bytes 0, 1, 2 ... in one block, or in blocks of a few.
inline Block blockOf(size_t length, size_t pieceBytes = SIZE_MAX) {
  Block block;
  EXPECT_EQ(PVBlockBufferCreateEmpty(nullptr, 1, 0, block.out()), 0);
  std::vector<uint8_t> bytes(length);
  std::iota(bytes.begin(), bytes.end(), uint8_t{0});
  for (size_t offset = 0; offset < length; offset += std::min(pieceBytes, length)) {
    const size_t piece = std::min(pieceBytes, length - offset);
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(block.get(), nullptr, piece, nullptr, nullptr, 0, piece, 1), 0);
    EXPECT_EQ(PVBlockBufferReplaceDataBytes(bytes.data() + offset, block.get(), offset, piece), 0);
  }
  return block;
}

inline Format videoFormat() {
  Format format;
  EXPECT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, 0x74657374, nullptr, format.out()), 0);
  return format;
}

inline Format audioFormat(const AudioStreamBasicDescription& stream) {
  Format format;
  EXPECT_EQ(PVAudioFormatDescriptionCreate(nullptr, &stream, 0, nullptr, 0, nullptr, nullptr, format.out()),
            0);
  return format;
}

constexpr AudioStreamBasicDescription kStereo16{48000, kAudioFormatLinearPCM, 12, 4, 1, 4, 2, 16, 0};
constexpr AudioStreamBasicDescription kPlanarStereo16{48000, kAudioFormatLinearPCM, 12 | 32, 2, 1, 2, 2, 16,
                                                      0};
constexpr AudioStreamBasicDescription kAAC{48000, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0, 0};
constexpr AudioStreamBasicDescription kVorbisLike{48000, kAudioFormatOpus, 0, 0, 0, 0, 2, 0, 0};

struct Given {
  int64_t samples = 1;
  Timing timing{};
  Sizes sizes{};
  Block data{};
  Format format{};
  bool ready = true;
  PVSampleBufferMakeDataReadyCallback callback = nullptr;
  void* refCon = nullptr;
  BRAllocatorRef allocator = nullptr;
};

inline PVStatus create(const Given& given, Sample& out) {
  return PVSampleBufferCreate(given.allocator, given.data.get(), given.ready, given.callback, given.refCon,
                              given.format.get(), given.samples, std::ssize(given.timing),
                              given.timing.data(), std::ssize(given.sizes), given.sizes.data(), out.out());
}

inline Sample make(const Given& given) {
  Sample sample;
  EXPECT_EQ(create(given, sample), 0);
  return sample;
}

// Three frames of 1/30 s in decode order I P B, presented I B P, and 10, 20, 30 bytes.
inline Given threeFrames() {
  return {.samples = 3,
          .timing = {{at(1), at(10), at(8)}, {at(1), at(12), at(9)}, {at(1), at(11), at(10)}},
          .sizes = {10, 20, 30},
          .data = blockOf(60),
          .format = videoFormat()};
}

inline void setTrim(const Sample& sample, BRStringRef key, PVTime trim) {
  auto value = br::Ref<const BRDictionary>::adopt(PVTimeCopyAsDictionary(trim, nullptr));
  PVSetAttachment(sample.get(), key, value.get(), kPVAttachmentMode_ShouldNotPropagate);
}

inline void setSpeed(const Sample& sample, double speed) {
  auto value = br::Ref<const BRNumber>::adopt(BRNumberCreate(nullptr, kBRNumberTypeFloat64, &speed));
  PVSetAttachment(sample.get(), kPVSampleBufferAttachmentKey_SpeedMultiplier, value.get(),
                  kPVAttachmentMode_ShouldNotPropagate);
}

inline void setReverse(const Sample& sample) {
  PVSetAttachment(sample.get(), kPVSampleBufferAttachmentKey_Reverse, kBRBooleanTrue,
                  kPVAttachmentMode_ShouldPropagate);
}

inline Timing outputTiming(const Sample& sample) {
  int64_t count = 0;
  EXPECT_EQ(PVSampleBufferGetOutputSampleTimingInfoArray(sample.get(), 0, nullptr, &count), 0);
  Timing timing(static_cast<size_t>(count));
  EXPECT_EQ(PVSampleBufferGetOutputSampleTimingInfoArray(sample.get(), count, timing.data(), nullptr), 0);
  return timing;
}

}  // namespace test

#endif
