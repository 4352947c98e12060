// The player as a host drives it: real media, real tracks and renderer, the host's events in
// order, the queue behaviours, failures handed over, stop and resume, and destruction at
// awkward moments.
#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingLogger.h"
#include "RecordingPlayerListener.h"
#include "ScriptedDevice.h"
#include "SettableClock.h"
#include "ThreadCount.h"
#include "TimestampModes.h"
#include "WaitFor.h"
#include "decode/FFmpeg.h"
#include "player/AudioPlayerImpl.h"

#include <oru/AudioPlayer.h>
#include <oru/host/NullOutput.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace oru {
namespace {

using test::NamedToken;

AudioPlayer::Resource media(std::string const& name) {
  AudioPlayer::Resource resource;
  resource.uri = test::fixture(name);
  return resource;
}

// "playbackStarted a 0" -> "playbackStarted a"; metadata events are left out.
std::vector<std::string> withoutPositions(std::vector<std::string> const& events) {
  std::vector<std::string> result;
  for (std::string const& event : events) {
    std::istringstream words(event);
    std::string name;
    std::string token;
    words >> name >> token;
    if (name != "streamMetadataExtracted") {
      result.push_back(token.empty() ? name : name + " " + token);
    }
  }
  return result;
}

bool contains(std::vector<std::string> const& events, std::string const& prefix) {
  for (std::string const& event : events) {
    if (event.rfind(prefix, 0) == 0) {
      return true;
    }
  }
  return false;
}

// A data source that delivers nothing until released, then ends (so the input cannot be
// opened) or, if cancelled first, stops.
struct GatedSource {
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
  bool reading = false;
  int cancels = 0;

  static int read(void* opaque, uint8_t*, int) {
    auto* source = static_cast<GatedSource*>(opaque);
    std::unique_lock<std::mutex> lock(source->mutex);
    source->reading = true;
    source->changed.notify_all();
    source->changed.wait(lock, [source] { return source->open; });
    return AVERROR_EOF;
  }
  static void cancel(void* opaque) {
    auto* source = static_cast<GatedSource*>(opaque);
    std::lock_guard<std::mutex> lock(source->mutex);
    ++source->cancels;
    source->open = true;
    source->changed.notify_all();
  }
  void release() {
    std::lock_guard<std::mutex> lock(mutex);
    open = true;
    changed.notify_all();
  }
  bool waitUntilReading() {
    std::unique_lock<std::mutex> lock(mutex);
    return test::waitFor(lock, changed, [this] { return reading; });
  }
  AudioPlayer::Resource resource() {
    AudioPlayer::Resource gated;
    gated.newDataCallback = &GatedSource::read;
    gated.cancelCallback = &GatedSource::cancel;
    gated.callbackOpaque = this;
    return gated;
  }
};

class AudioPlayerTest : public ::testing::Test {
 protected:
  void start(AudioPlayer::TimestampMode mode = AudioPlayer::TIMESTAMP_STREAM) {
    player = std::make_unique<AudioPlayer>(&listener, &device, &clock, mode, nullptr);
  }
  void TearDown() override {
    device.releaseWrites();  // a held write would keep the renderer from stopping
    player.reset();
  }

  void prepare(AudioPlayer::PlayBehavior behavior, AudioPlayer::Resource const& resource,
               std::string const& token, unsigned offsetMs = 0, int delayMs = -1,
               int intervalMs = -1) {
    player->prepare(behavior, resource, offsetMs, delayMs, intervalMs, NamedToken(token), 1);
  }
  void play(std::string const& token) { player->play(NamedToken(token), 0); }

