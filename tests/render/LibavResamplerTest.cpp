#include "render/LibavResampler.h"

#include "RecordingLogger.h"
#include "render/BufferQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // the frame's channel fields
#endif

namespace oru {
namespace {

// A stream time in ns, rounded to nearest as the converter stamps it.
int64_t ns(int64_t samples, int rate) { return av_rescale(samples, 1000000000, rate); }

PlaybackConfig makeConfig(std::vector<uint32_t> rates, int defaultRate,
                          std::vector<AudioFormat> formats, int preferred) {
  PlaybackConfig config;
  config.supportedRates = std::move(rates);
  config.defaultRate = defaultRate;
  config.supportedFormats = std::move(formats);
  config.preferredFormat = preferred;
  return config;
}

TEST(LibavResamplerChoiceTest, Rate_IsKeptWhenSupportedElseDividedElseTheDefault) {
  auto const config = makeConfig({44100, 48000, 22050}, 48000, {PCM_S16}, -1);
  LibavResampler resampler(std::make_shared<AVWrapper>(), config);
  EXPECT_EQ(resampler.getCompatibleRate(48000), 48000);
  EXPECT_EQ(resampler.getCompatibleRate(88200), 44100) << "smallest quotient wins";
  EXPECT_EQ(resampler.getCompatibleRate(176400), 44100);
  EXPECT_EQ(resampler.getCompatibleRate(96000), 48000);
  EXPECT_EQ(resampler.getCompatibleRate(32000), 48000) << "nothing divides it";

  auto const noDivisor = makeConfig({44100, 48000}, 44100, {PCM_S16}, -1);
  EXPECT_EQ(LibavResampler(std::make_shared<AVWrapper>(), noDivisor).getCompatibleRate(22050),
            44100);
  auto const none = makeConfig({}, 32000, {PCM_S16}, -1);
  EXPECT_EQ(LibavResampler(std::make_shared<AVWrapper>(), none).getCompatibleRate(44100), 32000);
  auto const tie = makeConfig({0, 24000, 12000, 8000}, 44100, {PCM_S16}, -1);
  EXPECT_EQ(LibavResampler(std::make_shared<AVWrapper>(), tie).getCompatibleRate(48000), 24000);
}

TEST(LibavResamplerChoiceTest, Format_IsKeptWhenSupportedElsePreferredElseTheLargest) {
  auto wrapper = std::make_shared<AVWrapper>();
  auto const preferred = makeConfig({48000}, 48000, {PCM_S16, PCM_S32}, PCM_S16);
  EXPECT_EQ(LibavResampler(wrapper, preferred).getCompatibleFormat(PCM_S32), PCM_S32);
  EXPECT_EQ(LibavResampler(wrapper, preferred).getCompatibleFormat(PCM_FLOAT), PCM_S16);
  auto const largest = makeConfig({48000}, 48000, {PCM_S16, PCM_S32}, -1);
  EXPECT_EQ(LibavResampler(wrapper, largest).getCompatibleFormat(PCM_FLOAT), PCM_S32);
  auto const empty = makeConfig({48000}, 48000, {}, PCM_FLOAT);
  EXPECT_EQ(LibavResampler(wrapper, empty).getCompatibleFormat(PCM_S16), PCM_FLOAT);
}

// Planar float frames as FFmpeg's decoders hand them out, filled with a slow ramp.
class LibavResamplerTest : public ::testing::Test {
 protected:
  LibavResamplerTest() : resampler(std::make_shared<AVWrapper>(), config) {}

  AVFrameHandle frame(int rate, uint64_t layout, int samples, int64_t pts) {
    AVFrameHandle made(av_frame_alloc());
    made->format = AV_SAMPLE_FMT_FLTP;
    made->sample_rate = rate;
    made->channel_layout = layout;
    made->channels = av_get_channel_layout_nb_channels(layout);
    av_channel_layout_from_mask(&made->ch_layout, layout);
    made->nb_samples = samples;
    made->pts = pts;
    EXPECT_EQ(av_frame_get_buffer(made.get(), 0), 0);
    for (int c = 0; c < made->channels; ++c) {
      auto* samplesOut = reinterpret_cast<float*>(made->extended_data[c]);
      for (int i = 0; i < samples; ++i) {
        samplesOut[i] = 0.25f + 0.0001f * static_cast<float>(i);
      }
    }
    return made;
  }

