// The track's contract with the renderer and the player: prebuffering, answers, progress
// reports, the start time, states and the bridge of FFmpeg's log. A host decoder, written
// against the public headers alone, stands in for FFmpeg's where the test needs exact control
// over what is queued.
#include "RecordingLogger.h"
#include "ScriptedTrack.h"
#include "TrackHarness.h"
#include "WaitFor.h"
#include "decode/AVLogger.h"
#include "decode/FFmpeg.h"

#include <oru/Decoder.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>

namespace oru {
namespace {

using test::Ramp;
using test::TrackHarness;

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kMs = 1000000;
Ramp const kRamp{PCM_S16, 2, 48000};
constexpr unsigned kFramesPerBuffer = 480;  // 10 ms

// Decodes every packet into one 10 ms ramp buffer, whatever the packet holds, and can be held
// once it has pushed a given number of buffers.
class GatedDecoder : public DecoderDelegate {
 public:
  DecodeStatus decode(EncodedPacket* /*packet*/, PcmBufferQueue& queue) override {
    {
      std::unique_lock<std::mutex> lock(mMutex);
      mChanged.wait(lock, [this] { return mPushed < mAllowed || mStopping; });
      if (mStopping) {
        return DecodeStatus::Stopped;
      }
    }
    std::vector<uint8_t> const bytes =
        kRamp.frames(mPushed * int64_t{kFramesPerBuffer}, kFramesPerBuffer);
    PcmBuffer* buffer = queue.obtainBuffer(static_cast<unsigned>(bytes.size()));
    if (buffer == nullptr) {
      return DecodeStatus::Stopped;
    }
    std::memcpy(buffer->data, bytes.data(), bytes.size());
    buffer->size = static_cast<uint32_t>(bytes.size());
    buffer->pts = mPushed * 10 * kMs;
    buffer->duration = 10 * kMs;
    buffer->format = kRamp.format;
    buffer->channels = kRamp.channels;
    buffer->channelLayout = 3;
    buffer->rate = kRamp.rate;
    queue.pushBuffer(buffer);
    {
      std::lock_guard<std::mutex> lock(mMutex);
      ++mPushed;
    }
    mChanged.notify_all();
    return DecodeStatus::Ok;
  }

  DecodeStatus flushBuffers(PcmBufferQueue&) override { return DecodeStatus::Ok; }

  // Lets the decoder push buffers until `count` have been pushed in all.
  void allow(int count) {
    {
      std::lock_guard<std::mutex> lock(mMutex);
      mAllowed = count;
    }
    mChanged.notify_all();
  }
  bool waitForPushed(int count) {
    std::unique_lock<std::mutex> lock(mMutex);
    return test::waitFor(lock, mChanged, [&] { return mPushed >= count; });
  }
  // Releases a decoder held at its limit, so that its track can be destroyed.
  void stop() {
    {
      std::lock_guard<std::mutex> lock(mMutex);
      mStopping = true;
    }
    mChanged.notify_all();
  }

 private:
  std::mutex mMutex;  // guards the counts and mStopping
  std::condition_variable mChanged;
  int mPushed = 0;
  int mAllowed = 0;
  bool mStopping = false;
};

// Hands out one GatedDecoder and remembers the codec it was asked for.
class GatedDecoderFactory : public DecoderDelegateFactory {
 public:
  DecoderDelegate* createDecoder(char const* codecName, PlaybackConfig const&) override {
    askedFor = codecName;
    return mDecoder.release();
  }

  GatedDecoder* const decoder = new GatedDecoder;  // owned by the track once handed out
  std::string askedFor;

 private:
  std::unique_ptr<GatedDecoder> mDecoder{decoder};
};

// A track of tone.flac decoded by the factory's decoder. The track's cancel callback releases
// a held decoder, so that the track can always be destroyed.
std::shared_ptr<AudioTrack> createWithHostDecoder(TrackHarness& harness,
                                                  GatedDecoderFactory& factory) {
  AudioPlayer::Resource resource;
  resource.uri = test::fixture("tone.flac");
  resource.callbackOpaque = factory.decoder;
  resource.cancelCallback = [](void* decoder) { static_cast<GatedDecoder*>(decoder)->stop(); };
  return harness.create(resource, &factory);
}

TEST(TrackContractTest, HostDecoder_IsAskedForTheStreamsCodecAndFeedsTheDevice) {
  test::RecordingLogger logger;
  GatedDecoderFactory factory;
  TrackHarness harness;
  auto track = createWithHostDecoder(harness, factory);
  factory.decoder->allow(12);
  track->play(0);

  ASSERT_TRUE(harness.device.waitUntil([](auto const& calls) { return calls.size() >= 4; }));
  EXPECT_EQ(factory.askedFor, "flac");
  std::vector<uint8_t> const written = harness.device.writtenBytes();
  std::vector<uint8_t> const expected = kRamp.frames(0, 3 * kFramesPerBuffer);
  ASSERT_GE(written.size(), expected.size());
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), written.begin()));
  bool logged = false;
  for (auto const& line : logger.lines()) {
    logged = logged || line.message.find(": using custom decoder for flac") != std::string::npos;
  }
  EXPECT_TRUE(logged);
}

