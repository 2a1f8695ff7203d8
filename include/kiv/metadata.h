/* Metadata identifiers (<pevrin/metadata.h>) whose key space is a four-character code, and data types of one's own that
 * no built-in base type describes (<pevrin/metadata_data_type.h>).
 *
 * Codes: "mdta" is 0x6D647461. A key space of less than four characters is padded with zero bytes at the end; 'icy '
 * and 'id3 ', with a space, are "icy" and "id3", too.
 *
 * Threads: any. */
#ifndef KIV_METADATA_H
#define KIV_METADATA_H

#include <pevrin/metadata.h>
#include <pevrin/metadata_data_type.h>

PV_BEGIN_DECLS

/* PVMetadataCreateIdentifierForKeyAndKeySpace with a code. kPVMetadataIdentifierError_BadKeySpace also for a code of
 * 0, one with a zero byte before another byte, and one with a control character (below 0x20, or 0x7F). */
PV_EXPORT PVStatus KivMetadataCreateIdentifierForKeyAndOSTypeKeySpace(BRAllocatorRef allocator, BRTypeRef key,
                                                                      PVFourCharCode keySpaceCode,
                                                                      BRStringRef *identifierOut);

/* The code of an identifier's key space: 'id3 ' and 'icy ' with a space, the others padded with zero bytes; 'anon' and
 * 'comn' for those. kPVMetadataIdentifierError_InvalidParameter for a null pointer, _BadKeySpace as in
 * <pevrin/metadata.h> and for a key space with a control character. *codeOut is written only on success. */
PV_EXPORT PVStatus KivMetadataGetKeySpaceAsOSTypeFromIdentifier(BRStringRef identifier, PVFourCharCode *codeOut);

/* Registers a data type that is a base type from now on: it is its own base, and other types may conform to it. It is
 * not among those of PVMetadataDataTypeRegistryGetBaseDataTypes. description may be NULL. Nothing changes, and all is
 * well, when it is a base type already. kPVMetadataDataTypeRegistryError_CreationFailed: no registry, or no memory.
 * _InvalidParameter: dataType NULL. _Conflict: it is registered as conforming to other types. */
PV_EXPORT PVStatus KivMetadataDataTypeRegistryRegisterDynamicBaseDataType(BRStringRef dataType,
                                                                         BRStringRef description);

PV_END_DECLS

#endif
