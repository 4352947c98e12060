// Real playback through the gapless player: an album in one file, its logical tracks told
// apart by state events, and what the host hears of each.
#include <oru/GaplessPlayer.h>

#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"
#include "ScriptedDevice.h"

#include <gtest/gtest.h>

using namespace oru;
using test::NamedToken;
using Events = std::vector<std::string>;
using State = GaplessPlayer::GaplessState;

namespace {

struct NoTokenUpdates : GaplessPlayer::TrackTokenDelegate {
  void updateTrackToken(AudioPlayer::Token*, AudioPlayer::Token const&) override {}
};

TEST(GaplessPlaybackTest, AlbumInOneFile_EachLogicalTrackStartsAndFinishesOnItsOwn) {
  test::ScriptedDevice device;
  auto* events = new test::RecordingPlayerListener;  // owned by the player
  GaplessPlayer player(events, &device, nullptr, new NoTokenUpdates, AudioPlayer::TIMESTAMP_STREAM,
                       nullptr);
  std::string const album = test::fixture("album.flac");
  auto prepare = [&](char const* trackId, AudioPlayer::PlayBehavior behavior, char const* token) {
    AudioPlayer::Resource resource;
    resource.uri = album;
    player.prepare(trackId, behavior, resource, 0, -1, 100, NamedToken(token), 1);
  };
  prepare("1", AudioPlayer::REPLACE_ALL, "t1");
  ASSERT_TRUE(events->waitFor("trackReady t1 false"));
  player.onGaplessInfoEvent({State::TRACK_END, album, "1", 1000});
  player.onGaplessInfoEvent({State::TRACK_START, album, "3", 2000});  // before its track
  prepare("2", AudioPlayer::ENQUEUE, "t2");
  prepare("3", AudioPlayer::ENQUEUE, "t3");
  player.onGaplessInfoEvent({State::TRACK_START, album, "2", 1000});
  player.onGaplessInfoEvent({State::TRACK_END, album, "2", 2000});
  // An instant device must not run ahead before the start is reported, as no real one can.
  device.holdWritesAfter(0);
  player.play(NamedToken("t1"), 0);
  ASSERT_TRUE(events->waitFor("playbackStarted t1"));
  device.releaseWrites();

  ASSERT_TRUE(events->waitFor("playbackFinished t3"));
  Events heard;
  for (std::string const& event : events->entries()) {
    if (event.rfind("progressReport", 0) != 0 && event.rfind("streamMetadata", 0) != 0) {
      heard.push_back(event);
    }
  }
  // The last track ends with its stream: the stream's end less the track's start.
  EXPECT_NEAR(std::stoi(heard.back().substr(20)), 1000, 20) << heard.back();
  heard.back() = "playbackFinished t3";
  EXPECT_EQ(heard,
            (Events{"trackReady t1 false", "playbackStarted t1 0", "playbackNearlyFinished t1 0",
                    "playbackFinished t1 1000", "playbackStarted t2 0",
                    "playbackNearlyFinished t2 0", "playbackFinished t2 1000",
                    "playbackStarted t3 0", "playbackNearlyFinished t3 0", "playbackFinished t3"}));
  Events const t2Progress = events->startingWith("progressReportIntervalElapsed t2 ");
  EXPECT_FALSE(t2Progress.empty());
  for (std::string const& event : t2Progress) {
    EXPECT_LE(std::stoul(event.substr(33)), 1000u) << "in the logical track's own time";
  }
  EXPECT_NEAR(device.writtenFrames(), 3 * 48000, 40) << "one stream, decoded once";
}

}  // namespace
