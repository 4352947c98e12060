#include <oru/host/Pacer.h>

#include <algorithm>
#include <thread>

namespace oru::host {

Pacer::Pacer(int rate, std::chrono::milliseconds lead) : mRate(rate), mLead(lead) { restart(); }

void Pacer::restart() {
  mStart = std::chrono::steady_clock::now();
  mFrames = 0;
}

void Pacer::restartAt(int64_t localNs) {
  // steady_clock is the monotonic clock, as SystemClock::localNow is.
  mStart = std::chrono::steady_clock::time_point(std::chrono::nanoseconds(localNs));
  mFrames = 0;
}

void Pacer::wait(int64_t frames) {
  mFrames += frames;
  auto const due = mStart + std::chrono::microseconds(mFrames * 1000000 / mRate);
  if (due - std::chrono::steady_clock::now() > mLead) {
    std::this_thread::sleep_until(due - mLead / 2);
  }
}

int64_t Pacer::playedFrames() const {
  auto const elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - mStart);
  return std::clamp<int64_t>(static_cast<int64_t>(elapsed.count()) * mRate / 1000000, 0, mFrames);
}

}  // namespace oru::host
