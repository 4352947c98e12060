#include "render/AudioRenderer.h"

#include "PlayerHarness.h"
#include "RecordingLogger.h"
#include "ScriptedDevice.h"
#include "ScriptedTrack.h"

#include <gtest/gtest.h>

using namespace oru;
using test::Ramp;
using test::ScriptedTrack;
using ::testing::NiceMock;
using ::testing::Return;

namespace {

constexpr int64_t kSecond = kNsPerSecond;
constexpr int64_t kClockOffset = 5000000;  // local = common + 5 ms
Ramp const kStereo16{PCM_S16, 2, 48000};
Ramp const kMonoFloat{PCM_FLOAT, 1, 44100};

int64_t ns(int64_t frames) { return framesToNs(frames, 48000); }

class AudioRendererTest : public ::testing::TestWithParam<AudioPlayer::TimestampMode> {
 protected:
  void start(AudioPlayer::TimestampMode mode) {
    renderer = std::make_unique<AudioRenderer>(&device, &clock, mode);
    renderer->render(track);
  }
  test::RecordingLogger logger;
  test::ScriptedDevice device;
  NiceMock<test::MockClock> clock{kClockOffset};
  std::shared_ptr<ScriptedTrack> track = std::make_shared<ScriptedTrack>();
  std::unique_ptr<AudioRenderer> renderer;  // last: stopped before the fakes go
};

TEST_P(AudioRendererTest, PlaysATrackToItsEnd_EveryFrameInOrderAtItsTimeThroughPartialWrites) {
  device.maxFramesPerWrite = 400;
  track = std::make_shared<ScriptedTrack>(AudioTrack::Finished);
  int64_t const pts = 3 * kSecond;
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 441, pts);
  track->answer(AudioTrack::Playing, kStereo16, 441, 457, pts + ns(441));
  track->answer(AudioTrack::Playing, kStereo16, 898, 1001, pts + ns(898));
  start(GetParam());

  ASSERT_TRUE(track->waitFor("f"));
  // The rest of a partly written buffer is offered again at once, moved on in time.
  EXPECT_EQ(device.transcript(), "s0/2 w441 w41 w457 w57 w1001 w601 w201 p0");
  EXPECT_EQ(device.writtenBytes(), kStereo16.frames(0, 1899));
  int64_t const offset = GetParam() == AudioPlayer::TIMESTAMP_COMMON ? kClockOffset : 0;
  int64_t frame = 0;  // each write's first: the frames are in order, as checked above
  for (auto const& write : device.writes()) {
    EXPECT_NEAR(write.timestamp, pts + ns(frame) + offset, 1);
    frame += write.accepted;
  }
  EXPECT_EQ(track->buffersOut, 0);
  EXPECT_EQ(track->positions().back(), pts + ns(1899)) << "positions stay on the pts timeline";
  EXPECT_TRUE(logger.logged("written 1899 frames, played 1899 frames"));
}

INSTANTIATE_TEST_SUITE_P(AllModes, AudioRendererTest,
                         ::testing::Values(AudioPlayer::TIMESTAMP_STREAM,
                                           AudioPlayer::TIMESTAMP_LOCAL,
                                           AudioPlayer::TIMESTAMP_COMMON));

TEST_F(AudioRendererTest, NewTrackOrFormat_DrainsAndRestartsTheDeviceAbandoningAnyRetry) {
  device.maxFramesPerWrite = 100;
  device.holdWritesAfter(1);
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 457, 0);
  auto second = std::make_shared<ScriptedTrack>();
  second->answer(AudioTrack::FormatChanged, kStereo16, 0, 90, 0);
  second->answer(AudioTrack::FormatChanged, kMonoFloat, 0, 441, ns(90));
  start(AudioPlayer::TIMESTAMP_STREAM);
  ASSERT_TRUE(device.waitUntilHolding());
  renderer->render(second);
  device.releaseWrites();

  ASSERT_TRUE(device.waitForCalls(9));
  EXPECT_EQ(device.transcript(9), "s0/2 w457 w357 p0 s0/2 w90 p0 s2/1 w441");
  EXPECT_EQ(device.calls.entries()[8].timestamp, ns(90));
  EXPECT_EQ(device.calls.entries()[8].data, kMonoFloat.frames(0, 100));
  EXPECT_EQ(track->buffersOut, 0);
}

