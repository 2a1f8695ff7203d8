// Media types whose entry somebody else registered first, with no storage: in a process of their own.
#include <kiv/audio_format_description.h>
#include <kiv/sample_description.h>
#include <kiv/video_format_description.h>
#include <pevrin/sound_description.h>
#include <pevrin/timecode_format_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace pv::literals;
using Description = br::Ref<PVFormatDescription>;

void expect(bool holds, const char* what) {
  if (!holds) std::fprintf(stderr, "not so: %s\n", what);
}

Description generalOf(PVMediaType type) {
  Description description;
  expect(PVFormatDescriptionCreate(nullptr, type, "sub1"_4cc, nullptr, description.out()) == 0,
         "general creation");
  return description;
}

void tryAll() {
  const KivDerivedFormatDescriptionCallbacks entry{
      0, 0, [](PVFormatDescriptionRef, PVFormatDescriptionRef, BRTypeRef, BRTypeRef) { return true; },
      nullptr, nullptr};
  for (PVMediaType type : {kPVMediaType_Audio, kPVMediaType_Video, kPVMediaType_Muxed, kPVMediaType_TimeCode})
    expect(KivDerivedFormatDescriptionRegister(type, &entry) == 0, "registration");

  AudioStreamBasicDescription stream{};
  stream.sampleRate = 48000;
  Description made = generalOf("abcd"_4cc);
  PVFormatDescriptionRef* out = made.out();
  const auto isRefused = [&](PVStatus status) { return status == -12710 && *out == nullptr; };
  expect(isRefused(PVAudioFormatDescriptionCreate(nullptr, &stream, 0, nullptr, 4, "abc", nullptr, out)),
         "audio");
  expect(isRefused(PVVideoFormatDescriptionCreate(nullptr, "avc1"_4cc, 1, 1, nullptr, out)), "video");
  expect(isRefused(PVMuxedFormatDescriptionCreate(nullptr, "mp2t"_4cc, nullptr, out)), "muxed");
  expect(isRefused(PVTimeCodeFormatDescriptionCreate(nullptr, kPVTimeCodeFormatType_TimeCode32,
                                                     PVTimeMake(1, 25), 25, 0, nullptr, out)),
         "timecode");

  const Description audio = generalOf(kPVMediaType_Audio), other = generalOf(kPVMediaType_Audio);
  size_t size = 1;
  expect(!PVAudioFormatDescriptionGetFormatList(audio.get(), &size) && size == 0, "format list");
  expect(!PVAudioFormatDescriptionEqual(audio.get(), other.get(), 15, nullptr), "audio equality");
  expect(PVFormatDescriptionEqual(audio.get(), other.get()), "the entry's own equality");
  PVBlockBufferRef record;
  expect(PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer(nullptr, audio.get(), nullptr,
                                                                            &record) == -12712,
         "sound record");
  expect(PVVideoFormatDescriptionGetDimensions(generalOf(kPVMediaType_Video).get()).width == 0, "dimensions");
  expect(PVTimeCodeFormatDescriptionGetFrameQuanta(generalOf(kPVMediaType_TimeCode).get()) == 0, "quanta");
  expect(KivDerivedFormatDescriptionGetDerivedStorageSize(audio.get()) == 0, "no storage");
  std::exit(0);
}

TEST(OtherEntriesDeathTest, WithTooLittleStorageAreNotTouched) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(tryAll(), testing::ExitedWithCode(0), "^$");
}

}  // namespace
