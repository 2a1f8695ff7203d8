// A sample buffer over bytes that are there, with times, size and format: made and released. Beside it what
// others make of the same facts: a GstBuffer with the memory and its times, the same in a GstSample with
// caps, an AVPacket.
#include <benchmark/benchmark.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/sample_buffer.h>
#include <pevrin/sample_buffer_pieces.h>
#include <pevrin/video_format_description.h>

#include <bedra/ref.hpp>
#include <vector>

#if HAVE_GSTREAMER
#include <gst/gst.h>
#endif
#if HAVE_AVCODEC
extern "C" {
#include <libavcodec/packet.h>
}
#endif

#include "bench/second_thread.hpp"

namespace {

constexpr size_t kFrameBytes = 24'000, kSecondBytes = 192'000;

br::Ref<PVBlockBuffer> bytes(size_t length) {
  br::Ref<PVBlockBuffer> block;
  PVBlockBufferCreateWithMemoryBlock(nullptr, nullptr, length, nullptr, nullptr, 0, length, 1, block.out());
  return block;
}

br::Ref<PVFormatDescription> format(bool audio) {
  br::Ref<PVFormatDescription> made;
  const AudioStreamBasicDescription stream{48000, kAudioFormatLinearPCM, 12, 4, 1, 4, 2, 16, 0};
  if (audio)
    PVAudioFormatDescriptionCreate(nullptr, &stream, 0, nullptr, 0, nullptr, nullptr, made.out());
  else
    PVVideoFormatDescriptionCreate(nullptr, kPVVideoCodecType_H264, 1920, 1080, nullptr, made.out());
  return made;
}

void ourFrame(benchmark::State& state) {
  const auto data = bytes(kFrameBytes);
  const auto description = format(false);
  const size_t size = kFrameBytes;
  int64_t frame = 0;
  for (auto _ : state) {
    const PVSampleTimingInfo timing{PVTimeMake(1001, 30000), PVTimeMake(1001 * (frame + 2), 30000),
                                    PVTimeMake(1001 * frame, 30000)};
    PVSampleBufferRef sample = nullptr;
    PVSampleBufferCreateReady(nullptr, data.get(), description.get(), 1, 1, &timing, 1, &size, &sample);
    benchmark::DoNotOptimize(sample);
    BRRelease(sample);
    ++frame;
  }
}
BENCHMARK(ourFrame)->Name("SampleCreateFrame/Ours");

void ourPCM(benchmark::State& state) {
  const auto data = bytes(kSecondBytes);
  const auto description = format(true);
  const size_t size = 4;
  int64_t second = 0;
  for (auto _ : state) {
    const PVSampleTimingInfo timing{PVTimeMake(1, 48000), PVTimeMake(second++ * 48000, 48000),
                                    kPVTimeInvalid};
    PVSampleBufferRef sample = nullptr;
    PVSampleBufferCreateReady(nullptr, data.get(), description.get(), 48000, 1, &timing, 1, &size, &sample);
    benchmark::DoNotOptimize(sample);
    BRRelease(sample);
  }
}
BENCHMARK(ourPCM)->Name("SampleCreatePCM/Ours");

// 30 frames of one buffer, each as a buffer of its own.
void ourWalk(benchmark::State& state) {
  const auto data = bytes(30 * kFrameBytes);
  const auto description = format(false);
  const PVSampleTimingInfo timing{PVTimeMake(1001, 30000), PVTimeMake(0, 30000), kPVTimeInvalid};
  const size_t size = kFrameBytes;
  br::Ref<PVSampleBuffer> whole;
  PVSampleBufferCreateReady(nullptr, data.get(), description.get(), 30, 1, &timing, 1, &size, whole.out());
  for (auto _ : state)
    PVSampleBufferCallForEachSample(
        whole.get(),
        [](PVSampleBufferRef sample, int64_t, void*) -> PVStatus {
          benchmark::DoNotOptimize(sample);
          return 0;
        },
        nullptr);
}
BENCHMARK(ourWalk)->Name("SampleWalk30/Ours");

#if HAVE_GSTREAMER
GstMemory* gstMemory(size_t length) {
  gst_init(nullptr, nullptr);
  return gst_allocator_alloc(nullptr, length, nullptr);
}

GstBuffer* gstBuffer(GstMemory* memory, guint64 frame) {
  GstBuffer* buffer = gst_buffer_new();
  gst_buffer_append_memory(buffer, gst_memory_ref(memory));
  GST_BUFFER_DTS(buffer) = frame * 33'366'667;
  GST_BUFFER_PTS(buffer) = (frame + 2) * 33'366'667;
  GST_BUFFER_DURATION(buffer) = 33'366'667;
  return buffer;
}

void gstreamerBuffer(benchmark::State& state, size_t length) {
  GstMemory* memory = gstMemory(length);
  guint64 frame = 0;
  for (auto _ : state) {
    GstBuffer* buffer = gstBuffer(memory, frame++);
    benchmark::DoNotOptimize(buffer);
    gst_buffer_unref(buffer);
  }
  gst_memory_unref(memory);
}
BENCHMARK_CAPTURE(gstreamerBuffer, , kFrameBytes)->Name("SampleCreateFrame/Peer:GstBuffer");
BENCHMARK_CAPTURE(gstreamerBuffer, , kSecondBytes)->Name("SampleCreatePCM/Peer:GstBuffer");

void gstreamerSample(benchmark::State& state) {
  GstMemory* memory = gstMemory(kFrameBytes);
  GstCaps* caps =
      gst_caps_new_simple("video/x-h264", "width", G_TYPE_INT, 1920, "height", G_TYPE_INT, 1080, nullptr);
  guint64 frame = 0;
  for (auto _ : state) {
    GstBuffer* buffer = gstBuffer(memory, frame++);
    GstSample* sample = gst_sample_new(buffer, caps, nullptr, nullptr);
    gst_buffer_unref(buffer);
    benchmark::DoNotOptimize(sample);
    gst_sample_unref(sample);
  }
  gst_caps_unref(caps);
  gst_memory_unref(memory);
}
BENCHMARK(gstreamerSample)->Name("SampleCreateFrame/Peer:GstSample");
#endif

#if HAVE_AVCODEC && HAVE_AVUTIL
void ffmpegPacket(benchmark::State& state) {
  AVBufferRef* memory = av_buffer_alloc(kFrameBytes);
  int64_t frame = 0;
  for (auto _ : state) {
    AVPacket* packet = av_packet_alloc();
    packet->buf = av_buffer_ref(memory);
    packet->data = memory->data;
    packet->size = static_cast<int>(kFrameBytes);
    packet->dts = frame * 1001;
    packet->pts = (frame++ + 2) * 1001;
    packet->duration = 1001;
    packet->time_base = {1, 30000};
    benchmark::DoNotOptimize(packet);
    av_packet_free(&packet);
  }
  av_buffer_unref(&memory);
}
BENCHMARK(ffmpegPacket)->Name("SampleCreateFrame/Peer:AVPacket");
#endif

}  // namespace
