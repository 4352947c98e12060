#pragma once

#include "decode/AudioTrack.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace oru::test {

// Interleaved PCM whose samples encode their frame index (sample = frame x channels + channel,
// wrapped to the format), so that a lost, repeated or reordered frame shows in the output.
struct Ramp {
  AudioFormat format = PCM_S16;
  int channels = 2;
  int rate = 48000;

  std::vector<uint8_t> frames(int64_t firstFrame, unsigned count) const;
  // The frame index that `bytes` start with, read back from the ramp encoding.
  int64_t firstFrameOf(uint8_t const* bytes) const;
  int frameBytes() const { return bytesPerSample(format) * channels; }
};

// An AudioTrack that answers getNextBuffer from a script and records what the renderer did
// with it. The test thread scripts and inspects; the render thread calls in. Any thread.
class ScriptedTrack : public AudioTrack {
 public:
  // Once the script is empty, getNextBuffer answers `whenEmpty`.
  explicit ScriptedTrack(int whenEmpty = AudioTrack::Buffering);
  ~ScriptedTrack() override;

  // Appends an answer without a buffer.
  void answer(int code);
  // Appends an answer with a buffer of `ramp` frames [firstFrame, firstFrame + count).
  void answerBuffer(int code, Ramp const& ramp, int64_t firstFrame, unsigned count, int64_t pts);
  void setWhenEmpty(int code);

  // What the renderer did with the track.
  struct Record {
    int nextBufferCalls = 0;
    int scriptLeft = 0;  // answers not yet given
    int buffersOut = 0;  // handed out and not yet released
    std::vector<int64_t> positions;
    std::vector<int> renderErrors;
    int renderFinished = 0;
  };

  // A copy of the record, taken under the track's lock.
  Record record() const;
  // Waits until `predicate` holds for the record; false at the deadline.
  bool waitUntil(std::function<bool(Record const&)> const& predicate);

  // AudioTrack: render thread.
  int getNextBuffer(PcmBuffer** buffer) override;
  void releaseBuffer(PcmBuffer* buffer) override;
  void updatePosition(int64_t positionNs) override;
  void onRenderError(int error) override;
  void onRenderFinished() override;

  // AudioTrack: command thread; not used by the renderer.
  unsigned getPositionMs() const override { return 0; }
  void setProgressReportDelay(int) override {}
  void setProgressReportInterval(int) override {}
  void seek(unsigned) override {}
  void play(int64_t) override {}
  void pause(bool) override {}
  void stop() override {}

 private:
  struct Step {
    int code;
    std::unique_ptr<PcmBuffer> buffer;
  };

  mutable std::mutex mMutex;  // guards mRecord and mScript
  std::condition_variable mChanged;
  Record mRecord;
  std::deque<Step> mScript;
  int mWhenEmpty;
};

}  // namespace oru::test
