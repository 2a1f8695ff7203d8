// Sequence parameter sets as an encoder writes them, each with colours, timing and HRD, parsed one after the
// other; and the 'avcC' record of one of them.
//
// What the rows include: ours finds the unit's type, removes emulation prevention bytes, parses up to
// pic_struct_present_flag (H.264) or to the end (HEVC), and tells the size. GStreamer's parses a unit whose
// type was found before, on to the bitstream restriction, and computes the size and the rate. FFmpeg's parser
// is the public way to its reading of a set: it looks for the start code, removes emulation prevention bytes,
// parses the whole set and allocates a reference-counted record for it.
#include <bedra/runtime.h>
#include <benchmark/benchmark.h>
#include <kiv/h264_bridge.h>
#include <kiv/hevc_bridge.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#if HAVE_CODECPARSERS
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>
#include <gst/codecparsers/gsth265parser.h>
#endif
#if HAVE_AVCODEC
extern "C" {
#include <libavcodec/avcodec.h>
}
#endif

#include "bench/second_thread.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

// High, with one or two emulation prevention bytes each.
const Bytes kH264Sets[] = {
    {0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27, 0xE5, 0xC0, 0x5A, 0x80,
     0x80, 0x80, 0xA0, 0x00, 0x00, 0x03, 0x00, 0x20, 0x00, 0x00, 0x06, 0x5C, 0x88, 0x00,
     0x1E, 0x84, 0x80, 0x00, 0x4C, 0x4B, 0x52, 0x61, 0x80, 0x3C, 0x60, 0xC6, 0x58},
    {0x67, 0x64, 0x00, 0x20, 0xAC, 0xD9, 0x40, 0x50, 0x05, 0xBB, 0x01, 0x6A, 0x02, 0x02,
     0x02, 0x80, 0x00, 0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x32, 0x70, 0x20, 0x00, 0x13,
     0x12, 0xC0, 0x00, 0x2D, 0xC6, 0xD2, 0x69, 0xC0, 0x3C, 0x60, 0xC6, 0x58},
    {0x67, 0x64, 0x00, 0x33, 0xAC, 0xD9, 0x40, 0x3C, 0x00, 0x43, 0xEC, 0x05, 0xA8, 0x08, 0x08,
     0x0A, 0x00, 0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x79, 0xC8, 0x80, 0x00, 0x26,
     0x25, 0xA0, 0x00, 0x05, 0xF5, 0xE1, 0x49, 0x86, 0x00, 0xF1, 0x83, 0x19, 0x60},
    {0x67, 0x64, 0x00, 0x1E, 0xAC, 0xD9, 0x40, 0xB4, 0x12, 0x6C, 0x05, 0xA8, 0x08, 0x08,
     0x0A, 0x00, 0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x65, 0xC0, 0x80, 0x00,
     0xDB, 0xBA, 0x00, 0x02, 0x19, 0x1D, 0x26, 0x18, 0x03, 0xC5, 0x8B, 0x65, 0x80}};
const Bytes kH264PPS = {0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
// Main, with three to five of them; these refer to one video parameter set.
const Bytes kHEVCSets[] = {
    {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00,
     0x00, 0x03, 0x00, 0x78, 0xA0, 0x03, 0xC0, 0x80, 0x10, 0xE5, 0x96, 0x56, 0x69, 0x24,
     0xCA, 0xF0, 0x16, 0xA0, 0x20, 0x20, 0x20, 0x80, 0x00, 0x00, 0x03, 0x00, 0x80, 0x00,
     0x00, 0x0C, 0xB0, 0x56, 0x4B, 0x2F, 0x00, 0x01, 0x6E, 0x36, 0x00, 0x0F, 0x42, 0x44},
    {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00,
     0x03, 0x00, 0x78, 0xA0, 0x02, 0x80, 0x80, 0x2D, 0x16, 0x59, 0x59, 0xA4, 0x93, 0x2B, 0xC0,
     0x5A, 0x80, 0x80, 0x80, 0x82, 0x00, 0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x64,
     0xC1, 0x59, 0x30, 0xDC, 0x00, 0x05, 0xB8, 0xD8, 0x00, 0x3D, 0x09, 0x10},
    {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00,
     0x00, 0x03, 0x00, 0x99, 0xA0, 0x01, 0xE0, 0x20, 0x02, 0x1C, 0x59, 0x65, 0x66, 0x92,
     0x4C, 0xAF, 0x01, 0x6A, 0x02, 0x02, 0x03, 0xC2, 0x00, 0x00, 0x07, 0xD2, 0x00, 0x01,
     0xD4, 0xC0, 0xC1, 0x59, 0x30, 0xFC, 0x00, 0x05, 0xB8, 0xD8, 0x00, 0x3D, 0x09, 0x10},
    {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03,
     0x00, 0x5A, 0xA0, 0x05, 0xA2, 0x00, 0x90, 0x59, 0x65, 0x66, 0x92, 0x4C, 0xAF, 0xFF, 0x00, 0x40,
     0x00, 0x2D, 0x6A, 0x0A, 0x0A, 0x0A, 0x08, 0x00, 0x00, 0x03, 0x00, 0x08, 0x00, 0x00, 0x03, 0x00,
     0xCB, 0x05, 0x64, 0xB2, 0xF0, 0x00, 0x16, 0xE3, 0x60, 0x00, 0xF4, 0x24, 0x40}};
const Bytes kHEVCVPS = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00,
                        0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x78, 0x95, 0x98, 0x09};
