// oru-syncsim: plays one stream with the real engine (common-clock playback, FFmpeg decoding,
// the renderer and its drift correction) on two simulated devices whose clocks run apart from
// the common clock, in virtual time, and measures from the audio they present how far each
// strays from the common timeline and from the other.
#include "QuietListener.h"
#include "RampSource.h"
#include "Session.h"
#include "SimulatedDevice.h"

#include <oru/AudioPlayer.h>

#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using syncsim::RampSource;

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kStartCommonNs = kNsPerSecond;  // the stream is due at 1 s of common time
constexpr double kUsPerFrame = 1e6 / RampSource::kRate;

struct Scenario {
  char const* name;
  char const* description;
  double ppm;         // the first device runs this fast, the second this slow
  double stepPpm;     // both clocks' rates move by this much at half of the run
  double noisePpm;    // the reported drift is off by up to this much, renewed every second
  bool fitted;        // the drift is fitted from the device's played frames instead
  int settleSeconds;  // the devices are measured from this long after the start
};

constexpr Scenario kScenarios[] = {
    {"exact", "+-100 ppm, reported exactly", 100, 0, 0, false, 1},
    {"step", "+-100 ppm, stepping by 10 ppm at half time, reported", 100, 10, 0, false, 1},
    {"noise", "+-100 ppm, reported with +-0.5 ppm of noise", 100, 0, 0.5, false, 1},
    {"wide", "+-300 ppm, reported exactly", 300, 0, 0, false, 1},
    {"fitted", "+-100 ppm, fitted from played frames reported within +-100 us", 100, 0, 0, true,
     60},
};

// Plays the stream at the common start as soon as it is ready, and says when it has ended.
class Listener : public oruplay::QuietListener {
 public:
  void waitUntilEnded() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return mEnded; });
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

 private:
  void end(bool failed) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEnded = true;
    mFailed = failed;
    mChanged.notify_all();
  }

  std::mutex mMutex;  // guards the two flags
  std::condition_variable mChanged;
  bool mEnded = false;
  bool mFailed = false;
};

// One simulated device with its clock service, source and player.
struct Rig {
  Rig(double ppm, Scenario const& scenario, int64_t frames, unsigned seed)
      : clock(ppm, ppm > 0 ? scenario.stepPpm : -scenario.stepPpm,
              kStartCommonNs + frames * 1000000000 / RampSource::kRate / 2),
        device(clock, kStartCommonNs, scenario.settleSeconds * kNsPerSecond),
        service(clock, device, scenario.noisePpm, scenario.fitted, seed),
        source(frames) {}

  syncsim::LocalClock clock;
  syncsim::SimulatedDevice device;
  syncsim::SimulatedClockService service;
  RampSource source;
  Listener listener;
};

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
      resource.callbackOpaque = &rig->source;
      players.back()->prepare(oru::AudioPlayer::REPLACE_ALL, resource, 0, -1, -1,
                              oruplay::InputToken(0), 1);
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
    "noise, wide, fitted) on two simulated devices and prints how far apart they play.\n"
    "Exit status: 0 when every device stayed within one frame of the common timeline and\n"
    "of the other once settled (after 1 s; 30 s when fitted), 1 otherwise, 2 for a usage\n"
    "error.\n";

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
