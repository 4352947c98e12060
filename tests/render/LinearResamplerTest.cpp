#include "render/LinearResampler.h"

#include "RecordingLogger.h"
#include "ScriptedTrack.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

namespace oru {
namespace {

using test::Ramp;

struct Result {
  unsigned consumed;
  unsigned produced;
  std::vector<uint8_t> bytes;
};

Result run(LinearResampler& resampler, Ramp const& ramp, std::vector<uint8_t> const& input,
           unsigned capacity) {
  auto in = static_cast<unsigned>(input.size() / ramp.frameBytes());
  unsigned out = capacity;
  std::vector<uint8_t> output(static_cast<size_t>(capacity) * ramp.frameBytes());
  resampler.resample(in, input.data(), out, output.data());
  output.resize(static_cast<size_t>(out) * ramp.frameBytes());
  return {in, out, output};
}

template <typename Sample>
std::vector<Sample> samples(std::vector<uint8_t> const& bytes) {
  std::vector<Sample> result(bytes.size() / sizeof(Sample));
  std::memcpy(result.data(), bytes.data(), result.size() * sizeof(Sample));
  return result;
}

class LinearResamplerFormatTest : public ::testing::TestWithParam<AudioFormat> {
 protected:
  Ramp ramp{GetParam(), 2, 48000};
};

TEST_P(LinearResamplerFormatTest, FreshResampler_PassesAudioThroughUntouched) {
  auto resampler = LinearResampler::create(ramp.format, ramp.channels, ramp.rate, 1000000000);
  ASSERT_TRUE(resampler);
  EXPECT_FALSE(resampler->needResample());

  std::vector<uint8_t> const input = ramp.frames(0, 997);
  Result const result = run(*resampler, ramp, input, 997 + 4);
  EXPECT_EQ(result.consumed, 997u);
  EXPECT_EQ(result.bytes, input);
}

TEST_P(LinearResamplerFormatTest, RatesThatCancel_NeedNoResampling) {
  LinearResampler resampler(ramp.format, ramp.channels, ramp.rate, 1000000000);
  resampler.init(35.5, -35.5);
  EXPECT_FALSE(resampler.needResample());
  resampler.init(35.5, 0.0);
  EXPECT_TRUE(resampler.needResample());
}

TEST_P(LinearResamplerFormatTest, FasterRate_DropsTwoFramesIn20000AndKeepsTheRampRising) {
  Ramp const mono{GetParam(), 1, 48000};  // 20000 mono frames stay within the 16-bit ramp
  LinearResampler resampler(mono.format, mono.channels, mono.rate, 1000000000);
  resampler.init(100.0, 0.0);
  Result const result = run(resampler, mono, mono.frames(0, 20000), 20004);

  EXPECT_EQ(result.consumed, 20000u);
  EXPECT_EQ(result.produced, 20000u - 2u);
  // Every output frame lies between neighbouring input frames: first samples rise by at
  // most two frames' worth, never fall.
  int64_t previous = -1;
  for (unsigned frame = 0; frame < result.produced; ++frame) {
    int64_t const index = mono.firstFrameOf(result.bytes.data() + frame * mono.frameBytes());
    EXPECT_GE(index, previous) << "frame " << frame;
    EXPECT_LE(index, previous + 2) << "frame " << frame;
    previous = index;
  }
}

TEST_P(LinearResamplerFormatTest, SlowerRate_RepeatsTwoFramesIn20000) {
  LinearResampler resampler(ramp.format, ramp.channels, ramp.rate, 1000000000);
  resampler.init(-100.0, 0.0);
  Result const result = run(resampler, ramp, ramp.frames(0, 20000), 20004);

  EXPECT_EQ(result.consumed, 20000u);
  EXPECT_EQ(result.produced, 20000u + 2u);
}

TEST_P(LinearResamplerFormatTest, SmallOutputCapacity_LeavesInputUnconsumed) {
  LinearResampler resampler(ramp.format, ramp.channels, ramp.rate, 1000000000);
  resampler.init(0.0, -50000.0);  // repeats one frame in twenty
  Result const result = run(resampler, ramp, ramp.frames(0, 301), 150);

  EXPECT_EQ(result.produced, 150u);
  EXPECT_LT(result.consumed, 150u) << "a slower rate repeats frames, so it consumes fewer";
  EXPECT_GT(result.consumed, 140u);
}

INSTANTIATE_TEST_SUITE_P(AllFormats, LinearResamplerFormatTest,
                         ::testing::Values(PCM_S16, PCM_S32, PCM_FLOAT), [](auto const& info) {
                           return info.param == PCM_S16   ? std::string("S16")
                                  : info.param == PCM_S32 ? std::string("S32")
                                                          : std::string("Float");
                         });

TEST(LinearResamplerTest, S32Interpolation_GoesThroughTheWrappedDifference) {
  LinearResampler resampler(PCM_S32, 1, 48000, 1000000000);
  resampler.init(-750000.0, 0.0);  // step -0.75
  int32_t const input[] = {2000000000, -2000000000};
  int32_t output[4] = {};
  unsigned in = 2;
  unsigned out = 4;
  resampler.resample(in, input, out, output);

  ASSERT_GE(out, 2u);
  EXPECT_EQ(output[0], 2000000000);
  // -2e9 - 2e9 wraps to 294,967,296; a quarter of it lands above the first sample.
  EXPECT_EQ(output[1], 2000000000 + 294967296 / 4);
}

TEST(LinearResamplerTest, S16Interpolation_TruncatesTowardZero) {
  LinearResampler resampler(PCM_S16, 1, 48000, 1000000000);
  resampler.init(-750000.0, 0.0);  // positions 1.0, 0.25, 0.5 (repeat), 0.75 ...
  int16_t const input[] = {-10, -13};
  int16_t output[4] = {};
  unsigned in = 2;
  unsigned out = 4;
  resampler.resample(in, input, out, output);

  ASSERT_EQ(out, 4u);
  EXPECT_EQ(output[0], -10);
  EXPECT_EQ(output[1], -10);  // -10.75 truncates toward zero
  EXPECT_EQ(output[2], -11);  // -11.5
  EXPECT_EQ(output[3], -12);  // -12.25
}

TEST(LinearResamplerTest, TimeShift_FollowsTheCorrectionRateOverProducedFrames) {
  LinearResampler resampler(PCM_FLOAT, 2, 48000, 1000000000);
  resampler.init(0.0, 48.0);  // 48 ppm at 48 kHz: -1 ns per frame
  Ramp const ramp{PCM_FLOAT, 2, 48000};
  Result const result = run(resampler, ramp, ramp.frames(0, 480), 484);

  EXPECT_DOUBLE_EQ(resampler.timeShift(), -1.0 * result.produced);
  resampler.init(0.0, 48.0);
  EXPECT_EQ(resampler.timeShift(), 0.0) << "init restarts the count";
}

TEST(LinearResamplerTest, Create_RefusesUnknownFormatsAndChannelCounts) {
  test::RecordingLogger logger;
  EXPECT_EQ(LinearResampler::create(static_cast<AudioFormat>(3), 2, 48000, 1000000000), nullptr);
  EXPECT_EQ(LinearResampler::create(PCM_S16, 0, 48000, 1000000000), nullptr);

  EXPECT_TRUE(
      logger.contains(LOG_WARNING, "Resampler", "Drift correction disabled: Unsupported format 3"));
  EXPECT_TRUE(logger.contains(LOG_WARNING, "Resampler",
                              "Drift correction disabled: Unsupported channel count 0"));
}

TEST(LinearResamplerTest, Init_LogsItsRates) {
  test::RecordingLogger logger;
  LinearResampler resampler(PCM_S16, 2, 44100, 1000000000);
  resampler.init(12.5, -2.5);
  EXPECT_TRUE(logger.contains(LOG_INFO, "Resampler", "init drift: 12.5 -2.5 step: 1e-05"));
}

}  // namespace
}  // namespace oru
