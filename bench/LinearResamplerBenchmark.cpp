// Cost of drift correction on the render thread: LinearResampler::resample for each format,
// stereo, at +100 and -100 ppm, over buffers of the size a decoder typically hands out; and, as
// the anchor, libswresample's own compensation (swr_set_compensation) on the same buffers.
#include "Units.h"
#include "render/LinearResampler.h"

#include <benchmark/benchmark.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <cstdint>
#include <vector>

namespace oru {
namespace {

constexpr int kChannels = 2;
constexpr unsigned kFramesPerBuffer = 1152;  // one MP3 frame; other codecs are of this order
constexpr unsigned kHeadroom = 4;

// One buffer of stereo samples, the same for every benchmark.
template <typename Sample>
std::vector<Sample> bufferOf() {
  std::vector<Sample> input(kFramesPerBuffer * kChannels);
  for (size_t i = 0; i < input.size(); ++i) {
    input[i] = static_cast<Sample>((i * 37) % 1000);
  }
  return input;
}

void report(benchmark::State& state, int64_t frames) {
  state.SetItemsProcessed(frames);
  state.counters["frames/s"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}

template <typename Sample>
void resample(benchmark::State& state, AudioFormat format) {
  double const ppm = static_cast<double>(state.range(0));
  LinearResampler resampler(format, kChannels, 48000, host::kNsPerSecond);
  resampler.init(ppm, 0.0);
  std::vector<Sample> const input = bufferOf<Sample>();
  std::vector<Sample> output((kFramesPerBuffer + kHeadroom) * kChannels);

  int64_t frames = 0;
  for (auto _ : state) {
    unsigned in = kFramesPerBuffer;
    unsigned out = kFramesPerBuffer + kHeadroom;
    resampler.resample(in, input.data(), out, output.data());
    benchmark::DoNotOptimize(output.data());
    benchmark::ClobberMemory();
    frames += in;
  }
  report(state, frames);
}

// libswresample at the same rate in and out, told to absorb `ppm` of the output over each
// million frames: it then runs its polyphase filter on every frame.
template <typename Sample>
void compensate(benchmark::State& state, AVSampleFormat format) {
  double const ppm = static_cast<double>(state.range(0));
  AVChannelLayout stereo{};
  av_channel_layout_default(&stereo, kChannels);
  SwrContext* swr = nullptr;
  swr_alloc_set_opts2(&swr, &stereo, format, 48000, &stereo, format, 48000, 0, nullptr);
  if (swr == nullptr || swr_init(swr) < 0 ||
      swr_set_compensation(swr, static_cast<int>(-ppm), static_cast<int>(host::kPartsPerMillion)) <
          0) {
    state.SkipWithError("libswresample refused the compensation");
    swr_free(&swr);
    return;
  }
  std::vector<Sample> const input = bufferOf<Sample>();
  std::vector<Sample> output((kFramesPerBuffer + 64) * kChannels);
  int64_t frames = 0;
  for (auto _ : state) {
    auto* out = reinterpret_cast<uint8_t*>(output.data());
    auto const* in = reinterpret_cast<uint8_t const*>(input.data());
    benchmark::DoNotOptimize(swr_convert(swr, &out, kFramesPerBuffer + 64, &in, kFramesPerBuffer));
    benchmark::ClobberMemory();
    frames += kFramesPerBuffer;
  }
  swr_free(&swr);
  report(state, frames);
}

void ResampleS16(benchmark::State& state) { resample<int16_t>(state, PCM_S16); }
void ResampleS32(benchmark::State& state) { resample<int32_t>(state, PCM_S32); }
void ResampleFloat(benchmark::State& state) { resample<float>(state, PCM_FLOAT); }

BENCHMARK(ResampleS16)->Arg(100)->Arg(-100);
BENCHMARK(ResampleS32)->Arg(100)->Arg(-100);
BENCHMARK(ResampleFloat)->Arg(100)->Arg(-100);

void SwrCompensateS16(benchmark::State& state) { compensate<int16_t>(state, AV_SAMPLE_FMT_S16); }
void SwrCompensateS32(benchmark::State& state) { compensate<int32_t>(state, AV_SAMPLE_FMT_S32); }
void SwrCompensateFloat(benchmark::State& state) { compensate<float>(state, AV_SAMPLE_FMT_FLT); }

BENCHMARK(SwrCompensateS16)->Arg(100)->Arg(-100);
BENCHMARK(SwrCompensateS32)->Arg(100)->Arg(-100);
BENCHMARK(SwrCompensateFloat)->Arg(100)->Arg(-100);

}  // namespace
}  // namespace oru
