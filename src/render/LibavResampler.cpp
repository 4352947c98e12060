#include "render/LibavResampler.h"

#include "common/Time.h"

#include <oru/Log.h>

#include <algorithm>
#include <cstring>

namespace oru {
namespace {

constexpr char kTag[] = "LibavResampler";

// The device formats and FFmpeg's packed formats, one to one; anything else has no match.
int toAudioFormat(int sampleFormat) {
  switch (sampleFormat) {
    case AV_SAMPLE_FMT_S16:
      return PCM_S16;
    case AV_SAMPLE_FMT_S32:
      return PCM_S32;
    case AV_SAMPLE_FMT_FLT:
      return PCM_FLOAT;
    default:
      return -1;
  }
}

AVSampleFormat toSampleFormat(int format) {
  switch (format) {
    case PCM_S16:
      return AV_SAMPLE_FMT_S16;
    case PCM_S32:
      return AV_SAMPLE_FMT_S32;
    case PCM_FLOAT:
      return AV_SAMPLE_FMT_FLT;
    default:
      return AV_SAMPLE_FMT_NONE;
  }
}

}  // namespace

LibavResampler::LibavResampler(std::shared_ptr<AVWrapper> wrapper, PlaybackConfig const& config)
    : mWrapper(std::move(wrapper)),
      mFirstTimestamp(AV_NOPTS_VALUE),
      mExpectedPts(AV_NOPTS_VALUE),
      mConfig(config) {}

AudioFormat LibavResampler::getCompatibleFormat(AudioFormat format) const {
  std::vector<AudioFormat> const& supported = mConfig.supportedFormats;
  if (supported.empty()) {
    return static_cast<AudioFormat>(mConfig.preferredFormat);
  }
  if (std::find(supported.begin(), supported.end(), format) != supported.end()) {
    return format;
  }
  if (mConfig.preferredFormat != -1) {
    return static_cast<AudioFormat>(mConfig.preferredFormat);
  }
  // The largest value is the richest format: float before 32-bit before 16-bit.
  return *std::max_element(supported.begin(), supported.end());
}

int LibavResampler::getCompatibleRate(int rate) const {
  std::vector<uint32_t> const& supported = mConfig.supportedRates;
  if (supported.empty()) {
    return mConfig.defaultRate;
  }
  if (rate > 0 && std::find(supported.begin(), supported.end(), static_cast<uint32_t>(rate)) !=
                      supported.end()) {
    return rate;
  }
  int best = 0;
  uint32_t bestQuotient = 0;
  for (uint32_t candidate : supported) {
    if (candidate == 0 || rate <= 0 || static_cast<uint32_t>(rate) % candidate != 0) {
      continue;
    }
    uint32_t const quotient = static_cast<uint32_t>(rate) / candidate;
    if (best == 0 || quotient < bestQuotient) {
      best = static_cast<int>(candidate);
      bestQuotient = quotient;
    }
  }
  return best != 0 ? best : mConfig.defaultRate;
}

int LibavResampler::initResampler(AVFrameHandle const& frame) {
  uint64_t const layout = mWrapper->frameChannelLayout(frame);
  if (mConverter && layout == mInputChannelLayout && frame->format == mInputSampleFormat &&
      frame->sample_rate == mInputRate) {
    return 0;
  }
  mOutputFormat = getCompatibleFormat(static_cast<AudioFormat>(toAudioFormat(frame->format)));
  mOutputRate = getCompatibleRate(frame->sample_rate);
  AVSampleFormat const outputSampleFormat = toSampleFormat(mOutputFormat);
  LogMessage(LOG_INFO, kTag) << this << ": initResampler " << layout << " "
                             << mWrapper->getSampleFormatName(
                                    static_cast<AVSampleFormat>(frame->format))
                             << " " << frame->sample_rate << " -> " << layout << " "
                             << mWrapper->getSampleFormatName(outputSampleFormat) << " "
                             << mOutputRate;

  mConverter.reset();
  mConverter = mWrapper->swrAllocSetOpts(
      nullptr, static_cast<int64_t>(layout), outputSampleFormat, mOutputRate,
      static_cast<int64_t>(layout), static_cast<AVSampleFormat>(frame->format), frame->sample_rate);
  if (!mConverter) {
    LogMessage(LOG_ERROR, kTag) << this << ": Error allocating resampler context";
    return AVERROR(ENOMEM);
  }
  int const result = mWrapper->swrInit(mConverter);
  if (result < 0) {
    LogMessage(LOG_ERROR, kTag) << this
                                << ": Error initializing resampler: " << mWrapper->strerror(result);
    mConverter.reset();
    return result;
  }
  mInputChannelLayout = layout;
  mInputSampleFormat = frame->format;
  mInputRate = frame->sample_rate;
  return 0;
}

PcmBuffer* LibavResampler::resample(AVFrameHandle const& frame, AVRational timeBase,
                                    bool correctPts, PcmBufferQueue& queue) {
  if (initResampler(frame) < 0) {
    LogMessage(LOG_ERROR, kTag) << this << ": Failed to initialize resampler";
    return nullptr;
  }
  int64_t const outSamples = mWrapper->rescaleRnd(
      mWrapper->swrGetDelay(mConverter, frame->sample_rate) + frame->nb_samples, mOutputRate,
      frame->sample_rate, AV_ROUND_UP);
  int64_t const bytesPerFrame =
      static_cast<int64_t>(bytesPerSample(mOutputFormat)) * mWrapper->frameChannels(frame);
  int64_t const bytes = outSamples * bytesPerFrame;

  PcmBuffer* buffer = queue.obtainBuffer(static_cast<unsigned>(bytes));
  if (buffer == nullptr) {
    LogMessage(LOG_DETAIL, kTag) << this << ": no buffers";
    return nullptr;
  }
  // Silence stays behind the converted samples when the converter yields fewer.
  std::memset(buffer->data, 0, static_cast<size_t>(bytes));

  uint8_t* out[] = {buffer->data};
  int const converted =
      mWrapper->swrConvert(mConverter, out, static_cast<int>(outSamples),
                           const_cast<uint8_t const**>(frame->extended_data), frame->nb_samples);
  if (converted < 0) {
    LogMessage(LOG_ERROR, kTag) << this << ": Resampling failed: " << mWrapper->strerror(converted);
    queue.releaseBuffer(buffer);
    return nullptr;
  }

  int64_t pts = frame->pts;
  if (pts == AV_NOPTS_VALUE) {
    buffer->pts = -1;
  } else {
    if (correctPts) {
      if (mExpectedPts != AV_NOPTS_VALUE && mExpectedPts != pts) {
        LogMessage(LOG_DETAIL, kTag)
            << this << ": Adjust pts to expected value: old=" << pts << " new=" << mExpectedPts;
        pts = mExpectedPts;
      }
      mExpectedPts = pts + frame->nb_samples;
    }
    int64_t const time =
        mWrapper->rescale(pts, static_cast<int64_t>(timeBase.num) * kNsPerSecond, timeBase.den);
    if (mFirstTimestamp == AV_NOPTS_VALUE) {
      int64_t const delay = mWrapper->swrGetDelay(mConverter, mOutputRate);
      mFirstTimestamp = time + framesToNs(delay, mOutputRate);
      LogMessage(LOG_INFO, kTag) << this << ": FirstTs: " << time << " resamplerDelay: " << delay
                                 << " FirstTsCorrected: " << mFirstTimestamp;
      buffer->pts = 0;
    } else {
      buffer->pts = time - mFirstTimestamp;
    }
  }

  buffer->rate = mOutputRate;
  buffer->format = mOutputFormat;
  buffer->channels = mWrapper->frameChannels(frame);
  buffer->size = static_cast<uint32_t>(bytesPerFrame * converted);
  buffer->channelLayout = mWrapper->frameChannelLayout(frame);
  buffer->duration = framesToNs(converted, mOutputRate);
  return buffer;
}

}  // namespace oru
