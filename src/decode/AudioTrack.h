#pragma once

#include <oru/AudioPlayer.h>
#include <oru/Decoder.h>

#include <map>
#include <memory>
#include <string>

namespace oru {

// The fixed texts of the failures the engine reports to the host in playbackFailed. A track
// passes the first four to onTrackError; the player raises the others itself when a prepare
// cannot be served.
struct Failure {
  static constexpr char kDemuxer[] = "Failed to create demuxer ";
  static constexpr char kDecoder[] = "Failed to create decoder ";
  static constexpr char kDecode[] = "Failed to decode: ";
  static constexpr char kRender[] = "Error playing audio";
  static constexpr char kNoRate[] = "HW did not report playback rate";
  static constexpr char kNoFormat[] = "HW did not support any audio formats";
  static constexpr char kNoPlaybackFormat[] = "HW did not support playback formats";
  static constexpr char kVersion[] = "Invalid player version provided";
};

// One stream being played: what the player and the renderer know of a track. The engine's
// implementation decodes with FFmpeg on a thread of its own; tests use scripted ones.
//
// A track is shared (the player's queue, the renderer, handlers in progress); it keeps a weak
// reference to itself so that it can hand itself to the renderer. It owns its token.
//
// Threads: getNextBuffer, releaseBuffer, updatePosition, onRenderError and onRenderFinished
// are called only on the render thread; every other operation on the player's command thread.
//
// States, and what sets them: Buffering (a new track), Playing (play), Paused (pause(false)),
// PausedTransient (pause(true)), Finished (onRenderFinished), Stopped (stop), Error (any
// failure). FormatChanged and Underrun are only ever answers of getNextBuffer.
class AudioTrack : public std::enable_shared_from_this<AudioTrack> {
 public:
  enum State : unsigned {
    Buffering = 1,
    Playing = 2,
    FormatChanged = 3,
    Paused = 4,
    Underrun = 5,
    Finished = 6,
    Stopped = 7,
    Error = 8,
    PausedTransient = 9,
  };

  // Receives the track's reports, on whichever thread caused them (decoding thread, render
  // thread or command thread); an implementation hands them over to its own thread.
  class EventListener {
   public:
    virtual ~EventListener() = default;
    virtual void onTrackStateChange(AudioTrack* track, State oldState, State newState,
                                    unsigned positionMs) = 0;
    virtual void onProgressReportDelay(AudioTrack* track, unsigned positionMs) = 0;
    virtual void onProgressReportInterval(AudioTrack* track, unsigned positionMs) = 0;
    virtual void onTrackError(AudioTrack* track, AudioPlayer::MediaError error,
                              std::string const& message) = 0;
    virtual void onMetadata(AudioTrack* track,
                            std::map<std::string, std::string> const& metadata) = 0;
  };

  // What a track hands itself to whenever it enters its playing state: the player's renderer.
  // Called on whichever thread moves the track into that state.
  class Renderer {
   public:
    virtual ~Renderer() = default;
    // Makes `track` the one whose buffers are played; an empty pointer detaches the current one.
    virtual void render(std::shared_ptr<AudioTrack> track) = 0;
  };

  // A new track that starts decoding `resource` at once, playing through `renderer`, whose
  // buffers carry time stamps as `mode` says, and reporting to `listener`; takes the token out
  // of `token`. Never null: failures to open or decode arrive later through the listener's
  // onTrackError. `config`, `renderer`, `listener` and `decoderFactory` (which may be null)
  // must outlive the track. Command thread.
  static std::shared_ptr<AudioTrack> create(std::unique_ptr<AudioPlayer::Token>& token,
                                            AudioPlayer::Resource const& resource,
                                            PlaybackConfig const& config, int version,
                                            Renderer* renderer, AudioPlayer::TimestampMode mode,
                                            EventListener* listener,
                                            DecoderDelegateFactory* decoderFactory);

  // The inclusive range of stream versions the decoding side accepts; (-1, -1), logged, when
  // the FFmpeg build lacks the version option. Any thread.
  static void getSupportedVersions(int* minVersion, int* maxVersion);

  AudioTrack(std::unique_ptr<AudioPlayer::Token> token, std::string uri)
      : mToken(std::move(token)), mUri(std::move(uri)) {}
  virtual ~AudioTrack() = default;

  AudioTrack(AudioTrack const&) = delete;
  AudioTrack& operator=(AudioTrack const&) = delete;

  virtual unsigned getPositionMs() const = 0;
  virtual void setProgressReportDelay(int ms) = 0;
  virtual void setProgressReportInterval(int ms) = 0;
  virtual void seek(unsigned offsetMs) = 0;
  virtual void play(int64_t commonTime) = 0;
  virtual void pause(bool isTransient) = 0;
  virtual void stop() = 0;

  // The next buffer for the renderer, and what to do with it:
  //   Playing        `*buffer` is the next buffer of the running format
  //   FormatChanged  `*buffer` starts a new format (the first buffer of a track always does)
  //   Buffering      no buffer yet: the track is still filling its queue
  //   Underrun       no buffer: a playing track ran dry
  //   Finished       the data has ended
  //   anything else  the track is not playing (paused, stopped, failed)
  virtual int getNextBuffer(PcmBuffer** buffer) = 0;
  // Gives back a buffer that getNextBuffer handed out.
  virtual void releaseBuffer(PcmBuffer* buffer) = 0;
  // The playback position, ns on the buffers' time-stamp timeline.
  virtual void updatePosition(int64_t positionNs) = 0;
  virtual void onRenderError(int error) = 0;
  // Everything the track gave the renderer has been played out.
  virtual void onRenderFinished() = 0;

  AudioPlayer::Token const& token() const { return *mToken; }
  // The player reuses a track for a new prepare of the same stream under the new token.
  void setToken(std::unique_ptr<AudioPlayer::Token> token) { mToken = std::move(token); }
  std::string const& uri() const { return mUri; }

 private:
  std::unique_ptr<AudioPlayer::Token> mToken;
  std::string const mUri;
};

}  // namespace oru
