// Format descriptions beside GstCaps of the same facts: a codec and a size, without more and with eight
// extensions (five of them constants, three numbers). The dictionary of extensions is made anew each time, as
// caps make their fields.
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <benchmark/benchmark.h>
#include <pevrin/video_format_description.h>

#include <bedra/ref.hpp>
#include <memory>
#include <string>

#if HAVE_GSTREAMER
#include <gst/gst.h>
#endif

#include "bench/second_thread.hpp"

namespace {

using Description = br::Ref<PVFormatDescription>;

constexpr PVVideoCodecType kCodec = kPVVideoCodecType_H264;
constexpr int32_t kHeight = 1080;
constexpr size_t kFacts = 8;

// The eight facts; `depth` is one of the numbers.
BRStringRef keyOf(size_t i) {
  const BRStringRef keys[kFacts] = {
      kPVFormatDescriptionExtension_ColorPrimaries, kPVFormatDescriptionExtension_TransferFunction,
      kPVFormatDescriptionExtension_YCbCrMatrix,    kPVFormatDescriptionExtension_ChromaLocationTopField,
      kPVFormatDescriptionExtension_FullRangeVideo, kPVFormatDescriptionExtension_FieldCount,
      kPVFormatDescriptionExtension_Version,        kPVFormatDescriptionExtension_Depth};
  return keys[i];
}

BRDictionaryRef createExtensions(int32_t depth) {
  const int32_t one = 1, two = 2;
  BRNumberRef numbers[] = {BRNumberCreate(nullptr, kBRNumberTypeSInt32, &one),
                           BRNumberCreate(nullptr, kBRNumberTypeSInt32, &two),
                           BRNumberCreate(nullptr, kBRNumberTypeSInt32, &depth)};
  const void* keys[kFacts];
  for (size_t i = 0; i < kFacts; ++i) keys[i] = keyOf(i);
  const void* values[kFacts] = {kPVFormatDescriptionColorPrimaries_ITU_R_709_2,
                                kPVFormatDescriptionTransferFunction_ITU_R_709_2,
                                kPVFormatDescriptionYCbCrMatrix_ITU_R_709_2,
                                kPVFormatDescriptionChromaLocation_Left,
                                kBRBooleanFalse,
                                numbers[0],
                                numbers[1],
                                numbers[2]};
  BRDictionaryRef made = BRDictionaryCreate(nullptr, keys, values, kFacts, &kBRTypeDictionaryKeyCallBacks,
                                            &kBRTypeDictionaryValueCallBacks);
  for (BRNumberRef number : numbers) BRRelease(number);
  return made;
}

PVFormatDescriptionRef createOurs(int32_t width, int32_t depth, bool extended) {
  PVFormatDescriptionRef description = nullptr;
  BRDictionaryRef extensions = extended ? createExtensions(depth) : nullptr;
  PVVideoFormatDescriptionCreate(nullptr, kCodec, width, kHeight, extensions, &description);
  BRRelease(extensions);
  return description;
}

template <class Create, class Release>
void createAndRelease(benchmark::State& state, Create create, Release release) {
  int32_t width = 0;
  for (auto _ : state) {
    auto* made = create(++width & 4095);
    benchmark::DoNotOptimize(made);
    release(made);
  }
}

template <class Equal, class Object>
void compare(benchmark::State& state, Equal equal, Object* a, Object* b) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    benchmark::DoNotOptimize(b);
    benchmark::DoNotOptimize(equal(a, b));
  }
}

void ourCreate(benchmark::State& state, bool extended) {
  createAndRelease(
      state, [=](int32_t width) { return createOurs(width, 24, extended); },
      [](PVFormatDescriptionRef made) { BRRelease(made); });
}

void ourCompare(benchmark::State& state, int32_t otherDepth) {
  auto a = Description::adopt(createOurs(1920, 24, true)),
       b = Description::adopt(createOurs(1920, otherDepth, true));
  compare(state, PVFormatDescriptionEqual, a.get(), b.get());
}

