// The one place where FFmpeg's headers are included: the decoding pipeline, the format converter
// and the tests that drive FFmpeg directly include this file. FFmpeg 5.1 still carries calls the
// engine uses (the old channel-layout fields, av_init_packet, swr_alloc_set_opts) but marks them
// deprecated; the warnings are silenced here only.
#pragma once

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
