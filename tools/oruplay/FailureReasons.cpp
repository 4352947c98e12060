#include "FailureReasons.h"

#include <utility>

namespace oruplay {
namespace {

// FFmpeg's words for why an input could not be opened, matched anywhere in them, in a
// listener's words; words ending in a blank are followed by FFmpeg's. The first match counts.
struct Phrase {
  char const* logged;
  char const* words;
};
constexpr Phrase kPhrases[] = {
    {"Invalid data found", "not an audio file"},
    {"Connection ", "cannot connect: "},
    {"Server returned 400", "bad request (HTTP 400)"},
    {"Server returned 401", "access denied (HTTP 401)"},
    {"Server returned 403", "access denied (HTTP 403)"},
    {"Server returned 404", "not found (HTTP 404)"},
    {"Server returned 4XX", "refused by the server (HTTP 4xx)"},
    {"Server returned 5XX", "server error (HTTP 5xx)"},
};

// The start of the message of a failure to make a decoder for an input's stream.
constexpr char kNoDecoder[] = "Failed to create decoder";

// Why an input could not be opened, in a listener's words. Another reason is passed on as it
// is, after "cannot open".
std::string inWords(std::string const& reason) {
  for (Phrase const& phrase : kPhrases) {
    if (reason.find(phrase.logged) != std::string::npos) {
      std::string const words = phrase.words;
      return words.back() == ' ' ? words + reason : words;
    }
  }
  return "cannot open: " + reason;
}

}  // namespace

void FailureReasons::log(oru::LogLevel level, char const* tag, char const* message) {
  oru::InputTrouble trouble = oru::inputTroubleOf(level, tag, message);
  if (trouble.kind == oru::InputTrouble::kReconnecting) {
    ++mReconnects;
  } else if (trouble.kind != oru::InputTrouble::kNone) {
    std::lock_guard<std::mutex> lock(mMutex);
    (trouble.kind == oru::InputTrouble::kEndedEarly ? mEndedEarly : mOpenFailure) =
        std::move(trouble);
  }
  mNext.log(level, tag, message);
}

std::string FailureReasons::describeFailure(std::string const& name, std::string const& message) {
  oru::InputTrouble trouble;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    trouble = std::exchange(mOpenFailure, {});
    mEndedEarly = {};  // the failure says more
  }
  if (trouble.kind == oru::InputTrouble::kNoAudio) {
    return name + ": not an audio file";
  }
  if (trouble.kind == oru::InputTrouble::kCannotOpen) {
    return name + ": " + inWords(trouble.reason);
  }
  if (trouble.kind == oru::InputTrouble::kFailed) {
    return name + ": " + trouble.reason;
  }
  // The input opened; the failure's own message says what failed after that.
  if (message.rfind(kNoDecoder, 0) == 0) {
    return name + ": unsupported audio format";
  }
  std::string words = message;
  while (!words.empty() && (words.back() == ' ' || words.back() == ':')) {
    words.pop_back();  // the player's messages end in ": " or a blank, ready for a detail
  }
  return name + ": " + words;
}

std::string FailureReasons::takeEndedEarly(std::string const& name) {
  std::lock_guard<std::mutex> lock(mMutex);
  oru::InputTrouble const ended = std::exchange(mEndedEarly, {});
  return ended.kind == oru::InputTrouble::kNone ? ""
                                                : name + ": stream ended early: " + ended.reason;
}

}  // namespace oruplay
