// Real playback through the gapless player: an album in one file, its logical tracks told
// apart by state events, and what the host hears of each.
#include <oru/GaplessPlayer.h>

#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"
#include "ScriptedDevice.h"

#include <gtest/gtest.h>

#include <sstream>

namespace oru {
namespace {

using test::NamedToken;
using State = GaplessPlayer::GaplessState;

class NoTokenUpdates : public GaplessPlayer::TrackTokenDelegate {
 public:
  void updateTrackToken(AudioPlayer::Token*, AudioPlayer::Token const&) override {}
};

// The host's events without progress and metadata reports.
std::vector<std::string> milestones(std::vector<std::string> const& events) {
  std::vector<std::string> kept;
  for (std::string const& event : events) {
    if (event.rfind("progressReport", 0) != 0 && event.rfind("streamMetadata", 0) != 0) {
      kept.push_back(event);
    }
  }
  return kept;
}

class GaplessPlaybackTest : public ::testing::Test {
 protected:
  GaplessPlaybackTest()
      : events(new test::RecordingPlayerListener),
        player(events, &device, nullptr, new NoTokenUpdates, AudioPlayer::TIMESTAMP_STREAM,
               nullptr) {}

  void prepare(std::string const& trackId, AudioPlayer::PlayBehavior behavior,
               std::string const& uri, std::string const& token) {
    AudioPlayer::Resource resource;
    resource.uri = uri;
    player.prepare(trackId, behavior, resource, 0, -1, 100, NamedToken(token), 1);
  }

  test::ScriptedDevice device;
  test::RecordingPlayerListener* events;  // owned by the player
  GaplessPlayer player;
  std::string const album = test::fixture("album.flac");
};

TEST_F(GaplessPlaybackTest, AlbumInOneFile_EachLogicalTrackStartsAndFinishesOnItsOwn) {
  prepare("1", AudioPlayer::REPLACE_ALL, album, "t1");
  ASSERT_TRUE(events->waitFor("trackReady t1 false"));
  player.onGaplessInfoEvent({State::TRACK_END, album, "1", 1000});
  player.onGaplessInfoEvent({State::TRACK_START, album, "3", 2000});  // before its track
  prepare("2", AudioPlayer::ENQUEUE, album, "t2");
  prepare("3", AudioPlayer::ENQUEUE, album, "t3");
  player.onGaplessInfoEvent({State::TRACK_START, album, "2", 1000});
  player.onGaplessInfoEvent({State::TRACK_END, album, "2", 2000});
  // The track reads its position for the start report after handing itself to the renderer;
  // an instant device must not run ahead before the start is reported, as no real one can.
  device.holdWritesAfter(0);
  player.play(NamedToken("t1"), 0);
  ASSERT_TRUE(events->waitFor("playbackStarted t1"));
  device.releaseWrites();

  ASSERT_TRUE(events->waitFor("playbackFinished t3"));
  std::vector<std::string> const heard = milestones(events->events());
  ASSERT_EQ(heard.size(), 10u);
  EXPECT_EQ(
      std::vector<std::string>(heard.begin(), heard.end() - 1),
      (std::vector<std::string>{
          "trackReady t1 false", "playbackStarted t1 0", "playbackNearlyFinished t1 0",
          "playbackFinished t1 1000", "playbackStarted t2 0", "playbackNearlyFinished t2 0",
          "playbackFinished t2 1000", "playbackStarted t3 0", "playbackNearlyFinished t3 0"}));
  // The last track ends with its stream: the stream's end less the track's start.
  std::string const last = heard.back();
  ASSERT_EQ(last.rfind("playbackFinished t3 ", 0), 0u) << last;
  EXPECT_NEAR(std::stoi(last.substr(20)), 1000, 20);

  // Progress is reported in each logical track's own time.
  for (std::string const& event : events->eventsStartingWith("progressReportIntervalElapsed t2 ")) {
    unsigned const position = static_cast<unsigned>(std::stoul(event.substr(33)));
    EXPECT_LE(position, 1000u) << event;
  }
  EXPECT_FALSE(events->eventsStartingWith("progressReportIntervalElapsed t2 ").empty());
  EXPECT_EQ(device.kinds().front(), test::ScriptedDevice::kStart);
  EXPECT_NEAR(device.writtenFrames(), 3 * 48000, 40) << "one stream, decoded once";
}

TEST_F(GaplessPlaybackTest, FailingStream_IsReportedForItsLogicalTrack) {
  prepare("x", AudioPlayer::REPLACE_ALL, test::fixture("not-audio.txt"), "broken");
  ASSERT_TRUE(events->waitFor("playbackFailed"));
  // Its start offset was never set: 0 less all ones wraps to 1.
  EXPECT_EQ(
      events->eventsStartingWith("playbackFailed"),
      std::vector<std::string>{"playbackFailed broken 2 Failed to create demuxer  broken 2 1"});

  // A clear runs on the command thread after the failure's handling, and keeps the head.
  player.clearQueue(AudioPlayer::CLEAR_ENQUEUED);
  ASSERT_TRUE(events->waitFor("playbackQueueCleared"));
  EXPECT_FALSE(player.getCurrentLogicalTrackFromLogicalToken(NamedToken("broken")))
      << "the failed stream's tracks leave the list";
}

TEST_F(GaplessPlaybackTest, FailureBehindThePlayingAlbum_NamesBothLogicalTracks) {
  prepare("1", AudioPlayer::REPLACE_ALL, album, "t1");
  ASSERT_TRUE(events->waitFor("trackReady t1"));
  prepare("x", AudioPlayer::ENQUEUE, test::fixture("not-audio.txt"), "broken");

  ASSERT_TRUE(events->waitFor("playbackFailed"));
  EXPECT_EQ(events->eventsStartingWith("playbackFailed"),
            std::vector<std::string>{"playbackFailed broken 2 Failed to create demuxer  t1 0 1"})
      << "the head has not started: its unset start offset wraps the position";
}

}  // namespace
}  // namespace oru
