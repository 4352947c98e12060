#include <oru/host/DriftEstimator.h>

#include "Units.h"

#include <cmath>

namespace oru::host {
namespace {

// A device that keeps playing advances within this fraction of the nominal rate (a clock is
// off by parts per million, a report's timing by a few ms); anything else is a pause, an
// underrun or a restart.
constexpr double kContinuityTolerance = 0.02;
constexpr double kContinuitySlackNs = 5 * kNsPerMs;

}  // namespace

DriftEstimator::DriftEstimator(int rate, Settings const& settings)
    : mRate(rate), mSettings(settings) {}

void DriftEstimator::add(int64_t commonNs, int64_t playedFrames) {
  Report const next{commonNs, playedFrames};
  if (!mReports.empty()) {
    if (commonNs - mReports.back().commonNs < mSettings.intervalNs) {
      return;
    }
    if (!continues(mReports.back(), next)) {
      mReports.clear();
    }
  }
  mReports.push_back(next);
  while (commonNs - mReports.front().commonNs > mSettings.windowNs) {
    mReports.pop_front();
  }
  if (commonNs - mReports.front().commonNs >= mSettings.minimumSpanNs) {
    fit();
  }
}

bool DriftEstimator::continues(Report const& last, Report const& next) const {
  double const elapsedNs = static_cast<double>(next.commonNs - last.commonNs);
  double const expected = elapsedNs * mRate / kNsPerSecond;
  double const tolerance =
      expected * kContinuityTolerance + kContinuitySlackNs * mRate / kNsPerSecond;
  return next.frames >= last.frames &&
         std::fabs(static_cast<double>(next.frames - last.frames) - expected) <= tolerance;
}

void DriftEstimator::fit() {
  // Times in seconds and frames, both from the window's first report, keep the sums exact
  // enough in doubles for a fraction of a ppm.
  Report const& origin = mReports.front();
  double sumT = 0, sumF = 0;
  for (Report const& report : mReports) {
    sumT += static_cast<double>(report.commonNs - origin.commonNs) / kNsPerSecond;
    sumF += static_cast<double>(report.frames - origin.frames);
  }
  auto const count = static_cast<double>(mReports.size());
  double const meanT = sumT / count, meanF = sumF / count;
  double covariance = 0, variance = 0;
  for (Report const& report : mReports) {
    double const t = static_cast<double>(report.commonNs - origin.commonNs) / kNsPerSecond - meanT;
    double const f = static_cast<double>(report.frames - origin.frames) - meanF;
    covariance += t * f;
    variance += t * t;
  }
  double const framesPerSecond = covariance / variance;
  if (framesPerSecond > 0) {
    mDriftPpm = (mRate / framesPerSecond - 1) * kPartsPerMillion;
  }
}

}  // namespace oru::host
