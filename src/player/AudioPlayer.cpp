#include <oru/AudioPlayer.h>

#include "player/AudioPlayerImpl.h"

#include <ostream>

namespace oru {

AudioPlayer::AudioPlayer(EventListener* listener, PlaybackDelegate* hw, CommonTimeDelegate* clock,
                         TimestampMode mode, DecoderDelegateFactory* factory)
    : mImpl(std::make_unique<Impl>(listener, hw, clock, mode, factory)) {}

AudioPlayer::AudioPlayer() = default;

AudioPlayer::~AudioPlayer() = default;

void AudioPlayer::shutdown() { mImpl.reset(); }

void AudioPlayer::setLogger(LoggingDelegate* logger) { LogMessage::setLogger(logger); }

// A subclass built with the protected constructor replaces every operation; on it, these do
// nothing.

void AudioPlayer::getSupportedVersions(int* minVersion, int* maxVersion) {
  if (mImpl) {
    mImpl->getSupportedVersions(minVersion, maxVersion);
  }
}

void AudioPlayer::prepare(PlayBehavior behavior, Resource const& resource, unsigned offsetMs,
                          int progressReportDelayMs, int progressReportIntervalMs,
                          Token const& token, int version) {
  if (mImpl) {
    mImpl->prepare(behavior, resource, offsetMs, progressReportDelayMs, progressReportIntervalMs,
                   token, version);
  }
}

void AudioPlayer::play(Token const& token, long long commonTime) {
  if (mImpl) {
    mImpl->play(token, commonTime);
  }
}

void AudioPlayer::stop(bool isTransient) {
  if (mImpl) {
    mImpl->stop(isTransient);
  }
}

void AudioPlayer::setResumeOffset(int offsetMs) {
  if (mImpl) {
    mImpl->seek(offsetMs);
  }
}

void AudioPlayer::clearQueue(ClearBehavior behavior) {
  if (mImpl) {
    mImpl->clearQueue(behavior, true);
  }
}

void AudioPlayer::setProgressReportInterval(int intervalMs) {
  if (mImpl) {
    mImpl->setProgressReportInterval(intervalMs);
  }
}

std::ostream& operator<<(std::ostream& out, AudioPlayer::Token const& token) {
  return out << token.toString();
}

}  // namespace oru
