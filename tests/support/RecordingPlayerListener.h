#pragma once

#include "Recorder.h"

#include <oru/AudioPlayer.h>

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

namespace oru::test {

// A host listener that records every event as one line of text, its name and arguments joined
// by spaces ("trackReady a false", "playbackFailed b 2 Failed to decode:  a 1 0", ...), and
// calls `hook` (set before the player starts) with each, on the player's command thread.
struct RecordingPlayerListener : AudioPlayer::EventListener, Recorder<std::string> {
  std::function<void(std::string const&)> hook;

  // The events that start with `prefix`, in order.
  std::vector<std::string> startingWith(std::string const& prefix) const {
    std::vector<std::string> matching;
    for (std::string const& event : entries()) {
      if (event.rfind(prefix, 0) == 0) {
        matching.push_back(event);
      }
    }
    return matching;
  }
  // The events cut to their first two words ("playbackStarted a"), without metadata and
  // progress reports.
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (std::string const& event : entries()) {
      if (event.rfind("streamMetadata", 0) != 0 && event.find("Elapsed") == std::string::npos) {
        result.push_back(event.substr(0, event.find(' ', event.find(' ') + 1)));
      }
    }
    return result;
  }
  // The positions (ms) that `event` reported for the track named `token`, in order.
  std::vector<unsigned> positions(std::string const& event, std::string const& token) const {
    std::vector<unsigned> found;
    for (std::string const& line : startingWith(event + " " + token + " ")) {
      found.push_back(std::stoul(line.substr(event.size() + token.size() + 2)));
    }
    return found;
  }
  // Waits until `count` events start with `prefix`; at the deadline, fails listing them all.
  bool waitFor(std::string const& prefix, long count = 1,
               std::chrono::seconds deadline = kDeadline) {
    bool const came = waitUntil(
        [&](auto const& all) {
          return std::count_if(all.begin(), all.end(),
                               [&](auto const& e) { return e.rfind(prefix, 0) == 0; }) >= count;
        },
        deadline);
    EXPECT_TRUE(came) << count << " x '" << prefix << "' expected in "
                      << ::testing::PrintToString(entries());
    return came;
  }

  using T = AudioPlayer::Token;
  void trackReady(T const& t, bool afterFailure) override { record(__func__, t, afterFailure); }
  void playbackStarted(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackNearlyFinished(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void progressReportDelayElapsed(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void progressReportIntervalElapsed(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackStutterStarted(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackStutterFinished(T const& t, unsigned ms, unsigned stutter) override {
    record(__func__, t, ms, stutter);
  }
  void playbackFinished(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackFailed(T const& t, AudioPlayer::MediaError error, std::string const& message,
                      T const& current, AudioPlayer::State state, unsigned ms) override {
    record(__func__, t, error, message, current, state, ms);
  }
  void playbackStopped(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackPaused(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackResumed(T const& t, unsigned ms) override { record(__func__, t, ms); }
  void playbackQueueCleared() override { record(__func__); }
  void streamMetadataExtracted(T const& t, std::string const& text) override {
    record(__func__, t, text);
  }
  void progressReportIntervalUpdated(T const& t, unsigned ms, AudioPlayer::State state) override {
    record(__func__, t, ms, state);
  }

 private:
  template <typename... Args>
  void record(char const* name, Args const&... args) {
    std::ostringstream line;
    line << std::boolalpha << name;
    ((line << ' ' << args), ...);
    add(line.str());
    if (hook) {
      hook(line.str());
    }
  }
};

}  // namespace oru::test
