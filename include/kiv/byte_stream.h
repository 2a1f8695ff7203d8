/* Byte streams: one interface for bytes that lie in a file, in memory or in a block buffer.
 *
 * A byte stream is a base object (see <pevrin/base_object.h>) whose class implements the operations of
 * KivByteStreamClass below. Offsets and lengths are in bytes; offsets are signed 64-bit and never negative. There is no
 * current position: every read and write names its offset, so several readers may share one stream.
 *
 * Reading at the end: a read takes what is there. Bytes past the end are not an error but are missing from the count
 * that comes back; at or past the end the count is 0. A reader that needs all the bytes compares the count. This also
 * covers a file that shrinks while it is read.
 *
 * Ownership: a Create function hands out a reference that the caller releases (BRRelease). What a stream stands on (a
 * block buffer, lent memory, a file descriptor) is told at each Create function.
 *
 * Threads: reads of the built-in streams may come from any number of threads at once. Appends and writes need the
 * caller's lock, against reads as well as against each other.
 *
 * Failures are signalled (see <kiv/error.h>), except where a function says otherwise.
 *
 *   KivByteStreamRef stream;
 *   PVStatus status = KivByteStreamCreateForFile(NULL, "reel.mov", kKivByteStreamFile_ReadOnly, &stream);
 *   uint8_t header[8];
 *   size_t count;
 *   if (status == 0) status = KivByteStreamRead(stream, 0, sizeof header, header, &count);
 *   BRRelease(stream);
 */
#ifndef KIV_BYTE_STREAM_H
#define KIV_BYTE_STREAM_H

#include <bedra/allocator.h>
#include <pevrin/base_object.h>
#include <pevrin/block_buffer.h>

PV_BEGIN_DECLS

/* A base object of the class KivByteStreamGetClassID() or of one derived from it. */
typedef PVBaseObjectRef KivByteStreamRef;

/* The status codes of byte streams, -12800 to -12807. An operation that the stream's class does not have answers
 * kPVBaseObjectError_ValueNotAvailable (-12782); memory running out answers kPVStatus_OutOfMemory (-108). */
enum {
  kKivByteStreamError_ParamErr = -12800,       /* a null argument, a negative offset, an unknown flag */
  kKivByteStreamError_NotFound = -12801,       /* no file at the path */
  kKivByteStreamError_AccessDenied = -12802,   /* the file, or its folder, may not be opened that way */
  kKivByteStreamError_NotRegularFile = -12803, /* a folder, a pipe, a device: not a file with a length */
  kKivByteStreamError_OpenFailed = -12804,     /* the system refused for another reason */
  kKivByteStreamError_ReadFailed = -12805,     /* the system failed to read, or to tell the length */
  kKivByteStreamError_WriteFailed = -12806,    /* the system failed to write, and errno says why: the disk is full */
  kKivByteStreamError_OutOfRange = -12807      /* a write outside the bytes that exist, or a length past 2^63 - 1 */
};

/* --- Using a stream ------------------------------------------------------------------------------------------------
 *
 * Each function calls the stream's operation of that name. A null stream or required pointer and a negative offset are
 * kKivByteStreamError_ParamErr; a missing operation is -12782, signalled except by KivByteStreamWriteAtOffset. Any
 * other status comes from the operation; outputs are written only on success. */

/* Copies up to length bytes from offset to destination, and tells in *lengthReadOut (may be NULL) how many there were:
 * fewer than asked only when the stream ends before. A length of 0 reads nothing; destination may then be NULL. */
PV_EXPORT PVStatus KivByteStreamRead(KivByteStreamRef stream, int64_t offset, size_t length, void *destination,
                                     size_t *lengthReadOut);

/* Makes a block buffer of up to length bytes from offset; its data length is the count read, and it is empty when
 * there were none. Over a block buffer the result refers to the stream's bytes without copying them; over memory and
 * files it is a copy in one block, no longer than what the stream has. The caller releases the buffer, which may
 * outlive the stream. *blockBufferOut is NULL on failure; memory running out answers as in <pevrin/block_buffer.h>. */
PV_EXPORT PVStatus KivByteStreamReadAndCreateBlockBuffer(KivByteStreamRef stream, int64_t offset, size_t length,
                                                         PVBlockBufferRef *blockBufferOut);

/* The stream's length at this moment. */
PV_EXPORT PVStatus KivByteStreamGetTotalLength(KivByteStreamRef stream, int64_t *lengthOut);

/* Adds a copy of the bytes at the end, all or nothing: a file that took a part of them is cut back to where it ended.
 * A length of 0 does nothing. */
PV_EXPORT PVStatus KivByteStreamAppend(KivByteStreamRef stream, const void *bytes, size_t length);

/* Replaces bytes that exist: offset + length must not exceed the stream's length (kKivByteStreamError_OutOfRange).
 * -12782 is not signalled: some streams can only grow, and a caller may ask which. A length of 0 does nothing. */
