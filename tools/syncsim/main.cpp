// oru-syncsim: plays one stream with the real engine (common-clock playback, FFmpeg decoding,
// the renderer and its drift correction) on two simulated devices whose clocks run apart from
// the common clock, in virtual time, and measures from the audio they present how far each
// strays from the common timeline and from the other.
#include "InputToken.h"
#include "RampSource.h"
#include "SimulatedDevice.h"
#include "Units.h"

#include <oru/AudioPlayer.h>
#include <oru/host/EventListenerBase.h>

#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using oru::host::kNsPerMs;
using oru::host::kNsPerSecond;
using oru::tools::InputToken;
using oru::tools::RampSource;

constexpr int64_t kStartCommonNs = kNsPerSecond;  // the stream is due at 1 s of common time
constexpr double kUsPerFrame = static_cast<double>(oru::host::kUsPerSecond) / RampSource::kRate;

struct Scenario {
  char const* name;
  char const* description;
  double ppm;          // the first device runs this fast, the second this slow
  double stepPpm;      // both clocks' rates move by this much at half of the run
  double noisePpm;     // the reported drift is off by up to this much, renewed every second
  bool fitted;         // the drift is fitted from the device's played frames instead
  int settleSeconds;   // the devices are measured from this long after the start
  bool pause;          // paused at a third of the stream, and resumed 10 s later
  int resumeOffsetMs;  // before resuming, the time base is moved to this offset (a seek)
};

constexpr Scenario kScenarios[] = {
    {"exact", "+-100 ppm, reported exactly", 100, 0, 0, false, 1, false, 0},
    {"step", "+-100 ppm, stepping by 10 ppm at half time, reported", 100, 10, 0, false, 1, false,
     0},
    {"noise", "+-100 ppm, reported with +-0.5 ppm of noise", 100, 0, 0.5, false, 1, false, 0},
    {"wide", "+-300 ppm, reported exactly", 300, 0, 0, false, 1, false, 0},
    {"fitted", "+-100 ppm, fitted from played frames reported within +-100 us", 100, 0, 0, true, 60,
     false, 0},
    {"pause", "+-100 ppm, reported, paused at a third for 10 s and resumed", 100, 0, 0, false, 1,
     true, 0},
    {"seek", "+-100 ppm, reported, paused at a third, resumed 10 s later with a 5 s resume offset",
     100, 0, 0, false, 1, true, 5000},
};
constexpr int64_t kPauseNs = 10 * kNsPerSecond;

// Plays the stream at the common start as soon as it is ready, and says when it has paused and
// when it has ended.
class Listener : public oru::host::EventListenerBase {
 public:
  void waitUntilEnded() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return mEnded; });
  }
  // True once paused, false when the stream ended first.
  bool waitUntilPaused() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return mPaused || mEnded; });
    return mPaused;
  }
  bool failed() const { return mFailed; }
  oru::AudioPlayer* player = nullptr;

  void trackReady(Token const& token, bool) override { player->play(token, kStartCommonNs); }
  void playbackFinished(Token const&, unsigned) override { end(false); }
  void playbackFailed(Token const&, oru::AudioPlayer::MediaError, std::string const& message,
                      Token const&, oru::AudioPlayer::State, unsigned) override {
    std::fprintf(stderr, "oru-syncsim: playback failed: %s\n", message.c_str());
    end(true);
  }
  void playbackStopped(Token const&, unsigned) override { end(true); }
  void playbackPaused(Token const&, unsigned) override {
    std::lock_guard<std::mutex> lock(mMutex);
    mPaused = true;
    mChanged.notify_all();
  }

 private:
  void end(bool failed) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEnded = true;
    mFailed = failed;
    mChanged.notify_all();
  }

  std::mutex mMutex;  // guards the flags below
  std::condition_variable mChanged;
  bool mEnded = false;
  bool mFailed = false;
  bool mPaused = false;
};

// One simulated device with its clock service, source and player.
struct Rig {
  Rig(double ppm, Scenario const& scenario, int64_t frames, unsigned seed)
      : clock(ppm, ppm > 0 ? scenario.stepPpm : -scenario.stepPpm,
              kStartCommonNs + frames * kNsPerSecond / RampSource::kRate / 2),
        device(clock, kStartCommonNs, scenario.settleSeconds * kNsPerSecond),
        service(clock, device, scenario.noisePpm, scenario.fitted, seed),
        source(frames) {}

  syncsim::DriftingClock clock;
  syncsim::SimulatedDevice device;
  syncsim::SimulatedClockService service;
  RampSource source;
  Listener listener;
};

