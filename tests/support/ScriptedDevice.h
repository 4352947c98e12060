#pragma once

#include <oru/AudioPlayer.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace oru::test {

// An output device that records every call the renderer makes and behaves as the test sets
// it: it can take fewer frames than offered, hold a write until the test lets it go, fail to
// start or to write, and report any number of played frames. Any thread.
class ScriptedDevice : public PlaybackDelegate {
 public:
  enum Kind { kStart, kStop, kWrite, kUnderrun };

  struct Call {
    explicit Call(Kind callKind) : kind(callKind) {}
    Kind kind;
    AudioFormat format = PCM_S16;        // kStart
    int channels = 0;                    // kStart
    StopBehavior behavior = STOP_DRAIN;  // kStop
    int64_t timestamp = 0;               // kWrite
    unsigned offered = 0;                // kWrite
    unsigned accepted = 0;               // kWrite
    std::vector<uint8_t> data;           // kWrite: the bytes accepted
  };

  // Each write takes at most this many frames.
  void setMaxFramesPerWrite(unsigned frames);
  // Results of the next start and of writes.
  void setStartResult(int result);
  void setWriteResult(int result);
  // Played frames reported from now on; unset: every frame accepted since start has played.
  void setPlayedFrames(std::optional<int64_t> played);
  // Writes after the next `count` ones wait inside write() until releaseWrites().
  void holdWritesAfter(int count);
  // Called on the renderer's thread inside every stop(), after it is recorded.
  void setStopHook(std::function<void(StopBehavior)> hook);
  // Waits until a write is being held; false at the deadline.
  bool waitUntilHolding();
  void releaseWrites();

  std::vector<Call> calls() const;
  // Waits until `predicate` holds for the recorded calls; false at the deadline.
  bool waitUntil(std::function<bool(std::vector<Call> const&)> const& predicate);
  // The kinds of the recorded calls, in order, for comparing whole sequences.
  std::vector<Kind> kinds() const;
  // Every accepted byte of every write, in order.
  std::vector<uint8_t> writtenBytes() const;
  // The frames of every write, accepted ones only.
  int64_t writtenFrames() const;

  int start(AudioFormat format, int channels) override;
  void stop(StopBehavior behavior) override;
  int write(long long timestamp, void const* data, unsigned* frames) override;
  long long getPlayedFrames() override;
  PlaybackCapabilities getPlaybackConfig() override;

 private:
  void record(Call call);

  mutable std::mutex mMutex;  // guards everything below
  std::condition_variable mChanged;
  std::vector<Call> mCalls;
  int mFrameBytes = 0;  // of the stream the device was last started for
  unsigned mMaxFramesPerWrite = ~0u;
  int mStartResult = 0;
  int mWriteResult = 0;
  std::optional<int64_t> mPlayedFrames;
  int64_t mAcceptedSinceStart = 0;
  int mWritesBeforeHold = -1;  // -1: never hold
  bool mHolding = false;
  std::function<void(StopBehavior)> mStopHook;
};

}  // namespace oru::test
