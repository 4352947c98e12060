#pragma once

#include <oru/Log.h>

#include <mutex>
#include <string>
#include <utility>

namespace oruplay {

// A log sink in front of another that remembers why the last input could not be opened (the
// demuxer logs FFmpeg's reason, such as "Server returned 404 Not Found", just before its track
// fails), so that the failure can be reported with it. oruplay opens one input at a time. Any
// thread; `next` must outlive it.
class FailureReasons : public oru::LoggingDelegate {
 public:
  explicit FailureReasons(oru::LoggingDelegate& next) : mNext(next) {}

  void log(oru::LogLevel level, char const* tag, char const* message) override {
    std::string const text = message;
    size_t const at = text.find(kOpenFailure);
    if (at != std::string::npos) {
      std::lock_guard<std::mutex> lock(mMutex);
      mLastOpenFailure = text.substr(at + sizeof kOpenFailure - 1);
    }
    mNext.log(level, tag, message);
  }

  // The reason of the last failed open, once; empty when there is none.
  std::string takeOpenFailure() {
    std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mLastOpenFailure, {});
  }

 private:
  static constexpr char kOpenFailure[] = ": Could not open or parse input: ";
  oru::LoggingDelegate& mNext;
  std::mutex mMutex;  // guards mLastOpenFailure
  std::string mLastOpenFailure;
};

}  // namespace oruplay
