#pragma once

#include <oru/Log.h>
#include <oru/host/StderrLogger.h>

#include <cstdio>
#include <mutex>
#include <string>

namespace bench::radio {

// Counts the engine's warnings and errors and keeps the first of each, passing every line at or
// above `shown` on to the standard error. Any thread.
class LogTally : public oru::LoggingDelegate {
 public:
  explicit LogTally(oru::LogLevel shown) : mShown(shown), mStderr(shown) {}

  void log(oru::LogLevel level, char const* tag, char const* message) override {
    if (level >= oru::LOG_WARNING) {
      Kind& kind = level == oru::LOG_WARNING ? mWarnings : mErrors;
      std::lock_guard<std::mutex> lock(mMutex);
      if (kind.count++ == 0) {
        std::snprintf(kind.first, sizeof kind.first, "%s: %s", tag, message);
      }
    }
    if (level >= mShown) {
      mStderr.log(level, tag, message);
    }
  }

  // "N warnings (the first: TAG: TEXT), M errors (...)".
  std::string summary() {
    std::lock_guard<std::mutex> lock(mMutex);
    return describe(mWarnings, "warnings") + ", " + describe(mErrors, "errors and worse");
  }

 private:
  struct Kind {
    long count = 0;
    char first[256] = {};
  };
  static std::string describe(Kind const& kind, char const* name) {
    return std::to_string(kind.count) + " " + name +
           (kind.count > 0 ? " (the first: \"" + std::string(kind.first) + "\")" : "");
  }

  oru::LogLevel const mShown;
  oru::host::StderrLogger mStderr;
  std::mutex mMutex;  // guards the two below
  Kind mWarnings;
  Kind mErrors;
};

}  // namespace bench::radio
