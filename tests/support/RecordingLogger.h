#pragma once

#include "Recorder.h"

#include <oru/Log.h>

#include <string>

namespace oru::test {

// The process-wide log sink for its lifetime: keeps every line, as "TAG LEVEL message".
struct RecordingLogger : LoggingDelegate, Recorder<std::string> {
  RecordingLogger() { LogMessage::setLogger(this); }
  ~RecordingLogger() override { LogMessage::setLogger(nullptr); }
  void log(LogLevel level, char const* tag, char const* message) override {
    add(std::string(tag) + " " + std::to_string(level) + " " + message);
  }
  // How many lines hold `text`.
  int count(std::string const& text) const {
    int found = 0;
    for (std::string const& line : entries()) {
      found += line.find(text) != std::string::npos ? 1 : 0;
    }
    return found;
  }
  bool logged(std::string const& text) const { return count(text) > 0; }
  // The lines of error level or above.
  std::vector<std::string> errors() const {
    std::vector<std::string> lines;
    for (std::string const& line : entries()) {
      (line[line.find(' ') + 1] >= '5' ? lines : std::vector<std::string>()).push_back(line);
    }
    return lines;
  }
};

}  // namespace oru::test
