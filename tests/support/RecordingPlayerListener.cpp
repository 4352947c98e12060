#include "RecordingPlayerListener.h"

#include "WaitFor.h"

#include <gtest/gtest.h>

#include <sstream>

namespace oru::test {

std::vector<std::string> RecordingPlayerListener::events() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mEvents;
}

std::vector<std::string> RecordingPlayerListener::eventsStartingWith(
    std::string const& prefix) const {
  std::vector<std::string> matching;
  for (std::string const& event : events()) {
    if (event.rfind(prefix, 0) == 0) {
      matching.push_back(event);
    }
  }
  return matching;
}

bool RecordingPlayerListener::waitUntil(
    std::function<bool(std::vector<std::string> const&)> const& predicate) {
  std::unique_lock<std::mutex> lock(mMutex);
  return test::waitFor(lock, mChanged, [&] { return predicate(mEvents); });
}

bool RecordingPlayerListener::waitFor(std::string const& prefix) {
  bool const came = waitUntil([&](auto const& events) {
    for (std::string const& event : events) {
      if (event.rfind(prefix, 0) == 0) {
        return true;
      }
    }
    return false;
  });
  if (!came) {
    std::ostringstream seen;
    for (std::string const& event : events()) {
      seen << "\n  " << event;
    }
    ADD_FAILURE() << "expected an event starting with '" << prefix << "', got:" << seen.str();
  }
  return came;
}

void RecordingPlayerListener::setHook(std::function<void(std::string const&)> hook) {
  std::lock_guard<std::mutex> lock(mMutex);
  mHook = std::move(hook);
}

void RecordingPlayerListener::record(std::string event) {
  std::function<void(std::string const&)> hook;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mEvents.push_back(event);
    hook = mHook;
  }
  mChanged.notify_all();
  if (hook) {
    hook(event);
  }
}

namespace {

std::string text(AudioPlayer::Token const& token) { return token.toString(); }

}  // namespace

void RecordingPlayerListener::trackReady(AudioPlayer::Token const& token, bool afterFailure) {
  record("trackReady " + text(token) + (afterFailure ? " true" : " false"));
}

void RecordingPlayerListener::playbackStarted(AudioPlayer::Token const& token, unsigned pos) {
  record("playbackStarted " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackNearlyFinished(AudioPlayer::Token const& token,
                                                     unsigned pos) {
  record("playbackNearlyFinished " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::progressReportDelayElapsed(AudioPlayer::Token const& token,
                                                         unsigned pos) {
  record("progressReportDelayElapsed " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::progressReportIntervalElapsed(AudioPlayer::Token const& token,
                                                            unsigned pos) {
  record("progressReportIntervalElapsed " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackStutterStarted(AudioPlayer::Token const& token,
                                                     unsigned pos) {
  record("playbackStutterStarted " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackStutterFinished(AudioPlayer::Token const& token, unsigned pos,
                                                      unsigned stutterMs) {
  record("playbackStutterFinished " + text(token) + " " + std::to_string(pos) + " " +
         std::to_string(stutterMs));
}

void RecordingPlayerListener::playbackFinished(AudioPlayer::Token const& token, unsigned pos) {
  record("playbackFinished " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackFailed(AudioPlayer::Token const& token,
                                             AudioPlayer::MediaError error,
                                             std::string const& message,
                                             AudioPlayer::Token const& currentToken,
                                             AudioPlayer::State state, unsigned pos) {
  record("playbackFailed " + text(token) + " " + std::to_string(error) + " " + message + " " +
         text(currentToken) + " " + std::to_string(state) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackStopped(AudioPlayer::Token const& token, unsigned pos) {
  record("playbackStopped " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackPaused(AudioPlayer::Token const& token, unsigned pos) {
  record("playbackPaused " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackResumed(AudioPlayer::Token const& token, unsigned pos) {
  record("playbackResumed " + text(token) + " " + std::to_string(pos));
}

void RecordingPlayerListener::playbackQueueCleared() { record("playbackQueueCleared"); }

void RecordingPlayerListener::streamMetadataExtracted(AudioPlayer::Token const& token,
                                                      std::string const& metadata) {
  record("streamMetadataExtracted " + text(token) + " " + metadata);
}

void RecordingPlayerListener::progressReportIntervalUpdated(AudioPlayer::Token const& token,
                                                            unsigned intervalMs,
                                                            AudioPlayer::State state) {
  record("progressReportIntervalUpdated " + text(token) + " " + std::to_string(intervalMs) + " " +
         std::to_string(state));
}

}  // namespace oru::test
