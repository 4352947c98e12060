#pragma once

#include <oru/AudioPlayer.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace oru::test {

// A host listener that records every event as one line of text ("trackReady a false",
// "playbackStarted a 0", "playbackFailed b 2 Failed to decode:  a 1 0", ...) and lets a test
// wait for one. Events arrive on the player's command thread; the test reads from its own.
class RecordingPlayerListener : public AudioPlayer::EventListener {
 public:
  std::vector<std::string> events() const;
  // The events whose text starts with `prefix`, in order.
  std::vector<std::string> eventsStartingWith(std::string const& prefix) const;
  // Waits until an event starting with `prefix` has come; false (with a failure that lists
  // the events that did come) at the deadline.
  bool waitFor(std::string const& prefix);
  // Waits until `predicate` holds for the events; false at the deadline.
  bool waitUntil(std::function<bool(std::vector<std::string> const&)> const& predicate);
  // Calls `hook` with every event's text on the command thread, after recording it.
  void setHook(std::function<void(std::string const&)> hook);

  void trackReady(AudioPlayer::Token const& token, bool afterFailure) override;
  void playbackStarted(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackNearlyFinished(AudioPlayer::Token const& token, unsigned positionMs) override;
  void progressReportDelayElapsed(AudioPlayer::Token const& token, unsigned positionMs) override;
  void progressReportIntervalElapsed(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackStutterStarted(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackStutterFinished(AudioPlayer::Token const& token, unsigned positionMs,
                               unsigned stutterMs) override;
  void playbackFinished(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackFailed(AudioPlayer::Token const& token, AudioPlayer::MediaError error,
                      std::string const& message, AudioPlayer::Token const& currentToken,
                      AudioPlayer::State state, unsigned positionMs) override;
  void playbackStopped(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackPaused(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackResumed(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackQueueCleared() override;
  void streamMetadataExtracted(AudioPlayer::Token const& token,
                               std::string const& metadata) override;
  void progressReportIntervalUpdated(AudioPlayer::Token const& token, unsigned intervalMs,
                                     AudioPlayer::State state) override;

 private:
  void record(std::string event);

  mutable std::mutex mMutex;  // guards mEvents and mHook
  std::condition_variable mChanged;
  std::vector<std::string> mEvents;
  std::function<void(std::string const&)> mHook;
};

}  // namespace oru::test
