// The gapless layer: logical tracks over physical streams, the list rules of prepare, state
// events and their offsets, and every physical event translated into the host's terms.
#include <oru/GaplessPlayer.h>

#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingLogger.h"
#include "RecordingPlayerListener.h"
#include "ScriptedDevice.h"
#include "SettableClock.h"
#include "gapless/AudioPlayerListener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <sstream>

namespace oru {
namespace {

using test::NamedToken;
using State = GaplessPlayer::GaplessState;

// Records what the gapless player asks the host to update; counts its own destruction.
class RecordingTokenDelegate : public GaplessPlayer::TrackTokenDelegate {
 public:
  explicit RecordingTokenDelegate(std::atomic<int>* destroyed) : mDestroyed(destroyed) {}
  ~RecordingTokenDelegate() override { ++*mDestroyed; }
  void updateTrackToken(AudioPlayer::Token* stored, AudioPlayer::Token const& requested) override {
    std::lock_guard<std::mutex> lock(mMutex);
    updates.push_back(stored->toString() + "<-" + requested.toString());
  }
  std::vector<std::string> recorded() {
    std::lock_guard<std::mutex> lock(mMutex);
    return updates;
  }

 private:
  std::mutex mMutex;
  std::vector<std::string> updates;
  std::atomic<int>* mDestroyed;
};

class CountedListener : public test::RecordingPlayerListener {
 public:
  explicit CountedListener(std::atomic<int>* destroyed) : mDestroyed(destroyed) {}
  ~CountedListener() override { ++*mDestroyed; }

 private:
  std::atomic<int>* mDestroyed;
};

class GaplessPlayerTest : public ::testing::Test {
 protected:
  GaplessPlayerTest()
      : events(new CountedListener(&destroyed)),
        tokens(new RecordingTokenDelegate(&destroyed)),
        player(std::make_unique<GaplessPlayer>(events, &device, &clock, tokens,
                                               AudioPlayer::TIMESTAMP_STREAM, nullptr)) {}

  void prepare(std::string const& trackId, AudioPlayer::PlayBehavior behavior,
               std::string const& file, std::string const& token, unsigned startPosition = 0,
               int intervalMs = -1) {
    AudioPlayer::Resource resource;
    resource.uri = test::fixture(file);
    player->prepare(trackId, behavior, resource, startPosition, -1, intervalMs, NamedToken(token),
                    1);
  }
  void state(int type, std::string const& trackId, int64_t offsetMs) {
    player->onGaplessInfoEvent({type, test::fixture("album.flac"), trackId, offsetMs});
  }
  std::unique_ptr<GaplessLogicalTrack> track(std::string const& token) const {
    return player->getCurrentLogicalTrackFromLogicalToken(NamedToken(token));
  }
  int linesContaining(std::string const& text) const {
    auto const lines = logger.lines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](auto const& line) {
      return line.message.find(text) != std::string::npos;
    }));
  }
  PhysicalToken album() const { return PhysicalToken(test::fixture("album.flac")); }

  // Logical tracks a and b on the album, b starting where a ends; the stream has started, so
  // a has too.
  void startAlbumWithTrackChangeAt(int64_t offsetMs) {
    prepare("A", AudioPlayer::REPLACE_ALL, "album.flac", "a");
    prepare("B", AudioPlayer::ENQUEUE, "album.flac", "b");
    ASSERT_TRUE(events->waitFor("trackReady a"));
    state(State::TRACK_END, "A", offsetMs);
    state(State::TRACK_START, "B", offsetMs);
    player->onPhysicalStreamStarted(album(), 0);
  }

  test::RecordingLogger logger;
  test::ScriptedDevice device;
  test::SettableClock clock;
  std::atomic<int> destroyed{0};
  CountedListener* events;         // owned by the player
  RecordingTokenDelegate* tokens;  // owned by the player
  std::unique_ptr<GaplessPlayer> player;
};

