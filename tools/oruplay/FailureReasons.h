#pragma once

#include <oru/Log.h>

#include <atomic>
#include <mutex>
#include <string>

namespace oruplay {

// A log sink in front of another that picks out of the engine's log what oruplay tells the
// listener about its inputs: why the last input could not be opened (the demuxer logs FFmpeg's
// reason, such as "Server returned 404 Not Found", just before its track fails), why the last
// stream ended before its end (the demuxer's warning "Input ended early", before its track
// finishes), and each reconnection of a broken HTTP stream that FFmpeg begins. oruplay opens
// one input at a time, so each of these is the current input's. Any thread; `next` must outlive
// it.
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
  std::mutex mMutex;         // guards the two below
  std::string mOpenFailure;  // the demuxer's error: "Could not open or parse input: REASON"
  std::string mEndedEarly;   // FFmpeg's reason
};

}  // namespace oruplay
