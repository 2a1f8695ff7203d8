/* Sample descriptions, for sibling media layers: the functions of <pevrin/sample_description.h> and of the headers it
 * names, under their internal names. Each is the same function. */
#ifndef KIV_SAMPLE_DESCRIPTION_H
#define KIV_SAMPLE_DESCRIPTION_H

#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/sample_description.h>

PV_BEGIN_DECLS

/* The functions PVSwapBigEndian…DescriptionToHost and PVSwapHostEndian…DescriptionToBig: BtoN turns a record from
 * big-endian to the machine's (native) order, NtoB back. */
PV_EXPORT PVStatus KivEndianSoundDescriptionData_BtoN(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianSoundDescriptionData_NtoB(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianImageDescriptionData_BtoN(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianImageDescriptionData_NtoB(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianTextDescriptionData_BtoN(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianTextDescriptionData_NtoB(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianClosedCaptionDescriptionData_BtoN(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianClosedCaptionDescriptionData_NtoB(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianTimeCodeDescriptionData_BtoN(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus KivEndianTimeCodeDescriptionData_NtoB(uint8_t *bytes, size_t size);

PV_EXPORT PVStatus KivAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivAudioFormatDescriptionCreateFromBigEndianSoundDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_EXPORT PVStatus KivVideoFormatDescriptionCreateFromBigEndianImageDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivVideoFormatDescriptionCreateFromBigEndianImageDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_EXPORT PVStatus KivTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_EXPORT PVStatus KivClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_EXPORT PVStatus KivTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);
PV_EXPORT PVStatus KivTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_END_DECLS

#endif
