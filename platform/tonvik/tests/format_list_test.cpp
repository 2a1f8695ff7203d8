// Format lists. The facts of the cookies were compared with what ffprobe and mediainfo tell of movies that
// hold them.
#include <gtest/gtest.h>
#include <tonvik/audio_format.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes fromHex(const std::string& hex) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

AudioFormatInfo infoOf(AudioFormatID formatID, const Bytes& cookie) {
  AudioFormatInfo info{};
  info.streamBasicDescription.sampleRate = 1;  // shows that the cookie is believed
  info.streamBasicDescription.formatID = formatID;
  info.streamBasicDescription.channelsPerFrame = 9;
  info.magicCookie = cookie.data();
  info.magicCookieSize = static_cast<uint32_t>(cookie.size());
  return info;
}

std::string code(uint32_t value) {
  const uint32_t bytes = __builtin_bswap32(value);
  return std::string(reinterpret_cast<const char*>(&bytes), 4);
}

// "aach 48000/2048 x2 650002, aac  24000/1024 x2 650002", or the status.
std::string formatList(AudioFormatID formatID, const Bytes& cookie) {
  const AudioFormatInfo info = infoOf(formatID, cookie);
  AudioFormatListItem items[kAudioFormatListMaxItems];
  uint32_t size = sizeof items, foretold = 0;
  const AudioStatus status =
      AudioFormatGetProperty(kAudioFormatProperty_FormatList, sizeof info, &info, &size, items);
  EXPECT_EQ(AudioFormatGetPropertyInfo(kAudioFormatProperty_FormatList, sizeof info, &info, &foretold),
            status);
  if (status != 0) return code(static_cast<uint32_t>(status));
  EXPECT_EQ(foretold, size);
  std::string text;
  for (size_t i = 0; i < size / sizeof items[0]; ++i) {
    const AudioStreamBasicDescription& item = items[i].streamBasicDescription;
    EXPECT_EQ(
        item.formatFlags | item.bytesPerPacket | item.bytesPerFrame | item.bitsPerChannel | item.reserved,
        0u);
    char one[64];
    std::snprintf(one, sizeof one, "%s%s %g/%u x%u %x", i ? ", " : "", code(item.formatID).c_str(),
                  static_cast<double>(item.sampleRate), item.framesPerPacket, item.channelsPerFrame,
                  items[i].channelLayoutTag);
    text += one;
  }
  return text;
}

constexpr AudioFormatID kAAC = kAudioFormatMPEG4AAC, kHE = kAudioFormatMPEG4AAC_HE,
                        kHEv2 = kAudioFormatMPEG4AAC_HE_V2;

struct Case {
  const char* name;
  AudioFormatID formatID;
  const char* cookie;
  const char* expected;
};

