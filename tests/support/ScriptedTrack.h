#pragma once

#include "NamedToken.h"
#include "Ramp.h"
#include "Recorder.h"
#include "common/Time.h"
#include "decode/AudioTrack.h"

#include <algorithm>
#include <atomic>
#include <deque>

namespace oru::test {

// An AudioTrack that answers getNextBuffer from a script and records what the renderer did
// with it. The test scripts and inspects on its thread; the render thread calls in.
class ScriptedTrack : public AudioTrack {
 public:
  // Once the script is empty, getNextBuffer answers `whenEmpty`.
  explicit ScriptedTrack(int whenEmpty = Buffering)
      : AudioTrack(std::make_unique<NamedToken>("scripted"), "scripted://"),
        mWhenEmpty(whenEmpty) {}

  // Appends an answer, with a buffer of `ramp` frames [first, first + count) when count > 0.
  void answer(int code, Ramp const& ramp = {}, int64_t first = 0, unsigned count = 0,
              int64_t pts = 0) {
    std::unique_ptr<PcmBuffer> buffer;
    if (count > 0) {
      std::vector<uint8_t> const bytes = ramp.frames(first, count);
      buffer = std::make_unique<PcmBuffer>();
      buffer->data = new uint8_t[bytes.size()];
      std::copy(bytes.begin(), bytes.end(), buffer->data);
      buffer->size = static_cast<uint32_t>(bytes.size());
      buffer->pts = pts;
      buffer->duration = framesToNs(count, ramp.rate);
      buffer->format = ramp.format;
      buffer->channels = ramp.channels;
      buffer->rate = ramp.rate;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mScript.emplace_back(code, std::move(buffer));
  }

  // What the renderer did: "n" for each getNextBuffer, "p<ns>" for a position, "e<error>" for
  // a render error, "f" when it finished.
  Recorder<std::string> did;
  std::atomic<int> buffersOut{0};  // handed out and not given back

  bool waitFor(std::string const& what, long n = 1) {
    return did.waitUntil([&](auto const& d) { return std::count(d.begin(), d.end(), what) >= n; });
  }
  std::vector<int64_t> positions() const {
    std::vector<int64_t> result;
    for (std::string const& entry : did.entries()) {
      if (entry[0] == 'p') {
        result.push_back(std::stoll(entry.substr(1)));
      }
    }
    return result;
  }

  int getNextBuffer(PcmBuffer** buffer) override {
    int code = mWhenEmpty;
    *buffer = nullptr;
    {
      std::lock_guard<std::mutex> lock(mMutex);
      if (!mScript.empty()) {
        code = mScript.front().first;
        *buffer = mScript.front().second.release();
        mScript.pop_front();
      }
    }
    buffersOut += *buffer != nullptr ? 1 : 0;
    did.add("n");
    return code;
  }
  void releaseBuffer(PcmBuffer* buffer) override {
    buffersOut -= buffer != nullptr ? 1 : 0;
    delete buffer;
  }
  void updatePosition(int64_t positionNs) override { did.add("p" + std::to_string(positionNs)); }
  void onRenderError(int error) override { did.add("e" + std::to_string(error)); }
  void onRenderFinished() override { did.add("f"); }

  // Command-thread operations, not used by the renderer.
  unsigned getPositionMs() const override { return 0; }
  void setProgressReportDelay(int) override {}
  void setProgressReportInterval(int) override {}
  void seek(unsigned) override {}
  void play(int64_t) override {}
  void pause(bool) override {}
  void stop() override {}

 private:
  std::mutex mMutex;                                               // guards mScript
  std::deque<std::pair<int, std::unique_ptr<PcmBuffer>>> mScript;  // answers and their buffers
  int const mWhenEmpty;
};

}  // namespace oru::test