TEST_F(GaplessPlayerTest, TwoTracksEnqueuedOnOneStream_OpenItOnceAndShareItsToken) {
  prepare("1", AudioPlayer::ENQUEUE, "album.flac", "a");
  prepare("2", AudioPlayer::ENQUEUE, "album.flac", "b");
  ASSERT_TRUE(events->waitFor("trackReady a false"));

  EXPECT_EQ(linesContaining("handlePrepare behavior: "), 1);
  ASSERT_TRUE(track("a") && track("b"));
  EXPECT_EQ(track("a")->physicalToken->compare(*track("b")->physicalToken), 0);
  EXPECT_EQ(track("b")->physicalToken->compare(album()), 0);
  EXPECT_EQ(track("b")->startOffsetMs, GaplessLogicalTrack::kOffsetUnset);
}

TEST_F(GaplessPlayerTest, EarlyStart_IsKeptAndReplayedWhileAnEarlyEndIsLost) {
  // After the REPLACE_ALL: a REPLACE_ALL prepare drops pending states.
  prepare("1", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  state(State::TRACK_START, "2", 1000);
  state(State::TRACK_END, "2", 2000);
  EXPECT_EQ(linesContaining("onGaplessInfoEvent No logical track to apply this state change to"),
            1);
  prepare("2", AudioPlayer::ENQUEUE, "album.flac", "b");

  EXPECT_EQ(linesContaining("addTrackToLogicalTrackList replay 1 GaplessState events"), 1);
  ASSERT_TRUE(track("b"));
  EXPECT_EQ(track("b")->startOffsetMs, 1000);
  EXPECT_EQ(track("b")->endOffsetMs, GaplessLogicalTrack::kOffsetUnset);
}

TEST_F(GaplessPlayerTest, ProgressReports_FinishAndStartLogicalTracksOnlyPastTheirOffsets) {
  ASSERT_NO_FATAL_FAILURE(startAlbumWithTrackChangeAt(200000));
  ASSERT_TRUE(track("a")->started);

  player->onReportIntervalElapsed(200000);
  EXPECT_EQ(events->events(), std::vector<std::string>{"trackReady a false"});
  player->onReportIntervalElapsed(200001);
  EXPECT_EQ(events->events(),
            (std::vector<std::string>{"trackReady a false", "playbackFinished a 200000",
                                      "playbackStarted b 0", "playbackNearlyFinished b 0"}));
  EXPECT_FALSE(track("a"));
  EXPECT_TRUE(track("b")->started);

  player->onReportIntervalElapsed(999999999);
  EXPECT_EQ(events->events().size(), 4u) << "a track without an end never finishes here";
}

TEST_F(GaplessPlayerTest, ReplaceAllOfThePlayingTrack_ResumesItAtTheTranslatedPosition) {
  ASSERT_NO_FATAL_FAILURE(startAlbumWithTrackChangeAt(180000));
  player->onReportIntervalElapsed(180001);
  ASSERT_TRUE(track("b")->started);

  prepare("B", AudioPlayer::REPLACE_ALL, "album.flac", "b-again", 5000);
  ASSERT_TRUE(events->waitUntil(
      [](auto const& e) { return std::count(e.begin(), e.end(), "trackReady b false") == 1; }));
  EXPECT_EQ(tokens->recorded(), std::vector<std::string>{"b<-b-again"});
  EXPECT_EQ(linesContaining("prepare resume identified trackId: B"), 1);
  EXPECT_EQ(linesContaining("token: " + test::fixture("album.flac") + " offsetMs: 185000"), 1)
      << "the base player reopens the stream 5000 ms into the logical track";
  EXPECT_EQ(linesContaining("addTrackToLogicalTrackList Adding in list, trackId: B"), 1)
      << "no new entry";
}

TEST_F(GaplessPlayerTest, ReplaceAllOfAnotherTrackOnTheHeadsStream_DropsTheEnqueuedOnes) {
  prepare("A", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  prepare("C", AudioPlayer::ENQUEUE, "tone.flac", "c");
  ASSERT_TRUE(events->waitFor("trackReady a"));
  prepare("D", AudioPlayer::REPLACE_ALL, "album.flac", "d");
  // The base player reopens the stream and announces it again, on its first logical track.
  ASSERT_TRUE(events->waitUntil(
      [](auto const& e) { return std::count(e.begin(), e.end(), "trackReady a false") == 2; }));

  EXPECT_FALSE(track("c"));
  ASSERT_TRUE(track("a") && track("d"));
  EXPECT_EQ(track("d")->physicalToken->compare(album()), 0);
  EXPECT_EQ(linesContaining("handlePrepare behavior: "), 3) << "REPLACE_ALL always prepares";
}

TEST_F(GaplessPlayerTest, Enqueue_DuplicatesAreFoundBehindTheHeadOnly) {
  prepare("1", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  prepare("1", AudioPlayer::ENQUEUE, "album.flac", "a-again");
  EXPECT_TRUE(track("a-again")) << "the head is never taken for a duplicate";
  EXPECT_TRUE(tokens->recorded().empty());

  prepare("1", AudioPlayer::ENQUEUE, "album.flac", "a-third");
  EXPECT_FALSE(track("a-third"));
  EXPECT_EQ(tokens->recorded(), std::vector<std::string>{"a-again<-a-third"});
  EXPECT_EQ(linesContaining("prepare not adding trackId: 1, streamUrl: "), 1);
}

TEST_F(GaplessPlayerTest, ClearQueue_KeepsTheHeadAndDropsPendingStates) {
  prepare("1", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  prepare("2", AudioPlayer::ENQUEUE, "album.flac", "b");
  state(State::TRACK_START, "9", 5);
  player->clearQueue(AudioPlayer::CLEAR_ENQUEUED);
  prepare("9", AudioPlayer::ENQUEUE, "album.flac", "i");

  EXPECT_TRUE(track("a"));
  EXPECT_FALSE(track("b"));
  EXPECT_EQ(track("i")->startOffsetMs, GaplessLogicalTrack::kOffsetUnset);
  EXPECT_EQ(linesContaining(" replay "), 0);
  EXPECT_EQ(linesContaining("clearQueue behavior: 0"), 1);
}

TEST_F(GaplessPlayerTest, UnknownStateTypesAndTokens_AreOnlyLogged) {
  prepare("1", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  player->onGaplessInfoEvent({2, "http://10.0.0.9/x", "1", 7});
  player->play(NamedToken("nobody"), 0);

  EXPECT_EQ(track("a")->startOffsetMs, GaplessLogicalTrack::kOffsetUnset);
  EXPECT_EQ(linesContaining("onGaplessInfoEvent Gapless State Info : stateType:2, "
                            "streamUrl:http://xxx/x, trackId: 1, offsetMs: 7"),
            1);
  EXPECT_EQ(linesContaining("play Can't start playback for the token: nobody as no logical "
                            "track found in logical track list!"),
            1);
}

TEST_F(GaplessPlayerTest, RemovingTracksBeforeAStreamNoEntryHas_EmptiesTheList) {
  prepare("1", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  prepare("2", AudioPlayer::ENQUEUE, "tone.flac", "b");
  ASSERT_TRUE(events->waitFor("trackReady a"));
  player->removeTracksBeforeStream(PhysicalToken("nowhere"));
  EXPECT_FALSE(track("a"));
  EXPECT_FALSE(track("b"));
}

TEST_F(GaplessPlayerTest, Destruction_DeletesTheHostsListenerAndTokenDelegate) {
  prepare("1", AudioPlayer::REPLACE_ALL, "album.flac", "a");
  player.reset();
  EXPECT_EQ(destroyed, 2);
}

// The translation of physical events, driven by hand against a gapless player's list.
class EventTranslationTest : public GaplessPlayerTest {
 protected:
  EventTranslationTest() : host(new test::RecordingPlayerListener), translator(host, player.get()) {
    prepare("A", AudioPlayer::REPLACE_ALL, "album.flac", "a");
    prepare("B", AudioPlayer::ENQUEUE, "album.flac", "b");
    EXPECT_TRUE(events->waitFor("trackReady a"));
  }

  test::RecordingPlayerListener* host;  // owned by the translator
  AudioPlayerListener translator;
};

TEST_F(EventTranslationTest, StreamStartOnAFreshHead_IsTheLogicalStartAtZero) {
  translator.playbackStarted(album(), 0);
  EXPECT_EQ(host->events(), std::vector<std::string>{"playbackStarted a 0"});
  EXPECT_EQ(track("a")->startOffsetMs, 0);
  EXPECT_TRUE(track("a")->started);
}

TEST_F(EventTranslationTest, EventsAfterTheFirstTrackEnded_GoToTheNextAtItsOwnPosition) {
  state(State::TRACK_END, "A", 200000);
  state(State::TRACK_START, "B", 200000);
  translator.playbackStarted(album(), 0);
  player->onReportIntervalElapsed(200001);
  translator.playbackPaused(album(), 250000);
  translator.playbackResumed(album(), 150000);

  EXPECT_EQ(host->eventsStartingWith("playbackPaused"),
            std::vector<std::string>{"playbackPaused b 50000"});
  EXPECT_EQ(host->eventsStartingWith("playbackResumed"),
            std::vector<std::string>{"playbackResumed b 4294917296"})
      << "a position before the track's start wraps";
}

TEST_F(EventTranslationTest, StreamFinished_IsReportedOnItsFirstTrackThenAllItsTracksGo) {
  state(State::TRACK_START, "A", 0);
  translator.playbackFinished(album(), 3000);
  EXPECT_EQ(host->events(), std::vector<std::string>{"playbackFinished a 3000"});
  EXPECT_FALSE(track("a"));
  EXPECT_FALSE(track("b"));
}

TEST_F(EventTranslationTest, FailureOfAStreamWithoutTracks_ReachesNeitherHostNorList) {
  translator.playbackFailed(PhysicalToken("elsewhere"), AudioPlayer::MEDIA_ERROR_FORMAT, "boom",
                            album(), AudioPlayer::STATE_PLAYING, 10);
  EXPECT_TRUE(host->events().empty());
  EXPECT_EQ(linesContaining("playbackFailed No failed logical token for physical token: elsewhere"),
            1);
  EXPECT_TRUE(track("a") && track("b"));

  translator.playbackFailed(album(), AudioPlayer::MEDIA_ERROR_FORMAT, "boom", album(),
                            AudioPlayer::STATE_STOPPED, 0);
  // 0 less the unset start offset (all ones) wraps to 1.
  EXPECT_EQ(host->events(), std::vector<std::string>{"playbackFailed a 2 boom a 2 1"});
  EXPECT_FALSE(track("a"));
}

TEST_F(EventTranslationTest, EventsOfAStreamWithoutTracks_AreDropped) {
  translator.playbackStopped(PhysicalToken("elsewhere"), 5);
  translator.progressReportIntervalElapsed(PhysicalToken("elsewhere"), 5);
  translator.playbackQueueCleared();
  EXPECT_EQ(host->events(), std::vector<std::string>{"playbackQueueCleared"});
  EXPECT_EQ(linesContaining("playbackStopped No logical token for physical token: elsewhere"), 1);
  EXPECT_EQ(linesContaining("progressReportIntervalElapsed No logical token"), 0);
}

TEST(GaplessPositionTest, PositionsBeforeTheStartOffsetWrap) {
  AudioPlayerListener translator(nullptr, nullptr);
  auto track = std::make_unique<GaplessLogicalTrack>(std::make_unique<NamedToken>("t"), "1", "u",
                                                     std::make_unique<PhysicalToken>("u"));
  track->startOffsetMs = 1000;
  EXPECT_EQ(translator.fromLogicalTrack(track, 500).first, 4294966796u);
  EXPECT_EQ(translator.fromLogicalTrack(track, 1500).first, 500u);
  EXPECT_EQ(translator.fromLogicalTrack(nullptr, 1500),
            (std::pair<unsigned, AudioPlayer::Token*>{1500u, nullptr}));
}

}  // namespace
}  // namespace oru
