#pragma once

#include "decode/AVDemuxer.h"
#include "decode/AVWrapper.h"
#include "decode/AudioTrack.h"
#include "render/BufferQueue.h"

#include <oru/AudioPlayer.h>
#include <oru/Decoder.h>

#include <boost/thread/thread.hpp>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace oru {

// The engine's track: decodes one stream with FFmpeg (or a host decoder) on a decoding thread
// of its own into a queue of 20 PCM buffers, hands them to the renderer once ten are queued,
// and reports its state changes, progress, errors and metadata to its listener.
//
// Owns its decoding thread, demuxer, decoder, buffer queue and a copy of the resource.
// Threads: created, driven (play, pause, stop, seek, progress settings) and normally destroyed
// on the player's command thread; getNextBuffer, releaseBuffer, updatePosition,
// onRenderError and onRenderFinished on the render thread; the decoding thread demuxes,
// decodes and reports. Never destroy it on its own decoding thread (destruction joins it).
// The config, the renderer, the listener and the decoder factory must outlive it.
class LibavAudioTrack : public AudioTrack {
 public:
  LibavAudioTrack(std::unique_ptr<AudioPlayer::Token>& token, AudioPlayer::Resource const& resource,
                  PlaybackConfig const& config, int version, Renderer* renderer,
                  AudioPlayer::TimestampMode mode, EventListener* listener,
                  DecoderDelegateFactory* decoderFactory, std::shared_ptr<AVWrapper> wrapper);
  // Stops and joins the decoding thread: clears the running flag (which aborts FFmpeg's
  // blocking reads), wakes a decoder waiting for a buffer and calls the resource's cancel
  // callback (which should make a blocked data callback return).
  ~LibavAudioTrack() override;

  void startDecodingThread();

  unsigned getPositionMs() const override;
  void setProgressReportDelay(int ms) override;
  void setProgressReportInterval(int ms) override;
  // Only shifts the time base of the next play(); the data is not repositioned.
  void seek(unsigned offsetMs) override;
  void play(int64_t commonTime) override;
  void pause(bool isTransient) override;
  // Only changes the state; destruction stops the decoding thread.
  void stop() override;

  int getNextBuffer(PcmBuffer** buffer) override;
  void releaseBuffer(PcmBuffer* buffer) override;
  void updatePosition(int64_t commonTime) override;
  void onRenderError(int error) override;
  void onRenderFinished() override;

 private:
  static constexpr uint32_t kOff = 0xFFFFFFFF;

  void decodingThread();
  void stopDecodingThread();
  void changeState(State newState);
  void onTrackError(AudioPlayer::MediaError error, std::string const& message);
  // Reports a failure of the stream, with its log line `what`, unless the track is stopping.
  void decodingFailed(AudioPlayer::MediaError error, char const* failure, char const* what);
  // Pushes the end markers.
  void endTrack();
  // Reports `metadata` unless it equals what was reported last. Decoding thread.
  void reportMetadata(std::map<std::string, std::string> const& metadata);

  AudioPlayer::Resource const mResource;
  PlaybackConfig const& mConfig;
  int const mVersion;
  Renderer* const mRenderer;
  AudioPlayer::TimestampMode const mMode;
  EventListener* const mListener;

  // Set from the command thread, used on the render thread.
  std::atomic<uint32_t> mProgressReportDelayMs{kOff};
  std::atomic<uint32_t> mNextProgressReportMs{kOff};
  std::atomic<uint32_t> mProgressReportIntervalMs{kOff};
  uint32_t mOffsetMs = 0;  // command thread
  // Common time (ns) of the track's position 0; set by play, read on the render thread.
  std::atomic<int64_t> mStartTime{0};
  std::atomic<State> mState{Buffering};
  std::atomic<uint32_t> mPositionMs{0};  // written on the render thread, read anywhere
  // Cleared to stop the decoding thread; read by FFmpeg's interrupt callback.
  std::atomic<bool> mRunning{true};
  BufferQueue mQueue;
  std::map<std::string, std::string> mLastMetadata;  // decoding thread

  // Render thread only.
  uint32_t mPrebufferCount;  // buffers to queue before the first is handed out; 0 once playing
  uint32_t mLastFormat = kOff;
  int32_t mLastChannels = 0;
  int32_t mLastRate = 0;
  bool mEndOfStream = false;

  boost::thread mDecodingThread;
  DecoderDelegateFactory* const mDecoderFactory;
  // Decoding thread while it runs; released by the destructor after joining it.
  std::unique_ptr<DecoderDelegate> mDecoder;
  std::unique_ptr<AVDemuxer> mDemuxer;
  std::shared_ptr<AVWrapper> const mWrapper;
};

}  // namespace oru
