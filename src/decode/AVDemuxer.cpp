#include "decode/AVDemuxer.h"

#include "common/Time.h"

#include <oru/Log.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

namespace oru {
namespace {

constexpr char kTag[] = "AVDemuxer";
// The lines whose last field is why an input did not play (read back by inputTroubleOf).
constexpr char kCannotOpen[] = ": Could not open or parse input: ";
constexpr char kNoStreamInfo[] = ": Failed to find stream info: ";
constexpr char kNoBestStream[] = ": Failed to find best sream: ";
constexpr char kEndedEarly[] = ": Input ended early: ";
// FFmpeg's announcement of each attempt to reconnect a broken HTTP stream, "Will reconnect at
// BYTE in SECONDS second(s), error=REASON.", under its own tag. Attempts count until the stream
// delivers new bytes, and the first of them waits 0 s: that one begins a reconnection.
constexpr char kFFmpegTag[] = "Libav";
constexpr std::string_view kReconnect = "Will reconnect at ";
constexpr std::string_view kFirstAttempt = " in 0 second";
// Custom I/O reads the host's data callback in blocks of this size.
constexpr int kCustomIOBufferSize = 8192;
// Bounds how much must arrive before playback can begin.
constexpr int kProbeSize = 65536;
// FFmpeg keeps a seek index of every stream it reads, up to 1 MiB by default, growing with the
// stream's length. The engine never seeks within a stream, so the index is kept small: memory
// then stays flat over hours of radio.
constexpr unsigned int kMaxIndexBytes = 16 * 1024;

// A network input may take this long to open and find its stream, or to deliver its next
// packet, before it counts as dead. Reconnections happen within it, so a dead server ends its track
// in bounded time.
constexpr std::chrono::seconds kNetworkDeadline{12};
// A connection silent for this long is dropped. The stream then reconnects, only to the bytes it
// was missing (a live radio at its live point): a short network loss is bridged, and a server
// answering with other bytes ends the data. Attempts wait 0, 1 and 2 s, and count until the
// stream delivers bytes it had not delivered before.
constexpr std::chrono::seconds kSocketTimeout{5};
constexpr int kReconnectDelayMaxS = 2;

bool isNetworkUrl(std::string const& url) {
  return url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0;
}

}  // namespace

InputTrouble inputTroubleOf(LogLevel level, char const* tag, char const* message) {
  std::string_view const text = message;
  if (std::strcmp(tag, kFFmpegTag) == 0) {
    bool const reconnects = text.rfind(kReconnect, 0) == 0 && text.find(kFirstAttempt) != text.npos;
    return {reconnects ? InputTrouble::kReconnecting : InputTrouble::kNone, ""};
  }
  if (std::strcmp(tag, kTag) != 0 || level < LOG_WARNING) {
    return {};
  }
  // The demuxer's lines begin with its address; the cause follows the line's fixed text.
  auto const causeAfter = [text](std::string_view fixed) -> std::optional<std::string> {
    size_t const at = text.find(fixed);
    return at == text.npos ? std::nullopt
                           : std::optional<std::string>(text.substr(at + fixed.size()));
  };
  if (level == LOG_WARNING) {
    auto const cause = causeAfter(kEndedEarly);
    return cause ? InputTrouble{InputTrouble::kEndedEarly, *cause} : InputTrouble{};
  }
  if (causeAfter(kNoBestStream)) {
    return {InputTrouble::kNoAudio, ""};
  }
  for (std::string_view fixed : {kCannotOpen, kNoStreamInfo}) {
    if (auto const cause = causeAfter(fixed)) {
      return {InputTrouble::kCannotOpen, *cause};
    }
  }
  // Any other error: the demuxer's own words after its address, and FFmpeg's cause after them
  // when the line gives one.
  std::string_view words = text;
  if (words.rfind("0x", 0) == 0 && words.find(": ") != words.npos) {
    words.remove_prefix(words.find(": ") + 2);
  }
  size_t const cause = words.find(": ");
  return cause == words.npos
             ? InputTrouble{InputTrouble::kFailed, std::string(words)}
             : InputTrouble{InputTrouble::kCannotOpen, std::string(words.substr(cause + 2))};
}

std::unique_ptr<AVDemuxer> AVDemuxer::create(AudioPlayer::Resource const* resource,
                                             std::atomic<bool> const& running,
                                             std::shared_ptr<AVWrapper> wrapper, int version) {
  std::unique_ptr<AVDemuxer> demuxer(new AVDemuxer(resource, running, std::move(wrapper), version));
  if (!demuxer->open()) {
    return nullptr;
  }
  return demuxer;
}

AVDemuxer::AVDemuxer(AudioPlayer::Resource const* resource, std::atomic<bool> const& running,
                     std::shared_ptr<AVWrapper> wrapper, int version)
    : mWrapper(std::move(wrapper)), mResource(resource), mVersion(version), mRunning(running) {}

MimeType parseMimeType(std::string const& mimeType) {
  MimeType parsed;
  size_t const typeEnd = mimeType.find(';');
  parsed.type = mimeType.substr(0, typeEnd);
  size_t position = typeEnd;
  while (position != std::string::npos) {
    size_t const next = mimeType.find(';', position + 1);
    std::string const parameter = mimeType.substr(position + 1, next - position - 1);
    // The leading blank of each pattern accepts any white space after the ';'.
    if (parsed.rate == 0 && std::sscanf(parameter.c_str(), " rate=%d", &parsed.rate) != 1) {
      parsed.rate = 0;
    }
    if (parsed.channels == 0 &&
        std::sscanf(parameter.c_str(), " channels=%d", &parsed.channels) != 1) {
      parsed.channels = 0;
    }
    position = next;
  }
  return parsed;
}

bool AVDemuxer::open() {
  if (mResource == nullptr) {
    LogMessage(LOG_ERROR, kTag) << this << ": No audio resource";
    return false;
  }
  AVFormatContext* context = allocateContext();
  if (context == nullptr) {
    return false;
  }
  // A custom I/O context survives a failed open (FFmpeg frees only the format context).
  AVIOContext* customIO = nullptr;
  if (mResource->newDataCallback != nullptr) {
    customIO = attachCustomIO(context);
    if (customIO == nullptr) {
      avformat_free_context(context);
      return false;
    }
  }
  if (!openFormat(context, customIO) || !selectStream()) {
    return false;
  }
  mUri = mResource->uri;
  return true;
}

AVFormatContext* AVDemuxer::allocateContext() {
  AVFormatContext* context = mWrapper->formatAllocContext();
  if (context == nullptr) {
    LogMessage(LOG_ERROR, kTag) << this << ": Failed to allocate AVFormatContext";
    return nullptr;
  }
  context->interrupt_callback.callback = &AVDemuxer::interruptCallback;
  context->interrupt_callback.opaque = this;
  context->probesize = kProbeSize;
  context->max_index_size = kMaxIndexBytes;
  return context;
}

AVIOContext* AVDemuxer::attachCustomIO(AVFormatContext* context) {
  LogMessage(LOG_INFO, kTag)
      << this << ": newDataCallback set, playing from callback instead of downloading from URI.";
  auto* buffer = static_cast<unsigned char*>(mWrapper->malloc(kCustomIOBufferSize));
  AVIOContext* customIO =
      buffer == nullptr ? nullptr
                        : mWrapper->avioAllocContext(buffer, kCustomIOBufferSize, 0, this,
                                                     &AVDemuxer::readCallback, nullptr, nullptr);
  if (customIO == nullptr) {
    LogMessage(LOG_ERROR, kTag) << "Failed to allocate AVIOContext";
    av_free(buffer);
    return nullptr;
  }
  customIO->max_packet_size = kCustomIOBufferSize;
  context->pb = customIO;
  return customIO;
}

bool AVDemuxer::openFormat(AVFormatContext* context, AVIOContext* customIO) {
  // With a data callback there is no URL. Without one, an empty URI is passed as an empty
  // string: FFmpeg dereferences a null URL when it has to open the input itself.
  char const* url = customIO != nullptr ? nullptr : mResource->uri.c_str();
  // The host's data callback governs its own timing; only the engine's own reads have a
  // deadline.
  mNetworkInput = customIO == nullptr && isNetworkUrl(mResource->uri);
  armDeadline();
  int const result = openInput(&context, url, mResource->mimeType);
  if (result < 0) {
    // An open interrupted by a stop is no failure of the input.
    LogMessage(mRunning ? LOG_ERROR : LOG_DETAIL, kTag)
        << this << kCannotOpen << mWrapper->strerror(explain(result));
    freeCustomIOContext(customIO);
    return false;
  }
  mFormatContext.reset(context);
  return configureFormat();
}

int AVDemuxer::openInput(AVFormatContext** context, char const* url, std::string const& mimeType) {
  AVInputFormat const* format = nullptr;
  AVDictionary* options = nullptr;
  if (!mimeType.empty()) {
    MimeType const parsed = parseMimeType(mimeType);
    mWrapper->findFmtByMimeType(&format, parsed.type.c_str(), parsed.type.size());
    if (format != nullptr) {
      LogMessage(LOG_INFO, kTag) << this << ": Found format " << format->name << " supporting "
                                 << mimeType;
      if (parsed.rate != 0) {
        mWrapper->dictSetInt(&options, "sample_rate", parsed.rate, 0);
      }
      if (parsed.channels != 0) {
        mWrapper->dictSetInt(&options, "channels", parsed.channels, 0);
      }
    }
  }
  if (mNetworkInput) {
    // FFmpeg takes the socket time-out in microseconds.
    auto const socketTimeoutUs = std::chrono::microseconds(kSocketTimeout).count();
    mWrapper->dictSetInt(&options, "timeout", static_cast<int32_t>(socketTimeoutUs), 0);
    mWrapper->dictSetInt(&options, "reconnect", 1, 0);
    mWrapper->dictSetInt(&options, "resume_exact", 1, 0);
    mWrapper->dictSetInt(&options, "reconnect_delay_max", kReconnectDelayMaxS, 0);
  }
  int const result = mWrapper->formatOpenInput(context, url, format, &options);
  mWrapper->dictFree(&options);
  return result;
}

bool AVDemuxer::configureFormat() {
  int const result = mWrapper->optSetInt(mFormatContext.get(), "oru_version", mVersion, 0);
  if (result < 0) {
    LogMessage(LOG_ERROR, kTag) << this
                                << ": Failed to set oru_version: " << mWrapper->strerror(result);
    return false;
  }
  AVInputFormat const* format = mFormatContext->iformat;
  if (mNetworkInput ||
      (format->mime_type != nullptr && std::string(format->mime_type) == "audio/L16")) {
    // Raw PCM, and streams that arrive at their real rate: do not read ahead looking for a
    // first time stamp. A radio's first seconds would otherwise be waited for before it starts.
    mFormatContext->max_ts_probe = 1;
  }
  return true;
}

bool AVDemuxer::selectStream() {
  int const streamInfo = mWrapper->formatFindStreamInfo(mFormatContext, nullptr);
  if (streamInfo < 0) {
    LogMessage(mRunning ? LOG_ERROR : LOG_DETAIL, kTag)
        << this << kNoStreamInfo << mWrapper->strerror(explain(streamInfo));
    return false;
  }
  mStreamIndex = mWrapper->findBestStream(mFormatContext, AVMEDIA_TYPE_AUDIO);
  if (mStreamIndex < 0) {
    // Reports the stream-info result, as the device's firmware always has.
    LogMessage(LOG_ERROR, kTag) << this << kNoBestStream << mWrapper->strerror(streamInfo);
    return false;
  }
  AVStream* stream = getStream();
  if (stream == nullptr || stream->codecpar == nullptr) {
    LogMessage(LOG_ERROR, kTag) << this << ": no stream or no codec parameters";
    return false;
  }
  mCodecName = mWrapper->getName(stream->codecpar->codec_id);
  return true;
}

AVStream* AVDemuxer::getStream() const {
  if (!mFormatContext || mStreamIndex < 0 ||
      static_cast<unsigned>(mStreamIndex) >= mFormatContext->nb_streams) {
    return nullptr;
  }
  return mFormatContext->streams[mStreamIndex];
}

int AVDemuxer::getDemuxedChunk(std::shared_ptr<EncodedPacket>& packet) {
  if (!packet) {
    auto created = std::make_shared<AVEncodedPacket>(mWrapper);
    mWrapper->initPacket(&created->packet);
    created->packet.data = nullptr;
    created->packet.size = 0;
    packet = created;
  }
  auto* chunk = dynamic_cast<AVEncodedPacket*>(packet.get());
  if (chunk == nullptr) {
    return 1;
  }
  chunk->packet.size = 0;
  chunk->packet.pts = AV_NOPTS_VALUE;
  // Cover art arrives as the packets of a stream of its own (an attached picture): it is never
  // audio, so it goes before the stream filter below can pass it to the decoder.
  for (;;) {
    armDeadline();
    int const result = mWrapper->readFrame(mFormatContext, &chunk->packet);
    if (result < 0) {
      if (result != AVERROR_EOF && mRunning) {
        LogMessage(LOG_WARNING, kTag) << this << kEndedEarly << mWrapper->strerror(explain(result));
      }
      return 1;
    }
    AVStream const* stream = mFormatContext->streams[chunk->packet.stream_index];
    if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
      break;
    }
    mWrapper->packetUnref(&chunk->packet);
  }
  // Packets of streams 0 and 1 pass even when another stream is selected; a packet of any
  // other unselected stream ends the data. Devices in the field rely on both.
  auto const index = static_cast<unsigned>(chunk->packet.stream_index);
  if (index != static_cast<unsigned>(mStreamIndex) && index > 1) {
    return 1;
  }
  if (chunk->packet.pts == AV_NOPTS_VALUE) {
    chunk->timestampNs = -1;
  } else {
    AVRational const timeBase = getStream()->time_base;
    chunk->timestampNs = mWrapper->rescale(
        chunk->packet.pts, static_cast<int64_t>(timeBase.num) * kNsPerSecond, timeBase.den);
  }
  chunk->data = chunk->packet.data;
  chunk->size = chunk->packet.size;
  return 0;
}

