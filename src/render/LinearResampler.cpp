#include "render/LinearResampler.h"

#include "common/Time.h"

#include <oru/Log.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Both channels of a stereo frame. 32-bit samples, with their conversions and saturation, cost
// the most; where two-lane double arithmetic exists they take it, with the same operations in
// the same order in each lane, so that the results are identical.
template <typename Sample>
void interpolateStereoWithin(Sample const* previous, Sample const* current, double position,
                             Sample* output) {
  output[0] = interpolateWithin(previous[0], current[0], position);
  output[1] = interpolateWithin(previous[1], current[1], position);
}

#if defined(__SSE2__)
template <>
void interpolateStereoWithin(int32_t const* previous, int32_t const* current, double position,
                             int32_t* output) {
  __m128i const from = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(previous));
  __m128i const to = _mm_loadl_epi64(reinterpret_cast<__m128i const*>(current));
  __m128d const difference = _mm_cvtepi32_pd(_mm_sub_epi32(to, from));  // wraps, as above
  __m128d value = _mm_add_pd(_mm_cvtepi32_pd(from), _mm_mul_pd(difference, _mm_set1_pd(position)));
  value = _mm_min_pd(_mm_max_pd(value, _mm_set1_pd(std::numeric_limits<int32_t>::min())),
                     _mm_set1_pd(std::numeric_limits<int32_t>::max()));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(output), _mm_cvttpd_epi32(value));
}

template <>
void interpolateStereoWithin(int16_t const* previous, int16_t const* current, double position,
                             int16_t* output) {
  int32_t fromBits, toBits;
  std::memcpy(&fromBits, previous, sizeof fromBits);
  std::memcpy(&toBits, current, sizeof toBits);
  // Sign-extended to 32 bits; the difference of two 16-bit samples cannot wrap there.
  __m128i const from =
      _mm_srai_epi32(_mm_unpacklo_epi16(_mm_setzero_si128(), _mm_cvtsi32_si128(fromBits)), 16);
  __m128i const to =
      _mm_srai_epi32(_mm_unpacklo_epi16(_mm_setzero_si128(), _mm_cvtsi32_si128(toBits)), 16);
  __m128d const difference = _mm_cvtepi32_pd(_mm_sub_epi32(to, from));
  __m128d const value =
      _mm_add_pd(_mm_cvtepi32_pd(from), _mm_mul_pd(difference, _mm_set1_pd(position)));
  // Between its two samples, the value fits 16 bits: packing cannot saturate.
  __m128i const result = _mm_packs_epi32(_mm_cvttpd_epi32(value), _mm_setzero_si128());
  int32_t const resultBits = _mm_cvtsi128_si32(result);
  std::memcpy(output, &resultBits, sizeof resultBits);
}
#endif

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
  mStep = (driftPpm + correctionPpm) / kPartsPerMillion;
  mTimeShiftPerFrame = -(correctionPpm * mTimeBase / mRate) / kPartsPerMillion;
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
    if constexpr (kWithin && kChannels == 2) {
      interpolateStereoWithin(previous, input, position, output);
    } else {
      for (size_t c = 0; c < channels; ++c) {
        output[c] = kWithin ? interpolateWithin(previous[c], input[c], position)
                            : interpolate(previous[c], input[c], position);
      }
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