TEST_F(AudioRendererTest, PauseOnTheStreamsTimeline_KeepsTheDevicePausedUntilTheNextBuffer) {
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  track->answer(AudioTrack::Paused);
  start(AudioPlayer::TIMESTAMP_STREAM);
  ASSERT_TRUE(device.waitForCalls(3));
  track->answer(AudioTrack::Playing, kStereo16, 480, 480, ns(480));
  track->answer(AudioTrack::PausedTransient);
  renderer->render(track);
  ASSERT_TRUE(device.waitForCalls(6));
  auto idle = std::make_shared<ScriptedTrack>();
  renderer->render(idle);
  ASSERT_TRUE(idle->waitFor("n"));
  renderer->render(nullptr);  // a paused device that loses its track is flushed

  ASSERT_TRUE(device.waitForCalls(7));
  // A stream that ends while the device holds it paused plays out what the device holds.
  auto last = std::make_shared<ScriptedTrack>(AudioTrack::Finished);
  last->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  last->answer(AudioTrack::Paused);
  renderer->render(last);
  ASSERT_TRUE(device.waitForCalls(10));
  renderer->render(last);
  ASSERT_TRUE(last->waitFor("f"));
  EXPECT_EQ(device.transcript(), "s0/2 w480 p2 s0/2 w480 p2 p1 s0/2 w480 p2 s0/2 p0");
  EXPECT_EQ(device.calls.entries()[4].timestamp, ns(480));
}

TEST_F(AudioRendererTest, PauseOnTheDevicesClock_DrainsAndRestartsAtTheNextBuffersTime) {
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, kSecond);
  track->answer(AudioTrack::Paused);
  // The track plays again while its pause still reaches the device: that render is not lost.
  // The hook also runs when the renderer is destroyed, after this body: it owns its flag.
  auto playedAgain = std::make_shared<std::atomic<bool>>(false);
  device.stopHook = [this, playedAgain](StopBehavior) {
    if (!playedAgain->exchange(true)) {
      track->answer(AudioTrack::Playing, kStereo16, 480, 480, 2 * kSecond);
      renderer->render(track);
    }
  };
  start(AudioPlayer::TIMESTAMP_COMMON);
  ASSERT_TRUE(device.waitForCalls(5));
  EXPECT_EQ(device.transcript(5), "s0/2 w480 p0 s0/2 w480");
  EXPECT_EQ(device.calls.entries()[4].timestamp, 2 * kSecond + kClockOffset);
  EXPECT_TRUE(track->waitFor("p" + std::to_string(2 * kSecond + ns(480))))
      << "the position restarts from the buffer that restarted the device";
}

TEST_F(AudioRendererTest, EndOfStream_WaitsUntilTheDeviceHasPlayedEverythingOrCannotTell) {
  for (int64_t const played : {100, -1}) {  // -1: not known, so taken as everything written
    test::ScriptedDevice ending;
    ending.playedFrames = played;
    auto last = std::make_shared<ScriptedTrack>(AudioTrack::Finished);
    last->answer(AudioTrack::FormatChanged, kStereo16, 0, 441, kSecond);
    AudioRenderer endRenderer(&ending, &clock, AudioPlayer::TIMESTAMP_LOCAL);
    endRenderer.render(last);
    if (played > 0) {
      ASSERT_TRUE(last->waitFor("n", 6));
      std::vector<std::string> const did = last->did.entries();
      EXPECT_EQ(std::count(did.begin(), did.end(), "f"), 0) << "not finished yet";
      EXPECT_EQ(last->positions().back(), kSecond + ns(100));
      ending.playedFrames = 441;
    }
    ASSERT_TRUE(last->waitFor("f"));
    EXPECT_EQ(last->positions().back(), kSecond + ns(441));
    EXPECT_EQ(ending.transcript(), "s0/2 w441 p0");
  }
}

