// The host-facing surface of liboruplay: the player, the value types it exchanges with the
// host, and the interfaces that the host implements (event listener, output device, common
// clock, decoder factory).
//
// Threads: every player command returns at once and runs later on the player's own command
// thread; every EventListener call is made from that thread. The output device and the clock
// are called from the player's render thread (the device's getPlaybackConfig once, from the
// player's constructor, on the host's thread).
//
// Lifetimes: the listener, output device, clock, decoder factory and log sink are borrowed and
// must outlive the player.
#pragma once

#include <oru/Export.h>
#include <oru/Log.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace oru {

class DecoderDelegate;

// PCM formats exchanged with the output device: interleaved frames, native byte order.
// Any other value has no byte size and is treated as unknown.
enum AudioFormat : int32_t {
  PCM_S16 = 0,    // signed 16-bit
  PCM_S32 = 1,    // signed 32-bit
  PCM_FLOAT = 2,  // 32-bit float
};

// Argument of PlaybackDelegate::stop.
enum StopBehavior : int {
  STOP_DRAIN = 0,  // stop after what was written has played out
  STOP_FLUSH = 1,  // stop at once and discard what was written
  STOP_PAUSE = 2,  // pause and keep what was written
};

// What the output device reports about itself, filled by the host in
// PlaybackDelegate::getPlaybackConfig. The arrays are borrowed: the player copies them at once
// and never keeps these pointers.
struct PlaybackCapabilities {
  uint32_t const* supportedRates = nullptr;
  size_t supportedRateCount = 0;
  int defaultRate = 0;
  int preferredFormat = -1;  // an AudioFormat, or -1 for no preference
  AudioFormat const* supportedFormats = nullptr;
  size_t supportedFormatCount = 0;
  void* codecOpaque = nullptr;
};

// The player's own copy of the device's capabilities, made once when the player is built and
// handed by const reference to every track and decoder factory. Owns its arrays.
struct PlaybackConfig {
  std::vector<uint32_t> supportedRates;  // output rates the device accepts
  int defaultRate = 0;                   // rate used when the stream's rate is not supported
  int preferredFormat = -1;  // format converted to when the stream's is not supported; -1: none
  std::vector<AudioFormat> supportedFormats;  // formats the device accepts
  // Copied unchanged from the device; every FFmpeg decoder the engine opens receives it as its
  // codec context's opaque user pointer.
  void* codecOpaque = nullptr;
};

// The audio output, implemented by the host. Never owned by the player; must outlive it.
// Called only from the player's constructor (getPlaybackConfig, host thread) and from the
// player's render thread (everything else).
class PlaybackDelegate {
 public:
  virtual ~PlaybackDelegate() = default;

  // Opens the output for interleaved frames of `format` with `channels` channels.
  // Returns 0 on success.
  virtual int start(AudioFormat format, int channels) = 0;

  virtual void stop(StopBehavior behavior) = 0;

  // Queues `*frames` frames read from `data`, to be presented at `timestamp` (ns, on the
  // timeline of the player's TimestampMode; 0 for as soon as possible) and sets `*frames` to
  // the number of frames taken. May block while the device is full. Returns 0 on success.
  // A call with timestamp 0, null data and a count of 0 signals an underrun: the source is
  // starving. The engine asks for data again as soon as it returns, so an implementation
  // should wait there until it could take data (at most one period).
  virtual int write(long long timestamp, void const* data, unsigned* frames) = 0;

  // Frames presented since start; negative when not known at the moment.
  virtual long long getPlayedFrames() = 0;

  virtual PlaybackCapabilities getPlaybackConfig() = 0;
};

// Implemented by a host that can decode some streams itself. Never owned; may be null.
class DecoderDelegateFactory {
 public:
  virtual ~DecoderDelegateFactory() = default;

  // A new decoder for the named codec, owned by the caller, or null to let the engine decode
  // the stream with FFmpeg. Called on a track's decoding thread.
  virtual DecoderDelegate* createDecoder(char const* codecName, PlaybackConfig const& config) = 0;
};