  PcmBuffer* convert(AVFrameHandle const& input, AVRational timeBase, bool correctPts = false) {
    PcmBuffer* buffer = resampler.resample(input, timeBase, correctPts, queue);
    EXPECT_NE(buffer, nullptr);
    return buffer;
  }

  int linesContaining(std::string const& text) const {
    auto const lines = logger.lines();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](auto const& line) {
      return line.message.find(text) != std::string::npos;
    }));
  }

  test::RecordingLogger logger;
  PlaybackConfig const config = makeConfig({48000}, 48000, {PCM_S16}, PCM_S16);
  BufferQueue queue{8};
  LibavResampler resampler;
};

TEST_F(LibavResamplerTest, SteadyFrames_SetUpTheConverterOnceAndCountTimeFromTheFirstFrame) {
  AVRational const timeBase{1, 48000};
  PcmBuffer* first = convert(frame(48000, AV_CH_LAYOUT_STEREO, 1024, 0), timeBase);
  PcmBuffer* second = convert(frame(48000, AV_CH_LAYOUT_STEREO, 1024, 1024), timeBase);
  PcmBuffer* third = convert(frame(48000, AV_CH_LAYOUT_STEREO, 1024, 2048), timeBase);

  EXPECT_EQ(linesContaining(": initResampler "), 1);
  EXPECT_EQ(first->pts, 0);
  EXPECT_EQ(first->format, PCM_S16);
  EXPECT_EQ(first->rate, 48000);
  EXPECT_EQ(first->channels, 2);
  EXPECT_EQ(first->channelLayout, AV_CH_LAYOUT_STEREO);
  EXPECT_EQ(first->size, 1024u * 4u);
  EXPECT_EQ(first->duration, 1024 * 1000000000LL / 48000);
  EXPECT_EQ(second->pts, ns(1024, 48000));
  EXPECT_EQ(third->pts, ns(2048, 48000));
  int16_t sample = 0;
  std::memcpy(&sample, first->data, sizeof sample);
  EXPECT_EQ(sample, 8192) << "0.25 full scale";
  for (PcmBuffer* buffer : {first, second, third}) {
    queue.releaseBuffer(buffer);
  }
}

TEST_F(LibavResamplerTest, RateChangeMidStream_RebuildsTheConverterAndKeepsTheTimeline) {
  AVRational const timeBase{1, 1000};
  queue.releaseBuffer(convert(frame(48000, AV_CH_LAYOUT_STEREO, 480, 0), timeBase));
  PcmBuffer* changed = convert(frame(44100, AV_CH_LAYOUT_STEREO, 441, 10), timeBase);
  PcmBuffer* mono = convert(frame(44100, AV_CH_LAYOUT_MONO, 441, 20), timeBase);

  EXPECT_EQ(linesContaining(": initResampler "), 3);
  EXPECT_EQ(resampler.getDecoderRate(), 44100);
  EXPECT_EQ(resampler.getDecoderChannelLayout(), AV_CH_LAYOUT_MONO);
  EXPECT_EQ(changed->rate, 48000);
  EXPECT_EQ(changed->pts, 10000000) << "measured from the first frame, not restarted";
  EXPECT_EQ(mono->pts, 20000000);
  EXPECT_EQ(mono->channels, 1);
  queue.releaseBuffer(changed);
  queue.releaseBuffer(mono);
}

