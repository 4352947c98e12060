#pragma once

#include <oru/host/Pacer.h>
#include <oru/host/ReferenceOutput.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

namespace oru::host {

// An output device that writes what it is given into a WAV file, as fast as it comes or paced
// at the real rate. The file takes the format and channel count of the first start(); a later
// start() with other ones fails, since one WAV file holds one format. Advertises one rate
// (48000 Hz unless given) and one format (16-bit unless given), so that the engine converts
// every stream to them. Keeping time, it presents the first frame after each start at its time
// stamp: paced, it waits until then; unpaced, it writes the silence until then from the start.
//
// Called by the player's render thread; framesWritten() and close() from any thread once the
// player is gone (close() is also called by the destructor). The header is brought up to date
// on every stop and on close().
class WavFileOutput : public ReferenceOutput {
 public:
  WavFileOutput(std::string path, int rate = 48000, AudioFormat format = PCM_S16,
                bool paced = false, LocalClock& clock = LocalClock::monotonic());
  ~WavFileOutput() override;

  WavFileOutput(WavFileOutput const&) = delete;
  WavFileOutput& operator=(WavFileOutput const&) = delete;

  // Whether the file could be created (at the first start).
  bool failed() const { return mFailed; }
  int64_t framesWritten() const { return mFramesWritten; }
  // Completes the header and closes the file.
  void close();

  int start(AudioFormat format, int channels) override;
  void stop(StopBehavior behavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override;
  PlaybackCapabilities getPlaybackConfig() override;

 private:
  void writeHeader();
  void writeSilence(int64_t frames);

  std::string const mPath;
  AudioFormat const mFormat;
  bool const mPaced;
  Pacer mPacer;
  int64_t mStartedAtNs = 0;
  FILE* mFile = nullptr;
  int mChannels = 0;
  int mFrameBytes = 0;
  bool mFailed = false;
  std::atomic<int64_t> mFramesWritten{0};
};

}  // namespace oru::host
