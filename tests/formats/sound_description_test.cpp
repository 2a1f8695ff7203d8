#include <kiv/format_description.h>
#include <kiv/sample_description.h>
#include <pevrin/sound_description.h>
#include <bit>

#include "runtime/four_char_code.hpp"
#include "tests/formats/records.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using namespace test;

const BRStringRef& kMovie = kPVSoundDescriptionFlavor_TavloMovie;
const BRStringRef& kMovieV2 = kPVSoundDescriptionFlavor_TavloMovieV2;
const BRStringRef& kISO = kPVSoundDescriptionFlavor_ISOFamily;
const BRStringRef& k3GP = kPVSoundDescriptionFlavor_3GPFamily;

struct Fields {
  std::string format;
  int channels = 2;
  int bits = 16;
  uint64_t rate = uint64_t{48000} << 16;
  int compressionID = 0;

  std::string head(int version) const {
    return bigEndian(version, 2) + bigEndian(0, 6) + bigEndian(channels, 2) + bigEndian(bits, 2) +
           bigEndian(static_cast<uint16_t>(compressionID), 2) + bigEndian(0, 2) + bigEndian(rate, 4);
  }
  std::string version0(const std::string& atoms = "") const { return record(format, head(0) + atoms); }
  std::string version1(uint32_t samples, uint32_t bytesPerChannel, uint32_t bytes,
                       const std::string& atoms = "") const {
    return record(format, head(1) + bigEndian(samples, 4) + bigEndian(bytesPerChannel, 4) +
                              bigEndian(bytes, 4) + bigEndian(2, 4) + atoms);
  }
};

std::string version2(const std::string& format, double rate, uint32_t channels, uint32_t bits, uint32_t flags,
                     uint32_t bytes, uint32_t frames, const std::string& atoms = "") {
  return record(format, Fields{"", 3, 16, 0x10000, -2}.head(2) + bigEndian(72, 4) +
                            bigEndian(std::bit_cast<uint64_t>(rate), 8) + bigEndian(channels, 4) +
                            bigEndian(0x7F000000, 4) + bigEndian(bits, 4) + bigEndian(flags, 4) +
                            bigEndian(bytes, 4) + bigEndian(frames, 4) + atoms);
}

std::string full(const std::string& type, const std::string& payload) {
  return atom(type, std::string(4, '\0') + payload);
}
std::string chan(uint32_t tag) { return full("chan", bigEndian(tag, 4) + bigEndian(0, 8)); }
std::string wave(const std::string& format, const std::string& inside) {
  return atom("wave", atom("frma", format) + inside + atom(std::string(4, '\0')));
}

// An ES_Descriptor around a decoder configuration; the lengths as encoders like to write them.
std::string elementary(int objectType, const std::string& configuration) {
  const auto descriptor = [](int tag, const std::string& content) {
    return std::string{static_cast<char>(tag), '\x80', '\x80', '\x80', static_cast<char>(content.size())} +
           content;
  };
  const std::string specific = configuration.empty() ? "" : descriptor(5, configuration);
  return descriptor(3, bigEndian(1, 2) + '\0' +
                           descriptor(4, std::string{static_cast<char>(objectType), '\x15'} +
                                             std::string(11, '\0') + specific) +
                           descriptor(6, "\2"));
}

PVStatus read(const std::string& bytes, Description& out, BRStringRef flavor = kMovie,
              BRAllocatorRef allocator = nullptr) {
  return PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData(allocator, bytesOf(bytes),
                                                                         bytes.size(), flavor, out.out());
}

Description made(const std::string& bytes, BRStringRef flavor = kMovie) {
  Description description;
  EXPECT_EQ(read(bytes, description, flavor), 0);
  return description;
}

AudioStreamBasicDescription formatOf(const Description& description) {
  const AudioStreamBasicDescription* format =
      PVAudioFormatDescriptionGetStreamBasicDescription(description.get());
  return format ? *format : AudioStreamBasicDescription{};
}

std::string cookieOf(const Description& description) {
  size_t length;
  const void* bytes = PVAudioFormatDescriptionGetMagicCookie(description.get(), &length);
  return std::string(static_cast<const char*>(bytes), length);
}

