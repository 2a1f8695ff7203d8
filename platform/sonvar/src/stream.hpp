// A PCM that plays silence of its own accord, for its clock's sake.
//
// No frame is ever written to it. The stop threshold is out of reach, so it runs on when it has nothing to
// play, and the silence size makes ALSA blank what it plays. Nobody has written a frame, so the delay is
// minus the frames heard.
#ifndef SONVAR_STREAM_HPP
#define SONVAR_STREAM_HPP

#include <alsa/asoundlib.h>
#include <sonvar/audio_device.h>

namespace sonvar {

class Stream {
 public:
  Stream() = default;
  ~Stream() { close(); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // By the name of the PCM.
  SonvarStatus open(const char* name);
  void close();
  bool isOpen() const { return pcm_; }
  // kSonvarErr_DeviceDied when the hardware has gone. A stream that the system has stopped is started for a
  // new run.
  SonvarStatus read(SonvarTimeStamp* stamp);

 private:
  int configure();
  int start();

  snd_pcm_t* pcm_ = nullptr;
  unsigned int framesPerSecond_ = 0;
  uint32_t run_ = 0;  // goes on when the device is opened again
};

// What a negative result of ALSA's means.
SonvarStatus statusOfError(int error);

}  // namespace sonvar

#endif
