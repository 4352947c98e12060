#include "render/AudioRenderer.h"

#include "RecordingLogger.h"
#include "ScriptedDevice.h"
#include "ScriptedTrack.h"
#include "SettableClock.h"
#include "TimestampModes.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace oru {
namespace {

using test::Ramp;
using test::ScriptedDevice;
using test::ScriptedTrack;
using Kind = ScriptedDevice::Kind;

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kClockOffset = 5000000;  // local = common + 5 ms
Ramp const kStereo16{PCM_S16, 2, 48000};
Ramp const kMonoFloat{PCM_FLOAT, 1, 44100};

int64_t ns(int64_t frames, int rate = 48000) { return frames * kSecond / rate; }

class AudioRendererTest : public ::testing::Test {
 protected:
  AudioRendererTest() { clock.setOffset(kClockOffset); }

  void start(AudioPlayer::TimestampMode mode) {
    renderer = std::make_unique<AudioRenderer>(&device, &clock, mode);
  }

  std::shared_ptr<ScriptedTrack> newTrack(int whenEmpty = AudioTrack::Buffering) {
    return std::make_shared<ScriptedTrack>(whenEmpty);
  }

  bool waitForCalls(size_t count) {
    return device.waitUntil([count](auto const& calls) { return calls.size() >= count; });
  }

  std::vector<ScriptedDevice::Call> writes() const {
    std::vector<ScriptedDevice::Call> result;
    for (auto const& call : device.calls()) {
      if (call.kind == ScriptedDevice::kWrite) {
        result.push_back(call);
      }
    }
    return result;
  }

  test::RecordingLogger logger;
  ScriptedDevice device;
  test::SettableClock clock;
  std::unique_ptr<AudioRenderer> renderer;  // last: stopped before the fakes go
};

class AudioRendererModeTest : public AudioRendererTest,
                              public ::testing::WithParamInterface<AudioPlayer::TimestampMode> {};

TEST_P(AudioRendererModeTest, PlaysATrackToItsEnd_EveryFrameInOrderAtItsTime) {
  AudioPlayer::TimestampMode const mode = GetParam();
  auto track = newTrack(AudioTrack::Finished);
  int64_t const pts = 3 * kSecond;
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 441, pts);
  track->answerBuffer(AudioTrack::Playing, kStereo16, 441, 457, pts + ns(441));
  track->answerBuffer(AudioTrack::Playing, kStereo16, 898, 1001, pts + ns(898));
  start(mode);
  renderer->render(track);

  ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.renderFinished == 1; }));
  EXPECT_EQ(device.kinds(), (std::vector<Kind>{ScriptedDevice::kStart, ScriptedDevice::kWrite,
                                               ScriptedDevice::kWrite, ScriptedDevice::kWrite,
                                               ScriptedDevice::kStop}));
  auto const calls = device.calls();
  EXPECT_EQ(calls.front().format, PCM_S16);
  EXPECT_EQ(calls.front().channels, 2);
  EXPECT_EQ(calls.back().behavior, STOP_DRAIN);
  EXPECT_EQ(device.writtenBytes(), kStereo16.frames(0, 1899));

  int64_t const offset = mode == AudioPlayer::TIMESTAMP_COMMON ? kClockOffset : 0;
  std::vector<int64_t> times;
  for (auto const& write : writes()) {
    times.push_back(write.timestamp);
  }
  EXPECT_EQ(times,
            (std::vector<int64_t>{pts + offset, pts + ns(441) + offset, pts + ns(898) + offset}));
  track->waitUntil([](auto const& t) { return t.buffersOut == 0; });
  EXPECT_EQ(track->record().buffersOut, 0);
  EXPECT_EQ(track->record().positions.back(), pts + ns(1899))
      << "positions stay on the pts timeline";
  EXPECT_TRUE(
      logger.contains(LOG_INFO, "AudioRenderer", "written 1899 frames, played 1899 frames"));
}

INSTANTIATE_TEST_SUITE_P(AllModes, AudioRendererModeTest, test::allTimestampModes(),
                         test::timestampModeName);

TEST_F(AudioRendererTest, PartialWrites_OfferTheRestAtOnceWithTheTimeMovedOn) {
  device.setMaxFramesPerWrite(100);
  auto track = newTrack();
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 357, kSecond);
  start(AudioPlayer::TIMESTAMP_LOCAL);
  renderer->render(track);

  ASSERT_TRUE(waitForCalls(5));
  auto const written = writes();
  ASSERT_EQ(written.size(), 4u);
  unsigned offered = 357;
  int64_t time = kSecond;
  for (size_t i = 0; i < written.size(); ++i) {
    EXPECT_EQ(written[i].timestamp, time) << "write " << i;
    EXPECT_EQ(written[i].offered, offered) << "write " << i;
    offered -= written[i].accepted;
    time += ns(written[i].accepted);
  }
  EXPECT_EQ(device.writtenBytes(), kStereo16.frames(0, 357));
}

