// The benchmarks' output device and listener.
#pragma once

#include "InputToken.h"

#include <oru/AudioPlayer.h>
#include <oru/host/EventListenerBase.h>
#include <oru/host/NullOutput.h>
#include <oru/host/SystemClock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
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
// multiple of real time: a NullOutput that counts its writes, notes when it was first offered
// data and when it was first stopped (local clock, ns), and ends the run once `frameLimit`
// frames have been taken. It reports no played frames, so that the renderer counts what it
// wrote as played and never waits for a drain: the benchmarks time the engine, not a device.
// Called on the render thread; the counts are read by any.
class BenchDevice : public oru::host::NullOutput {
 public:
  static constexpr int kRate = 48000;

  BenchDevice(int speedUp, Signal& ending, int64_t frameLimit = INT64_MAX)
      : NullOutput(speedUp > 0 ? kRealTime : kUnpaced, kRate, kRate * std::max(speedUp, 1),
                   oru::host::LocalClock::monotonic()),
        mEnding(ending),
        mFrameLimit(frameLimit) {}

  void stop(oru::StopBehavior behavior) override {
    noteOnce(firstStopNs);
    NullOutput::stop(behavior);
  }
  int write(long long timestamp, void const* data, unsigned* frames) override {
    if (data == nullptr) {
      // Starving: wait as a device would until it can take data, rather than let the render
      // thread spin; as briefly paced as not, so that a fast device stays fast.
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return 0;
    }
    noteOnce(firstWriteNs);
    NullOutput::write(timestamp, data, frames);
    ++writes;
    if (framesTaken() >= mFrameLimit) {
      mEnding.raise("limit");
    }
    return 0;
  }
  long long getPlayedFrames() override { return -1; }
  // 16-bit only, so that the engine converts every stream to it.
  oru::PlaybackCapabilities getPlaybackConfig() override {
    oru::PlaybackCapabilities caps = NullOutput::getPlaybackConfig();
    caps.supportedFormats = &kFormat;
    caps.supportedFormatCount = 1;
    return caps;
  }

  static int64_t nowNs() { return oru::host::SystemClock::localNow(); }

  std::atomic<int64_t> writes{0};
  std::atomic<int64_t> firstWriteNs{0};
  std::atomic<int64_t> firstStopNs{0};

 private:
  static constexpr oru::AudioFormat kFormat = oru::PCM_S16;

  static void noteOnce(std::atomic<int64_t>& time) {
    if (time.load(std::memory_order_relaxed) == 0) {
      time = nowNs();
    }
  }

  Signal& mEnding;
  int64_t const mFrameLimit;
};

// Raises `ready` when the one track it is told of is ready, and plays it then unless told not
// to; ends the run when the track has finished or failed. Called on the player's thread.
class TrackListener : public oru::host::EventListenerBase {
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

// Plays `path` from its start through a player of its own into `device` until `ending` is
// raised (the track finished or failed, or the device reached its limit), calls
// `beforeDestroy` while the player still exists, and returns what ended it.
inline std::string playUntilEnded(std::string const& path, oru::PlaybackDelegate& device,
                                  Signal& ending, std::function<void()> const& beforeDestroy = {}) {
  TrackListener listener(ending);
  oru::AudioPlayer player(&listener, &device, nullptr, oru::AudioPlayer::TIMESTAMP_STREAM, nullptr);
  listener.player = &player;
  oru::AudioPlayer::Resource resource;
  resource.uri = path;
  player.prepare(oru::AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, oru::tools::InputToken(0), 1);
  std::string how = ending.wait();
  if (beforeDestroy) {
    beforeDestroy();
  }
  return how;
}

}  // namespace bench
