#include "render/LinearResampler.h"

#include "RecordingLogger.h"
#include "ScriptedTrack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

using namespace oru;
using test::Ramp;

namespace {

struct Result {
  unsigned consumed, produced;
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

TEST_P(LinearResamplerTest, DriftDropsOrRepeatsTwoFramesIn20000_AndAFullOutputStopsEarly) {
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

// Drift correction one frame at a time, as plainly as its arithmetic is defined: the faster loops
// of LinearResampler must give the same bits.
template <typename Sample>
std::vector<Sample> plainResample(std::vector<Sample> const& in, size_t channels, double step) {
  auto interpolate = [](Sample previous, Sample current, double position) {
    if constexpr (std::is_same_v<Sample, float>) {
      return static_cast<float>(previous + (current - previous) * position);
    } else {  // a 32-bit difference, wrapping; truncated, saturated to 32 bits, then stored
      auto const difference =
          static_cast<int32_t>(static_cast<uint32_t>(current) - static_cast<uint32_t>(previous));
      double const value =
          std::clamp(previous + difference * position, -2147483648.0, 2147483647.0);
      return static_cast<Sample>(static_cast<int32_t>(value));
    }
  };
  std::vector<Sample> out, previous(channels, 0);
  double position = 1.0;
  bool skipNext = false;
  for (size_t i = 0; i < in.size() / channels;) {
    Sample const* input = &in[i * channels];
    if (!std::exchange(skipNext, false)) {
      for (size_t c = 0; c < channels; ++c) {
        out.push_back(interpolate(previous[c], input[c], position));
      }
      position += step;
      if (position < 0.0) {
        position += 1.0;
        continue;  // frame i again
      }
      if (position > 1.0) {  // the next frame is skipped: it will replace this one unused
        position -= 1.0;
        skipNext = true;
      }
    }
    previous.assign(input, input + channels);
    ++i;
  }
  return out;
}

template <typename Sample>
void expectSameAsPlain(AudioFormat format) {
  static std::mt19937 random(20261124);
  std::uniform_real_distribution<double> anywhere(-3e9, 3e9);
  for (int const channels : {1, 2, 3}) {
    for (double const ppm : {-1234.5, 87.25, 20000.0, 1.5e6}) {  // the last: steps past a frame
      SCOPED_TRACE(std::to_string(channels) + " channels at " + std::to_string(ppm) + " ppm");
      std::vector<Sample> input(size_t{20011} * channels);
      for (Sample& sample : input) {  // any 16- or 32-bit value; floats within +-3
        double const value = anywhere(random);
        sample = std::is_same_v<Sample, float> ? static_cast<Sample>(value / 1e9)
                                               : static_cast<Sample>(static_cast<int64_t>(value));
      }
      LinearResampler resampler(format, channels, 48000, kNsPerSecond);
      resampler.init(ppm, 0.0);
      std::vector<Sample> produced, buffer(input.size() * 3);
      for (size_t at = 0, n = 1; at < input.size(); at += n * channels, n = n * 7 % 1013) {
        unsigned in = std::min<unsigned>(n, (input.size() - at) / channels), out = 3 * in + 4;
        resampler.resample(in, &input[at], out, buffer.data());
        produced.insert(produced.end(), buffer.begin(), buffer.begin() + out * channels);
      }
      std::vector<Sample> const expected = plainResample(input, channels, ppm / 1e6);
      ASSERT_EQ(produced.size(), expected.size());
      EXPECT_EQ(std::memcmp(produced.data(), expected.data(), expected.size() * sizeof(Sample)), 0);
    }
  }
}

TEST(LinearResamplerFormatTest, EveryFormat_GivesTheBitsOfThePlainArithmetic) {
  expectSameAsPlain<int16_t>(PCM_S16);
  expectSameAsPlain<int32_t>(PCM_S32);
  expectSameAsPlain<float>(PCM_FLOAT);
}

}  // namespace