  test::RecordingLogger logger;
  test::RecordingPlayerListener listener;
  test::ScriptedDevice device;
  test::SettableClock clock;
  GatedSource source;  // outlives the player, whose tracks call it until they are gone
  std::unique_ptr<AudioPlayer> player;
};

TEST_F(AudioPlayerTest, QueueOfThreeFormats_PlaysBackToBackWithEventsInOrder) {
  start();
  // A host that plays whatever is ready and enqueues the next input as soon as it may.
  std::map<std::string, std::pair<std::string, std::string>> const next{{"a", {"b", "tone.mp3"}},
                                                                        {"b", {"c", "tone.ogg"}}};
  listener.setHook([&](std::string const& event) {
    std::istringstream words(event);
    std::string name;
    std::string token;
    words >> name >> token;
    if (name == "trackReady") {
      play(token);
    } else if (name == "playbackNearlyFinished" && next.count(token) != 0) {
      prepare(AudioPlayer::ENQUEUE, media(next.at(token).second), next.at(token).first);
    }
  });
  prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), "a");

  ASSERT_TRUE(listener.waitFor("playbackFinished c"));
  std::vector<std::string> expected;
  for (std::string token : {"a", "b", "c"}) {
    for (std::string name :
         {"trackReady", "playbackStarted", "playbackNearlyFinished", "playbackFinished"}) {
      expected.push_back(name + " " + token);
    }
  }
  EXPECT_EQ(withoutPositions(listener.events()), expected);
  EXPECT_NEAR(device.writtenFrames(), 3 * 72000, 3 * 40);
  std::string const finished = listener.eventsStartingWith("playbackFinished a ").at(0);
  EXPECT_NEAR(std::stoi(finished.substr(std::string("playbackFinished a ").size())), 1500, 20);
}

TEST_F(AudioPlayerTest, Enqueue_AnnouncesOnlyTheHeadAndTheNextOnceTheHeadFinished) {
  start();
  prepare(AudioPlayer::ENQUEUE, media("ch2-48000.flac"), "a");
  prepare(AudioPlayer::ENQUEUE, media("ch1-48000.flac"), "b");
  ASSERT_TRUE(listener.waitFor("trackReady a false"));
  play("a");

  ASSERT_TRUE(listener.waitFor("trackReady b false"));
  auto const events = withoutPositions(listener.events());
  auto const finishedA = std::find(events.begin(), events.end(), "playbackFinished a");
  auto const readyB = std::find(events.begin(), events.end(), "trackReady b");
  EXPECT_LT(finishedA, readyB);
}

TEST_F(AudioPlayerTest, ReplaceAllWithThePlayingTracksTokenAndUri_ReusesIt) {
  start();
  device.holdWritesAfter(2);  // keep the track playing
  prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), "a");
  ASSERT_TRUE(listener.waitFor("trackReady a"));
  play("a");
  ASSERT_TRUE(listener.waitFor("playbackStarted a"));
  ASSERT_TRUE(device.waitUntilHolding());

  prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), "a", 500);
  ASSERT_TRUE(listener.waitUntil([](auto const& events) {
    return std::count_if(events.begin(), events.end(),
                         [](auto const& e) { return e.rfind("trackReady a", 0) == 0; }) == 2;
  }));
  EXPECT_TRUE(logger.contains(LOG_INFO, "AudioPlayer", "Reusing existing track"));
  EXPECT_FALSE(contains(listener.events(), "playbackStopped"));
  auto const kinds = device.kinds();
  EXPECT_EQ(std::count(kinds.begin(), kinds.end(), test::ScriptedDevice::kStart), 1)
      << "the same track goes on";
}

TEST_F(AudioPlayerTest, ReplaceEnqueued_KeepsTheHeadAndPutsTheNewTrackBehindIt) {
  start();
  for (char const* token : {"a", "b", "c"}) {
    prepare(AudioPlayer::ENQUEUE, media("ch1-48000.flac"), token);
  }
  prepare(AudioPlayer::REPLACE_ENQUEUED, media("ch2-48000.flac"), "d");
  ASSERT_TRUE(listener.waitFor("trackReady a"));
  play("a");
  ASSERT_TRUE(listener.waitFor("trackReady d false"));
  play("d");

  ASSERT_TRUE(listener.waitFor("playbackFinished d"));
  auto const events = withoutPositions(listener.events());
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](auto const& e) { return e.rfind("trackReady", 0) == 0; }),
            2);
  EXPECT_FALSE(contains(listener.events(), "trackReady b"));
  EXPECT_FALSE(contains(listener.events(), "trackReady c"));
}

