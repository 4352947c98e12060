#include "SimulatedDevice.h"

#include "RampSource.h"
#include "Units.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace syncsim {
namespace {

using oru::host::kNsPerSecond;
using oru::host::kPartsPerMillion;
using oru::tools::RampSource;

constexpr double kNsPerFrame = static_cast<double>(kNsPerSecond) / RampSource::kRate;
constexpr uint32_t kRate = RampSource::kRate;
constexpr oru::AudioFormat kFormat = oru::PCM_FLOAT;
// Reading every frame would cost more than the engine; one in 16 shows the same deviation.
constexpr int64_t kStride = 16;

}  // namespace

DriftingClock::DriftingClock(double ppm, double stepPpm, int64_t stepAtNs)
    : mRate(1 + ppm / kPartsPerMillion),
      mRateAfter(1 + (ppm + stepPpm) / kPartsPerMillion),
      mStepAtNs(static_cast<double>(stepAtNs)) {}

double DriftingClock::localAt(double commonNs) const {
  return commonNs < mStepAtNs ? commonNs * mRate
                              : mStepAtNs * mRate + (commonNs - mStepAtNs) * mRateAfter;
}

double DriftingClock::commonAt(double localNs) const {
  double const stepLocal = mStepAtNs * mRate;
  return localNs < stepLocal ? localNs / mRate : mStepAtNs + (localNs - stepLocal) / mRateAfter;
}

double DriftingClock::ppmAt(double commonNs) const {
  return ((commonNs < mStepAtNs ? mRate : mRateAfter) - 1) * kPartsPerMillion;
}

void Deviation::add(double frames) {
  maxFrames = std::max(maxFrames, std::abs(frames));
  sumOfSquares += frames * frames;
  ++count;
}

double Deviation::rmsFrames() const {
  return count > 0 ? std::sqrt(sumOfSquares / static_cast<double>(count)) : 0;
}

SimulatedDevice::SimulatedDevice(DriftingClock const& clock, int64_t startCommonNs,
                                 int64_t settleNs)
    : mClock(clock),
      mStartCommonNs(static_cast<double>(startCommonNs)),
      mSettleNs(static_cast<double>(settleNs)) {}

int SimulatedDevice::start(oru::AudioFormat format, int channels) {
  mAwaitingFirstWrite = true;
  std::lock_guard<std::mutex> lock(mMutex);
  mStarted = true;
  mStartCommonNs += std::exchange(mRestartDelayNs, 0.0);
  return format == kFormat && channels == RampSource::kChannels ? 0 : -1;
}

void SimulatedDevice::stop(oru::StopBehavior) {
  std::lock_guard<std::mutex> lock(mMutex);
  mStarted = false;
  mStopped.notify_all();
}

void SimulatedDevice::delayAfterRestart(int64_t ns) {
  std::unique_lock<std::mutex> lock(mMutex);
  mStopped.wait(lock, [this] { return !mStarted; });
  mRestartDelayNs = static_cast<double>(ns);
}

int SimulatedDevice::write(long long timestamp, void const* data, unsigned* frames) {
  if (data == nullptr) {
    return 0;  // an underrun costs no virtual time
  }
  if (mAwaitingFirstWrite) {
    mFirstLocalNs = static_cast<double>(timestamp) - static_cast<double>(mPresented) * kNsPerFrame;
    mAwaitingFirstWrite = false;
  }
  auto const* samples = static_cast<float const*>(data);
  for (int64_t i = (kStride - mPresented % kStride) % kStride; i < *frames; i += kStride) {
    double const local = mFirstLocalNs + static_cast<double>(mPresented + i) * kNsPerFrame;
    double const common = mClock.commonAt(local);
    double const sinceStart = common - mStartCommonNs;
    double heard = 0;
    if (sinceStart < 0 || !RampSource::position(samples + i * RampSource::kChannels, &heard)) {
      continue;
    }
    double const deviation = heard - sinceStart / kNsPerFrame;
    if (sinceStart >= mSettleNs) {
      mDeviation.add(deviation);
    }
    auto const slot = static_cast<size_t>(sinceStart / kGridNs);
    if (slot >= mGrid.size()) {
      mGrid.resize(slot + 1, std::numeric_limits<double>::quiet_NaN());
      mGrid[slot] = deviation;
    }
  }
  mPresented += *frames;
  mCommonNow = mClock.commonAt(mFirstLocalNs + static_cast<double>(mPresented) * kNsPerFrame);
  return 0;
}

oru::PlaybackCapabilities SimulatedDevice::getPlaybackConfig() {
  oru::PlaybackCapabilities caps;
  caps.supportedRates = &kRate;
  caps.supportedRateCount = 1;
  caps.defaultRate = RampSource::kRate;
  caps.preferredFormat = kFormat;
  caps.supportedFormats = &kFormat;
  caps.supportedFormatCount = 1;
  return caps;
}

SimulatedClockService::SimulatedClockService(DriftingClock const& clock, SimulatedDevice& device,
                                             double noisePpm, bool fitted, unsigned seed)
    : mClock(clock), mDevice(device), mNoisePpm(noisePpm), mSeed(seed) {
  if (fitted) {
    mEstimator.emplace(RampSource::kRate);
  }
}

int SimulatedClockService::commonToLocal(long long commonTime, long long* localTime) {
  *localTime = std::llround(mClock.localAt(static_cast<double>(commonTime)));
  return 0;
}

double SimulatedClockService::getDriftPpm() {
  double const now = mDevice.commonNow();
  if (mEstimator) {
    double const reportedAt = now + noise(++mReports) * kReportJitterNs;
    mEstimator->add(std::llround(reportedAt), mDevice.getPlayedFrames());
    return mEstimator->driftPpm();
  }
  // The common clock's rate against the local one: exactly what the resampler must apply, with
  // a noise that is the same all through a simulated second.
  return (1 / (1 + mClock.ppmAt(now) / kPartsPerMillion) - 1) * kPartsPerMillion +
         noise(static_cast<uint32_t>(now / kNsPerSecond)) * mNoisePpm;
}

double SimulatedClockService::noise(uint32_t key) const {
  uint32_t hash = key * 2654435761u ^ mSeed;
  hash ^= hash >> 15;
  hash *= 2246822519u;
  hash ^= hash >> 13;
  return static_cast<double>(hash % 2001) / 1000.0 - 1.0;
}

}  // namespace syncsim
