// Logging: the host's sink and the line builder that every component of the engine uses.
#pragma once

#include <oru/Export.h>

#include <sstream>
#include <string>

namespace oru {

// Severity of a log line. The engine emits 2 to 6; 0 and 1 are lower levels a host may use.
enum LogLevel : int {
  LOG_VERBOSE = 0,
  LOG_DEBUG = 1,
  LOG_DETAIL = 2,
  LOG_INFO = 3,
  LOG_WARNING = 4,
  LOG_ERROR = 5,
  LOG_FATAL = 6,  // the process aborts once the line is delivered
};

// Implemented by the host: receives every finished log line of every player in the process.
// Called on whichever engine or host thread finishes the line, possibly from several threads
// at once, so an implementation must accept concurrent calls. `message` is valid only during
// the call and carries no prefix, time stamp, level name or newline.
class LoggingDelegate {
 public:
  virtual ~LoggingDelegate() = default;
  virtual void log(LogLevel level, char const* tag, char const* message) = 0;
};

// One log line, built by streaming into a temporary:
//
//   LogMessage(LOG_INFO, "AudioPlayer") << "handlePlay token: " << token;
//
// The line goes to the installed sink when the temporary is destroyed; a LOG_FATAL line then
// aborts the process, whether or not a sink is installed. Any thread; a message is private to
// the thread that builds it. `tag` must outlive the message (it is meant to be a literal).
class ORU_EXPORT LogMessage {
 public:
  LogMessage(LogLevel level, char const* tag);
  ~LogMessage();

  LogMessage(LogMessage const&) = delete;
  LogMessage& operator=(LogMessage const&) = delete;

  template <typename T>
  LogMessage& operator<<(T const& value) {
    mStream << value;
    return *this;
  }

  // Replaces the process-wide sink; null switches delivery off. Install the sink before
  // creating players; the sink must outlive every thread that may still log.
  static void setLogger(LoggingDelegate* logger);

  // A copy of `text` in which the first dotted-quad IPv4 address is replaced by "xxx"; later
  // addresses stay as they are. Any thread (serialised internally).
  static std::string ipAddressFilter(std::string const& text);

 private:
  std::ostringstream mStream;
  LogLevel mLevel;
  char const* mTag;
};

}  // namespace oru
