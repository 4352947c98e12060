#include "gapless/AudioPlayerListener.h"

#include "common/Tokens.h"

#include <oru/Log.h>

namespace oru {
namespace {

constexpr char kTag[] = "GaplessPlayer";

}  // namespace

AudioPlayerListener::AudioPlayerListener(AudioPlayer::EventListener* listener,
                                         GaplessPlayer* player)
    : mHostListener(listener), mGaplessPlayer(player) {}

AudioPlayerListener::~AudioPlayerListener() { delete mHostListener; }

AudioPlayer::Token* AudioPlayerListener::fromLogicalTrack(
    std::unique_ptr<GaplessLogicalTrack> const& track) const {
  return track ? track->logicalToken.get() : nullptr;
}

std::pair<unsigned, AudioPlayer::Token*> AudioPlayerListener::fromLogicalTrack(
    std::unique_ptr<GaplessLogicalTrack> const& track, unsigned position) const {
  if (!track) {
    return {position, nullptr};
  }
  return {position - static_cast<uint32_t>(track->startOffsetMs), track->logicalToken.get()};
}

std::unique_ptr<GaplessLogicalTrack> AudioPlayerListener::lookup(
    char const* operation, AudioPlayer::Token const& physicalToken, bool quiet) const {
  std::unique_ptr<GaplessLogicalTrack> track =
      mGaplessPlayer->getCurrentLogicalTrackFromPhysicalToken(physicalToken);
  if (!track && !quiet) {
    LogMessage(LOG_ERROR, kTag) << operation
                                << " No logical token for physical token: " << physicalToken;
  }
  return track;
}

template <typename Event>
void AudioPlayerListener::forward(char const* operation, AudioPlayer::Token const& token,
                                  unsigned position, Event event) {
  auto const track = lookup(operation, token);
  auto const [logicalPosition, logical] = fromLogicalTrack(track, position);
  if (logical != nullptr) {
    event(*logical, logicalPosition);
  }
}

void AudioPlayerListener::trackReady(AudioPlayer::Token const& token, bool afterFailure) {
  if (mMuted) {
    return;
  }
  mGaplessPlayer->onPhysicalStreamReady(token);
  auto const track = lookup("trackReady", token);  // keeps the token alive for the call
  if (AudioPlayer::Token* logical = fromLogicalTrack(track)) {
    mHostListener->trackReady(*logical, afterFailure);
  }
}

void AudioPlayerListener::playbackStarted(AudioPlayer::Token const& token, unsigned positionMs) {
  if (mMuted) {
    return;
  }
  mGaplessPlayer->onPhysicalStreamStarted(token, positionMs);
  forward("playbackStarted", token, positionMs, [this](auto const& logical, unsigned position) {
    mHostListener->playbackStarted(logical, position);
  });
}

void AudioPlayerListener::playbackNearlyFinished(AudioPlayer::Token const& token,
                                                 unsigned positionMs) {
  if (mMuted) {
    return;
  }
  forward("playbackNearlyFinished", token, positionMs,
          [this](auto const& logical, unsigned position) {
            mHostListener->playbackNearlyFinished(logical, position);
          });
}

void AudioPlayerListener::progressReportDelayElapsed(AudioPlayer::Token const& token,
                                                     unsigned positionMs) {
  if (mMuted) {
    return;
  }
  forward("progressReportDelayElapsed", token, positionMs,
          [this](auto const& logical, unsigned position) {
            mHostListener->progressReportDelayElapsed(logical, position);
          });
}

void AudioPlayerListener::progressReportIntervalElapsed(AudioPlayer::Token const& token,
                                                        unsigned positionMs) {
  if (mMuted) {
    return;
  }
  mGaplessPlayer->onReportIntervalElapsed(positionMs);
  auto const track = lookup("progressReportIntervalElapsed", token, true);
  auto const [logicalPosition, logical] = fromLogicalTrack(track, positionMs);
  if (logical != nullptr) {
    mHostListener->progressReportIntervalElapsed(*logical, logicalPosition);
  }
}

void AudioPlayerListener::playbackStutterStarted(AudioPlayer::Token const& token,
                                                 unsigned positionMs) {
  if (mMuted) {
    return;
  }
  forward("playbackStutterStarted", token, positionMs,
          [this](auto const& logical, unsigned position) {
            mHostListener->playbackStutterStarted(logical, position);
          });
}

void AudioPlayerListener::playbackStutterFinished(AudioPlayer::Token const& token,
                                                  unsigned positionMs, unsigned stutterMs) {
  if (mMuted) {
    return;
  }
  forward("playbackStutterFinished", token, positionMs,
          [this, stutterMs](auto const& logical, unsigned position) {
            mHostListener->playbackStutterFinished(logical, position, stutterMs);
          });
}

void AudioPlayerListener::playbackFinished(AudioPlayer::Token const& token, unsigned positionMs) {
  if (mMuted) {
    return;
  }
  bool reported = false;
  forward("playbackFinished", token, positionMs,
          [this, &reported](auto const& logical, unsigned position) {
            mHostListener->playbackFinished(logical, position);
            reported = true;
          });
  if (reported) {
    mGaplessPlayer->onPhysicalStreamFinished(token);
  }
}

void AudioPlayerListener::playbackFailed(AudioPlayer::Token const& failedToken,
                                         AudioPlayer::MediaError error, std::string const& message,
                                         AudioPlayer::Token const& playingToken,
                                         AudioPlayer::State state, unsigned positionMs) {
  if (mMuted) {
    return;
  }
  auto const current = mGaplessPlayer->getCurrentLogicalTrackFromPhysicalToken(playingToken);
  auto const [logicalPosition, currentLogical] = fromLogicalTrack(current, positionMs);
  if (currentLogical == nullptr) {
    LogMessage(LOG_ERROR, kTag) << "playbackFailed"
                                << " No logical token for physical token: " << failedToken;
    return;
  }
  if (sameToken(failedToken, playingToken)) {
    mHostListener->playbackFailed(*currentLogical, error, message, *currentLogical, state,
                                  logicalPosition);
  } else {
    auto const failed = mGaplessPlayer->getCurrentLogicalTrackFromPhysicalToken(failedToken);
    AudioPlayer::Token* failedLogical = fromLogicalTrack(failed);
    if (failedLogical == nullptr) {
      LogMessage(LOG_ERROR, kTag) << "playbackFailed"
                                  << " No failed logical token for physical token: " << failedToken;
      return;
    }
    mHostListener->playbackFailed(*failedLogical, error, message, *currentLogical, state,
                                  logicalPosition);
  }
  mGaplessPlayer->onPhysicalStreamFailed(failedToken);
}

void AudioPlayerListener::playbackStopped(AudioPlayer::Token const& token, unsigned positionMs) {
  if (mMuted) {
    return;
  }
  forward("playbackStopped", token, positionMs, [this](auto const& logical, unsigned position) {
    mHostListener->playbackStopped(logical, position);
  });
}

void AudioPlayerListener::playbackPaused(AudioPlayer::Token const& token, unsigned positionMs) {
  if (mMuted) {
    return;
  }
  forward("playbackPaused", token, positionMs, [this](auto const& logical, unsigned position) {
    mHostListener->playbackPaused(logical, position);
  });
}

void AudioPlayerListener::playbackResumed(AudioPlayer::Token const& token, unsigned positionMs) {
  if (mMuted) {
    return;
  }
  forward("playbackResumed", token, positionMs, [this](auto const& logical, unsigned position) {
    mHostListener->playbackResumed(logical, position);
  });
}

void AudioPlayerListener::playbackQueueCleared() {
  if (!mMuted) {
    mHostListener->playbackQueueCleared();
  }
}

void AudioPlayerListener::streamMetadataExtracted(AudioPlayer::Token const& token,
                                                  std::string const& metadata) {
  if (mMuted) {
    return;
  }
  auto const track = lookup("streamMetadataExtracted", token);
  if (AudioPlayer::Token* logical = fromLogicalTrack(track)) {
    mHostListener->streamMetadataExtracted(*logical, metadata);
  }
}

void AudioPlayerListener::progressReportIntervalUpdated(AudioPlayer::Token const& token,
                                                        unsigned intervalMs,
                                                        AudioPlayer::State state) {
  if (mMuted) {
    return;
  }
  auto const track = lookup("progressReportIntervalUpdated", token);
  if (AudioPlayer::Token* logical = fromLogicalTrack(track)) {
    mHostListener->progressReportIntervalUpdated(*logical, intervalMs, state);
  }
}

}  // namespace oru
