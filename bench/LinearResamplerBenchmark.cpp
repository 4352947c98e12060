// Cost of drift correction on the render thread: LinearResampler::resample for each format,
// stereo, at +100 and -100 ppm, over buffers of the size a decoder typically hands out.
#include "common/Time.h"
#include "render/LinearResampler.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace oru {
namespace {

constexpr int kChannels = 2;
constexpr unsigned kFramesPerBuffer = 1152;  // one MP3 frame; other codecs are of this order
constexpr unsigned kHeadroom = 4;

template <typename Sample>
void resample(benchmark::State& state, AudioFormat format) {
  double const ppm = static_cast<double>(state.range(0));
  LinearResampler resampler(format, kChannels, 48000, kNsPerSecond);
  resampler.init(ppm, 0.0);
  std::vector<Sample> input(kFramesPerBuffer * kChannels);
  for (size_t i = 0; i < input.size(); ++i) {
    input[i] = static_cast<Sample>((i * 37) % 1000);
  }
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
  state.SetItemsProcessed(frames);
  state.counters["frames/s"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}

void ResampleS16(benchmark::State& state) { resample<int16_t>(state, PCM_S16); }
void ResampleS32(benchmark::State& state) { resample<int32_t>(state, PCM_S32); }
void ResampleFloat(benchmark::State& state) { resample<float>(state, PCM_FLOAT); }

BENCHMARK(ResampleS16)->Arg(100)->Arg(-100);
BENCHMARK(ResampleS32)->Arg(100)->Arg(-100);
BENCHMARK(ResampleFloat)->Arg(100)->Arg(-100);

}  // namespace
}  // namespace oru
