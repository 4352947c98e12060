#include "player/AudioPlayerImpl.h"

#include "common/Tokens.h"

#include "player/PlaybackConfig.h"

#include <oru/Log.h>

#include <algorithm>

namespace oru {
namespace {

constexpr char kTag[] = "AudioPlayer";

// The metadata text handed to the host: {"key":"value",...} in key order, unescaped.
std::string metadataToText(std::map<std::string, std::string> const& metadata) {
  std::string text = "{";
  for (auto const& [key, value] : metadata) {
    if (text.size() > 1) {
      text += ",";
    }
    text += "\"" + key + "\":\"" + value + "\"";
  }
  return text + "}";
}

}  // namespace

AudioPlayer::Impl::Impl(AudioPlayer::EventListener* listener, PlaybackDelegate* hw,
                        CommonTimeDelegate* clock, TimestampMode mode,
                        DecoderDelegateFactory* factory)
    : mListener(listener),
      mConfig(readPlaybackConfig(*hw)),
      mMode(mode),
      mRenderer(std::make_unique<AudioRenderer>(hw, clock, mode)),
      mDecoderFactory(factory) {
  AudioTrack::getSupportedVersions(&mMinVersion, &mMaxVersion);
  mLoop.run();
}

AudioPlayer::Impl::~Impl() {
  LogMessage(LOG_DETAIL, kTag) << "~Impl begin";
  mLoop.post([this] { handleClearQueue(CLEAR_ALL, false); });
  // The render thread ends at once, so the device is left alone from here on. The renderer
  // object stays until the loop has stopped: handlers posted before destruction still run
  // and may hand it a track (which it then only records).
  mRenderer->stop();
  mLoop.stop();
  LogMessage(LOG_DETAIL, kTag) << "~Impl end";
}

void AudioPlayer::Impl::getSupportedVersions(int* minVersion, int* maxVersion) const {
  *minVersion = mMinVersion;
  *maxVersion = mMaxVersion;
}

void AudioPlayer::Impl::prepare(PlayBehavior behavior, Resource const& resource, unsigned offsetMs,
                                int progressReportDelayMs, int progressReportIntervalMs,
                                Token const& token, int version) {
  std::shared_ptr<Token const> owned(token.clone());
  mLoop.post([=] {
    handlePrepare(behavior, resource, offsetMs, progressReportDelayMs, progressReportIntervalMs,
                  *owned, version);
  });
}

void AudioPlayer::Impl::play(Token const& token, long long commonTime) {
  std::shared_ptr<Token const> owned(token.clone());
  mLoop.post([=] { handlePlay(*owned, commonTime); });
}

void AudioPlayer::Impl::stop(bool isTransient) {
  mLoop.post([=] { handleStop(isTransient); });
}

void AudioPlayer::Impl::seek(int offsetMs) {
  mLoop.post([=] { handleSeek(offsetMs); });
}

void AudioPlayer::Impl::clearQueue(ClearBehavior behavior, bool notify) {
  mLoop.post([=] { handleClearQueue(behavior, notify); });
}

void AudioPlayer::Impl::setProgressReportInterval(int intervalMs) {
  mLoop.post([=] { handleSetProgressReportInterval(intervalMs); });
}

char const* AudioPlayer::Impl::checkHardwareConfig() const {
  std::vector<uint32_t> const& rates = mConfig.supportedRates;
  if (rates.empty() || mConfig.defaultRate < 1 ||
      std::find(rates.begin(), rates.end(), static_cast<uint32_t>(mConfig.defaultRate)) ==
          rates.end()) {
    return Failure::kNoRate;
  }
  std::vector<AudioFormat> const& formats = mConfig.supportedFormats;
  if (formats.empty()) {
    return Failure::kNoFormat;
  }
  if (mConfig.preferredFormat != -1 &&
      std::find(formats.begin(), formats.end(), mConfig.preferredFormat) == formats.end()) {
    LogMessage(LOG_ERROR, kTag) << "HW did not support preferredFormat";
    return Failure::kNoPlaybackFormat;
  }
  return nullptr;
}

void AudioPlayer::Impl::handlePrepare(PlayBehavior behavior, Resource const& resource,
                                      unsigned offsetMs, int delayMs, int intervalMs,
                                      Token const& token, int version) {
  mThreadChecker.checkCalledOnValidThread();
  LogMessage(LOG_INFO, kTag) << "handlePrepare behavior: " << static_cast<int>(behavior)
                             << " uri: " << LogMessage::ipAddressFilter(resource.uri)
                             << " token: " << token << " offsetMs: " << offsetMs
                             << " version: " << version;
  if (!canPrepare(token, version)) {
    return;
  }

  std::shared_ptr<AudioTrack> track = findTrack(token, resource.uri);
  bool const reused = track != nullptr;
  if (reused) {
    LogMessage(LOG_INFO, kTag) << "Reusing existing track";
    track->setToken(std::unique_ptr<Token>(token.clone()));
  } else {
    LogMessage(LOG_INFO, kTag) << "defaultRate: " << mConfig.defaultRate;
    std::unique_ptr<Token> owned(token.clone());
    track = AudioTrack::create(owned, resource, mConfig, version, mRenderer.get(), mMode, this,
                               mDecoderFactory);
  }
  queueTrack(behavior, track, reused);

  track->setProgressReportDelay(delayMs);
  track->setProgressReportInterval(intervalMs);
  track->seek(offsetMs);

  if (behavior == REPLACE_ALL || mQueue.size() == 1) {
    notifyIfNextIsReady(false);
  }
}

bool AudioPlayer::Impl::canPrepare(Token const& token, int version) {
  if (char const* failure = checkHardwareConfig()) {
    LogMessage(LOG_ERROR, kTag) << failure;
    mListener->playbackFailed(token, MEDIA_ERROR_INTERNAL, failure, token, STATE_STOPPED, 0);
    return false;
  }
  if (version < 0 || version < mMinVersion || version > mMaxVersion) {
    LogMessage(LOG_ERROR, kTag) << "Invalid player version: " << version
                                << " expected: " << mMinVersion << " " << mMaxVersion;
    mListener->playbackFailed(token, MEDIA_ERROR_INTERNAL, Failure::kVersion, token, STATE_STOPPED,
                              0);
    return false;
  }
  return true;
}

std::shared_ptr<AudioTrack> AudioPlayer::Impl::findTrack(Token const& token,
                                                         std::string const& uri) const {
  for (auto const& queued : mQueue) {
    if (sameToken(queued->token(), token) && queued->uri() == uri) {
      return queued;
    }
  }
  return nullptr;
}

void AudioPlayer::Impl::queueTrack(PlayBehavior behavior, std::shared_ptr<AudioTrack> const& track,
                                   bool reused) {
  switch (behavior) {
    case ENQUEUE:
      if (!reused) {
        mQueue.push_back(track);
      }
      break;
    case REPLACE_ENQUEUED:
      if (mQueue.size() > 1) {
        mQueue.erase(std::next(mQueue.begin()), mQueue.end());
      }
      mQueue.push_back(track);
      break;
    case REPLACE_ALL:
      if (!mQueue.empty() && mQueue.front() != track) {
        stopPlayback();
      }
      while (!mQueue.empty() && mQueue.front() != track) {
        mQueue.pop_front();
      }
      if (mQueue.empty()) {
        mQueue.push_back(track);
      }
      break;
    default:
      break;  // prepared, but the queue is left as it is
  }
}

void AudioPlayer::Impl::handlePlay(Token const& token, long long commonTime) {
  mThreadChecker.checkCalledOnValidThread();
  LogMessage(LOG_INFO, kTag) << "handlePlay token: " << token << " commonTime: " << commonTime;
  if (mQueue.empty()) {
    LogMessage(LOG_ERROR, kTag) << "Cannot play: the queue is empty";
  } else if (sameToken(mQueue.front()->token(), token)) {
    mQueue.front()->play(commonTime);
  } else {
    LogMessage(LOG_ERROR, kTag) << "Cannot play: expected token '" << mQueue.front()->token()
                                << "', got '" << token << "'";
  }
}

void AudioPlayer::Impl::handleStop(bool isTransient) {
  mThreadChecker.checkCalledOnValidThread();
  if (!mQueue.empty()) {
    mQueue.front()->pause(isTransient);
  }
}

void AudioPlayer::Impl::handleSeek(int offsetMs) {
  mThreadChecker.checkCalledOnValidThread();
  if (!mQueue.empty()) {
    mQueue.front()->seek(static_cast<unsigned>(offsetMs));
  }
}

void AudioPlayer::Impl::handleClearQueue(ClearBehavior behavior, bool notify) {
  mThreadChecker.checkCalledOnValidThread();
  if (behavior == CLEAR_ENQUEUED) {
    if (mQueue.size() > 1) {
      mQueue.erase(std::next(mQueue.begin()), mQueue.end());
    }
  } else if (behavior == CLEAR_ALL) {
    stopPlayback();
    mQueue.clear();
  }
  if (notify) {
    mListener->playbackQueueCleared();
  }
}

void AudioPlayer::Impl::handleSetProgressReportInterval(int intervalMs) {
  mThreadChecker.checkCalledOnValidThread();
  // The head track keeps its own interval: the player only acknowledges the new value.
  if (!mQueue.empty()) {
    mListener->progressReportIntervalUpdated(mQueue.front()->token(),
                                             static_cast<unsigned>(intervalMs), mState);
  }
}

void AudioPlayer::Impl::stopPlayback() {
  mThreadChecker.checkCalledOnValidThread();
  if (!mQueue.empty()) {
    LogMessage(LOG_DETAIL, kTag) << "stopPlayback";
    std::shared_ptr<AudioTrack> const head = mQueue.front();
    head->stop();
  }
}

void AudioPlayer::Impl::deleteTrack(AudioTrack const* track) {
  mThreadChecker.checkCalledOnValidThread();
  LogMessage(LOG_DETAIL, kTag) << "deleteTrack " << track->token();
  auto const found = std::find_if(mQueue.begin(), mQueue.end(),
                                  [track](auto const& queued) { return queued.get() == track; });
  if (found != mQueue.end()) {
    mQueue.erase(found);
  }
}

void AudioPlayer::Impl::notifyIfNextIsReady(bool afterFailure) {
  mThreadChecker.checkCalledOnValidThread();
  if (!mQueue.empty()) {
    LogMessage(LOG_DETAIL, kTag) << "trackReady " << mQueue.front()->token();
    mListener->trackReady(mQueue.front()->token(), afterFailure);
  }
}

bool AudioPlayer::Impl::isHead(AudioTrack const& track) const {
  return !mQueue.empty() && sameToken(mQueue.front()->token(), track.token());
}

void AudioPlayer::Impl::postReport(AudioTrack* track, std::function<void(TrackRef const&)> report) {
  TrackRef ref = track->weak_from_this();
  mLoop.execOrPost([ref = std::move(ref), report = std::move(report)] { report(ref); });
}

void AudioPlayer::Impl::onTrackStateChange(AudioTrack* track, AudioTrack::State oldState,
                                           AudioTrack::State newState, unsigned positionMs) {
  postReport(track, [=](TrackRef const& ref) {
    onTrackStateChangeImpl(ref, oldState, newState, positionMs);
  });
}

void AudioPlayer::Impl::onProgressReportDelay(AudioTrack* track, unsigned positionMs) {
  postReport(track, [=](TrackRef const& ref) { onProgressReportDelayImpl(ref, positionMs); });
}

void AudioPlayer::Impl::onProgressReportInterval(AudioTrack* track, unsigned positionMs) {
  postReport(track, [=](TrackRef const& ref) { onProgressReportIntervalImpl(ref, positionMs); });
}

void AudioPlayer::Impl::onTrackError(AudioTrack* track, MediaError error,
                                     std::string const& message) {
  postReport(track, [=](TrackRef const& ref) { onTrackErrorImpl(ref, error, message); });
}

void AudioPlayer::Impl::onMetadata(AudioTrack* track,
                                   std::map<std::string, std::string> const& metadata) {
  std::string text = metadataToText(metadata);
  postReport(track, [=](TrackRef const& ref) { onMetadataImpl(ref, text); });
}

void AudioPlayer::Impl::onTrackStateChangeImpl(TrackRef const& ref, AudioTrack::State oldState,
                                               AudioTrack::State newState, unsigned positionMs) {
  mThreadChecker.checkCalledOnValidThread();
  std::shared_ptr<AudioTrack> const track = ref.lock();
  if (!track) {
    return;
  }
  Token const& token = track->token();
  LogMessage(LOG_DETAIL, kTag) << "onTrackStateChange " << token << " " << oldState << " "
                               << newState << " " << positionMs;
  if (!isHead(*track)) {
    if (newState == AudioTrack::Finished || newState == AudioTrack::Stopped) {
      deleteTrack(track.get());
    }
    return;
  }
  switch (newState) {
    case AudioTrack::Playing:
      mState = STATE_PLAYING;
      if (oldState == AudioTrack::Underrun) {
        mListener->playbackStutterFinished(token, positionMs, 0);
      } else if (oldState == AudioTrack::PausedTransient) {
        mListener->playbackResumed(token, positionMs);
      } else {
        // The host may prepare its next track as soon as this one starts.
        mListener->playbackStarted(token, positionMs);
        mListener->playbackNearlyFinished(token, positionMs);
      }
      break;
    case AudioTrack::Paused:
      mState = STATE_STOPPED;
      mListener->playbackStopped(token, positionMs);
      break;
    case AudioTrack::Underrun:
      mState = STATE_STUTTERING;
      mListener->playbackStutterStarted(token, positionMs);
      break;
    case AudioTrack::Finished:
      deleteTrack(track.get());
      mState = STATE_FINISHED;
      mListener->playbackFinished(token, positionMs);
      notifyIfNextIsReady(false);
      break;
    case AudioTrack::Stopped:
      deleteTrack(track.get());
      if (oldState != AudioTrack::Paused) {  // a paused track's stop was reported already
        mState = STATE_STOPPED;
        mListener->playbackStopped(token, positionMs);
      }
      break;
    case AudioTrack::PausedTransient:
      mState = STATE_STOPPED;
      mListener->playbackPaused(token, positionMs);
      break;
    default:
      break;
  }
}

void AudioPlayer::Impl::onTrackErrorImpl(TrackRef const& ref, MediaError error,
                                         std::string const& message) {
  mThreadChecker.checkCalledOnValidThread();
  std::shared_ptr<AudioTrack> const track = ref.lock();
  if (!track) {
    return;
  }
  Token const& token = track->token();
  LogMessage(LOG_DETAIL, kTag) << "onTrackError " << token << " " << static_cast<int>(error) << " "
                               << message;
  if (isHead(*track)) {
    deleteTrack(track.get());
    mState = STATE_STOPPED;
    mListener->playbackFailed(token, error, message, token, STATE_STOPPED, track->getPositionMs());
    notifyIfNextIsReady(true);
    return;
  }
  deleteTrack(track.get());
  if (!mQueue.empty()) {
    AudioTrack const& head = *mQueue.front();
    mListener->playbackFailed(token, error, message, head.token(), mState, head.getPositionMs());
  }
}

void AudioPlayer::Impl::onProgressReportDelayImpl(TrackRef const& ref, unsigned positionMs) {
  mThreadChecker.checkCalledOnValidThread();
  if (std::shared_ptr<AudioTrack> const track = ref.lock()) {
    LogMessage(LOG_DETAIL, kTag) << "onProgressReportDelay " << track->token() << " " << positionMs;
    mListener->progressReportDelayElapsed(track->token(), positionMs);
  }
}

void AudioPlayer::Impl::onProgressReportIntervalImpl(TrackRef const& ref, unsigned positionMs) {
  mThreadChecker.checkCalledOnValidThread();
  if (std::shared_ptr<AudioTrack> const track = ref.lock()) {
    mListener->progressReportIntervalElapsed(track->token(), positionMs);
  }
}

void AudioPlayer::Impl::onMetadataImpl(TrackRef const& ref, std::string const& metadata) {
  mThreadChecker.checkCalledOnValidThread();
  if (std::shared_ptr<AudioTrack> const track = ref.lock()) {
    LogMessage(LOG_DETAIL, kTag) << "onMetadata " << track->token();
    mListener->streamMetadataExtracted(track->token(), metadata);
  }
}

}  // namespace oru
