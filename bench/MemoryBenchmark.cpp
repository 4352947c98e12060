// Memory over a long stream: an hour of 48 kHz stereo float audio (oru-syncsim's ramp), pulled
// through the data callback and played by a real AudioPlayer, converted to 16-bit, into a device
// paced at 60 times real time (a minute of wall time). Prints the resident memory every ten minutes
// of audio, and counts the heap allocations that any thread makes from the end of the first minute
// of audio to the end: the buffer pool should make them none per buffer.
#include "QuietListener.h"
#include "RampSource.h"
#include "Session.h"

#include <oru/AudioPlayer.h>
#include <oru/host/Pacer.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

// Every allocation in the process goes through these while counting (glibc's own entry points
// stay reachable under their internal names).
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<bool> gCounting{false};
std::atomic<int64_t> gAllocations{0};

void count() {
  if (gCounting.load(std::memory_order_relaxed)) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
  }
}

}  // namespace

extern "C" {
void* malloc(size_t size) {
  count();
  return __libc_malloc(size);
}
void* calloc(size_t count_, size_t size) {
  count();
  return __libc_calloc(count_, size);
}
void* realloc(void* pointer, size_t size) {
  count();
  return __libc_realloc(pointer, size);
}
int posix_memalign(void** pointer, size_t alignment, size_t size) {
  count();
  *pointer = __libc_memalign(alignment, size);
  return *pointer != nullptr ? 0 : ENOMEM;
}
}

namespace {

constexpr int kRate = syncsim::RampSource::kRate;
constexpr int64_t kFrames = int64_t{3600} * kRate;
constexpr int kSpeedUp = 60;

// Takes 16-bit stereo at 48 kHz, paced at 60 times real time.
class FastDevice : public oru::PlaybackDelegate {
 public:
  int start(oru::AudioFormat, int) override { return 0; }
  void stop(oru::StopBehavior) override {}
  int write(long long, void const* data, unsigned* frames) override {
    if (data == nullptr) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return 0;
    }
    mPacer.wait(*frames);
    mFrames += *frames;
    ++mWrites;
    return 0;
  }
  long long getPlayedFrames() override { return -1; }
  oru::PlaybackCapabilities getPlaybackConfig() override {
    oru::PlaybackCapabilities caps;
    caps.supportedRates = &mRate;
    caps.supportedRateCount = 1;
    caps.defaultRate = kRate;
    caps.preferredFormat = oru::PCM_S16;
    caps.supportedFormats = &mFormat;
    caps.supportedFormatCount = 1;
    return caps;
  }

  std::atomic<int64_t> mFrames{0};
  std::atomic<int64_t> mWrites{0};

 private:
  uint32_t const mRate = kRate;
  oru::AudioFormat const mFormat = oru::PCM_S16;
  oru::host::Pacer mPacer{kRate * kSpeedUp};
};

class Listener : public oruplay::QuietListener {
 public:
  oru::AudioPlayer* player = nullptr;
  void trackReady(Token const& token, bool) override { player->play(token, 0); }
  void playbackFinished(Token const&, unsigned) override { end("finished"); }
  void playbackFailed(Token const&, oru::AudioPlayer::MediaError, std::string const& message,
                      Token const&, oru::AudioPlayer::State, unsigned) override {
    end("failed: " + message);
  }
  std::string waitUntilEnded() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return !mEnd.empty(); });
    return mEnd;
  }

 private:
  void end(std::string const& how) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEnd = how;
    mChanged.notify_all();
  }

  std::mutex mMutex;  // guards mEnd
  std::condition_variable mChanged;
  std::string mEnd;
};

// Read with system calls only: fopen would allocate, and be counted.
long residentKiB() {
  char text[128] = {};
  int const fd = open("/proc/self/statm", O_RDONLY);
  if (fd < 0 || read(fd, text, sizeof text - 1) <= 0) {
    text[0] = '\0';
  }
  if (fd >= 0) {
    close(fd);
  }
  long pages = 0, resident = 0;
  if (std::sscanf(text, "%ld %ld", &pages, &resident) != 2) {
    resident = 0;
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

int main() {
  syncsim::RampSource source(kFrames);
  FastDevice device;
  Listener listener;
  std::string ending;
  long baselineKiB = 0, peakKiB = 0;
  int64_t baselineWrites = 0, writes = 0;
  std::atomic<bool> ended{false};
  {
    oru::AudioPlayer player(&listener, &device, nullptr, oru::AudioPlayer::TIMESTAMP_STREAM,
                            nullptr);
    listener.player = &player;
    oru::AudioPlayer::Resource resource;
    resource.newDataCallback = &syncsim::RampSource::read;
    resource.callbackOpaque = &source;
    player.prepare(oru::AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, oruplay::InputToken(0), 1);

    std::printf("| audio played | resident memory |\n|---:|---:|\n");
    std::thread watcher([&] {
      int64_t nextReport = 0;
      while (!ended && device.mFrames < kFrames - kRate) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        int64_t const frames = device.mFrames;
        if (!gCounting && frames >= int64_t{60} * kRate) {
          baselineKiB = residentKiB();
          baselineWrites = device.mWrites;
          gCounting = true;
        }
        if (frames >= nextReport) {
          long const resident = residentKiB();
          peakKiB = std::max(peakKiB, resident);
          std::printf("| %3lld min | %ld KiB |\n", static_cast<long long>(frames / kRate / 60),
                      resident);
          std::fflush(stdout);
          nextReport += int64_t{600} * kRate;
        }
      }
      gCounting = false;
      peakKiB = std::max(peakKiB, residentKiB());
      writes = device.mWrites - baselineWrites;
    });
    ending = listener.waitUntilEnded();
    ended = true;
    watcher.join();
  }
  std::printf(
      "\nplayback %s; after the first minute: %lld heap allocations in %lld device writes, "
      "resident memory %+ld KiB (peak over the first minute's)\n",
      ending.c_str(), static_cast<long long>(gAllocations.load()), static_cast<long long>(writes),
      peakKiB - baselineKiB);
  return ending == "finished" ? 0 : 1;
}
