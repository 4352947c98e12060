#include "render/LinearResampler.h"

#include <oru/Log.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace oru {
namespace {

constexpr char kTag[] = "Resampler";

// Truncates toward zero into 32 bits, saturating at the limits (and mapping NaN to 0) so that
// no value leads to an undefined conversion.
int32_t truncateToInt32(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  if (value >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
    return std::numeric_limits<int32_t>::max();
  }
  if (value <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
    return std::numeric_limits<int32_t>::min();
  }
  return static_cast<int32_t>(value);
}

// previous + (current - previous) x position, with each format's own arithmetic.
int16_t interpolate(int16_t previous, int16_t current, double position) {
  int32_t const difference = int32_t{current} - int32_t{previous};
  int32_t const value = truncateToInt32(previous + difference * position);
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(value) & 0xFFFFu));
}

int32_t interpolate(int32_t previous, int32_t current, double position) {
  // The difference wraps on overflow, as the device's own resampler does.
  auto const difference =
      static_cast<int32_t>(static_cast<uint32_t>(current) - static_cast<uint32_t>(previous));
  return truncateToInt32(previous + difference * position);
}

float interpolate(float previous, float current, double position) {
  float const difference = current - previous;
  return static_cast<float>(previous + difference * position);
}

// The same arithmetic for a position within [0, 1], where the result needs fewer checks: a
// 16-bit value lies between its two samples, a 32-bit one (whose difference may wrap) only
// needs saturating, and no NaN can arise.
int16_t interpolateWithin(int16_t previous, int16_t current, double position) {
  int32_t const difference = int32_t{current} - int32_t{previous};
  return static_cast<int16_t>(static_cast<int32_t>(previous + difference * position));
}

int32_t interpolateWithin(int32_t previous, int32_t current, double position) {
  auto const difference =
      static_cast<int32_t>(static_cast<uint32_t>(current) - static_cast<uint32_t>(previous));
  double const value = previous + difference * position;
  return static_cast<int32_t>(
      std::min(std::max(value, static_cast<double>(std::numeric_limits<int32_t>::min())),
               static_cast<double>(std::numeric_limits<int32_t>::max())));
}

float interpolateWithin(float previous, float current, double position) {
  return interpolate(previous, current, position);
}

}  // namespace

std::unique_ptr<LinearResampler> LinearResampler::create(AudioFormat format, int channels, int rate,
                                                         unsigned long long timeBase) {
  if (format != PCM_S16 && format != PCM_S32 && format != PCM_FLOAT) {
    LogMessage(LOG_WARNING, kTag) << "Drift correction disabled: Unsupported format "
                                  << static_cast<int>(format);
    return nullptr;
  }
  if (channels <= 0) {
    LogMessage(LOG_WARNING, kTag) << "Drift correction disabled: Unsupported channel count "
                                  << channels;
    return nullptr;
  }
  if (rate <= 0) {
    LogMessage(LOG_WARNING, kTag) << "Drift correction disabled: Unsupported rate " << rate;
    return nullptr;
  }
  return std::make_unique<LinearResampler>(format, channels, rate, timeBase);
}

LinearResampler::LinearResampler(AudioFormat format, int channels, int rate,
                                 unsigned long long timeBase)
    : mFormat(format), mChannels(channels), mRate(rate), mTimeBase(static_cast<int32_t>(timeBase)) {
  init(0.0, 0.0);
}

void LinearResampler::init(double driftPpm, double correctionPpm) {
  mSkipNext = false;
  mPosition = 1.0;
  mFramesProduced = 0;
  mTimeShiftPerFrame = 0.0;
  mTimeShiftBefore = 0.0;
  setRates(driftPpm, correctionPpm);  // from a time shift of zero
  auto const channels = static_cast<size_t>(mChannels);
  switch (mFormat) {
    case PCM_S16:
      mPreviousS16.resize(channels, 0);
      break;
    case PCM_S32:
      mPreviousS32.resize(channels, 0);
      break;
    case PCM_FLOAT:
      mPreviousFloat.resize(channels, 0.0f);
      break;
  }
  LogMessage(LOG_INFO, kTag) << "init drift: " << driftPpm << " " << correctionPpm
                             << " step: " << mStep;
}

void LinearResampler::setRates(double driftPpm, double correctionPpm) {
  mTimeShiftBefore = timeShift();
  mFramesProduced = 0;
  mStep = (driftPpm + correctionPpm) / 1000000.0;
  mTimeShiftPerFrame = -(correctionPpm * mTimeBase / mRate) / 1000000.0;
}

void LinearResampler::resample(unsigned int& inFrames, void const* in, unsigned int& outFrames,
                               void* out) {
  switch (mFormat) {
    case PCM_S16:
      resampleFrames(mPreviousS16, inFrames, static_cast<int16_t const*>(in), outFrames,
                     static_cast<int16_t*>(out));
      return;
    case PCM_S32:
      resampleFrames(mPreviousS32, inFrames, static_cast<int32_t const*>(in), outFrames,
                     static_cast<int32_t*>(out));
      return;
    case PCM_FLOAT:
      resampleFrames(mPreviousFloat, inFrames, static_cast<float const*>(in), outFrames,
                     static_cast<float*>(out));
      return;
  }
  inFrames = 0;
  outFrames = 0;
}

template <typename Sample>
void LinearResampler::resampleFrames(std::vector<Sample>& previous, unsigned int& inFrames,
                                     Sample const* in, unsigned int& outFrames, Sample* out) {
  // With a step below one frame, a position within [0, 1] stays there; stereo is the common
  // case, worth a loop of its own.
  bool const within = std::fabs(mStep) < 1.0 && mPosition >= 0.0 && mPosition <= 1.0;
  if (within && mChannels == 2) {
    resampleFrames<Sample, 2, true>(previous, inFrames, in, outFrames, out);
  } else if (within) {
    resampleFrames<Sample, 0, true>(previous, inFrames, in, outFrames, out);
  } else {
    resampleFrames<Sample, 0, false>(previous, inFrames, in, outFrames, out);
  }
}

template <typename Sample, int kChannels, bool kWithin>
void LinearResampler::resampleFrames(std::vector<Sample>& saved, unsigned int& inFrames,
                                     Sample const* in, unsigned int& outFrames, Sample* out) {
  auto const channels = kChannels > 0 ? size_t{kChannels} : static_cast<size_t>(mChannels);
  // The previous frame stays where it is (saved, or in the input) until the call ends.
  Sample const* previous = saved.data();
  double position = mPosition;
  bool skipNext = mSkipNext;
  unsigned int i = 0;
  unsigned int o = 0;
  while (i < inFrames && o < outFrames) {
    Sample const* input = in + i * channels;
    if (skipNext) {
      skipNext = false;
      previous = input;
      ++i;
      continue;
    }
    Sample* output = out + o * channels;
    for (size_t c = 0; c < channels; ++c) {
      output[c] = kWithin ? interpolateWithin(previous[c], input[c], position)
                          : interpolate(previous[c], input[c], position);
    }
    ++o;
    position += mStep;
    if (position > 1.0) {
      position -= 1.0;
      skipNext = true;
    } else if (position < 0.0) {
      position += 1.0;
      continue;  // input frame i is used again
    } else {
      previous = input;
    }
    ++i;
  }
  if (previous != saved.data()) {
    saved.assign(previous, previous + channels);
  }
  mPosition = position;
  mSkipNext = skipNext;
  inFrames = i;
  outFrames = o;
  mFramesProduced += o;
}

}  // namespace oru
