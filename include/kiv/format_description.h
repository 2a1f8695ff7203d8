/* Format descriptions, for the implementers of media types.
 *
 * A media type that adds something of its own to a description registers an entry, once: how many bytes it adds, and
 * how they are compared, described and given up. Its creating function then makes the common object, and fills the
 * bytes in before it hands the description out; from then on nothing changes them.
 *
 *   static bool reelEqual(PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef keys, BRTypeRef atoms);
 *   static const KivDerivedFormatDescriptionCallbacks entry = {0, sizeof(Reel), reelEqual, NULL, NULL};
 *
 *   PVStatus status = KivDerivedFormatDescriptionRegister('reel', &entry);
 *   if (status == 0) status = KivDerivedFormatDescriptionCreate(allocator, 'reel', gauge, extensions, &description);
 *   if (status == 0) ((Reel *)KivDerivedFormatDescriptionGetDerivedStorage(description))->feet = 1000;
 *
 * A description keeps to the entry that it was created with. One of a media type that got its entry only afterwards
 * stays generic, and differs from those created since.
 *
 * Threads: any. Registering takes a lock; looking an entry up, which every creation does, takes none. */
#ifndef KIV_FORMAT_DESCRIPTION_H
#define KIV_FORMAT_DESCRIPTION_H

#include <pevrin/format_description.h>

PV_BEGIN_DECLS

/* The name under which the entry stands that serves every media type without one of its own ('genr'). */
enum { kKivMediaType_Generic = 0x67656E72 };

/* What a media type tells about its descriptions. */
typedef struct KivDerivedFormatDescriptionCallbacks {
  uint32_t version;          /* must be 0 */
  size_t derivedStorageSize; /* bytes that each description has for the media type's own use; may be 0 */
  /* Required. Whether two descriptions are equal whose media types and subtypes are. The ignore arguments are those of
   * PVFormatDescriptionEqualIgnoringExtensionKeys. */
  bool (*equal)(PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef extensionKeysToIgnore,
                BRTypeRef atomKeysToIgnore);
  /* May be NULL. A new string for the text of the description, or NULL. */
  BRStringRef (*copyDebugDescription)(PVFormatDescriptionRef description);
  /* May be NULL. Gives up what derived storage holds; the extensions are still there. */
  void (*finalize)(PVFormatDescriptionRef description);
} KivDerivedFormatDescriptionCallbacks;

/* Adds the entry of a media type; the record is copied. The first entry of a media type stays for the life of the
 * process: another one changes nothing, and the status is 0. It may be that of a built-in media type; while its storage
 * is smaller than the built-in one's, that type's own functions refuse its descriptions with InvalidParameter.
 * Statuses: InvalidParameter (callbacks null, its version not 0, no equal); AllocationFailed. */
PV_EXPORT PVStatus KivDerivedFormatDescriptionRegister(PVMediaType mediaType,
                                                       const KivDerivedFormatDescriptionCallbacks *callbacks);

/* Creates a description with the derived storage of its media type's entry, zero-filled. A built-in media type that has
 * no entry yet is registered; any other one without an entry takes the generic one.
 * Statuses: InvalidParameter (descriptionOut null; mediaType 0; nothing was ever registered; no entry, not even the
 * generic one; extensions no dictionary or no property list); AllocationFailed. */
PV_EXPORT PVStatus KivDerivedFormatDescriptionCreate(BRAllocatorRef allocator, PVMediaType mediaType,
                                                     PVFourCharCode mediaSubType, BRDictionaryRef extensions,
                                                     PVFormatDescriptionRef *descriptionOut);

/* The derived storage, 16-byte aligned; good as long as the description. When its size is 0 there is nothing to be read
 * there. NULL, and InvalidParameter signalled, for NULL. */
PV_EXPORT void *KivDerivedFormatDescriptionGetDerivedStorage(PVFormatDescriptionRef description);

/* How many bytes there are: derivedStorageSize of the entry that the description was created with; 0 for NULL. Who
 * reads or writes the storage of a media type that others may have registered first asks before. */
PV_EXPORT size_t KivDerivedFormatDescriptionGetDerivedStorageSize(PVFormatDescriptionRef description);

/* Whether two extension dictionaries are equal, by the rules of PVFormatDescriptionEqualIgnoringExtensionKeys: what the
 * equal callbacks compare extensions with. Both must hold objects. Two NULLs are equal; NULL and an empty dictionary
 * are equal only when something is to be ignored. Needs no memory. */
PV_EXPORT bool KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(BRDictionaryRef extensionsA,
                                                                           BRDictionaryRef extensionsB,
                                                                           BRTypeRef extensionKeysToIgnore,
                                                                           BRTypeRef atomKeysToIgnore);

/* Register the built-in entries, each once however often it is called: the generic one (no storage; extensions are
 * compared) and those of the media types. Every creating function calls its own.
 * Status: AllocationFailed; a later call then tries again. */
PV_EXPORT PVStatus KivGenericFormatDescriptionRegisterOnce(void);
PV_EXPORT PVStatus KivMuxedFormatDescriptionRegister(void);
PV_EXPORT PVStatus KivAudioFormatDescriptionRegister(void);
PV_EXPORT PVStatus KivTimeCodeFormatDescriptionRegister(void);
PV_EXPORT PVStatus KivTimeCodeFormatDescriptionRegisterOnce(void); /* another name of the one before */
PV_EXPORT PVStatus KivVideoFormatDescriptionRegister(void);

/* Adds a reference and returns the description. NULL is allowed and gives NULL. */
PV_EXPORT PVFormatDescriptionRef KivFormatDescriptionRetain(PVFormatDescriptionRef description);

/* Drops a reference. NULL is allowed. */
PV_EXPORT void KivFormatDescriptionRelease(PVFormatDescriptionRef description);

PV_END_DECLS

#endif
