#include "render/AudioRenderer.h"

#include "common/ThreadName.h"
#include "common/Time.h"

#include <oru/Log.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace oru {
namespace {

constexpr char kTag[] = "AudioRenderer";
// A buffer whose local time misses the prediction by more than this re-initialises drift
// correction with fresh rates from the clock.
constexpr uint64_t kMaxPredictionMissNs = 4 * kNsPerMs;
// Between re-initialisations, an offset between where the device presents the stream and
// where its time stamps say it belongs is corrected over this long, at most this fast: a
// frame (20.8 us at 48 kHz) costs 2 ppm, inaudible.
constexpr double kSyncHorizonNs = 10 * kNsPerSecond;
constexpr double kMaxSyncCorrectionPpm = 20;
// The resampler may produce a few frames more than it consumes.
constexpr unsigned int kResamplingHeadroomFrames = 4;
constexpr useconds_t kPollIntervalUs = kUsPerMs;

uint64_t absoluteDifference(int64_t a, int64_t b) {
  // Computed in unsigned arithmetic so that far-apart values cannot overflow.
  return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
               : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
}

// A little under 2^63: every double of a smaller magnitude converts to int64_t.
constexpr double kInt64SafeMagnitude = 9.2e18;

// Truncates toward zero; values beyond the 64-bit range (or NaN) count as no shift at all.
int64_t truncateToInt64(double value) {
  if (!(std::fabs(value) < kInt64SafeMagnitude)) {
    return 0;
  }
  return static_cast<int64_t>(value);
}

}  // namespace

AudioRenderer::AudioRenderer(PlaybackDelegate* hw, AudioPlayer::CommonTimeDelegate* commonTime,
                             AudioPlayer::TimestampMode mode)
    : mHW(hw), mCommonTime(commonTime), mMode(mode), mThread([this] { renderThread(); }) {}

AudioRenderer::~AudioRenderer() { stop(); }

void AudioRenderer::stop() {
  {
    boost::lock_guard<boost::mutex> lock(mMutex);
    mRunning = false;
  }
  mCondition.notify_one();
  if (mThread.joinable()) {
    mThread.join();
  }
}

void AudioRenderer::render(std::shared_ptr<AudioTrack> track) {
  {
    boost::lock_guard<boost::mutex> lock(mMutex);
    std::swap(mCurrentTrack, track);
    ++mRenderCount;
  }
  mCondition.notify_one();
  // `track` now holds the previous track, released here, outside the lock: if this was its
  // last reference, its destructor joins its decoding thread.
}

void AudioRenderer::renderThread() {
  nameCurrentThread("oru-render");
  clearState();
  std::shared_ptr<AudioTrack> track;  // the track this pass works on
  uint64_t trackRenderCount = 0;      // mRenderCount when it was taken
  while (takeCurrentTrack(track, trackRenderCount)) {
    if (!track) {
      hwStop(STOP_DRAIN);
    } else if (renderNext(track.get())) {
      dropTrack(track, trackRenderCount);
    }
  }
}

bool AudioRenderer::takeCurrentTrack(std::shared_ptr<AudioTrack>& track, uint64_t& renderCount) {
  std::shared_ptr<AudioTrack> current;
  {
    boost::unique_lock<boost::mutex> lock(mMutex);
    if (!track) {
      while (mRunning && !mCurrentTrack) {
        mCondition.wait(lock);
        LogMessage(LOG_DETAIL, kTag) << "renderThread: after wait";
      }
    }
    current = mCurrentTrack;
    renderCount = mRenderCount;
    if (!mRunning) {
      lock.unlock();
      hwStop(STOP_FLUSH);
      return false;
    }
  }
  // The reference to the previous track, maybe its last one, goes outside the lock.
  track = std::move(current);
  return true;
}

void AudioRenderer::dropTrack(std::shared_ptr<AudioTrack>& track, uint64_t renderCount) {
  {
    boost::lock_guard<boost::mutex> lock(mMutex);
    if (mCurrentTrack == track && mRenderCount == renderCount) {
      mCurrentTrack.reset();
    }
  }
  track.reset();  // outside the lock: it may be the last reference
}

bool AudioRenderer::renderNext(AudioTrack* track) {
  PcmBuffer* buffer = nullptr;
  int const answer = track->getNextBuffer(&buffer);
  switch (answer) {
    case AudioTrack::Buffering:
      return waitForBuffers();
    case AudioTrack::FormatChanged:
      return playNewFormat(track, buffer);
    case AudioTrack::Playing:
      return playBuffer(track, buffer);
    case AudioTrack::Underrun:
      return handleUnderrun(track);
    case AudioTrack::Finished:
      return finishTrack(track);
    default:
      return leaveTrack(answer);
  }
}

bool AudioRenderer::waitForBuffers() {
  usleep(kPollIntervalUs);
  return false;
}