std::string write(const Description& description, BRStringRef flavor) {
  Record out;
  EXPECT_EQ(KivAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer(nullptr, description.get(),
                                                                                flavor, out.out()),
            0);
  return out ? textOf(out.get()) : "";
}

void expectFormat(const AudioStreamBasicDescription& actual, const AudioStreamBasicDescription& expected) {
  EXPECT_EQ(double{actual.sampleRate}, double{expected.sampleRate});
  EXPECT_EQ(uint32_t{actual.formatID}, uint32_t{expected.formatID});
  EXPECT_EQ(uint32_t{actual.formatFlags}, uint32_t{expected.formatFlags});
  EXPECT_EQ(uint32_t{actual.bytesPerPacket}, uint32_t{expected.bytesPerPacket});
  EXPECT_EQ(uint32_t{actual.framesPerPacket}, uint32_t{expected.framesPerPacket});
  EXPECT_EQ(uint32_t{actual.bytesPerFrame}, uint32_t{expected.bytesPerFrame});
  EXPECT_EQ(uint32_t{actual.channelsPerFrame}, uint32_t{expected.channelsPerFrame});
  EXPECT_EQ(uint32_t{actual.bitsPerChannel}, uint32_t{expected.bitsPerChannel});
}

constexpr uint32_t kFloat = 1, kBig = 2, kSigned = 4, kPacked = 8;

TEST(SoundDescription, LinearPCMOfEveryDataFormat) {
  struct Case {
    const char* name;
    std::string bytes;
    BRStringRef flavor;
    uint32_t flags, bits;
  };
  const std::string little = wave("in24", atom("enda", bigEndian(1, 2)));
  const std::string nothing(4, '\0');
  const Case cases[] = {
      {"raw 8", Fields{"raw ", 2, 8}.version0(), kMovie, kPacked, 8},
      {"raw 16", Fields{"raw "}.version0(), kMovie, kPacked | kSigned | kBig, 16},
      {"NONE", Fields{"NONE", 2, 8}.version0(), kMovie, kPacked, 8},
      {"0", Fields{nothing}.version0(), kMovie, kPacked | kSigned | kBig, 16},
      {"twos", Fields{"twos"}.version0(), kMovie, kPacked | kSigned | kBig, 16},
      {"twos 8", Fields{"twos", 2, 8}.version0(), kMovie, kPacked | kSigned, 8},
      {"sowt", Fields{"sowt"}.version0(), kMovie, kPacked | kSigned, 16},
      {"in24", Fields{"in24"}.version1(1, 3, 6), kMovie, kPacked | kSigned | kBig, 24},
      {"in24 little", Fields{"in24"}.version1(1, 3, 6, little), kMovie, kPacked | kSigned, 24},
      {"in32", Fields{"in32"}.version1(1, 4, 8, little), kMovie, kPacked | kSigned, 32},
      {"fl32", Fields{"fl32"}.version1(1, 4, 8), kMovie, kPacked | kFloat | kBig, 32},
      {"fl64", Fields{"fl64"}.version1(1, 8, 16, atom("enda", bigEndian(1, 2))), kMovie, kPacked | kFloat,
       64},
      {"lpcm", Fields{"lpcm"}.version0(), kMovie, kPacked | kSigned | kBig, 16},
      {"ipcm", Fields{"ipcm"}.version0(full("pcmC", std::string("\1\30"))), kISO, kPacked | kSigned, 24},
      {"fpcm", Fields{"fpcm", 2, 32}.version0(full("pcmC", std::string("\0\40", 2))), kISO,
       kPacked | kFloat | kBig, 32},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const uint32_t frame = c.bits / 8 * 2;
    expectFormat(formatOf(made(c.bytes, c.flavor)),
                 {48000, kAudioFormatLinearPCM, c.flags, frame, 1, frame, 2, c.bits, 0});
  }
  // version 2 says it all, and contradictions are cleaned
  expectFormat(formatOf(made(version2("lpcm", 192000.5, 6, 24, 4 | 8 | 16 | 64, 18, 1))),
               {192000.5, kAudioFormatLinearPCM, kSigned | kPacked, 18, 1, 18, 6, 24, 0});
  expectFormat(formatOf(made(version2("lpcm", 48000, 2, 32, 1 | 4 | 16, 8, 1))),
               {48000, kAudioFormatLinearPCM, kFloat | 16, 8, 1, 8, 2, 32, 0});
}

