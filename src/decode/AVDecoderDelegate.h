#pragma once

#include "decode/AVWrapper.h"
#include "render/LibavResampler.h"

#include <oru/AudioPlayer.h>
#include <oru/Decoder.h>

#include <memory>

namespace oru {

// The engine's own decoder: decodes one stream with an FFmpeg codec and converts every frame
// through a LibavResampler into buffers pushed into the track's queue.
//
// Created, called and destroyed on the track's decoding thread only. The stream (owned by the
// track's demuxer) must outlive the decoder.
class AVDecoderDelegate : public DecoderDelegate {
 public:
  // An opened decoder for `stream`, or null (logged) when its codec cannot be opened.
  static std::unique_ptr<AVDecoderDelegate> create(AVStream* stream, PlaybackConfig const& config,
                                                   std::shared_ptr<AVWrapper> wrapper, int version);

  DecodeStatus flushBuffers(PcmBufferQueue& queue) override;
  // Decodes an AVEncodedPacket (any other kind of packet is an Error). Packets the codec
  // refuses as invalid are skipped, except in Vorbis streams, where they end the track.
  DecodeStatus decode(EncodedPacket* packet, PcmBufferQueue& queue) override;

 private:
  AVDecoderDelegate(AVStream* stream, PlaybackConfig const& config,
                    std::shared_ptr<AVWrapper> wrapper, int version);

  bool openCodec();

  std::shared_ptr<AVWrapper> const mWrapper;
  AVCodecContextHandle mCodecContext;
  AVFrameHandle mFrame;  // reused for every decoded frame
  PlaybackConfig const mConfig;
  bool mIsVorbis = false;
  LibavResampler mResampler;
  int const mVersion;
  AVStream* const mStream;
};

}  // namespace oru