constexpr size_t kSets = 4;

void require(bool holds) {
  if (!holds) std::abort();
}

// parse(i) parses the i-th set.
template <class Parse>
void parseInTurn(benchmark::State& state, Parse parse) {
  size_t i = 0;
  for (auto _ : state) parse(i++ % kSets);
}

void parseH264(benchmark::State& state) {
  parseInTurn(state, [](size_t i) {
    KivH264ParsedSPS sps;
    int32_t width, height;
    require(KivH264Bridge_ParseSPS(kH264Sets[i].data(), kH264Sets[i].size(), &sps) == 0);
    require(KivH264Bridge_GetWidthAndHeightFromParsedSPS(&sps, &width, &height) == 0);
    benchmark::DoNotOptimize(sps);
    benchmark::DoNotOptimize(width + height);
  });
}
BENCHMARK(parseH264)->Name("SPSParseH264/Ours");

void parseHEVC(benchmark::State& state) {
  parseInTurn(state, [](size_t i) {
    KivHEVCParsedSPS sps;
    int32_t width, height;
    require(KivHEVCBridge_ParseSPS(kHEVCSets[i].data(), kHEVCSets[i].size(), &sps) == 0);
    require(KivHEVCBridge_GetWidthAndHeightFromParsedSPS(&sps, &width, &height) == 0);
    benchmark::DoNotOptimize(sps);
    benchmark::DoNotOptimize(width + height);
  });
}
BENCHMARK(parseHEVC)->Name("SPSParseHEVC/Ours");

#if HAVE_CODECPARSERS
void parseH264WithGStreamer(benchmark::State& state) {
  GstH264NalParser* parser = gst_h264_nal_parser_new();
  GstH264NalUnit units[kSets];
  Bytes framed[kSets];
  for (size_t i = 0; i < kSets; ++i) {
    framed[i] = {0, 0, 1};
    framed[i].insert(framed[i].end(), kH264Sets[i].begin(), kH264Sets[i].end());
    require(gst_h264_parser_identify_nalu_unchecked(parser, framed[i].data(), 0, framed[i].size(),
                                                    &units[i]) == GST_H264_PARSER_OK);
  }
  parseInTurn(state, [&](size_t i) {
    GstH264SPS sps;
    require(gst_h264_parse_sps(&units[i], &sps) == GST_H264_PARSER_OK);
    benchmark::DoNotOptimize(sps);
    gst_h264_sps_clear(&sps);
  });
  gst_h264_nal_parser_free(parser);
}
BENCHMARK(parseH264WithGStreamer)->Name("SPSParseH264/Peer:gst_h264_parse_sps");

void parseHEVCWithGStreamer(benchmark::State& state) {
  GstH265Parser* parser = gst_h265_parser_new();
  GstH265NalUnit units[kSets];
  Bytes framed[kSets];
  for (size_t i = 0; i < kSets; ++i) {
    framed[i] = {0, 0, 1};
    framed[i].insert(framed[i].end(), kHEVCSets[i].begin(), kHEVCSets[i].end());
    require(gst_h265_parser_identify_nalu_unchecked(parser, framed[i].data(), 0, framed[i].size(),
                                                    &units[i]) == GST_H265_PARSER_OK);
  }
  parseInTurn(state, [&](size_t i) {
    GstH265SPS sps;
    require(gst_h265_parse_sps(parser, &units[i], &sps, TRUE) == GST_H265_PARSER_OK);
    benchmark::DoNotOptimize(sps);
  });
  gst_h265_parser_free(parser);
}
BENCHMARK(parseHEVCWithGStreamer)->Name("SPSParseHEVC/Peer:gst_h265_parse_sps");
#endif

