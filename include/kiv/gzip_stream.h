/* Gzip files (RFC 1952) as byte streams (<kiv/byte_stream.h>): what is in a compressed stream, and a compressed stream
 * that is written.
 *
 * A reading stream may be read anywhere, although the format only goes forward. What lies behind is found again from
 * access points, the decoder's state at every so many bytes (1 MiB, and more once there are 256 of them), so that a
 * read costs the decoding of at most the bytes between two of them; what lies ahead and was never reached is decoded on
 * the way. About 100 KiB, and 40 KiB for each access point, are all that it takes, however long the data are. The data
 * of several members follow each other; zero bytes behind the last one are padding, anything else there is damage.
 *
 * What is damaged is found when it is reached: everything before it can be read, a read that reaches it and the
 * question for the length are answered with kKivByteStreamError_MalformedGzip or _TruncatedGzip. The checksum stands at
 * the end of a member. Who must know that bytes are right before using them asks KivGzipByteStreamVerify first.
 *
 * A writing stream is appended to and finished; it can neither be read nor written at an offset (-12782).
 *
 * The stream below is retained. Memory comes from the allocator, also that of the codec.
 *
 * Threads: reads from any number of threads at once, which wait for each other; appending needs the caller's lock.
 *
 *   KivByteStreamRef file, movie;
 *   PVStatus status = KivByteStreamCreateForFile(NULL, "reel.mov.gz", kKivByteStreamFile_ReadOnly, &file);
 *   if (status == 0) status = KivByteStreamCreateForGzip(NULL, file, 0, &movie); */
#ifndef KIV_GZIP_STREAM_H
#define KIV_GZIP_STREAM_H

#include <kiv/byte_stream.h>

PV_BEGIN_DECLS

enum {
  kKivByteStreamError_MalformedGzip = -12808, /* not gzip, broken data, a checksum or length that does not agree */
  kKivByteStreamError_TruncatedGzip = -12809  /* the compressed bytes end within a member */
};

enum {
  kKivGzipByteStream_EndsAtDamage = 1 /* what is damaged is taken for the end: only KivGzipByteStreamVerify tells */
};

/* Reads what is compressed in the stream. Nothing is read yet: also a stream that is not gzip makes one, whose first
 * read tells. kKivByteStreamError_ParamErr: a null pointer, an unknown flag. -108. *streamOut is NULL on failure. */
PV_EXPORT PVStatus KivByteStreamCreateForGzip(BRAllocatorRef allocator, KivByteStreamRef compressed, uint32_t flags,
                                              KivByteStreamRef *streamOut);

/* Decodes to the end. *readableLengthOut (may be NULL), written with every status of damage, too, is how many bytes
 * can be read. 0, a status of damage, what reading the stream below answers, or -108. kKivByteStreamError_ParamErr for
 * NULL and for a stream that was not made by the function above. */
PV_EXPORT PVStatus KivGzipByteStreamVerify(KivByteStreamRef stream, int64_t *readableLengthOut);

/* Appends to the stream below what is appended to this one, compressed as one member without name and date, so that
 * equal bytes compress equally. The level is 0 (stored) to 9 (smallest), or -1 for the codec's own. Bytes stay in
 * memory, 64 KiB at most, until there are enough of them or the stream is finished; a failure to write them is
 * answered by the append that finds it, and by everything that is asked afterwards. kKivByteStreamError_ParamErr: a
 * null pointer, another level. -108. *streamOut is NULL on failure. */
PV_EXPORT PVStatus KivByteStreamCreateWritableForGzip(BRAllocatorRef allocator, KivByteStreamRef compressed,
                                                      int32_t level, KivByteStreamRef *streamOut);

/* Ends the member and writes the rest; what is appended afterwards is kKivByteStreamError_OutOfRange. A second call
 * does nothing. A stream that goes unfinished is finished then, but nobody learns whether that went well.
 * kKivByteStreamError_ParamErr for NULL and for a stream that was not made by the function above. */
PV_EXPORT PVStatus KivGzipByteStreamFinish(KivByteStreamRef stream);

PV_END_DECLS

#endif
