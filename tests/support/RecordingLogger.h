#pragma once

#include <oru/Log.h>

#include <mutex>
#include <string>
#include <vector>

namespace oru::test {

// A LoggingDelegate that keeps every line it is given. Installs itself as the process-wide
// sink for its lifetime. Any thread.
class RecordingLogger : public LoggingDelegate {
 public:
  struct Line {
    LogLevel level;
    std::string tag;
    std::string message;
  };

  RecordingLogger();
  ~RecordingLogger() override;

  void log(LogLevel level, char const* tag, char const* message) override;

  std::vector<Line> lines() const;
  // True when some line has exactly this level, tag and message.
  bool contains(LogLevel level, std::string const& tag, std::string const& message) const;

 private:
  mutable std::mutex mMutex;  // guards mLines
  std::vector<Line> mLines;
};

}  // namespace oru::test