TEST_F(LibavResamplerTest, FramesWithoutTime_AreMarkedAndTheFirstTimedOneStartsAtZero) {
  AVRational const timeBase{1, 48000};
  PcmBuffer* untimed = convert(frame(48000, AV_CH_LAYOUT_STEREO, 256, AV_NOPTS_VALUE), timeBase);
  PcmBuffer* timed = convert(frame(48000, AV_CH_LAYOUT_STEREO, 256, 5000), timeBase);
  PcmBuffer* next = convert(frame(48000, AV_CH_LAYOUT_STEREO, 256, 5256), timeBase);

  EXPECT_EQ(untimed->pts, -1);
  EXPECT_EQ(timed->pts, 0);
  EXPECT_EQ(next->pts, ns(5256, 48000) - ns(5000, 48000));
  EXPECT_EQ(linesContaining(": FirstTs: 104166667 resamplerDelay: 0 FirstTsCorrected: 104166667"),
            1);
  for (PcmBuffer* buffer : {untimed, timed, next}) {
    queue.releaseBuffer(buffer);
  }
}

TEST_F(LibavResamplerTest, CorrectedTimes_StampALateFrameAsIfItCameOnTime) {
  AVRational const timeBase{1, 48000};
  PcmBuffer* first = convert(frame(48000, AV_CH_LAYOUT_STEREO, 100, 0), timeBase, true);
  PcmBuffer* late = convert(frame(48000, AV_CH_LAYOUT_STEREO, 100, 110), timeBase, true);
  PcmBuffer* after = convert(frame(48000, AV_CH_LAYOUT_STEREO, 100, 210), timeBase, true);

  EXPECT_EQ(late->pts, ns(100, 48000));
  EXPECT_EQ(linesContaining(": Adjust pts to expected value: old=110 new=100"), 1);
  EXPECT_EQ(after->pts, ns(200, 48000)) << "continues from the corrected time";
  EXPECT_EQ(linesContaining(": Adjust pts to expected value: old=210 new=200"), 1);
  for (PcmBuffer* buffer : {first, late, after}) {
    queue.releaseBuffer(buffer);
  }
}

TEST_F(LibavResamplerTest, OutputStorage_IsSilentBeyondTheConvertedSamples) {
  // Leave garbage in the storage that the next conversion reuses.
  BufferQueue single(1);
  PcmBuffer* dirty = single.obtainBuffer(64 * 1024);
  std::memset(dirty->data, 0xab, dirty->capacity);
  single.releaseBuffer(dirty);

  // 44.1 kHz to 48 kHz: the converter holds back some samples of the first frame.
  int const samples = 441;
  PcmBuffer* buffer =
      resampler.resample(frame(44100, AV_CH_LAYOUT_STEREO, samples, 0), {1, 44100}, false, single);
  ASSERT_NE(buffer, nullptr);
  auto const outSamples = static_cast<uint32_t>((samples * 48000 + 44099) / 44100);
  uint32_t const reserved = outSamples * 4;
  ASSERT_LT(buffer->size, reserved);
  EXPECT_TRUE(std::all_of(buffer->data + buffer->size, buffer->data + reserved,
                          [](uint8_t byte) { return byte == 0; }));
  single.releaseBuffer(buffer);
}

TEST_F(LibavResamplerTest, UnconvertibleFrame_IsRefusedAndTheNextGoodOneConverts) {
  AVRational const timeBase{1, 48000};
  AVFrameHandle bad = frame(48000, AV_CH_LAYOUT_STEREO, 64, 0);
  bad->sample_rate = 0;
  EXPECT_EQ(resampler.resample(bad, timeBase, false, queue), nullptr);
  EXPECT_EQ(linesContaining(": Failed to initialize resampler"), 1);

  PcmBuffer* good = convert(frame(48000, AV_CH_LAYOUT_STEREO, 64, 0), timeBase);
  EXPECT_EQ(good->pts, 0);
  queue.releaseBuffer(good);
}

TEST_F(LibavResamplerTest, StoppingQueue_EndsConversionWithNoBuffer) {
  BufferQueue stopped(0);
  stopped.releaseBuffer(nullptr);
  EXPECT_EQ(
      resampler.resample(frame(48000, AV_CH_LAYOUT_STEREO, 64, 0), {1, 48000}, false, stopped),
      nullptr);
  EXPECT_EQ(linesContaining(": no buffers"), 1);
}

}  // namespace
}  // namespace oru
