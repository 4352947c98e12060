#pragma once

#include <oru/host/Pacer.h>
#include <oru/host/ReferenceOutput.h>

#include <atomic>
#include <cstdint>

namespace oru::host {

// An output device that discards what it is given, either as fast as it comes or paced at the
// real rate. Advertises one rate (48000 Hz unless given) and all three formats. Keeping time,
// it presents the first frame after each start at its time stamp (paced: waits until then).
// Called by the player's render thread; framesTaken() from any thread.
class NullOutput : public ReferenceOutput {
 public:
  enum Pacing { kUnpaced, kRealTime };

  explicit NullOutput(Pacing pacing, int rate = 48000, LocalClock& clock = LocalClock::monotonic());

  int start(AudioFormat format, int channels) override;
  void stop(StopBehavior behavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override;
  PlaybackCapabilities getPlaybackConfig() override;

  // Frames taken since construction, over every start.
  int64_t framesTaken() const { return mFramesTaken; }

 protected:
  // Paced at `pacedRate` frames a second rather than at `rate`: a device that plays faster than
  // real time, as a benchmark's does.
  NullOutput(Pacing pacing, int rate, int pacedRate, LocalClock& clock);

 private:
  Pacing const mPacing;
  Pacer mPacer;
  std::atomic<int64_t> mFramesTaken{0};
};

}  // namespace oru::host
