// The player as a host drives it: real media, real tracks and renderer, the host's events in
// order, the queue behaviours, failures handed over, stop and resume, and destruction at
// awkward moments.
#include "EngineThreads.h"
#include "PlayerHarness.h"
#include "RecordingLogger.h"
#include "common/Time.h"
#include "decode/AudioTrack.h"
#include "decode/FFmpeg.h"

#include <gtest/gtest.h>

using namespace oru;
using Events = std::vector<std::string>;

namespace {

// A host data source that gives nothing until opened (then the input ends) or cancelled.
struct GatedSource : AudioPlayer::Resource {
  GatedSource() {
    callbackOpaque = this;
    newDataCallback = [](void* source, uint8_t*, int) {
      static_cast<GatedSource*>(source)->reading.raise();
      static_cast<GatedSource*>(source)->open.wait();
      return AVERROR_EOF;
    };
    cancelCallback = [](void* source) {
      static_cast<GatedSource*>(source)->cancels.raise();
      static_cast<GatedSource*>(source)->open.raise();
    };
  }
  test::Signal reading, open, cancels;
};

struct AudioPlayerTest : ::testing::Test {
  GatedSource source;  // outlives the player, whose tracks call it until they are gone
  test::PlayerHarness harness;
  test::RecordingPlayerListener& listener = harness.listener;
};

TEST_F(AudioPlayerTest, ReplaceAllOfThePlayingTrack_ReusesItAndReplaceEnqueuedKeepsTheHead) {
  harness.device.holdWritesAfter(2);  // keep the track playing
  harness.prepare("tone.flac", "a");
  harness.play("a");
  ASSERT_TRUE(harness.device.waitUntilHolding());
  harness.prepare("tone.flac", "a");
  ASSERT_TRUE(listener.waitFor("trackReady a", 2));
  EXPECT_EQ(harness.device.transcript().find_first_of("ps", 1), std::string::npos)
      << "the same track goes on";
  harness.prepare("ch1-48000.flac", "b", AudioPlayer::ENQUEUE);
  harness.prepare("ch1-48000.flac", "c", AudioPlayer::ENQUEUE);
  harness.prepare("ch2-48000.flac", "d", AudioPlayer::REPLACE_ENQUEUED);
  harness.device.releaseWrites();
  ASSERT_TRUE(listener.waitFor("trackReady d false"));
  harness.play("d");
  ASSERT_TRUE(listener.waitFor("playbackFinished d"));
  EXPECT_EQ(listener.startingWith("trackReady"),
            (Events{"trackReady a false", "trackReady a false", "trackReady d false"}));
}

TEST_F(AudioPlayerTest, Failures_AreReportedWithTheHeadsTokenAndAFailedHeadHandsOver) {
  harness.prepare(source, "bad");
  harness.prepare("not-audio.txt", "broken", AudioPlayer::ENQUEUE);
  harness.prepare("ch2-48000.flac", "good", AudioPlayer::ENQUEUE);
  ASSERT_TRUE(listener.waitFor("playbackFailed broken"));
  ASSERT_TRUE(source.reading.wait());
  source.open.raise();
  ASSERT_TRUE(listener.waitFor("trackReady good"));
  std::string const failure = std::string(" 2 ") + Failure::kDemuxer;
  EXPECT_EQ(listener.entries(),
            (Events{"trackReady bad false", "playbackFailed broken" + failure + " bad 0 0",
                    "playbackFailed bad" + failure + " bad 2 0", "trackReady good true"}));
}

TEST(AudioPlayerModeTest, StopAndPlayAgain_ReportStoppedStartedPausedResumedThenFinished) {
  for (auto mode : {AudioPlayer::TIMESTAMP_STREAM, AudioPlayer::TIMESTAMP_LOCAL,
                    AudioPlayer::TIMESTAMP_COMMON}) {
    test::PlayerHarness harness(mode);
    harness.device.holdWritesAfter(3);
    AudioPlayer::Resource const tone{test::fixture("tone.flac"), ""};
    harness.player.prepare(AudioPlayer::REPLACE_ALL, tone, 500, -1, -1, test::NamedToken("a"), 1);
    harness.play("a", 5 * kNsPerSecond);
    ASSERT_TRUE(harness.device.waitUntilHolding());
    // The play time less the offset is the time of position 0, unless the stream's own timeline
    // is kept.
    EXPECT_EQ(harness.device.writes()[0].timestamp,
              mode == AudioPlayer::TIMESTAMP_STREAM ? 0 : 4500 * kNsPerMs);
    harness.player.stop(false);
    ASSERT_TRUE(harness.listener.waitFor("playbackStopped a"));
    harness.play("a");
    ASSERT_TRUE(harness.listener.waitFor("playbackStarted a", 2));
    harness.player.stop(true);
    ASSERT_TRUE(harness.listener.waitFor("playbackPaused a"));
    harness.play("a");
    ASSERT_TRUE(harness.listener.waitFor("playbackResumed a"));
    harness.device.releaseWrites();
    ASSERT_TRUE(harness.listener.waitFor("playbackFinished a"));
    EXPECT_EQ(harness.listener.names(),
              (Events{"trackReady a", "playbackStarted a", "playbackNearlyFinished a",
                      "playbackStopped a", "playbackStarted a", "playbackNearlyFinished a",
                      "playbackPaused a", "playbackResumed a", "playbackFinished a"}))
        << "mode " << mode;
  }
}

TEST_F(AudioPlayerTest, CommandsOnAnEmptyOrWrongQueue_AreHarmlessAndClearAllStopsTheHead) {
  harness.play("nobody");
  harness.player.stop(false);
  harness.player.setResumeOffset(100);
  harness.player.setProgressReportInterval(250);
  harness.player.clearQueue(AudioPlayer::CLEAR_ENQUEUED);
  harness.device.holdWritesAfter(1);
  harness.prepare("tone.flac", "a");
  harness.prepare("tone.flac", "b", AudioPlayer::ENQUEUE);
  harness.play("b");
  harness.player.setProgressReportInterval(250);
  harness.play("a");
  ASSERT_TRUE(listener.waitFor("playbackStarted a"));
  harness.player.clearQueue(AudioPlayer::CLEAR_ALL);
  ASSERT_TRUE(listener.waitFor("playbackQueueCleared", 2));
  EXPECT_EQ(listener.names(),
            (Events{"playbackQueueCleared", "trackReady a", "progressReportIntervalUpdated a",
                    "playbackStarted a", "playbackNearlyFinished a", "playbackStopped a",
                    "playbackQueueCleared"}));
}

TEST_F(AudioPlayerTest, ProgressAndMetadata_ReachTheHost) {
  harness.prepare("tagged.mka", "a", AudioPlayer::REPLACE_ALL, "", 0, 300);
  harness.play("a");
  ASSERT_TRUE(listener.waitFor("playbackFinished a"));
  EXPECT_EQ(listener.startingWith("progressReportDelayElapsed").size(), 1u);
  Events const metadata = listener.startingWith("streamMetadataExtracted a {");
  ASSERT_EQ(metadata.size(), 1u);
  EXPECT_NE(metadata[0].find("\"ALBUM\":\"The Album\""), std::string::npos) << metadata[0];
  EXPECT_NE(metadata[0].find("\"title\":\"Stream Title\""), std::string::npos) << metadata[0];
}

TEST(AudioPlayerConfigTest, UnusableCapabilitiesOrVersion_FailEveryPrepare) {
  uint32_t rates[] = {44100, 48000};
  AudioFormat formats[] = {PCM_S16};
  struct {
    PlaybackCapabilities caps;
    int version;
    char const* failure;
  } const cases[] = {
      {{nullptr, 0, 48000, PCM_S16, formats, 1, nullptr}, 1, Failure::kNoRate},
      {{rates, 1, 48000, PCM_S16, formats, 1, nullptr}, 1, Failure::kNoRate},
      {{rates, 2, 48000, PCM_S16, nullptr, 0, nullptr}, 1, Failure::kNoFormat},
      {{rates, 2, 48000, PCM_FLOAT, formats, 1, nullptr}, 1, Failure::kNoPlaybackFormat},
      {{rates, 2, 48000, -1, formats, 1, nullptr}, -1, Failure::kVersion},
      {{rates, 2, 48000, -1, formats, 1, nullptr}, 2, Failure::kVersion},
      {{rates, 2, 48000, -1, formats, 1, nullptr}, 1, nullptr}};
  for (auto const& c : cases) {
    test::ScriptedDevice device;
    device.caps = c.caps;
    test::RecordingLogger logger;
    test::RecordingPlayerListener listener;
    AudioPlayer player(&listener, &device, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    rates[1] = 0;  // the player keeps a copy of what it was told
    player.prepare(AudioPlayer::REPLACE_ALL, {}, 0, -1, -1, test::NamedToken("t"), c.version);
    ASSERT_TRUE(listener.waitFor(c.failure ? "playbackFailed" : "trackReady"));
    EXPECT_EQ(listener.entries()[0], c.failure
                                         ? "playbackFailed t 4 " + std::string(c.failure) + " t 2 0"
                                         : "trackReady t false");
    EXPECT_EQ(logger.logged("supportedRates are empty"), c.caps.supportedRates == nullptr);
    rates[1] = 48000;
  }
}

// Destroying a player returns, and leaves no thread of the engine running, in every state.
TEST(AudioPlayerDestructionTest, InAnyState_ReturnsAndLeavesNoEngineThread) {
  enum Moment { kPlaying, kPrebuffering, kDataCallbackBlocks, kCommandsPosted };
  std::vector<Moment> moments{kPlaying, kPrebuffering, kDataCallbackBlocks};
  moments.insert(moments.end(), 20, kCommandsPosted);  // a race: give it many chances
  for (Moment moment : moments) {
    GatedSource source;
    test::RecordingLogger logger;  // a stop is no failure: it logs no error
    {
      test::PlayerHarness harness;
      if (moment == kPlaying) {
        harness.device.holdWritesAfter(0);
      }
      if (moment == kDataCallbackBlocks) {
        harness.prepare(source, "a");
      } else {
        harness.prepare("tone.flac", "a");
      }
      harness.prepare("tone.flac", "b", AudioPlayer::ENQUEUE);
      if (moment == kPlaying || moment == kCommandsPosted) {
        harness.play("a");  // handlers posted just before destruction must not touch what it stops
      }
      ASSERT_TRUE(moment == kDataCallbackBlocks ? source.reading.wait()
                  : moment == kPlaying          ? harness.device.waitUntilHolding()
                  : moment == kPrebuffering     ? harness.listener.waitFor("trackReady a")
                                                : true);
    }
    EXPECT_TRUE(test::engineThreadsEnded()) << test::engineThreads() << " left at " << moment;
    EXPECT_EQ(source.cancels.entries().size(), moment == kDataCallbackBlocks ? 1u : 0u);
    EXPECT_TRUE(logger.errors().empty()) << testing::PrintToString(logger.errors());
  }
}

}  // namespace
