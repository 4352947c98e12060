#include <oru/host/Pacer.h>

#include "Units.h"

#include <algorithm>

namespace oru::host {

Pacer::Pacer(int rate, std::chrono::milliseconds lead, LocalClock& clock)
    : mRate(rate), mLeadNs(lead.count() * kNsPerMs), mClock(clock) {
  restart();
}

void Pacer::restart() { restartAt(mClock.now()); }

void Pacer::restartAt(int64_t localNs) {
  mStartNs = localNs;
  mFrames = 0;
}

void Pacer::wait(int64_t frames) {
  mFrames += frames;
  // Whole microseconds keep the products within 64 bits over days at any rate.
  int64_t const dueNs = mStartNs + mFrames * kUsPerSecond / mRate * kNsPerUs;
  if (dueNs - mClock.now() > mLeadNs) {
    mClock.sleepUntil(dueNs - mLeadNs / 2);
  }
}

int64_t Pacer::playedFrames() const {
  int64_t const elapsedUs = (mClock.now() - mStartNs) / kNsPerUs;
  return std::clamp<int64_t>(elapsedUs * mRate / kUsPerSecond, 0, mFrames);
}

}  // namespace oru::host
