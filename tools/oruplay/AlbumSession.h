#pragma once

#include "CueSheet.h"
#include "Session.h"

#include <oru/GaplessPlayer.h>
#include <oru/host/EventListenerBase.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace oruplay {

// Plays the album a cue sheet describes: its one file is opened once through a GaplessPlayer,
// every track of the sheet is prepared as a logical track of that stream, and each track's
// start and end are announced as gapless state events, so that the player reports each track
// as it plays. The listener operations run on the player's threads (some with its list mutex
// held: they never call the player then); interrupt() on any thread; the rest on the main thread.
class AlbumSession : public oru::host::EventListenerBase, public StatusSource {
 public:
  // `reasons` must outlive the session.
  AlbumSession(CueSheet sheet, std::string cuePath, FailureReasons& reasons);

  // The first track that becomes ready plays at `commonNs` on the player's common clock (a
  // player in TIMESTAMP_COMMON), the others as soon as they may. Call before start().
  void playFirstAt(int64_t commonNs) { mFirstPlayAtNs = commonNs; }
  // Prepares every track and announces their offsets. The player must outlive the session's
  // use of it.
  void start(oru::GaplessPlayer& player);
  // Done once the album has played or failed. Also notices a file shorter than its sheet.
  Wake wait(int timeoutMs, bool onChange) override;
  void interrupt() override;
  // A line for the album's file when it failed or ended early.
  std::vector<std::string> failures() const;

  Status status() const override;
  std::vector<Status> takeChanges() override;
  int inputCount() const override { return static_cast<int>(mSheet.tracks.size()); }
  std::string const& inputName(int) const override { return mCuePath; }

  void trackReady(oru::AudioPlayer::Token const& token, bool afterFailure) override;
  void playbackStarted(oru::AudioPlayer::Token const& token, unsigned positionMs) override;
  void progressReportIntervalElapsed(oru::AudioPlayer::Token const& token,
                                     unsigned positionMs) override;
  void playbackFinished(oru::AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackFailed(oru::AudioPlayer::Token const& token, oru::AudioPlayer::MediaError error,
                      std::string const& message, oru::AudioPlayer::Token const& currentToken,
                      oru::AudioPlayer::State state, unsigned positionMs) override;

 private:
  CueSheet const mSheet;
  std::string const mCuePath;
  FailureReasons& mReasons;
  oru::GaplessPlayer* mPlayer = nullptr;
  int64_t mFirstPlayAtNs = 0;  // command thread, once started

  // Whether the tracks after the one that finished as `finished` are gone with the stream's end
  // (then true), or follow (false), or the player has yet to take the finished one off its list
  // (empty).
  std::optional<bool> endedWithStream(int finished) const;

  // Guards everything below.
  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  int mLastFinished = -1;  // index of the last track reported finished
  int mLastFollowed = -1;  // index of the last finished track known to be followed by the next
  bool mDone = false;
  bool mInterrupted = false;
  Status mStatus;
  ChangeLog mChanges;
  std::vector<std::string> mFailures;
};

}  // namespace oruplay