PV_EXPORT PVStatus KivByteStreamWriteAtOffset(KivByteStreamRef stream, int64_t offset, const void *bytes,
                                              size_t length);

/* --- The built-in streams ------------------------------------------------------------------------------------------
 *
 * Shared statuses: kKivByteStreamError_ParamErr for a null argument (an allocator may be NULL), -108 when memory runs
 * out. *streamOut is NULL on failure. */

/* Reads a block buffer, which the stream retains. It sees what is appended to the buffer later. */
PV_EXPORT PVStatus KivByteStreamCreateForBlockBuffer(BRAllocatorRef allocator, PVBlockBufferRef blockBuffer,
                                                     KivByteStreamRef *streamOut);

/* Reads, writes and extends a block buffer, which the stream retains. Appended bytes are copied and show in the buffer
 * at once; small appends share larger blocks, so that a long buffer keeps few entries. */
PV_EXPORT PVStatus KivByteStreamCreateWritableForBlockBuffer(BRAllocatorRef allocator, PVBlockBufferRef blockBuffer,
                                                             KivByteStreamRef *streamOut);

/* Reads length bytes of memory. The memory must stay in place and unchanged while the stream lives; at the stream's end
 * it is given back to memoryAllocator (NULL: the default allocator). kBRAllocatorNull leaves it with the caller. bytes
 * may be NULL when length is 0. On failure the memory stays with the caller. */
PV_EXPORT PVStatus KivByteStreamCreateForMemory(BRAllocatorRef allocator, const void *bytes, size_t length,
                                                BRAllocatorRef memoryAllocator, KivByteStreamRef *streamOut);

enum {
  kKivByteStreamFile_ReadOnly = 0,
  kKivByteStreamFile_Writable = 1,        /* also append and write at offset */
  kKivByteStreamFile_Create = 2,          /* with Writable: make the file when it is not there, mode 0666 less umask */
  kKivByteStreamFile_Truncate = 4,        /* with Writable: start empty */
  kKivByteStreamFile_CloseDescriptor = 8  /* for file descriptors: close it when the stream goes */
};

/* Reads a regular file, and with kKivByteStreamFile_Writable extends and writes it. Small reads go through one window
 * of up to 64 KiB per stream, so that walking headers costs few system calls; bytes inside the window are not seen to
 * change when another program, or another stream, writes the file. The length is always the file's own at that moment.
 * Statuses: kKivByteStreamError_NotFound, _AccessDenied, _NotRegularFile, _OpenFailed; _ReadFailed later. */
PV_EXPORT PVStatus KivByteStreamCreateForFile(BRAllocatorRef allocator, const char *path, uint32_t flags,
                                              KivByteStreamRef *streamOut);

/* The same over an open descriptor, whose own position is neither used nor moved. Without
 * kKivByteStreamFile_CloseDescriptor the descriptor must stay open while the stream lives; on failure it is left open
 * in any case. kKivByteStreamFile_Create is refused here. Writing through a descriptor opened with O_APPEND would land
 * at the end wherever it was meant, so such a descriptor is refused for writing, as is one opened for reading only
 * (kKivByteStreamError_AccessDenied). */
PV_EXPORT PVStatus KivByteStreamCreateForFileDescriptor(BRAllocatorRef allocator, int fileDescriptor, uint32_t flags,
                                                        KivByteStreamRef *streamOut);

/* --- Making a class of streams -------------------------------------------------------------------------------------
 *
 * A class fills a KivByteStreamVTable and makes its objects with PVDerivedObjectCreate under KivByteStreamGetClassID()
 * (or under a class of its own that has it as ancestor). Any slot may be NULL: the operation is then not available.
 * Arguments arrive checked: pointers are set, offsets are not negative, lengths are above 0 and offset + length does
 * not pass 2^63 - 1. */
typedef struct KivByteStreamClass {
  uint32_t version; /* 0 */
  PVStatus (*read)(KivByteStreamRef stream, int64_t offset, size_t length, void *destination, size_t *lengthReadOut);
  PVStatus (*readAndCreateBlockBuffer)(KivByteStreamRef stream, int64_t offset, size_t length,
                                       PVBlockBufferRef *blockBufferOut);
  PVStatus (*getTotalLength)(KivByteStreamRef stream, int64_t *lengthOut);
  PVStatus (*append)(KivByteStreamRef stream, const void *bytes, size_t length);
  PVStatus (*writeAtOffset)(KivByteStreamRef stream, int64_t offset, const void *bytes, size_t length);
} KivByteStreamClass;

/* The table of operations of an object of such a class. */
typedef struct KivByteStreamVTable {
  PVVTable base;
  const KivByteStreamClass *byteStream;
} KivByteStreamVTable;

/* The class of all byte streams and its runtime type. NULL and 0 when the runtime refuses the class. */
PV_EXPORT PVBaseClassID KivByteStreamGetClassID(void);
PV_EXPORT BRTypeID KivByteStreamGetTypeID(void);

PV_END_DECLS

#endif
