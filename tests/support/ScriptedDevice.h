#pragma once

#include "Recorder.h"

#include <oru/Decoder.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace oru::test {

// An output device that records every call the renderer makes and behaves as the test sets it:
// it can take fewer frames than offered, hold writes until the test lets them go, fail to start
// or to write, and report any number of played frames. Any thread.
class ScriptedDevice : public PlaybackDelegate {
 public:
  struct Call {
    char kind;              // 's'tart, 'p' stop, 'w'rite, 'u'nderrun
    int arg;                // start: the format; stop: the behaviour; write: the frames offered
    int64_t timestamp = 0;  // write
    int channels = 0;       // start
    std::vector<uint8_t> data = {};  // what a write accepted
    unsigned accepted = 0;           // frames
  };
  // What getPlayedFrames reports when playedFrames holds it: every frame written since start.
  static constexpr int64_t kPlayedAsWritten = -2;

  // Set before the device is used, but for playedFrames.
  static constexpr uint32_t kRates[] = {48000};
  static constexpr AudioFormat kFormats[] = {PCM_S16, PCM_S32, PCM_FLOAT};
  PlaybackCapabilities caps{kRates, 1, 48000, PCM_S16, kFormats, 3, nullptr};
  unsigned maxFramesPerWrite = ~0u;
  int startResult = 0;
  int writeResult = 0;
  std::function<void(StopBehavior)> stopHook;  // called inside every stop(), on its thread
  std::atomic<int64_t> playedFrames{kPlayedAsWritten};
  Recorder<Call> calls;

  // Writes after the next `count` ones wait inside write() until releaseWrites().
  void holdWritesAfter(int count) { mHold.add(count); }
  void releaseWrites() { mHold.add(kPassAll); }
  bool waitUntilHolding() {
    return mHold.waitUntil([](auto const& hold) { return hold.back() == kWaiting; });
  }

  // The calls as words: "s0/2" a start (format/channels), "w441" a write (frames offered), "p0"
  // a stop (behaviour), "u" an underrun.
  std::string transcript(size_t count = SIZE_MAX) const {
    std::vector<Call> const all = calls.entries();
    std::string words;
    for (size_t i = 0; i < std::min(count, all.size()); ++i) {
      words += (i == 0 ? "" : " ") + std::string(1, all[i].kind);
      words += all[i].kind == 'u' ? "" : std::to_string(all[i].arg);
      words += all[i].kind == 's' ? "/" + std::to_string(all[i].channels) : "";
    }
    return words;
  }
  bool waitForCalls(size_t count) {
    return calls.waitUntil([count](auto const& all) { return all.size() >= count; });
  }
  std::vector<Call> writes() const {
    std::vector<Call> all = calls.entries();
    all.erase(std::remove_if(all.begin(), all.end(), [](Call const& c) { return c.kind != 'w'; }),
              all.end());
    return all;
  }
  std::vector<uint8_t> writtenBytes() const {
    std::vector<uint8_t> bytes;
    for (Call const& call : writes()) {
      bytes.insert(bytes.end(), call.data.begin(), call.data.end());
    }
    return bytes;
  }
  int64_t writtenFrames() const { return writtenBytes().size() / mFrameBytes; }

  int start(AudioFormat format, int channels) override {
    calls.add({'s', format, 0, channels});
    mStarving = false;
    mFrameBytes = bytesPerSample(format) * channels;
    mWrittenSinceStart = 0;
    return startResult;
  }
  void stop(StopBehavior behavior) override {
    calls.add({'p', behavior});
    if (stopHook) {
      stopHook(behavior);
    }
  }
  int write(long long timestamp, void const* data, unsigned* frames) override {
    if (data == nullptr && *frames == 0 && timestamp == 0) {
      // A device waits for audio as the reference outputs do; a run of underruns is one call.
      if (!std::exchange(mStarving, true)) {
        calls.add({'u', 0});
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return 0;
    }
    // The hold is a list of states, the last of which holds: how many more writes may pass, all
    // of them, or a write waiting. It is read and appended to in one step: a release cannot fall
    // in between.
    int const allowed = mHold.addFrom([](int last) {
      return last == 0 ? kWaiting : last > 0 ? last - 1 : last;
    });
    if (allowed == 0) {
      mHold.waitUntil([](auto const& hold) { return hold.back() == kPassAll; });
    }
    Call call{'w', static_cast<int>(*frames), timestamp};
    *frames = writeResult == 0 ? std::min(*frames, maxFramesPerWrite) : 0;
    call.data.assign(static_cast<uint8_t const*>(data),
                     static_cast<uint8_t const*>(data) + size_t{*frames} * mFrameBytes);
    mWrittenSinceStart += call.accepted = *frames;
    mStarving = false;
    calls.add(std::move(call));
    return writeResult;
  }
  long long getPlayedFrames() override {
    return playedFrames == kPlayedAsWritten ? mWrittenSinceStart.load() : playedFrames.load();
  }
  PlaybackCapabilities getPlaybackConfig() override { return caps; }

 private:
  // The hold's states besides a count of writes that may still pass.
  static constexpr int kPassAll = -1;
  static constexpr int kWaiting = -2;

  Recorder<int> mHold{{kPassAll}};
  std::atomic<int> mFrameBytes{4};
  std::atomic<int64_t> mWrittenSinceStart{0};
  bool mStarving = false;  // the last call recorded was an underrun (render thread only)
};

}  // namespace oru::test
