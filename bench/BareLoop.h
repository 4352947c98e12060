// The least any player must do, the anchor that the benchmarks measure the engine against:
// FFmpeg alone demuxes, decodes and converts to 48 kHz 16-bit with libswresample, into one
// reused buffer, on the same FFmpeg build as the engine's, nothing else.
#pragma once

#include "BenchDevice.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

inline void checkAv(int result, char const* what) {
  if (result < 0) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, text, sizeof text);
    throw std::runtime_error(std::string(what) + ": " + text);
  }
}

// Runs the loop over `path` until it has produced `frameLimit` frames or the file has ended,
// handing each converted block to `take(uint8_t const* data, int frames)` (interleaved, the
// file's channels), as a player hands its buffers to a device. Returns the frames produced.
// Throws on an FFmpeg error.
template <typename Take>
int64_t bareLoop(std::string const& path, int64_t frameLimit, Take&& take) {
  constexpr int kRate = BenchDevice::kRate;
  AVFormatContext* format = nullptr;
  checkAv(avformat_open_input(&format, path.c_str(), nullptr, nullptr), "open");
  checkAv(avformat_find_stream_info(format, nullptr), "stream info");
  AVCodec const* codec = nullptr;
  int const stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
  checkAv(stream, "audio stream");
  AVCodecContext* decoder = avcodec_alloc_context3(codec);
  checkAv(avcodec_parameters_to_context(decoder, format->streams[stream]->codecpar), "parameters");
  checkAv(avcodec_open2(decoder, codec, nullptr), "decoder");

  SwrContext* converter = nullptr;
  checkAv(swr_alloc_set_opts2(&converter, &decoder->ch_layout, AV_SAMPLE_FMT_S16, kRate,
                              &decoder->ch_layout, decoder->sample_fmt, decoder->sample_rate, 0,
                              nullptr),
          "converter");
  checkAv(swr_init(converter), "converter");

  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  std::vector<uint8_t> output;
  int64_t frames = 0;
  auto convert = [&](AVFrame const* input) {
    int const capacity = swr_get_out_samples(converter, input ? input->nb_samples : 0);
    output.resize(std::max<size_t>(output.size(), static_cast<size_t>(capacity) * 4));
    uint8_t* out[] = {output.data()};
    int const converted =
        swr_convert(converter, out, capacity,
                    input ? const_cast<uint8_t const**>(input->extended_data) : nullptr,
                    input ? input->nb_samples : 0);
    checkAv(converted, "convert");
    frames += converted;
    take(static_cast<uint8_t const*>(output.data()), converted);
  };
  auto drain = [&] {
    while (avcodec_receive_frame(decoder, frame) == 0) {
      convert(frame);
      av_frame_unref(frame);
    }
  };
  while (frames < frameLimit && av_read_frame(format, packet) >= 0) {
    if (packet->stream_index == stream) {
      checkAv(avcodec_send_packet(decoder, packet), "decode");
      drain();
    }
    av_packet_unref(packet);
  }
  if (frames < frameLimit) {
    avcodec_send_packet(decoder, nullptr);
    drain();
    convert(nullptr);
  }

  av_frame_free(&frame);
  av_packet_free(&packet);
  swr_free(&converter);
  avcodec_free_context(&decoder);
  avformat_close_input(&format);
  return frames;
}

}  // namespace bench