TEST_F(AudioRendererTest, BufferingOrUnderrun_TouchesOnlyAStartedDevice) {
  track->answer(AudioTrack::Underrun);
  track->answer(AudioTrack::Buffering);
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, kSecond);
  track->answer(AudioTrack::Underrun);
  start(AudioPlayer::TIMESTAMP_LOCAL);
  ASSERT_TRUE(track->waitFor("n", 5));
  EXPECT_EQ(device.transcript(), "s0/2 w480 u");
  EXPECT_EQ(track->positions(), (std::vector<int64_t>{kSecond + ns(480), kSecond + ns(480)}));
}

TEST_F(AudioRendererTest, DeviceAndClockFailures_ReachTheTrackAsRenderErrors) {
  struct {
    int startResult, writeResult, clockResult;
    char const *error, *logLine;
  } const cases[] = {{-5, 0, 0, "e-5", "mHW->start() failed: -5"},
                     {0, 3, 0, "e3", "Write error: 3"},
                     {0, 0, 7, "e7", "commonToLocal failed: 7"}};
  for (auto const& failure : cases) {
    test::ScriptedDevice failing;
    failing.startResult = failure.startResult;
    failing.writeResult = failure.writeResult;
    NiceMock<test::MockClock> failingClock;
    ON_CALL(failingClock, commonToLocal).WillByDefault(Return(failure.clockResult));
    auto failed = std::make_shared<ScriptedTrack>();
    failed->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
    AudioRenderer failingRenderer(&failing, &failingClock, AudioPlayer::TIMESTAMP_COMMON);
    failingRenderer.render(failed);
    EXPECT_TRUE(failed->waitFor(failure.error)) << failure.logLine;
    EXPECT_TRUE(failed->buffersOut == 0 && failed->positions().empty());
    EXPECT_TRUE(logger.logged(failure.logLine));
  }
}

TEST_F(AudioRendererTest, CommonTime_DriftCorrectionIsReinitialisedOnAMissOrANewFormat) {
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  // Exactly 4 ms later than predicted: kept. Then 4 ms and 1 ns: re-initialised. Then a new
  // format exactly on time: its new resampler is initialised all the same.
  track->answer(AudioTrack::Playing, kStereo16, 480, 480, ns(480) + 4000000);
  track->answer(AudioTrack::Playing, kStereo16, 960, 480, 2 * ns(480) + 8000001);
  track->answer(AudioTrack::FormatChanged, kStereo16, 1440, 480, 3 * ns(480) + 8000001);
  ON_CALL(clock, getDriftPpm).WillByDefault(::testing::Return(5.0));  // a new resampler has 0
  device.holdWritesAfter(1);
  start(AudioPlayer::TIMESTAMP_COMMON);
  // The second buffer's write is held: its prediction check is done, the third's is not.
  ASSERT_TRUE(device.waitUntilHolding());
  EXPECT_EQ(logger.count("init drift: 5 "), 1) << "only the first buffer always initialises";
  device.releaseWrites();
  ASSERT_TRUE(device.waitForCalls(7));
  EXPECT_EQ(logger.count("init drift: 5 "), 3);
}

TEST_F(AudioRendererTest, DetachingOrDestruction_StopsTheDeviceAndLetsGoOfTheTrack) {
  track->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  auto second = std::make_shared<ScriptedTrack>();
  second->answer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  std::atomic<long> usesAtDrain{0};
  device.stopHook = [&](StopBehavior) {
    long expected = 0;
    usesAtDrain.compare_exchange_strong(expected, track.use_count());
  };
  start(AudioPlayer::TIMESTAMP_STREAM);
  ASSERT_TRUE(device.waitForCalls(2));
  renderer->render(nullptr);
  ASSERT_TRUE(device.waitForCalls(3));
  renderer->render(second);
  ASSERT_TRUE(device.waitForCalls(5));
  renderer.reset();
  EXPECT_EQ(device.transcript(), "s0/2 w480 p0 s0/2 w480 p1");
  EXPECT_EQ(usesAtDrain, 1) << "the renderer let go of a detached track before it drained";
  EXPECT_EQ(second.use_count(), 1);
}

}  // namespace