// Once every device has played the stream up to its source's hold, pauses each player, and
// resumes it kPauseNs later on the common clock: the stream keeps its common timeline, shifted
// by the pause, less the resume offset when there is one (the time base is moved, the data goes
// on where it paused). False when a stream ended before it could be paused.
bool pauseAndResume(Scenario const& scenario, std::vector<std::unique_ptr<Rig>>& rigs,
                    std::vector<std::unique_ptr<oru::AudioPlayer>>& players) {
  bool paused = true;
  for (size_t i = 0; i < rigs.size(); ++i) {
    rigs[i]->source.waitUntilHeld();
    players[i]->stop(true);  // a transient stop: the track pauses, and says so
    paused = rigs[i]->listener.waitUntilPaused() && paused;
  }
  for (size_t i = 0; i < rigs.size(); ++i) {
    if (scenario.resumeOffsetMs > 0) {
      players[i]->setResumeOffset(scenario.resumeOffsetMs);
    }
    if (paused) {
      rigs[i]->device.delayAfterRestart(kPauseNs - int64_t{scenario.resumeOffsetMs} * kNsPerMs);
    }
    players[i]->play(InputToken(0), kStartCommonNs + kPauseNs);
    rigs[i]->source.release();
  }
  return paused;
}

std::string describe(double frames) {
  char text[64];
  std::snprintf(text, sizeof text, "%9.4f fr %8.2f us", frames, frames * kUsPerFrame);
  return text;
}

// Plays the scenario for `minutes` of audio; true when everything stayed within a frame.
bool run(Scenario const& scenario, double minutes) {
  auto const frames = static_cast<int64_t>(minutes * 60 * RampSource::kRate);
  std::vector<std::unique_ptr<Rig>> rigs;
  rigs.push_back(std::make_unique<Rig>(scenario.ppm, scenario, frames, 1));
  rigs.push_back(std::make_unique<Rig>(-scenario.ppm, scenario, frames, 2));
  bool ok = true;
  {
    std::vector<std::unique_ptr<oru::AudioPlayer>> players;
    for (auto& rig : rigs) {
      players.push_back(
          std::make_unique<oru::AudioPlayer>(&rig->listener, &rig->device, &rig->service,
                                             oru::AudioPlayer::TIMESTAMP_COMMON, nullptr));
      rig->listener.player = players.back().get();
      oru::AudioPlayer::Resource resource;
      resource.newDataCallback = &RampSource::read;
      resource.cancelCallback = &RampSource::cancel;
      resource.callbackOpaque = &rig->source;
      if (scenario.pause) {
        rig->source.holdAt(frames / 3);
      }
      players.back()->prepare(oru::AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, InputToken(0), 1);
    }
    if (scenario.pause) {
      ok = pauseAndResume(scenario, rigs, players);
    }
    for (auto& rig : rigs) {
      rig->listener.waitUntilEnded();
      ok = ok && !rig->listener.failed();
    }
  }
  std::printf("%-6s %s, %.1f min\n", scenario.name, scenario.description, minutes);
  for (size_t i = 0; i < rigs.size(); ++i) {
    syncsim::Deviation const& deviation = rigs[i]->device.deviation();
    std::printf("  device %zu vs common  max %s  rms %s\n", i + 1,
                describe(deviation.maxFrames).c_str(), describe(deviation.rmsFrames()).c_str());
    ok = ok && deviation.count > 0 && deviation.maxFrames <= 1;
  }
  std::vector<double> const& first = rigs[0]->device.grid();
  std::vector<double> const& second = rigs[1]->device.grid();
  syncsim::Deviation apart;
  size_t const settled = scenario.settleSeconds * kNsPerSecond / syncsim::SimulatedDevice::kGridNs;
  for (size_t slot = settled; slot < std::min(first.size(), second.size()); ++slot) {
    if (!std::isnan(first[slot]) && !std::isnan(second[slot])) {
      apart.add(first[slot] - second[slot]);
    }
  }
  std::printf("  device 1 vs device 2 max %s  rms %s\n", describe(apart.maxFrames).c_str(),
              describe(apart.rmsFrames()).c_str());
  return ok && apart.count > 0 && apart.maxFrames <= 1;
}

constexpr char kUsage[] =
    "Usage: oru-syncsim [--minutes M] [SCENARIO...]\n"
    "Plays M minutes (default 60) of audio in each scenario (default: all of exact, step,\n"
    "noise, wide, fitted, pause, seek) on two simulated devices and prints how far apart they "
    "play.\n"
    "Exit status: 0 when every device stayed within one frame of the common timeline and\n"
    "of the other once settled (after 1 s; a minute when fitted), 1 otherwise, 2 for a\n"
    "usage error.\n";

}  // namespace

int main(int argc, char** argv) {
  double minutes = 60;
  std::vector<Scenario> chosen;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--minutes") == 0 && i + 1 < argc) {
      minutes = std::atof(argv[++i]);
      continue;
    }
    bool known = false;
    for (Scenario const& scenario : kScenarios) {
      if (std::strcmp(argv[i], scenario.name) == 0) {
        chosen.push_back(scenario);
        known = true;
      }
    }
    if (!known || minutes <= 0) {
      std::fputs(kUsage, stderr);
      return 2;
    }
  }
  if (chosen.empty()) {
    chosen.assign(std::begin(kScenarios), std::end(kScenarios));
  }
  bool ok = true;
  for (Scenario const& scenario : chosen) {
    ok = run(scenario, minutes) && ok;
  }
  return ok ? 0 : 1;
}
