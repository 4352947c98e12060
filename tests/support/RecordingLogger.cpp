#include "RecordingLogger.h"

#include <algorithm>

namespace oru::test {

RecordingLogger::RecordingLogger() { LogMessage::setLogger(this); }

RecordingLogger::~RecordingLogger() { LogMessage::setLogger(nullptr); }

void RecordingLogger::log(LogLevel level, char const* tag, char const* message) {
  std::lock_guard<std::mutex> lock(mMutex);
  mLines.push_back({level, tag, message});
}

std::vector<RecordingLogger::Line> RecordingLogger::lines() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mLines;
}

bool RecordingLogger::contains(LogLevel level, std::string const& tag,
                               std::string const& message) const {
  std::lock_guard<std::mutex> lock(mMutex);
  return std::any_of(mLines.begin(), mLines.end(), [&](Line const& line) {
    return line.level == level && line.tag == tag && line.message == message;
  });
}

}  // namespace oru::test