struct Compressed {
  const char* name;
  std::string format;
  std::string configuration;  // the atom of an ISO file
  AudioStreamBasicDescription expected;
  std::string cookie;
};

std::vector<Compressed> compressed() {
  const std::string lc = elementary(0x40, "\x11\x90");      // AAC LC, 48000, 2 channels
  const std::string he = elementary(0x40, "\x2B\x92\x08");  // SBR, 24000 under 44100, stereo
  const std::string heV2 = elementary(0x40, std::string("\xEB\x09\x88\x00", 4));  // PS, 24000 under 48000
  const std::string opusMapped = std::string("\2\1\0\4\1\2\5", 7);
  const std::string streamInfo =
      bigEndian(4096, 2) + bigEndian(4096, 2) + bigEndian(0, 6) +
      bigEndian(uint64_t{96000} << 44 | uint64_t{5} << 41 | uint64_t{23} << 36, 8) + std::string(16, 'm');
  const std::string alac = bigEndian(4096, 4) + '\0' + '\30' + "\50\12\16" + '\2' + bigEndian(255, 2) +
                           bigEndian(0, 8) + bigEndian(44100, 4);
  return {
      {"AAC", "mp4a", full("esds", lc), {48000, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0, 0}, lc},
      {"HE-AAC", "mp4a", full("esds", he), {44100, kAudioFormatMPEG4AAC_HE, 0, 0, 2048, 0, 2, 0, 0}, he},
      {"HE-AAC v2",
       "mp4a",
       full("esds", heV2),
       {48000, kAudioFormatMPEG4AAC_HE_V2, 0, 0, 2048, 0, 2, 0, 0},
       heV2},
      {"Vorbis",
       "mp4a",
       full("esds", elementary(0xDD, "v")),
       {48000, "mp4a"_4cc, 0, 0, 0, 0, 2, 0, 0},
       elementary(0xDD, "v")},
      {"AC-3",
       "ac-3",
       atom("dac3", "\x50\x3D\x40"),
       {44100, kAudioFormatAC3, 0, 0, 1536, 0, 6, 0, 0},
       "\x50\x3D\x40"},
      {"E-AC-3",
       "ec-3",
       atom("dec3", std::string("\x0C\0\x20\x0F\0", 5)),
       {48000, kAudioFormatEnhancedAC3, 0, 0, 1536, 0, 6, 0, 0},
       std::string("\x0C\0\x20\x0F\0", 5)},
      {"ALAC", "alac", full("alac", alac), {44100, kAudioFormatLossless, 3, 0, 4096, 0, 2, 0, 0}, alac},
      {"Opus",
       "Opus",
       atom("dOps", std::string("\0\2\1\x38\0\0\xBB\x80\0\0\0", 11)),
       {48000, kAudioFormatOpus, 0, 0, 0, 0, 2, 0, 0},
       std::string("OpusHead\1\2\x38\1\x80\xBB\0\0\0\0\0", 19)},
      {"Opus 5.1",
       "Opus",
       atom("dOps", std::string("\0\3\1\x38\0\0\xBB\x80\xFF\xFE\1\2\1\0\2\1", 16)),
       {48000, kAudioFormatOpus, 0, 0, 0, 0, 3, 0, 0},
       std::string("OpusHead\1\3\x38\1\x80\xBB\0\0\xFE\xFF\1\2\1\0\2\1", 24)},
      {"FLAC",
       "fLaC",
       full("dfLa", std::string("\x80\0\0\x22", 4) + streamInfo),
       {96000, kAudioFormatFLAC, 3, 0, 4096, 0, 6, 0, 0},
       streamInfo},
      {"AMR",
       "samr",
       atom("damr", "vend\1\2\3\4\5"),
       {8000, kAudioFormatAMR, 0, 0, 160, 0, 1, 0, 0},
       "vend\1\2\3\4\5"},
      {"AMR wide",
       "sawb",
       atom("damr", "vend\1\2\3\4\5"),
       {16000, kAudioFormatAMR_WB, 0, 0, 320, 0, 1, 0, 0},
       "vend\1\2\3\4\5"},
      {"TrueHD", "mlpa", atom("dmlp", "payload"), {48000, "mlpa"_4cc, 0, 0, 0, 0, 2, 0, 0}, "payload"},
      {"A-law", "alaw", "", {48000, kAudioFormatALaw, 0, 2, 1, 0, 2, 0, 0}, ""},
      {"IMA", "ima4", "", {48000, kAudioFormatIMA4, 0, 68, 64, 0, 2, 0, 0}, ""},
  };
}

