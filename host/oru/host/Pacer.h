#pragma once

#include <chrono>
#include <cstdint>

namespace oru::host {

// Keeps a device that has no clock of its own (a file, nothing at all) at the real rate:
// wait() blocks until the frames taken so far are due, less a lead of one period.
// Called on the render thread only.
class Pacer {
 public:
  explicit Pacer(int rate, std::chrono::milliseconds lead = std::chrono::milliseconds(100));

  // Starts counting from now.
  void restart();
  // Starts counting from the local time `localNs` (SystemClock::localNow's clock), which may
  // lie ahead: the first frame is then due at that time.
  void restartAt(int64_t localNs);
  // Accounts `frames` more and waits until all but the lead of them are due.
  void wait(int64_t frames);
  // Frames due by now since the start, at most the frames accounted; 0 before it.
  int64_t playedFrames() const;

 private:
  int const mRate;
  std::chrono::milliseconds const mLead;
  std::chrono::steady_clock::time_point mStart;
  int64_t mFrames = 0;
};

}  // namespace oru::host
