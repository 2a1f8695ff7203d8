/* A C11 program that knows only the installed headers. */
#include <pevrin/pevrin.h>
#include <stdio.h>
#include <string.h>

static int fail(const char *what) {
  fprintf(stderr, "consumer.c: %s\n", what);
  return 1;
}

int main(void) {
  PVTime half = PVTimeMake(1, 2);
  PVTime sum = PVTimeAdd(half, PVTimeMake(1, 3));
  if (sum.value != 5 || sum.timescale != 6) return fail("1/2 + 1/3 is not 5/6");

  BRStringRef text = PVTimeCopyDescription(NULL, sum);
  if (!text || strcmp(BRStringGetUTF8(text), "{5/6 = 0.833}") != 0) return fail("description of 5/6");
  BRRelease(text);

  PVBlockBufferRef buffer = NULL;
  if (PVBlockBufferCreateWithMemoryBlock(NULL, NULL, 4096, NULL, NULL, 0, 4096, kPVBlockBufferAssureMemoryNowFlag,
                                         &buffer) != 0)
    return fail("no block buffer");
  if (PVBlockBufferGetDataLength(buffer) != 4096) return fail("length of the block buffer");
  BRRelease(buffer);
  return 0;
}