TEST_F(AudioPlayerTest, FailingHead_HandsOverToTheNextWithTrackReadyAfterFailure) {
  start();
  prepare(AudioPlayer::REPLACE_ALL, source.resource(), "bad");
  prepare(AudioPlayer::ENQUEUE, media("ch2-48000.flac"), "good");
  ASSERT_TRUE(listener.waitFor("trackReady bad false"));
  ASSERT_TRUE(source.waitUntilReading());
  source.release();

  ASSERT_TRUE(listener.waitFor("trackReady good"));
  EXPECT_EQ(withoutPositions(listener.events()),
            (std::vector<std::string>{"trackReady bad", "playbackFailed bad", "trackReady good"}));
  EXPECT_EQ(listener.eventsStartingWith("playbackFailed")[0],
            "playbackFailed bad 2 Failed to create demuxer  bad 2 0");
  EXPECT_EQ(listener.eventsStartingWith("trackReady good")[0], "trackReady good true");
}

TEST_F(AudioPlayerTest, FailingTrackBehindTheHead_IsReportedWithTheHeadsToken) {
  start();
  prepare(AudioPlayer::REPLACE_ALL, media("ch2-48000.flac"), "head");
  prepare(AudioPlayer::ENQUEUE, media("not-audio.txt"), "broken");

  ASSERT_TRUE(listener.waitFor("playbackFailed broken"));
  EXPECT_EQ(listener.eventsStartingWith("playbackFailed")[0],
            "playbackFailed broken 2 Failed to create demuxer  head 0 0");
  play("head");
  ASSERT_TRUE(listener.waitFor("playbackFinished head"));
  EXPECT_FALSE(contains(listener.events(), "trackReady broken"));
}

class AudioPlayerModeTest : public AudioPlayerTest,
                            public ::testing::WithParamInterface<AudioPlayer::TimestampMode> {};

TEST_P(AudioPlayerModeTest, StopAndPlayAgain_ReportStoppedStartedPausedResumedThenFinished) {
  start(GetParam());
  device.holdWritesAfter(3);
  prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), "a");
  ASSERT_TRUE(listener.waitFor("trackReady a"));
  play("a");
  ASSERT_TRUE(device.waitUntilHolding());

  player->stop(false);
  ASSERT_TRUE(listener.waitFor("playbackStopped a"));
  play("a");
  ASSERT_TRUE(listener.waitUntil([](auto const& events) {
    return std::count_if(events.begin(), events.end(),
                         [](auto const& e) { return e.rfind("playbackStarted a", 0) == 0; }) == 2;
  }));
  player->stop(true);
  ASSERT_TRUE(listener.waitFor("playbackPaused a"));
  play("a");
  ASSERT_TRUE(listener.waitFor("playbackResumed a"));
  device.releaseWrites();

  ASSERT_TRUE(listener.waitFor("playbackFinished a"));
  EXPECT_EQ(withoutPositions(listener.events()),
            (std::vector<std::string>{
                "trackReady a", "playbackStarted a", "playbackNearlyFinished a",
                "playbackStopped a", "playbackStarted a", "playbackNearlyFinished a",
                "playbackPaused a", "playbackResumed a", "playbackFinished a"}));
}

INSTANTIATE_TEST_SUITE_P(AllModes, AudioPlayerModeTest, test::allTimestampModes(),
                         test::timestampModeName);