TEST(TrackContractTest, NextBuffer_WaitsForTenQueuedThenRunsDryAsUnderrunThenEnds) {
  GatedDecoderFactory factory;
  TrackHarness harness(AudioPlayer::TIMESTAMP_LOCAL);
  // Keep the render thread busy in a held write of another track, so that this test alone
  // asks the track for buffers.
  auto decoy = std::make_shared<test::ScriptedTrack>();
  decoy->answerBuffer(AudioTrack::FormatChanged, kRamp, 0, 100, 0);
  harness.device.holdWritesAfter(0);
  harness.renderer.render(decoy);
  ASSERT_TRUE(harness.device.waitUntilHolding());

  auto track = createWithHostDecoder(harness, factory);
  factory.decoder->allow(9);
  ASSERT_TRUE(factory.decoder->waitForPushed(9));
  int64_t const startTime = 5 * kSecond;
  track->play(startTime);

  PcmBuffer* buffer = nullptr;
  EXPECT_EQ(track->getNextBuffer(&buffer), AudioTrack::Buffering) << "nine queued";
  EXPECT_EQ(buffer, nullptr);

  factory.decoder->allow(10);
  ASSERT_TRUE(factory.decoder->waitForPushed(10));
  ASSERT_EQ(track->getNextBuffer(&buffer), AudioTrack::FormatChanged);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(buffer->pts, startTime) << "the start time is added to the stream's time";
  track->releaseBuffer(buffer);
  for (int i = 1; i < 10; ++i) {
    ASSERT_EQ(track->getNextBuffer(&buffer), AudioTrack::Playing) << "buffer " << i;
    EXPECT_EQ(buffer->pts, startTime + i * 10 * kMs);
    track->releaseBuffer(buffer);
  }
  EXPECT_EQ(track->getNextBuffer(&buffer), AudioTrack::Underrun) << "playing, so no prebuffering";

  factory.decoder->allow(1000);
  auto const deadline = std::chrono::steady_clock::now() + test::kDeadline;
  int answer = AudioTrack::Underrun;
  while (answer != AudioTrack::Finished && std::chrono::steady_clock::now() < deadline) {
    answer = track->getNextBuffer(&buffer);
    track->releaseBuffer(buffer);
  }
  ASSERT_EQ(answer, AudioTrack::Finished);
  EXPECT_EQ(track->getNextBuffer(&buffer), AudioTrack::Finished);
  EXPECT_EQ(buffer, nullptr);
  harness.device.releaseWrites();
}

TEST(TrackContractTest, ProgressReports_ComeAtTheDelayOnceAndAtEachIntervalWithoutCatchingUp) {
  GatedDecoderFactory factory;  // decodes nothing: no renderer reports interfere
  TrackHarness harness;
  auto track = createWithHostDecoder(harness, factory);
  track->setProgressReportDelay(0);
  track->setProgressReportInterval(1000);
  track->setProgressReportDelay(-5);    // ignored
  track->setProgressReportInterval(0);  // ignored

  for (int64_t ms : {500, 1000, 2500, 3100}) {
    track->updatePosition(ms * kMs);
  }
  auto const record = harness.listener.record();
  EXPECT_EQ(record.delayReports, std::vector<unsigned>{500});
  EXPECT_EQ(record.intervalReports, (std::vector<unsigned>{1000, 2500, 3100}));
  EXPECT_EQ(track->getPositionMs(), 3100u);
}