// The player. Commands return at once; their effects and all results arrive later as calls on
// the EventListener, made from the player's command thread. The player is not copyable.
class ORU_EXPORT AudioPlayer {
 public:
  // Names a track. Abstract, owned by whoever created it; the player keeps its own clones.
  class Token {
   public:
    virtual ~Token() = default;
    // Human-readable form, used in every log line that names the track.
    virtual std::string toString() const = 0;
    // 0 means the same track; any other value means a different one. The players compare only
    // tokens of the same class: tokens of different classes never name the same track, so
    // compare() may assume that `other` is of its own class.
    virtual int compare(Token const& other) const = 0;
    // A new heap copy, owned by the caller, of the same class.
    virtual Token* clone() const = 0;
  };

  // Where a track's data comes from. Copied by the player when a prepare is posted.
  struct Resource {
    // What newDataCallback returns when the data has ended, and when it gives up (FFmpeg's
    // AVERROR_EOF and AVERROR_EXIT). Any other negative value is a read error.
    static constexpr int kEndOfData = -541478725;
    static constexpr int kAborted = -1414092869;

    // Address of the stream. Ignored when empty or when newDataCallback is set.
    std::string uri;
    // Content type hint, used to pick the input format.
    std::string mimeType;
    // When set, the stream is pulled through this callback (an FFmpeg custom I/O read
    // function: it returns the bytes it put into `buffer`, or kEndOfData, kAborted or another
    // negative error) instead of opening `uri`. Called on the track's decoding thread.
    int (*newDataCallback)(void* opaque, uint8_t* buffer, int size) = nullptr;
    // When set together with callbackOpaque, called once when the track's decoding thread is
    // being stopped, so that a source blocked inside newDataCallback can return.
    void (*cancelCallback)(void* opaque) = nullptr;
    // Passed as `opaque` to both callbacks.
    void* callbackOpaque = nullptr;
  };

  // How prepare places the new track in the queue. Other values prepare the track but leave
  // the queue as it is.
  enum PlayBehavior : int {
    REPLACE_ALL = 0,
    ENQUEUE = 1,
    REPLACE_ENQUEUED = 2,
  };

  enum ClearBehavior : int {
    CLEAR_ENQUEUED = 0,  // keep the track at the head of the queue, drop the rest
    CLEAR_ALL = 1,       // stop playback and drop every track
  };

  // The player's coarse state, reported with playbackFailed and progressReportIntervalUpdated.
  enum State : int {
    STATE_IDLE = 0,        // nothing played yet
    STATE_PLAYING = 1,     //
    STATE_STOPPED = 2,     // stopped or paused
    STATE_FINISHED = 4,    // the head track finished
    STATE_STUTTERING = 5,  // the track ran out of decoded audio
  };

  // Class of a failure passed to playbackFailed.
  enum MediaError : int {
    MEDIA_ERROR_FORMAT = 2,    // the stream cannot be opened or decoded
    MEDIA_ERROR_INTERNAL = 4,  // configuration, decoding or rendering failed
  };

  // How buffer time stamps are read.
  enum TimestampMode : int {
    // On the stream's own timeline; play() ignores its time; a pause keeps the device paused.
    TIMESTAMP_STREAM = 0,
    // On the local clock, given to the device unconverted; a pause drains the device.
    TIMESTAMP_LOCAL = 1,
    // On the host's common clock, converted to local time and drift-corrected.
    TIMESTAMP_COMMON = 2,
  };

