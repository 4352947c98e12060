#pragma once

#include "decode/AudioTrack.h"
#include "render/LinearResampler.h"

#include <oru/AudioPlayer.h>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace oru {

// Drives the host's output device from one current track: pulls its buffers, starts, pauses,
// drains and stops the device in step with it, converts common-clock time stamps to local time
// with drift correction, reports the playback position back to the track, and tells the track
// when it has been played out. Everything goes back through the track; the renderer never
// calls the player.
//
// Owns the render thread, which is the only caller of the device's start, stop, write and
// getPlayedFrames and of the clock. Created and destroyed by the player on its thread (never
// destroy it from the render thread); render() is called by a track from whichever thread
// moves it into its playing state. The device and the clock must outlive the renderer.
//
// Device states and their transitions (the device call made on the way in brackets):
//
//   Stopped, Paused, Draining  a buffer needs the device, start() succeeds   -> Started
//   Paused     end of stream: what it holds plays out (start(), stop(DRAIN)) -> Draining
//   Started    end of stream, new format, track detached (stop(DRAIN))       -> Draining
//   Started    pause in TIMESTAMP_STREAM (stop(PAUSE))                       -> Paused
//   Started    pause in the other modes (stop(DRAIN))                        -> Stopped
//   Paused     any other stop (stop(FLUSH))                                  -> Stopped
//   Started, Draining  track stopped or failed, thread ends (stop(FLUSH))    -> Stopped
//   Draining   everything written has played (or played is unknown)        -> Stopped
// A track whose stream ends is told it has been played out exactly once, from any state.
class AudioRenderer : public AudioTrack::Renderer {
 public:
  // Starts the render thread at once. `commonTime` is used only in TIMESTAMP_COMMON.
  AudioRenderer(PlaybackDelegate* hw, AudioPlayer::CommonTimeDelegate* commonTime,
                AudioPlayer::TimestampMode mode);
  // Stops the render thread (see stop()).
  ~AudioRenderer() override;

  AudioRenderer(AudioRenderer const&) = delete;
  AudioRenderer& operator=(AudioRenderer const&) = delete;

  // Makes `track` the current track; an empty pointer detaches the current one (the device
  // then drains). Any thread.
  void render(std::shared_ptr<AudioTrack> track) override;

  // Ends the render thread, which stops the device at once on its way out, and joins it. The
  // renderer then leaves the device alone; render() only records the track. Never call it on
  // the render thread. Idempotent.
  void stop();

 private:
  enum HwState { kStopped = 0, kStarted = 1, kPaused = 2, kDraining = 3 };

  // Everything below runs on the render thread.
  void renderThread();
  // Waits, unless `track` is still being worked on, for a current track or the end of the
  // thread, then makes `track` the current track (which may be none) and `renderCount` the
  // count of render() calls that set it. False once the renderer stops: the device has been
  // flushed then.
  bool takeCurrentTrack(std::shared_ptr<AudioTrack>& track, uint64_t& renderCount);
  // Lets go of `track`, and of the current track too unless render() was called since.
  void dropTrack(std::shared_ptr<AudioTrack>& track, uint64_t renderCount);
  // Asks `track` for its next buffer and acts on the answer, with one of the handlers below.
  // True when the renderer is done with the track.
  bool renderNext(AudioTrack* track);
  // Buffering: polls again after a short wait.
  bool waitForBuffers();
  // FormatChanged: a fresh drift resampler, the device drained for the new format, then the
  // buffer played.
  bool playNewFormat(AudioTrack* track, PcmBuffer* buffer);
  // Playing: writes the buffer and gives it back; a failed write ends the track.
  bool playBuffer(AudioTrack* track, PcmBuffer* buffer);
  // Underrun: reports the position and signals the underrun to a started device with an
  // empty write; without one, polls again after a short wait.
  bool handleUnderrun(AudioTrack* track);
  // Finished: drains the device and, once it has played everything, tells the track.
  bool finishTrack(AudioTrack* track);
  // Any other answer, the track's state when it is not playing: a paused track pauses the
  // device, a stopped or failed one flushes it.
  bool leaveTrack(int state);
  // Writes one buffer: 0, or the device's or the clock's error.
  int renderBuffer(AudioTrack* track, PcmBuffer const* buffer);
  // TIMESTAMP_COMMON, between re-initialisations: the drift resampler's rates for the buffer
  // due at `local`.
  void updateRates(int64_t local);
  // How far the drift resampler's interpolation holds the output behind its input, in ns.
  int64_t lagNs() const;
  // Converts the buffer's common time to the local time of its write and corrects drift,
  // possibly replacing `frames` and `data` with the resampled audio. 0, or the clock's error.
  int convertToLocalTime(PcmBuffer const* buffer, int64_t* time, unsigned int* frames,
                         void const** data);
  // Whether `track` is still the one to render and the renderer still runs.
  bool isCurrentTrack(AudioTrack* track);
  void updatePosition(AudioTrack* track);
  void reportPlayedFrames(AudioTrack* track, int64_t played);
  bool checkDrained(AudioTrack* track);
  void clearState();
  int hwStart(int64_t time, AudioFormat format, int channels, int rate);
  void hwStop(StopBehavior behavior);
  void hwPause();
  int hwWrite(int64_t time, unsigned int* frames, void const* data);
  void hwUnderrun();
  void reallocResamplingBuffer(size_t bytes);
  int64_t framesToNs(int64_t frames) const;

  PlaybackDelegate* const mHW;
  AudioPlayer::CommonTimeDelegate* const mCommonTime;
  AudioPlayer::TimestampMode const mMode;

  // Render thread only.
  HwState mHwState = kStopped;
  AudioFormat mFormat = PCM_S16;
  int mRate = 0;
  int mFrameBytes = 0;
  int mChannels = 0;
  std::unique_ptr<LinearResampler> mResampler;
  std::vector<uint8_t> mResamplingBuffer;
  int64_t mNextLocalTime = 0;  // TIMESTAMP_COMMON: when the next buffer should start
  int64_t mStartTime = 0;      // pts of the buffer that last started the device
  int64_t mFramesWritten = 0;  // frames the device accepted since it was last started
  // TIMESTAMP_COMMON: the local time at which the device's continuous output began, as the
  // drift correction last aligned it; the smallest value when it is to be taken afresh.
  int64_t mSyncOrigin = std::numeric_limits<int64_t>::min();

  // Guards mRunning, mCurrentTrack and mRenderCount.
  boost::mutex mMutex;
  boost::condition_variable mCondition;  // signalled when mRunning or mCurrentTrack changes
  bool mRunning = true;
  std::shared_ptr<AudioTrack> mCurrentTrack;
  // Counts render() calls, so that dropping a paused or finished track cannot undo a render()
  // of the same track that came in meanwhile (a pause quickly followed by a play).
  uint64_t mRenderCount = 0;

  boost::thread mThread;  // last, so that it starts after everything it uses is built
};

}  // namespace oru
