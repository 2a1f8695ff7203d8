/* A movie, written from sample buffers: write_movie OUT.mov
 *
 * One second of 64 x 48 H.264 is made without an encoder (every macroblock carries its pixels as they are), a
 * format description from its parameter sets, a sample buffer from each frame. The movie is then written from
 * what these objects say: the record of the description, and tables of the sizes and times of the samples.
 * Any player shows it. */
#include <kiv/atom_writer.h>
#include <pevrin/pevrin.h>
#include <stdio.h>
#include <string.h>

enum { kFrames = 25, kTimescale = 25, kWidth = 64, kHeight = 48, kMacroblocks = kWidth / 16 * (kHeight / 16) };
enum { kMovieTimescale = 600 };

/* Constrained baseline, level 1; picture order is decoding order. */
static const uint8_t kSPS[] = {0x67, 0x42, 0xC0, 0x0A, 0xDC, 0x47, 0x90};
static const uint8_t kPPS[] = {0x68, 0xCE, 0x3C, 0x80};

/* A picture of one brightness in one slice, behind its length in 4 bytes. Neighbouring pictures differ in
 * idr_pic_id. */
static size_t encodeFrame(int number, uint8_t *out) {
  static const uint8_t headers[2][5] = {{0x65, 0x88, 0x84, 0xA0, 0xD0}, {0x65, 0x88, 0x82, 0x28, 0x34}};
  uint8_t *at = out + 4;
  memcpy(at, headers[number % 2], 5); /* the slice header, and mb_type 25 */
  at += 5;
  for (int block = 0; block < kMacroblocks; ++block) {
    if (block > 0) {
      memcpy(at, "\x0D\0", 2); /* mb_type 25, aligned */
      at += 2;
    }
    memset(at, 16 + 8 * number, 256);
    memset(at + 256, 128, 128);
    at += 384;
  }
  *at++ = 0x80;
  const size_t size = (size_t)(at - out);
  for (int i = 0; i < 4; ++i) out[i] = (uint8_t)((size - 4) >> (24 - 8 * i));
  return size;
}

static PVStatus createFrame(int number, PVVideoFormatDescriptionRef format, PVSampleBufferRef *frameOut) {
  uint8_t bytes[kMacroblocks * 400];
  const size_t size = encodeFrame(number, bytes);
  const PVSampleTimingInfo timing = {PVTimeMake(1, kTimescale), PVTimeMake(number, kTimescale),
                                     kPVTimeInvalid};
  PVBlockBufferRef data = NULL;
  PVStatus status = PVBlockBufferCreateWithMemoryBlock(NULL, NULL, size, NULL, NULL, 0, size,
                                                       kPVBlockBufferAssureMemoryNowFlag, &data);
  if (status == 0) status = PVBlockBufferReplaceDataBytes(bytes, data, 0, size);
  if (status == 0) status = PVSampleBufferCreateReady(NULL, data, format, 1, 1, &timing, 1, &size, frameOut);
  BRRelease(data);
  return status;
}

/* --- Atoms: the first failure is kept, so that the layout below needs no check on every line --- */

typedef struct {
  KivAtomWriter atoms[9]; /* 0 writes the outermost atoms, each other those in the data of the one before */
  int depth;
  PVStatus status;
} Writer;

static PVFourCharCode code(const char *name) {
  PVFourCharCode value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | (uint8_t)name[i];
  return value;
}

static void begin(Writer *writer, const char *type) {
  KivAtomWriter *atom = &writer->atoms[writer->depth];
  if (writer->status == 0) writer->status = KivAtomWriterBeginAtom(atom, code(type), false);
  if (writer->status == 0) writer->status = KivAtomWriterInitWithParent(atom, atom + 1);
  if (writer->status == 0) ++writer->depth;
}

static void end(Writer *writer) {
  if (writer->status == 0) writer->status = KivAtomWriterEndAtom(&writer->atoms[--writer->depth]);
}

/* The atom that was begun last; once it has data of its own it gets no more children. */
static KivAtomWriter *current(Writer *writer) { return &writer->atoms[writer->depth - 1]; }

static void number(Writer *writer, uint64_t value, size_t bytes) {
  uint8_t field[8];
  for (size_t i = 0; i < bytes; ++i) field[i] = (uint8_t)(value >> 8 * (bytes - 1 - i));
  if (writer->status == 0) writer->status = KivAtomWriterAppendData(current(writer), field, bytes);
}

/* An atom of version and flags and then fields of 32 bits. */
static void fields(Writer *writer, const char *type, uint32_t flags, size_t count, const uint32_t *values) {
  begin(writer, type);
  number(writer, flags, 4);
  for (size_t i = 0; i < count; ++i) number(writer, values[i], 4);
  end(writer);
}
#define FIELDS(writer, type, flags, ...) \
  fields(writer, type, flags, sizeof(uint32_t[]){__VA_ARGS__} / sizeof(uint32_t), (uint32_t[]){__VA_ARGS__})
