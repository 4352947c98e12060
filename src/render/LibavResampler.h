#pragma once

#include "decode/AVWrapper.h"

#include <oru/AudioPlayer.h>
#include <oru/Decoder.h>

#include <cstdint>
#include <memory>

namespace oru {

// Turns each decoded FFmpeg frame into one PcmBuffer in a format and at a rate that the output
// device accepts, with the channel layout unchanged, stamped in nanoseconds relative to the
// stream's first frame. The converter is set up on the first frame and again whenever the
// frames' layout, format or rate change.
//
// Owned by the FFmpeg decoder and called on the track's decoding thread only. The
// PlaybackConfig must outlive it.
class LibavResampler {
 public:
  LibavResampler(std::shared_ptr<AVWrapper> wrapper, PlaybackConfig const& config);

  // A buffer from `queue` holding the converted frame, or null (logged) when the converter
  // cannot be set up, the conversion fails, or the queue hands out no buffer (it is stopping).
  // With `correctPts`, time stamps are taken to count samples and a frame that deviates from
  // the expected one is stamped as if it had come on time.
  PcmBuffer* resample(AVFrameHandle const& frame, AVRational timeBase, bool correctPts,
                      PcmBufferQueue& queue);

  // The device format for a stream of `format`: the format itself when the device takes it,
  // else the preferred format, else the largest format the device takes.
  AudioFormat getCompatibleFormat(AudioFormat format) const;
  // The device rate for a stream at `rate`: the rate itself when the device takes it, else
  // the supported rate that divides it with the smallest quotient, else the default rate.
  int getCompatibleRate(int rate) const;

 private:
  // 0, or FFmpeg's negative error when the converter cannot be set up.
  int initResampler(AVFrameHandle const& frame);

  std::shared_ptr<AVWrapper> const mWrapper;
  SwrContextHandle mConverter;
  // What the converter was set up for.
  int mInputRate = 0;
  uint64_t mInputChannelLayout = 0;
  int mInputSampleFormat = -1;
  // Corrected time of the stream's first frame, ns; AV_NOPTS_VALUE until it is known.
  int64_t mFirstTimestamp;
  // Time stamp the next frame should carry, stream time-base units; AV_NOPTS_VALUE at first.
  int64_t mExpectedPts;
  AudioFormat mOutputFormat = PCM_S16;
  int mOutputRate = 0;
  PlaybackConfig const& mConfig;
};

}  // namespace oru
