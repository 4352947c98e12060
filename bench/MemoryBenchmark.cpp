// Memory over a long stream: an hour of 48 kHz stereo float audio (oru-syncsim's ramp), pulled
// through the data callback and played by a real AudioPlayer, converted to 16-bit, into a device
// paced at 60 times real time (a minute of wall time). Prints the resident memory every ten minutes
// of audio, and counts the heap allocations that any thread makes from the end of the first minute
// of audio to the end: the buffer pool should make them none per buffer.
#include "BenchDevice.h"
#include "InputToken.h"
#include "RampSource.h"

#include <oru/AudioPlayer.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
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

constexpr int kRate = oru::tools::RampSource::kRate;
static_assert(kRate == bench::BenchDevice::kRate, "the device plays the ramp at its own rate");
constexpr int64_t kFrames = int64_t{3600} * kRate;
constexpr int kSpeedUp = 60;

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
  oru::tools::RampSource source(kFrames);
  bench::Signal ending;
  bench::BenchDevice device(kSpeedUp, ending);
  bench::TrackListener listener(ending);
  std::string how;
  long baselineKiB = 0, peakKiB = 0;
  int64_t baselineWrites = 0, writes = 0;
  std::atomic<bool> ended{false};
  {
    oru::AudioPlayer player(&listener, &device, nullptr, oru::AudioPlayer::TIMESTAMP_STREAM,
                            nullptr);
    listener.player = &player;
    oru::AudioPlayer::Resource resource;
    resource.newDataCallback = &oru::tools::RampSource::read;
    resource.callbackOpaque = &source;
    player.prepare(oru::AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, oru::tools::InputToken(0),
                   1);

    std::printf("| audio played | resident memory |\n|---:|---:|\n");
    std::thread watcher([&] {
      int64_t nextReport = 0;
      while (!ended && device.framesTaken() < kFrames - kRate) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        int64_t const frames = device.framesTaken();
        if (!gCounting && frames >= int64_t{60} * kRate) {
          baselineKiB = residentKiB();
          baselineWrites = device.writes;
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
      writes = device.writes - baselineWrites;
    });
    how = ending.wait();
    ended = true;
    watcher.join();
  }
  std::printf(
      "\nplayback %s; after the first minute: %lld heap allocations in %lld device writes, "
      "resident memory %+ld KiB (peak over the first minute's)\n",
      how.c_str(), static_cast<long long>(gAllocations.load()), static_cast<long long>(writes),
      peakKiB - baselineKiB);
  return how == "finished" ? 0 : 1;
}
