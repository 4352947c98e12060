#pragma once

#include "Stream.h"

#include <oru/host/NullOutput.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace bench::radio {

// Wakes the sampler when the device has written up to a mark, or when the track has ended.
// noteFrames on the render thread, end on the player's thread, wait on the sampler's.
class Progress {
 public:
  void noteFrames(int64_t frames) {
    if (frames >= mWakeAt.load(std::memory_order_relaxed)) {
      std::lock_guard<std::mutex> lock(mMutex);
      mWakeAt = INT64_MAX;
      mChanged.notify_all();
    }
  }
  void end(std::string const& how) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mHow.empty()) {
      mHow = how;
    }
    mChanged.notify_all();
  }
  // Waits until the device has taken `mark` frames or the track has ended. Returns how it ended,
  // empty while it plays; "stalled" when the frames did not move for kStallWait.
  std::string waitFor(int64_t mark, oru::host::NullOutput const& device) {
    std::unique_lock<std::mutex> lock(mMutex);
    mWakeAt = mark;
    int64_t seen = device.framesTaken();
    auto movedAt = std::chrono::steady_clock::now();
    while (device.framesTaken() < mark && mHow.empty()) {
      mChanged.wait_for(lock, std::chrono::seconds(1));
      if (device.framesTaken() != seen) {
        seen = device.framesTaken();
        movedAt = std::chrono::steady_clock::now();
      } else if (std::chrono::steady_clock::now() - movedAt > kStallWait) {
        return "stalled";
      }
    }
    mWakeAt = INT64_MAX;
    return mHow;
  }

 private:
  std::mutex mMutex;  // guards mHow and the waits
  std::condition_variable mChanged;
  std::atomic<int64_t> mWakeAt{INT64_MAX};
  std::string mHow;
};

}  // namespace bench::radio