TEST(SoundDescription, CompressedFormatsOfISOFiles) {
  for (const Compressed& c : compressed()) {
    SCOPED_TRACE(c.name);
    const Description sound = made(Fields{c.format}.version0(c.configuration + atom("btrt", "rates")), kISO);
    expectFormat(formatOf(sound), c.expected);
    EXPECT_EQ(cookieOf(sound), c.cookie);
  }
  expectFormat(
      formatOf(made(Fields{"mp4a", 2, 16, uint64_t{22050} << 16}.version0(full("esds", elementary(0x69, ""))),
                    kISO)),
      {22050, kAudioFormatMPEGLayer3, 0, 0, 576, 0, 2, 0, 0});
  expectFormat(formatOf(made(Fields{"abcd"}.version0(atom("abcC", "?")), kISO)),
               {48000, "abcd"_4cc, 0, 0, 0, 0, 2, 0, 0});
}

TEST(SoundDescription, VersionsOneAndTwoOfCompressedFormatsSayItThemselves) {
  const std::string he = elementary(0x40, "\x2B\x92\x08");
  const std::string inWave = wave("mp4a", atom("mp4a", std::string(4, '\0')) + full("esds", he));
  expectFormat(formatOf(made(Fields{"mp4a", 1, 16, uint64_t{22050} << 16, -2}.version1(1024, 0, 9, inWave))),
               {22050, kAudioFormatMPEG4AAC_HE, 0, 0, 1024, 0, 1, 0, 0});
  expectFormat(formatOf(made(Fields{"mp4a", 1, 16, uint64_t{22050} << 16, -2}.version1(0, 0, 0, inWave))),
               {44100, kAudioFormatMPEG4AAC_HE, 0, 0, 2048, 0, 2, 0, 0});
  expectFormat(formatOf(made(Fields{"ima4"}.version1(64, 34, 68))),
               {48000, kAudioFormatIMA4, 0, 68, 64, 0, 2, 0, 0});
  expectFormat(formatOf(made(Fields{"ima4", 2, 16, uint64_t{48000} << 16, 0xFEFF}.version1(64, 34, 68))),
               {48000, kAudioFormatIMA4, 0, 0, 64, 0, 2, 0, 0});
  expectFormat(formatOf(made(version2("mp4a", 96000, 6, 0, 0, 0, 1024, inWave))),
               {96000, kAudioFormatMPEG4AAC_HE, 0, 0, 1024, 0, 6, 0, 0});
  // nobody here knows what is in this 'wave'
  EXPECT_EQ(cookieOf(made(Fields{"QDM2"}.version1(1, 1, 1, atom("wave", "anything")))), "anything");
  // an ISO file's version 1 has no more fields than version 0
  std::string iso1 = Fields{"mp4a"}.version0(full("esds", he) + full("srat", bigEndian(96000, 4)));
  iso1[17] = 1;
  EXPECT_EQ(double{formatOf(made(iso1, kISO)).sampleRate}, 96000);
}