void AVDemuxer::releaseChunk(std::shared_ptr<EncodedPacket> packet) {
  auto* chunk = dynamic_cast<AVEncodedPacket*>(packet.get());
  if (chunk == nullptr) {
    return;
  }
  mWrapper->packetUnref(&chunk->packet);
  chunk->clear();
}

std::map<std::string, std::string> AVDemuxer::getMetadata() const {
  std::map<std::string, std::string> metadata;
  copyMetadata(metadata, mFormatContext->metadata);
  if (AVStream const* stream = getStream()) {
    copyMetadata(metadata, stream->metadata);
  }
  return metadata;
}

void AVDemuxer::copyMetadata(std::map<std::string, std::string>& metadata,
                             AVDictionary const* dictionary) const {
  AVDictionaryEntry const* entry = nullptr;
  while ((entry = mWrapper->dictGet(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
    metadata[entry->key] = entry->value;
  }
}

bool AVDemuxer::updatedMetadata() {
  AVStream* stream = getStream();
  bool const formatUpdated = (mFormatContext->event_flags & AVFMT_EVENT_FLAG_METADATA_UPDATED) != 0;
  bool const streamUpdated =
      stream != nullptr && (stream->event_flags & AVSTREAM_EVENT_FLAG_METADATA_UPDATED) != 0;
  if (!formatUpdated && !streamUpdated) {
    return false;
  }
  mFormatContext->event_flags &= ~AVFMT_EVENT_FLAG_METADATA_UPDATED;
  if (stream != nullptr) {
    stream->event_flags &= ~AVSTREAM_EVENT_FLAG_METADATA_UPDATED;
  }
  return true;
}

void AVDemuxer::armDeadline() {
  if (mNetworkInput) {
    mDeadline = std::chrono::steady_clock::now() + kNetworkDeadline;
  }
}

bool AVDemuxer::checkDeadline() {
  // FFmpeg asks at every read, also of local files, which have no deadline to look up.
  mTimedOut = mTimedOut || (mNetworkInput && std::chrono::steady_clock::now() > mDeadline);
  return mTimedOut;
}

int AVDemuxer::explain(int result) const {
  return result == AVERROR_EXIT && mRunning && mTimedOut ? AVERROR(ETIMEDOUT) : result;
}

int AVDemuxer::readCallback(void* opaque, uint8_t* buffer, int size) {
  auto const* demuxer = static_cast<AVDemuxer*>(opaque);
  if (!demuxer->mRunning) {
    return AVERROR_EXIT;
  }
  AudioPlayer::Resource const& resource = *demuxer->mResource;
  int const result = resource.newDataCallback(resource.callbackOpaque, buffer, size);
  // FFmpeg would ask again at once, and for ever: a source with nothing more has ended.
  return result == 0 ? AVERROR_EOF : result;
}

int AVDemuxer::interruptCallback(void* opaque) {
  auto* demuxer = static_cast<AVDemuxer*>(opaque);
  return !demuxer->mRunning.load() || demuxer->checkDeadline() ? 1 : 0;
}

}  // namespace oru
