/* Atom writers: a cursor that writes atoms (boxes) of movie and ISO-family files; see <kiv/atom_stream.h>.
 *
 * A writer appends an atom's header with an open size, then its data, and puts the size in when the atom ends. Atoms
 * nest through writers that nest: a child writer, made from a parent that is inside an atom, writes atoms into the
 * parent's data. While a child is inside an atom its parent appends nothing, and children end before their parents.
 *
 * A KivAtomWriter is a plain record in the caller's memory; a child holds its parent's address, so the parent must stay
 * where it is. Block buffer and byte stream are not retained and must outlive the writer. A writer over a block buffer
 * makes a byte stream of its own for each outermost atom and lets it go when the atom ends, so an atom that was begun
 * must be ended, also on the way out of a failure.
 *
 * When an append fails, the atom stays open; what was written before stays in the destination. A null writer or
 * required pointer is kPVBaseObjectError_ParamErr (-12780). Failures are signalled (see <kiv/error.h>), except where
 * a function says otherwise.
 *
 * Threads: a writer and all that share its destination belong to one thread at a time.
 *
 *   KivAtomWriter movie, header;
 *   KivAtomWriterInitWithBlockBuffer(blockBuffer, &movie);
 *   status = KivAtomWriterBeginAtom(&movie, 'moov', false);
 *   if (status == 0) status = KivAtomWriterInitWithParent(&movie, &header);
 *   if (status == 0) status = KivAtomWriterBeginAtom(&header, 'mvhd', false);
 *   if (status == 0) status = KivAtomWriterAppendVersionAndFlags(&header, 0, 0);
 *   if (status == 0) status = KivAtomWriterAppendData(&header, fields, sizeof fields);
 *   if (status == 0) status = KivAtomWriterEndAtom(&header);
 *   endStatus = KivAtomWriterEndAtom(&movie);
 */
#ifndef KIV_ATOM_WRITER_H
#define KIV_ATOM_WRITER_H

#include <kiv/byte_stream.h>
#include <pevrin/base.h>
#include <pevrin/block_buffer.h>

PV_BEGIN_DECLS

/* A byte stream that cannot write at an offset answers kPVBaseObjectError_ValueNotAvailable (-12782). */
enum {
  kKivAtomWriterError_NotInAtom = -12570,      /* no atom has been begun */
  kKivAtomWriterError_AlreadyInAtom = -12571,  /* an atom is begun and not ended */
  kKivAtomWriterError_SizeTooLarge = -12572    /* a 32-bit size cannot hold the atom's size */
};

typedef struct KivAtomWriter KivAtomWriter;

/* Read it through the functions below; the fields are here so that it can live in the caller's memory. */
struct KivAtomWriter {
  PVBlockBufferRef blockBuffer; /* not retained; NULL over a byte stream */
  KivByteStreamRef byteStream;  /* the caller's, the parent's, or (block buffer, no parent) the writer's own */
  KivAtomWriter *parent;        /* or NULL */
  int64_t startOffset;          /* global offset at which the current, or the next, atom starts */
  int64_t headerSize;           /* so far, with extended type, version and flags */
  int64_t atomSize;             /* so far, header included */
  bool uses64BitSize;
  bool inAtom;
};

/* Atoms will start at the buffer's current data length. */
PV_EXPORT PVStatus KivAtomWriterInitWithBlockBuffer(PVBlockBufferRef blockBuffer, KivAtomWriter *writer);

/* Atoms will start at the byte stream's current end. A failure to tell the length is returned, *writer untouched. */
PV_EXPORT PVStatus KivAtomWriterInitWithByteStream(KivByteStreamRef byteStream, KivAtomWriter *writer);

/* child writes into the parent's current atom, from its present end on. Outside an atom of the parent:
 * kKivAtomWriterError_NotInAtom. Make the child anew when the parent has appended data of its own since. */
PV_EXPORT PVStatus KivAtomWriterInitWithParent(KivAtomWriter *parent, KivAtomWriter *child);

/* Appends the header of a new atom: 8 bytes, or 16 with a 64-bit size. kKivAtomWriterError_AlreadyInAtom inside an
 * atom, kKivAtomWriterError_NotInAtom on a child whose parent's atom has ended; failures of making the byte stream
 * (-108) and of appending are returned and leave the writer outside. */
PV_EXPORT PVStatus KivAtomWriterBeginAtom(KivAtomWriter *writer, PVFourCharCode type, bool use64BitSize);

/* The same for an atom of type 'uuid' with its 16 bytes of extended type: 24 or 32 bytes of header. */
PV_EXPORT PVStatus KivAtomWriterBeginUUIDAtom(KivAtomWriter *writer, const uint8_t uuid[16], bool use64BitSize);

/* Each of the next three is kKivAtomWriterError_NotInAtom outside an atom; a failure to append is returned and leaves
 * the sizes as they were. */

/* The 32 bits that open a full atom: version << 24 | the low 24 bits of flags. They count as header. */
PV_EXPORT PVStatus KivAtomWriterAppendVersionAndFlags(KivAtomWriter *writer, uint8_t version, uint32_t flags);

/* A length of 0 writes nothing; bytes may then be NULL. The bytes are copied. */
PV_EXPORT PVStatus KivAtomWriterAppendData(KivAtomWriter *writer, const void *bytes, size_t length);

/* Appends a copy of the buffer's bytes; an empty buffer writes nothing. A buffer whose memory is not there yet is
 * kPVBlockBufferUnallocatedBlockErr. After a failure part of the bytes may stand in the destination and is counted. */
PV_EXPORT PVStatus KivAtomWriterAppendBlockBufferData(KivAtomWriter *writer, PVBlockBufferRef blockBuffer);

/* Writes the atom's size into its header, adds it to the parent's size, and moves the start offset past the atom, so
 * that the next atom begun on this writer follows it. Outside an atom this does nothing and returns 0. In every case
 * the writer is outside an atom afterwards. kKivAtomWriterError_SizeTooLarge for 2^32 bytes and more without a 64-bit
 * size; -12782, not signalled, when the byte stream cannot write at an offset. */
PV_EXPORT PVStatus KivAtomWriterEndAtom(KivAtomWriter *writer);

/* Each of the next three is kKivAtomWriterError_NotInAtom outside an atom. */

/* Where in the destination the atom's data start: start offset + header so far. */
PV_EXPORT PVStatus KivAtomWriterGetAtomGlobalDataOffset(const KivAtomWriter *writer, int64_t *offsetOut);

/* Header and data so far. Atoms of child writers count from their end on. */
PV_EXPORT PVStatus KivAtomWriterGetAtomSize(const KivAtomWriter *writer, int64_t *sizeOut);

/* The data so far plus the atom's start offset: atom size - header size + start offset. A caller that wants the bare
 * data length subtracts the start offset. */
PV_EXPORT PVStatus KivAtomWriterGetAtomDataSize(const KivAtomWriter *writer, int64_t *sizeOut);

PV_END_DECLS

#endif
