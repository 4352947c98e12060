#pragma once

#include "BenchDevice.h"
#include "Progress.h"

#include <oru/AudioPlayer.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace bench::radio {

// Plays the track when it is ready, and follows its titles: each report whose StreamTitle is
// "Title N" must name the title after the last one reported, or the same one again. The
// player's thread; the counts are read by any.
class RadioListener : public bench::TrackListener {
 public:
  RadioListener(bench::Signal& ending, Progress& progress)
      : TrackListener(ending), mProgress(progress) {}

  void playbackFinished(Token const& token, unsigned positionMs) override {
    TrackListener::playbackFinished(token, positionMs);
    mProgress.end("finished");
  }
  void playbackFailed(Token const& token, AudioPlayer::MediaError error, std::string const& message,
                      Token const& current, AudioPlayer::State state,
                      unsigned positionMs) override {
    TrackListener::playbackFailed(token, error, message, current, state, positionMs);
    mProgress.end("failed: " + message);
  }
  void playbackStopped(Token const&, unsigned) override { stopped.raise("stopped"); }
  void playbackStutterStarted(Token const&, unsigned) override { ++stutters; }
  void streamMetadataExtracted(Token const&, std::string const& text) override {
    ++reports;
    static char const kKey[] = "\"StreamTitle\":\"Title ";
    size_t const at = text.find(kKey);
    if (at == std::string::npos) {
      if (untitled++ == 0) {
        firstUntitled = text;
      }
      return;
    }
    int const title = std::atoi(text.c_str() + at + sizeof kKey - 1);
    int const last = lastTitle;
    if (title == last) {
      ++repeated;
      return;
    }
    if (title != last + 1 && wrongExpected == 0) {
      wrongExpected = last + 1;
      wrongGot = title;
    }
    ++changes;
    lastTitle = title;
  }

  bench::Signal stopped;
  std::atomic<int> reports{0};
  std::atomic<int> untitled{0};  // reports without a StreamTitle
  std::string firstUntitled;     // read once the player has ended
  std::atomic<int> repeated{0};  // reports of the title reported last
  std::atomic<int> changes{0};
  std::atomic<int> lastTitle{0};
  std::atomic<int> stutters{0};
  std::atomic<int> wrongExpected{0};  // the first title out of order: what was due...
  std::atomic<int> wrongGot{0};       // ...and what came

 private:
  Progress& mProgress;
};

}  // namespace bench::radio
