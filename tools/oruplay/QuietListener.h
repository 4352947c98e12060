#pragma once

#include <oru/AudioPlayer.h>

namespace oruplay {

// An event listener that ignores every event: a session overrides only those it acts on.
class QuietListener : public oru::AudioPlayer::EventListener {
 public:
  using Token = oru::AudioPlayer::Token;

  void trackReady(Token const&, bool) override {}
  void playbackStarted(Token const&, unsigned) override {}
  void playbackNearlyFinished(Token const&, unsigned) override {}
  void progressReportDelayElapsed(Token const&, unsigned) override {}
  void progressReportIntervalElapsed(Token const&, unsigned) override {}
  void playbackStutterStarted(Token const&, unsigned) override {}
  void playbackStutterFinished(Token const&, unsigned, unsigned) override {}
  void playbackFinished(Token const&, unsigned) override {}
  void playbackFailed(Token const&, oru::AudioPlayer::MediaError, std::string const&, Token const&,
                      oru::AudioPlayer::State, unsigned) override {}
  void playbackStopped(Token const&, unsigned) override {}
  void playbackPaused(Token const&, unsigned) override {}
  void playbackResumed(Token const&, unsigned) override {}
  void playbackQueueCleared() override {}
  void streamMetadataExtracted(Token const&, std::string const&) override {}
  void progressReportIntervalUpdated(Token const&, unsigned, oru::AudioPlayer::State) override {}
};

}  // namespace oruplay