TEST_F(AudioRendererTest, TrackReplacedWhileAWriteIsRetried_AbandonsTheRestOfItsBuffer) {
  device.setMaxFramesPerWrite(100);
  device.holdWritesAfter(1);
  auto first = newTrack();
  first->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 457, 0);
  auto second = newTrack();
  second->answerBuffer(AudioTrack::FormatChanged, kMonoFloat, 0, 90, 0);
  start(AudioPlayer::TIMESTAMP_STREAM);
  renderer->render(first);

  ASSERT_TRUE(device.waitUntilHolding());
  renderer->render(second);
  device.releaseWrites();

  ASSERT_TRUE(waitForCalls(6));
  EXPECT_EQ(device.kinds(), (std::vector<Kind>{ScriptedDevice::kStart, ScriptedDevice::kWrite,
                                               ScriptedDevice::kWrite, ScriptedDevice::kStop,
                                               ScriptedDevice::kStart, ScriptedDevice::kWrite}));
  auto const calls = device.calls();
  EXPECT_EQ(calls[2].offered, 357u) << "the retry of the first track's buffer";
  EXPECT_EQ(calls[3].behavior, STOP_DRAIN);
  EXPECT_EQ(calls[4].format, PCM_FLOAT);
  EXPECT_EQ(calls[4].channels, 1);
  EXPECT_EQ(calls[5].offered, 90u);
  EXPECT_TRUE(first->waitUntil([](auto const& t) { return t.buffersOut == 0; }));
}

TEST_F(AudioRendererTest, NewFormat_DrainsAndRestartsTheDeviceWithTheSameBuffer) {
  auto track = newTrack();
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  track->answerBuffer(AudioTrack::Playing, kStereo16, 480, 480, ns(480));
  track->answerBuffer(AudioTrack::FormatChanged, kMonoFloat, 0, 441, ns(960));
  start(AudioPlayer::TIMESTAMP_STREAM);
  renderer->render(track);

  ASSERT_TRUE(waitForCalls(6));
  EXPECT_EQ(device.kinds(), (std::vector<Kind>{ScriptedDevice::kStart, ScriptedDevice::kWrite,
                                               ScriptedDevice::kWrite, ScriptedDevice::kStop,
                                               ScriptedDevice::kStart, ScriptedDevice::kWrite}));
  auto const calls = device.calls();
  EXPECT_EQ(calls[3].behavior, STOP_DRAIN);
  EXPECT_EQ(calls[4].format, PCM_FLOAT);
  EXPECT_EQ(calls[5].offered, 441u);
  EXPECT_EQ(calls[5].data, kMonoFloat.frames(0, 441));
  EXPECT_EQ(calls[5].timestamp, ns(960));
}

TEST_F(AudioRendererTest, PauseInStreamMode_KeepsTheDevicePausedAndRestartsItOnTheNextBuffer) {
  auto track = newTrack();
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  track->answer(AudioTrack::Paused);
  start(AudioPlayer::TIMESTAMP_STREAM);
  renderer->render(track);
  ASSERT_TRUE(waitForCalls(3));
  EXPECT_EQ(device.calls()[2].behavior, STOP_PAUSE);

  track->answerBuffer(AudioTrack::Playing, kStereo16, 480, 480, ns(480));
  renderer->render(track);
  ASSERT_TRUE(waitForCalls(5));
  EXPECT_EQ(device.calls()[3].kind, ScriptedDevice::kStart);
  EXPECT_EQ(device.calls()[4].timestamp, ns(480));

  track->answer(AudioTrack::PausedTransient);
  ASSERT_TRUE(waitForCalls(6));
  EXPECT_EQ(device.calls()[5].behavior, STOP_PAUSE);

  // A paused device that loses its track is flushed, whatever the stop asked for.
  auto idle = newTrack();
  renderer->render(idle);
  ASSERT_TRUE(idle->waitUntil([](auto const& t) { return t.nextBufferCalls > 0; }));
  renderer->render(nullptr);
  ASSERT_TRUE(waitForCalls(7));
  EXPECT_EQ(device.calls()[6].behavior, STOP_FLUSH);
}

