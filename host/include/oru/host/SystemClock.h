#pragma once

#include <oru/AudioPlayer.h>

#include <atomic>
#include <cstdint>

namespace oru::host {

// A common clock over the local monotonic clock: common time = local time + offset. The drift
// and correction it reports can be set, to simulate a device whose clock runs apart from the
// common one. Any thread.
class SystemClock : public AudioPlayer::CommonTimeDelegate {
 public:
  // The local monotonic clock, ns.
  static int64_t localNow();
  // The common clock, ns.
  int64_t now() const { return localNow() + mOffset; }

  void setOffset(int64_t commonMinusLocal) { mOffset = commonMinusLocal; }
  void setDriftPpm(double ppm) { mDriftPpm = ppm; }
  void setCorrectionPpm(double ppm) { mCorrectionPpm = ppm; }

  int commonToLocal(long long commonTime, long long* localTime) override;
  double getDriftPpm() override { return mDriftPpm; }
  double getCorrectionPpm() override { return mCorrectionPpm; }

 private:
  std::atomic<int64_t> mOffset{0};
  std::atomic<double> mDriftPpm{0.0};
  std::atomic<double> mCorrectionPpm{0.0};
};

}  // namespace oru::host
