// The reference outputs as a host uses them: the WAV files they write, and ALSA without a
// sound card, through its file plugin.
#include "Fixtures.h"
#include "Ramp.h"
#include "Units.h"

#include <oru/host/AlsaOutput.h>
#include <oru/host/LocalClock.h>
#include <oru/host/NullOutput.h>
#include <oru/host/WavFileOutput.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>

using namespace oru;
using test::Ramp;

namespace {

std::string const path = ::testing::TempDir() + "oruplay-" + std::to_string(getpid());

std::vector<uint8_t> readFile(std::string const& path) {
  std::string const bytes = test::readText(path);
  std::remove(path.c_str());
  return {bytes.begin(), bytes.end()};
}

// Plays `frames` of `ramp` from a format's start, in writes of odd sizes, then drains.
void play(PlaybackDelegate& output, Ramp const& ramp, unsigned frames) {
  ASSERT_EQ(output.start(ramp.format, ramp.channels), 0);
  std::vector<uint8_t> const bytes = ramp.frames(0, frames);
  for (unsigned done = 0, count = 0; done < frames; done += count) {
    count = std::min(frames - done, 333u);
    ASSERT_EQ(output.write(0, &bytes[done * ramp.frameBytes()], &count), 0);
  }
  output.stop(STOP_DRAIN);
  EXPECT_EQ(output.getPlayedFrames(), frames);
}

TEST(HostOutputTest, WavFile_HoldsOneFormatWithAHeaderThatDescribesTheFramesAfterIt) {
  Ramp const ramp{PCM_S32, 2, 44100};
  {
    host::WavFileOutput output(path, 44100, PCM_S32);
    EXPECT_EQ(output.getPlaybackConfig().supportedRates[0], 44100u);
    play(output, ramp, 1001);
    EXPECT_EQ(output.start(PCM_S32, 1), -1) << "one file holds one channel count";
    EXPECT_EQ(output.start(PCM_S16, 2), -1) << "and one format";
    play(output, ramp, 10);  // a restart in the same format appends
  }
  std::vector<uint8_t> const bytes = readFile(path);
  // RIFF size, fmt chunk: PCM, 2 channels, 44100 Hz, bytes/s, 8-byte frames, 32 bits; data size.
  std::string const header(
      "RIFF\xBC\x1F\0\0WAVEfmt \x10\0\0\0\x01\0\x02\0\x44\xAC\0\0\x20\x62\x05\0"
      "\x08\0\x20\0data\x98\x1F\0\0",
      44);
  ASSERT_EQ(bytes.size(), 44u + 1011u * 8u);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 44), header);
  std::vector<uint8_t> const expected = ramp.frames(0, 1001);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes.begin() + 44));
}

TEST(HostOutputTest, AlsaFilePlugin_RecordsEveryFrameAcrossPausesAndReportsThemPlayed) {
  Ramp const ramp{PCM_S16, 2, 48000};
  {
    host::AlsaOutput output("file:FILE=" + path + ",FORMAT=raw");
    play(output, ramp, 4801);
    unsigned none = 0;
    EXPECT_EQ(output.write(0, nullptr, &none), 0) << "an underrun signal just waits";
  }
  EXPECT_EQ(readFile(path), ramp.frames(0, 4801));
}

// A clock the test sets: waiting moves it on to the time waited for.
struct SteppedClock : host::LocalClock {
  int64_t now() const override { return nowNs; }
  void sleepUntil(int64_t localNs) override { nowNs = std::max(nowNs, localNs); }
  int64_t nowNs = 1000 * host::kNsPerSecond;
};

// A device that keeps time holds back the first frame after a start until its time stamp: a
// file output records the silence before it, a paced one waits.
TEST(HostOutputTest, KeepingTime_TheFirstFrameAfterAStartIsPresentedAtItsTimeStamp) {
  Ramp const ramp{PCM_S16, 2, 48000};
  std::vector<uint8_t> const bytes = ramp.frames(0, 480);
  SteppedClock clock;
  auto writeAt = [&](auto&& output, int64_t ahead) {  // output: a temporary, closed after
    output.keepTime(true);
    ASSERT_EQ(output.start(ramp.format, ramp.channels), 0);
    unsigned frames = 480;
    ASSERT_EQ(output.write(clock.now() + ahead, bytes.data(), &frames), 0);
    output.stop(STOP_DRAIN);
  };
  auto expectSecondOfSilenceThenData = [&](size_t header) {
    std::vector<uint8_t> const recorded = readFile(path);
    ASSERT_EQ(recorded.size(), header + 48000 * 4 + bytes.size());
    EXPECT_EQ(std::count(recorded.begin() + header, recorded.end() - 1920, 0), 48000 * 4);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), recorded.end() - 1920));
  };
  writeAt(host::WavFileOutput(path, 48000, PCM_S16, false, clock), host::kNsPerSecond);
  expectSecondOfSilenceThenData(44);
  writeAt(host::AlsaOutput("file:FILE=" + path + ",FORMAT=raw", 48000, 100, clock),
          host::kNsPerSecond);
  expectSecondOfSilenceThenData(0);
  int64_t const started = clock.now();
  writeAt(host::NullOutput(host::NullOutput::kRealTime, 48000, clock), 300 * host::kNsPerMs);
  EXPECT_GE(clock.now() - started, 200 * host::kNsPerMs) << "until no more than its lead is due";
}

}  // namespace
