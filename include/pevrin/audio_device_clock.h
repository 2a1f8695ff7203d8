/* Audio device clocks: clocks that run as fast as an audio output device plays.
 *
 * A player that takes such a clock for its timebases shows its pictures when their sound is heard, however far the
 * device's crystal is from the host's. The clock's reference clock is the host time clock, and its time begins with
 * the host's at creation.
 *
 * How it runs: twenty times a second of host time at most, a reading asks the device how many frames it has played at
 * which instant; frames / nominal sample rate is the device's time. The clock never jumps and never runs backward: what
 * the device says only changes the rate at which it goes on. That is the device's rate, measured over the last 1 to 10
 * seconds (the host's in the first second; at most 1 % off that), plus whatever takes back the clock's distance
 * from the device in 4 seconds. A device that is suddenly more than 0.1 s off has jumped or has stood still: the
 * clock goes on from where it is and follows the device from there.
 *
 * When the device changes, by a call or because the clock follows the default device and that has changed, the clock
 * goes on from where it is, at the host's rate until the new device's is known. When the device dies, a clock that
 * follows the default device tries that one at once; otherwise, and as long as there is none, it runs on at the host's
 * rate. It does not come back to a device that has died: give it a device then.
 *
 * PVClockMightDrift of two of these clocks is false as long as both follow one device.
 *
 * The devices are those of Sonvar, the audio hardware service, which is loaded on first use: libsonvar.so.0, or the
 * file that PEVRIN_SONVAR_PATH names. While a clock follows a device, that is started, and plays silence.
 *
 * Threads: any thread may call any function. A reading waits while another thread gives the clock a device, which takes
 * as long as starting that does.
 *
 *   PVClockRef clock;
 *   PVStatus status = PVAudioDeviceClockCreate(NULL, NULL, &clock);   // the default device
 *   if (status != 0) clock = PVClockGetHostTimeClock();
 */
#ifndef PEVRIN_AUDIO_DEVICE_CLOCK_H
#define PEVRIN_AUDIO_DEVICE_CLOCK_H

#include <bedra/string.h>
#include <pevrin/clock.h>

PV_BEGIN_DECLS

/* The number that Sonvar gives a device in this process; 0 is none. */
typedef uint32_t PVAudioDeviceID;

enum {
  /* There is no audio hardware service. */
  kPVAudioDeviceClockError_ServiceUnavailable = -12758,
  /* There is no such device, or no device at all, or it cannot be started. */
  kPVAudioDeviceClockError_DeviceUnavailable = -12759
};

/* Creates a clock that follows the device of that UID, or, for NULL, the default output device, also when that changes.
 * Statuses, in this order: kPVClockError_RequiredParameterMissing (clockOut is NULL); ServiceUnavailable;
 * kPVClockError_AllocationFailed; DeviceUnavailable. On failure *clockOut is NULL. */
PV_EXPORT PVStatus PVAudioDeviceClockCreate(BRAllocatorRef allocator, BRStringRef deviceUID, PVClockRef *clockOut);

/* The same by number; 0 stands for the default device. */
PV_EXPORT PVStatus PVAudioDeviceClockCreateFromAudioDeviceID(BRAllocatorRef allocator, PVAudioDeviceID deviceID,
                                                             PVClockRef *clockOut);

/* PVAudioDeviceClockCreate for the default output device. */
PV_EXPORT PVStatus PVAudioClockCreate(BRAllocatorRef allocator, PVClockRef *clockOut);

/* Follows the device of that UID from now on; for NULL the default device. On failure nothing changes.
 * Statuses, in this order: kPVClockError_RequiredParameterMissing (clock is NULL); kPVClockError_InvalidClock (not an
 * audio device clock, or an invalidated one); kPVClockError_AllocationFailed; DeviceUnavailable. */
PV_EXPORT PVStatus PVAudioDeviceClockSetAudioDeviceUID(PVClockRef clock, BRStringRef deviceUID);

/* The same by number; 0 stands for the default device. */
PV_EXPORT PVStatus PVAudioDeviceClockSetAudioDeviceID(PVClockRef clock, PVAudioDeviceID deviceID);

/* The device that the clock follows: its UID, its number, and whether it is followed as the default device. NULL and 0
 * when it has died. Any of the pointers may be NULL. The UID is lent until the clock follows another device.
 * Statuses: kPVClockError_RequiredParameterMissing and kPVClockError_InvalidClock, as above. */
PV_EXPORT PVStatus PVAudioDeviceClockGetAudioDevice(PVClockRef clock, BRStringRef *deviceUIDOut,
                                                    PVAudioDeviceID *deviceIDOut, bool *followsDefaultOut);

PV_END_DECLS

#endif
