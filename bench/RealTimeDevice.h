// The real-time benchmark's device: paced like a sound card, counting its wake-ups and underruns.
#pragma once

#include "BenchDevice.h"
#include "Units.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace bench {

// A device that plays at the real rate as a sound card does. It holds up to kLead of audio; a
// write takes frames while the lead has room and otherwise blocks until only kWakeAt is left, as
// a card's period interrupt wakes a blocked writer, then takes more. Played frames follow the
// monotonic clock from the first write after a start. The reference outputs' Pacer is not used:
// it takes a whole write before it waits, so it holds up to a write more than its lead (a FLAC
// frame is 104 ms), and it cannot tell its wake-ups. It counts:
//  - wake-ups: each time a blocked write is woken, and the latest one came after its time;
//  - underruns: each write of data that comes after all it held has played (it then plays on
//    from that write, as a card recovers), and each stretch of the engine's starving writes of
//    null data while playing (a data write that ends such a stretch late is the same underrun);
//    and the longest it was dry before a write.
// 16-bit stereo at 48 kHz, as BenchDevice; called on one thread (the render thread, or the bare
// loop's); the counts are read by any.
class RealTimeDevice : public BenchDevice {
 public:
  static constexpr std::chrono::milliseconds kLead{100};
  static constexpr std::chrono::milliseconds kWakeAt{kLead / 2};

  RealTimeDevice(Signal& ending, int64_t frameLimit) : BenchDevice(0, ending, frameLimit) {}

  int start(oru::AudioFormat format, int channels) override {
    mPlaying = false;
    return BenchDevice::start(format, channels);
  }
  void stop(oru::StopBehavior behavior) override {
    mPlaying = false;
    BenchDevice::stop(behavior);
  }
  int write(long long timestamp, void const* data, unsigned* frames) override {
    if (data == nullptr) {
      if (mPlaying && !mStarving) {
        ++starvingStretches;
      }
      mStarving = true;
      return BenchDevice::write(timestamp, data, frames);
    }
    take(*frames);
    mStarving = false;
    return BenchDevice::write(timestamp, data, frames);
  }
  long long getPlayedFrames() override { return mPlaying ? played(mClock.now()) : 0; }

  int64_t underruns() const { return lateWrites + starvingStretches; }

  std::atomic<int64_t> wakeUps{0};
  std::atomic<int64_t> latestWakeNs{0};  // after the time it was due
  std::atomic<int64_t> lateWrites{0};
  std::atomic<int64_t> starvingStretches{0};
  std::atomic<int64_t> longestDryNs{0};

 private:
  static constexpr int64_t kLeadFrames = kRate * kLead.count() / oru::host::kMsPerSecond;
  static constexpr int64_t kWakeAtFrames = kRate * kWakeAt.count() / oru::host::kMsPerSecond;

  void take(int64_t frames) {
    int64_t now = mClock.now();
    if (!mPlaying) {
      mPlaying = true;
      mStartNs = now;
      mFrames = 0;
    } else if (int64_t const dryNs = now - dueNs(mFrames); dryNs > 0) {
      if (!mStarving) {
        ++lateWrites;
      }
      noteMost(longestDryNs, dryNs);
      mStartNs += dryNs;
    }
    for (;;) {
      int64_t const room = kLeadFrames - (mFrames - played(now));
      int64_t const taken = std::clamp<int64_t>(room, 0, frames);
      mFrames += taken;
      frames -= taken;
      if (frames == 0) {
        return;
      }
      // Full, so more than kWakeAt is held: the wait is a real one.
      int64_t const wakeNs = dueNs(mFrames - kWakeAtFrames);
      mClock.sleepUntil(wakeNs);
      now = mClock.now();
      ++wakeUps;
      noteMost(latestWakeNs, now - wakeNs);
    }
  }

  static void noteMost(std::atomic<int64_t>& most, int64_t value) {
    most = std::max(most.load(), value);
  }

  // Whole microseconds keep the products within 64 bits over days, as in Pacer.
  int64_t dueNs(int64_t frames) const {
    return mStartNs + frames * oru::host::kUsPerSecond / kRate * oru::host::kNsPerUs;
  }
  int64_t played(int64_t now) const {
    int64_t const elapsedUs = (now - mStartNs) / oru::host::kNsPerUs;
    return std::clamp<int64_t>(elapsedUs * kRate / oru::host::kUsPerSecond, 0, mFrames);
  }

  bool mPlaying = false;
  bool mStarving = false;
  int64_t mStartNs = 0;
  int64_t mFrames = 0;  // taken since the first write after a start
};

}  // namespace bench
