// Real media through a real track and renderer into a scripted device that takes 48 kHz
// 16-bit PCM: what reaches the device, and what the track reports, for every kind of input the
// engine promises to play and for broken ones.
#include "RecordingLogger.h"
#include "TrackHarness.h"
#include "WaitFor.h"
#include "decode/FFmpeg.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace oru {
namespace {

using test::TrackHarness;

constexpr int64_t kSecond = 1000000000;
constexpr int kOutputRate = 48000;

struct Media {
  char const* file;
  char const* mimeType;
  double seconds;
  int channels;
  int toleranceFrames;  // the codec's own delay and padding, plus the converter's tail
};

std::ostream& operator<<(std::ostream& out, Media const& media) { return out << media.file; }

class TrackPlaybackTest : public ::testing::TestWithParam<Media> {};

TEST_P(TrackPlaybackTest, PlaysToTheEndWithEveryFrameAtContinuousTimes) {
  Media const media = GetParam();
  TrackHarness harness;
  auto track = harness.createFromFile(media.file, media.mimeType);
  track->play(0);

  ASSERT_TRUE(harness.listener.waitForState(AudioTrack::Finished))
      << (harness.listener.record().errors.empty()
              ? std::string("no error")
              : harness.listener.record().errors.front().message);

  auto const calls = harness.device.calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.front().kind, test::ScriptedDevice::kStart);
  EXPECT_EQ(calls.front().format, PCM_S16);
  EXPECT_EQ(calls.front().channels, media.channels);

  auto const expected = static_cast<int64_t>(media.seconds * kOutputRate);
  EXPECT_NEAR(harness.device.writtenFrames(), expected, media.toleranceFrames);

  int64_t nextTime = -1;
  for (auto const& call : calls) {
    if (call.kind != test::ScriptedDevice::kWrite) {
      continue;
    }
    if (nextTime >= 0) {
      EXPECT_NEAR(call.timestamp, nextTime, kSecond / 1000) << "gap or overlap in the stream";
    }
    nextTime = call.timestamp + static_cast<int64_t>(call.accepted) * kSecond / kOutputRate;
  }
  EXPECT_EQ(calls.back().kind, test::ScriptedDevice::kStop);
  EXPECT_EQ(calls.back().behavior, STOP_DRAIN);
}

// Converting to 48 kHz leaves the converter's last frames unflushed (17 at 44.1 kHz, 34 at
// 22.05 kHz, none at 48 kHz). AAC also keeps its padding (up to one 1024-sample frame) and, in
// ADTS, which has no edit list to trim them, its priming samples too.
INSTANTIATE_TEST_SUITE_P(
    Media, TrackPlaybackTest,
    ::testing::Values(Media{"tone.wav", "", 1.5, 2, 40}, Media{"tone-s24.wav", "", 1.5, 2, 40},
                      Media{"tone-f32.wav", "", 1.5, 2, 40}, Media{"tone.flac", "", 1.5, 2, 40},
                      Media{"tone-alac.m4a", "", 1.5, 2, 40},
                      Media{"tone.s16be", "audio/L16;rate=44100;channels=2", 1.5, 2, 40},
                      Media{"tone.mp3", "", 1.5, 2, 40}, Media{"tone.m4a", "", 1.5, 2, 1024},
                      Media{"tone.aac", "", 1.5, 2, 2048}, Media{"tone.ogg", "", 1.5, 2, 40},
                      Media{"tone.opus", "", 1.5, 2, 40}, Media{"ch1-22050.flac", "", 1, 1, 40},
                      Media{"ch2-22050.flac", "", 1, 2, 40}, Media{"ch6-22050.flac", "", 1, 6, 40},
                      Media{"ch1-44100.flac", "", 1, 1, 40}, Media{"ch6-44100.flac", "", 1, 6, 40},
                      Media{"ch1-48000.flac", "", 1, 1, 0}, Media{"ch2-48000.flac", "", 1, 2, 0},
                      Media{"ch6-48000.flac", "", 1, 6, 0}, Media{"ch1-96000.flac", "", 1, 1, 40},
                      Media{"ch2-96000.flac", "", 1, 2, 40}, Media{"ch6-96000.flac", "", 1, 6, 40}),
    [](auto const& info) {
      std::string name = info.param.file;
      for (char& c : name) {
        c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      }
      return name;
    });

