/* Metadata identifiers: one string that names an item of metadata, wherever in a file it was found.
 *
 * An item has a key in a key space: the key 'titl' of ISO user data, the key "com.example.take" of movie metadata. The
 * identifier is both, joined by a slash: "uiso/titl", "mdta/com.example.take". Either part is percent-escaped (RFC
 * 3986) with the escaped bytes in the 8-bit Western Roman set: what RFC 3986 lets stand in a URI stands for itself,
 * except the slash, so that the first slash of an identifier is the one between its parts. The anonymous key space has
 * no keys; its identifier is "anon".
 *
 * In the key spaces "udta", "itsk", "uiso" and "id3" a key is a code of four bytes. It is given as a string of four
 * characters that Western Roman has, as a number from -2^31 to 2^32 - 1 whose bytes are meant, the most significant
 * first, or as data of four bytes. In "udta" and "itsk" a leading '@' means the byte 0xA9, the copyright sign, which is
 * hard to type: "@nam" and "\u00A9nam" are the same key, and its identifier in "udta" is "udta/%A9nam".
 *
 * In every other key space a key is a string, or data that hold text: UTF-8, or what a byte order mark says (UTF-8,
 * UTF-16). Such a key must not be empty, and its characters that are escaped must be in the Western Roman set.
 *
 * Identifiers, keys and key spaces that are created belong to the caller, who releases them. *...Out is NULL on
 * failure. Arguments are checked in the order of the parameters; identifier and out-parameter are required.
 *
 * Threads: any.
 *
 *   BRStringRef identifier;
 *   PVStatus status = PVMetadataCreateIdentifierForKeyAndKeySpace(NULL, key, kPVMetadataKeySpace_TavloUserData,
 *                                                                 &identifier); */
#ifndef PEVRIN_METADATA_H
#define PEVRIN_METADATA_H

#include <bedra/data.h>
#include <bedra/string.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

enum {
  kPVMetadataIdentifierError_CreationFailed = -16300,    /* the string or data could not be made */
  kPVMetadataIdentifierError_InvalidParameter = -16301,  /* a null pointer or key space; a key in "anon" */
  kPVMetadataIdentifierError_BadKey = -16302,            /* no key, or one that cannot be written */
  kPVMetadataIdentifierError_BadKeyLength = -16303,      /* not four bytes, where those are wanted; or empty */
  kPVMetadataIdentifierError_UnsupportedKeyType = -16304,
  kPVMetadataIdentifierError_BadNumericKey = -16305,     /* a number of more than 32 bits, or a broken one */
  kPVMetadataIdentifierError_BadKeySpace = -16306        /* its length, or a character in it */
};

/* User data of movies and tracks ('udta'): four-byte keys. "udta" */
PV_EXPORT extern const BRStringRef kPVMetadataKeySpace_TavloUserData;
/* User data of ISO and 3GP files: four-byte keys. "uiso" */
PV_EXPORT extern const BRStringRef kPVMetadataKeySpace_ISOUserData;
/* Metadata whose keys are listed in the file ('keys'), mostly reversed domain names. "mdta" */
PV_EXPORT extern const BRStringRef kPVMetadataKeySpace_TavloMetadata;
/* Items of a music library ('ilst'): four-byte keys. "itsk" */
PV_EXPORT extern const BRStringRef kPVMetadataKeySpace_Lutara;
/* ID3 frames: four-byte keys. "id3" */
PV_EXPORT extern const BRStringRef kPVMetadataKeySpace_ID3;
/* Headers of internet radio. "icy" */
PV_EXPORT extern const BRStringRef kPVMetadataKeySpace_Icy;

/* Makes the identifier of a key, a BRStringRef, BRNumberRef or BRDataRef as told above. A key space has 1 to 4
 * characters; these are written otherwise: "org.id3" and "id3 " are "id3", "icy " is "icy", "org.avchd-info" is
 * "avch", "comn" is "common". "anon" takes no key (NULL), all others need one. Every status of the list. */
PV_EXPORT PVStatus PVMetadataCreateIdentifierForKeyAndKeySpace(BRAllocatorRef allocator, BRTypeRef key,
                                                               BRStringRef keySpace, BRStringRef *identifierOut);

/* The three functions that follow take an identifier apart. What has no slash in it, no character before it, or before
 * it what is no key space (see above) is kPVMetadataIdentifierError_BadKeySpace. Slashes in the key are taken as they
 * are. */

/* The key, with its escapes undone. In four-byte key spaces it is a string of four characters; in Western Roman they
 * are the four bytes. kPVMetadataIdentifierError_BadKey: "anon", which has none, a malformed escape, a character
 * outside Western Roman there, or memory that ran out; _BadKeyLength: no key, or not one of four bytes where it should
 * be. */
PV_EXPORT PVStatus PVMetadataCreateKeyFromIdentifier(BRAllocatorRef allocator, BRStringRef identifier,
                                                     BRStringRef *keyOut);

/* The key as bytes: the four bytes, or in other key spaces the text in UTF-8. The same statuses, and
 * _CreationFailed. */
PV_EXPORT PVStatus PVMetadataCreateKeyFromIdentifierAsBRData(BRAllocatorRef allocator, BRStringRef identifier,
                                                             BRDataRef *keyOut);

/* The key space, as it is given to make an identifier: "comn" for identifiers that begin with "common". */
PV_EXPORT PVStatus PVMetadataCreateKeySpaceFromIdentifier(BRAllocatorRef allocator, BRStringRef identifier,
                                                          BRStringRef *keySpaceOut);

PV_END_DECLS

#endif
