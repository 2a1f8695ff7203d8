/* Audio format descriptions: an AudioStreamBasicDescription, and where there are any the layout of the channels and the
 * magic cookie, what a decoder must have before the first packet.
 *
 * An audio description is a format description (<pevrin/format_description.h>) of media type 'soun'. Its media subtype
 * is the format ID ('lpcm', 'aac ').
 *
 * A stream may be decoded in several ways: AAC with spectral band replication plays on a decoder that knows only its
 * core. Which ways there are (the format list), which of them can be decoded here, and whether two channel layouts mean
 * the same, are questions to Tonvik, the audio format service (<tonvik/audio_format.h>). It is loaded when it is first
 * needed: "libtonvik.so.0" from beside this library or where the system looks; or the file that PEVRIN_TONVIK_PATH in
 * the environment names, and then no other (named "", there is none). That it could not be loaded is said once on
 * standard error. Without it a description has one format, its own; no format is known to be decodable; and two
 * channel layouts are equal only in one and the same description.
 *
 * Who owns what: a description copies all it is given; what the getters return is lent by it. Getters that are given
 * NULL, or a description of another media type, signal kPVFormatDescriptionError_InvalidParameter and answer NULL, 0
 * and sizes of 0. Outputs may be NULL throughout. Sizes are in bytes.
 *
 * Threads: any, as for all format descriptions. The format list is made when it is first asked for; when memory runs
 * out over it, the next one who asks tries again.
 *
 *   PVAudioFormatDescriptionRef audio;
 *   PVStatus status = PVAudioFormatDescriptionCreate(NULL, &description, 0, NULL, cookieSize, cookie, NULL, &audio);
 *   const AudioFormatListItem *best = status == 0 ? PVAudioFormatDescriptionGetRichestDecodableFormat(audio) : NULL;
 *   if (best) openOutput(best->streamBasicDescription.sampleRate, best->streamBasicDescription.channelsPerFrame);
 */
#ifndef PEVRIN_AUDIO_FORMAT_DESCRIPTION_H
#define PEVRIN_AUDIO_FORMAT_DESCRIPTION_H

#include <pevrin/format_description.h>
#include <tonvik/audio_types.h>

PV_BEGIN_DECLS

/* A format description of media type 'soun'. */
typedef PVFormatDescriptionRef PVAudioFormatDescriptionRef;

/* Tonvik could not be loaded. */
enum { kPVAudioFormatDescriptionError_ServiceUnavailable = -2030 };

/* Creates a description. A layout or cookie of size 0, or NULL, is none; extensions may be NULL. The sample rate must
 * not be 0; nothing else is checked: a layout whose size does not hold what it declares is kept and given back, but
 * passed over when channels are compared or counted.
 * Statuses: InvalidParameter (streamBasicDescription or descriptionOut null; sample rate 0; extensions no property
 * list); AllocationFailed. */
PV_EXPORT PVStatus PVAudioFormatDescriptionCreate(BRAllocatorRef allocator,
                                                  const AudioStreamBasicDescription *streamBasicDescription,
                                                  size_t layoutSize, const AudioChannelLayout *layout,
                                                  size_t magicCookieSize, const void *magicCookie,
                                                  BRDictionaryRef extensions,
                                                  PVAudioFormatDescriptionRef *descriptionOut);

/* What the description was created with. A 'soun' description that PVFormatDescriptionCreate made is all zeros. */
PV_EXPORT const AudioStreamBasicDescription *PVAudioFormatDescriptionGetStreamBasicDescription(
    PVAudioFormatDescriptionRef description);
PV_EXPORT const void *PVAudioFormatDescriptionGetMagicCookie(PVAudioFormatDescriptionRef description, size_t *sizeOut);
PV_EXPORT const AudioChannelLayout *PVAudioFormatDescriptionGetChannelLayout(PVAudioFormatDescriptionRef description,
                                                                             size_t *sizeOut);
/* The channels per frame of the stream basic description. */
PV_EXPORT uint32_t PVAudioFormatDescriptionGetChannelCount(PVAudioFormatDescriptionRef description);

/* The ways to decode the stream, the richest first; *sizeOut is a multiple of 44. Where Tonvik knows none, the
 * description's own, with the tag of its layout, or kAudioChannelLayoutTag_Unknown when that has none. NULL, and
 * AllocationFailed signalled, when memory runs out: so it is with all that follows. */
PV_EXPORT const AudioFormatListItem *PVAudioFormatDescriptionGetFormatList(PVAudioFormatDescriptionRef description,
                                                                           size_t *sizeOut);

/* The last of the list: what a decoder of the plainest kind makes of the stream. */
PV_EXPORT const AudioFormatListItem *PVAudioFormatDescriptionGetMostCompatibleFormat(
    PVAudioFormatDescriptionRef description);

/* The first of the list that can be decoded; NULL when none can. When Tonvik cannot tell, NULL, with its status or
 * ServiceUnavailable signalled. */
PV_EXPORT const AudioFormatListItem *PVAudioFormatDescriptionGetRichestDecodableFormat(
    PVAudioFormatDescriptionRef description);

/* What PVAudioFormatDescriptionEqual compares. */
typedef uint32_t PVAudioFormatDescriptionMask;
enum {
  PVAudioFormatDescriptionMask_StreamBasicDescription = 1u << 0,
  PVAudioFormatDescriptionMask_MagicCookie = 1u << 1,
  PVAudioFormatDescriptionMask_ChannelLayout = 1u << 2,
  PVAudioFormatDescriptionMask_Extensions = 1u << 3, /* nothing is compared, and the answer is always "equal" */
  PVAudioFormatDescriptionMask_All = 15
};

/* Whether two audio descriptions are equal in what the mask asks for; *equalityMaskOut tells in which of it they are.
 * Bits beyond All are dropped.
 *
 * Stream basic descriptions are compared in the form of the richest format, byte by byte but for the reserved field. So
 * are layouts when that format has a tag, otherwise the descriptions' own ones; they are equal when neither has one or
 * Tonvik finds that they mean the same. Cookies are equal when their bytes are.
 * False, the mask 0, and InvalidParameter signalled, when either is NULL or no audio description.
 *
 * PVFormatDescriptionEqual and BREqual compare media types, format IDs and All. Extensions have no say, nor have keys
 * to be ignored. */
PV_EXPORT bool PVAudioFormatDescriptionEqual(PVAudioFormatDescriptionRef a, PVAudioFormatDescriptionRef b,
                                             PVAudioFormatDescriptionMask equalityMask,
                                             PVAudioFormatDescriptionMask *equalityMaskOut);

PV_END_DECLS

#endif
