// Real media through a real player: every codec and layout the engine plays, its inputs, and
// how each kind of input ends its track.
#include "PlayerHarness.h"
#include "RecordingLogger.h"
#include "common/Time.h"
#include "decode/AudioTrack.h"
#include "decode/FFmpeg.h"

#include <gtest/gtest.h>

using namespace oru;

namespace {

struct Media {
  char const* file;
  char const* mimeType;
  double seconds;
  int channels;
  int toleranceFrames;   // the codec's own delay and padding, plus the converter's tail
  bool damaged = false;  // the decoder reports the damage as errors
};

void PrintTo(Media const& media, std::ostream* out) { *out << media.file << ' ' << media.mimeType; }

class MediaTest : public ::testing::TestWithParam<Media> {};

TEST_P(MediaTest, PlaysToTheEndWithEveryFrameAtContinuousTimes) {
  Media const media = GetParam();
  test::RecordingLogger logger;
  test::PlayerHarness harness;
  harness.prepare(media.file, "a", AudioPlayer::REPLACE_ALL, media.mimeType);
  harness.play("a");
  ASSERT_TRUE(harness.listener.waitFor("playbackFinished a"));
  EXPECT_EQ(harness.device.calls.entries().front().channels, media.channels);
  EXPECT_NEAR(harness.device.writtenFrames(), media.seconds * 48000, media.toleranceFrames);
  int64_t next = -1;
  for (auto const& write : harness.device.writes()) {
    EXPECT_TRUE(next < 0 || std::abs(write.timestamp - next) < kNsPerMs) << "gap or overlap";
    next = write.timestamp + framesToNs(write.accepted, 48000);
  }
  EXPECT_TRUE(media.damaged || logger.errors().empty()) << testing::PrintToString(logger.errors());
}

// Converting to 48 kHz leaves the converter's last frames unflushed (17 at 44.1 kHz, 34 at
// 22.05 kHz). AAC keeps its padding (up to 1024 samples) and, in ADTS, its priming too.
INSTANTIATE_TEST_SUITE_P(
    Media, MediaTest,
    ::testing::Values(Media{"tone.wav", "", 1.5, 2, 40}, Media{"tone-s24.wav", "", 1.5, 2, 40},
                      Media{"tone-f32.wav", "", 1.5, 2, 40}, Media{"tone.flac", "", 1.5, 2, 40},
                      Media{"tone-alac.m4a", "audio/x-unregistered", 1.5, 2, 40},
                      Media{"tone.s16be", "audio/L16;rate=44100;channels=2", 1.5, 2, 40},
                      Media{"tone.s16be", "audio/L16;rate=22050;channels=2", 3, 2, 40},
                      Media{"tone.mp3", "", 1.5, 2, 40}, Media{"tone.m4a", "", 1.5, 2, 1024},
                      Media{"tone.aac", "", 1.5, 2, 2048}, Media{"tone.ogg", "", 1.5, 2, 40},
                      Media{"tone.opus", "", 1.5, 2, 40}, Media{"ch1-22050.flac", "", 1, 1, 40},
                      Media{"ch6-44100.flac", "", 1, 6, 40}, Media{"ch1-48000.flac", "", 1, 1, 0},
                      Media{"ch6-48000.flac", "", 1, 6, 0},
                      Media{"tone.s16be", "audio/L16;rate=48000;channels=10", 0.275625, 10, 0},
                      Media{"ch2-96000.flac", "", 1, 2, 40},
                      Media{"truncated.flac", "", 0.75, 2, 72000 / 5, true},
                      Media{"truncated.mp3", "", 0.75, 2, 72000 / 5, true},
                      Media{"art.mp3", "", 1.5, 2, 40}, Media{"art.flac", "", 1.5, 2, 40},
                      Media{"art.m4a", "", 1.5, 2, 1024}, Media{"art.ogg", "", 1.5, 2, 40},
                      Media{"art.opus", "", 1.5, 2, 40}));

TEST(MediaEndTest, EachInput_EndsItsTrackWithTheExpectedEvent) {
  struct {
    char const* file;
    char const* mimeType;
    std::string end;
    char const* logLine;
    int writeResult = 0;
  } const cases[] = {
      {"tone.flac", "", std::string("playbackFailed a 4 ") + Failure::kRender, "Write error: 3", 3},
      {"corrupt-vorbis.mka", "", std::string("playbackFailed a 4 ") + Failure::kDecode, ""},
      {"tone.s16be", "audio/L16;rate=48000;channels=9",
       std::string("playbackFailed a 2 ") + Failure::kDecoder,
       ": Failed to guess channel layout for 9"},
      // The same damage as the Vorbis file's: the MP3 decoder skips it and plays on.
      {"corrupt-mp3.mka", "", "playbackFinished a", ": skipping the frame: "},
      {"empty.wav", "", "playbackFinished a 0", ""},
      {"hls.m3u8", "", "playbackFinished a", ""}};
  for (auto const& c : cases) {
    test::RecordingLogger logger;
    test::PlayerHarness harness;
    harness.device.writeResult = c.writeResult;
    harness.prepare(c.file, "a", AudioPlayer::REPLACE_ALL, c.mimeType);
    harness.play("a");
    ASSERT_TRUE(harness.listener.waitFor(c.end)) << c.file;
    EXPECT_EQ(harness.listener.startingWith("playback").back().rfind(c.end, 0), 0u);
    EXPECT_TRUE(logger.logged(c.logLine)) << c.logLine;
  }
}

}  // namespace
