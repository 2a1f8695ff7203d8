// The defaults of text, read from a description's extensions.
#include <pevrin/text_format_description.h>

#include <bedra/literal.hpp>
#include <cstdio>
#include <limits>

#include "formats/extensions.hpp"
#include "runtime/error.hpp"
#include "runtime/four_char_code.hpp"

using namespace br::literals;
using namespace pv::literals;

extern "C" {
constinit const BRStringRef kPVTextFormatDescriptionExtension_DisplayFlags = "DisplayFlags"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_BackgroundColor = "BackgroundColor"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_DefaultTextBox = "DefaultTextBox"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_DefaultStyle = "DefaultStyle"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_HorizontalJustification =
    "HorizontalJustification"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_VerticalJustification =
    "VerticalJustification"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_TextJustification = "TextJustification"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_FontTable = "FontTable"_br;
constinit const BRStringRef kPVTextFormatDescriptionExtension_DefaultFontName = "DefaultFontName"_br;
constinit const BRStringRef kPVTextFormatDescriptionRect_Top = "Top"_br;
constinit const BRStringRef kPVTextFormatDescriptionRect_Left = "Left"_br;
constinit const BRStringRef kPVTextFormatDescriptionRect_Bottom = "Bottom"_br;
constinit const BRStringRef kPVTextFormatDescriptionRect_Right = "Right"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_StartChar = "StartChar"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_EndChar = "EndChar"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_Font = "Font"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_FontFace = "FontFace"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_FontSize = "FontSize"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_ForegroundColor = "ForegroundColor"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_Height = "Height"_br;
constinit const BRStringRef kPVTextFormatDescriptionStyle_Ascent = "Ascent"_br;
constinit const BRStringRef kPVTextFormatDescriptionColor_Red = "Red"_br;
constinit const BRStringRef kPVTextFormatDescriptionColor_Green = "Green"_br;
constinit const BRStringRef kPVTextFormatDescriptionColor_Blue = "Blue"_br;
constinit const BRStringRef kPVTextFormatDescriptionColor_Alpha = "Alpha"_br;
}

namespace {

PVStatus missing() { return pv::signalError(kPVFormatDescriptionError_InvalidParameter); }

// The checks that every getter makes first.
PVStatus check(PVFormatDescriptionRef description) {
  const PVMediaType type = PVFormatDescriptionGetMediaType(description);
  if (type != kPVMediaType_Text && type != kPVMediaType_Subtitle) return missing();
  const PVFourCharCode subType = PVFormatDescriptionGetMediaSubType(description);
  const bool webVTT = subType == "wvtt"_4cc || subType == "xvtt"_4cc || subType == "svtt"_4cc;
  return webVTT ? kPVTextFormatDescriptionError_NoDefaults : 0;
}

bool isMovieText(PVFormatDescriptionRef description) {
  return PVFormatDescriptionGetMediaSubType(description) == "text"_4cc;
}

BRDictionaryRef dictionaryOf(PVFormatDescriptionRef description, BRStringRef key) {
  return pv::asDictionary(PVFormatDescriptionGetExtension(description, key));
}

// A colour component as a fraction of the widest value that the format has.
template <class Word>
bool getComponent(BRDictionaryRef color, BRStringRef key, double* out) {
  Word value;
  if (!pv::getInteger(color, key, &value)) return false;
  *out = value / static_cast<double>(std::numeric_limits<Word>::max());
  return true;
}

template <class Word>
bool getColor(BRDictionaryRef style, PVTextColor* out) {
  BRDictionaryRef color =
      pv::asDictionary(BRDictionaryGetValue(style, kPVTextFormatDescriptionStyle_ForegroundColor));
  PVTextColor found;
  if (!getComponent<Word>(color, kPVTextFormatDescriptionColor_Red, &found.red) ||
      !getComponent<Word>(color, kPVTextFormatDescriptionColor_Green, &found.green) ||
      !getComponent<Word>(color, kPVTextFormatDescriptionColor_Blue, &found.blue) ||
      !getComponent<Word>(color, kPVTextFormatDescriptionColor_Alpha, &found.alpha))
    return false;
  *out = found;
  return true;
}

template <class Word>
bool getFontSize(BRDictionaryRef style, double* out) {
  Word size;
  if (!pv::getInteger(style, kPVTextFormatDescriptionStyle_FontSize, &size)) return false;
  *out = size;
  return true;
}

bool getFontFace(BRDictionaryRef style, bool* boldOut, bool* italicOut, bool* underlineOut) {
  int8_t face;
  if (!pv::getInteger(style, kPVTextFormatDescriptionStyle_FontFace, &face)) return false;
  if (boldOut) *boldOut = face & kPVTextFontFace_Bold;
  if (italicOut) *italicOut = face & kPVTextFontFace_Italic;
  if (underlineOut) *underlineOut = face & kPVTextFontFace_Underline;
  return true;
}

}  // namespace

