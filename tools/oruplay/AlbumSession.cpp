#include "AlbumSession.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace oruplay {
namespace {

using State = oru::GaplessPlayer::GaplessState;

constexpr int kProgressIntervalMs = 100;  // how late a track change may show

// The player takes a track that finished with its stream off its list just after telling so, on
// its own thread, and then tells nothing more when the tracks after it went with the stream:
// until it has, the main thread looks again this often. That gap lasts microseconds, at the
// stream's end, so even a quiet run, whose wait never times out otherwise, seldom wakes for it.
constexpr std::chrono::milliseconds kSettleRecheck(10);

std::string trackId(int index) { return std::to_string(index + 1); }

}  // namespace

AlbumSession::AlbumSession(CueSheet sheet, std::string cuePath, FailureReasons& reasons)
    : mSheet(std::move(sheet)), mCuePath(std::move(cuePath)), mReasons(reasons) {}

void AlbumSession::start(oru::GaplessPlayer& player) {
  mPlayer = &player;
  oru::AudioPlayer::Resource resource;
  resource.uri = mSheet.audioFile;
  int const count = inputCount();
  for (int index = 0; index < count; ++index) {
    player.prepare(trackId(index),
                   index == 0 ? oru::AudioPlayer::REPLACE_ALL : oru::AudioPlayer::ENQUEUE, resource,
                   0, -1, kProgressIntervalMs, InputToken(index), 1);
  }
  for (int index = 0; index < count; ++index) {
    auto const start = static_cast<int64_t>(mSheet.tracks[static_cast<size_t>(index)].startMs);
    player.onGaplessInfoEvent({State::TRACK_START, mSheet.audioFile, trackId(index), start});
    if (index + 1 < count) {
      // The last track ends with the file.
      auto const end = static_cast<int64_t>(mSheet.tracks[static_cast<size_t>(index + 1)].startMs);
      player.onGaplessInfoEvent({State::TRACK_END, mSheet.audioFile, trackId(index), end});
    }
  }
}

std::optional<bool> AlbumSession::endedWithStream(int finished) const {
  // The finished track leaves the list in the same step as the tracks its stream takes with it.
  if (mPlayer->getCurrentLogicalTrackFromLogicalToken(InputToken(finished))) {
    return std::nullopt;
  }
  return !mPlayer->getCurrentLogicalTrackFromLogicalToken(InputToken(finished + 1));
}

Wake AlbumSession::wait(int timeoutMs, bool onChange) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point const deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  std::unique_lock<std::mutex> lock(mMutex);
  for (;;) {
    // A file that ends before the sheet's last track takes the remaining tracks with it, and
    // no later track will report: each finish but the last is looked into once, for that.
    int const finished = mLastFinished;
    bool unsettled = false;
    if (!mDone && finished > mLastFollowed) {
      lock.unlock();
      std::optional<bool> const ended = endedWithStream(finished);
      lock.lock();
      if (mLastFinished != finished) {
        continue;  // the next track may have played and gone in the meantime
      }
      unsettled = !ended.has_value();
      if (ended == true) {
        mDone = true;
      } else if (ended == false) {
        mLastFollowed = std::max(mLastFollowed, finished);
      }
    }
    auto const woken = [&] {
      return mDone || mInterrupted || (onChange && mChanges.pending()) || mLastFinished != finished;
    };
    if (!unsettled && timeoutMs < 0) {
      mChanged.wait(lock, woken);
    } else {
      Clock::time_point const recheck = Clock::now() + kSettleRecheck;
      bool const recheckFirst = unsettled && (timeoutMs < 0 || recheck < deadline);
      mChanged.wait_until(lock, recheckFirst ? recheck : deadline, woken);
    }
    if (mDone || mInterrupted) {
      return mDone ? Wake::kDone : Wake::kInterrupted;
    }
    if (onChange && mChanges.pending()) {
      return Wake::kChanged;
    }
    if (timeoutMs >= 0 && Clock::now() >= deadline) {
      return Wake::kTimedOut;
    }
  }
}

void AlbumSession::interrupt() {
  std::lock_guard<std::mutex> lock(mMutex);
  mInterrupted = true;
  mChanged.notify_all();
}

std::vector<std::string> AlbumSession::failures() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mFailures;
}

Status AlbumSession::status() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mStatus;
}

std::vector<Status> AlbumSession::takeChanges() {
  std::lock_guard<std::mutex> lock(mMutex);
  return mChanges.take();
}

void AlbumSession::trackReady(oru::AudioPlayer::Token const& token, bool) {
  mPlayer->play(token, std::exchange(mFirstPlayAtNs, 0));
}

void AlbumSession::playbackStarted(oru::AudioPlayer::Token const& token, unsigned positionMs) {
  std::lock_guard<std::mutex> lock(mMutex);
  int const index = InputToken::indexOf(token);
  CueSheet::Track const& track = mSheet.tracks[static_cast<size_t>(index)];
  mStatus = Status{index, positionMs, track.title, track.performer};
  if (mChanges.note(mStatus)) {
    mChanged.notify_all();
  }
}

void AlbumSession::progressReportIntervalElapsed(oru::AudioPlayer::Token const& token,
                                                 unsigned positionMs) {
  std::lock_guard<std::mutex> lock(mMutex);
  if (InputToken::indexOf(token) == mStatus.input) {
    mStatus.positionMs = positionMs;
  }
}

void AlbumSession::playbackFinished(oru::AudioPlayer::Token const& token, unsigned) {
  std::lock_guard<std::mutex> lock(mMutex);
  mLastFinished = InputToken::indexOf(token);
  std::string const endedEarly = mReasons.takeEndedEarly(mCuePath + ": " + mSheet.audioFile);
  if (!endedEarly.empty()) {
    mFailures.push_back(endedEarly);
  }
  mDone = mDone || mLastFinished + 1 == inputCount();
  mChanged.notify_all();  // the main thread looks into a finish before the last
}

void AlbumSession::playbackFailed(oru::AudioPlayer::Token const&, oru::AudioPlayer::MediaError,
                                  std::string const& message, oru::AudioPlayer::Token const&,
                                  oru::AudioPlayer::State, unsigned) {
  std::lock_guard<std::mutex> lock(mMutex);
  mFailures.push_back(mReasons.describeFailure(mCuePath + ": " + mSheet.audioFile, message));
  mDone = true;
  mChanged.notify_all();
}

}  // namespace oruplay
