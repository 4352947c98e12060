#pragma once

#include <oru/AudioPlayer.h>
#include <oru/host/DriftEstimator.h>

#include <cstdint>
#include <functional>

namespace oru::host {

// A common clock for devices that play together: the system's own wall clock, which NTP or PTP
// keep in step across machines (chrony, systemd-timesyncd, linuxptp), over the local monotonic
// clock in which the reference outputs take their time stamps (SystemClock::localNow). The
// drift of the output's sample clock against the common clock is estimated from the output's
// own reports, its played frames against common time (DriftEstimator). The delegate calls come
// from one player's render thread, now() from any thread; the output must outlive it.
class DisciplinedClock : public AudioPlayer::CommonTimeDelegate {
 public:
  using TimeSource = std::function<int64_t()>;

  // CLOCK_REALTIME, in ns since the epoch (UTC, as NTP keeps it).
  static int64_t realtimeNow();
  // CLOCK_TAI: the same without leap seconds, where PTP keeps the kernel's TAI offset.
  static int64_t taiNow();

  // `output` plays at `rate`. `commonNow` reads the common clock.
  DisciplinedClock(PlaybackDelegate& output, int rate, TimeSource commonNow = realtimeNow,
                   DriftEstimator::Settings const& settings = DriftEstimator::Settings());

  int64_t now() const { return mCommonNow(); }

  // The common clock is read between two readings of the local one, for their offset now:
  // an NTP or PTP adjustment of the common clock is followed at once.
  int commonToLocal(long long commonTime, long long* localTime) override;
  // Takes a report from the output and gives the estimate.
  double getDriftPpm() override;
  double getCorrectionPpm() override { return 0; }

 private:
  PlaybackDelegate& mOutput;
  TimeSource const mCommonNow;
  DriftEstimator mEstimator;
};

}  // namespace oru::host