TEST(TrackContractTest, SeekThenPlay_SetsTheStartTimeExceptOnTheStreamsOwnTimeline) {
  for (auto mode : {AudioPlayer::TIMESTAMP_LOCAL, AudioPlayer::TIMESTAMP_COMMON,
                    AudioPlayer::TIMESTAMP_STREAM}) {
    GatedDecoderFactory factory;
    TrackHarness harness(mode);
    auto track = createWithHostDecoder(harness, factory);
    int64_t const commonTime = 100 * kSecond;
    track->seek(30000);
    track->play(commonTime);
    track->updatePosition(commonTime);
    unsigned const expected = mode == AudioPlayer::TIMESTAMP_STREAM ? 100000u : 30000u;
    EXPECT_EQ(track->getPositionMs(), expected) << "mode " << mode;
  }
}

TEST(TrackContractTest, StateChanges_ReachTheListenerOnceEach) {
  GatedDecoderFactory factory;
  TrackHarness harness;
  auto track = createWithHostDecoder(harness, factory);
  track->pause(true);
  track->pause(true);
  track->pause(false);
  track->stop();
  track->onRenderError(-7);
  track->onRenderFinished();

  auto const record = harness.listener.record();
  std::vector<AudioTrack::State> reached;
  for (auto const& change : record.states) {
    reached.push_back(change.to);
  }
  EXPECT_EQ(reached, (std::vector<AudioTrack::State>{AudioTrack::PausedTransient,
                                                     AudioTrack::Paused, AudioTrack::Stopped,
                                                     AudioTrack::Error, AudioTrack::Finished}));
  ASSERT_EQ(record.errors.size(), 1u);
  EXPECT_EQ(record.errors[0].error, AudioPlayer::MEDIA_ERROR_INTERNAL);
  EXPECT_EQ(record.errors[0].message, "Error playing audio");
}

TEST(TrackContractTest, SupportedVersions_AreThoseOfThePatchedBuild) {
  test::RecordingLogger logger;
  int min = 0;
  int max = 0;
  AudioTrack::getSupportedVersions(&min, &max);
  EXPECT_EQ(min, 1);
  EXPECT_EQ(max, 1);
  EXPECT_TRUE(logger.lines().empty());
}

TEST(TrackContractTest, WrongStreamVersion_FailsTheTrack) {
  test::RecordingLogger logger;
  TrackHarness harness;
  AudioPlayer::Resource resource;
  resource.uri = test::fixture("tone.flac");
  harness.create(resource, nullptr, 2);

  ASSERT_TRUE(harness.listener.waitUntil([](auto const& r) { return !r.errors.empty(); }));
  EXPECT_EQ(harness.listener.record().errors[0].message, "Failed to create demuxer ");
  bool logged = false;
  for (auto const& line : logger.lines()) {
    logged = logged || line.message.find(": Failed to set oru_version: ") != std::string::npos;
  }
  EXPECT_TRUE(logged);
}

class FFmpegLogTest : public ::testing::Test {
 protected:
  FFmpegLogTest() { AVLogger::install(); }
};

TEST_F(FFmpegLogTest, Lines_ArriveAtTheEngineLevelWithoutNewlineAndWithAddressesMasked) {
  test::RecordingLogger logger;
  av_log(nullptr, AV_LOG_INFO, "Opening 'http://10.1.2.3/live' for reading\n");
  av_log(nullptr, AV_LOG_WARNING, "late %d\n", 7);
  av_log(nullptr, AV_LOG_ERROR, "broken");
  av_log(nullptr, AV_LOG_DEBUG, "detail\n");
  av_log(nullptr, AV_LOG_VERBOSE, "dropped\n");
  av_log(nullptr, AV_LOG_TRACE, "dropped\n");
  av_log(nullptr, AV_LOG_INFO, "%s", "");

  auto const lines = logger.lines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].level, LOG_INFO);
  EXPECT_EQ(lines[0].tag, "Libav");
  EXPECT_EQ(lines[0].message, "Opening 'http://xxx/live' for reading");
  EXPECT_EQ(lines[1].level, LOG_WARNING);
  EXPECT_EQ(lines[1].message, "late 7");
  EXPECT_EQ(lines[2].level, LOG_ERROR);
  EXPECT_EQ(lines[2].message, "broken");
  EXPECT_EQ(lines[3].level, LOG_DETAIL);
}

using FFmpegLogDeathTest = FFmpegLogTest;

TEST_F(FFmpegLogDeathTest, FatalLine_AbortsLikeTheEnginesOwn) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(av_log(nullptr, AV_LOG_FATAL, "cannot go on\n"), "");
}

}  // namespace
}  // namespace oru
