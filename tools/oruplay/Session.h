#pragma once

#include "FailureReasons.h"
#include "InputToken.h"
#include "StdinSource.h"

#include <oru/AudioPlayer.h>
#include <oru/host/EventListenerBase.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace oruplay {

// What the status line shows.
struct Status {
  int input = -1;  // index of the playing input or track, -1 before the first starts
  unsigned positionMs = 0;
  std::string title;          // from the stream's metadata or the cue sheet, when there is one
  std::string artist;         //
  bool reconnecting = false;  // the input's broken stream is being reconnected

  bool sameInputAndTitle(Status const& other) const {
    return input == other.input && title == other.title && artist == other.artist;
  }
};

// Why a wait on a session ended.
enum class Wake { kDone, kInterrupted, kChanged, kTimedOut };

// What plays, for the status line, and the main thread's wait for its end. Any thread but
// wait(), which is the main thread's.
class StatusSource {
 public:
  virtual ~StatusSource() = default;
  virtual Status status() const = 0;
  // Each change of the playing input, track or title since the last call, in order.
  virtual std::vector<Status> takeChanges() = 0;
  virtual int inputCount() const = 0;
  virtual std::string const& inputName(int index) const = 0;
  // Waits until the session is done or interrupted, or (with `onChange`) has a change for
  // takeChanges(), or for `timeoutMs`; with a negative `timeoutMs`, for as long as it takes.
  // Done outranks interrupted, which outranks a change.
  virtual Wake wait(int timeoutMs, bool onChange) = 0;
  // Makes every wait, the one under way included, end as interrupted.
  virtual void interrupt() = 0;
};

using oru::tools::InputToken;

// Keeps the changes a session reports through takeChanges(). Not locked: the session's own
// mutex guards it.
class ChangeLog {
 public:
  // Records `status` when its input, title or reconnecting differs from the last one recorded;
  // true when it did.
  bool note(Status const& status) {
    if (mLast.sameInputAndTitle(status) && mLast.reconnecting == status.reconnecting) {
      return false;
    }
    mChanges.push_back(status);
    mLast = status;
    return true;
  }
  std::vector<Status> take() { return std::exchange(mChanges, {}); }
  bool pending() const { return !mChanges.empty(); }

 private:
  Status mLast;
  std::vector<Status> mChanges;
};

// Plays a list of inputs through one player, back to back: each input that becomes ready is
// played, the next one is prepared once the current one has played and is nearly finished, and
// an input that fails or whose stream ends early is reported and passed over. The current input
// is reconnecting from the start of a reconnection until its audio moves on. The listener
// operations run on the player's command thread; interrupt() on any thread; the rest on the main
// thread.
class Session : public oru::host::EventListenerBase, public StatusSource {
 public:
  // `reasons` must outlive the session.
  Session(std::vector<std::string> inputs, unsigned startOffsetMs, FailureReasons& reasons);

  // The first input that becomes ready plays at `commonNs` on the player's common clock (a
  // player in TIMESTAMP_COMMON), the others as soon as they may. Call before start().
  void playFirstAt(int64_t commonNs) { mFirstPlayAtNs = commonNs; }
  // Begins with the first input. The player must outlive the session's use of it.
  void start(oru::AudioPlayer& player);
  // Done once every input has played or failed.
  Wake wait(int timeoutMs, bool onChange) override;
  void interrupt() override;
  Status status() const override;
  std::vector<Status> takeChanges() override;
  // A line for each input that failed or ended early.
  std::vector<std::string> failures() const;
  std::string const& inputName(int index) const override {
    return mInputs[static_cast<size_t>(index)];
  }
  int inputCount() const override { return static_cast<int>(mInputs.size()); }

  void trackReady(oru::AudioPlayer::Token const& token, bool afterFailure) override;
  void playbackStarted(oru::AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackNearlyFinished(oru::AudioPlayer::Token const& token, unsigned positionMs) override;
  void progressReportIntervalElapsed(oru::AudioPlayer::Token const& token,
                                     unsigned positionMs) override;
  void playbackFinished(oru::AudioPlayer::Token const& token, unsigned positionMs) override;
  void playbackFailed(oru::AudioPlayer::Token const& token, oru::AudioPlayer::MediaError error,
                      std::string const& message, oru::AudioPlayer::Token const& currentToken,
                      oru::AudioPlayer::State state, unsigned positionMs) override;
  void streamMetadataExtracted(oru::AudioPlayer::Token const& token,
                               std::string const& metadata) override;

 private:
  // Caller holds mMutex. Prepares input `index` with `behavior`.
  void prepareLocked(int index, oru::AudioPlayer::PlayBehavior behavior);
  // Caller holds mMutex. Records that input `index` will not play (any more) and moves on
  // when nothing else is queued.
  void endInputLocked(int index);
  // Caller holds mMutex. The status, reconnecting when FFmpeg has begun a reconnection since
  // the audio last moved on or the input before ended (inputs open one at a time).
  Status currentLocked() const;
  // Caller holds mMutex. Takes every reconnection begun so far as over.
  void reconnectionsOverLocked() { mReconnectsSeen = mReasons.reconnects(); }
  // Caller holds mMutex. Notes the current status, and wakes a wait for the change it may be.
  void noteLocked();

  std::vector<std::string> const mInputs;
  unsigned const mStartOffsetMs;
  FailureReasons& mReasons;
  StdinSource mStdin;
  oru::AudioPlayer* mPlayer = nullptr;
  int64_t mFirstPlayAtNs = 0;  // command thread, once started

  // Guards everything below.
  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  int mLastPrepared = -1;
  std::set<int> mEnded;
  bool mDone = false;
  bool mInterrupted = false;
  Status mStatus;
  unsigned mReconnectsSeen = 0;  // FFmpeg's count of reconnections when they were last over
  ChangeLog mChanges;
  // Title and artist of each input whose stream has carried them.
  std::map<int, std::pair<std::string, std::string>> mTags;
  std::vector<std::string> mFailures;
};

}  // namespace oruplay
