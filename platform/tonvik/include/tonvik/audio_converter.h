/* Tonvik: converters between formats, and audio devices. This service has neither: it answers questions about formats
 * (<tonvik/audio_format.h>) and plays nothing. The functions are here so that a program can ask, and learn it from a
 * status instead of a missing name.
 *
 * Threads: any.
 *
 *   AudioConverterRef converter;
 *   if (AudioConverterNew(&from, &to, &converter) == kAudioConverterErr_FormatNotSupported) decodeByOtherMeans(); */
#ifndef TONVIK_AUDIO_CONVERTER_H
#define TONVIK_AUDIO_CONVERTER_H

#include <tonvik/audio_format.h>

BR_BEGIN_DECLS

/* A converter, and what can be asked of it. */
typedef struct AudioConverter *AudioConverterRef;
typedef uint32_t AudioConverterPropertyID;

enum {
  kAudioConverterErr_FormatNotSupported = 0x666D743F, /* 'fmt?' no conversion between these formats: none, here */
  kAudioConverterErr_InvalidConverter = 0x21636E76,   /* '!cnv' no converter: there is none that it could be */
  kAudioDeviceErr_BadDevice = 0x21646576              /* '!dev' no such device: none at all, here */
};

/* FormatNotSupported for every pair of formats; *converterOut, unless converterOut is null, is then null. */
BR_EXPORT AudioStatus AudioConverterNew(const AudioStreamBasicDescription *source,
                                        const AudioStreamBasicDescription *destination,
                                        AudioConverterRef *converterOut);

/* All InvalidConverter; nothing is written. */
BR_EXPORT AudioStatus AudioConverterDispose(AudioConverterRef converter);
BR_EXPORT AudioStatus AudioConverterGetProperty(AudioConverterRef converter, AudioConverterPropertyID propertyID,
                                                uint32_t *ioSize, void *valueOut);
BR_EXPORT AudioStatus AudioConverterSetProperty(AudioConverterRef converter, AudioConverterPropertyID propertyID,
                                                uint32_t size, const void *value);

/* A property of a device's channel, of its input or its output. BadDevice; nothing is written. */
BR_EXPORT AudioStatus AudioDeviceGetProperty(uint32_t device, uint32_t channel, bool isInput, uint32_t propertyID,
                                             uint32_t *ioSize, void *valueOut);

BR_END_DECLS

#endif
