// How long the host waits for what it asks, on a local file played through a device paced at
// real time: prepare to the first device write, play of a prebuffered track to the first write,
// stop to the device's stop, and the player's destruction while playing, while prebuffering
// (from a slow data callback) and while a data callback blocks. Then, for each --radio FILE,
// prepare to the first device write of that file served over HTTP as a radio serves it: at its
// own byte rate, without and with a burst on connect. Prints the median and the maximum of
// --repetitions runs of each as a Markdown table.
#include "BenchDevice.h"
#include "InputToken.h"
#include "PacedServer.h"
#include "Units.h"

#include <oru/AudioPlayer.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using bench::BenchDevice;
using oru::AudioPlayer;

constexpr int64_t kHalfSecond = BenchDevice::kRate / 2;

// A data callback over a file held in memory: it hands out `chunk` bytes per read after
// `delay`, and once `holdAt` bytes are out it blocks until cancelled. `held` is raised at the
// `signalAtRead`-th read, or when it blocks. Reads on the decoding thread, cancel on the thread
// that destroys the player.
class MemorySource {
 public:
  MemorySource(std::vector<uint8_t> const& data, size_t chunk, std::chrono::milliseconds delay,
               size_t holdAt, int signalAtRead)
      : mData(data), mChunk(chunk), mDelay(delay), mHoldAt(holdAt), mSignalAtRead(signalAtRead) {}

  void fill(AudioPlayer::Resource& resource) {
    resource.newDataCallback = &MemorySource::read;
    resource.cancelCallback = &MemorySource::cancel;
    resource.callbackOpaque = this;
  }

  bench::Signal held;

 private:
  static int read(void* opaque, uint8_t* buffer, int size) {
    auto* self = static_cast<MemorySource*>(opaque);
    if (++self->mReads == self->mSignalAtRead) {
      self->held.raise("reading");
    }
    std::this_thread::sleep_for(self->mDelay);
    if (self->mOffset >= self->mHoldAt) {
      self->held.raise("blocked");
      std::unique_lock<std::mutex> lock(self->mMutex);
      self->mCancelled.wait(lock, [self] { return self->mCancelledFlag; });
      return AudioPlayer::Resource::kAborted;
    }
    size_t const count =
        std::min({static_cast<size_t>(size), self->mChunk, self->mData.size() - self->mOffset});
    if (count == 0) {
      return AudioPlayer::Resource::kEndOfData;
    }
    std::memcpy(buffer, self->mData.data() + self->mOffset, count);
    self->mOffset += count;
    return static_cast<int>(count);
  }

  static void cancel(void* opaque) {
    auto* self = static_cast<MemorySource*>(opaque);
    {
      std::lock_guard<std::mutex> lock(self->mMutex);
      self->mCancelledFlag = true;
    }
    self->mCancelled.notify_all();
  }

  std::vector<uint8_t> const& mData;
  size_t const mChunk;
  std::chrono::milliseconds const mDelay;
  size_t const mHoldAt;
  int const mSignalAtRead;
  size_t mOffset = 0;  // decoding thread only
  int mReads = 0;      // decoding thread only
  std::mutex mMutex;   // guards mCancelledFlag
  std::condition_variable mCancelled;
  bool mCancelledFlag = false;
};

AudioPlayer::Resource fileResource(std::string const& path) {
  AudioPlayer::Resource resource;
  resource.uri = path;
  return resource;
}

// Spreads a command over the device's write cycle, which it would otherwise always meet at the
// same point: 0 to 99 ms, different for each run.
void waitForPhase(int run) {
  std::this_thread::sleep_for(std::chrono::milliseconds(run * 37 % 100));
}

// One player, its device and listener, for one measured run.
struct Rig {
  // A device paced at `speedUp` times real time (0: as fast as it comes).
  explicit Rig(int64_t frameLimit, bool playWhenReady = true, int speedUp = 1)
      : device(speedUp, ending, frameLimit), listener(ending, playWhenReady) {
    player = std::make_unique<AudioPlayer>(&listener, &device, nullptr,
                                           AudioPlayer::TIMESTAMP_STREAM, nullptr);
    listener.player = player.get();
  }
  void prepare(AudioPlayer::Resource const& resource) {
    player->prepare(AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, oru::tools::InputToken(0), 1);
  }
  // Plays `path` until the device has taken its frame limit, then waits 0 to 99 ms (see
  // waitForPhase).
  void playUntilLimit(std::string const& path, int run) {
    prepare(fileResource(path));
    waitForDevice();
    waitForPhase(run);
  }
  // Destroys the player; returns how long that took, in ns.
  int64_t destroy() {
    int64_t const start = BenchDevice::nowNs();
    player.reset();
    return BenchDevice::nowNs() - start;
  }
  // Ends with the run: the device reached its limit, or the track finished or failed.
  void waitForDevice() {
    std::string const how = ending.wait();
    if (how != "limit") {
      std::fprintf(stderr, "latency_benchmark: playback %s\n", how.c_str());
      std::exit(1);
    }
  }

  bench::Signal ending;
  BenchDevice device;
  bench::TrackListener listener;
  std::unique_ptr<AudioPlayer> player;
};