TEST_F(AudioPlayerTest, CommandsOnAnEmptyOrWrongQueue_AreHarmless) {
  start();
  play("nobody");
  player->stop(false);
  player->setResumeOffset(100);
  player->setProgressReportInterval(250);
  player->clearQueue(AudioPlayer::CLEAR_ENQUEUED);
  ASSERT_TRUE(listener.waitFor("playbackQueueCleared"));
  EXPECT_EQ(listener.events(), std::vector<std::string>{"playbackQueueCleared"});
  EXPECT_TRUE(logger.contains(LOG_ERROR, "AudioPlayer", "Cannot play: the queue is empty"));

  prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), "a");
  play("b");
  player->setProgressReportInterval(250);
  ASSERT_TRUE(listener.waitFor("progressReportIntervalUpdated a 250 0"));
  EXPECT_TRUE(
      logger.contains(LOG_ERROR, "AudioPlayer", "Cannot play: expected token 'a', got 'b'"));
  EXPECT_FALSE(contains(listener.events(), "playbackStarted"));
}

TEST_F(AudioPlayerTest, ClearAll_StopsTheHeadAndDropsEverything) {
  start();
  device.holdWritesAfter(1);
  prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), "a");
  prepare(AudioPlayer::ENQUEUE, media("tone.flac"), "b");
  ASSERT_TRUE(listener.waitFor("trackReady a"));
  play("a");
  ASSERT_TRUE(listener.waitFor("playbackStarted a"));
  player->clearQueue(AudioPlayer::CLEAR_ALL);

  ASSERT_TRUE(listener.waitFor("playbackQueueCleared"));
  auto const events = withoutPositions(listener.events());
  EXPECT_EQ(std::vector<std::string>(events.end() - 2, events.end()),
            (std::vector<std::string>{"playbackStopped a", "playbackQueueCleared"}));
  EXPECT_FALSE(contains(listener.events(), "trackReady b"));
}

TEST_F(AudioPlayerTest, ProgressAndMetadata_ReachTheHost) {
  start();
  prepare(AudioPlayer::REPLACE_ALL, media("tagged.mka"), "a", 0, 0, 300);
  ASSERT_TRUE(listener.waitFor("trackReady a"));
  play("a");

  ASSERT_TRUE(listener.waitFor("playbackFinished a"));
  EXPECT_EQ(listener.eventsStartingWith("progressReportDelayElapsed").size(), 1u);
  EXPECT_GE(listener.eventsStartingWith("progressReportIntervalElapsed a").size(), 3u);
  auto const metadata = listener.eventsStartingWith("streamMetadataExtracted a {");
  ASSERT_EQ(metadata.size(), 1u);
  EXPECT_NE(metadata[0].find("\"ALBUM\":\"The Album\""), std::string::npos) << metadata[0];
  EXPECT_NE(metadata[0].find("\"title\":\"Stream Title\""), std::string::npos) << metadata[0];
}

TEST(MetadataTextTest, KeysInOrderWithValuesUnescaped) {
  EXPECT_EQ(AudioPlayer::Impl::metadataToText({}), "{}");
  EXPECT_EQ(AudioPlayer::Impl::metadataToText({{"title", "Say \"Hi\""}, {"artist", "A"}}),
            "{\"artist\":\"A\",\"title\":\"Say \"Hi\"\"}");
}

// A device whose capabilities the test sets.
class ConfiguredDevice : public test::ScriptedDevice {
 public:
  PlaybackCapabilities getPlaybackConfig() override { return caps; }
  PlaybackCapabilities caps;
};

