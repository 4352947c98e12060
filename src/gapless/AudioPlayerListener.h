#pragma once

#include <oru/GaplessPlayer.h>

#include <atomic>
#include <memory>
#include <utility>

namespace oru {

// The listener a GaplessPlayer gives its base player: every physical event first updates the
// logical track list where it calls for it, then reaches the host's listener in logical terms
// (the logical track's token, the position measured from the track's start). An event with no
// logical track is logged and swallowed.
//
// Owns the host's listener. Called on the base player's command thread; mute() on the thread
// that destroys the gapless player, which must outlive this listener.
class AudioPlayerListener : public AudioPlayer::EventListener {
 public:
  AudioPlayerListener(AudioPlayer::EventListener* listener, GaplessPlayer* player);
  ~AudioPlayerListener() override;

  AudioPlayerListener(AudioPlayerListener const&) = delete;
  AudioPlayerListener& operator=(AudioPlayerListener const&) = delete;

  // From now on no event is passed on: the gapless player is being destroyed.
  void mute() { mMuted = true; }

  void trackReady(AudioPlayer::Token const& token, bool afterFailure) override;
  void playbackStarted(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackNearlyFinished(AudioPlayer::Token const& token, unsigned positionMs) override;
  void progressReportDelayElapsed(AudioPlayer::Token const& token, unsigned positionMs) override;
  void progressReportIntervalElapsed(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackStutterStarted(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackStutterFinished(AudioPlayer::Token const& token, unsigned positionMs,
                               unsigned stutterMs) override;
  void playbackFinished(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackFailed(AudioPlayer::Token const& failedToken, AudioPlayer::MediaError error,
                      std::string const& message, AudioPlayer::Token const& playingToken,
                      AudioPlayer::State state, unsigned positionMs) override;
  void playbackStopped(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackPaused(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackResumed(AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackQueueCleared() override;
  void streamMetadataExtracted(AudioPlayer::Token const& token,
                               std::string const& metadata) override;
  void progressReportIntervalUpdated(AudioPlayer::Token const& token, unsigned intervalMs,
                                     AudioPlayer::State state) override;

  // The track's logical token, or null for no track.
  AudioPlayer::Token* fromLogicalTrack(std::unique_ptr<GaplessLogicalTrack> const& track) const;
  // (position - the track's start offset, wrapping, and its logical token), or (position,
  // null) for no track.
  std::pair<unsigned, AudioPlayer::Token*> fromLogicalTrack(
      std::unique_ptr<GaplessLogicalTrack> const& track, unsigned position) const;

 private:
  // The first logical track of the physical stream, or empty (logged under `operation`
  // unless `quiet`).
  std::unique_ptr<GaplessLogicalTrack> lookup(char const* operation,
                                              AudioPlayer::Token const& physicalToken,
                                              bool quiet = false) const;
  // Calls `event` with the logical token and position for a positioned event.
  template <typename Event>
  void forward(char const* operation, AudioPlayer::Token const& token, unsigned position,
               Event event);

  AudioPlayer::EventListener* const mHostListener;  // owned
  GaplessPlayer* const mGaplessPlayer;
  std::atomic<bool> mMuted{false};
};

}  // namespace oru
