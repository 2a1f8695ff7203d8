/* Sonvar, the audio hardware service: output devices and the time that they keep.
 *
 * A device that has been started counts frames as it plays them, and says when asked how many it had played at which
 * instant of the host. Nothing needs to be given to it: it plays silence. A PCM that does not mix ("hw:...") is then
 * taken, and nobody else can play on it.
 *
 * Devices are numbered as they are first asked for; a number means the same device for the life of the process. A UID
 * names a device from one process to the next: here it is the name of an ALSA PCM, like "default", "hw:1,0" or
 * "plughw:CARD=Deck,DEV=0".
 *
 * Threads: any thread may call any function. Listeners are called on any thread, also inside the functions below.
 *
 *   SonvarDeviceID device;
 *   SonvarTimeStamp stamp;
 *   SonvarStatus status = SonvarGetDefaultOutputDevice(&device);
 *   if (status == 0) status = SonvarDeviceStart(device);
 *   if (status == 0) status = SonvarDeviceGetTimeStamp(device, &stamp);
 */
#ifndef SONVAR_AUDIO_DEVICE_H
#define SONVAR_AUDIO_DEVICE_H

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef int32_t SonvarStatus; /* 0 is success */
typedef uint32_t SonvarDeviceID; /* names a device as long as the process lives */

enum { kSonvarDevice_None = 0 };

enum {
  kSonvarErr_Parameter = -1,     /* a required argument is null, or a buffer too short */
  kSonvarErr_NoSuchDevice = -2,  /* no such device, or there is none at all */
  kSonvarErr_DeviceBusy = -3,    /* somebody else has it for himself */
  kSonvarErr_Unusable = -4,      /* the device cannot play, or has no time to tell */
  kSonvarErr_NotStarted = -5,    /* the device has not been started */
  kSonvarErr_DeviceDied = -6,    /* it was there and is gone; start it again when it is back */
  kSonvarErr_OutOfMemory = -7
};

/* What a device said of its time. */
typedef struct SonvarTimeStamp {
  int64_t frames;           /* heard so far in this run */
  uint64_t hostTimeNs;      /* when that was, on the clock of BRHostTimeGetUptimeNs */
  uint32_t framesPerSecond; /* the device's nominal rate */
  uint32_t run;             /* frames are counted anew in each run: stamps of two runs have nothing in common */
} SonvarTimeStamp;

/* What happened to a device. */
typedef uint32_t SonvarEvent;
enum {
  kSonvarEvent_DefaultOutputDeviceChanged = 1, /* the device is the new one, or none */
  kSonvarEvent_DeviceDied = 2
};

/* Must return soon and must not add or remove listeners. */
typedef void (*SonvarListener)(void *context, SonvarEvent event, SonvarDeviceID device);

/* The device that plays what asks for no other. NoSuchDevice. */
BR_EXPORT SonvarStatus SonvarGetDefaultOutputDevice(SonvarDeviceID *deviceOut);

/* The device of that name, in UTF-8. NoSuchDevice. */
BR_EXPORT SonvarStatus SonvarGetDeviceWithUID(const char *uid, SonvarDeviceID *deviceOut);

/* Writes the device's UID, with a NUL. NoSuchDevice; Parameter. */
BR_EXPORT SonvarStatus SonvarDeviceGetUID(SonvarDeviceID device, char *buffer, size_t bufferBytes);

/* Each Start wants a Stop, also of a device that has died.
 * Start: NoSuchDevice; DeviceBusy; Unusable; OutOfMemory. Stop: NoSuchDevice; NotStarted. */
BR_EXPORT SonvarStatus SonvarDeviceStart(SonvarDeviceID device);
BR_EXPORT SonvarStatus SonvarDeviceStop(SonvarDeviceID device);

/* The latest that the device says. NoSuchDevice; NotStarted; DeviceDied; Unusable. */
BR_EXPORT SonvarStatus SonvarDeviceGetTimeStamp(SonvarDeviceID device, SonvarTimeStamp *stampOut);

/* Calls the listener with every event until the same pair is removed; it is not being called any more when Remove
 * returns. Parameter: listener is null. Removing a pair that is not there does nothing. */
BR_EXPORT SonvarStatus SonvarAddListener(SonvarListener listener, void *context);
BR_EXPORT SonvarStatus SonvarRemoveListener(SonvarListener listener, void *context);

BR_END_DECLS

#endif
