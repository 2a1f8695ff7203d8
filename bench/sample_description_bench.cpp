// An 'avc1' and an 'mp4a' entry of a movie: read into a description, and written from one, the real writer
// (nothing remembered) and as remembered. Beside a copy of the bytes, which is the least that keeping them
// takes.
#include <benchmark/benchmark.h>
#include <kiv/video_format_description.h>
#include <pevrin/image_description.h>
#include <pevrin/sound_description.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/second_thread.hpp"

namespace {

using Description = br::Ref<PVFormatDescription>;
using Bytes = std::vector<uint8_t>;
using Read = decltype(&PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData);
using Write = decltype(&PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer);

void require(bool holds) {
  if (!holds) std::abort();
}

// High, 1920 x 1080, with colours, timing and HRD.
constexpr uint8_t kSPS[] = {0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27, 0xE5,
                            0xC0, 0x5A, 0x80, 0x80, 0x80, 0xA0, 0x00, 0x00, 0x03, 0x00, 0x20,
                            0x00, 0x00, 0x06, 0x5C, 0x88, 0x00, 0x1E, 0x84, 0x80, 0x00, 0x4C,
                            0x4B, 0x52, 0x61, 0x80, 0x3C, 0x60, 0xC6, 0x58};
constexpr uint8_t kPPS[] = {0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
// An ES_Descriptor of AAC LC, 48000 Hz, stereo.
constexpr uint8_t kCookie[] = {0x03, 0x19, 0x00, 0x00, 0x00, 0x04, 0x11, 0x40, 0x15, 0x00,
                               0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                               0x00, 0x05, 0x02, 0x11, 0x90, 0x06, 0x01, 0x02};

Description makeVideo() {
  Description video;
  require(KivVideoFormatDescriptionCreateFromSPSAndPPS(nullptr, kSPS, sizeof kSPS, kPPS, sizeof kPPS, 4,
                                                       video.out()) == 0);
  return video;
}

Description makeAudio() {
  const AudioStreamBasicDescription format = {48000, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0, 0};
  Description audio;
  require(PVAudioFormatDescriptionCreate(nullptr, &format, 0, nullptr, sizeof kCookie, kCookie, nullptr,
                                         audio.out()) == 0);
  return audio;
}

Bytes write(Write writer, PVFormatDescriptionRef description) {
  br::Ref<PVBlockBuffer> record;
  require(writer(nullptr, description, kPVImageDescriptionFlavor_ISOFamily, record.out()) == 0);
  Bytes bytes(PVBlockBufferGetDataLength(record.get()));
  require(PVBlockBufferCopyDataBytes(record.get(), 0, bytes.size(), bytes.data()) == 0);
  return bytes;
}

struct Kind {
  Description (*make)();
  Read read;
  Write write;
};
constexpr Kind kImage = {makeVideo, PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData,
                         PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer};
constexpr Kind kSound = {makeAudio, PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData,
                         PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer};

void readRecord(benchmark::State& state, const Kind& kind) {
  const Bytes record = write(kind.write, kind.make().get());
  for (auto _ : state) {
    Description description;
    require(kind.read(nullptr, record.data(), record.size(), kPVImageDescriptionFlavor_ISOFamily,
                      description.out()) == 0);
    benchmark::DoNotOptimize(description.get());
  }
}

void writeRecord(benchmark::State& state, const Kind& kind, bool remembered) {
  Description description = kind.make();
  const Bytes record = write(kind.write, description.get());
  if (remembered)
    require(kind.read(nullptr, record.data(), record.size(), kPVImageDescriptionFlavor_ISOFamily,
                      description.out()) == 0);
  for (auto _ : state) {
    br::Ref<PVBlockBuffer> out;
    require(kind.write(nullptr, description.get(), kPVImageDescriptionFlavor_ISOFamily, out.out()) == 0);
    benchmark::DoNotOptimize(out.get());
  }
}

void copyRecord(benchmark::State& state, const Kind& kind) {
  const Bytes record = write(kind.write, kind.make().get());
  for (auto _ : state) {
    auto* copy = static_cast<uint8_t*>(std::malloc(record.size()));
    std::memcpy(copy, record.data(), record.size());
    benchmark::DoNotOptimize(copy);
    std::free(copy);
  }
}

BENCHMARK_CAPTURE(readRecord, , kImage)->Name("ImageRecordRead/Ours");
BENCHMARK_CAPTURE(copyRecord, , kImage)->Name("ImageRecordRead/Plain:malloc_memcpy");
BENCHMARK_CAPTURE(writeRecord, , kImage, false)->Name("ImageRecordWrite/Ours");
BENCHMARK_CAPTURE(writeRecord, , kImage, true)->Name("ImageRecordWrite/Plain:remembered");
BENCHMARK_CAPTURE(readRecord, , kSound)->Name("SoundRecordRead/Ours");
BENCHMARK_CAPTURE(copyRecord, , kSound)->Name("SoundRecordRead/Plain:malloc_memcpy");
BENCHMARK_CAPTURE(writeRecord, , kSound, false)->Name("SoundRecordWrite/Ours");
BENCHMARK_CAPTURE(writeRecord, , kSound, true)->Name("SoundRecordWrite/Plain:remembered");

}  // namespace