// Polls, as the device's time stamps are taken on the render thread.
int64_t waitUntilNoted(std::atomic<int64_t> const& time) {
  while (time.load() == 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  return time.load();
}

// The average byte rate of a file: its size over its duration, which playing it as fast as it
// decodes gives.
double bytesPerSecond(std::string const& path, size_t size) {
  Rig rig(INT64_MAX, true, 0);
  rig.prepare(fileResource(path));
  rig.ending.wait();
  return static_cast<double>(size) * BenchDevice::kRate /
         static_cast<double>(rig.device.framesTaken());
}

std::vector<uint8_t> readFile(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Each measurement: one run (numbered from 0), returning the latency in ns.
using Measurement = std::function<int64_t(int)>;

void report(char const* what, Measurement const& measure, int repetitions) {
  std::vector<double> ms;
  for (int i = 0; i < repetitions; ++i) {
    ms.push_back(static_cast<double>(measure(i)) / oru::host::kNsPerMs);
  }
  std::sort(ms.begin(), ms.end());
  std::printf("| %s | %.2f | %.2f |\n", what, ms[ms.size() / 2], ms.back());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  int repetitions = 20;
  std::string path;
  std::vector<std::string> radios;
  for (int i = 1; i < argc; ++i) {
    std::string const argument = argv[i];
    if (argument == "--repetitions" && i + 1 < argc) {
      repetitions = std::max(1, std::atoi(argv[++i]));
    } else if (argument == "--radio" && i + 1 < argc) {
      radios.push_back(argv[++i]);
    } else {
      path = argument;
    }
  }
  std::vector<uint8_t> const data = readFile(path);
  if (data.empty()) {
    std::fprintf(stderr,
                 "usage: latency_benchmark [--repetitions N] FILE.flac [--radio FILE]...\n");
    return 2;
  }

  std::printf("| from the host's call to | median ms | max ms |\n|---|---:|---:|\n");
  report(
      "`prepare` of a local FLAC, to the first device write",
      [&](int) {
        Rig rig(1);
        int64_t const start = BenchDevice::nowNs();
        rig.prepare(fileResource(path));
        rig.waitForDevice();
        return rig.device.firstWriteNs - start;
      },
      repetitions);
  report(
      "`play` of a prebuffered track, to the first device write",
      [&](int) {
        Rig rig(1, false);
        rig.prepare(fileResource(path));
        rig.listener.ready.wait();
        // Ready means ten buffers are queued; let the decoder fill the rest of its pool.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        int64_t const start = BenchDevice::nowNs();
        rig.player->play(oru::tools::InputToken(0), 0);
        rig.waitForDevice();
        return rig.device.firstWriteNs - start;
      },
      repetitions);
  report(
      "`stop` while playing, to the device's stop",
      [&](int run) {
        Rig rig(kHalfSecond);
        rig.playUntilLimit(path, run);
        int64_t const start = BenchDevice::nowNs();
        rig.player->stop(false);
        return waitUntilNoted(rig.device.firstStopNs) - start;
      },
      repetitions);
  report(
      "destruction while playing",
      [&](int run) {
        Rig rig(kHalfSecond);
        rig.playUntilLimit(path, run);
        return rig.destroy();
      },
      repetitions);
  report(
      "destruction while prebuffering from a slow data callback",
      [&](int) {
        Rig rig(1);
        // 1 KiB every 5 ms: ten buffers of FLAC take about half a second.
        MemorySource source(data, 1024, std::chrono::milliseconds(5), SIZE_MAX, 20);
        AudioPlayer::Resource resource;
        source.fill(resource);
        rig.prepare(resource);
        source.held.wait();
        return rig.destroy();
      },
      repetitions);
  report(
      "destruction while the data callback blocks",
      [&](int run) {
        Rig rig(1);
        // Blocks after 256 KiB, or half a shorter file.
        MemorySource source(data, 64 * 1024, std::chrono::milliseconds(0),
                            std::min<size_t>(256 * 1024, data.size() / 2), -1);
        AudioPlayer::Resource resource;
        source.fill(resource);
        rig.prepare(resource);
        source.held.wait();
        waitForPhase(run);
        return rig.destroy();
      },
      repetitions);
  for (std::string const& radio : radios) {
    std::vector<uint8_t> const bytes = readFile(radio);
    double const rate = bytesPerSecond(radio, bytes.size());
    std::string const name = radio.substr(radio.find_last_of('/') + 1);
    for (size_t burst : {size_t{0}, size_t{64 * 1024}}) {
      bench::PacedServer server(std::string(bytes.begin(), bytes.end()), rate, burst);
      std::string const what =
          "`prepare` of " + name + " over HTTP at " + std::to_string(std::lround(rate * 8 / 1000)) +
          " kbit/s" + (burst > 0 ? " after a 64 KiB burst" : "") + ", to the first device write";
      report(
          what.c_str(),
          [&](int) {
            Rig rig(1);
            AudioPlayer::Resource resource;
            resource.uri = server.url(name);
            int64_t const start = BenchDevice::nowNs();
            rig.prepare(resource);
            rig.waitForDevice();
            return rig.device.firstWriteNs - start;
          },
          repetitions);
    }
  }
  return 0;
}
