#pragma once

#include <oru/host/LocalClock.h>

#include <chrono>
#include <cstdint>

namespace oru::host {

// Keeps a device that has no clock of its own (a file, nothing at all) at the real rate, as a
// sound card's buffer would: it holds up to `lead` of audio ahead of time, and a writer that
// fills it waits until half of that has played. The writer is thus woken once per half lead,
// however small its writes, rather than once per write. Called on the render thread only; the
// clock must outlive it.
class Pacer {
 public:
  static constexpr std::chrono::milliseconds kDefaultLead{100};

  explicit Pacer(int rate, std::chrono::milliseconds lead = kDefaultLead,
                 LocalClock& clock = LocalClock::monotonic());

  // Starts counting from now.
  void restart();
  // Starts counting from the local time `localNs` (the clock's), which may lie ahead: the first
  // frame is then due at that time.
  void restartAt(int64_t localNs);
  // Accounts `frames` more. When more than the lead of what was accounted is not yet due,
  // waits until only half the lead is.
  void wait(int64_t frames);
  // Frames due by now since the start, at most the frames accounted; 0 before it.
  int64_t playedFrames() const;

 private:
  int const mRate;
  int64_t const mLeadNs;
  LocalClock& mClock;
  int64_t mStartNs = 0;
  int64_t mFrames = 0;
};

}  // namespace oru::host
