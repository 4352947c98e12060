#pragma once

#include <oru/AudioPlayer.h>
#include <oru/host/Pacer.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

namespace oru::host {

// An output device that writes what it is given into a WAV file, as fast as it comes or paced
// at the real rate. The file takes the format and channel count of the first start(); a later
// start() with other ones fails, since one WAV file holds one format. Advertises one rate
// (48000 Hz unless given) and one format (16-bit unless given), so that the engine converts
// every stream to them.
//
// Called by the player's render thread; framesWritten() and close() from any thread once the
// player is gone (close() is also called by the destructor). The header is brought up to date
// on every stop and on close().
class WavFileOutput : public PlaybackDelegate {
 public:
  WavFileOutput(std::string path, int rate = 48000, AudioFormat format = PCM_S16,
                bool paced = false);
  ~WavFileOutput() override;

  WavFileOutput(WavFileOutput const&) = delete;
  WavFileOutput& operator=(WavFileOutput const&) = delete;

  // Whether the file could be created (at the first start).
  bool failed() const { return mFailed; }
  int64_t framesWritten() const { return mFramesWritten; }
  // Completes the header and closes the file.
  void close();
  // Takes the time stamps of writes as local times (SystemClock::localNow's clock), as a player
  // in TIMESTAMP_LOCAL or TIMESTAMP_COMMON gives them, and presents the first frame after each
  // start at its time stamp: paced, it waits until then; unpaced, it writes the silence until then
  // from the start. Off by default: in TIMESTAMP_STREAM the time stamps are stream
  // positions. Set before the player starts.
  void keepTime(bool on) { mKeepTime = on; }

  int start(AudioFormat format, int channels) override;
  void stop(StopBehavior behavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override;
  PlaybackCapabilities getPlaybackConfig() override;

 private:
  void writeHeader();
  void writeSilence(int64_t frames);

  std::string const mPath;
  uint32_t const mRate;
  AudioFormat const mFormat;
  bool const mPaced;
  Pacer mPacer;
  bool mKeepTime = false;
  bool mAwaitingFirstWrite = false;
  int64_t mStartedAtNs = 0;
  FILE* mFile = nullptr;
  int mChannels = 0;
  int mFrameBytes = 0;
  bool mFailed = false;
  int64_t mFramesSinceStart = 0;
  std::atomic<int64_t> mFramesWritten{0};
};

}  // namespace oru::host
