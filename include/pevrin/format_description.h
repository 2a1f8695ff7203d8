/* Format descriptions: what kind of media a sample buffer holds.
 *
 * A description is a media type ('vide', 'soun' ...), a media subtype ('avc1', 'lpcm' ...), a dictionary of extensions
 * or none, and what the media type adds of its own: a size in pixels, an audio record. The specialisations have headers
 * of their own (<pevrin/video_format_description.h>); every function here works on all of them. A media type that has
 * no specialisation is described by type, subtype and extensions alone.
 *
 * Who owns what: a description keeps a deep immutable copy of the extensions it is created with (an immutable property
 * list, <bedra/property_list.h>, of the same allocator is shared, not copied). Whatever a getter returns is lent by the
 * description.
 *
 * Threads: a description never changes, so that any number of threads may use and compare it, and it may be shared
 * freely instead of being copied. No function here waits for a lock, but for the first creation of each media type.
 *
 * The hash of a description (BRHash) is made from media type and subtype; %@ and BRCopyDescription show all of it.
 *
 *   PVFormatDescriptionRef subtitles;
 *   PVStatus status = PVFormatDescriptionCreate(NULL, kPVMediaType_Subtitle, 'tx3g', extensions, &subtitles);
 *   BRStringRef vendor = (BRStringRef)PVFormatDescriptionGetExtension(subtitles, kPVFormatDescriptionExtension_Vendor);
 *   if (PVFormatDescriptionEqual(subtitles, previous)) continueWithTheSameRenderer();
 *   BRRelease(subtitles);
 */
#ifndef PEVRIN_FORMAT_DESCRIPTION_H
#define PEVRIN_FORMAT_DESCRIPTION_H

#include <bedra/runtime.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

/* A format description of any media type. */
typedef struct PVFormatDescription *PVFormatDescriptionRef;

/* The kinds of media. A media type of one's own is any other four-character code. */
typedef PVFourCharCode PVMediaType;
enum {
  kPVMediaType_Video = 0x76696465,         /* 'vide' */
  kPVMediaType_Audio = 0x736F756E,         /* 'soun' */
  kPVMediaType_Muxed = 0x6D757878,         /* 'muxx' */
  kPVMediaType_Text = 0x74657874,          /* 'text' */
  kPVMediaType_ClosedCaption = 0x636C6370, /* 'clcp' */
  kPVMediaType_Subtitle = 0x7362746C,      /* 'sbtl' */
  kPVMediaType_Metadata = 0x6D657461,      /* 'meta' */
  kPVMediaType_TimeCode = 0x746D6364       /* 'tmcd' */
};

enum {
  /* A required pointer is null, a media type or codec is 0, or the extensions are no property list. */
  kPVFormatDescriptionError_InvalidParameter = -12710,
  /* Memory ran out. */
  kPVFormatDescriptionError_AllocationFailed = -12711
};

/* The runtime type "PVFormatDescription", of the descriptions of all media types. */
PV_EXPORT BRTypeID PVFormatDescriptionGetTypeID(void);

/* Creates a description. extensions may be NULL; it is a property list, whose keys are often those below. The media
 * types with a specialisation are better made by its own creating functions, which also fill in what it adds: here that
 * is left zero.
 * Statuses: InvalidParameter (descriptionOut null; mediaType 0; extensions no dictionary or no property list);
 * AllocationFailed. */
PV_EXPORT PVStatus PVFormatDescriptionCreate(BRAllocatorRef allocator, PVMediaType mediaType,
                                             PVFourCharCode mediaSubType, BRDictionaryRef extensions,
                                             PVFormatDescriptionRef *descriptionOut);

/* Creates a description of a multiplexed stream: media type 'muxx', the mux type as its subtype. Two of them are equal
 * when their mux types are equal, whatever their extensions.
 * Statuses: InvalidParameter (muxType 0; descriptionOut null; extensions as above); AllocationFailed. */
PV_EXPORT PVStatus PVMuxedFormatDescriptionCreate(BRAllocatorRef allocator, PVFourCharCode muxType,
                                                  BRDictionaryRef extensions,
                                                  PVFormatDescriptionRef *descriptionOut);

/* 0 for NULL. */
PV_EXPORT PVMediaType PVFormatDescriptionGetMediaType(PVFormatDescriptionRef description);
PV_EXPORT PVFourCharCode PVFormatDescriptionGetMediaSubType(PVFormatDescriptionRef description);

/* All extensions, borrowed; NULL when there are none, and for NULL. */
PV_EXPORT BRDictionaryRef PVFormatDescriptionGetExtensions(PVFormatDescriptionRef description);

/* One extension, borrowed; NULL when it is not there, and for NULL. */
PV_EXPORT BRTypeRef PVFormatDescriptionGetExtension(PVFormatDescriptionRef description, BRStringRef key);

/* True when media types, subtypes, what the media type adds, and the extensions are equal. Two NULLs are equal, NULL
 * and a description are not. BREqual answers the same. */
PV_EXPORT bool PVFormatDescriptionEqual(PVFormatDescriptionRef a, PVFormatDescriptionRef b);

/* The same, but some extensions are passed over: those under extensionKeysToIgnore, and within the dictionary of
 * SampleDescriptionExtensionAtoms those under sampleDescriptionExtensionAtomKeysToIgnore. Each is a string, an array of
 * strings or NULL; any other object passes nothing over.
 *
 * With either of them given, the verbatim forms (VerbatimSampleDescription, VerbatimISOSampleEntry) are passed over as
 * well: they repeat what may be ignored. A description without extensions then counts as one with none left. */
PV_EXPORT bool PVFormatDescriptionEqualIgnoringExtensionKeys(PVFormatDescriptionRef a, PVFormatDescriptionRef b,
                                                             BRTypeRef extensionKeysToIgnore,
                                                             BRTypeRef sampleDescriptionExtensionAtomKeysToIgnore);

/* Extension keys that several media types share. The values are property lists. */

/* "xq.kiv.format_description.original_compression_settings": a dictionary, how the encoder was set. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_OriginalCompressionSettings;
/* "SampleDescriptionExtensionAtoms": a dictionary of the atoms inside a movie's sample description. Its keys are atom
 * types as strings of four characters ("avcC", "esds"), its values their payloads as data, or arrays of data when an
 * atom occurs more than once. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms;
/* "VerbatimSampleDescription": data, the whole sample description of a movie, as it was read. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_VerbatimSampleDescription;
/* The same key: another name for VerbatimSampleDescription, of video. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_VerbatimImageDescription;
/* "VerbatimISOSampleEntry": data, the whole sample entry of an ISO file, as it was read. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_VerbatimISOSampleEntry;
/* "FormatName": a string for people. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_FormatName;
/* "Depth": a number, bits of a pixel, as an image description has it. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_Depth;
/* "Version", "RevisionLevel": numbers, of the sample description. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_Version;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_RevisionLevel;
/* "Vendor": a string of four characters, who made the encoder. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_Vendor;
/* "TemporalQuality", "SpatialQuality": numbers, 0 to 1024. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_TemporalQuality;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_SpatialQuality;
/* "FullRangeVideo": a boolean, true when samples use their whole range of values. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_FullRangeVideo;

PV_END_DECLS

#endif
