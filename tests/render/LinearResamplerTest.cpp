#include "render/LinearResampler.h"

#include "RecordingLogger.h"
#include "ScriptedTrack.h"

#include <gtest/gtest.h>

using namespace oru;
using test::Ramp;

namespace {

struct Result {
  unsigned consumed;
  unsigned produced;
  std::vector<uint8_t> bytes;
};

Result run(LinearResampler& resampler, Ramp const& ramp, unsigned frames, unsigned capacity) {
  std::vector<uint8_t> const input = ramp.frames(0, frames);
  std::vector<uint8_t> output(size_t{capacity} * ramp.frameBytes());
  resampler.resample(frames, input.data(), capacity, output.data());
  output.resize(size_t{capacity} * ramp.frameBytes());
  return {frames, capacity, output};
}

class LinearResamplerTest : public ::testing::TestWithParam<AudioFormat> {};

TEST_P(LinearResamplerTest, DriftDropsOrRepeatsTwoFramesIn20000_KeepingTheRampRising) {
  Ramp const ramp{GetParam(), 1, 48000};  // 20000 mono frames stay within the 16-bit ramp
  LinearResampler resampler(ramp.format, ramp.channels, ramp.rate, kNsPerSecond);
  EXPECT_FALSE(resampler.needResample());
  EXPECT_EQ(run(resampler, ramp, 997, 1001).bytes, ramp.frames(0, 997)) << "passed through";
  resampler.init(35.5, -35.5);
  EXPECT_FALSE(resampler.needResample()) << "rates that cancel";
  for (double const ppm : {100.0, -100.0}) {
    resampler.init(ppm, 0.0);
    EXPECT_TRUE(resampler.needResample());
    Result const result = run(resampler, ramp, 20000, 20004);
    EXPECT_EQ(result.consumed, 20000u);
    EXPECT_EQ(result.produced, ppm > 0 ? 20000u - 2u : 20000u + 2u);
    // Each output frame lies between neighbouring input frames: the ramp rises by 0 to 2.
    int64_t previous = -1;
    for (unsigned frame = 0; frame < result.produced; ++frame) {
      int64_t const index = ramp.firstFrameOf(&result.bytes[frame * ramp.frameBytes()]);
      ASSERT_TRUE(index >= previous && index <= previous + 2) << "frame " << frame;
      previous = index;
    }
  }
  resampler.init(0.0, -50000.0);  // repeats one frame in twenty: a full output stops early
  Result const result = run(resampler, ramp, 301, 150);
  EXPECT_EQ(result.produced, 150u);
  EXPECT_TRUE(result.consumed > 140u && result.consumed < 150u) << result.consumed;
}

INSTANTIATE_TEST_SUITE_P(AllFormats, LinearResamplerTest,
                         ::testing::Values(PCM_S16, PCM_S32, PCM_FLOAT));

TEST(LinearResamplerFormatTest, TimeShiftFollowsTheCorrection_AndCreateRefusesWhatItCannotDo) {
  test::RecordingLogger logger;
  LinearResampler resampler(PCM_FLOAT, 2, 48000, kNsPerSecond);
  resampler.init(0.0, 48.0);  // 48 ppm at 48 kHz: -1 ns per frame
  Result const result = run(resampler, Ramp{PCM_FLOAT, 2, 48000}, 480, 484);
  EXPECT_DOUBLE_EQ(resampler.timeShift(), -1.0 * result.produced);

  EXPECT_EQ(LinearResampler::create(static_cast<AudioFormat>(3), 2, 48000, kNsPerSecond), nullptr);
  EXPECT_EQ(LinearResampler::create(PCM_S16, 0, 48000, kNsPerSecond), nullptr);
  EXPECT_EQ(LinearResampler::create(PCM_S16, 2, 0, kNsPerSecond), nullptr);
  EXPECT_NE(LinearResampler::create(PCM_S16, 2, 48000, kNsPerSecond), nullptr);
  EXPECT_EQ(logger.count("Resampler 4 Drift correction disabled: Unsupported "), 3);
}

}  // namespace
