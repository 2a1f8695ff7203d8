/* Atom streams: a cursor that walks the atoms (boxes) of movie and ISO-family files, ISO/IEC 14496-12 4.2.
 *
 *    0       4       8              16                 32
 *    +-------+-------+---------------+------------------+---------------------------+
 *    | size  | type  | 64-bit size   | extended type    | data, often atoms again   |
 *    +-------+-------+---------------+------------------+---------------------------+
 *                     when size is 1   when type is 'uuid'
 *
 * All numbers are big-endian. A size counts the header; a size of 0 means "to the end of the enclosing range" and is
 * taken only from a stream that was made with kKivAtomStreamFlag_AllowZeroSize. The header is 8, 16, 24 or 32 bytes.
 *
 * A stream stands on one atom of one level. Advancing moves it along the level; a child stream, made from a parent,
 * walks the level inside the parent's current atom. A KivAtomStream is a plain record in the caller's memory: copy it
 * to remember a place, drop it when done. It holds its source (byte stream, block buffer, memory) without retaining it:
 * the source must outlive every cursor over it. Only the functions that create a block buffer allocate.
 *
 * Offsets and lengths are in bytes. "Global" offsets count from the start of the source. What the file declares is not
 * trusted: every size is checked against the range before it is used, and no depth of nesting costs stack.
 *
 * When a function fails its stream stays where it was, and outputs are not written; a stream whose Init failed is not
 * written either. A record of zeros is a stream over nothing: it has no atoms left and no data to read. A null stream
 * or a null required pointer is kPVBaseObjectError_ParamErr (-12780).
 *
 * Threads: a cursor belongs to one thread at a time; several cursors may read one source when that allows it.
 *
 *   KivAtomStream stream, track;
 *   PVStatus status = KivAtomStreamInitWithMemoryBlock(bytes, length, 0, 0, &stream);
 *   if (status == 0) status = KivAtomStreamPositionAtFirstAtomWithType(&stream, 'moov');
 *   if (status == 0) status = KivAtomStreamInitWithParent(&stream, 0, &track);
 *   for (; status == 0; status = KivAtomStreamAdvanceToNextAtom(&track)) visit(&track);
 *   if (status == kKivAtomStreamError_NoMoreAtoms) status = 0;
 */
#ifndef KIV_ATOM_STREAM_H
#define KIV_ATOM_STREAM_H

#include <kiv/byte_stream.h>
#include <kiv/error.h>
#include <pevrin/base.h>
#include <pevrin/block_buffer.h>

PV_BEGIN_DECLS

/* "Signalled" failures go through KivSignalErrorAt (see <kiv/error.h>); the others are part of a normal walk. */
enum {
  kKivAtomStreamError_NoMoreAtoms = -12890, /* the end of the level; never signalled */
  kKivAtomStreamError_OutOfBounds = -12891, /* outside the current atom's data; signalled */
  kKivAtomStreamError_ShortRead = -12892,   /* the source gave fewer bytes than it should, or is empty */
  kKivAtomStreamError_NotEnoughData = -12893, /* no room for a header, or an offset outside the source */
  kKivAtomStreamError_MalformedAtom = -12894, /* size 0 where not allowed, below the header, negative, past the end */
  kKivAtomStreamError_NotUUIDAtom = -12895    /* the current atom is not a 'uuid' atom; never signalled */
};

/* Flags of a stream: any non-zero low byte lets a size of 0 mean "to the end of the range". */
enum { kKivAtomStreamFlag_AllowZeroSize = 1 };

typedef struct KivAtomSource KivAtomSource;

/* Where a stream's bytes come from. Filled by the Init functions; offset counts from the start of the source. */
struct KivAtomSource {
  const void *object;  /* byte stream, block buffer or memory; not retained */
  int64_t totalLength; /* of the source */
  PVStatus (*readBytes)(const KivAtomSource *source, int64_t offset, size_t length, void *destination,
                        size_t *lengthReadOut);
  PVStatus (*readAndCreateBlockBuffer)(const KivAtomSource *source, int64_t offset, size_t length,
                                       PVBlockBufferRef *blockBufferOut);
  int64_t globalOffset; /* the global offset of the source's first byte: 0 except for memory blocks */
};

/* A cursor. Read it through the functions below; the fields are here so that it can live in the caller's memory. */
typedef struct KivAtomStream {
  uint32_t allowZeroSize; /* the flags given at Init; the low byte counts */
  KivAtomSource source;
  int64_t rangeStart;  /* global offset of the level being walked */
  int64_t rangeLength;
  int64_t currentAtomDataOffset; /* relative to rangeStart */
  PVFourCharCode currentAtomType;
  int64_t currentAtomSize;       /* header and data */
  int64_t currentAtomDataLength;
  uint8_t currentAtomExtendedType[16]; /* of a 'uuid' atom, else unspecified */
} KivAtomStream;