#if HAVE_AVCODEC
// The units behind start codes, with the padding that the parser wants.
// first: a unit that they refer to, if any.
void parseWithFFmpeg(benchmark::State& state, AVCodecID codec, const Bytes* sets, const Bytes& first = {}) {
  av_log_set_level(AV_LOG_QUIET);
  AVCodecParserContext* parser = av_parser_init(codec);
  AVCodecContext* context = avcodec_alloc_context3(nullptr);
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  const auto framed = [](const Bytes& unit) {
    Bytes bytes(4 + unit.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    bytes[3] = 1;
    std::copy(unit.begin(), unit.end(), bytes.begin() + 4);
    return bytes;
  };
  const auto parse = [&](const Bytes& bytes) {
    uint8_t* out;
    int outSize;
    const int size = static_cast<int>(bytes.size() - AV_INPUT_BUFFER_PADDING_SIZE);
    require(av_parser_parse2(parser, context, &out, &outSize, bytes.data(), size, 0, 0, 0) == size);
    benchmark::DoNotOptimize(out);
  };
  const Bytes units[kSets] = {framed(sets[0]), framed(sets[1]), framed(sets[2]), framed(sets[3])};
  if (!first.empty()) parse(framed(first));
  parseInTurn(state, [&](size_t i) { parse(units[i]); });
  av_parser_close(parser);
  avcodec_free_context(&context);
}
void parseHEVCWithFFmpeg(benchmark::State& state) {
  parseWithFFmpeg(state, AV_CODEC_ID_HEVC, kHEVCSets, kHEVCVPS);
}
BENCHMARK(parseHEVCWithFFmpeg)->Name("SPSParseHEVC/Peer:av_parser_parse2");
void parseH264WithFFmpeg(benchmark::State& state) { parseWithFFmpeg(state, AV_CODEC_ID_H264, kH264Sets); }
BENCHMARK(parseH264WithFFmpeg)->Name("SPSParseH264/Peer:av_parser_parse2");
#endif

// --- the record

void buildAVCC(benchmark::State& state) {
  parseInTurn(state, [](size_t i) {
    const uint8_t* const pointers[] = {kH264Sets[i].data(), kH264PPS.data()};
    const size_t sizes[] = {kH264Sets[i].size(), kH264PPS.size()};
    int32_t width, height;
    BRDataRef record;
    require(KivH264Bridge_CreateAVCCFromH264ParameterSets(nullptr, 2, pointers, sizes, 4, &width, &height,
                                                          &record) == 0);
    benchmark::DoNotOptimize(record);
    BRRelease(record);
  });
}
BENCHMARK(buildAVCC)->Name("AVCCBuild/Ours");

// What writers do that take the sets as they are: nothing checked, nothing parsed.
void buildAVCCPlainly(benchmark::State& state) {
  parseInTurn(state, [](size_t i) {
    const Bytes &sps = kH264Sets[i], &pps = kH264PPS;
    Bytes record;
    record.reserve(6 + 2 + sps.size() + 1 + 2 + pps.size() + 4);
    record.insert(record.end(), {1, sps[1], sps[2], sps[3], 0xFF, 0xE1});
    record.insert(record.end(), {static_cast<uint8_t>(sps.size() >> 8), static_cast<uint8_t>(sps.size())});
    record.insert(record.end(), sps.begin(), sps.end());
    record.insert(record.end(), {1, static_cast<uint8_t>(pps.size() >> 8), static_cast<uint8_t>(pps.size())});
    record.insert(record.end(), pps.begin(), pps.end());
    record.insert(record.end(), {0xFD, 0xF8, 0xF8, 0});
    benchmark::DoNotOptimize(record.data());
  });
}
BENCHMARK(buildAVCCPlainly)->Name("AVCCBuild/Plain:unchecked");

}  // namespace
