#include <bedra/array.h>
#include <bedra/data.h>
#include <fmt/format.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/text_format_description.h>
#include <pevrin/timecode_format_description.h>
#include <pevrin/video_format_description.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "atom_type.hpp"
#include "description_report.hpp"
#include "property_values.hpp"

namespace {

using Json = nlohmann::ordered_json;  // keys in the order in which they are set

Json jsonOf(BRTypeRef object);

Json hexText(BRDataRef data) {
  const uint8_t* bytes = BRDataGetBytePtr(data);
  return fmt::format("{:02x}", fmt::join(bytes, bytes + BRDataGetLength(data), ""));
}

Json numberJson(BRNumberRef number) {
  if (BRNumberIsFloat(number)) return numberIn(number).value_or(0);
  int64_t value = 0;
  uint64_t large = 0;
  if (BRNumberGetValue(number, kBRNumberTypeSInt64, &value)) return value;
  BRNumberGetValue(number, kBRNumberTypeUInt64, &large);
  return large;
}

Json arrayJson(BRArrayRef array) {
  Json list = Json::array();
  for (size_t i = 0; i < BRArrayGetCount(array); ++i)
    list.push_back(jsonOf(BRArrayGetValueAtIndex(array, i)));
  return list;
}

Json dictionaryJson(BRDictionaryRef dictionary) {
  Json entries = Json::object();
  BRDictionaryApply(
      dictionary,
      [](const void* key, const void* value, void* to) {
        (*static_cast<Json*>(to))[std::string(stringIn(key).value_or(""))] = jsonOf(value);
      },
      &entries);
  return entries;
}

// A property list, which the library made out of a record: it is a few levels deep.
Json jsonOf(BRTypeRef object) {
  const BRTypeID type = object ? BRGetTypeID(object) : BRNullGetTypeID();
  if (type == BRStringGetTypeID()) return *stringIn(object);
  if (type == BRBooleanGetTypeID()) return *booleanIn(object);
  if (type == BRNumberGetTypeID()) return numberJson(static_cast<BRNumberRef>(object));
  if (type == BRDataGetTypeID()) return hexText(static_cast<BRDataRef>(object));
  if (type == BRArrayGetTypeID()) return arrayJson(static_cast<BRArrayRef>(object));
  if (type == BRDictionaryGetTypeID()) return dictionaryJson(static_cast<BRDictionaryRef>(object));
  return nullptr;
}

void addVideo(PVFormatDescriptionRef video, Json& to) {
  const auto [width, height] = PVVideoFormatDescriptionGetDimensions(video);
  const GRSize shown = PVVideoFormatDescriptionGetPresentationDimensions(video, true, true);
  to["dimensions"] = {{"width", width}, {"height", height}};
  to["presentationDimensions"] = {{"width", shown.width}, {"height", shown.height}};
  if (PVFormatDescriptionGetExtension(video, kPVFormatDescriptionExtension_CleanAperture)) {
    const auto [origin, size] = PVVideoFormatDescriptionGetCleanAperture(video, true);
    to["cleanAperture"] = {{"x", origin.x}, {"y", origin.y}, {"width", size.width}, {"height", size.height}};
  }
  if (const auto ratio = pixelAspectOf(video))
    to["pixelAspectRatio"] = {{"horizontal", ratio->horizontal}, {"vertical", ratio->vertical}};
  Json colour = Json::object();
  for (const auto& [name, key] : {std::pair{"primaries", kPVFormatDescriptionExtension_ColorPrimaries},
                                  std::pair{"transfer", kPVFormatDescriptionExtension_TransferFunction},
                                  std::pair{"matrix", kPVFormatDescriptionExtension_YCbCrMatrix},
                                  std::pair{"gamma", kPVFormatDescriptionExtension_GammaLevel},
                                  std::pair{"fullRange", kPVFormatDescriptionExtension_FullRangeVideo}})
    if (BRTypeRef value = PVFormatDescriptionGetExtension(video, key)) colour[name] = jsonOf(value);
  if (!colour.empty()) to["colour"] = std::move(colour);
}

void addAudio(PVFormatDescriptionRef audio, Json& to) {
  const AudioStreamBasicDescription format = *PVAudioFormatDescriptionGetStreamBasicDescription(audio);
  // the record is packed, and JSON takes references
  const double sampleRate = format.sampleRate;
  const uint32_t flags = format.formatFlags, packetBytes = format.bytesPerPacket,
                 packetFrames = format.framesPerPacket, frameBytes = format.bytesPerFrame,
                 channels = format.channelsPerFrame, bits = format.bitsPerChannel;
  to["audio"] = {{"sampleRate", sampleRate},
                 {"formatID", typeText(format.formatID)},
                 {"formatFlags", flags},
                 {"bytesPerPacket", packetBytes},
                 {"framesPerPacket", packetFrames},
                 {"bytesPerFrame", frameBytes},
                 {"channels", channels},
                 {"bitsPerChannel", bits}};
  if (const AudioChannelLayout* layout = PVAudioFormatDescriptionGetChannelLayout(audio, nullptr))
    to["audio"]["channelLayoutTag"] = uint32_t{layout->channelLayoutTag};
}

void addTimeCode(PVFormatDescriptionRef timecode, Json& to) {
  const PVTime frame = PVTimeCodeFormatDescriptionGetFrameDuration(timecode);
  const int64_t value = frame.value;
  const int32_t timescale = frame.timescale;
  to["timecode"] = {{"frameDuration", {{"value", value}, {"timescale", timescale}}},
                    {"frameQuanta", PVTimeCodeFormatDescriptionGetFrameQuanta(timecode)},
                    {"flags", PVTimeCodeFormatDescriptionGetTimeCodeFlags(timecode)}};
  if (const auto name = sourceNameOf(timecode)) to["timecode"]["sourceName"] = *name;
}

// WebVTT has no defaults.
void addText(PVFormatDescriptionRef text, Json& to) {
  Json facts = Json::object();
  int32_t flags = 0;
  if (PVTextFormatDescriptionGetDisplayFlags(text, &flags) == 0) facts["displayFlags"] = flags;
  int8_t horizontal = 0, vertical = 0;
  const bool movie = PVFormatDescriptionGetMediaSubType(text) == fourCC("text");
  if (PVTextFormatDescriptionGetJustification(text, &horizontal, movie ? nullptr : &vertical) == 0)
    facts["justification"] = {{"horizontal", horizontal}, {"vertical", vertical}};
  PVTextRect box{};
  if (PVTextFormatDescriptionGetDefaultTextBox(text, true, 0, &box) == 0)
    facts["defaultTextBox"] = {{"x", box.x}, {"y", box.y}, {"width", box.width}, {"height", box.height}};
  uint16_t font = 0;
  bool bold = false, italic = false, underline = false;
  double size = 0;
  PVTextColor colour{};
  if (PVTextFormatDescriptionGetDefaultStyle(text, &font, &bold, &italic, &underline, &size, &colour) == 0) {
    facts["defaultStyle"] = {
        {"fontID", font}, {"bold", bold}, {"italic", italic}, {"underline", underline}, {"fontSize", size}};
    facts["defaultStyle"]["colour"] = {
        {"red", colour.red}, {"green", colour.green}, {"blue", colour.blue}, {"alpha", colour.alpha}};
    BRStringRef name = nullptr;
    if (PVTextFormatDescriptionGetFontName(text, font, &name) == 0)
      facts["defaultStyle"]["fontName"] = *stringIn(name);
  }
  if (!facts.empty()) to["text"] = std::move(facts);
}

}  // namespace

std::string descriptionJson(PVFormatDescriptionRef description) {
  const PVMediaType type = PVFormatDescriptionGetMediaType(description);
  Json facts = {{"mediaType", typeText(type)},
                {"mediaSubType", typeText(PVFormatDescriptionGetMediaSubType(description))}};
  if (type == kPVMediaType_Video) addVideo(description, facts);
  if (type == kPVMediaType_Audio) addAudio(description, facts);
  if (type == kPVMediaType_TimeCode) addTimeCode(description, facts);
  if (type == kPVMediaType_Text || type == kPVMediaType_Subtitle) addText(description, facts);
  if (BRDictionaryRef extensions = PVFormatDescriptionGetExtensions(description))
    facts["extensions"] = dictionaryJson(extensions);
  return facts.dump(-1, ' ', false, Json::error_handler_t::replace);
}
