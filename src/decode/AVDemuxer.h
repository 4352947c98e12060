#pragma once

#include "decode/AVWrapper.h"

#include <oru/AudioPlayer.h>
#include <oru/Decoder.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>

namespace oru {

// A demuxed packet holding its FFmpeg packet; the base fields mirror it after each read.
// Created by the demuxer, used on the track's decoding thread only. It holds its own share of
// the facade, so it may outlive the demuxer.
class AVEncodedPacket : public EncodedPacket {
 public:
  explicit AVEncodedPacket(std::shared_ptr<AVWrapper> wrapper) : mWrapper(std::move(wrapper)) {}
  // Releases a payload that was not given back (a thread that ended mid-packet).
  ~AVEncodedPacket() override { mWrapper->packetUnref(&packet); }
  AVEncodedPacket(AVEncodedPacket const&) = delete;
  AVEncodedPacket& operator=(AVEncodedPacket const&) = delete;

  void clear() {
    data = nullptr;
    size = 0;
  }

  AVPacket packet{};

 private:
  std::shared_ptr<AVWrapper> const mWrapper;
};

// What a MIME type says about its input (audio/L16;rate=48000;channels=2): the type, cut at the
// first ';', and the raw PCM parameters "rate" and "channels", each the first non-zero value
// among the ';'-separated parameters, 0 when there is none. Parameters are matched as sscanf
// matches " rate=%d" and " channels=%d": white space may follow the ';', names are
// case-sensitive, no blank may precede the '=' and text after the number is ignored. Any thread.
struct MimeType {
  std::string type;
  int rate = 0;
  int channels = 0;
};
MimeType parseMimeType(std::string const& mimeType);

// Opens one track's input (a URI, or the resource's data callback through a read-only custom
// I/O context), picks its audio stream and hands out its compressed packets with nanosecond
// time stamps, and the container's and stream's metadata.
//
// Created, used and destroyed on the track's decoding thread only. The one thing it shares is
// the track's running flag, which FFmpeg's interrupt callback reads so that a blocking open or
// read ends as soon as the track is stopped. The same callback ends an HTTP(S) open or read
// that makes no progress for too long, so that a dead server ends its track. The resource and the
// running flag must outlive the demuxer.
class AVDemuxer {
 public:
  // An opened demuxer, or null (logged) when the input cannot be opened.
  static std::unique_ptr<AVDemuxer> create(AudioPlayer::Resource const* resource,
                                           std::atomic<bool> const& running,
                                           std::shared_ptr<AVWrapper> wrapper, int version);

  // The selected audio stream, which the decoder is built from.
  AVStream* getStream() const;
  std::string const& getCodecName() const { return mCodecName; }

  // 0 with the next packet of the selected stream in `packet` (created on the first call and
  // reused); 1 at the end of the data, on any read failure or interruption, and at the first
  // packet of a stream with an index of 2 or more that is not the selected one.
  int getDemuxedChunk(std::shared_ptr<EncodedPacket>& packet);
  // Gives the packet's payload back to FFmpeg.
  void releaseChunk(std::shared_ptr<EncodedPacket> packet);

  // The container's metadata overlaid with the stream's (the stream wins for a shared key).
  std::map<std::string, std::string> getMetadata() const;
  // True once after each change of metadata during playback.
  bool updatedMetadata();

 private:
  AVDemuxer(AudioPlayer::Resource const* resource, std::atomic<bool> const& running,
            std::shared_ptr<AVWrapper> wrapper, int version);

  bool open();
  // A format context set up to call interruptCallback, or null (logged).
  AVFormatContext* allocateContext();
  // A custom I/O context reading the host's data callback, attached to `context`, or null
  // (logged).
  AVIOContext* attachCustomIO(AVFormatContext* context);
  // Opens the input into `context`, takes it over and configures it. When the open fails,
  // FFmpeg has freed `context` and this frees `customIO`.
  bool openFormat(AVFormatContext* context, AVIOContext* customIO);
  // Forces the demuxer that the MIME type names, with its raw PCM parameters; without one,
  // FFmpeg probes the content.
  int openInput(AVFormatContext** context, char const* url, std::string const& mimeType);
  // Sets the player protocol version and limits reading ahead on the opened input.
  bool configureFormat();
  // Finds the audio stream and its codec's name.
  bool selectStream();
  void copyMetadata(std::map<std::string, std::string>& metadata,
                    AVDictionary const* dictionary) const;
  // Starts the time a network open or read may take; no limit for other inputs.
  void armDeadline();
  // Remembers in mTimedOut, for good, when the deadline has passed, and returns mTimedOut: the
  // input then stays given up even if a later read arms a new deadline, and explain() reports
  // the interruption as "Connection timed out". FFmpeg may report it only at a later read, as a
  // sticky error of its input.
  bool checkDeadline();
  // The error an FFmpeg result stands for: an interruption past the deadline is a time-out.
  int explain(int result) const;
  // Reads the host's data callback; its data ends at a stop, or when it gives no bytes.
  static int readCallback(void* opaque, uint8_t* buffer, int size);
  static int interruptCallback(void* opaque);

  std::string mUri;
  std::shared_ptr<AVWrapper> const mWrapper;
  std::string mCodecName;
  AVFormatContextHandle mFormatContext;
  AudioPlayer::Resource const* const mResource;
  int mStreamIndex = -1;
  int const mVersion;
  std::atomic<bool> const& mRunning;
  bool mNetworkInput = false;
  std::chrono::steady_clock::time_point mDeadline;  // network inputs only
  bool mTimedOut = false;
};

}  // namespace oru
