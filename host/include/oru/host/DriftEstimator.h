#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

namespace oru::host {

// Estimates how fast an output's sample clock runs against the common clock, from the output's
// own reports of the frames it has played, by a least-squares fit of played frames against
// common time over a sliding window. The estimate is what a CommonTimeDelegate reports as its
// drift: the common clock's rate against the device's, less one, in ppm, so a device that plays
// fast gives a negative value. A report that shows the output restarted, paused or underran
// (frames going back, or advancing far from the nominal rate) starts a new window and keeps
// the last estimate, since the device's clock did not change. Not thread-safe: one caller.
class DriftEstimator {
 public:
  struct Settings {
    // The fit covers this much of the latest reports.
    int64_t windowNs = std::chrono::nanoseconds(std::chrono::seconds(60)).count();
    // No estimate before the reports span this much.
    int64_t minimumSpanNs = std::chrono::nanoseconds(std::chrono::seconds(2)).count();
    // Reports closer to the last kept one are ignored.
    int64_t intervalNs = std::chrono::nanoseconds(std::chrono::milliseconds(100)).count();
  };

  explicit DriftEstimator(int rate) : DriftEstimator(rate, Settings()) {}
  DriftEstimator(int rate, Settings const& settings);

  // The output had played `playedFrames` at the common time `commonNs`.
  void add(int64_t commonNs, int64_t playedFrames);
  // 0 until the first window spans the minimum.
  double driftPpm() const { return mDriftPpm; }

 private:
  struct Report {
    int64_t commonNs;
    int64_t frames;
  };

  bool continues(Report const& last, Report const& next) const;
  void fit();

  double const mRate;
  Settings const mSettings;
  std::deque<Report> mReports;
  double mDriftPpm = 0;
};

}  // namespace oru::host
