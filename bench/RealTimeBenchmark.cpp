// What each of the engine's threads costs, and how often it wakes, while it plays at the real
// rate into a device paced like a sound card (RealTimeDevice); the same for the bare FFmpeg loop
// writing into a device of the same kind, on one thread. For each input:
//  - a real AudioPlayer (TIMESTAMP_STREAM, no progress reports) plays --seconds of it; once the
//    device has taken them, and while the player is still alive, every thread of the process is
//    sampled from /proc/self/task/<tid>: its CPU time (schedstat, in ns: stat's ticks of 10 ms
//    are too coarse for a thread that runs a few ms a minute) and its voluntary context switches
//    (status), each thread found by its name. The engine's threads start with the player, so
//    their counts are what they did from its construction;
//  - the bare loop runs on a thread of its own over the same span and samples itself before it
//    ends.
// Prints, per second of audio, CPU ms and wake-ups for each thread and the devices' wake-ups and
// underruns, as a Markdown table. --busy N adds N threads that spin for the whole run, competing
// for the cores; their CPU time is left out of the process's.
#include "BareLoop.h"
#include "BenchDevice.h"
#include "RealTimeDevice.h"
#include "Units.h"

extern "C" {
#include <libavutil/log.h>
}

#include <oru/AudioPlayer.h>

#include <dirent.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using oru::host::kMsPerSecond;
using oru::host::kNsPerMs;
using oru::host::kNsPerUs;

constexpr int kRate = bench::BenchDevice::kRate;
char const kBusyName[] = "rt-busy";
char const kBareLoopName[] = "bare-loop";

// The engine's threads, in the table's order.
struct EngineThread {
  char const* name;
  char const* label;
};
constexpr EngineThread kEngineThreads[] = {
    {"oru-decode", "decoding"}, {"oru-render", "render"}, {"oru-command", "command loop"}};

// The six inputs of bench/make-media.sh, by the names --format takes (their extensions).
constexpr char const* kMedia[] = {"ten-minutes.flac", "ten-minutes.mp3",
                                  "ten-minutes.m4a",  "ten-minutes.ogg",
                                  "ten-minutes.opus", "ten-minutes-96k-float.wav"};

// What a thread, or the threads of one name, did since they started.
struct ThreadCost {
  int64_t cpuNs = 0;
  int64_t voluntarySwitches = 0;
  int threads = 0;

  void add(ThreadCost const& other) {
    cpuNs += other.cpuNs;
    voluntarySwitches += other.voluntarySwitches;
    threads += other.threads;
  }
};

// A thread's name and counts from its /proc directory ("/proc/self/task/<tid>" or
// "/proc/thread-self"); false when it has gone meanwhile.
bool readThread(std::string const& directory, std::string* name, ThreadCost* cost) {
  std::ifstream status(directory + "/status");
  std::ifstream schedstat(directory + "/schedstat");
  if (!status || !(schedstat >> cost->cpuNs)) {
    return false;
  }
  bool switchesFound = false;
  for (std::string line; std::getline(status, line);) {
    std::istringstream fields(line);
    std::string key;
    fields >> key;
    if (key == "Name:") {
      fields >> *name;
    } else if (key == "voluntary_ctxt_switches:") {
      switchesFound = static_cast<bool>(fields >> cost->voluntarySwitches);
    }
  }
  cost->threads = 1;
  return switchesFound;
}

// Every thread of the process but the main one, by name.
std::map<std::string, ThreadCost> sampleThreads() {
  std::map<std::string, ThreadCost> byName;
  std::string const self = std::to_string(getpid());
  DIR* tasks = opendir("/proc/self/task");
  if (tasks == nullptr) {
    throw std::runtime_error("cannot read /proc/self/task");
  }
  for (dirent* entry; (entry = readdir(tasks)) != nullptr;) {
    std::string const tid = entry->d_name;
    if (tid[0] == '.' || tid == self) {
      continue;
    }
    std::string name;
    ThreadCost cost;
    if (readThread("/proc/self/task/" + tid, &name, &cost)) {
      byName[name].add(cost);
    }
  }
  closedir(tasks);
  return byName;
}

int64_t processCpuNs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto ns = [](timeval const& time) {
    return int64_t{time.tv_sec} * oru::host::kNsPerSecond + int64_t{time.tv_usec} * kNsPerUs;
  };
  return ns(usage.ru_utime) + ns(usage.ru_stime);
}

int64_t busyCpuNs() { return sampleThreads()[kBusyName].cpuNs; }