TEST(TrackInputTest, DataCallback_IsReadInsteadOfTheUri) {
  FILE* file = std::fopen(test::fixture("tone.flac").c_str(), "rb");
  ASSERT_NE(file, nullptr);
  {
    TrackHarness harness;
    AudioPlayer::Resource resource;
    resource.uri = "http://192.0.2.1/never-opened.mp3";
    resource.callbackOpaque = file;
    resource.newDataCallback = [](void* opaque, uint8_t* buffer, int size) -> int {
      size_t const read =
          std::fread(buffer, 1, static_cast<size_t>(size), static_cast<FILE*>(opaque));
      return read == 0 ? AVERROR_EOF : static_cast<int>(read);
    };
    harness.create(resource)->play(0);

    EXPECT_TRUE(harness.listener.waitForState(AudioTrack::Finished));
    EXPECT_NEAR(harness.device.writtenFrames(), 72000, 64);
  }
  std::fclose(file);
}

// A host data source that never delivers until it is cancelled.
struct StalledSource {
  std::mutex mutex;
  std::condition_variable changed;
  bool cancelled = false;
  int cancels = 0;
  bool reading = false;

  static int read(void* opaque, uint8_t*, int) {
    auto* source = static_cast<StalledSource*>(opaque);
    std::unique_lock<std::mutex> lock(source->mutex);
    source->reading = true;
    source->changed.notify_all();
    source->changed.wait(lock, [source] { return source->cancelled; });
    return AVERROR_EXIT;
  }
  static void cancel(void* opaque) {
    auto* source = static_cast<StalledSource*>(opaque);
    std::lock_guard<std::mutex> lock(source->mutex);
    source->cancelled = true;
    ++source->cancels;
    source->changed.notify_all();
  }
};

TEST(TrackInputTest, DestroyingATrackWhoseDataCallbackBlocks_CancelsTheSourceAndReturns) {
  StalledSource source;
  {
    TrackHarness harness;
    AudioPlayer::Resource resource;
    resource.newDataCallback = &StalledSource::read;
    resource.cancelCallback = &StalledSource::cancel;
    resource.callbackOpaque = &source;
    harness.create(resource);
    std::unique_lock<std::mutex> lock(source.mutex);
    ASSERT_TRUE(test::waitFor(lock, source.changed, [&] { return source.reading; }));
  }
  EXPECT_EQ(source.cancels, 1);
}

TEST(TrackInputTest, DestroyingATrackBlockedOnASilentServer_InterruptsTheRead) {
  // A server that accepts connections (in its backlog) and never answers.
  int const server = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(server, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(server, 4), 0);
  socklen_t length = sizeof address;
  ASSERT_EQ(getsockname(server, reinterpret_cast<sockaddr*>(&address), &length), 0);
  std::string const url =
      "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/stream.mp3";

  test::RecordingLogger logger;
  {
    TrackHarness harness;
    AudioPlayer::Resource resource;
    resource.uri = url;
    harness.create(resource);
    // Once the connection is accepted, FFmpeg waits for an answer that never comes.
    pollfd waiting{server, POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 10000), 1) << "the track never connected";
    int const connection = accept(server, nullptr, nullptr);
    ASSERT_GE(connection, 0);
    harness.track.reset();
    harness.renderer.render(nullptr);
    close(connection);
  }
  close(server);
  // The interrupted open is reported like any input that cannot be opened.
  bool reported = false;
  for (auto const& line : logger.lines()) {
    reported =
        reported || line.message.find(": Could not open or parse input: ") != std::string::npos;
  }
  EXPECT_TRUE(reported);
}

TEST(TrackFailureTest, BytesThatAreNoAudio_FailTheTrackAsAFormatError) {
  TrackHarness harness;
  harness.createFromFile("not-audio.txt");

  ASSERT_TRUE(harness.listener.waitUntil([](auto const& r) { return !r.errors.empty(); }));
  auto const record = harness.listener.record();
  EXPECT_EQ(record.errors.front().error, AudioPlayer::MEDIA_ERROR_FORMAT);
  EXPECT_EQ(record.errors.front().message, "Failed to create demuxer ");
  EXPECT_TRUE(record.reached(AudioTrack::Error));
}

TEST(TrackFailureTest, CorruptPacketsInMp3_AreSkippedAndPlaybackGoesOn) {
  test::RecordingLogger logger;
  TrackHarness harness;
  harness.createFromFile("corrupt-mp3.mka")->play(0);

  ASSERT_TRUE(harness.listener.waitForState(AudioTrack::Finished));
  EXPECT_GT(harness.device.writtenFrames(), 72000 / 2) << "playback went on after the damage";
  bool skipped = false;
  for (auto const& line : logger.lines()) {
    skipped = skipped || (line.tag == "AVDecoderDelegate" &&
                          line.message.find(": skipping the frame: ") != std::string::npos);
  }
  EXPECT_TRUE(skipped);
}

