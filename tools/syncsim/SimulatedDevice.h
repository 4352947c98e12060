#pragma once

#include "Units.h"

#include <oru/AudioPlayer.h>
#include <oru/host/DriftEstimator.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace syncsim {

// A device's local clock against the common clock, in ns: it runs `ppm` fast (negative: slow)
// until the common time `stepAtNs`, then `ppm + stepPpm` fast. Immutable; any thread.
class DriftingClock {
 public:
  DriftingClock(double ppm, double stepPpm, int64_t stepAtNs);

  double localAt(double commonNs) const;
  double commonAt(double localNs) const;
  // How fast the clock runs at a common time, in ppm.
  double ppmAt(double commonNs) const;

 private:
  double const mRate;       // local ns per common ns before the step
  double const mRateAfter;  // and after it
  double const mStepAtNs;
};

// How far a device's heard position strays from the common timeline, in frames.
struct Deviation {
  double maxFrames = 0;
  double sumOfSquares = 0;
  int64_t count = 0;

  void add(double frames);
  double rmsFrames() const;
};

// A simulated output device in virtual time: a DAC that presents every frame it is given
// continuously from the local time of the first write after start(), at 48 kHz on its own
// local clock, and that reads back, from each presented frame of a RampSource stream, which
// source position is heard at which common time. It takes everything at once, so the engine
// runs as fast as the machine allows. Called by the player's render thread; the results once
// the player is gone.
class SimulatedDevice : public oru::PlaybackDelegate {
 public:
  static constexpr int64_t kGridNs =
      10 * oru::host::kNsPerMs;  // the deviation is also kept every 10 ms

  // `startCommonNs` is when the stream's first frame is due on the common clock; the deviation
  // counts from `settleNs` after it.
  SimulatedDevice(DriftingClock const& clock, int64_t startCommonNs, int64_t settleNs);

  // Waits until the engine has stopped the device (a pause reaches it a little after the
  // player reports it), then has the stream due `ns` later on the common clock from the next
  // start() on: the host resumes it after a pause that long.
  void delayAfterRestart(int64_t ns);

  // The common time of the last presented frame: the simulation's "now".
  double commonNow() const { return mCommonNow; }
  // The deviation once settled, and its value at every 10 ms of common time since
  // the start (NaN where no frame could be read).
  Deviation const& deviation() const { return mDeviation; }
  std::vector<double> const& grid() const { return mGrid; }

  int start(oru::AudioFormat format, int channels) override;
  void stop(oru::StopBehavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override { return mPresented; }
  oru::PlaybackCapabilities getPlaybackConfig() override;

 private:
  DriftingClock const& mClock;
  double mStartCommonNs;
  std::mutex mMutex;  // guards the two below, between the render thread and the host
  std::condition_variable mStopped;
  bool mStarted = false;
  double mRestartDelayNs = 0;
  double const mSettleNs;
  bool mAwaitingFirstWrite = true;
  double mFirstLocalNs = 0;
  int64_t mPresented = 0;
  double mCommonNow = 0;
  Deviation mDeviation;
  std::vector<double> mGrid;
};

// What a host's clock service tells the engine about a simulated device: exact conversions
// between common and local time, and the clock's drift at the simulation's current time: the
// common clock's rate against the local one, less one, in ppm. A local clock that runs fast
// therefore reports a negative value (the engine then repeats frames rather than drop them).
// The drift can be reported with a noise, uniform within +-`noisePpm` and renewed every
// simulated second. Or, as a host without a clock service does (DisciplinedClock), it can be
// fitted from the device's played frames, reported at times off by up to kReportJitterNs.
// Render thread; the device must outlive it.
class SimulatedClockService : public oru::AudioPlayer::CommonTimeDelegate {
 public:
  static constexpr double kReportJitterNs = 100 * oru::host::kNsPerUs;

  SimulatedClockService(DriftingClock const& clock, SimulatedDevice& device, double noisePpm,
                        bool fitted, unsigned seed);

  int commonToLocal(long long commonTime, long long* localTime) override;
  double getDriftPpm() override;
  double getCorrectionPpm() override { return 0; }

 private:
  // Uniform within [-1, 1], the same for the same key.
  double noise(uint32_t key) const;

  DriftingClock const& mClock;
  SimulatedDevice& mDevice;
  double const mNoisePpm;
  unsigned const mSeed;
  std::optional<oru::host::DriftEstimator> mEstimator;  // when fitted
  uint32_t mReports = 0;
};

}  // namespace syncsim