#define UNITY_MATRIX 1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30

/* --- The movie: a file type, the bytes of the samples, and the tables that tell where and when they are --- */

typedef struct {
  PVVideoFormatDescriptionRef format;
  uint32_t sizes[kFrames];
  uint32_t dataOffset;
} Movie;

static void writeFrames(Writer *writer, Movie *movie) {
  begin(writer, "mdat");
  int64_t offset = 0;
  if (writer->status == 0) writer->status = KivAtomWriterGetAtomGlobalDataOffset(current(writer), &offset);
  movie->dataOffset = (uint32_t)offset;
  for (int i = 0; writer->status == 0 && i < kFrames; ++i) {
    PVSampleBufferRef frame = NULL;
    writer->status = createFrame(i, movie->format, &frame);
    if (writer->status == 0)
      writer->status =
          KivAtomWriterAppendBlockBufferData(current(writer), PVSampleBufferGetDataBuffer(frame));
    movie->sizes[i] = (uint32_t)PVSampleBufferGetTotalSampleSize(frame);
    BRRelease(frame);
  }
  end(writer);
}

static void writeSampleDescription(Writer *writer, const Movie *movie) {
  PVBlockBufferRef record = NULL;
  begin(writer, "stsd");
  number(writer, 0, 4);
  number(writer, 1, 4);
  if (writer->status == 0)
    writer->status = PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(
        NULL, movie->format, kPVImageDescriptionFlavor_TavloMovie, &record);
  if (writer->status == 0) writer->status = KivAtomWriterAppendBlockBufferData(current(writer), record);
  BRRelease(record);
  end(writer);
}

static void writeTrack(Writer *writer, const Movie *movie) {
  begin(writer, "trak");
  FIELDS(writer, "tkhd", 7, 0, 0, 1, 0, kMovieTimescale, 0, 0, 0, 0, UNITY_MATRIX, kWidth << 16,
         kHeight << 16);
  begin(writer, "mdia");
  FIELDS(writer, "mdhd", 0, 0, 0, kTimescale, kFrames, 0x55C4u << 16);
  FIELDS(writer, "hdlr", 0, code("mhlr"), code("vide"), 0, 0, 0, 0);
  begin(writer, "minf");
  FIELDS(writer, "vmhd", 1, 0, 0);
  FIELDS(writer, "hdlr", 0, code("dhlr"), code("url "), 0, 0, 0, 0);
  begin(writer, "dinf");
  FIELDS(writer, "dref", 0, 1, 12, code("url "), 1);
  end(writer);
  begin(writer, "stbl");
  writeSampleDescription(writer, movie);
  FIELDS(writer, "stts", 0, 1, kFrames, 1);
  FIELDS(writer, "stsc", 0, 1, 1, kFrames, 1); /* all in one chunk */
  begin(writer, "stsz");
  for (size_t i = 0; i < 3; ++i) number(writer, i == 2 ? kFrames : 0, 4);
  for (size_t i = 0; i < kFrames; ++i) number(writer, movie->sizes[i], 4);
  end(writer);
  FIELDS(writer, "stco", 0, 1, movie->dataOffset);
  end(writer); /* stbl */
  end(writer); /* minf */
  end(writer); /* mdia */
  end(writer); /* trak */
}

static PVStatus writeMovie(KivByteStreamRef stream, Movie *movie) {
  Writer writer = {.depth = 0};
  writer.status = KivAtomWriterInitWithByteStream(stream, &writer.atoms[0]);
  FIELDS(&writer, "ftyp", code("qt  "), 0x200, code("qt  "));
  writeFrames(&writer, movie);
  begin(&writer, "moov");
  FIELDS(&writer, "mvhd", 0, 0, 0, kMovieTimescale, kMovieTimescale, 1 << 16, 1 << 24, 0, 0, UNITY_MATRIX, 0,
         0, 0, 0, 0, 0, 2);
  writeTrack(&writer, movie);
  end(&writer);
  return writer.status;
}

int main(int argc, char **argv) {
  const uint8_t *sets[] = {kSPS, kPPS};
  const size_t sizes[] = {sizeof kSPS, sizeof kPPS};
  const uint32_t flags =
      kKivByteStreamFile_Writable | kKivByteStreamFile_Create | kKivByteStreamFile_Truncate;
  Movie movie = {0};
  KivByteStreamRef stream = NULL;
  if (argc != 2) {
    fprintf(stderr, "usage: %s OUT.mov\n", argv[0]);
    return 2;
  }
  PVStatus status =
      PVVideoFormatDescriptionCreateFromH264ParameterSets(NULL, 2, sets, sizes, 4, &movie.format);
  if (status == 0) status = KivByteStreamCreateForFile(NULL, argv[1], flags, &stream);
  if (status == 0) status = writeMovie(stream, &movie);
  if (status != 0) fprintf(stderr, "%s: status %d\n", argv[1], (int)status);
  BRRelease(stream);
  BRRelease(movie.format);
  return status == 0 ? 0 : 1;
}