/* --- Opening -------------------------------------------------------------------------------------------------------
 *
 * Each Init reads the first header and leaves the stream on that atom. A bad first header is the normal answer of
 * something that is not made of atoms, so it is not signalled: kKivAtomStreamError_NotEnoughData (fewer bytes than a
 * header), _MalformedAtom, _ShortRead. A failure of the source itself is returned as it comes. */

/* From startOffset to the end of the byte stream. startOffset must be at or above 0 and below the stream's length, else
 * kKivAtomStreamError_NotEnoughData, signalled. A failure to tell the length is returned. */
PV_EXPORT PVStatus KivAtomStreamInitWithByteStream(KivByteStreamRef byteStream, int64_t startOffset, uint32_t flags,
                                                   KivAtomStream *stream);

/* The same, with the range ending after size bytes when the byte stream goes on longer. */
PV_EXPORT PVStatus KivAtomStreamInitWithByteStreamWithSize(KivByteStreamRef byteStream, int64_t startOffset,
                                                           int64_t size, uint32_t flags, KivAtomStream *stream);

/* From startOffset to the end of the block buffer; startOffset as above. The length is the buffer's at this moment. */
PV_EXPORT PVStatus KivAtomStreamInitWithBBuf(PVBlockBufferRef blockBuffer, int64_t startOffset, uint32_t flags,
                                             KivAtomStream *stream);

/* Over memory. globalOffset says where the block stands in its file and serves only to report global offsets. A length
 * of 0 or null bytes are kKivAtomStreamError_ShortRead, signalled; a globalOffset + length past 2^63 - 1 is
 * kKivAtomStreamError_NotEnoughData, signalled. */
PV_EXPORT PVStatus KivAtomStreamInitWithMemoryBlock(const void *bytes, size_t length, int64_t globalOffset,
                                                    uint32_t flags, KivAtomStream *stream);

/* child walks the data of the parent's current atom, from offsetInParentData on; the parent may be moved or dropped
 * afterwards. parent and child may be the same record. An offset below 0 or above the data length is
 * kKivAtomStreamError_NotEnoughData, signalled; here a malformed header and a short read are signalled too. Data too
 * short for a header (an atom without children) are kKivAtomStreamError_NotEnoughData, not signalled. */
PV_EXPORT PVStatus KivAtomStreamInitWithParent(const KivAtomStream *parent, int64_t offsetInParentData,
                                               KivAtomStream *child);

/* --- The current atom --------------------------------------------------------------------------------------------- */

/* Either out may be NULL. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomTypeAndDataLength(const KivAtomStream *stream, PVFourCharCode *typeOut,
                                                                int64_t *dataLengthOut);

#ifndef KIV_ATOM_STREAM_NO_INLINES
/* The same function for the compiler to put in place, since walks ask it of every atom; its address and calls that are
 * not inlined are the library's. */
extern inline __attribute__((gnu_inline)) PVStatus KivAtomStreamGetCurrentAtomTypeAndDataLength(
    const KivAtomStream *stream, PVFourCharCode *typeOut, int64_t *dataLengthOut) {
  if (!stream) return KivSignalErrorAt(kPVBaseObjectError_ParamErr, __FILE__, __LINE__, __func__);
  if (typeOut) *typeOut = stream->currentAtomType;
  if (dataLengthOut) *dataLengthOut = stream->currentAtomDataLength;
  return 0;
}
#endif

/* The extended type of a 'uuid' atom, 16 bytes; kKivAtomStreamError_NotUUIDAtom for any other, not signalled. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomUUIDType(const KivAtomStream *stream, uint8_t uuidOut[16]);

/* The first four data bytes of a full atom (ISO/IEC 14496-12 4.2.2): 8 bits of version, 24 of flags. Either out may be
 * NULL. Statuses as for KivAtomStreamReadCurrentAtomData. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomVersionAndFlags(const KivAtomStream *stream, uint8_t *versionOut,
                                                              uint32_t *flagsOut);

/* Where the atom's header starts in the source, and the atom's size with header. Either out may be NULL. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomGlobalOffset(const KivAtomStream *stream, int64_t *offsetOut,
                                                           int64_t *sizeOut);

/* Where the atom's header starts, counted from the start of the level: from the data of the parent's atom. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomOffsetInParent(const KivAtomStream *stream, int64_t *offsetOut);

/* Where in the source the data byte at offsetInData is. The offset may be the data length (the atom's end), not more:
 * kKivAtomStreamError_OutOfBounds, signalled. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomDataGlobalOffset(const KivAtomStream *stream, int64_t offsetInData,
                                                               int64_t *offsetOut);

/* 8, 16, 24 or 32. */
PV_EXPORT PVStatus KivAtomStreamGetCurrentAtomHeaderSize(const KivAtomStream *stream, int64_t *headerSizeOut);

