// The one place where FFmpeg's headers are included: the decoding pipeline, the format converter
// and the tests that drive FFmpeg directly include this file. The headers themselves compile
// without warnings, so nothing is silenced around them.
#pragma once

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

// FFmpeg 5.1 still offers the calls and fields the engine is built on (the old channel-layout
// fields, av_get_default_channel_layout, av_init_packet, swr_alloc_set_opts) but marks them
// deprecated. Only the facade uses them, each use between these two, so that a deprecated call
// anywhere else still fails the build.
#if defined(__GNUC__)
#define ORU_ALLOW_DEPRECATED_BEGIN \
  _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wdeprecated-declarations\"")
#define ORU_ALLOW_DEPRECATED_END _Pragma("GCC diagnostic pop")
#else
#define ORU_ALLOW_DEPRECATED_BEGIN
#define ORU_ALLOW_DEPRECATED_END
#endif