bool AudioRenderer::playNewFormat(AudioTrack* track, PcmBuffer* buffer) {
  mResampler =
      LinearResampler::create(buffer->format, buffer->channels, buffer->rate, kNsPerSecond);
  // A new resampler has no rates yet: the first buffer must miss any prediction.
  mNextLocalTime = std::numeric_limits<int64_t>::max();
  hwStop(STOP_DRAIN);
  return playBuffer(track, buffer);
}

bool AudioRenderer::playBuffer(AudioTrack* track, PcmBuffer* buffer) {
  int const result = renderBuffer(track, buffer);
  if (result == 0) {
    updatePosition(track);
  }
  track->releaseBuffer(buffer);
  if (result != 0) {
    track->onRenderError(result);
    return true;
  }
  return false;
}

bool AudioRenderer::handleUnderrun(AudioTrack* track) {
  updatePosition(track);
  if (mHwState == kStarted) {
    hwUnderrun();
  } else {
    usleep(kPollIntervalUs);  // nothing to signal to: wait as while buffering, not spin
  }
  return false;
}

bool AudioRenderer::finishTrack(AudioTrack* track) {
  // The audio a paused device holds is played out, not discarded: start it again first.
  if (mHwState == kPaused && hwStart(mStartTime, mFormat, mChannels, mRate) != 0) {
    clearState();
  }
  hwStop(STOP_DRAIN);
  return checkDrained(track);
}

bool AudioRenderer::leaveTrack(int state) {
  if (state == AudioTrack::Paused || state == AudioTrack::PausedTransient) {
    hwPause();
  } else {
    hwStop(STOP_FLUSH);
  }
  return true;
}

int AudioRenderer::renderBuffer(AudioTrack* track, PcmBuffer const* buffer) {
  if (mHwState != kStarted) {
    int const result = hwStart(buffer->pts, buffer->format, buffer->channels, buffer->rate);
    if (result != 0) {
      return result;
    }
  }
  unsigned int frames = mFrameBytes > 0 ? buffer->size / static_cast<unsigned>(mFrameBytes) : 0;
  void const* data = buffer->data;
  int64_t time = buffer->pts;
  if (mMode == AudioPlayer::TIMESTAMP_COMMON) {
    int const result = convertToLocalTime(buffer, &time, &frames, &data);
    if (result != 0) {
      return result;
    }
  }

  for (;;) {
    unsigned int written = frames;
    int const result = hwWrite(time, &written, data);
    if (result != 0) {
      LogMessage(LOG_ERROR, kTag) << "Write error: " << result;
      return result;
    }
    mFramesWritten += written;
    if (written >= frames) {
      return 0;
    }
    // The device took part of the buffer. Offer the rest again at once (write blocks while
    // the device is full) unless the track was replaced or the renderer is stopping.
    if (!isCurrentTrack(track)) {
      return 0;
    }
    if (written > 0) {
      frames -= written;
      data = static_cast<uint8_t const*>(data) + static_cast<size_t>(written) * mFrameBytes;
      time += framesToNs(written);
    }
  }
}

int AudioRenderer::convertToLocalTime(PcmBuffer const* buffer, int64_t* time, unsigned int* frames,
                                      void const** data) {
  long long local = 0;
  int const result = mCommonTime->commonToLocal(buffer->pts, &local);
  if (result != 0) {
    LogMessage(LOG_ERROR, kTag) << "commonToLocal failed: " << result;
    return result;
  }
  unsigned int const inputFrames = *frames;
  if (mResampler) {
    local += truncateToInt64(mResampler->timeShift());
    bool const missed = absoluteDifference(mNextLocalTime, local) > kMaxPredictionMissNs;
    if (missed) {
      double const drift = mCommonTime->getDriftPpm();
      mResampler->init(drift, mCommonTime->getCorrectionPpm());
    }
    if (missed || mSyncOrigin == std::numeric_limits<int64_t>::min()) {
      // The device presents what it is given continuously: from here on, it is in sync when
      // each buffer's time stamp is where its frames fall in that continuous output.
      mSyncOrigin = local - framesToNs(mFramesWritten) - lagNs();
    } else {
      updateRates(local);
    }
    mNextLocalTime = local + framesToNs(inputFrames);
    if (mResampler->needResample()) {
      unsigned int consumed = inputFrames;
      unsigned int produced = inputFrames + kResamplingHeadroomFrames;
      reallocResamplingBuffer(static_cast<size_t>(mFrameBytes) * produced);
      mResampler->resample(consumed, *data, produced, mResamplingBuffer.data());
      if (produced > 0) {
        *frames = produced;
        *data = mResamplingBuffer.data();
      }
    }
  } else {
    mNextLocalTime = local + framesToNs(inputFrames);
  }
  *time = local;
  return 0;
}

