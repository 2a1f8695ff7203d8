#include "src/stream.hpp"

#include <bedra/time.h>

namespace sonvar {

namespace {

constexpr unsigned int kUsualFramesPerSecond = 48000;
constexpr unsigned int kBufferUs = 500'000;  // as nobody fills it, larger only means that ALSA has less to do

}  // namespace

SonvarStatus statusOfError(int error) {
  switch (-error) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return kSonvarErr_NoSuchDevice;
    case EBUSY:
    case EAGAIN:
      return kSonvarErr_DeviceBusy;
    case ENOMEM:
      return kSonvarErr_OutOfMemory;
    default:
      return kSonvarErr_Unusable;
  }
}

SonvarStatus Stream::open(const char* name) {
  int error = snd_pcm_open(&pcm_, name, SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
  if (error < 0) {
    pcm_ = nullptr;
    return statusOfError(error);
  }
  error = configure();
  if (error >= 0) error = start();
  if (error >= 0) return 0;
  close();
  return statusOfError(error);
}

void Stream::close() {
  if (pcm_) snd_pcm_close(pcm_);
  pcm_ = nullptr;
}

// The format hardly matters: the device's own where it has a say, and the rate that most run at.
int Stream::configure() {
  snd_pcm_hw_params_t* hardware;
  snd_pcm_hw_params_alloca(&hardware);
  int error = snd_pcm_hw_params_any(pcm_, hardware);
  if (error < 0) return error;
  if (snd_pcm_hw_params_set_access(pcm_, hardware, SND_PCM_ACCESS_RW_INTERLEAVED) < 0 &&
      (error = snd_pcm_hw_params_set_access(pcm_, hardware, SND_PCM_ACCESS_MMAP_INTERLEAVED)) < 0)
    return error;
  framesPerSecond_ = kUsualFramesPerSecond;
  unsigned int channels = 2, bufferUs = kBufferUs;
  if ((error = snd_pcm_hw_params_set_rate_near(pcm_, hardware, &framesPerSecond_, nullptr)) < 0) return error;
  if ((error = snd_pcm_hw_params_set_channels_near(pcm_, hardware, &channels)) < 0) return error;
  snd_pcm_hw_params_set_buffer_time_near(pcm_, hardware, &bufferUs, nullptr);
  if ((error = snd_pcm_hw_params(pcm_, hardware)) < 0) return error;
  if (framesPerSecond_ == 0) return -EINVAL;

  snd_pcm_sw_params_t* software;
  snd_pcm_sw_params_alloca(&software);
  snd_pcm_uframes_t outOfReach;
  if ((error = snd_pcm_sw_params_current(pcm_, software)) < 0) return error;
  if ((error = snd_pcm_sw_params_get_boundary(software, &outOfReach)) < 0) return error;
  if ((error = snd_pcm_sw_params_set_start_threshold(pcm_, software, outOfReach)) < 0) return error;
  if ((error = snd_pcm_sw_params_set_stop_threshold(pcm_, software, outOfReach)) < 0) return error;
  if ((error = snd_pcm_sw_params_set_silence_threshold(pcm_, software, 0)) < 0) return error;
  if ((error = snd_pcm_sw_params_set_silence_size(pcm_, software, outOfReach)) < 0) return error;
  if ((error = snd_pcm_sw_params_set_tstamp_mode(pcm_, software, SND_PCM_TSTAMP_ENABLE)) < 0) return error;
  if ((error = snd_pcm_sw_params_set_tstamp_type(pcm_, software, SND_PCM_TSTAMP_TYPE_MONOTONIC)) < 0)
    return error;
  return snd_pcm_sw_params(pcm_, software);
}

int Stream::start() {
  int error = snd_pcm_prepare(pcm_);
  if (error >= 0 && snd_pcm_state(pcm_) != SND_PCM_STATE_RUNNING) error = snd_pcm_start(pcm_);
  ++run_;
  return error;
}

SonvarStatus Stream::read(SonvarTimeStamp* stamp) {
  snd_pcm_status_t* status;
  snd_pcm_status_alloca(&status);
  int error = snd_pcm_status(pcm_, status);
  if (error >= 0 && snd_pcm_status_get_state(status) == SND_PCM_STATE_DISCONNECTED) error = -ENODEV;
  if (error >= 0 && snd_pcm_status_get_state(status) != SND_PCM_STATE_RUNNING) {
    error = start();  // it had been stopped: by an underrun after all, or while the machine slept
    if (error >= 0) error = snd_pcm_status(pcm_, status);
  }
  if (error < 0)
    return statusOfError(error) == kSonvarErr_NoSuchDevice ? kSonvarErr_DeviceDied : kSonvarErr_Unusable;
  snd_htimestamp_t at;
  snd_pcm_status_get_htstamp(status, &at);
  const uint64_t atNs = static_cast<uint64_t>(at.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(at.tv_nsec);
  stamp->frames = -static_cast<int64_t>(snd_pcm_status_get_delay(status));
  stamp->hostTimeNs = atNs != 0 ? atNs : BRHostTimeGetUptimeNs();  // some plug-ins do not stamp
  stamp->framesPerSecond = framesPerSecond_;
  stamp->run = run_;
  return 0;
}

}  // namespace sonvar
