#include "FailureReasons.h"

#include <cstring>
#include <utility>

namespace oruplay {
namespace {

// The demuxer's lines start with its address; each of its errors is why an input could not be
// opened, and its one warning says that a stream ended before its end.
constexpr char kDemuxerTag[] = "AVDemuxer";
constexpr char kEndedEarly[] = "Input ended early: ";
// FFmpeg's announcement of each attempt to reconnect a broken HTTP stream: "Will reconnect at
// BYTE in SECONDS second(s), error=REASON.". Attempts are counted until the stream delivers new
// bytes, and the first of them waits 0 s, so that one begins a reconnection.
constexpr char kFFmpegTag[] = "Libav";
constexpr char kReconnect[] = "Will reconnect at ";
constexpr char kFirstAttempt[] = " in 0 second";

// What the demuxer logged, matched anywhere in its text, in a listener's words; words ending in
// a blank are followed by FFmpeg's reason. The first match counts.
struct Phrase {
  char const* logged;
  char const* words;
};
constexpr Phrase kPhrases[] = {
    {"Invalid data found", "not an audio file"},
    {"Failed to find best", "not an audio file"},  // no audio stream in it
    {"Failed to create decoder", "unsupported audio format"},
    {"Connection ", "cannot connect: "},
    {"Server returned 400", "bad request (HTTP 400)"},
    {"Server returned 401", "access denied (HTTP 401)"},
    {"Server returned 403", "access denied (HTTP 403)"},
    {"Server returned 404", "not found (HTTP 404)"},
    {"Server returned 4XX", "refused by the server (HTTP 4xx)"},
    {"Server returned 5XX", "server error (HTTP 5xx)"},
};

// `detail` ("Could not open or parse input: REASON", or the player's own message) in a
// listener's words. Another reason is passed on as it is, after "cannot open".
std::string inWords(std::string const& detail) {
  size_t const colon = detail.find(": ");
  std::string const reason = colon == std::string::npos ? detail : detail.substr(colon + 2);
  for (Phrase const& phrase : kPhrases) {
    if (detail.find(phrase.logged) != std::string::npos) {
      std::string const words = phrase.words;
      return words.back() == ' ' ? words + reason : words;
    }
  }
  return colon == std::string::npos ? detail : "cannot open: " + reason;
}

}  // namespace

void FailureReasons::log(oru::LogLevel level, char const* tag, char const* message) {
  if (std::strcmp(tag, kFFmpegTag) == 0 &&
      std::strncmp(message, kReconnect, sizeof kReconnect - 1) == 0 &&
      std::strstr(message, kFirstAttempt) != nullptr) {
    ++mReconnects;
  } else if (std::strcmp(tag, kDemuxerTag) == 0 && level >= oru::LOG_WARNING) {
    std::string text = message;
    if (text.rfind("0x", 0) == 0 && text.find(": ") != std::string::npos) {
      text.erase(0, text.find(": ") + 2);
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (level >= oru::LOG_ERROR) {
      mOpenFailure = text;
    } else if (text.rfind(kEndedEarly, 0) == 0) {
      mEndedEarly = text.substr(sizeof kEndedEarly - 1);
    }
  }
  mNext.log(level, tag, message);
}

std::string FailureReasons::describeFailure(std::string const& name, std::string const& message) {
  std::string detail;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    detail = std::exchange(mOpenFailure, {});
    mEndedEarly.clear();  // the failure says more
  }
  if (detail.empty()) {
    // The player's own message ends in ": " or a blank, ready for a detail that is not there.
    detail = message;
    while (!detail.empty() && (detail.back() == ' ' || detail.back() == ':')) {
      detail.pop_back();
    }
  }
  return name + ": " + inWords(detail);
}

std::string FailureReasons::takeEndedEarly(std::string const& name) {
  std::lock_guard<std::mutex> lock(mMutex);
  std::string const reason = std::exchange(mEndedEarly, {});
  return reason.empty() ? "" : name + ": stream ended early: " + reason;
}

}  // namespace oruplay