TEST(SoundDescription, ChannelLayoutsOfBothKinds) {
  const auto tagOf = [](const std::string& atoms, int channels) {
    size_t size;
    const Description sound = made(Fields{"sowt", channels}.version0(atoms), kISO);
    const AudioChannelLayout* layout = PVAudioFormatDescriptionGetChannelLayout(sound.get(), &size);
    return layout ? layout->channelLayoutTag : 0xFFFFFFFF;
  };
  const std::string structured("\1\6", 2);
  EXPECT_EQ(tagOf(chan(kAudioChannelLayoutTag_MPEG_5_1_A), 6), uint32_t{kAudioChannelLayoutTag_MPEG_5_1_A});
  EXPECT_EQ(tagOf(full("chnl", std::string("\1\6", 2) + bigEndian(0, 8)), 6),
            uint32_t{kAudioChannelLayoutTag_MPEG_5_1_D});
  EXPECT_EQ(tagOf(full("chnl", std::string("\1\6", 2) + bigEndian(1, 8)), 5), 0xFFFFFFFF)
      << "channels left out";
  EXPECT_EQ(tagOf(full("chnl", std::string("\2\1", 2)), 1), 0xFFFFFFFF) << "objects";
  size_t size;
  const Description sound =
      made(Fields{"sowt", 3}.version0(full("chnl", std::string("\1\0\0\1\3", 5))), kISO);
  const AudioChannelLayout* layout = PVAudioFormatDescriptionGetChannelLayout(sound.get(), &size);
  ASSERT_TRUE(layout);
  ASSERT_EQ(size, 12u + 3 * 20);
  EXPECT_EQ(layout->channelDescriptions[2].channelLabel, uint32_t{kAudioChannelLabel_LFEScreen});
}

// What a description's record in one flavour becomes in each: all of them read back as equal descriptions.
TEST(SoundDescription, EveryFlavourReadsBackEqual) {
  struct Case {
    std::string name;
    std::string bytes;
    BRStringRef flavor;
  };
  std::vector<Case> cases = {
      {"sowt", Fields{"sowt"}.version0(chan(kAudioChannelLayoutTag_Stereo) + atom("abcd", "x")), kMovie},
      {"raw", Fields{"raw ", 1, 8}.version0(), kMovie},
      {"in24",
       version2("lpcm", 96000, 6, 24, kSigned | kPacked, 18, 1, chan(kAudioChannelLayoutTag_MPEG_5_1_D)),
       kMovie},
      {"fl64", version2("lpcm", 44100, 1, 64, kFloat | kBig | kPacked, 8, 1), kMovie},
      {"mp3", Fields{".mp3", 2, 16, uint64_t{44100} << 16, -2}.version1(1152, 0, 0), kMovie},
      {"unknown wave",
       Fields{"QDM2", 2, 16, uint64_t{44100} << 16, -2}.version1(0, 0, 0, atom("wave", "anything")), kMovie},
  };
  for (const Compressed& c : compressed())
    cases.push_back({c.name, Fields{c.format, 2}.version0(c.configuration + atom("btrt", "rates")), kISO});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Description sound = made(c.bytes, c.flavor);
    EXPECT_EQ(write(sound, c.flavor), c.bytes) << "verbatim";
    for (BRStringRef flavor : {kMovie, kMovieV2, kISO, k3GP}) {
      const bool noISOForm = (c.name == "raw") && (flavor == kISO || flavor == k3GP);
      if (noISOForm) continue;
      Description stripped;
      const auto format = formatOf(sound);
      size_t layoutSize, cookieSize;
      const auto* layout = PVAudioFormatDescriptionGetChannelLayout(sound.get(), &layoutSize);
      const auto* cookie = PVAudioFormatDescriptionGetMagicCookie(sound.get(), &cookieSize);
      auto extensions = br::Ref<BRDictionary>::adopt(
          BRDictionaryCreateMutableCopy(nullptr, PVFormatDescriptionGetExtensions(sound.get())));
      BRDictionaryRemoveValue(extensions.get(), kPVFormatDescriptionExtension_VerbatimSampleDescription);
      BRDictionaryRemoveValue(extensions.get(), kPVFormatDescriptionExtension_VerbatimISOSampleEntry);
      ASSERT_EQ(PVAudioFormatDescriptionCreate(nullptr, &format, layoutSize, layout, cookieSize, cookie,
                                               extensions.get(), stripped.out()),
                0);
      const std::string written = write(stripped, flavor);
      EXPECT_EQ(written.size() > 17 && written[17] == 2,
                flavor == kMovieV2 || (flavor == kMovie && written[17] == 2));
      const Description back = made(written, flavor);
      expectFormat(formatOf(back), format);
      EXPECT_EQ(cookieOf(back), cookieOf(sound));
      EXPECT_TRUE(PVAudioFormatDescriptionEqual(sound.get(), back.get(),
                                                PVAudioFormatDescriptionMask_MagicCookie, nullptr));
      EXPECT_TRUE(KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(
          PVFormatDescriptionGetExtensions(sound.get()), PVFormatDescriptionGetExtensions(back.get()),
          "none"_br, nullptr));
      size_t backSize;
      PVAudioFormatDescriptionGetChannelLayout(back.get(), &backSize);
      EXPECT_EQ(backSize, layoutSize);
    }
  }
}

