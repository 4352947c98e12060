#pragma once

#include "decode/AudioTrack.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace oru::test {

// An AudioTrack::EventListener that records every report, from whichever thread makes it, and
// lets a test wait for one. Any thread.
class RecordingTrackListener : public AudioTrack::EventListener {
 public:
  struct StateChange {
    AudioTrack::State from;
    AudioTrack::State to;
  };
  struct TrackError {
    AudioPlayer::MediaError error;
    std::string message;
  };
  struct Record {
    std::vector<StateChange> states;
    std::vector<TrackError> errors;
    std::vector<std::map<std::string, std::string>> metadata;
    std::vector<unsigned> delayReports;
    std::vector<unsigned> intervalReports;

    bool reached(AudioTrack::State state) const;
  };

  Record record() const;
  // Waits until `predicate` holds for the record; false at the deadline.
  bool waitUntil(std::function<bool(Record const&)> const& predicate);
  // Waits until the track reaches `state`, or fails; true when it reached `state`.
  bool waitForState(AudioTrack::State state);

  void onTrackStateChange(AudioTrack* track, AudioTrack::State oldState, AudioTrack::State newState,
                          unsigned positionMs) override;
  void onProgressReportDelay(AudioTrack* track, unsigned positionMs) override;
  void onProgressReportInterval(AudioTrack* track, unsigned positionMs) override;
  void onTrackError(AudioTrack* track, AudioPlayer::MediaError error,
                    std::string const& message) override;
  void onMetadata(AudioTrack* track, std::map<std::string, std::string> const& metadata) override;

 private:
  mutable std::mutex mMutex;  // guards mRecord
  std::condition_variable mChanged;
  Record mRecord;
};

}  // namespace oru::test
