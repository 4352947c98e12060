#pragma once

#include <oru/host/ReferenceOutput.h>

#include <atomic>
#include <cstdint>
#include <string>

typedef struct _snd_pcm snd_pcm_t;

namespace oru::host {

// An output device over an ALSA PCM. start() opens (or re-opens for another format) the PCM,
// write() blocks while the device is full, stop() drains, drops or pauses, played frames come
// from the device's delay, and underruns are counted as the device sees them. An underrun
// signal from the engine waits until the device could take data (at most one period).
// Advertises one rate (48000 Hz unless given) and the three formats. Keeping time, the first
// frame after each start leaves the device at its time stamp, after silence that accounts for
// what the device already holds.
//
// Called by the player's render thread; underruns() from any thread. Without a sound card,
// "null" or "file:FILE=out.raw,FORMAT=raw" name PCMs that discard or record the audio.
class AlsaOutput : public ReferenceOutput {
 public:
  explicit AlsaOutput(std::string device = "default", int rate = 48000, int latencyMs = 100,
                      LocalClock& clock = LocalClock::monotonic());
  ~AlsaOutput() override;

  AlsaOutput(AlsaOutput const&) = delete;
  AlsaOutput& operator=(AlsaOutput const&) = delete;

  // Whether `device` can be opened for playback; if not, ALSA's reason in `error`.
  static bool probe(std::string const& device, std::string* error);

  // Underruns the device reported since construction.
  int64_t underruns() const { return mUnderruns; }

  int start(AudioFormat format, int channels) override;
  void stop(StopBehavior behavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override;
  PlaybackCapabilities getPlaybackConfig() override;

 private:
  void close();
  // Writes all `frames` at `data`, recovering from underruns; the frames written.
  int64_t writeAll(uint8_t const* data, int64_t frames, int* error);
  // Silence so that the next frame leaves the device at the local time `timestamp`.
  int waitWithSilence(int64_t timestamp);

  std::string const mDevice;
  int const mLatencyMs;
  snd_pcm_t* mPcm = nullptr;
  AudioFormat mFormat = PCM_S16;
  int mChannels = 0;
  int mFrameBytes = 0;
  bool mPaused = false;
  bool mDrained = false;
  std::atomic<int64_t> mUnderruns{0};
};

}  // namespace oru::host
