#pragma once

#include "decode/FFmpeg.h"

#include <cstdint>
#include <memory>
#include <string>

namespace oru {

// Deleters that let FFmpeg objects live in owning pointers. Each ignores a null pointer.
struct AVCodecContextDeleter {
  void operator()(AVCodecContext* context) const;
};
// Also releases a custom I/O context and its buffer attached to the format context: nothing
// else frees them.
struct AVFormatContextDeleter {
  void operator()(AVFormatContext* context) const;
};
struct AVFrameDeleter {
  void operator()(AVFrame* frame) const;
};
struct SwrContextDeleter {
  void operator()(SwrContext* context) const;
};

using AVCodecContextHandle = std::unique_ptr<AVCodecContext, AVCodecContextDeleter>;
using AVFormatContextHandle = std::unique_ptr<AVFormatContext, AVFormatContextDeleter>;
using AVFrameHandle = std::unique_ptr<AVFrame, AVFrameDeleter>;
using SwrContextHandle = std::unique_ptr<SwrContext, SwrContextDeleter>;

// Frees a custom I/O context and the buffer it currently uses (FFmpeg may have replaced the
// one it was created with).
void freeCustomIOContext(AVIOContext* io);

// The engine's facade over FFmpeg: one named operation for each FFmpeg call that the decoding
// pipeline and the format converter make, so that FFmpeg's API is met in one place and reads as
// the engine's own. Each operation forwards to the FFmpeg call of the same role with its arguments
// unchanged and returns FFmpeg's own result; where a handle is passed, the raw pointer it holds is
// used. It is also the only user of what FFmpeg marks deprecated, the old channel-layout fields
// included. Two kinds of call stay direct, where a wrapper would add nothing: freeing the format
// context and I/O buffer on the demuxer's failed custom-I/O path, and installing the log callback
// (AVLogger). It is not a seam for test doubles: the operations are not virtual, and the tests
// drive the real FFmpeg.
//
// Stateless; one instance is shared by a track, its demuxer, its decoder and the decoder's
// converter. Any thread.
class AVWrapper {
 public:
  void registerAll() const;  // network initialisation, once per decoding thread
  AVFormatContext* formatAllocContext() const;
  int formatOpenInput(AVFormatContext** context, char const* url, AVInputFormat const* format,
                      AVDictionary** options) const;
  int formatFindStreamInfo(AVFormatContextHandle const& context, AVDictionary** options) const;
  int findBestStream(AVFormatContextHandle const& context, AVMediaType type) const;
  std::string getName(AVCodecID id) const;
  AVIOContext* avioAllocContext(unsigned char* buffer, int size, int writeFlag, void* opaque,
                                int (*read)(void*, uint8_t*, int),
                                int (*write)(void*, uint8_t*, int),
                                int64_t (*seek)(void*, int64_t, int)) const;
  AVFrameHandle frameAlloc() const;
  int readFrame(AVFormatContextHandle const& context, AVPacket* packet) const;
  void* malloc(size_t size) const;
  // FFmpeg's default layout for `count` channels; 185871 for 10 channels, which FFmpeg's
  // table lacks; 0 for any other count without a default.
  int64_t channelCountToLayout(int count) const;
  std::string getSampleFormatName(AVSampleFormat format) const;
  void initPacket(AVPacket* packet) const;
  void packetUnref(AVPacket* packet) const;
  void dictFree(AVDictionary** dictionary) const;
  int dictSetInt(AVDictionary** dictionary, std::string const& key, int32_t value, int flags) const;
  int optSetInt(void* object, char const* name, int32_t value, int searchFlags) const;
  // The first registered demuxer whose MIME type list starts with the first `length`
  // characters of `mime`, or null. Always returns 0.
  int findFmtByMimeType(AVInputFormat const** format, char const* mime, size_t length) const;
  AVDictionaryEntry* dictGet(AVDictionary const* dictionary, char const* key,
                             AVDictionaryEntry const* previous, int flags) const;
  int64_t rescale(int64_t a, int64_t b, int64_t c) const;
  int64_t rescaleRnd(int64_t a, int64_t b, int64_t c, AVRounding rounding) const;
  AVCodecContext* codecAllocContext(AVCodec const* codec) const;
  AVCodec const* codecFindDecoder(AVCodecID id) const;
  void codecFlushBuffers(AVCodecContextHandle const& context) const;
  int codecOpen(AVCodecContextHandle const& context, AVCodec const* codec,
                AVDictionary** options) const;
  int codecParametersToContext(AVCodecContextHandle const& context,
                               AVCodecParameters const* parameters) const;
  int codecReceiveFrame(AVCodecContextHandle const& context, AVFrameHandle const& frame) const;
  // A null packet starts draining the decoder.
  int codecSendPacket(AVCodecContextHandle const& context, AVPacket const* packet) const;
  // Sets the packet time base of the codec context.
  void codecSetTimebase(AVCodecContextHandle const& context, AVRational timebase) const;
  // The codec context's channel layout mask; 0 when the codec left it unset.
  uint64_t codecChannelLayout(AVCodecContextHandle const& context) const;
  // Sets the codec context's layout and requested layout to `layout`, also in ch_layout, which
  // decoded frames take their layout from.
  void codecSetChannelLayout(AVCodecContextHandle const& context, uint64_t layout) const;
  // A decoded frame's channel layout mask and channel count.
  uint64_t frameChannelLayout(AVFrameHandle const& frame) const;
  int frameChannels(AVFrameHandle const& frame) const;
  SwrContextHandle swrAllocSetOpts(SwrContextHandle existing, int64_t outLayout,
                                   AVSampleFormat outFormat, int outRate, int64_t inLayout,
                                   AVSampleFormat inFormat, int inRate) const;
  int swrConvert(SwrContextHandle const& context, uint8_t** out, int outCount, uint8_t const** in,
                 int inCount) const;
  int64_t swrGetDelay(SwrContextHandle const& context, int64_t base) const;
  int swrInit(SwrContextHandle const& context) const;
  // FFmpeg's text for an error code; for a code FFmpeg rejects, its text for the negated code
  // (so that a positive errno-style value still reads well).
  std::string strerror(int errorCode) const;

  // The range of player protocol versions that the linked FFmpeg implements: the declared
  // minimum and maximum of the integer option "oru_version" on the format-context class and the
  // codec-context class. (-1, -1) when either class lacks the option or the two disagree.
  void getORUVersions(int* minVersion, int* maxVersion) const;
  // getORUVersions over the given classes instead of FFmpeg's own.
  void getORUVersions(AVClass const* formatClass, AVClass const* codecClass, int* minVersion,
                      int* maxVersion) const;
  // The declared range of the first integer option named "oru_version" of `avClass`;
  // (-1, -1) when there is none.
  void findORUVersion(AVClass const* avClass, int* minVersion, int* maxVersion) const;
};

}  // namespace oru
