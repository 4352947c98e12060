#pragma once

#include <oru/AudioPlayer.h>
#include <oru/host/Pacer.h>

#include <atomic>
#include <cstdint>
#include <optional>

namespace oru::host {

// An output device that discards what it is given, either as fast as it comes or paced at the
// real rate. Advertises one rate (48000 Hz unless given) and all three formats.
// Called by the player's render thread; framesTaken() from any thread.
class NullOutput : public PlaybackDelegate {
 public:
  enum Pacing { kUnpaced, kRealTime };

  explicit NullOutput(Pacing pacing, int rate = 48000);

  int start(AudioFormat format, int channels) override;
  void stop(StopBehavior behavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override;
  PlaybackCapabilities getPlaybackConfig() override;

  // Takes the time stamps of writes as local times (SystemClock::localNow's clock), as a player
  // in TIMESTAMP_LOCAL or TIMESTAMP_COMMON gives them, and presents the first frame after each
  // start at its time stamp (paced: waits until then). Off by default: in TIMESTAMP_STREAM the time
  // stamps are stream positions. Set before the player starts.
  void keepTime(bool on) { mKeepTime = on; }

  // Frames taken since construction, over every start.
  int64_t framesTaken() const { return mFramesTaken; }

 private:
  Pacing const mPacing;
  uint32_t const mRate;
  Pacer mPacer;
  bool mKeepTime = false;
  bool mAwaitingFirstWrite = false;
  int64_t mFramesSinceStart = 0;
  std::atomic<int64_t> mFramesTaken{0};
};

}  // namespace oru::host