TEST(SoundDescription, TheWriterPicksTheVersion) {
  struct Case {
    AudioStreamBasicDescription format;
    BRStringRef flavor;
    const char* dataFormat;
    int version;
  };
  const uint32_t integer = kSigned | kPacked;
  const Case cases[] = {
      {{44100, kAudioFormatLinearPCM, integer, 4, 1, 4, 2, 16, 0}, kMovie, "sowt", 0},
      {{44100, kAudioFormatLinearPCM, integer | kBig, 4, 1, 4, 2, 16, 0}, kMovie, "twos", 0},
      {{44100, kAudioFormatLinearPCM, kPacked, 2, 1, 2, 2, 8, 0}, kMovie, "raw ", 0},
      {{44100, kAudioFormatLinearPCM, integer, 6, 1, 6, 3, 16, 0}, kMovie, "lpcm", 2},
      {{44100, kAudioFormatLinearPCM, integer, 6, 1, 6, 2, 24, 0}, kMovie, "lpcm", 2},
      {{44100, kAudioFormatLinearPCM, kFloat | kPacked, 8, 1, 8, 2, 32, 0}, kMovie, "lpcm", 2},
      {{96000, kAudioFormatLinearPCM, integer, 4, 1, 4, 2, 16, 0}, kMovie, "lpcm", 2},
      {{44100, kAudioFormatLinearPCM, integer, 4, 1, 4, 2, 16, 0}, kMovieV2, "lpcm", 2},
      {{44100, kAudioFormatLinearPCM, integer, 4, 1, 4, 2, 16, 0}, kISO, "ipcm", 0},
      {{44100, kAudioFormatLinearPCM, kFloat | kPacked, 8, 1, 8, 2, 32, 0}, kISO, "fpcm", 0},
      {{44100, kAudioFormatMPEGLayer3, 0, 0, 1152, 0, 2, 0, 0}, kMovie, ".mp3", 1},
      {{44100, kAudioFormatMPEGLayer3, 0, 0, 1152, 0, 2, 0, 0}, kMovieV2, ".mp3", 2},
      {{44100, kAudioFormatMPEGLayer3, 0, 0, 1152, 0, 2, 0, 0}, k3GP, "mp4a", 0},
      {{48000, kAudioFormatAC3, 0, 0, 1536, 0, 6, 0, 0}, kMovie, "ac-3", 2},
  };
  for (const Case& c : cases) {
    Description sound;
    ASSERT_EQ(
        PVAudioFormatDescriptionCreate(nullptr, &c.format, 0, nullptr, 0, nullptr, nullptr, sound.out()), 0);
    const std::string written = write(sound, c.flavor);
    ASSERT_GE(written.size(), 36u);
    EXPECT_EQ(written.substr(4, 4), c.dataFormat);
    EXPECT_EQ(written[17], c.version) << c.dataFormat;
  }
}

TEST(SoundDescription, WritingRefusesWhatNoRecordCanSay) {
  struct Case {
    const char* what;
    AudioStreamBasicDescription format;
    BRStringRef flavor;
  };
  const Case cases[] = {
      {"planes", {44100, kAudioFormatLinearPCM, 4 | 8 | 32, 2, 1, 2, 2, 16, 0}, kMovie},
      {"unsigned in ISO files", {44100, kAudioFormatLinearPCM, kPacked, 2, 1, 2, 2, 8, 0}, kISO},
      {"AAC without a cookie", {44100, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0, 0}, kMovie},
      {"flavour", {44100, kAudioFormatLinearPCM, 4 | 8, 4, 1, 4, 2, 16, 0}, "Other"_br},
  };
  for (const Case& c : cases) {
    Description sound;
    ASSERT_EQ(
        PVAudioFormatDescriptionCreate(nullptr, &c.format, 0, nullptr, 0, nullptr, nullptr, sound.out()), 0);
    auto* out = reinterpret_cast<PVBlockBufferRef>(1);
    EXPECT_EQ(PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer(nullptr, sound.get(),
                                                                                 c.flavor, &out),
              -12717)
        << c.what;
    EXPECT_EQ(out, nullptr) << c.what;
  }
}

