#include "Session.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <utility>

namespace oruplay {
namespace {

// The value of `key` (matched without regard to case) in the engine's metadata text,
// {"key":"value",...}; empty when there is none.
std::string metadataValue(std::string const& text, std::string const& key) {
  auto lower = [](std::string value) {
    std::transform(value.begin(), value.end(), value.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return value;
  };
  std::string const wanted = "\"" + lower(key) + "\":\"";
  size_t const at = lower(text).find(wanted);
  if (at == std::string::npos) {
    return "";
  }
  size_t const start = at + wanted.size();
  size_t end = text.find("\",\"", start);
  if (end == std::string::npos) {
    end = text.rfind("\"}");
  }
  return end == std::string::npos || end < start ? "" : text.substr(start, end - start);
}

// As often as the status line is redrawn: more reports would only wake the player's thread.
constexpr int kProgressIntervalMs = 1000;

}  // namespace

Session::Session(std::vector<std::string> inputs, unsigned startOffsetMs, FailureReasons& reasons)
    : mInputs(std::move(inputs)), mStartOffsetMs(startOffsetMs), mReasons(reasons) {}

void Session::start(oru::AudioPlayer& player) {
  std::lock_guard<std::mutex> lock(mMutex);
  mPlayer = &player;
  if (mInputs.empty()) {
    mDone = true;
    return;
  }
  prepareLocked(0, oru::AudioPlayer::REPLACE_ALL);
}

void Session::prepareLocked(int index, oru::AudioPlayer::PlayBehavior behavior) {
  oru::AudioPlayer::Resource resource;
  std::string const& input = mInputs[static_cast<size_t>(index)];
  if (input == "-") {
    resource.newDataCallback = &StdinSource::read;
    resource.cancelCallback = &StdinSource::cancel;
    resource.callbackOpaque = &mStdin;
  } else {
    resource.uri = input;
  }
  unsigned const offsetMs = index == 0 ? mStartOffsetMs : 0;
  mPlayer->prepare(behavior, resource, offsetMs, -1, kProgressIntervalMs, InputToken(index), 1);
  mLastPrepared = index;
}

void Session::endInputLocked(int index) {
  mEnded.insert(index);
  bool const queueEmpty = static_cast<int>(mEnded.size()) == mLastPrepared + 1;
  if (!queueEmpty) {
    return;
  }
  if (mLastPrepared + 1 < inputCount()) {
    prepareLocked(mLastPrepared + 1, oru::AudioPlayer::REPLACE_ALL);
  } else {
    mDone = true;
    mChanged.notify_all();
  }
}

Wake Session::wait(int timeoutMs, bool onChange) {
  std::unique_lock<std::mutex> lock(mMutex);
  auto const woken = [&] { return mDone || mInterrupted || (onChange && mChanges.pending()); };
  if (timeoutMs < 0) {
    mChanged.wait(lock, woken);
  } else {
    mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), woken);
  }
  if (mDone || mInterrupted) {
    return mDone ? Wake::kDone : Wake::kInterrupted;
  }
  return onChange && mChanges.pending() ? Wake::kChanged : Wake::kTimedOut;
}

void Session::interrupt() {
  std::lock_guard<std::mutex> lock(mMutex);
  mInterrupted = true;
  mChanged.notify_all();
}

void Session::noteLocked() {
  if (mChanges.note(currentLocked())) {
    mChanged.notify_all();
  }
}

Status Session::currentLocked() const {
  Status status = mStatus;
  status.reconnecting = status.input >= 0 && mReasons.reconnects() != mReconnectsSeen;
  return status;
}

Status Session::status() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return currentLocked();
}

std::vector<Status> Session::takeChanges() {
  std::lock_guard<std::mutex> lock(mMutex);
  mChanges.note(currentLocked());  // a reconnection is announced by no event
  return mChanges.take();
}

std::vector<std::string> Session::failures() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mFailures;
}

void Session::trackReady(oru::AudioPlayer::Token const& token, bool) {
  // Every input but a timed first one plays as soon as the one before it has played out.
  mPlayer->play(token, std::exchange(mFirstPlayAtNs, 0));
}

void Session::playbackStarted(oru::AudioPlayer::Token const& token, unsigned positionMs) {
  std::lock_guard<std::mutex> lock(mMutex);
  int const index = InputToken::indexOf(token);
  mStatus.input = index;
  mStatus.positionMs = positionMs;
  mStatus.title = mTags[index].first;
  mStatus.artist = mTags[index].second;
  noteLocked();
}

void Session::playbackNearlyFinished(oru::AudioPlayer::Token const& token, unsigned positionMs) {
  std::lock_guard<std::mutex> lock(mMutex);
  int const index = InputToken::indexOf(token);
  // An input that never played (it failed to open) is followed once it has failed, so that
  // inputs open one at a time and each failure is told with its own reason.
  if (positionMs > 0 && index == mLastPrepared && index + 1 < inputCount()) {
    prepareLocked(index + 1, oru::AudioPlayer::ENQUEUE);
  }
}

void Session::progressReportIntervalElapsed(oru::AudioPlayer::Token const& token,
                                            unsigned positionMs) {
  std::lock_guard<std::mutex> lock(mMutex);
  if (InputToken::indexOf(token) == mStatus.input && positionMs != mStatus.positionMs) {
    // The audio moves on, so a reconnection is over; it is noted first, as it may have begun
    // since the changes were last taken.
    noteLocked();
    mStatus.positionMs = positionMs;
    reconnectionsOverLocked();
    noteLocked();
  }
}

void Session::playbackFinished(oru::AudioPlayer::Token const& token, unsigned positionMs) {
  std::lock_guard<std::mutex> lock(mMutex);
  int const index = InputToken::indexOf(token);
  if (index == mStatus.input) {
    mStatus.positionMs = positionMs;
    reconnectionsOverLocked();
  }
  std::string const endedEarly = mReasons.takeEndedEarly(inputName(index));
  if (!endedEarly.empty()) {
    mFailures.push_back(endedEarly);
  }
  endInputLocked(index);
}

void Session::playbackFailed(oru::AudioPlayer::Token const& token, oru::AudioPlayer::MediaError,
                             std::string const& message, oru::AudioPlayer::Token const&,
                             oru::AudioPlayer::State, unsigned) {
  std::lock_guard<std::mutex> lock(mMutex);
  int const index = InputToken::indexOf(token);
  if (index == mStatus.input) {
    reconnectionsOverLocked();
  }
  mFailures.push_back(mReasons.describeFailure(inputName(index), message));
  endInputLocked(index);
}

void Session::streamMetadataExtracted(oru::AudioPlayer::Token const& token,
                                      std::string const& metadata) {
  std::lock_guard<std::mutex> lock(mMutex);
  int const index = InputToken::indexOf(token);
  std::string const streamTitle = metadataValue(metadata, "StreamTitle");
  mTags[index] = {streamTitle.empty() ? metadataValue(metadata, "title") : streamTitle,
                  metadataValue(metadata, "artist")};
  if (index == mStatus.input) {
    mStatus.title = mTags[index].first;
    mStatus.artist = mTags[index].second;
    noteLocked();
  }
}

}  // namespace oruplay
