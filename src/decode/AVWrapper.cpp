#include "decode/AVWrapper.h"

#include <cstring>
#include <limits>

namespace oru {
namespace {

// The ten-channel layout FFmpeg's default table lacks: 5.1.4 + back centre, as the device
// expects it.
constexpr int64_t kTenChannelLayout = 185871;

}  // namespace

void AVCodecContextDeleter::operator()(AVCodecContext* context) const {
  avcodec_free_context(&context);
}

void freeCustomIOContext(AVIOContext* io) {
  if (io == nullptr) {
    return;
  }
  av_freep(&io->buffer);
  av_opt_free(io);
  avio_context_free(&io);
}

void AVFormatContextDeleter::operator()(AVFormatContext* context) const {
  if (context == nullptr) {
    return;
  }
  if ((context->flags & AVFMT_FLAG_CUSTOM_IO) != 0 && context->pb != nullptr) {
    freeCustomIOContext(context->pb);
    context->pb = nullptr;
  }
  avformat_close_input(&context);
}

void AVFrameDeleter::operator()(AVFrame* frame) const { av_frame_free(&frame); }

void SwrContextDeleter::operator()(SwrContext* context) const { swr_free(&context); }

void AVWrapper::registerAll() const { avformat_network_init(); }

AVFormatContext* AVWrapper::formatAllocContext() const { return avformat_alloc_context(); }

int AVWrapper::formatOpenInput(AVFormatContext** context, char const* url,
                               AVInputFormat const* format, AVDictionary** options) const {
  return avformat_open_input(context, url, format, options);
}

int AVWrapper::formatFindStreamInfo(AVFormatContextHandle const& context,
                                    AVDictionary** options) const {
  return avformat_find_stream_info(context.get(), options);
}

int AVWrapper::findBestStream(AVFormatContextHandle const& context, AVMediaType type) const {
  return av_find_best_stream(context.get(), type, -1, -1, nullptr, 0);
}

std::string AVWrapper::getName(AVCodecID id) const { return avcodec_get_name(id); }

AVIOContext* AVWrapper::avioAllocContext(unsigned char* buffer, int size, int writeFlag,
                                         void* opaque, int (*read)(void*, uint8_t*, int),
                                         int (*write)(void*, uint8_t*, int),
                                         int64_t (*seek)(void*, int64_t, int)) const {
  return avio_alloc_context(buffer, size, writeFlag, opaque, read, write, seek);
}

AVFrameHandle AVWrapper::frameAlloc() const { return AVFrameHandle(av_frame_alloc()); }

int AVWrapper::readFrame(AVFormatContextHandle const& context, AVPacket* packet) const {
  return av_read_frame(context.get(), packet);
}

void* AVWrapper::malloc(size_t size) const { return av_malloc(size); }

std::string AVWrapper::getSampleFormatName(AVSampleFormat format) const {
  char const* name = av_get_sample_fmt_name(format);
  return name != nullptr ? name : "";
}

void AVWrapper::packetUnref(AVPacket* packet) const { av_packet_unref(packet); }

void AVWrapper::dictFree(AVDictionary** dictionary) const { av_dict_free(dictionary); }

int AVWrapper::dictSetInt(AVDictionary** dictionary, std::string const& key, int32_t value,
                          int flags) const {
  return av_dict_set_int(dictionary, key.c_str(), value, flags);
}

int AVWrapper::optSetInt(void* object, char const* name, int32_t value, int searchFlags) const {
  return av_opt_set_int(object, name, value, searchFlags);
}

int AVWrapper::findFmtByMimeType(AVInputFormat const** format, char const* mime,
                                 size_t length) const {
  *format = nullptr;
  void* iterator = nullptr;
  while (AVInputFormat const* candidate = av_demuxer_iterate(&iterator)) {
    if (candidate->mime_type != nullptr && std::strncmp(candidate->mime_type, mime, length) == 0) {
      *format = candidate;
      break;
    }
  }
  return 0;
}

AVDictionaryEntry* AVWrapper::dictGet(AVDictionary const* dictionary, char const* key,
                                      AVDictionaryEntry const* previous, int flags) const {
  return av_dict_get(dictionary, key, previous, flags);
}

int64_t AVWrapper::rescale(int64_t a, int64_t b, int64_t c) const { return av_rescale(a, b, c); }

int64_t AVWrapper::rescaleRnd(int64_t a, int64_t b, int64_t c, AVRounding rounding) const {
  return av_rescale_rnd(a, b, c, rounding);
}

AVCodecContext* AVWrapper::codecAllocContext(AVCodec const* codec) const {
  return avcodec_alloc_context3(codec);
}

AVCodec const* AVWrapper::codecFindDecoder(AVCodecID id) const { return avcodec_find_decoder(id); }

void AVWrapper::codecFlushBuffers(AVCodecContextHandle const& context) const {
  avcodec_flush_buffers(context.get());
}

int AVWrapper::codecOpen(AVCodecContextHandle const& context, AVCodec const* codec,
                         AVDictionary** options) const {
  return avcodec_open2(context.get(), codec, options);
}

int AVWrapper::codecParametersToContext(AVCodecContextHandle const& context,
                                        AVCodecParameters const* parameters) const {
  return avcodec_parameters_to_context(context.get(), parameters);
}

int AVWrapper::codecReceiveFrame(AVCodecContextHandle const& context,
                                 AVFrameHandle const& frame) const {
  return avcodec_receive_frame(context.get(), frame.get());
}

int AVWrapper::codecSendPacket(AVCodecContextHandle const& context, AVPacket const* packet) const {
  return avcodec_send_packet(context.get(), packet);
}

void AVWrapper::codecSetTimebase(AVCodecContextHandle const& context, AVRational timebase) const {
  context->pkt_timebase = timebase;
}

int AVWrapper::swrConvert(SwrContextHandle const& context, uint8_t** out, int outCount,
                          uint8_t const** in, int inCount) const {
  return swr_convert(context.get(), out, outCount, in, inCount);
}

int64_t AVWrapper::swrGetDelay(SwrContextHandle const& context, int64_t base) const {
  return swr_get_delay(context.get(), base);
}

int AVWrapper::swrInit(SwrContextHandle const& context) const { return swr_init(context.get()); }

std::string AVWrapper::strerror(int errorCode) const {
  char text[256];
  if (av_strerror(errorCode, text, sizeof text) == 0) {
    return text;
  }
  // A positive errno-style value passed by mistake still gets its text through the negated
  // code. Tried once only, so that a code unknown in both signs cannot recurse for ever; then
  // av_strerror's own fallback text ("Error number ... occurred") stands.
  if (errorCode != std::numeric_limits<int>::min()) {
    av_strerror(-errorCode, text, sizeof text);
  }
  return text;
}

void AVWrapper::findORUVersion(AVClass const* avClass, int* minVersion, int* maxVersion) const {
  *minVersion = -1;
  *maxVersion = -1;
  // av_opt_next walks the options of an object whose first member points to its class.
  void const* object = &avClass;
  for (AVOption const* option = av_opt_next(object, nullptr); option != nullptr;
       option = av_opt_next(object, option)) {
    if (option->type == AV_OPT_TYPE_INT && std::strcmp(option->name, "oru_version") == 0) {
      *minVersion = static_cast<int>(option->min);
      *maxVersion = static_cast<int>(option->max);
      return;
    }
  }
}

void AVWrapper::getORUVersions(AVClass const* formatClass, AVClass const* codecClass,
                               int* minVersion, int* maxVersion) const {
  *minVersion = -1;
  *maxVersion = -1;
  int formatMin = -1;
  int formatMax = -1;
  findORUVersion(formatClass, &formatMin, &formatMax);
  if (formatMax < 0) {
    return;
  }
  int codecMin = -1;
  int codecMax = -1;
  findORUVersion(codecClass, &codecMin, &codecMax);
  if (codecMax < 0) {
    return;
  }
  if (formatMin == codecMin && codecMax == formatMax && formatMin <= codecMax) {
    *minVersion = formatMin;
    *maxVersion = codecMax;
  }
}

void AVWrapper::getORUVersions(int* minVersion, int* maxVersion) const {
  getORUVersions(avformat_get_class(), avcodec_get_class(), minVersion, maxVersion);
}

// Everything the engine uses that FFmpeg marks deprecated, in one place.
ORU_ALLOW_DEPRECATED_BEGIN

int64_t AVWrapper::channelCountToLayout(int count) const {
  int64_t const layout = av_get_default_channel_layout(count);
  if (layout == 0 && count == 10) {
    return kTenChannelLayout;
  }
  return layout;
}

void AVWrapper::initPacket(AVPacket* packet) const { av_init_packet(packet); }

SwrContextHandle AVWrapper::swrAllocSetOpts(SwrContextHandle existing, int64_t outLayout,
                                            AVSampleFormat outFormat, int outRate, int64_t inLayout,
                                            AVSampleFormat inFormat, int inRate) const {
  return SwrContextHandle(swr_alloc_set_opts(existing.release(), outLayout, outFormat, outRate,
                                             inLayout, inFormat, inRate, 0, nullptr));
}

uint64_t AVWrapper::codecChannelLayout(AVCodecContextHandle const& context) const {
  return context->channel_layout;
}

void AVWrapper::codecSetChannelLayout(AVCodecContextHandle const& context, uint64_t layout) const {
  context->channel_layout = layout;
  context->request_channel_layout = layout;
  av_channel_layout_uninit(&context->ch_layout);
  av_channel_layout_from_mask(&context->ch_layout, layout);
}

uint64_t AVWrapper::frameChannelLayout(AVFrameHandle const& frame) const {
  return frame->channel_layout;
}

int AVWrapper::frameChannels(AVFrameHandle const& frame) const { return frame->channels; }

ORU_ALLOW_DEPRECATED_END

}  // namespace oru
