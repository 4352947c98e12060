// The reference host components as a host uses them: the WAV file they write, ALSA without a
// sound card (through its file and null plugins), and a whole player on a common clock.
#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"
#include "ScriptedTrack.h"

#include <oru/AudioPlayer.h>
#include <oru/host/AlsaOutput.h>
#include <oru/host/SystemClock.h>
#include <oru/host/WavFileOutput.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace oru {
namespace {

using test::Ramp;

std::vector<uint8_t> readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
}

uint32_t le32(std::vector<uint8_t> const& bytes, size_t at) {
  return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
         static_cast<uint32_t>(bytes[at + 3]) << 24;
}

uint16_t le16(std::vector<uint8_t> const& bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

// Writes `frames` of `ramp` in writes of odd sizes.
void writeRamp(PlaybackDelegate& output, Ramp const& ramp, unsigned frames) {
  std::vector<uint8_t> const bytes = ramp.frames(0, frames);
  unsigned done = 0;
  while (done < frames) {
    unsigned count = std::min(frames - done, 333u);
    ASSERT_EQ(output.write(0, bytes.data() + done * ramp.frameBytes(), &count), 0);
    done += count;
  }
}

TEST(WavFileOutputTest, WritesAHeaderThatDescribesTheFramesAfterIt) {
  std::string const path = ::testing::TempDir() + "oruplay-output-test.wav";
  Ramp const ramp{PCM_S16, 2, 44100};
  {
    host::WavFileOutput output(path, 44100);
    PlaybackCapabilities const caps = output.getPlaybackConfig();
    ASSERT_EQ(caps.supportedRateCount, 1u);
    EXPECT_EQ(caps.supportedRates[0], 44100u);
    EXPECT_EQ(caps.supportedFormats[0], PCM_S16);

    ASSERT_EQ(output.start(PCM_S16, 2), 0);
    writeRamp(output, ramp, 1001);
    EXPECT_EQ(output.getPlayedFrames(), 1001);
    output.stop(STOP_DRAIN);
    EXPECT_EQ(output.start(PCM_S16, 1), -1) << "one file holds one channel count";
    EXPECT_EQ(output.start(PCM_FLOAT, 2), -1) << "and one format";
    ASSERT_EQ(output.start(PCM_S16, 2), 0) << "a restart in the same format appends";
    writeRamp(output, ramp, 10);
    EXPECT_EQ(output.framesWritten(), 1011);
  }
  std::vector<uint8_t> const bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 44u + 1011u * 4u);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "RIFF");
  EXPECT_EQ(le32(bytes, 4), 36u + 1011u * 4u);
  EXPECT_EQ(std::string(bytes.begin() + 8, bytes.begin() + 16), "WAVEfmt ");
  EXPECT_EQ(le16(bytes, 20), 1u);  // PCM
  EXPECT_EQ(le16(bytes, 22), 2u);
  EXPECT_EQ(le32(bytes, 24), 44100u);
  EXPECT_EQ(le32(bytes, 28), 44100u * 4u);
  EXPECT_EQ(le16(bytes, 32), 4u);
  EXPECT_EQ(le16(bytes, 34), 16u);
  EXPECT_EQ(le32(bytes, 40), 1011u * 4u);
  std::vector<uint8_t> const expected = ramp.frames(0, 1001);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes.begin() + 44));
  std::remove(path.c_str());
}

TEST(WavFileOutputTest, FloatFilesCarryTheFloatTag_AndAnUnwritablePathFailsTheStart) {
  std::string const path = ::testing::TempDir() + "oruplay-output-float.wav";
  {
    host::WavFileOutput output(path, 48000, PCM_FLOAT);
    ASSERT_EQ(output.start(PCM_FLOAT, 1), 0);
    writeRamp(output, Ramp{PCM_FLOAT, 1, 48000}, 10);
  }
  std::vector<uint8_t> const bytes = readFile(path);
  ASSERT_GE(bytes.size(), 44u);
  EXPECT_EQ(le16(bytes, 20), 3u);
  EXPECT_EQ(le16(bytes, 34), 32u);
  std::remove(path.c_str());

  host::WavFileOutput unwritable("/nonexistent-folder/out.wav");
  EXPECT_NE(unwritable.start(PCM_S16, 2), 0);
  EXPECT_TRUE(unwritable.failed());
}

TEST(AlsaOutputTest, FilePlugin_RecordsEveryFrameAndReportsThemPlayed) {
  std::string const path = ::testing::TempDir() + "oruplay-alsa.raw";
  Ramp const ramp{PCM_S16, 2, 48000};
  {
    host::AlsaOutput output("file:FILE=" + path + ",FORMAT=raw");
    ASSERT_EQ(output.start(PCM_S16, 2), 0);
    writeRamp(output, ramp, 4801);
    unsigned none = 0;
    EXPECT_EQ(output.write(0, nullptr, &none), 0) << "an underrun signal just waits";
    output.stop(STOP_DRAIN);
    EXPECT_EQ(output.getPlayedFrames(), 4801);
  }
  std::vector<uint8_t> const recorded = readFile(path);
  EXPECT_EQ(recorded, ramp.frames(0, 4801));
  std::remove(path.c_str());
}

TEST(AlsaOutputTest, PauseAndStartAgain_GoOnWithoutLosingTheDevice) {
  host::AlsaOutput output("null");
  Ramp const ramp{PCM_FLOAT, 2, 48000};
  ASSERT_EQ(output.start(PCM_FLOAT, 2), 0);
  writeRamp(output, ramp, 960);
  output.stop(STOP_PAUSE);
  ASSERT_EQ(output.start(PCM_FLOAT, 2), 0);
  writeRamp(output, ramp, 960);
  output.stop(STOP_FLUSH);
  ASSERT_EQ(output.start(PCM_S16, 1), 0) << "another format re-opens the device";
  writeRamp(output, Ramp{PCM_S16, 1, 48000}, 100);
  EXPECT_GE(output.getPlayedFrames(), 0);
}

TEST(AlsaOutputTest, Probe_TellsWhyADeviceCannotBeOpened) {
  std::string reason;
  EXPECT_TRUE(host::AlsaOutput::probe("null", &reason));
  EXPECT_FALSE(host::AlsaOutput::probe("no_such_pcm_anywhere", &reason));
  EXPECT_FALSE(reason.empty());
}

TEST(HostPlaybackTest, PlayerOnACommonClock_PlaysThroughAlsaToTheEnd) {
  test::RecordingPlayerListener listener;
  host::AlsaOutput output("null");
  host::SystemClock clock;
  clock.setOffset(123456789);
  AudioPlayer player(&listener, &output, &clock, AudioPlayer::TIMESTAMP_COMMON, nullptr);
  AudioPlayer::Resource resource;
  resource.uri = test::fixture("tone.flac");
  player.prepare(AudioPlayer::REPLACE_ALL, resource, 0, -1, -1, test::NamedToken("a"), 1);
  ASSERT_TRUE(listener.waitFor("trackReady a"));
  player.play(test::NamedToken("a"), clock.now());

  ASSERT_TRUE(listener.waitFor("playbackFinished a"));
  EXPECT_TRUE(listener.eventsStartingWith("playbackFailed").empty());
  EXPECT_EQ(output.underruns(), 0);
}

}  // namespace
}  // namespace oru