TEST_F(AudioRendererTest, PauseInLocalAndCommonModes_DrainsAndRestartsAtTheNextBuffersTime) {
  for (auto mode : {AudioPlayer::TIMESTAMP_LOCAL, AudioPlayer::TIMESTAMP_COMMON}) {
    ScriptedDevice modeDevice;
    AudioRenderer modeRenderer(&modeDevice, &clock, mode);
    auto track = newTrack();
    track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, kSecond);
    track->answer(AudioTrack::Paused);
    // The track plays again while the pause is still reaching the device, before the render
    // thread lets go of it: that render must not be lost.
    modeDevice.setStopHook([&](StopBehavior) {
      modeDevice.setStopHook(nullptr);
      track->answerBuffer(AudioTrack::Playing, kStereo16, 480, 480, 2 * kSecond);
      modeRenderer.render(track);
    });
    modeRenderer.render(track);

    ASSERT_TRUE(modeDevice.waitUntil([](auto const& calls) { return calls.size() >= 5; }));
    auto const calls = modeDevice.calls();
    EXPECT_EQ(calls[2].behavior, STOP_DRAIN);
    EXPECT_EQ(calls[3].kind, ScriptedDevice::kStart);
    int64_t const offset = mode == AudioPlayer::TIMESTAMP_COMMON ? kClockOffset : 0;
    EXPECT_EQ(calls[4].timestamp, 2 * kSecond + offset);
    // The position restarts from the buffer that restarted the device.
    ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.positions.size() >= 2; }));
    EXPECT_EQ(track->record().positions.back(), 2 * kSecond + ns(480));
  }
}

TEST_F(AudioRendererTest, EndOfStreamWithPlayedFramesUnknown_FinishesAtOnce) {
  device.setPlayedFrames(-1);
  auto track = newTrack(AudioTrack::Finished);
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, kSecond);
  start(AudioPlayer::TIMESTAMP_LOCAL);
  renderer->render(track);

  ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.renderFinished == 1; }));
  EXPECT_EQ(track->record().nextBufferCalls, 2) << "finished at the first end-of-stream answer";
  EXPECT_EQ(track->record().positions, std::vector<int64_t>{kSecond + ns(480)})
      << "unknown played frames count as written";
  EXPECT_TRUE(logger.contains(LOG_INFO, "AudioRenderer", "finished"));
  for (auto const& line : logger.lines()) {
    EXPECT_EQ(line.message.rfind("written ", 0), std::string::npos) << line.message;
  }
}

TEST_F(AudioRendererTest, EndOfStream_WaitsUntilTheDeviceHasPlayedEverything) {
  device.setPlayedFrames(100);
  auto track = newTrack(AudioTrack::Finished);
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 441, kSecond);
  start(AudioPlayer::TIMESTAMP_LOCAL);
  renderer->render(track);

  ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.nextBufferCalls >= 6; }));
  EXPECT_EQ(track->record().renderFinished, 0);
  EXPECT_EQ(track->record().positions.back(), kSecond + ns(100));
  device.setPlayedFrames(441);

  ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.renderFinished == 1; }));
  EXPECT_EQ(track->record().positions.back(), kSecond + ns(441));
  EXPECT_EQ(device.kinds(), (std::vector<Kind>{ScriptedDevice::kStart, ScriptedDevice::kWrite,
                                               ScriptedDevice::kStop}));
}

TEST_F(AudioRendererTest, BufferingTrack_IsPolledWithoutTouchingTheDevice) {
  auto track = newTrack(AudioTrack::Buffering);
  start(AudioPlayer::TIMESTAMP_STREAM);
  renderer->render(track);

  ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.nextBufferCalls >= 5; }));
  EXPECT_TRUE(device.calls().empty());
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  EXPECT_TRUE(waitForCalls(2));
}

TEST_F(AudioRendererTest, Underrun_IsSignalledOnlyToAStartedDevice) {
  auto track = newTrack(AudioTrack::Buffering);
  track->answer(AudioTrack::Underrun);
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, kSecond);
  track->answer(AudioTrack::Underrun);
  start(AudioPlayer::TIMESTAMP_LOCAL);
  renderer->render(track);

  ASSERT_TRUE(track->waitUntil([](auto const& t) { return t.scriptLeft == 0; }));
  ASSERT_TRUE(waitForCalls(3));
  EXPECT_EQ(device.kinds(), (std::vector<Kind>{ScriptedDevice::kStart, ScriptedDevice::kWrite,
                                               ScriptedDevice::kUnderrun}));
  EXPECT_EQ(track->record().positions,
            (std::vector<int64_t>{kSecond + ns(480), kSecond + ns(480)}));
}