TEST(AudioPlayerConfigTest, UnusableCapabilitiesOrVersion_FailEveryPrepare) {
  uint32_t const rate = 48000;
  uint32_t const otherRate = 44100;
  AudioFormat const s16 = PCM_S16;
  struct Case {
    PlaybackCapabilities caps;
    int version;
    std::string failure;
  };
  std::vector<Case> const cases{
      {{nullptr, 0, 48000, PCM_S16, &s16, 1, nullptr}, 1, "HW did not report playback rate"},
      {{&otherRate, 1, 48000, PCM_S16, &s16, 1, nullptr}, 1, "HW did not report playback rate"},
      {{&rate, 1, 48000, PCM_S16, nullptr, 0, nullptr}, 1, "HW did not support any audio formats"},
      {{&rate, 1, 48000, PCM_FLOAT, &s16, 1, nullptr}, 1, "HW did not support playback formats"},
      {{&rate, 1, 48000, -1, &s16, 1, nullptr}, -1, "Invalid player version provided"},
      {{&rate, 1, 48000, -1, &s16, 1, nullptr}, 2, "Invalid player version provided"},
  };
  for (Case const& failure : cases) {
    test::RecordingPlayerListener listener;
    ConfiguredDevice device;
    device.caps = failure.caps;
    AudioPlayer player(&listener, &device, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    int min = 0;
    int max = 0;
    player.getSupportedVersions(&min, &max);
    EXPECT_EQ(min, 1);
    EXPECT_EQ(max, 1);
    player.prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), 0, -1, -1, NamedToken("t"),
                   failure.version);
    ASSERT_TRUE(listener.waitFor("playbackFailed"));
    EXPECT_EQ(listener.events(),
              std::vector<std::string>{"playbackFailed t 4 " + failure.failure + " t 2 0"});
  }
}

class AudioPlayerDestructionTest : public ::testing::Test {
 protected:
  AudioPlayerDestructionTest() {
    // Let the runtime start what it starts once before counting threads.
    host::NullOutput output(host::NullOutput::kUnpaced);
    AudioPlayer warmUp(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
  }

  test::RecordingPlayerListener listener;
};

TEST_F(AudioPlayerDestructionTest, WhilePlaying_ReturnsAndLeavesNoThread) {
  int const before = test::threadCount();
  host::NullOutput output(host::NullOutput::kRealTime);
  {
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    player.prepare(AudioPlayer::REPLACE_ALL, media("tone.flac"), 0, -1, -1, NamedToken("a"), 1);
    ASSERT_TRUE(listener.waitFor("trackReady a"));
    player.play(NamedToken("a"), 0);
    ASSERT_TRUE(listener.waitFor("playbackStarted a"));
  }
  EXPECT_EQ(test::threadCount(), before);
  EXPECT_FALSE(contains(listener.events(), "playbackFinished")) << "destroyed mid-track";
}

TEST_F(AudioPlayerDestructionTest, WhileATrackPrebuffers_ReturnsAndLeavesNoThread) {
  int const before = test::threadCount();
  host::NullOutput output(host::NullOutput::kRealTime);
  {
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    player.prepare(AudioPlayer::REPLACE_ALL, media("tone.wav"), 0, -1, -1, NamedToken("a"), 1);
    player.prepare(AudioPlayer::ENQUEUE, media("tone.mp3"), 0, -1, -1, NamedToken("b"), 1);
    ASSERT_TRUE(listener.waitFor("trackReady a"));
  }
  EXPECT_EQ(test::threadCount(), before);
}

TEST_F(AudioPlayerDestructionTest, WhileADataCallbackBlocks_CancelsItAndLeavesNoThread) {
  int const before = test::threadCount();
  host::NullOutput output(host::NullOutput::kRealTime);
  GatedSource source;
  {
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    player.prepare(AudioPlayer::REPLACE_ALL, source.resource(), 0, -1, -1, NamedToken("a"), 1);
    ASSERT_TRUE(source.waitUntilReading());
  }
  EXPECT_EQ(test::threadCount(), before);
  EXPECT_EQ(source.cancels, 1);
}

TEST_F(AudioPlayerDestructionTest, CommandsPostedJustBeforeDestruction_RunSafely) {
  // Handlers posted before destruction run while it goes on; they must not touch what
  // destruction has already stopped.
  host::NullOutput output(host::NullOutput::kUnpaced);
  for (int i = 0; i < 40; ++i) {
    AudioPlayer player(&listener, &output, nullptr, AudioPlayer::TIMESTAMP_STREAM, nullptr);
    player.prepare(AudioPlayer::REPLACE_ALL, media("ch1-48000.flac"), 0, -1, -1, NamedToken("a"),
                   1);
    player.play(NamedToken("a"), 0);
  }
  EXPECT_FALSE(contains(listener.events(), "playbackFailed"));
}

}  // namespace
}  // namespace oru