// Threads that spin until destroyed, so that the benchmark's own threads compete for the cores.
class BusyThreads {
 public:
  explicit BusyThreads(int count) {
    for (int i = 0; i < count; ++i) {
      mThreads.emplace_back([this] {
        pthread_setname_np(pthread_self(), kBusyName);
        while (!mStopping.load(std::memory_order_relaxed)) {
        }
      });
    }
  }
  ~BusyThreads() {
    mStopping = true;
    for (std::thread& thread : mThreads) {
      thread.join();
    }
  }
  BusyThreads(BusyThreads const&) = delete;
  BusyThreads& operator=(BusyThreads const&) = delete;

 private:
  std::atomic<bool> mStopping{false};
  std::vector<std::thread> mThreads;
};

struct DeviceCounts {
  int64_t wakeUps = 0;
  int64_t latestWakeNs = 0;
  int64_t lateWrites = 0;
  int64_t starvingStretches = 0;
  int64_t longestDryNs = 0;

  static DeviceCounts of(bench::RealTimeDevice const& device) {
    return {device.wakeUps, device.latestWakeNs, device.lateWrites, device.starvingStretches,
            device.longestDryNs};
  }
  int64_t underruns() const { return lateWrites + starvingStretches; }
};

struct EngineRun {
  std::map<std::string, ThreadCost> threads;  // every thread but the main one and the busy ones
  DeviceCounts device;
  int64_t processCpuNs = 0;  // less the busy threads'
};

// A player plays `path` until the device has taken `frames`; the threads are sampled then.
EngineRun engineRun(std::string const& path, int64_t frames) {
  EngineRun run;
  bench::Signal ending;
  bench::RealTimeDevice device(ending, frames);
  int64_t const processBefore = processCpuNs();
  int64_t const busyBefore = busyCpuNs();
  // The engine's threads are sampled while the player still runs them.
  std::string const how = bench::playUntilEnded(path, device, ending, [&] {
    run.threads = sampleThreads();
    run.processCpuNs = processCpuNs() - processBefore - (run.threads[kBusyName].cpuNs - busyBefore);
    run.device = DeviceCounts::of(device);
  });
  if (how == "finished") {
    throw std::runtime_error(path + ": shorter than the span to play");
  }
  if (how != "limit") {
    throw std::runtime_error(path + ": playback " + how);
  }
  run.threads.erase(kBusyName);
  return run;
}

struct BareRun {
  ThreadCost thread;
  DeviceCounts device;
};

// The bare loop over the first `frames` of `path`, on a thread of its own that writes into a
// RealTimeDevice.
BareRun bareRun(std::string const& path, int64_t frames) {
  BareRun run;
  std::string error;
  std::thread loop([&] {
    pthread_setname_np(pthread_self(), kBareLoopName);
    try {
      bench::Signal ending;
      bench::RealTimeDevice device(ending, frames);
      int64_t const produced =
          bench::bareLoop(path, frames, [&device](uint8_t const* data, int converted) {
            auto taken = static_cast<unsigned>(converted);
            device.write(0, data, &taken);
          });
      if (produced < frames) {
        throw std::runtime_error(path + ": shorter than the span to play");
      }
      std::string name;
      if (!readThread("/proc/thread-self", &name, &run.thread)) {
        throw std::runtime_error("cannot read /proc/thread-self");
      }
      run.device = DeviceCounts::of(device);
    } catch (std::exception const& caught) {
      error = caught.what();
    }
  });
  loop.join();
  if (!error.empty()) {
    throw std::runtime_error(error);
  }
  return run;
}

// How late the device woke its blocked writes at worst, and its underruns by kind.
std::string describe(DeviceCounts const& device) {
  char text[256];
  std::snprintf(text, sizeof text,
                "woke a blocked write %.2f ms late at most, had %lld writes after it had run dry "
                "(dry %.2f ms at most) and %lld stretches of starving writes",
                static_cast<double>(device.latestWakeNs) / kNsPerMs,
                static_cast<long long>(device.lateWrites),
                static_cast<double>(device.longestDryNs) / kNsPerMs,
                static_cast<long long>(device.starvingStretches));
  return text;
}

double loadAverage() {
  double load = -1;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

std::string baseName(std::string const& path) { return path.substr(path.find_last_of('/') + 1); }
std::string extension(std::string const& path) { return path.substr(path.find_last_of('.') + 1); }

constexpr char kUsage[] =
    "usage: realtime_benchmark [--seconds S] [--busy N] [--format NAME] [--media DIR] [FILE...]\n"
    "Plays S seconds (default 60) of each FILE, or of the six inputs of bench/make-media.sh in\n"
    "DIR (default build/bench-media), at the real rate; --format keeps the inputs of one\n"
    "extension (flac, mp3, m4a, ogg, opus or wav); --busy starts N spinning threads.\n";

}  // namespace

