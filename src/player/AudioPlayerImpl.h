#pragma once

#include "decode/AudioTrack.h"
#include "player/Loop.h"
#include "player/ThreadChecker.h"
#include "render/AudioRenderer.h"

#include <oru/AudioPlayer.h>

#include <list>
#include <map>
#include <memory>
#include <string>

namespace oru {

// The non-gapless player: owns the queue of tracks, the renderer and the command thread, turns
// every host command into a handler on the command thread and every track report into host
// events there.
//
// Threads: the public commands (prepare ... setProgressReportInterval) are called on any host
// thread and only post; getSupportedVersions answers at once on the caller's thread. The
// AudioTrack::EventListener operations are called on the tracks' threads and only post (or
// run at once when already on the command thread). The handle*() and on*Impl() operations run
// on the command thread and throw std::runtime_error("called from wrong thread") elsewhere.
// Construction and destruction happen on the host's thread.
//
// The queue has no lock: only the command thread touches it. Its head is the current track,
// the rest are prepared to follow. The host's listener, device, clock and decoder factory
// must outlive the player.
class AudioPlayer::Impl : public AudioTrack::EventListener {
 public:
  Impl(AudioPlayer::EventListener* listener, PlaybackDelegate* hw, CommonTimeDelegate* clock,
       TimestampMode mode, DecoderDelegateFactory* factory);
  // Clears the queue silently, stops the renderer and the command thread; returns once no
  // thread of the player runs any more.
  ~Impl() override;

  Impl(Impl const&) = delete;
  Impl& operator=(Impl const&) = delete;

  // Host commands. Any thread.
  void getSupportedVersions(int* minVersion, int* maxVersion) const;
  void prepare(PlayBehavior behavior, Resource const& resource, unsigned offsetMs,
               int progressReportDelayMs, int progressReportIntervalMs, Token const& token,
               int version);
  void play(Token const& token, long long commonTime);
  void stop(bool isTransient);
  void seek(int offsetMs);
  void clearQueue(ClearBehavior behavior, bool notify);
  void setProgressReportInterval(int intervalMs);

  // AudioTrack::EventListener. Any thread.
  void onTrackStateChange(AudioTrack* track, AudioTrack::State oldState, AudioTrack::State newState,
                          unsigned positionMs) override;
  void onProgressReportDelay(AudioTrack* track, unsigned positionMs) override;
  void onProgressReportInterval(AudioTrack* track, unsigned positionMs) override;
  void onTrackError(AudioTrack* track, MediaError error, std::string const& message) override;
  void onMetadata(AudioTrack* track, std::map<std::string, std::string> const& metadata) override;

 private:
  using TrackRef = std::weak_ptr<AudioTrack>;

  // Everything below runs on the command thread.
  void handlePrepare(PlayBehavior behavior, Resource const& resource, unsigned offsetMs,
                     int delayMs, int intervalMs, Token const& token, int version);
  void handlePlay(Token const& token, long long commonTime);
  void handleStop(bool isTransient);
  void handleSeek(int offsetMs);
  void handleClearQueue(ClearBehavior behavior, bool notify);
  void handleSetProgressReportInterval(int intervalMs);

  void onTrackStateChangeImpl(TrackRef const& ref, AudioTrack::State oldState,
                              AudioTrack::State newState, unsigned positionMs);
  void onProgressReportDelayImpl(TrackRef const& ref, unsigned positionMs);
  void onProgressReportIntervalImpl(TrackRef const& ref, unsigned positionMs);
  void onTrackErrorImpl(TrackRef const& ref, MediaError error, std::string const& message);
  void onMetadataImpl(TrackRef const& ref, std::string const& metadata);

  // The text of the first hardware capability that makes prepare fail, or null.
  char const* checkHardwareConfig() const;
  // Whether the device and `version` allow a prepare; when they do not, the host is told.
  bool canPrepare(Token const& token, int version);
  // The queued track of this token and stream, which a prepare reuses, or null.
  std::shared_ptr<AudioTrack> findTrack(Token const& token, std::string const& uri) const;
  // Puts a prepared track in the queue as `behavior` says; a reused one is there already.
  void queueTrack(PlayBehavior behavior, std::shared_ptr<AudioTrack> const& track, bool reused);
  bool isHead(AudioTrack const& track) const;
  void stopPlayback();
  void deleteTrack(AudioTrack const* track);
  void notifyIfNextIsReady(bool afterFailure);
  // Runs `report` on the command thread, with the track if it still exists.
  void postReport(AudioTrack* track, std::function<void(TrackRef const&)> report);

  AudioPlayer::EventListener* const mListener;
  std::list<std::shared_ptr<AudioTrack>> mQueue;  // command thread only
  State mState = STATE_IDLE;                      // command thread only
  Loop mLoop;
  ThreadChecker mThreadChecker;
  PlaybackConfig const mConfig;
  int mMinVersion = -1;
  int mMaxVersion = -1;
  TimestampMode const mMode;
  std::unique_ptr<AudioRenderer> mRenderer;
  DecoderDelegateFactory* const mDecoderFactory;
};

}  // namespace oru