TEST_F(AudioRendererTest, DeviceAndClockFailures_ReachTheTrackAsRenderErrors) {
  struct Case {
    char const* name;
    std::function<void(ScriptedDevice&, test::SettableClock&)> breakIt;
    int error;
    char const* logLine;
  };
  std::vector<Case> const cases{
      {"start", [](auto& hw, auto&) { hw.setStartResult(-5); }, -5, "mHW->start() failed: -5"},
      {"write", [](auto& hw, auto&) { hw.setWriteResult(3); }, 3, "Write error: 3"},
      {"clock", [](auto&, auto& time) { time.setResult(7); }, 7, "commonToLocal failed: 7"},
  };
  for (Case const& failure : cases) {
    ScriptedDevice failingDevice;
    test::SettableClock failingClock;
    failure.breakIt(failingDevice, failingClock);
    AudioRenderer failingRenderer(&failingDevice, &failingClock, AudioPlayer::TIMESTAMP_COMMON);
    auto track = newTrack();
    track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
    failingRenderer.render(track);

    EXPECT_TRUE(track->waitUntil([](auto const& t) { return !t.renderErrors.empty(); }))
        << failure.name;
    EXPECT_EQ(track->record().renderErrors, std::vector<int>{failure.error}) << failure.name;
    EXPECT_EQ(track->record().buffersOut, 0) << failure.name;
    EXPECT_TRUE(track->record().positions.empty()) << failure.name;
    EXPECT_TRUE(logger.contains(LOG_ERROR, "AudioRenderer", failure.logLine)) << failure.name;
  }
}

TEST_F(AudioRendererTest, CommonTime_PredictionMissOfMoreThanFourMsReinitialisesDriftCorrection) {
  auto track = newTrack();
  int64_t const tenMs = ns(480);
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  // Exactly 4 ms later than predicted: kept.
  track->answerBuffer(AudioTrack::Playing, kStereo16, 480, 480, tenMs + 4000000);
  // 4 ms and 1 ns later than predicted: re-initialised.
  track->answerBuffer(AudioTrack::Playing, kStereo16, 960, 480, 2 * tenMs + 8000001);
  device.holdWritesAfter(1);
  start(AudioPlayer::TIMESTAMP_COMMON);
  renderer->render(track);

  // The second buffer's write is held: its prediction check is done, the third's is not.
  ASSERT_TRUE(device.waitUntilHolding());
  EXPECT_EQ(clock.driftQueries(), 1) << "only the first buffer, which always initialises";
  device.releaseWrites();
  ASSERT_TRUE(waitForCalls(4));
  EXPECT_EQ(clock.driftQueries(), 2);
}

TEST_F(AudioRendererTest, CommonTime_CorrectionResamplesAndShiftsTheNextWriteTime) {
  clock.setRates(0.0, 48.0);  // 48 ppm at 48 kHz moves the stream by -1 ns per frame
  auto track = newTrack();
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  track->answerBuffer(AudioTrack::Playing, kStereo16, 480, 480, ns(480));
  start(AudioPlayer::TIMESTAMP_COMMON);
  renderer->render(track);

  ASSERT_TRUE(waitForCalls(3));
  auto const written = writes();
  ASSERT_EQ(written.size(), 2u);
  EXPECT_LT(written[0].offered, 480u) << "a faster rate drops frames";
  EXPECT_EQ(written[0].timestamp, kClockOffset);
  EXPECT_EQ(written[1].timestamp,
            ns(480) + kClockOffset - static_cast<int64_t>(written[0].offered));
  EXPECT_EQ(clock.driftQueries(), 1) << "a shift this small is no prediction miss";
}

TEST_F(AudioRendererTest, Destruction_StopsTheDeviceAtOnceAndLetsGoOfTheTrack) {
  auto track = newTrack(AudioTrack::Buffering);
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  start(AudioPlayer::TIMESTAMP_STREAM);
  renderer->render(track);
  ASSERT_TRUE(waitForCalls(2));

  renderer.reset();
  EXPECT_EQ(device.calls().back().kind, ScriptedDevice::kStop);
  EXPECT_EQ(device.calls().back().behavior, STOP_FLUSH);
  EXPECT_EQ(track.use_count(), 1);
}

TEST_F(AudioRendererTest, DetachingThePlayingTrack_DrainsTheDevice) {
  auto track = newTrack(AudioTrack::Buffering);
  track->answerBuffer(AudioTrack::FormatChanged, kStereo16, 0, 480, 0);
  start(AudioPlayer::TIMESTAMP_STREAM);
  renderer->render(track);
  ASSERT_TRUE(waitForCalls(2));

  renderer->render(nullptr);
  ASSERT_TRUE(waitForCalls(3));
  EXPECT_EQ(device.calls()[2].behavior, STOP_DRAIN);
  EXPECT_EQ(track.use_count(), 1) << "the renderer let go of the track before it stopped";
}

}  // namespace
}  // namespace oru
