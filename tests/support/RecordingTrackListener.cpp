#include "RecordingTrackListener.h"

#include "WaitFor.h"

#include <algorithm>

namespace oru::test {

bool RecordingTrackListener::Record::reached(AudioTrack::State state) const {
  return std::any_of(states.begin(), states.end(),
                     [state](StateChange const& change) { return change.to == state; });
}

RecordingTrackListener::Record RecordingTrackListener::record() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mRecord;
}

bool RecordingTrackListener::waitUntil(std::function<bool(Record const&)> const& predicate) {
  std::unique_lock<std::mutex> lock(mMutex);
  return waitFor(lock, mChanged, [&] { return predicate(mRecord); });
}

bool RecordingTrackListener::waitForState(AudioTrack::State state) {
  waitUntil([state](Record const& r) {
    return r.reached(state) || r.reached(AudioTrack::Error) || r.reached(AudioTrack::Finished);
  });
  return record().reached(state);
}

void RecordingTrackListener::onTrackStateChange(AudioTrack*, AudioTrack::State oldState,
                                                AudioTrack::State newState, unsigned) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.states.push_back({oldState, newState});
  }
  mChanged.notify_all();
}

void RecordingTrackListener::onProgressReportDelay(AudioTrack*, unsigned positionMs) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.delayReports.push_back(positionMs);
  }
  mChanged.notify_all();
}

void RecordingTrackListener::onProgressReportInterval(AudioTrack*, unsigned positionMs) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.intervalReports.push_back(positionMs);
  }
  mChanged.notify_all();
}

void RecordingTrackListener::onTrackError(AudioTrack*, AudioPlayer::MediaError error,
                                          std::string const& message) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.errors.push_back({error, message});
  }
  mChanged.notify_all();
}

void RecordingTrackListener::onMetadata(AudioTrack*,
                                        std::map<std::string, std::string> const& metadata) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.metadata.push_back(metadata);
  }
  mChanged.notify_all();
}

}  // namespace oru::test