void AudioRenderer::updateRates(int64_t local) {
  // Rates are read at every buffer, so that a slow change of the clock's drift (temperature)
  // or a new correction from the host's clock servo is followed during a continuous stream.
  // The offset of the device's continuous output from the time stamps is corrected on top.
  double const offsetNs =
      static_cast<double>(mSyncOrigin + framesToNs(mFramesWritten) + lagNs() - local);
  double const sync = std::clamp(offsetNs / kSyncHorizonNs * kPartsPerMillion,
                                 -kMaxSyncCorrectionPpm, kMaxSyncCorrectionPpm);
  // On the drift's side: unlike the host's correction, it must not move the time stamps.
  mResampler->setRates(mCommonTime->getDriftPpm() + sync, mCommonTime->getCorrectionPpm());
}

int64_t AudioRenderer::lagNs() const {
  return std::llround(mResampler->lagFrames() * static_cast<double>(kNsPerSecond) / mRate);
}

bool AudioRenderer::isCurrentTrack(AudioTrack* track) {
  boost::lock_guard<boost::mutex> lock(mMutex);
  return mRunning && mCurrentTrack.get() == track;
}

void AudioRenderer::updatePosition(AudioTrack* track) {
  int64_t played = mHW->getPlayedFrames();
  if (played < 0) {
    played = mFramesWritten;
  }
  reportPlayedFrames(track, played);
}

void AudioRenderer::reportPlayedFrames(AudioTrack* track, int64_t played) {
  // Before the device was ever started there is no rate and no position to report.
  if (mRate <= 0) {
    return;
  }
  track->updatePosition(mStartTime + framesToNs(played));
}

bool AudioRenderer::checkDrained(AudioTrack* track) {
  // A device that was never started (an empty stream) or has stopped has nothing left to play:
  // the track finishes at once, as it does once a draining device has played everything.
  int64_t const played = mHwState == kDraining ? mHW->getPlayedFrames() : -1;
  if (played >= 0) {
    reportPlayedFrames(track, played);
    if (played < mFramesWritten) {
      usleep(kPollIntervalUs);
      return false;
    }
    LogMessage(LOG_INFO, kTag) << "written " << mFramesWritten << " frames, played " << played
                               << " frames";
  }
  LogMessage(LOG_INFO, kTag) << "finished";
  track->onRenderFinished();
  clearState();
  return true;
}

void AudioRenderer::clearState() {
  mHwState = kStopped;
  mStartTime = 0;
  mFramesWritten = 0;
  mNextLocalTime = std::numeric_limits<int64_t>::max();
  mRate = 0;
  mFrameBytes = 0;
  mChannels = 0;
}

int AudioRenderer::hwStart(int64_t time, AudioFormat format, int channels, int rate) {
  if (mHwState == kStarted) {
    return 0;
  }
  int const result = mHW->start(format, channels);
  if (result != 0) {
    LogMessage(LOG_ERROR, kTag) << "mHW->start() failed: " << result;
    return result;
  }
  mFormat = format;
  mChannels = channels;
  mRate = rate;
  mFrameBytes = bytesPerSample(format) * channels;
  mFramesWritten = 0;
  mStartTime = time;
  mSyncOrigin = std::numeric_limits<int64_t>::min();
  mHwState = kStarted;
  return 0;
}

void AudioRenderer::hwStop(StopBehavior behavior) {
  switch (mHwState) {
    case kStopped:
      return;
    case kPaused:
      // A paused device keeps data that will never play: discard it, whatever was asked.
      mHW->stop(STOP_FLUSH);
      clearState();
      return;
    case kStarted:
    case kDraining:
      if (behavior == STOP_DRAIN) {
        if (mHwState == kStarted) {
          mHW->stop(STOP_DRAIN);
          mHwState = kDraining;
        }
      } else if (behavior == STOP_FLUSH) {
        mHW->stop(STOP_FLUSH);
        clearState();
      }
      return;
  }
}

void AudioRenderer::hwPause() {
  if (mHwState != kStarted) {
    return;
  }
  if (mMode == AudioPlayer::TIMESTAMP_STREAM) {
    // The device keeps its data; the next buffer starts it again from there.
    mHW->stop(STOP_PAUSE);
    mHwState = kPaused;
  } else {
    // Time stamps are absolute: the next buffer restarts the device at its own time.
    mHW->stop(STOP_DRAIN);
    mHwState = kStopped;
  }
}

int AudioRenderer::hwWrite(int64_t time, unsigned int* frames, void const* data) {
  return mHW->write(time, data, frames);
}

void AudioRenderer::hwUnderrun() {
  if (mHwState != kStarted) {
    return;
  }
  unsigned int frames = 0;
  mHW->write(0, nullptr, &frames);
}

void AudioRenderer::reallocResamplingBuffer(size_t bytes) {
  if (mResamplingBuffer.size() < bytes) {
    mResamplingBuffer.resize(bytes, 0);
  }
}

int64_t AudioRenderer::framesToNs(int64_t frames) const { return oru::framesToNs(frames, mRate); }

}  // namespace oru
