#pragma once

#include <oru/AudioPlayer.h>

#include <string>

namespace oru::host {

// An AudioPlayer::EventListener whose every handler does nothing, for a host to derive from and
// override only the events it acts on. The player calls it on the player's own thread; it must
// outlive the player.
class EventListenerBase : public AudioPlayer::EventListener {
 public:
  using Token = AudioPlayer::Token;

  void trackReady(Token const&, bool) override {}
  void playbackStarted(Token const&, unsigned) override {}
  void playbackNearlyFinished(Token const&, unsigned) override {}
  void progressReportDelayElapsed(Token const&, unsigned) override {}
  void progressReportIntervalElapsed(Token const&, unsigned) override {}
  void playbackStutterStarted(Token const&, unsigned) override {}
  void playbackStutterFinished(Token const&, unsigned, unsigned) override {}
  void playbackFinished(Token const&, unsigned) override {}
  void playbackFailed(Token const&, AudioPlayer::MediaError, std::string const&, Token const&,
                      AudioPlayer::State, unsigned) override {}
  void playbackStopped(Token const&, unsigned) override {}
  void playbackPaused(Token const&, unsigned) override {}
  void playbackResumed(Token const&, unsigned) override {}
  void playbackQueueCleared() override {}
  void streamMetadataExtracted(Token const&, std::string const&) override {}
  void progressReportIntervalUpdated(Token const&, unsigned, AudioPlayer::State) override {}
};

}  // namespace oru::host
