// The whole playback path against the least any player must do. For each input it times, side
// by side and interleaved:
//  - the bare loop: FFmpeg alone demuxes, decodes and converts to 48 kHz 16-bit stereo with
//    libswresample, into one reused buffer;
//  - a real AudioPlayer playing the same file into a device that takes everything at once;
//  - the same into a device paced at 8 times real time, over the first --paced-seconds of audio
//    (compared with the bare loop over the same span).
// Prints CPU time (all threads, getrusage) per second of audio, the median of --repetitions
// runs, and the player's ratio to the bare loop, as a Markdown table.
#include "BareLoop.h"
#include "BenchDevice.h"
#include "Units.h"

extern "C" {
#include <libavutil/log.h>
}

#include <oru/AudioPlayer.h>
#include <oru/host/Pacer.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using oru::host::kMsPerSecond;

constexpr int kRate = bench::BenchDevice::kRate;
constexpr int kPacedSpeedUp = 8;

// What one run cost, for the audio it produced.
struct Cost {
  double cpuSeconds = 0;
  double wallSeconds = 0;
  double audioSeconds = 0;
  long contextSwitches = 0;  // voluntary and involuntary, all threads

  double cpuPerAudioSecond() const { return cpuSeconds / audioSeconds; }
  double wallPerAudioSecond() const { return wallSeconds / audioSeconds; }
  double switchesPerAudioSecond() const { return contextSwitches / audioSeconds; }
};

// Measures the process from construction to finish(): every thread, those ended included.
class CostMeter {
 public:
  CostMeter() : mUsage(usage()), mStart(std::chrono::steady_clock::now()) {}

  Cost finish(int64_t frames) const {
    rusage const end = usage();
    Cost cost;
    cost.cpuSeconds = seconds(end.ru_utime) + seconds(end.ru_stime) - seconds(mUsage.ru_utime) -
                      seconds(mUsage.ru_stime);
    cost.wallSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    cost.audioSeconds = static_cast<double>(frames) / kRate;
    cost.contextSwitches = end.ru_nvcsw + end.ru_nivcsw - mUsage.ru_nvcsw - mUsage.ru_nivcsw;
    return cost;
  }

 private:
  static rusage usage() {
    rusage value{};
    getrusage(RUSAGE_SELF, &value);
    return value;
  }
  static double seconds(timeval const& time) {
    return static_cast<double>(time.tv_sec) +
           static_cast<double>(time.tv_usec) / oru::host::kUsPerSecond;
  }

  rusage const mUsage;
  std::chrono::steady_clock::time_point const mStart;
};

// The bare loop over the first `frameLimit` frames of output. With a pacer, it waits after each
// conversion as the paced device makes the player wait: what pacing alone costs.
Cost bareLoop(std::string const& path, int64_t frameLimit, oru::host::Pacer* pacer = nullptr) {
  CostMeter const meter;
  int64_t const frames = bench::bareLoop(path, frameLimit, [pacer](uint8_t const*, int converted) {
    if (pacer != nullptr) {
      pacer->wait(converted);
    }
  });
  return meter.finish(frames);
}

// A player playing `path` into a device at `speedUp` times real time (0: at once), to the end
// or until the device has taken `frameLimit` frames; destruction is part of the run.
Cost playerRun(std::string const& path, int speedUp, int64_t frameLimit) {
  CostMeter const meter;
  bench::Signal ending;
  bench::BenchDevice device(speedUp, ending, frameLimit);
  std::string const how = bench::playUntilEnded(path, device, ending);
  if (how != "finished" && how != "limit") {
    throw std::runtime_error(path + ": playback " + how);
  }
  return meter.finish(device.framesTaken());
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  size_t const middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The medians of one kind of run over the repetitions.
struct Runs {
  std::vector<Cost> costs;

  double cpu() const { return pick(&Cost::cpuPerAudioSecond); }
  double wall() const { return pick(&Cost::wallPerAudioSecond); }
  double switches() const { return pick(&Cost::switchesPerAudioSecond); }

 private:
  double pick(double (Cost::*measure)() const) const {
    std::vector<double> values;
    for (Cost const& cost : costs) {
      values.push_back((cost.*measure)());
    }
    return median(values);
  }
};

std::string baseName(std::string const& path) { return path.substr(path.find_last_of('/') + 1); }

}  // namespace

int main(int argc, char** argv) {
  int repetitions = 5;
  int pacedSeconds = 60;
  std::vector<std::string> inputs;
  for (int i = 1; i < argc; ++i) {
    std::string const argument = argv[i];
    if (argument == "--repetitions" && i + 1 < argc) {
      repetitions = std::max(1, std::atoi(argv[++i]));
    } else if (argument == "--paced-seconds" && i + 1 < argc) {
      pacedSeconds = std::max(1, std::atoi(argv[++i]));
    } else {
      inputs.push_back(argument);
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr,
                 "usage: pipeline_benchmark [--repetitions N] [--paced-seconds S] FILE...\n");
    return 2;
  }
  av_log_set_level(AV_LOG_ERROR);
  int64_t const pacedFrames = int64_t{pacedSeconds} * kRate;

  std::printf(
      "| input | bare loop: CPU ms per audio s | at once: CPU ms per audio s | CPU ratio | wall "
      "ratio | switches per audio s | 8x: CPU ms per audio s | CPU ratio | bare loop paced "
      "alike: CPU ratio | switches per audio s |\n"
      "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  try {
    for (std::string const& input : inputs) {
      Runs bare, atOnce, bareSpan, barePaced, paced;
      for (int i = 0; i < repetitions; ++i) {
        bare.costs.push_back(bareLoop(input, INT64_MAX));
        atOnce.costs.push_back(playerRun(input, 0, INT64_MAX));
        bareSpan.costs.push_back(bareLoop(input, pacedFrames));
        oru::host::Pacer pacer(kRate * kPacedSpeedUp);
        barePaced.costs.push_back(bareLoop(input, pacedFrames, &pacer));
        paced.costs.push_back(playerRun(input, kPacedSpeedUp, pacedFrames));
      }
      std::printf("| %s | %.2f | %.2f | **%.3f** | %.2f | %.0f | %.2f | **%.3f** | %.3f | %.0f |\n",
                  baseName(input).c_str(), bare.cpu() * kMsPerSecond, atOnce.cpu() * kMsPerSecond,
                  atOnce.cpu() / bare.cpu(), atOnce.wall() / bare.wall(), atOnce.switches(),
                  paced.cpu() * kMsPerSecond, paced.cpu() / bareSpan.cpu(),
                  barePaced.cpu() / bareSpan.cpu(), paced.switches());
      std::fflush(stdout);
    }
  } catch (std::exception const& error) {
    std::fprintf(stderr, "pipeline_benchmark: %s\n", error.what());
    return 1;
  }
  return 0;
}
