// The benchmarks' output device and listener, shared by the pipeline and memory benchmarks.
#pragma once

#include "QuietListener.h"

#include <oru/AudioPlayer.h>
#include <oru/host/Pacer.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace bench {

// How a benchmark run ended: the first reason given wins. Any thread.
class Ending {
 public:
  void end(std::string const& how) {
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
// have been taken it ends the run. Called on the render thread; the counts are read by any.
class BenchDevice : public oru::PlaybackDelegate {
 public:
  static constexpr int kRate = 48000;

  BenchDevice(int speedUp, Ending& ending, int64_t frameLimit = INT64_MAX)
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
  void stop(oru::StopBehavior) override {}
  int write(long long, void const* data, unsigned* frames) override {
    if (data == nullptr) {
      // Starving: wait as a device would until it can take data, rather than let the render
      // thread spin.
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return 0;
    }
    if (mPacer) {
      mPacer->wait(*frames);
    }
    ++mWrites;
    if ((mFrames += *frames) >= mFrameLimit) {
      mEnding.end("limit");
    }
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
  Ending& mEnding;
  int64_t const mFrameLimit;
  uint32_t const mRate = kRate;
  oru::AudioFormat const mFormat = oru::PCM_S16;
  std::optional<oru::host::Pacer> mPacer;
};

// Plays the one track it is told of as soon as it is ready, and ends the run when it has
// finished or failed. Called on the player's thread.
class PlayWhenReady : public oruplay::QuietListener {
 public:
  explicit PlayWhenReady(Ending& ending) : mEnding(ending) {}

  oru::AudioPlayer* player = nullptr;

  void trackReady(Token const& token, bool) override { player->play(token, 0); }
  void playbackFinished(Token const&, unsigned) override { mEnding.end("finished"); }
  void playbackFailed(Token const&, oru::AudioPlayer::MediaError, std::string const& message,
                      Token const&, oru::AudioPlayer::State, unsigned) override {
    mEnding.end("failed: " + message);
  }

 private:
  Ending& mEnding;
};

}  // namespace bench
