// The common clock a host gives the engine: its drift fitted from the output's played frames.
#include "ScriptedDevice.h"

#include <oru/host/DisciplinedClock.h>
#include <oru/host/SystemClock.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace oru;
using host::DriftEstimator;

namespace {

constexpr int kRate = 48000;
constexpr int64_t kSecond = 1000000000, kReportEvery = kSecond / 10;

// Frames played at common time `ns` by a device whose clock runs `ppm` fast.
int64_t playedAt(double ppm, int64_t ns) {
  return std::llround(static_cast<double>(ns) * kRate * (1 + ppm * 1e-6) / 1e9);
}
double driftFor(double ppm) { return (1 / (1 + ppm * 1e-6) - 1) * 1e6; }

TEST(DriftEstimatorTest, ReportsTimedWithinTwentyMicroseconds_GiveTheDriftWithinAPpm) {
  for (double const ppm : {-300.0, 0.0, 100.0}) {
    DriftEstimator estimator(kRate);
    for (int64_t at = 0; at <= 20 * kSecond; at += kReportEvery) {
      int64_t const jitter = (at / kReportEvery * 7919 % 41 - 20) * 1000;
      estimator.add(at + jitter, playedAt(ppm, at));
    }
    EXPECT_NEAR(estimator.driftPpm(), driftFor(ppm), 1) << ppm << " ppm fast";
  }
}

TEST(DriftEstimatorTest, PauseOrRestart_KeepsTheEstimateAndFitsAnewFromThere) {
  DriftEstimator estimator(kRate);
  int64_t at = 0;
  for (; at <= kSecond; at += kReportEvery) {
    estimator.add(at, playedAt(100, at));
  }
  EXPECT_EQ(estimator.driftPpm(), 0) << "no estimate before the reports span 2 s";
  for (; at <= 5 * kSecond; at += kReportEvery) {
    estimator.add(at, playedAt(100, at));
  }
  double const before = estimator.driftPpm();
  EXPECT_NEAR(before, driftFor(100), 2);               // whole frames, over 5 s
  estimator.add(at + 3 * kSecond, playedAt(100, at));  // paused for three seconds
  EXPECT_EQ(estimator.driftPpm(), before);
  // Restarted from frame 0, on a clock that now runs 200 ppm fast: only the new reports count.
  int64_t const restart = at + 4 * kSecond;
  for (at = restart; at <= restart + 3 * kSecond; at += kReportEvery) {
    estimator.add(at, playedAt(200, at - restart));
  }
  EXPECT_NEAR(estimator.driftPpm(), driftFor(200), 2);
}

TEST(DisciplinedClockTest, DriftComesFromTheOutputsPlayedFrames_LocalTimeFromTheCommonNow) {
  test::ScriptedDevice output;
  int64_t commonNow = 0;
  host::DisciplinedClock clock(output, kRate, [&commonNow] { return commonNow; });
  for (; commonNow <= 3 * kSecond; commonNow += kReportEvery) {
    output.playedFrames = playedAt(-150, commonNow);
    clock.getDriftPpm();
  }
  EXPECT_NEAR(clock.getDriftPpm(), driftFor(-150), 2);

  host::DisciplinedClock wallClock(output, kRate);
  long long local = 0;
  ASSERT_EQ(wallClock.commonToLocal(wallClock.now() + kSecond, &local), 0);
  EXPECT_NEAR(static_cast<double>(local - host::SystemClock::localNow()), 1e9, 5e7)
      << "one second from the common now is one second from the local now";
}

}  // namespace
