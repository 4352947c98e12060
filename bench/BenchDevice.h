// The benchmarks' output device and listener, shared by the pipeline and memory benchmarks.
#pragma once

#include "Capabilities.h"
#include "QuietListener.h"

#include <oru/AudioPlayer.h>
#include <oru/host/Pacer.h>
#include <oru/host/SystemClock.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace bench {

// A one-shot signal that carries a reason (how a run ended, that a track is ready): the first
// reason given wins. Any thread.
class Signal {
 public:
  void raise(std::string const& how) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mHow.empty()) {
      mHow = how;
    }
    mChanged.notify_all();
  }
  std::string wait() {
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return !mHow.empty(); });
    return mHow;
  }

 private:
  std::mutex mMutex;  // guards mHow
  std::condition_variable mChanged;
  std::string mHow;
};

// A device that takes 16-bit stereo at 48 kHz, either at once (speed-up 0) or paced at a
// multiple of real time. It keeps nothing and counts what it took; once `frameLimit` frames
// have been taken it ends the run. It notes when it was first offered data and when it was
// first stopped (steady clock, ns). Called on the render thread; the counts are read by any.
class BenchDevice : public oru::PlaybackDelegate {
 public:
  static constexpr int kRate = 48000;

  BenchDevice(int speedUp, Signal& ending, int64_t frameLimit = INT64_MAX)
      : mEnding(ending), mFrameLimit(frameLimit) {
    if (speedUp > 0) {
      mPacer.emplace(kRate * speedUp);
    }
  }

  int start(oru::AudioFormat, int) override {
    if (mPacer) {
      mPacer->restart();
    }
    return 0;
  }
  void stop(oru::StopBehavior) override { noteOnce(mFirstStopNs); }
  int write(long long, void const* data, unsigned* frames) override {
    if (data == nullptr) {
      // Starving: wait as a device would until it can take data, rather than let the render
      // thread spin.
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return 0;
    }
    noteOnce(mFirstWriteNs);
    if (mPacer) {
      mPacer->wait(*frames);
    }
    ++mWrites;
    if ((mFrames += *frames) >= mFrameLimit) {
      mEnding.raise("limit");
    }
    return 0;
  }
  long long getPlayedFrames() override { return -1; }
  oru::PlaybackCapabilities getPlaybackConfig() override {
    return oru::host::oneRateCapabilities(mRate, oru::PCM_S16, &mFormat, 1);
  }

  static int64_t nowNs() { return oru::host::SystemClock::localNow(); }

  std::atomic<int64_t> mFrames{0};
  std::atomic<int64_t> mWrites{0};
  std::atomic<int64_t> mFirstWriteNs{0};
  std::atomic<int64_t> mFirstStopNs{0};

 private:
  static void noteOnce(std::atomic<int64_t>& time) {
    if (time.load(std::memory_order_relaxed) == 0) {
      time = nowNs();
    }
  }

  Signal& mEnding;
  int64_t const mFrameLimit;
  uint32_t const mRate = kRate;
  oru::AudioFormat const mFormat = oru::PCM_S16;
  std::optional<oru::host::Pacer> mPacer;
};

// Raises `ready` when the one track it is told of is ready, and plays it then unless told not
// to; ends the run when the track has finished or failed. Called on the player's thread.
class TrackListener : public oruplay::QuietListener {
 public:
  explicit TrackListener(Signal& ending, bool playWhenReady = true)
      : mEnding(ending), mPlayWhenReady(playWhenReady) {}

  oru::AudioPlayer* player = nullptr;
  Signal ready;

  void trackReady(Token const& token, bool) override {
    ready.raise("ready");
    if (mPlayWhenReady) {
      player->play(token, 0);
    }
  }
  void playbackFinished(Token const&, unsigned) override { mEnding.raise("finished"); }
  void playbackFailed(Token const&, oru::AudioPlayer::MediaError, std::string const& message,
                      Token const&, oru::AudioPlayer::State, unsigned) override {
    mEnding.raise("failed: " + message);
  }

 private:
  Signal& mEnding;
  bool const mPlayWhenReady;
};

}  // namespace bench