TEST(TrackFailureTest, TheSameDamageInVorbis_FailsTheTrackWithADecodeError) {
  TrackHarness harness;
  harness.createFromFile("corrupt-vorbis.mka")->play(0);

  ASSERT_TRUE(harness.listener.waitUntil([](auto const& r) { return !r.errors.empty(); }));
  auto const record = harness.listener.record();
  EXPECT_EQ(record.errors.front().error, AudioPlayer::MEDIA_ERROR_INTERNAL);
  EXPECT_EQ(record.errors.front().message, "Failed to decode: ");
}

TEST(TrackFailureTest, TruncatedFiles_PlayWhatIsThereAndFinish) {
  for (char const* file : {"truncated.mp3", "truncated.flac"}) {
    TrackHarness harness;
    harness.createFromFile(file)->play(0);
    ASSERT_TRUE(harness.listener.waitForState(AudioTrack::Finished)) << file;
    EXPECT_GT(harness.device.writtenFrames(), 72000 * 3 / 10) << file;
    EXPECT_LT(harness.device.writtenFrames(), 72000 * 7 / 10) << file;
  }
}

TEST(TrackMetadataTest, ChainedOggStream_ReportsTheTagsOfEachLink) {
  TrackHarness harness;
  harness.createFromFile("chained.ogg")->play(0);

  ASSERT_TRUE(harness.listener.waitForState(AudioTrack::Finished));
  auto const metadata = harness.listener.record().metadata;
  ASSERT_GE(metadata.size(), 2u);
  EXPECT_EQ(metadata.front().at("title"), "First Song");
  EXPECT_EQ(metadata.front().at("artist"), "Alpha");
  EXPECT_EQ(metadata.back().at("title"), "Second Song");
  EXPECT_EQ(metadata.back().at("artist"), "Beta");
}

TEST(TrackMetadataTest, StreamTags_WinOverContainerTags) {
  TrackHarness harness;
  harness.createFromFile("tagged.mka");

  ASSERT_TRUE(harness.listener.waitUntil([](auto const& r) { return !r.metadata.empty(); }));
  auto const metadata = harness.listener.record().metadata.front();
  EXPECT_EQ(metadata.at("title"), "Stream Title");
  EXPECT_EQ(metadata.at("ALBUM"), "The Album");
}

TEST(TrackStreamFilterTest, ThreeAudioStreams_EndAtTheFirstPacketOfTheThird) {
  TrackHarness harness;
  harness.createFromFile("three-streams.mka")->play(0);

  // Packets of streams 0 and 1 reach the decoder; the first of stream 2 ends the data, long
  // before the two seconds that each stream lasts.
  ASSERT_TRUE(harness.listener.waitForState(AudioTrack::Finished));
  EXPECT_LT(harness.device.writtenFrames(), 2 * kOutputRate / 2);
}

TEST(TrackLayoutTest, RawPcmWithoutALayout_GetsTheDefaultLayoutForItsChannelCount) {
  for (auto [channels, layout] : {std::pair{2, 3ull}, std::pair{10, 185871ull}}) {
    test::RecordingLogger logger;
    TrackHarness harness;
    harness.createFromFile("tone.s16be",
                           "audio/L16;rate=48000;channels=" + std::to_string(channels));
    harness.track->play(0);
    ASSERT_TRUE(harness.listener.waitForState(AudioTrack::Finished)) << channels;
    EXPECT_EQ(harness.device.calls().front().channels, channels);
    bool guessed = false;
    for (auto const& line : logger.lines()) {
      guessed = guessed || line.message.find(": Guessed channel layout " +
                                             std::to_string(layout)) != std::string::npos;
    }
    EXPECT_TRUE(guessed) << channels;
  }
}

TEST(TrackLayoutTest, ChannelCountWithoutADefaultLayout_FailsTheDecoder) {
  test::RecordingLogger logger;
  TrackHarness harness;
  harness.createFromFile("tone.s16be", "audio/L16;rate=48000;channels=9");

  ASSERT_TRUE(harness.listener.waitUntil([](auto const& r) { return !r.errors.empty(); }));
  EXPECT_EQ(harness.listener.record().errors.front().message, "Failed to create decoder ");
  bool logged = false;
  for (auto const& line : logger.lines()) {
    logged =
        logged || line.message.find(": Failed to guess channel layout for 9") != std::string::npos;
  }
  EXPECT_TRUE(logged);
}

}  // namespace
}  // namespace oru