TEST(SoundDescription, BadRecordsAreRefused) {
  const std::string good = Fields{"sowt"}.version0(atom("abcd", "x"));
  struct Case {
    const char* what;
    std::string bytes;
    PVStatus expected;
  };
  const auto with = [&](size_t at, const std::string& bytes) {
    return std::string(good).replace(at, bytes.size(), bytes);
  };
  const Case cases[] = {
      {"version 3", with(16, bigEndian(3, 2)), -12714},
      {"version 1 too small", with(16, bigEndian(1, 2)), -12714},
      {"35 bytes", with(0, bigEndian(35, 4)), -12714},
      {"beyond the bytes", with(0, bigEndian(good.size() + 1, 4)), -12714},
      {"atom", with(36, bigEndian(10, 4)), -12714},
      {"no channels", with(24, bigEndian(0, 2)), -12714},
      {"12 bits", with(26, bigEndian(12, 2)), -12714},
      {"floats of 16 bits", Fields{"fpcm"}.version0(), -12714},
      {"no rate", with(32, bigEndian(0, 4)), -12710},
  };
  for (const Case& c : cases) {
    Description description;
    EXPECT_EQ(read(c.bytes, description), c.expected) << c.what;
  }
  for (const Compressed& c : compressed()) {
    const std::string whole = Fields{c.format}.version0(c.configuration);
    forEveryCut(whole, [&](const std::string& cut, size_t length) {
      Description description;
      const PVStatus status = read(cut, description, kISO);
      EXPECT_TRUE(length < 36 ? status == -12714 : status == 0 || status == -12714)
          << c.name << " " << length;
    });
    // a damaged configuration is kept, not lost
    if (c.configuration.size() > 12) {
      const Description odd =
          made(Fields{c.format}.version0(c.configuration.substr(0, 4) + c.configuration.substr(4, 4) +
                                         std::string(c.configuration.size() - 8, '\xFF')),
               kISO);
      EXPECT_FALSE(write(odd, kMovie).empty());
    }
  }
}

TEST(SoundDescription, LegacyLayoutOfSampleTables) {
  struct Case {
    std::string bytes;
    BRStringRef flavor;
    bool expected;
  };
  for (const Case& c :
       {Case{Fields{"sowt"}.version0(), nullptr, true},
        {Fields{"sowt"}.version0(), kISO, false},
        {Fields{"alaw"}.version0(), kMovie, true},
        {Fields{"mp4a"}.version0(), kMovie, false},
        {Fields{"ima4"}.version1(64, 34, 68), kMovie, true},
        {Fields{"mp4a", 2, 16, uint64_t{48000} << 16, -2}.version1(1024, 0, 0), kMovie, false},
        {version2("lpcm", 48000, 2, 16, 12, 4, 1), kMovie, false},
        {"short", kMovie, false}}) {
    std::string bytes = c.bytes;
    EXPECT_EQ(PVDoesBigEndianSoundDescriptionRequireLegacyCBRSampleTableLayout(test::inTwoPieces(bytes).get(),
                                                                               c.flavor),
              c.expected);
  }
  EXPECT_FALSE(PVDoesBigEndianSoundDescriptionRequireLegacyCBRSampleTableLayout(nullptr, nullptr));
}

TEST(SoundDescription, RunningOutOfMemoryLeavesNothingBehind) {
  const std::string bytes = Fields{"mp4a"}.version0(compressed()[0].configuration +
                                                    chan(kAudioChannelLayoutTag_Stereo) + atom("abcd", "x"));
  walkReadFailures([&](BRAllocatorRef allocator) {
    Description description;
    return read(bytes, description, kISO, allocator);
  });
}

}  // namespace
