#pragma once

#include <oru/Log.h>

#include <mutex>

namespace oru::host {

// A log sink that prints each line at or above a level to standard error, as
// "W AudioRenderer: message". Any thread; lines never interleave.
class StderrLogger : public LoggingDelegate {
 public:
  explicit StderrLogger(LogLevel minimum = LOG_WARNING) : mMinimum(minimum) {}

  void log(LogLevel level, char const* tag, char const* message) override;

 private:
  LogLevel const mMinimum;
  std::mutex mMutex;  // serialises the lines
};

}  // namespace oru::host
