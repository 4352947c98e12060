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

// Why an input did not play to its end, as one of the engine's log lines tells it: the demuxer
// logs the cause as the last field of the line that says an input could not be opened or ended
// before its end, and the engine's FFmpeg logs each reconnection of a broken HTTP stream. A host
// that tells its users why an input stopped reads the lines its LoggingDelegate receives with
// inputTroubleOf(), without depending on their texts.
struct InputTrouble {
  enum Kind {
    kNone,          // the line says nothing of an input's trouble
    kCannotOpen,    // the input could not be opened, for the cause in `reason`
    kFailed,        // the input could not be used, for what the demuxer says in `reason`
    kNoAudio,       // the input opened but holds no audio stream
    kEndedEarly,    // the input's data ended before its end
    kReconnecting,  // a broken HTTP stream begins to reconnect
  };
  Kind kind = kNone;
  // The cause in FFmpeg's words ("Server returned 404 Not Found", "Connection timed out"), or
  // the demuxer's own ("no stream or no codec parameters"); empty for kNone, kNoAudio and
  // kReconnecting.
  std::string reason;
};

// What `message`, logged by the engine with `level` and `tag`, says of an input's trouble. Any
// thread.
ORU_EXPORT InputTrouble inputTroubleOf(LogLevel level, char const* tag, char const* message);

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