PVStatus PVTextFormatDescriptionGetDisplayFlags(PVFormatDescriptionRef description, int32_t* flagsOut) {
  if (PVStatus status = check(description)) return status;
  if (!flagsOut) return 0;
  return pv::getInteger(PVFormatDescriptionGetExtensions(description),
                        kPVTextFormatDescriptionExtension_DisplayFlags, flagsOut)
             ? 0
             : missing();
}

PVStatus PVTextFormatDescriptionGetJustification(PVFormatDescriptionRef description, int8_t* horizontalOut,
                                                 int8_t* verticalOut) {
  if (PVStatus status = check(description)) return status;
  BRDictionaryRef extensions = PVFormatDescriptionGetExtensions(description);
  const bool movieText = isMovieText(description);
  if (horizontalOut && !pv::getInteger(extensions,
                                       movieText ? kPVTextFormatDescriptionExtension_TextJustification
                                                 : kPVTextFormatDescriptionExtension_HorizontalJustification,
                                       horizontalOut))
    return missing();
  if (!verticalOut) return 0;
  if (movieText) {
    *verticalOut = 0;
    return 0;
  }
  return pv::getInteger(extensions, kPVTextFormatDescriptionExtension_VerticalJustification, verticalOut)
             ? 0
             : missing();
}

PVStatus PVTextFormatDescriptionGetDefaultTextBox(PVFormatDescriptionRef description, bool originIsAtTopLeft,
                                                  double heightOfTextTrack, PVTextRect* boxOut) {
  if (PVStatus status = check(description)) return status;
  if (!boxOut) return 0;
  BRDictionaryRef box = dictionaryOf(description, kPVTextFormatDescriptionExtension_DefaultTextBox);
  int16_t top, left, bottom, right;
  if (!pv::getInteger(box, kPVTextFormatDescriptionRect_Top, &top) ||
      !pv::getInteger(box, kPVTextFormatDescriptionRect_Left, &left) ||
      !pv::getInteger(box, kPVTextFormatDescriptionRect_Bottom, &bottom) ||
      !pv::getInteger(box, kPVTextFormatDescriptionRect_Right, &right))
    return missing();
  const double y = originIsAtTopLeft ? top : heightOfTextTrack - top;
  *boxOut = {static_cast<double>(left), y, static_cast<double>(right - left),
             static_cast<double>(bottom - top)};
  return 0;
}

PVStatus PVTextFormatDescriptionGetDefaultStyle(PVFormatDescriptionRef description, uint16_t* localFontIDOut,
                                                bool* boldOut, bool* italicOut, bool* underlineOut,
                                                double* fontSizeOut, PVTextColor* colorOut) {
  if (PVStatus status = check(description)) return status;
  BRDictionaryRef style = dictionaryOf(description, kPVTextFormatDescriptionExtension_DefaultStyle);
  if (!style) return missing();
  const bool movieText = isMovieText(description);
  if (localFontIDOut && !pv::getInteger(style, kPVTextFormatDescriptionStyle_Font, localFontIDOut))
    return missing();
  if ((boldOut || italicOut || underlineOut) && !getFontFace(style, boldOut, italicOut, underlineOut))
    return missing();
  if (fontSizeOut && !(movieText ? getFontSize<int16_t> : getFontSize<int8_t>)(style, fontSizeOut))
    return missing();
  if (colorOut && !(movieText ? getColor<uint16_t> : getColor<uint8_t>)(style, colorOut)) return missing();
  return 0;
}

PVStatus PVTextFormatDescriptionGetFontName(PVFormatDescriptionRef description, uint16_t localFontID,
                                            BRStringRef* fontNameOut) {
  if (PVStatus status = check(description)) return status;
  if (!fontNameOut) return missing();
  *fontNameOut = nullptr;
  if (isMovieText(description)) {
    *fontNameOut = pv::asString(
        PVFormatDescriptionGetExtension(description, kPVTextFormatDescriptionExtension_DefaultFontName));
  } else {
    char text[8];
    std::snprintf(text, sizeof text, "%d", localFontID);
    const auto key =
        br::Ref<const BRString>::adopt(BRStringCreateWithCString(nullptr, text, kBRStringEncodingUTF8));
    BRDictionaryRef table = dictionaryOf(description, kPVTextFormatDescriptionExtension_FontTable);
    *fontNameOut = pv::asString(BRDictionaryGetValue(table, key.get()));
  }
  return *fontNameOut ? 0 : missing();
}
