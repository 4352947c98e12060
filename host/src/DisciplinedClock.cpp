#include <oru/host/DisciplinedClock.h>
#include <oru/host/SystemClock.h>

#include "ClockReading.h"

#include <utility>

namespace oru::host {

int64_t DisciplinedClock::realtimeNow() { return readClockNs(CLOCK_REALTIME); }

int64_t DisciplinedClock::taiNow() { return readClockNs(CLOCK_TAI); }

DisciplinedClock::DisciplinedClock(PlaybackDelegate& output, int rate, TimeSource commonNow,
                                   DriftEstimator::Settings const& settings)
    : mOutput(output), mCommonNow(std::move(commonNow)), mEstimator(rate, settings) {}

int DisciplinedClock::commonToLocal(long long commonTime, long long* localTime) {
  int64_t const before = SystemClock::localNow();
  int64_t const common = mCommonNow();
  int64_t const after = SystemClock::localNow();
  *localTime = commonTime - common + before + (after - before) / 2;
  return 0;
}

double DisciplinedClock::getDriftPpm() {
  int64_t const played = mOutput.getPlayedFrames();
  int64_t const common = mCommonNow();
  mEstimator.add(common, played);
  return mEstimator.driftPpm();
}

}  // namespace oru::host
