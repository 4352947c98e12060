#include "AlbumSession.h"

#include <chrono>
#include <utility>

namespace oruplay {
namespace {

using State = oru::GaplessPlayer::GaplessState;

constexpr int kProgressIntervalMs = 100;  // how late a track change may show

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

Wake AlbumSession::wait(int timeoutMs, bool onChange) {
  std::unique_lock<std::mutex> lock(mMutex);
  if (mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return mDone || mInterrupted || (onChange && mChanges.pending());
      })) {
    if (mDone || mInterrupted) {
      return mDone ? Wake::kDone : Wake::kInterrupted;
    }
    return Wake::kChanged;
  }
  // A file that ends before the sheet's last track: the stream's end took the remaining
  // tracks with it, and no later track will report.
  if (mLastFinished >= 0 && mLastFinished + 1 < inputCount()) {
    lock.unlock();
    bool const nextGone =
        !mPlayer->getCurrentLogicalTrackFromLogicalToken(InputToken(mLastFinished + 1));
    lock.lock();
    mDone = mDone || nextGone;
  }
  return mDone ? Wake::kDone : Wake::kTimedOut;
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
  if (mLastFinished + 1 == inputCount()) {
    mDone = true;
    mChanged.notify_all();
  }
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
