// Format IDs and libavcodec's decoders.
#include "src/decoders.hpp"

extern "C" {
#include <libavcodec/codec.h>
}

#include <algorithm>
#include <iterator>

namespace tonvik {

namespace {

struct Format {
  AudioFormatID formatID;
  AVCodecID codecID;
};

// Ascending. Linear PCM is a decoder for each kind of sample; one stands for all.
constexpr Format kFormats[] = {
    {kAudioFormatMPEGLayer1, AV_CODEC_ID_MP1},
    {kAudioFormatMPEGLayer2, AV_CODEC_ID_MP2},
    {kAudioFormatMPEGLayer3, AV_CODEC_ID_MP3},
    {kAudioFormatMACE3, AV_CODEC_ID_MACE3},
    {kAudioFormatMACE6, AV_CODEC_ID_MACE6},
    {kAudioFormatQDesign2, AV_CODEC_ID_QDM2},
    {kAudioFormatQDesign, AV_CODEC_ID_QDMC},
    {kAudioFormatQUALCOMM, AV_CODEC_ID_QCELP},
    {kAudioFormatMPEG4AAC, AV_CODEC_ID_AAC},
    {kAudioFormatMPEG4AAC_ELD, AV_CODEC_ID_AAC},
    {kAudioFormatMPEG4AAC_HE, AV_CODEC_ID_AAC},
    {kAudioFormatMPEG4AAC_LD, AV_CODEC_ID_AAC},
    {kAudioFormatMPEG4AAC_HE_V2, AV_CODEC_ID_AAC},
    {kAudioFormatAC3, AV_CODEC_ID_AC3},
    {kAudioFormatLossless, AV_CODEC_ID_ALAC},
    {kAudioFormatALaw, AV_CODEC_ID_PCM_ALAW},
    {kAudioFormatEnhancedAC3, AV_CODEC_ID_EAC3},
    {kAudioFormatFLAC, AV_CODEC_ID_FLAC},
    {kAudioFormatiLBC, AV_CODEC_ID_ILBC},
    {kAudioFormatIMA4, AV_CODEC_ID_ADPCM_IMA_QT},
    {kAudioFormatLinearPCM, AV_CODEC_ID_PCM_S16LE},
    {kAudioFormatMicrosoftADPCM, AV_CODEC_ID_ADPCM_MS},
    {kAudioFormatWAVEIMAADPCM, AV_CODEC_ID_ADPCM_IMA_WAV},
    {kAudioFormatMicrosoftGSM, AV_CODEC_ID_GSM_MS},
    {kAudioFormatOpus, AV_CODEC_ID_OPUS},
    {kAudioFormatAMR, AV_CODEC_ID_AMR_NB},
    {kAudioFormatAMR_WB, AV_CODEC_ID_AMR_WB},
    {kAudioFormatULaw, AV_CODEC_ID_PCM_MULAW},
};
constexpr auto kIsBefore = [](const Format& a, const Format& b) { return a.formatID < b.formatID; };
static_assert(std::is_sorted(std::begin(kFormats), std::end(kFormats), kIsBefore));
static_assert(std::size(kFormats) <= kMaxDecodableFormats);

bool hasDecoder(const Format& format) { return avcodec_find_decoder(format.codecID) != nullptr; }

}  // namespace

bool isDecodable(AudioFormatID formatID) {
  const Format wanted{formatID, AV_CODEC_ID_NONE};
  const auto found = std::lower_bound(std::begin(kFormats), std::end(kFormats), wanted, kIsBefore);
  return found != std::end(kFormats) && found->formatID == formatID && hasDecoder(*found);
}

size_t listDecodableFormats(AudioFormatID (&formatIDs)[kMaxDecodableFormats]) {
  size_t count = 0;
  for (const Format& format : kFormats)
    if (hasDecoder(format)) formatIDs[count++] = format.formatID;
  return count;
}

}  // namespace tonvik
