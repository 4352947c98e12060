#pragma once

#include <oru/AudioPlayer.h>
#include <oru/host/LocalClock.h>

#include <cstdint>
#include <utility>

namespace oru::host {

// What the reference outputs (WavFileOutput, AlsaOutput, NullOutput) share: the one rate they
// advertise, the local clock they take their time from, and keeping time. Called by the
// player's render thread, keepTime() before the player starts; the clock must outlive it.
class ReferenceOutput : public PlaybackDelegate {
 public:
  // Takes the time stamps of writes as local times (the clock's), as a player in
  // TIMESTAMP_LOCAL or TIMESTAMP_COMMON gives them, and presents the first frame after each
  // start at its time stamp; each output says how. Off by default: in TIMESTAMP_STREAM the time
  // stamps are stream positions. Set before the player starts.
  void keepTime(bool on) { mKeepTime = on; }

 protected:
  ReferenceOutput(int rate, LocalClock& clock)
      : mRate(static_cast<uint32_t>(rate)), mClock(clock) {}

  // At each start: frames count from zero, and the next write is the first after a start.
  void restartCounting() {
    mFramesSinceStart = 0;
    mAwaitingFirstWrite = mKeepTime;
  }
  // True for the first write after a start when keeping time, once.
  bool takeFirstTimedWrite() { return std::exchange(mAwaitingFirstWrite, false); }

  uint32_t const mRate;
  LocalClock& mClock;
  int64_t mFramesSinceStart = 0;

 private:
  bool mKeepTime = false;
  bool mAwaitingFirstWrite = false;
};

}  // namespace oru::host
