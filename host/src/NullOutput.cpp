#include <oru/host/NullOutput.h>

#include "Capabilities.h"

#include <thread>

namespace oru::host {
namespace {

constexpr auto kUnderrunWait = std::chrono::milliseconds(10);
constexpr auto kUnpacedUnderrunWait = std::chrono::milliseconds(1);

}  // namespace

NullOutput::NullOutput(Pacing pacing, int rate, LocalClock& clock)
    : NullOutput(pacing, rate, rate, clock) {}

NullOutput::NullOutput(Pacing pacing, int rate, int pacedRate, LocalClock& clock)
    : ReferenceOutput(rate, clock),
      mPacing(pacing),
      mPacer(pacedRate, Pacer::kDefaultLead, clock) {}

int NullOutput::start(AudioFormat, int) {
  mPacer.restart();
  restartCounting();
  return 0;
}

void NullOutput::stop(StopBehavior) {}

int NullOutput::write(long long timestamp, void const* data, unsigned* frames) {
  if (data == nullptr) {
    // The source is starving: wait a little, as a device would until it can take data,
    // rather than let the render thread spin.
    std::this_thread::sleep_for(mPacing == kRealTime ? kUnderrunWait : kUnpacedUnderrunWait);
    return 0;
  }
  if (takeFirstTimedWrite()) {
    mPacer.restartAt(timestamp);
  }
  if (mPacing == kRealTime) {
    mPacer.wait(*frames);
  }
  mFramesSinceStart += *frames;
  mFramesTaken += *frames;
  return 0;
}

long long NullOutput::getPlayedFrames() {
  return mPacing == kRealTime ? mPacer.playedFrames() : mFramesSinceStart;
}

PlaybackCapabilities NullOutput::getPlaybackConfig() {
  return oneRateCapabilities(mRate, PCM_S16, kAllFormats, 3);
}

}  // namespace oru::host
