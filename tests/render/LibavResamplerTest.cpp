#include "render/LibavResampler.h"

#include <gtest/gtest.h>

using namespace oru;

namespace {

TEST(LibavResamplerTest, RateAndFormat_AreKeptWhenSupportedElseTheBestOtherChoice) {
  struct {
    std::vector<uint32_t> rates;
    int defaultRate, stream, rate;
    std::vector<AudioFormat> formats;
    int preferred, streamFormat, format;
  } const cases[] = {
      {{44100, 48000, 22050}, 48000, 48000, 48000, {PCM_S16, PCM_S32}, PCM_S16, PCM_S32, PCM_S32},
      {{44100, 48000, 22050}, 48000, 88200, 44100, {PCM_S16, PCM_S32}, PCM_S16, PCM_FLOAT, PCM_S16},
      {{44100, 48000, 22050}, 48000, 176400, 44100, {PCM_S16, PCM_S32}, -1, PCM_FLOAT, PCM_S32},
      {{44100, 48000, 22050}, 48000, 96000, 48000, {}, PCM_FLOAT, PCM_S16, PCM_FLOAT},
      {{44100, 48000, 22050}, 48000, 32000, 48000, {PCM_S16}, -1, PCM_S16, PCM_S16},
      {{44100, 48000}, 44100, 22050, 44100, {PCM_S16}, -1, PCM_S16, PCM_S16},
      {{}, 32000, 44100, 32000, {PCM_S16}, -1, PCM_S16, PCM_S16},
      {{0, 24000, 12000, 8000}, 44100, 48000, 24000, {PCM_S16}, -1, PCM_S16, PCM_S16}};
  for (auto const& c : cases) {
    PlaybackConfig const config{c.rates, c.defaultRate, c.preferred, c.formats};
    LibavResampler resampler(std::make_shared<AVWrapper>(), config);  // borrows the config
    EXPECT_EQ(resampler.getCompatibleRate(c.stream), c.rate) << c.stream;
    EXPECT_EQ(resampler.getCompatibleFormat(static_cast<AudioFormat>(c.streamFormat)), c.format);
  }
}

}  // namespace
