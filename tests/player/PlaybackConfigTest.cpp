#include "player/PlaybackConfig.h"

#include "RecordingLogger.h"

#include <gtest/gtest.h>

#include <vector>

namespace oru {
namespace {

// A device that answers getPlaybackConfig with whatever the test put in `caps`.
class FixedCapabilitiesDevice : public PlaybackDelegate {
 public:
  int start(AudioFormat, int) override { return 0; }
  void stop(StopBehavior) override {}
  int write(long long, void const*, unsigned*) override { return 0; }
  long long getPlayedFrames() override { return 0; }
  PlaybackCapabilities getPlaybackConfig() override {
    ++calls;
    return caps;
  }

  PlaybackCapabilities caps;
  int calls = 0;
};

TEST(ReadPlaybackConfigTest, CopiesEveryFieldDeeply) {
  std::vector<uint32_t> rates{44100, 48000, 96000};
  std::vector<AudioFormat> formats{PCM_S32, PCM_S16};
  int opaque = 0;
  FixedCapabilitiesDevice hw;
  hw.caps = {rates.data(), rates.size(), 48000, PCM_S16, formats.data(), formats.size(), &opaque};
  test::RecordingLogger logger;

  PlaybackConfig const config = readPlaybackConfig(hw);
  rates.assign(rates.size(), 0);
  formats.assign(formats.size(), PCM_FLOAT);

  EXPECT_EQ(hw.calls, 1);
  EXPECT_EQ(config.supportedRates, (std::vector<uint32_t>{44100, 48000, 96000}));
  EXPECT_EQ(config.defaultRate, 48000);
  EXPECT_EQ(config.preferredFormat, PCM_S16);
  EXPECT_EQ(config.supportedFormats, (std::vector<AudioFormat>{PCM_S32, PCM_S16}));
  EXPECT_EQ(config.codecOpaque, &opaque);
  EXPECT_TRUE(logger.lines().empty());
}

TEST(ReadPlaybackConfigTest, EmptyOrMissingLists_AreLoggedAndLeftEmpty) {
  AudioFormat const format = PCM_FLOAT;
  FixedCapabilitiesDevice hw;
  // A rate list with a count but no array, and a format array with a count of 0.
  hw.caps = {nullptr, 2, 44100, -1, &format, 0, nullptr};
  test::RecordingLogger logger;

  PlaybackConfig const config = readPlaybackConfig(hw);

  EXPECT_TRUE(config.supportedRates.empty());
  EXPECT_TRUE(config.supportedFormats.empty());
  EXPECT_EQ(config.defaultRate, 44100);
  EXPECT_EQ(config.preferredFormat, -1);
  EXPECT_TRUE(logger.contains(LOG_ERROR, "AudioPlayer", "supportedRates are empty"));
  EXPECT_TRUE(logger.contains(LOG_ERROR, "AudioPlayer", "supportedFormats are empty"));
}

TEST(ReadPlaybackConfigTest, NoPreferredFormatWithFormats_IsKeptAsIs) {
  uint32_t const rate = 48000;
  AudioFormat const format = PCM_S16;
  FixedCapabilitiesDevice hw;
  hw.caps = {&rate, 1, 48000, -1, &format, 1, nullptr};
  test::RecordingLogger logger;

  PlaybackConfig const config = readPlaybackConfig(hw);

  EXPECT_EQ(config.preferredFormat, -1);
  EXPECT_EQ(config.supportedFormats, std::vector<AudioFormat>{PCM_S16});
  EXPECT_TRUE(logger.lines().empty());
}

}  // namespace
}  // namespace oru
