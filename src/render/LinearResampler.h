#pragma once

#include <oru/AudioPlayer.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace oru {

// Drift correction: stretches or squeezes interleaved PCM by a few parts per million by linear
// interpolation between neighbouring frames, dropping or repeating one input frame whenever
// the accumulated fractional position crosses a whole frame. It also accounts for how far its
// correction has moved the stream in time, so that the renderer's prediction of the next
// buffer's time stays honest.
//
// One per stream format, owned and called by the render thread only.
class LinearResampler {
 public:
  // A resampler for `format` (PCM_S16, PCM_S32 or PCM_FLOAT) and a positive channel count, or
  // null (logged) otherwise: the stream then plays without drift correction. `timeBase` is the
  // unit of the time shift in units per second (1,000,000,000 for nanoseconds).
  static std::unique_ptr<LinearResampler> create(AudioFormat format, int channels, int rate,
                                                 unsigned long long timeBase);

  // Passes audio through untouched until init() is given non-zero rates.
  LinearResampler(AudioFormat format, int channels, int rate, unsigned long long timeBase);

  // Starts correcting at driftPpm + correctionPpm. Keeps the last input frame, so that the
  // interpolation carries on without a click, and restarts the count of produced frames.
  void init(double driftPpm, double correctionPpm);
  // Goes on correcting at new rates from where it is: the interpolation and the time shift
  // carry on from their current values.
  void setRates(double driftPpm, double correctionPpm);

  // How far the content of the next output frame lies behind the next input frame, in frames
  // (negative: ahead): the interpolation's phase, which frame counts do not show.
  double lagFrames() const { return mSkipNext ? -mPosition : 1.0 - mPosition; }

  // Whether resample() changes anything.
  bool needResample() const { return mStep != 0.0; }

  // Converts up to `inFrames` frames from `in` into at most `outFrames` frames at `out`; on
  // return the two hold the frames consumed and produced.
  void resample(unsigned int& inFrames, void const* in, unsigned int& outFrames, void* out);

  // The time, in time-base units, by which the frames produced since init() have moved the
  // stream.
  double timeShift() const {
    return mTimeShiftBefore + static_cast<double>(mFramesProduced) * mTimeShiftPerFrame;
  }

 private:
  template <typename Sample>
  void resampleFrames(std::vector<Sample>& previous, unsigned int& inFrames, Sample const* in,
                      unsigned int& outFrames, Sample* out);
  // The loop, for a fixed channel count (0: any), and with a position known to stay in [0, 1].
  template <typename Sample, int kChannels, bool kWithin>
  void resampleFrames(std::vector<Sample>& saved, unsigned int& inFrames, Sample const* in,
                      unsigned int& outFrames, Sample* out);

  AudioFormat const mFormat;
  int const mChannels;
  int const mRate;
  int32_t const mTimeBase;
  // Fraction of a frame by which the read position advances beyond one frame per output frame.
  double mStep = 0.0;
  // Interpolation weight of the current input frame against the previous one.
  double mPosition = 1.0;
  // The last input frame, in the vector of the resampler's format.
  std::vector<int16_t> mPreviousS16;
  std::vector<int32_t> mPreviousS32;
  std::vector<float> mPreviousFloat;
  // The next input frame only becomes the previous frame (one input frame dropped).
  bool mSkipNext = false;
  double mTimeShiftPerFrame = 0.0;
  double mTimeShiftBefore = 0.0;  // the shift at the last change of rates
  uint64_t mFramesProduced = 0;   // since then
};

}  // namespace oru