int main(int argc, char** argv) {
  int seconds = 60;
  int busy = 0;
  std::string format;
  std::string media = "build/bench-media";
  std::vector<std::string> inputs;
  for (int i = 1; i < argc; ++i) {
    std::string const argument = argv[i];
    bool const valued = i + 1 < argc;
    if (argument == "--seconds" && valued) {
      seconds = std::max(1, std::atoi(argv[++i]));
    } else if (argument == "--busy" && valued) {
      busy = std::max(0, std::atoi(argv[++i]));
    } else if (argument == "--format" && valued) {
      format = argv[++i];
    } else if (argument == "--media" && valued) {
      media = argv[++i];
    } else if (argument.rfind("--", 0) == 0) {
      std::fputs(kUsage, stderr);
      return 2;
    } else {
      inputs.push_back(argument);
    }
  }
  if (inputs.empty()) {
    for (char const* name : kMedia) {
      inputs.push_back(media + "/" + name);
    }
  }
  if (!format.empty()) {
    inputs.erase(std::remove_if(inputs.begin(), inputs.end(),
                                [&](std::string const& path) { return extension(path) != format; }),
                 inputs.end());
  }
  if (inputs.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  av_log_set_level(AV_LOG_ERROR);
  int64_t const frames = int64_t{seconds} * kRate;
  auto perSecond = [seconds](double value) { return value / seconds; };
  auto cpuMs = [&](ThreadCost const& cost) {
    return perSecond(static_cast<double>(cost.cpuNs)) / kNsPerMs;
  };
  auto wakeUps = [&](ThreadCost const& cost) {
    return perSecond(static_cast<double>(cost.voluntarySwitches));
  };

  std::printf("| input |");
  for (EngineThread const& thread : kEngineThreads) {
    std::printf(" %s: CPU ms per audio s | wake-ups per audio s |", thread.label);
  }
  std::printf(
      " device: wake-ups per audio s | underruns | process: CPU ms per audio s | bare loop paced "
      "alike: CPU ms per audio s | wake-ups per audio s | its device: wake-ups per audio s | "
      "underruns |\n|---|");
  for (size_t i = 0; i < std::size(kEngineThreads) * 2 + 7; ++i) {
    std::printf("---:|");
  }
  std::printf("\n");
  std::fflush(stdout);

  double const loadBefore = loadAverage();
  std::vector<std::string> notes;
  try {
    BusyThreads const spinning(busy);
    for (std::string const& input : inputs) {
      EngineRun engine = engineRun(input, frames);
      BareRun const bare = bareRun(input, frames);
      std::printf("| %s |", baseName(input).c_str());
      for (EngineThread const& thread : kEngineThreads) {
        auto const found = engine.threads.find(thread.name);
        if (found == engine.threads.end()) {
          std::printf(" - | - |");
          continue;
        }
        std::printf(" %.2f | %.1f |", cpuMs(found->second), wakeUps(found->second));
        engine.threads.erase(found);
      }
      std::printf(" %.1f | %lld | %.2f | %.2f | %.1f | %.1f | %lld |\n",
                  perSecond(static_cast<double>(engine.device.wakeUps)),
                  static_cast<long long>(engine.device.underruns()),
                  perSecond(static_cast<double>(engine.processCpuNs)) / kNsPerMs,
                  cpuMs(bare.thread), wakeUps(bare.thread),
                  perSecond(static_cast<double>(bare.device.wakeUps)),
                  static_cast<long long>(bare.device.underruns()));
      std::fflush(stdout);
      notes.push_back(baseName(input) + ": the player's device " + describe(engine.device) +
                      "; the bare loop's " + describe(bare.device) + ".");
      for (auto const& [name, cost] : engine.threads) {
        char text[256];
        std::snprintf(text, sizeof text,
                      "%s: another thread of the engine, %s (%d), %.2f CPU ms and %.1f wake-ups "
                      "per audio s.",
                      baseName(input).c_str(), name.c_str(), cost.threads, cpuMs(cost),
                      wakeUps(cost));
        notes.emplace_back(text);
      }
    }
  } catch (std::exception const& error) {
    std::fprintf(stderr, "realtime_benchmark: %s\n", error.what());
    return 1;
  }
  std::printf(
      "\n%d s of each input at the real rate; the devices hold %lld ms and wake a blocked write "
      "when %lld ms are left; %d busy threads; load average (1 min) %.2f before, %.2f after.\n",
      seconds, static_cast<long long>(bench::RealTimeDevice::kLead.count()),
      static_cast<long long>(bench::RealTimeDevice::kWakeAt.count()), busy, loadBefore,
      loadAverage());
  for (std::string const& note : notes) {
    std::printf("%s\n", note.c_str());
  }
  return 0;
}
