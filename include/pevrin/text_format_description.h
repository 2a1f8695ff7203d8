/* Text and subtitle format descriptions: media types 'text' and 'sbtl'. They are generic descriptions
 * (<pevrin/format_description.h>) whose extensions hold the defaults that samples are shown with. The functions here
 * read them; a description made from a sample description has them (<pevrin/text_description.h>).
 *
 * Subtype 'text' is the movie's own text: 16-bit colours, one justification, one font name. Every other subtype, 'tx3g'
 * among them, is timed text: 8-bit colours, two justifications, a font table. The WebVTT subtypes 'wvtt', 'xvtt' and
 * 'svtt' have no such defaults: every function answers kPVTextFormatDescriptionError_NoDefaults for them, which is not
 * signalled.
 *
 * Every function answers kPVFormatDescriptionError_InvalidParameter for NULL, for another media type, and when an
 * extension that it needs is missing. An output may be NULL, and then needs no extension, except where it is said to be
 * required. Numbers are narrowed to the width that the format has: a font size of 200 in timed text reads as -56.
 * Threads: any.
 *
 *   uint16_t font;
 *   double size;
 *   if (PVTextFormatDescriptionGetDefaultStyle(subtitles, &font, NULL, NULL, NULL, &size, NULL) == 0)
 *     PVTextFormatDescriptionGetFontName(subtitles, font, &name); */
#ifndef PEVRIN_TEXT_FORMAT_DESCRIPTION_H
#define PEVRIN_TEXT_FORMAT_DESCRIPTION_H

#include <pevrin/format_description.h>

PV_BEGIN_DECLS

enum {
  /* The subtype has no defaults to ask for. */
  kPVTextFormatDescriptionError_NoDefaults = -12718
};

/* Bits of a font face. */
enum { kPVTextFontFace_Bold = 1, kPVTextFontFace_Italic = 2, kPVTextFontFace_Underline = 4 };

/* Extension keys. */

/* "DisplayFlags": a number, signed 32-bit. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_DisplayFlags;
/* "BackgroundColor": a dictionary of the colour keys. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_BackgroundColor;
/* "DefaultTextBox": a dictionary of the rectangle keys. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_DefaultTextBox;
/* "DefaultStyle": a dictionary of the style keys. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_DefaultStyle;
/* "HorizontalJustification", "VerticalJustification": numbers, signed 8-bit; timed text. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_HorizontalJustification;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_VerticalJustification;
/* "TextJustification": a number, signed 32-bit; 'text'. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_TextJustification;
/* "FontTable": a dictionary from local font IDs as decimal strings to font names; timed text. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_FontTable;
/* "DefaultFontName": a string; 'text'. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionExtension_DefaultFontName;

/* Of a rectangle: "Top", "Left", "Bottom", "Right", numbers, signed 16-bit. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionRect_Top;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionRect_Left;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionRect_Bottom;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionRect_Right;

/* Of a style: "StartChar", "EndChar" (timed text), "Font" (a local font ID, signed 16-bit), "FontFace" (its bits,
 * signed
 * 8-bit), "FontSize", "ForegroundColor" (a dictionary of the colour keys), "Height" and "Ascent" ('text'). */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_StartChar;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_EndChar;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_Font;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_FontFace;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_FontSize;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_ForegroundColor;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_Height;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionStyle_Ascent;

/* Of a colour: "Red", "Green", "Blue", "Alpha", numbers, 0 to 65535 in 'text', 0 to 255 in timed text. */
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionColor_Red;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionColor_Green;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionColor_Blue;
PV_EXPORT extern const BRStringRef kPVTextFormatDescriptionColor_Alpha;

/* In pixels of the text track. */
typedef struct PVTextRect {
  double x;
  double y;
  double width;
  double height;
} PVTextRect;

/* Each 0 to 1. */
typedef struct PVTextColor {
  double red;
  double green;
  double blue;
  double alpha;
} PVTextColor;

/* The display flags, as kPVTextFormatDescriptionExtension_DisplayFlags has them. */
PV_EXPORT PVStatus PVTextFormatDescriptionGetDisplayFlags(PVFormatDescriptionRef description, int32_t *flagsOut);

/* 'text': the low 8 bits of TextJustification, and 0 for the vertical one. When the vertical one is missing, the
 * horizontal one has been written all the same. */
PV_EXPORT PVStatus PVTextFormatDescriptionGetJustification(PVFormatDescriptionRef description, int8_t *horizontalOut,
                                                           int8_t *verticalOut);

/* The default text box. y is its top edge, measured from the track's top when originIsAtTopLeft, else from its bottom
 * (heightOfTextTrack - top). */
PV_EXPORT PVStatus PVTextFormatDescriptionGetDefaultTextBox(PVFormatDescriptionRef description, bool originIsAtTopLeft,
                                                            double heightOfTextTrack, PVTextRect *boxOut);

/* The default style. When an entry is missing, the outputs before it have been written all the same. */
PV_EXPORT PVStatus PVTextFormatDescriptionGetDefaultStyle(PVFormatDescriptionRef description,
                                                          uint16_t *localFontIDOut, bool *boldOut, bool *italicOut,
                                                          bool *underlineOut, double *fontSizeOut,
                                                          PVTextColor *colorOut);

/* The name of a font, borrowed. 'text' has one, whatever the ID. fontNameOut is required, and NULL when there is no
 * such name. */
PV_EXPORT PVStatus PVTextFormatDescriptionGetFontName(PVFormatDescriptionRef description, uint16_t localFontID,
                                                      BRStringRef *fontNameOut);

PV_END_DECLS

#endif
