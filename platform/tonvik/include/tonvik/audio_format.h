/* Tonvik: questions about audio formats.
 *
 * A question is a property, asked with a specifier: the record that the question is about. The answer is bytes, of a
 * size that AudioFormatGetPropertyInfo tells beforehand. Layouts that are asked about must be whole: what they declare
 * is there. What a decoder can do is taken from the libavcodec that is really there.
 *
 *   property   specifier                    answer
 *   'acif'     none                         AudioFormatID[]: what can be decoded, ascending
 *   'flst'     AudioFormatInfo              AudioFormatListItem[]: the ways to play a stream, richest first
 *   'fpfl'     AudioFormatListItem[]        uint32_t: the index of the first that can be decoded
 *   'cheq'     two AudioChannelLayout *     uint32_t: 1 when they mean the same channels in the same order, else 0
 *   'lonm'     AudioChannelLayout           BRStringRef: a name for people, which the caller releases
 *
 * Statuses stand beside each property below; every question may also give kAudioFormatUnspecifiedError for a null
 * pointer, kAudioFormatBadSpecifierSizeError and kAudioFormatBadPropertySizeError. Nothing is written on failure.
 *
 * Threads: any. Nothing here locks or keeps state.
 *
 *   AudioFormatInfo info = {description, cookie, cookieSizeBytes};
 *   AudioFormatListItem items[kAudioFormatListMaxItems];
 *   uint32_t sizeBytes = sizeof items;
 *   if (AudioFormatGetProperty(kAudioFormatProperty_FormatList, sizeof info, &info, &sizeBytes, items) == 0)
 *     play(items[0].streamBasicDescription);   // there is at least one */
#ifndef TONVIK_AUDIO_FORMAT_H
#define TONVIK_AUDIO_FORMAT_H

#include <tonvik/audio_types.h>

BR_BEGIN_DECLS

/* 0 is success; the failures are four-character codes. */
typedef int32_t AudioStatus;
enum {
  kAudioFormatUnsupportedPropertyError = 0x70726F70,   /* 'prop' no such property */
  kAudioFormatBadPropertySizeError = 0x2173697A,       /* '!siz' the answer does not fit into the size given */
  kAudioFormatBadSpecifierSizeError = 0x21737063,      /* '!spc' the specifier has not the size of its record */
  kAudioFormatUnsupportedDataFormatError = 0x666D743F, /* 'fmt?' nothing is known of the format, or it is damaged */
  kAudioFormatUnspecifiedError = 0x77686174            /* 'what' a required pointer is null, or memory ran out */
};

/* The specifier of 'flst'. The cookie is what a file gives a decoder beforehand; it may be null, its size 0. */
typedef struct AudioFormatInfo {
  AudioStreamBasicDescription streamBasicDescription;
  const void *magicCookie;
  uint32_t magicCookieSize; /* in bytes */
} AudioFormatInfo;

/* What can be asked about a format. */
typedef uint32_t AudioFormatPropertyID;
enum {
  /* 'acif'. */
  kAudioFormatProperty_DecodeFormatIDs = 0x61636966,

  /* 'flst'. AAC in layers (ISO/IEC 14496-3 1.6) is one item for each layer that can be left out: with parametric stereo
   * (kAudioFormatMPEG4AAC_HE_V2), with spectral band replication (..._HE), and the core (kAudioFormatMPEG4AAC), which
   * always comes last. Each has the sample rate, frames per packet and channels of its decoded sound; flags and byte
   * counts are 0. What the cookie says holds; the description is asked only whether the format is one of these three,
   * and for what the cookie leaves unsaid:
   *  - the cookie is an AudioSpecificConfig, or an ES_Descriptor or the payload of an 'esds' atom with one inside;
   *  - layers are signalled explicitly, in front of the core's object type or behind it; if neither, and the
   *    description is of HE or HE v2, the layers are taken as there, at twice the core's sample rate;
   *  - an extension at neither the core's sample rate nor twice that, and parametric stereo over other than one
   *    channel, do not exist in the standard: such a layer is not listed;
   *  - a program_config_element gives the number of channels, and a tag when it is an arrangement that has one;
   *    otherwise the tag is kAudioChannelLayoutTag_Unknown.
   * Every other format that can be decoded, AAC without a cookie, and object types other than Main, LC, SSR and LTP
   * have one item: the description itself with kAudioChannelLayoutTag_Unknown.
   * UnsupportedDataFormat: another format; an AAC cookie that cannot be read. */
  kAudioFormatProperty_FormatList = 0x666C7374,

  /* 'fpfl'. UnsupportedDataFormat: none of them can be decoded. */
  kAudioFormatProperty_FirstPlayableFormatFromList = 0x6670666C,

  /* 'cheq'. Tag, bitmap and descriptions are put on a par: the same labels in the same order are equal. In a layout of
   * one channel Mono and Center are the same. Channels given by coordinates are equal when those are. Tags that are not
   * among the constants, and kAudioChannelLayoutTag_Unknown, are equal only to themselves. */
  kAudioFormatProperty_AreChannelLayoutsEquivalent = 0x63686571,

  /* 'lonm'. "5.1 (C L R Ls Rs LFE)"; without a common name the channels alone, "L R Lw Rw".
   * UnsupportedDataFormat: the tag is not among the constants, or there are no channels. */
  kAudioFormatProperty_ChannelLayoutName = 0x6C6F6E6D
};

/* No format list is longer. */
enum { kAudioFormatListMaxItems = 3 };

/* The size in bytes of a property's value. */
BR_EXPORT AudioStatus AudioFormatGetPropertyInfo(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                                 const void *specifier, uint32_t *sizeOut);

/* The value. *ioSize is the room there is, and then the bytes written. */
BR_EXPORT AudioStatus AudioFormatGetProperty(AudioFormatPropertyID propertyID, uint32_t specifierSize,
                                             const void *specifier, uint32_t *ioSize, void *valueOut);

BR_END_DECLS

#endif