/* Copies length bytes of data. offsetInData must be below the data length and offsetInData + length must not exceed it:
 * kKivAtomStreamError_OutOfBounds, signalled. Fewer bytes from the source than asked: kKivAtomStreamError_ShortRead,
 * signalled; the destination's contents are then unspecified. A source's own failure is returned. */
PV_EXPORT PVStatus KivAtomStreamReadCurrentAtomData(const KivAtomStream *stream, int64_t offsetInData, size_t length,
                                                    void *destination);

/* The same into a new block buffer, one contiguous run; a length of 0 means to the end of the data. Over a block buffer
 * a run that is contiguous there is referred to without copying; in every other case the bytes are copied. The caller
 * releases the buffer, which may outlive stream and source. Statuses as above, and those of <pevrin/block_buffer.h>
 * when memory runs out; *blockBufferOut is NULL on failure. */
PV_EXPORT PVStatus KivAtomStreamReadCurrentAtomDataAndCreateBBuf(const KivAtomStream *stream, int64_t offsetInData,
                                                                 size_t length, PVBlockBufferRef *blockBufferOut);

/* The same for the whole atom, header included. */
PV_EXPORT PVStatus KivAtomStreamReadCurrentAtomAndCreateBBuf(const KivAtomStream *stream,
                                                             PVBlockBufferRef *blockBufferOut);

/* --- Moving ----------------------------------------------------------------------------------------------------------
 *
 * Shared statuses: kKivAtomStreamError_NoMoreAtoms at the end of the level (not signalled); _NotEnoughData when fewer
 * bytes than a header are left (not signalled); _MalformedAtom and _ShortRead (signalled); a failure of the source. */

/* To the atom behind the current one. */
PV_EXPORT PVStatus KivAtomStreamAdvanceToNextAtom(KivAtomStream *stream);

/* To the next atom of that type after the current one. */
PV_EXPORT PVStatus KivAtomStreamAdvanceToNextAtomWithType(KivAtomStream *stream, PVFourCharCode type);

/* The same, but staying when the current atom has the type. */
PV_EXPORT PVStatus KivAtomStreamPositionAtFirstAtomWithType(KivAtomStream *stream, PVFourCharCode type);

/* Down a path: from a 'moov' atom the path 'trak', 'mdia', 'hdlr' leads to the handler of the first track. Each step
 * takes the first atom of its type inside the one before, starting inside the current atom. On success the stream walks
 * the deepest level. A count of 0 or null types: kPVBaseObjectError_ParamErr. */
PV_EXPORT PVStatus KivAtomStreamAdvanceViaAtomPath(KivAtomStream *stream, size_t count, const PVFourCharCode *types);

/* The same with types[0] sought on the stream's own level, from the current atom on. */
PV_EXPORT PVStatus KivAtomStreamPositionViaAtomPath(KivAtomStream *stream, size_t count, const PVFourCharCode *types);

/* --- One header without a cursor -------------------------------------------------------------------------------------
 *
 * The type and the size (header and data) of the atom at startOffset. Arguments and statuses as for the Init function
 * of that source; either out may be NULL. */

/* The type and the size (header and data) of the atom at startOffset of a byte stream, of one that is taken to end
 * after size bytes, and of a block buffer. typeOut and lengthOut may be NULL. */
PV_EXPORT PVStatus KivAtomUtilityGetAtomTypeAndLengthInByteStream(KivByteStreamRef byteStream, int64_t startOffset,
                                                                  uint32_t flags, PVFourCharCode *typeOut,
                                                                  int64_t *lengthOut);
PV_EXPORT PVStatus KivAtomUtilityGetAtomTypeAndLengthInByteStreamWithSize(KivByteStreamRef byteStream,
                                                                          int64_t startOffset, int64_t size,
                                                                          uint32_t flags, PVFourCharCode *typeOut,
                                                                          int64_t *lengthOut);
PV_EXPORT PVStatus KivAtomUtilityGetAtomTypeAndLengthInBBuf(PVBlockBufferRef blockBuffer, int64_t startOffset,
                                                            uint32_t flags, PVFourCharCode *typeOut,
                                                            int64_t *lengthOut);

PV_END_DECLS

#endif
