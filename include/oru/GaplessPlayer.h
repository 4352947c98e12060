// The gapless player: logical tracks (what the host asks to hear) over physical streams (what
// is opened and decoded). Several logical tracks may live in one stream, told apart by start
// and end offsets that the host announces with gapless state events; the host only ever sees
// its own logical tracks, with positions measured from each track's start.
#pragma once

#include <oru/AudioPlayer.h>
#include <oru/Export.h>

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace oru {

class AudioPlayerListener;

// The token of a physical stream: its URL. Comparing it with a token of another class throws
// std::bad_cast.
class ORU_EXPORT PhysicalToken : public AudioPlayer::Token {
 public:
  explicit PhysicalToken(std::string const& streamUrl);

  std::string toString() const override;
  // Byte-wise over the shorter URL; on a tie, the difference of the lengths. 0: the same.
  int compare(Token const& other) const override;
  Token* clone() const override;

 private:
  std::string mStreamUrl;
};

// One logical track: the host's token and track id, the stream that carries it, and where it
// begins and ends inside that stream. Offsets not known yet hold kOffsetUnset; comparisons
// with positions use their low 32 bits as unsigned values, so that an unset offset is never
// reached by a position.
class ORU_EXPORT GaplessLogicalTrack {
 public:
  static constexpr int64_t kOffsetUnset = 4294967295;

  GaplessLogicalTrack(std::unique_ptr<AudioPlayer::Token> logicalToken, std::string trackId,
                      std::string streamUrl, std::unique_ptr<AudioPlayer::Token> physicalToken);
  virtual ~GaplessLogicalTrack();
  GaplessLogicalTrack(GaplessLogicalTrack&&) noexcept;
  GaplessLogicalTrack& operator=(GaplessLogicalTrack&&) noexcept;

  // A deep copy: both tokens cloned.
  virtual std::unique_ptr<GaplessLogicalTrack> clone() const;

  std::unique_ptr<AudioPlayer::Token> logicalToken;
  std::string trackId;
  std::string streamUrl;
  std::unique_ptr<AudioPlayer::Token> physicalToken;  // a PhysicalToken
  int64_t startOffsetMs = kOffsetUnset;
  int64_t endOffsetMs = kOffsetUnset;
  bool started = false;  // the host has been told that the track started
};

// A player whose host prepares logical tracks. Commands run on the caller's thread against the
// list of logical tracks (under one mutex) and then on the base player. The listener and the
// token delegate given to the constructor are owned by the gapless player and deleted with it;
// no event reaches the host once destruction has begun. The token delegate may be null: the
// host is then never asked to update a stored token. Streams prepared through the inherited
// AudioPlayer::prepare carry the host's own token; they have no logical track, and their events
// are dropped.
//
// The host's listener is called from the player's command thread; the logical starts and
// finishes inside a stream are raised with the list mutex held, so a listener must not call
// back into the gapless player from them.
class ORU_EXPORT GaplessPlayer : public AudioPlayer {
 public:
  // A gapless state event: where a logical track starts or ends inside its stream.
  struct GaplessState {
    enum Type : int { TRACK_START = 0, TRACK_END = 1 };

    int stateType = TRACK_START;
    std::string streamUrl;  // logged only: tracks are matched by trackId
    std::string trackId;
    int64_t offsetMs = 0;
  };

  // Implemented by the host: called (with the list mutex held, on the thread that called
  // prepare) when the host prepares a logical track the list already holds, so that the
  // stored token, which all later events of the track carry, can stand for the new request.
  class TrackTokenDelegate {
   public:
    virtual ~TrackTokenDelegate() = default;
    virtual void updateTrackToken(Token* storedLogicalToken, Token const& requestedToken) = 0;
  };

  // Takes ownership of `listener` and `tokenDelegate`.
  GaplessPlayer(EventListener* listener, PlaybackDelegate* hw, CommonTimeDelegate* clock,
                TrackTokenDelegate* tokenDelegate, TimestampMode mode,
                DecoderDelegateFactory* factory);
  ~GaplessPlayer() override;

  using AudioPlayer::prepare;  // acts on the base player directly: no logical track
  // Plays the logical track whose token equals `token`.
  void play(Token const& token, long long commonTime) override;
  void stop(bool isTransient) override;
  void clearQueue(ClearBehavior behavior) override;

  // Prepares logical track `trackId` carried by the stream at `resource.uri`. A stream that is
  // already in the list is not opened again (except by REPLACE_ALL); REPLACE_ALL of the track
  // that is playing resumes it at `startPosition` inside the logical track.
  virtual void prepare(std::string trackId, PlayBehavior behavior, Resource const& resource,
                       unsigned int startPosition, int progressReportDelayMs,
                       int progressReportIntervalMs, Token const& token, int version);
  // Copies of the first logical track that matches, or empty.
  virtual std::unique_ptr<GaplessLogicalTrack> getCurrentLogicalTrackFromPhysicalToken(
      Token const& physicalToken) const;
  virtual std::unique_ptr<GaplessLogicalTrack> getCurrentLogicalTrackFromStream(
      std::string streamUrl) const;
  virtual std::unique_ptr<GaplessLogicalTrack> getCurrentLogicalTrackFromLogicalToken(
      Token const& logicalToken) const;
  // List work for the physical events of the base player.
  virtual void onPhysicalStreamReady(Token const& physicalToken);
  virtual void onPhysicalStreamStarted(Token const& physicalToken, unsigned int position);
  virtual void onPhysicalStreamFinished(Token const& physicalToken);
  virtual void onPhysicalStreamFailed(Token const& physicalToken);
  // Starts and finishes logical tracks whose offsets the physical position has passed.
  virtual void onReportIntervalElapsed(unsigned int position);
  // Where a logical track starts or ends. Any host thread.
  virtual void onGaplessInfoEvent(GaplessState state);
  virtual void clearEnqueuedFromList();
  virtual void addTrackToLogicalTrackList(Token* logicalToken, std::string trackId,
                                          std::string streamUrl, PhysicalToken* physicalToken);
  virtual std::unique_ptr<GaplessLogicalTrack> updateTrackForReuse(
      std::unique_ptr<GaplessLogicalTrack> track, Token const& token);
  // Caller holds the list mutex.
  virtual void removeStreamFromLogicalTrackList(Token const& physicalToken);
  // Caller holds the list mutex.
  virtual void removeTracksBeforeStream(Token const& physicalToken);
  virtual bool isTrackAlreadyEnqueuedInList(std::string trackId, std::string streamUrl,
                                            Token const& token);

 private:
  GaplessPlayer(EventListener* listener, AudioPlayerListener* playerListener, PlaybackDelegate* hw,
                CommonTimeDelegate* clock, TrackTokenDelegate* tokenDelegate, TimestampMode mode,
                DecoderDelegateFactory* factory);

  EventListener* const mHostListener;
  AudioPlayerListener* mPlayerListener;     // owned; owns the host's listener
  TrackTokenDelegate* mTrackTokenDelegate;  // owned
  // Guards mLogicalTrackList and mPendingGaplessStates.
  mutable std::mutex mListMutex;
  // The head is the logical track playing or next to play; the rest are enqueued.
  std::list<GaplessLogicalTrack> mLogicalTrackList;
  // Starts that came before their track was prepared, in arrival order.
  std::list<GaplessState> mPendingGaplessStates;
};

}  // namespace oru
