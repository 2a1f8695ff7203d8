/* Audio format descriptions, for sibling media layers: a format of the list together with the layout of its channels.
 *
 * The layout is the description's own one, when that is for as many channels as the format has; otherwise it is the
 * tag of the format, as a layout of 12 bytes; otherwise, when the format has no tag, there is none. It is lent by the
 * description. With no format, the layout is NULL and its size 0. Either output may be NULL.
 *
 * Threads, and what is signalled: as for <pevrin/audio_format_description.h>.
 *
 *   size_t layoutSize;
 *   const AudioChannelLayout *layout;
 *   const AudioFormatListItem *format =
 *       KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(description, &layoutSize, &layout);
 *   if (format) configureDecoder(&format->streamBasicDescription, layout, layoutSize); */
#ifndef KIV_AUDIO_FORMAT_DESCRIPTION_H
#define KIV_AUDIO_FORMAT_DESCRIPTION_H

#include <kiv/format_description.h>
#include <pevrin/audio_format_description.h>

PV_BEGIN_DECLS

/* Of PVAudioFormatDescriptionGetRichestDecodableFormat. */
PV_EXPORT const AudioFormatListItem *KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(
    PVAudioFormatDescriptionRef description, size_t *layoutSizeOut, const AudioChannelLayout **layoutOut);

/* Of PVAudioFormatDescriptionGetMostCompatibleFormat. */
PV_EXPORT const AudioFormatListItem *KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(
    PVAudioFormatDescriptionRef description, size_t *layoutSizeOut, const AudioChannelLayout **layoutOut);

PV_END_DECLS

#endif