  // Receives every result of the player. Implemented by the host; never owned by the player.
  // Every call is made on the player's command thread.
  class EventListener {
   public:
    virtual ~EventListener() = default;
    // The head track is ready to play; afterFailure when the track before it failed.
    virtual void trackReady(Token const& token, bool afterFailure) = 0;
    virtual void playbackStarted(Token const& token, unsigned positionMs) = 0;
    // The host may prepare the next track.
    virtual void playbackNearlyFinished(Token const& token, unsigned positionMs) = 0;
    virtual void progressReportDelayElapsed(Token const& token, unsigned positionMs) = 0;
    virtual void progressReportIntervalElapsed(Token const& token, unsigned positionMs) = 0;
    virtual void playbackStutterStarted(Token const& token, unsigned positionMs) = 0;
    virtual void playbackStutterFinished(Token const& token, unsigned positionMs,
                                         unsigned stutterMs) = 0;
    virtual void playbackFinished(Token const& token, unsigned positionMs) = 0;
    // `currentToken` names the track that was playing when the failure happened.
    virtual void playbackFailed(Token const& token, MediaError error, std::string const& message,
                                Token const& currentToken, State state, unsigned positionMs) = 0;
    virtual void playbackStopped(Token const& token, unsigned positionMs) = 0;
    virtual void playbackPaused(Token const& token, unsigned positionMs) = 0;
    virtual void playbackResumed(Token const& token, unsigned positionMs) = 0;
    virtual void playbackQueueCleared() = 0;
    virtual void streamMetadataExtracted(Token const& token, std::string const& metadata) = 0;
    virtual void progressReportIntervalUpdated(Token const& token, unsigned intervalMs,
                                               State state) = 0;
  };

  // Converts between the host's common clock and the local clock. Implemented by the host;
  // never owned. Called only in TIMESTAMP_COMMON, from the render thread.
  class CommonTimeDelegate {
   public:
    virtual ~CommonTimeDelegate() = default;
    // Converts a common-clock time (ns) to the local clock. Returns 0 on success.
    virtual int commonToLocal(long long commonTime, long long* localTime) = 0;
    // The local clock's drift against the common clock, in parts per million: the common
    // clock's rate against the local one, less one, (common ns per local ns - 1) x 1e6. The
    // engine adds it to its resampler's step, and a positive step drops frames: a local clock
    // that runs fast (a device that consumes more than the common rate) needs a negative
    // value. Reporting the negated local rate error instead is off by its square (1e-8, or
    // 1.7 frames an hour, at 100 ppm). Read with the correction at every buffer, so that a
    // change is followed during a continuous stream.
    virtual double getDriftPpm() = 0;
    // An extra correction rate, in parts per million, that the host wants applied.
    virtual double getCorrectionPpm() = 0;
  };

  class Impl;

  // Reads the device's capabilities, creates the renderer and starts the command thread.
  // `factory` may be null.
  AudioPlayer(EventListener* listener, PlaybackDelegate* hw, CommonTimeDelegate* clock,
              TimestampMode mode, DecoderDelegateFactory* factory);
  virtual ~AudioPlayer();

  AudioPlayer(AudioPlayer const&) = delete;
  AudioPlayer& operator=(AudioPlayer const&) = delete;

  // Installs the process-wide log sink (null: no logging). Call before creating players.
  static void setLogger(LoggingDelegate* logger);

  // Synchronous: the inclusive range of stream versions that prepare accepts.
  virtual void getSupportedVersions(int* minVersion, int* maxVersion);
  virtual void prepare(PlayBehavior behavior, Resource const& resource, unsigned offsetMs,
                       int progressReportDelayMs, int progressReportIntervalMs, Token const& token,
                       int version);
  virtual void play(Token const& token, long long commonTime);
  virtual void stop(bool isTransient);
  virtual void setResumeOffset(int offsetMs);
  virtual void clearQueue(ClearBehavior behavior);
  virtual void setProgressReportInterval(int intervalMs);

 protected:
  // No implementation: for subclasses that replace every operation.
  AudioPlayer();

  // Stops the player (as its destruction does) ahead of the destructor, for a subclass that
  // must be sure no event arrives while it takes down what its listener uses. The commands do
  // nothing afterwards.
  void shutdown();

 private:
  std::unique_ptr<Impl> mImpl;
};

// Writes exactly token.toString().
ORU_EXPORT std::ostream& operator<<(std::ostream& out, AudioPlayer::Token const& token);

}  // namespace oru
