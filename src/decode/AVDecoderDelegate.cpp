#include "decode/AVDecoderDelegate.h"

#include "decode/AVDemuxer.h"

#include <oru/Log.h>

namespace oru {
namespace {

constexpr char kTag[] = "AVDecoderDelegate";

}  // namespace

std::unique_ptr<AVDecoderDelegate> AVDecoderDelegate::create(AVStream* stream,
                                                             PlaybackConfig const& config,
                                                             std::shared_ptr<AVWrapper> wrapper,
                                                             int version) {
  std::unique_ptr<AVDecoderDelegate> decoder(
      new AVDecoderDelegate(stream, config, std::move(wrapper), version));
  if (!decoder->openCodec()) {
    return nullptr;
  }
  return decoder;
}

AVDecoderDelegate::AVDecoderDelegate(AVStream* stream, PlaybackConfig const& config,
                                     std::shared_ptr<AVWrapper> wrapper, int version)
    : mWrapper(std::move(wrapper)),
      mFrame(mWrapper->frameAlloc()),
      mConfig(config),
      mResampler(mWrapper, mConfig),
      mVersion(version),
      mStream(stream) {}

bool AVDecoderDelegate::openCodec() {
  AVCodec const* codec = mWrapper->codecFindDecoder(mStream->codecpar->codec_id);
  if (codec == nullptr) {
    LogMessage(LOG_ERROR, kTag) << this << ": Failed to find decoder";
    return false;
  }
  mCodecContext.reset(mWrapper->codecAllocContext(codec));
  if (!mCodecContext) {
    LogMessage(LOG_ERROR, kTag) << this << ": Failed to allocate codec context";
    return false;
  }
  int result = mWrapper->optSetInt(mCodecContext.get(), "oru_version", mVersion, 0);
  if (result < 0) {
    LogMessage(LOG_ERROR, kTag) << this
                                << ": Failed to set oru_version: " << mWrapper->strerror(result);
    return false;
  }
  result = mWrapper->codecParametersToContext(mCodecContext, mStream->codecpar);
  if (result < 0) {
    LogMessage(LOG_ERROR, kTag) << this << ": Failed to copy codec parameters to decoder context: "
                                << mWrapper->strerror(result);
    return false;
  }
  mWrapper->codecSetTimebase(mCodecContext, mStream->time_base);
  // The device's patched codecs find the host's codec data here.
  mCodecContext->opaque = mConfig.codecOpaque;
  result = mWrapper->codecOpen(mCodecContext, codec, nullptr);
  if (result < 0) {
    LogMessage(LOG_ERROR, kTag) << this << ": Failed open codec: " << mWrapper->strerror(result);
    return false;
  }

  if (mWrapper->codecChannelLayout(mCodecContext) == 0) {
    int const channels = mCodecContext->ch_layout.nb_channels;
    int64_t const layout = mWrapper->channelCountToLayout(channels);
    if (layout == 0) {
      LogMessage(LOG_ERROR, kTag) << this << ": Failed to guess channel layout for " << channels;
      return false;
    }
    mWrapper->codecSetChannelLayout(mCodecContext, static_cast<uint64_t>(layout));
    LogMessage(LOG_DETAIL, kTag) << this << ": Guessed channel layout "
                                 << static_cast<uint64_t>(layout);
  }
  // FFmpeg 5.1 has no counterpart of the device's internal field that 16-bit little-endian PCM
  // streams clear here, so nothing is done for them.
  mIsVorbis = mCodecContext->codec_id == AV_CODEC_ID_VORBIS;
  return true;
}

DecodeStatus AVDecoderDelegate::decode(EncodedPacket* packet, PcmBufferQueue& queue) {
  AVPacket const* toSend = nullptr;
  if (packet != nullptr) {
    auto* chunk = dynamic_cast<AVEncodedPacket*>(packet);
    if (chunk == nullptr) {
      return DecodeStatus::Error;
    }
    toSend = &chunk->packet;
  }
  AVRational const timeBase = mStream->time_base;

  int result = mWrapper->codecSendPacket(mCodecContext, toSend);
  if (result < 0) {
    LogMessage(LOG_ERROR, kTag) << this << ": Error submitting packet to the decoder: "
                                << mWrapper->strerror(result);
    bool const tolerated =
        result == AVERROR(EAGAIN) || result == AVERROR_INVALIDDATA || result == AVERROR_EOF;
    if (tolerated && !mIsVorbis) {
      LogMessage(LOG_INFO, kTag) << this << ": skipping the frame: ";
      return DecodeStatus::Ok;
    }
    return result == AVERROR_EXIT ? DecodeStatus::Stopped : DecodeStatus::Error;
  }

  for (;;) {
    result = mWrapper->codecReceiveFrame(mCodecContext, mFrame);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
      return DecodeStatus::Ok;
    }
    if (result == AVERROR_EXIT) {
      return DecodeStatus::Stopped;
    }
    if (result < 0) {
      LogMessage(LOG_ERROR, kTag) << "Error decoding: " << mWrapper->strerror(result);
      return DecodeStatus::Error;
    }
    PcmBuffer* buffer = mResampler.resample(mFrame, timeBase, mIsVorbis, queue);
    if (buffer == nullptr) {
      return DecodeStatus::Stopped;
    }
    queue.pushBuffer(buffer);
  }
}

DecodeStatus AVDecoderDelegate::flushBuffers(PcmBufferQueue& queue) {
  DecodeStatus const status = decode(nullptr, queue);
  mWrapper->codecFlushBuffers(mCodecContext);
  return status;
}

}  // namespace oru
