// Logical tracks over physical streams: prepare's list rules, state events, event translation,
// and real playback of an album in one file, as the host hears each of its tracks.
#include <oru/GaplessPlayer.h>

#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingLogger.h"
#include "RecordingPlayerListener.h"
#include "ScriptedDevice.h"
#include "gapless/AudioPlayerListener.h"

#include <gtest/gtest.h>

#include <typeinfo>

using namespace oru;
using test::NamedToken;
using Events = std::vector<std::string>;
using State = GaplessPlayer::GaplessState;

namespace {

TEST(PhysicalTokenTest, ComparesBytesThenLengths_AndThrowsOnAnotherKindOfToken) {
  EXPECT_EQ(PhysicalToken("http://host/a").compare(PhysicalToken("http://host/a")), 0);
  EXPECT_LT(PhysicalToken("a").compare(PhysicalToken("ab")), 0);
  EXPECT_GT(PhysicalToken("ab").compare(PhysicalToken("a")), 0);
  EXPECT_LT(PhysicalToken("http://host/a").compare(PhysicalToken("http://host/b")), 0);
  EXPECT_THROW(PhysicalToken("a").compare(NamedToken("a")), std::bad_cast);
}

// Records the token updates the gapless player asks for.
struct Tokens : GaplessPlayer::TrackTokenDelegate, test::Recorder<std::string> {
  void updateTrackToken(AudioPlayer::Token* stored, AudioPlayer::Token const& asked) override {
    add(stored->toString() + "<-" + asked.toString());
  }
};

class GaplessPlayerTest : public ::testing::Test {
 protected:
  void prepare(char const* trackId, AudioPlayer::PlayBehavior behavior, char const* token,
               char const* file = "album.flac", unsigned startMs = 0) {
    AudioPlayer::Resource const resource{test::fixture(file), ""};
    player->prepare(trackId, behavior, resource, startMs, -1, intervalMs, NamedToken(token), 1);
  }
  void state(int type, std::string const& trackId, int64_t offsetMs) {
    player->onGaplessInfoEvent({type, test::fixture("album.flac"), trackId, offsetMs});
  }
  std::unique_ptr<GaplessLogicalTrack> track(std::string const& token) const {
    return player->getCurrentLogicalTrackFromLogicalToken(NamedToken(token));
  }
  PhysicalToken album() const { return PhysicalToken(test::fixture("album.flac")); }
  int intervalMs = -1;  // the progress report interval of the tracks prepared
  test::RecordingLogger logger;
  test::ScriptedDevice device;
  // Owned by the player, which must delete them: the sanitizer builds report a leak otherwise.
  test::RecordingPlayerListener* events = new test::RecordingPlayerListener;
  Tokens* tokens = new Tokens;
  std::unique_ptr<GaplessPlayer> player = std::make_unique<GaplessPlayer>(
      events, &device, nullptr, tokens, AudioPlayer::TIMESTAMP_STREAM, nullptr);
};

TEST_F(GaplessPlayerTest, TracksOnOneStream_OpenItOnceAndShareItsToken) {
  prepare("1", AudioPlayer::ENQUEUE, "a");
  prepare("2", AudioPlayer::ENQUEUE, "b");
  ASSERT_TRUE(events->waitFor("trackReady a false"));
  EXPECT_EQ(logger.count("handlePrepare behavior: "), 1);
  EXPECT_EQ(track("b")->physicalToken->compare(*track("a")->physicalToken), 0);
  EXPECT_EQ(track("b")->physicalToken->toString(), album().toString());
  EXPECT_EQ(track("b")->startOffsetMs, GaplessLogicalTrack::kOffsetUnset);
}

TEST_F(GaplessPlayerTest, StatesBeforeTheirTrack_KeepAStartAndLoseAnEnd_UnlessCleared) {
  prepare("1", AudioPlayer::REPLACE_ALL, "a");  // drops earlier pending states
  state(State::TRACK_START, "2", 1000);
  state(State::TRACK_END, "2", 2000);
  state(State::TRACK_START, "3", 3000);
  player->onGaplessInfoEvent({7, test::fixture("album.flac"), "2", 7});  // an unknown type
  player->play(NamedToken("nobody"), 0);
  prepare("2", AudioPlayer::ENQUEUE, "b");
  EXPECT_EQ(std::make_pair(track("b")->startOffsetMs, track("b")->endOffsetMs),
            std::make_pair(int64_t{1000}, GaplessLogicalTrack::kOffsetUnset));
  EXPECT_TRUE(logger.logged("addTrackToLogicalTrackList replay "));
  player->clearQueue(AudioPlayer::CLEAR_ENQUEUED);  // keeps the head
  prepare("3", AudioPlayer::ENQUEUE, "c");
  EXPECT_TRUE(track("a") && !track("b"));
  EXPECT_EQ(track("c")->startOffsetMs, GaplessLogicalTrack::kOffsetUnset) << "states dropped";
  player->onPhysicalStreamReady(PhysicalToken("nowhere"));
  EXPECT_FALSE(track("a") || track("c")) << "no entry has that stream: the list empties";
}

TEST_F(GaplessPlayerTest, ReplaceAllOfThePlayingTrack_ResumesItAtTheTranslatedPosition) {
  prepare("A", AudioPlayer::REPLACE_ALL, "a");
  prepare("B", AudioPlayer::ENQUEUE, "b");
  ASSERT_TRUE(events->waitFor("trackReady a"));
  state(State::TRACK_END, "A", 180000);  // b follows a, 180 s into the stream
  state(State::TRACK_START, "B", 180000);
  player->onPhysicalStreamStarted(album(), 0);
  player->onReportIntervalElapsed(180001);
  prepare("B", AudioPlayer::REPLACE_ALL, "b-again", "album.flac", 5000);
  ASSERT_TRUE(events->waitFor("trackReady b false"));
  EXPECT_EQ(tokens->entries(), Events{"b<-b-again"});
  EXPECT_EQ(logger.count("token: " + test::fixture("album.flac") + " offsetMs: 185000"), 1)
      << "the base player reopens the stream 5000 ms into the logical track";
  EXPECT_EQ(logger.count("addTrackToLogicalTrackList Adding in list, trackId: B"), 1);
}

TEST_F(GaplessPlayerTest, ReplaceAllAndEnqueue_KeepOneEntryPerTrackBehindTheHead) {
  prepare("A", AudioPlayer::REPLACE_ALL, "a");
  prepare("A", AudioPlayer::ENQUEUE, "a-again");  // the head is never taken for a duplicate
  prepare("A", AudioPlayer::ENQUEUE, "a-third");
  prepare("C", AudioPlayer::ENQUEUE, "c", "tone.flac");
  EXPECT_EQ(tokens->entries(), Events{"a-again<-a-third"});
  ASSERT_TRUE(events->waitFor("trackReady a"));
  prepare("D", AudioPlayer::REPLACE_ALL, "d");
  // The base player reopens the stream and announces it again, on its first logical track.
  ASSERT_TRUE(events->waitFor("trackReady a false", 2));
  EXPECT_TRUE(track("a") && !track("a-again") && !track("a-third") && !track("c") && track("d"));
  EXPECT_EQ(logger.count("handlePrepare behavior: "), 3) << "REPLACE_ALL always prepares";
}

TEST_F(GaplessPlayerTest, AlbumInOneFile_EachLogicalTrackStartsAndFinishesOnItsOwn) {
  intervalMs = 100;
  prepare("1", AudioPlayer::REPLACE_ALL, "t1");
  ASSERT_TRUE(events->waitFor("trackReady t1 false"));
  state(State::TRACK_END, "1", 1000);
  state(State::TRACK_START, "3", 2000);  // before its track
  prepare("2", AudioPlayer::ENQUEUE, "t2");
  prepare("3", AudioPlayer::ENQUEUE, "t3");
  state(State::TRACK_START, "2", 1000);
  state(State::TRACK_END, "2", 2000);
  // An instant device must not run ahead before the start is reported, as no real one can.
  device.holdWritesAfter(0);
  player->play(NamedToken("t1"), 0);
  ASSERT_TRUE(events->waitFor("playbackStarted t1"));
  device.releaseWrites();

  ASSERT_TRUE(events->waitFor("playbackFinished t3"));
  EXPECT_EQ(events->startingWith("trackReady"), Events{"trackReady t1 false"});
  Events const heard = events->startingWith("playback");
  EXPECT_EQ(
      Events(heard.begin(), heard.end() - 1),
      (Events{"playbackStarted t1 0", "playbackNearlyFinished t1 0", "playbackFinished t1 1000",
              "playbackStarted t2 0", "playbackNearlyFinished t2 0", "playbackFinished t2 1000",
              "playbackStarted t3 0", "playbackNearlyFinished t3 0"}));
  // The last track ends with its stream: the stream's end less the track's start.
  std::vector<unsigned> const t3End = events->positions("playbackFinished", "t3");
  ASSERT_EQ(t3End.size(), 1u) << heard.back();
  EXPECT_NEAR(t3End[0], 1000, 20);
  std::vector<unsigned> const t2Progress = events->positions("progressReportIntervalElapsed", "t2");
  EXPECT_FALSE(t2Progress.empty());
  for (unsigned ms : t2Progress) {
    EXPECT_LE(ms, 1000u) << "in the logical track's own time";
  }
  EXPECT_NEAR(device.writtenFrames(), 3 * 48000, 40) << "one stream, decoded once";
}

TEST(GaplessForeignTokenTest, InheritedPrepareAndANullTokenDelegate_AreHarmless) {
  test::ScriptedDevice device;
  auto* events = new test::RecordingPlayerListener;  // owned by the player
  GaplessPlayer player(events, &device, nullptr, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
  AudioPlayer::Resource const resource{test::fixture("tone.flac"), ""};
  player.prepare("1", AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, NamedToken("a"), 1);
  ASSERT_TRUE(events->waitFor("trackReady a"));
  AudioPlayer& base = player;  // through the inherited prepare, the host's own token
  base.prepare(AudioPlayer::ENQUEUE, resource, 0, -1, -1, NamedToken("host"), 1);
  for (int i = 0; i < 2; ++i) {  // the second is a duplicate, whose token the host would update
    player.prepare("2", AudioPlayer::ENQUEUE, resource, 0, -1, -1, NamedToken("b"), 1);
  }
  player.play(NamedToken("a"), 0);
  ASSERT_TRUE(events->waitFor("playbackFinished a"));
  EXPECT_EQ(events->startingWith("trackReady"), Events{"trackReady a false"});
}

// The translation of physical events, driven by hand against a gapless player's list.
TEST_F(GaplessPlayerTest, PhysicalEvents_GoToTheLogicalTrackPlayingAtTheirPosition) {
  auto* host = new test::RecordingPlayerListener;
  AudioPlayerListener translator(host, player.get());  // owns the host listener
  prepare("A", AudioPlayer::REPLACE_ALL, "a");
  prepare("B", AudioPlayer::ENQUEUE, "b");
  ASSERT_TRUE(events->waitFor("trackReady a"));
  PhysicalToken const elsewhere("elsewhere");
  translator.playbackStopped(elsewhere, 5);  // a stream without tracks
  translator.progressReportIntervalElapsed(elsewhere, 5);
  translator.playbackFailed(elsewhere, AudioPlayer::MEDIA_ERROR_FORMAT, "boom", album(),
                            AudioPlayer::STATE_PLAYING, 10);
  translator.playbackFailed(NamedToken("host"), AudioPlayer::MEDIA_ERROR_FORMAT, "boom", album(),
                            AudioPlayer::STATE_PLAYING, 10);  // a track of the inherited prepare
  translator.playbackStarted(album(), 0);
  EXPECT_EQ(track("a")->startOffsetMs, 0) << "a fresh head starts at the stream's start";
  state(State::TRACK_END, "A", 200000);
  state(State::TRACK_START, "B", 200000);
  // The player itself finishes and starts logical tracks, once a report passes their offsets.
  player->onReportIntervalElapsed(200000);
  EXPECT_EQ(events->entries(), Events{"trackReady a false"});
  player->onReportIntervalElapsed(200001);
  player->onReportIntervalElapsed(999999999);  // a track without an end never finishes here
  EXPECT_EQ(events->entries(), (Events{"trackReady a false", "playbackFinished a 200000",
                                       "playbackStarted b 0", "playbackNearlyFinished b 0"}));
  translator.playbackPaused(album(), 250000);
  translator.playbackResumed(album(), 150000);  // before b's start: wraps
  translator.playbackFailed(album(), AudioPlayer::MEDIA_ERROR_FORMAT, "boom", album(),
                            AudioPlayer::STATE_STOPPED, 0);
  translator.playbackQueueCleared();
  EXPECT_EQ(host->entries(),
            (Events{"playbackStarted a 0", "playbackPaused b 50000", "playbackResumed b 4294917296",
                    "playbackFailed b 2 boom b 2 4294767296", "playbackQueueCleared"}));
  EXPECT_FALSE(track("b")) << "the failed stream's tracks leave the list";
}

}  // namespace