constexpr Case kCases[] = {
    {"LC", kAAC, "1210", "aac  44100/1024 x2 650002"},
    {"LC, 960 frames", kAAC, "1214", "aac  44100/960 x2 650002"},
    {"Main, 96 kHz", kAAC, "0808", "aac  96000/1024 x1 640001"},
    {"with the delay of a core coder", kAAC, "1212aaa8", "aac  44100/1024 x2 650002"},
    {"sample rate in 24 bits", kAAC, "17802b1108", "aac  22050/1024 x1 640001"},
    {"no replication, said behind the core", kAAC, "121056e500", "aac  44100/1024 x2 650002"},
    {"the same, and the description is wrong", kHE, "121056e500", "aac  44100/1024 x2 650002"},
    {"HE in front", kAAC, "2b920800", "aach 44100/2048 x2 650002, aac  22050/1024 x2 650002"},
    {"HE in front, 960 frames", kAAC, "2b920a00", "aach 44100/1920 x2 650002, aac  22050/960 x2 650002"},
    {"HE in front, rates in 24 bits", kAAC, "2f802b11178056220800",
     "aach 44100/2048 x2 650002, aac  22050/1024 x2 650002"},
    {"HE behind", kAAC, "139056e5a0", "aach 44100/2048 x2 650002, aac  22050/1024 x2 650002"},
    {"HE at the core's own rate", kAAC, "2c0c0800", "aach 16000/1024 x1 640001, aac  16000/1024 x1 640001"},
    {"HE at an impossible rate", kAAC, "2c090800", "aac  16000/1024 x1 640001"},
    {"HE unsaid, described", kHE, "1310", "aach 48000/2048 x2 650002, aac  24000/1024 x2 650002"},
    {"HE v2 in front", kAAC, "eb098800",
     "aacp 48000/2048 x2 650002, aach 48000/2048 x1 640001, aac  24000/1024 x1 640001"},
    {"HE v2 behind", kAAC, "140856e5ad4880",
     "aacp 32000/2048 x2 650002, aach 32000/2048 x1 640001, aac  16000/1024 x1 640001"},
    {"HE v2 denied behind", kHEv2, "140856e5ad4800", "aach 32000/2048 x1 640001, aac  16000/1024 x1 640001"},
    {"HE v2 over two channels", kAAC, "eb920800", "aach 44100/2048 x2 650002, aac  22050/1024 x2 650002"},
    {"HE v2 unsaid, described", kHEv2, "1308",
     "aacp 48000/2048 x2 650002, aach 48000/2048 x1 640001, aac  24000/1024 x1 640001"},
    {"3 channels", kAAC, "119856e500", "aac  48000/1024 x3 720003"},
    {"5.1", kAAC, "11b056e500", "aac  48000/1024 x6 7c0006"},
    {"7.1 by configuration 7", kAAC, "11b8", "aac  48000/1024 x8 7f0008"},
    {"6.1 by configuration 11", kAAC, "11d8", "aac  48000/1024 x7 8e0007"},
    {"7.1 by configuration 12", kAAC, "11e0", "aac  48000/1024 x8 b70008"},
    {"22.2", kAAC, "11e8", "aac  48000/1024 x24 ffff0000"},
    {"7.1 with heights", kAAC, "11f0", "aac  48000/1024 x8 b80008"},
    // what ffmpeg's encoder writes for "quad", "2.1" and "octagonal": a program_config_element with a comment
    {"element: quadraphonic", kAAC, "118004c4040021100d4c61766335392e33372e31303056e500",
     "aac  48000/1024 x4 6c0004"},
    {"element: 2.1", kAAC, "118004c4010020000d4c61766335392e33372e31303056e500", "aac  48000/1024 x3 850003"},
    {"element, and HE behind its comment", kAAC, "1300058404002110044c61766356e598",
     "aach 48000/2048 x4 6c0004, aac  24000/1024 x4 6c0004"},
    {"element: none of the common", kAAC, "118004c848002008c8200d4c61766335392e33372e31303056e500",
     "aac  48000/1024 x8 ffff0000"},
    {"zeros behind the core", kAAC, "1210000000", "aac  44100/1024 x2 650002"},
    {"no channels: reserved configuration", kAAC, "1240", "fmt?"},
    {"element without channels", kAAC, "1180040000000000", "fmt?"},
    {"reserved sample rate", kAAC, "1690", "fmt?"},
    {"sample rate of 0", kAAC,
     "17800000"
     "0800",
     "fmt?"},
    {"no object type", kAAC, "0210", "fmt?"},
    {"CELP: the description itself", kAAC, "4208", "aac  1/0 x9 ffff0000"},
    {"low delay: the description itself", kAudioFormatMPEG4AAC_LD, "b98c", "aacl 1/0 x9 ffff0000"},
    {"no cookie: the description itself", kHE, "", "aach 1/0 x9 ffff0000"},
    {"PCM has no layers", kAudioFormatLinearPCM, "1210", "lpcm 1/0 x9 ffff0000"},
    {"unknown format", 0x7A7A7A7A, "1210", "fmt?"},
};

TEST(FormatList, TellsTheLayersOfAAC) {
  for (const Case& it : kCases)
    EXPECT_EQ(formatList(it.formatID, fromHex(it.cookie)), it.expected) << it.name;
}