void ourFind(benchmark::State& state) {
  auto description = Description::adopt(createOurs(1920, 24, true));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(PVFormatDescriptionGetExtension(description.get(), keyOf(i)));
    if (++i == kFacts) i = 0;
  }
}

// The least that a shared description costs: one block with an atomic count.
void plainCreate(benchmark::State& state) {
  struct Plain {
    uint32_t mediaType, codec;
    int32_t width, height;
    std::shared_ptr<void> extensions;
  };
  int32_t width = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        std::make_shared<Plain>(kPVMediaType_Video, kCodec, ++width & 4095, kHeight, nullptr));
}

#if HAVE_GSTREAMER
const char* const kFields[kFacts] = {"color-primaries", "transfer-function", "matrix",  "chroma-site",
                                     "full-range",      "field-count",       "version", "depth"};

GstCaps* createCaps(int width, int depth, bool extended) {
  if (!extended)
    return gst_caps_new_simple("video/x-h264", "width", G_TYPE_INT, width, "height", G_TYPE_INT, kHeight,
                               nullptr);
  return gst_caps_new_simple("video/x-h264", "width", G_TYPE_INT, width, "height", G_TYPE_INT, kHeight,
                             kFields[0], G_TYPE_STRING, "bt709", kFields[1], G_TYPE_STRING, "bt709",
                             kFields[2], G_TYPE_STRING, "bt709", kFields[3], G_TYPE_STRING, "left",
                             kFields[4], G_TYPE_BOOLEAN, FALSE, kFields[5], G_TYPE_INT, 1, kFields[6],
                             G_TYPE_INT, 2, kFields[7], G_TYPE_INT, depth, nullptr);
}

void startGStreamer() {
  static const bool started = (gst_init(nullptr, nullptr), true);
  (void)started;
}

void capsCreate(benchmark::State& state, bool extended) {
  startGStreamer();
  createAndRelease(
      state, [=](int32_t width) { return createCaps(width, 24, extended); }, gst_caps_unref);
}

void capsCompare(benchmark::State& state, int otherDepth) {
  startGStreamer();
  GstCaps *a = createCaps(1920, 24, true), *b = createCaps(1920, otherDepth, true);
  compare(state, gst_caps_is_equal, a, b);
  gst_caps_unref(a);
  gst_caps_unref(b);
}

void capsFind(benchmark::State& state) {
  startGStreamer();
  GstCaps* caps = createCaps(1920, 24, true);
  const GstStructure* structure = gst_caps_get_structure(caps, 0);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(gst_structure_get_value(structure, kFields[i]));
    if (++i == kFacts) i = 0;
  }
  gst_caps_unref(caps);
}

BENCHMARK_CAPTURE(capsCreate, , false)->Name("FormatCreate0/Peer:GstCaps");
BENCHMARK_CAPTURE(capsCreate, , true)->Name("FormatCreate8/Peer:GstCaps");
BENCHMARK_CAPTURE(capsCompare, , 24)->Name("FormatEqual/Peer:GstCaps");
BENCHMARK_CAPTURE(capsCompare, , 30)->Name("FormatDiffer/Peer:GstCaps");
BENCHMARK(capsFind)->Name("FormatFind/Peer:GstStructure");
#endif

BENCHMARK_CAPTURE(ourCreate, , false)->Name("FormatCreate0/Ours");
BENCHMARK_CAPTURE(ourCreate, , true)->Name("FormatCreate8/Ours");
BENCHMARK(plainCreate)->Name("FormatCreate0/Plain:make_shared");
BENCHMARK_CAPTURE(ourCompare, , 24)->Name("FormatEqual/Ours");
BENCHMARK_CAPTURE(ourCompare, , 30)->Name("FormatDiffer/Ours");
BENCHMARK(ourFind)->Name("FormatFind/Ours");

}  // namespace
