#pragma once

#include <oru/Log.h>

#include <atomic>
#include <mutex>
#include <string>

namespace oruplay {

// A log sink in front of another that picks out of the engine's log what oruplay tells the
// listener about its inputs (the engine reads its own lines for it, see oru::inputTroubleOf): why
// the last input could not be opened, why the last stream ended before its end, and each
// reconnection of a broken HTTP stream. oruplay opens one input at a time, so each of these is
// the current input's. Any thread; `next` must outlive it.
class FailureReasons : public oru::LoggingDelegate {
 public:
  explicit FailureReasons(oru::LoggingDelegate& next) : mNext(next) {}

  void log(oru::LogLevel level, char const* tag, char const* message) override;

  // "NAME: what failed: why" in a listener's words, for an input that the player reported
  // failed with `message`, from what the demuxer logged about it (which is then forgotten).
  std::string describeFailure(std::string const& name, std::string const& message);
  // "NAME: stream ended early: REASON" when the stream of the input that has just finished
  // ended before its end (the reason is then forgotten); empty when it played to its end.
  std::string takeEndedEarly(std::string const& name);
  // How many reconnections FFmpeg has begun so far, each of up to three attempts.
  unsigned reconnects() const { return mReconnects.load(); }

 private:
  oru::LoggingDelegate& mNext;
  std::atomic<unsigned> mReconnects{0};
  std::mutex mMutex;               // guards the two below
  oru::InputTrouble mOpenFailure;  // why the input could not be opened
  oru::InputTrouble mEndedEarly;   // why its stream ended before its end
};

}  // namespace oruplay