TEST(FormatList, TakesADescriptorAndTheAtomAroundIt) {
  const std::string expected = "aach 44100/2048 x2 650002, aac  22050/1024 x2 650002";
  const std::string decoder =
      "0411"
      "40150000000000000000000000"
      "0502"
      "1390";
  struct {
    const char* name;
    std::string cookie;
    std::string expected;
  } const cases[] = {
      {"descriptor", "0316000100" + decoder, expected},
      {"'esds' payload", "000000000316000100" + decoder, expected},
      {"lengths of 4 bytes",
       "03808080190001000480808011"
       "40150000000000000000000000"
       "0502"
       "1390",
       expected},
      {"all optional fields",
       "031e0001e0000503414243"
       "0007" +
           decoder,
       expected},
      {"another descriptor first",
       "0319000100"
       "0901ff" +
           decoder,
       expected},
      {"MPEG-2 AAC",
       "0316000100"
       "0411"
       "67150000000000000000000000"
       "0502"
       "1390",
       expected},
      {"MP3",
       "0316000100"
       "0411"
       "6b150000000000000000000000"
       "0502"
       "1390",
       "fmt?"},
      {"nothing for the decoder",
       "0312000100"
       "040d"
       "40150000000000000000000000",
       "fmt?"},
      {"a length beyond the end", "0317000100" + decoder, "fmt?"},
      {"a length that does not end", "0380808080800001000411", "fmt?"},
      {"only the version", "00000000", "fmt?"},
  };
  for (const auto& it : cases) EXPECT_EQ(formatList(kHE, fromHex(it.cookie)), it.expected) << it.name;
}

TEST(FormatList, APrefixOfACookieIsTheCoreAloneOrNothing) {
  for (const Case& it : kCases) {
    const Bytes whole = fromHex(it.cookie);
    const std::string expected = it.expected;
    if (it.formatID != kAAC || expected.find("aac") == std::string::npos) continue;
    for (size_t length = 1; length < whole.size(); ++length) {
      const Bytes prefix(whole.begin(),
                         whole.begin() + static_cast<ptrdiff_t>(length));  // to the byte, for asan
      const std::string list = formatList(kAAC, prefix);
      const bool isPartial = list.size() <= expected.size() && expected.ends_with(list);
      const bool isWithoutStereo = list.starts_with("aach") && expected.find("aacp") != std::string::npos;
      EXPECT_TRUE(list == "fmt?" || isPartial || isWithoutStereo)
          << it.name << ", " << length << ": " << list;
    }
  }
}

TEST(FormatList, ThePlayableFormatsAreThoseThatCanBeDecoded) {
  AudioFormatID formatIDs[64];
  uint32_t size = sizeof formatIDs, foretold = 0;
  ASSERT_EQ(AudioFormatGetProperty(kAudioFormatProperty_DecodeFormatIDs, 0, nullptr, &size, formatIDs), 0);
  EXPECT_EQ(AudioFormatGetPropertyInfo(kAudioFormatProperty_DecodeFormatIDs, 0, nullptr, &foretold), 0);
  EXPECT_EQ(foretold, size);
  const std::vector<AudioFormatID> decodable(formatIDs, formatIDs + size / sizeof formatIDs[0]);
  EXPECT_TRUE(std::is_sorted(decodable.begin(), decodable.end()));

  const auto firstPlayable = [](std::vector<AudioFormatID> ids) {
    std::vector<AudioFormatListItem> items(ids.size());
    for (size_t i = 0; i < ids.size(); ++i) items[i].streamBasicDescription.formatID = ids[i];
    uint32_t index = 77, indexSize = sizeof index;
    const AudioStatus status = AudioFormatGetProperty(kAudioFormatProperty_FirstPlayableFormatFromList,
                                                      static_cast<uint32_t>(items.size() * sizeof items[0]),
                                                      items.data(), &indexSize, &index);
    return status == 0 ? code(ids[index]) : code(static_cast<uint32_t>(status));
  };
  for (AudioFormatID id : decodable) EXPECT_EQ(firstPlayable({0x7A7A7A7A, id, kAAC}), code(id));
  for (AudioFormatID id : std::vector<AudioFormatID>{kAudioFormatLinearPCM, kHEv2, kAudioFormatMPEGLayer3})
    EXPECT_NE(std::find(decodable.begin(), decodable.end(), id), decodable.end()) << code(id);
  EXPECT_EQ(firstPlayable({0x7A7A7A7A, 0x75736163}), "fmt?");
  EXPECT_EQ(firstPlayable({}), "!spc");
}

}  // namespace
