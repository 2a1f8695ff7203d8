/* A C11 program that knows only the installed headers. */
#include <kiv/base_object.h>
#include <pevrin/pevrin.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fail(const char *what) {
  fprintf(stderr, "consumer.c: %s\n", what);
  return 1;
}

/* A class whose table holds the library's standard barrier: the library knows it by its address. */
static int makeObjectWithBarrier(void) {
  static const PVBaseClass base = {.version = 2, .notificationBarrier = KivBaseObjectStandardNotificationBarrier};
  static const PVVTable vtable = {NULL, &base};
  static const PVClassDescription description = {.className = "ConsumerObject"};
  PVBaseClassID classID = NULL;
  PVBaseObjectRef object = NULL;
  if (KivBaseClassRegisterClass(&description, kKivBaseClassID, kKivBaseClassFlag_OwnRuntimeType, &classID) != 0)
    return fail("no class");
  if (PVDerivedObjectCreate(NULL, &vtable, classID, &object) != 0) return fail("no object");
  if (KivBaseObjectStandardNotificationBarrier(object) != 0) return fail("the object has no barrier");
  BRRelease(object);
  return 0;
}

/* A dictionary that holds objects through the program's own callback records. */
static int copyDictionaryOfObjects(void) {
  BRDictionaryKeyCallBacks keys = kBRTypeDictionaryKeyCallBacks;
  keys.equal = BREqual;
  keys.hash = BRHash;
  BRDictionaryValueCallBacks values = kBRTypeDictionaryValueCallBacks;
  values.equal = BREqual;
  const void *key = kPVTimeValueKey, *value = kBRBooleanTrue;
  BRDictionaryRef dictionary = BRDictionaryCreate(NULL, &key, &value, 1, &keys, &values);
  BRTypeRef copy = BRPropertyListCreateDeepCopy(NULL, dictionary);
  int status = copy && BREqual(copy, dictionary) ? 0 : fail("no deep copy");
  BRRelease(copy);
  BRRelease(dictionary);
  return status;
}

/* The ways to decode a stream of layered AAC: 1 when nobody can tell. */
static size_t countFormats(void) {
  static const unsigned char cookie[] = {0xEB, 0x09, 0x88, 0x00};
  const AudioStreamBasicDescription mono = {24000, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 1, 0, 0};
  PVAudioFormatDescriptionRef audio = NULL;
  size_t listBytes = 0;
  if (PVAudioFormatDescriptionCreate(NULL, &mono, 0, NULL, sizeof cookie, cookie, NULL, &audio) != 0) return 0;
  PVAudioFormatDescriptionGetFormatList(audio, &listBytes);
  BRRelease(audio);
  return listBytes / sizeof(AudioFormatListItem);
}

/* The argument is the number of formats to be found. */
int main(int argc, char **argv) {
  if (argc != 2 || countFormats() != strtoul(argv[1], NULL, 10)) return fail("formats of layered AAC");
  if (makeObjectWithBarrier() != 0 || copyDictionaryOfObjects() != 0) return 1;

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
