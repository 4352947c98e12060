#include <oru/GaplessPlayer.h>

#include "common/Tokens.h"

#include "gapless/AudioPlayerListener.h"

#include <oru/Log.h>

#include <sstream>

namespace oru {
namespace {

constexpr char kTag[] = "GaplessPlayer";

// Offsets and positions meet in 32 bits: an unset offset (all ones) is never passed.
uint32_t low32(int64_t offset) { return static_cast<uint32_t>(offset); }

// A REPLACE_ALL prepare. One of the logical track that is playing, found as `existing`,
// resumes it: the host may update the entry's token, `startPosition` (inside the logical
// track) becomes a position in the stream, and no entry is added. Any other clears what is
// enqueued and adds an entry. Whether to add one.
bool replaceAll(GaplessPlayer& player, std::string const& trackId, std::string const& streamUrl,
                AudioPlayer::Token const& token, std::unique_ptr<GaplessLogicalTrack>& existing,
                unsigned int& startPosition) {
  LogMessage(LOG_INFO, kTag) << "prepare"
                             << " behavior: REPLACE_ALL";
  if (existing && existing->trackId == trackId && existing->started) {
    LogMessage(LOG_INFO, kTag) << "prepare"
                               << " resume identified trackId: " << trackId
                               << " streamUrl: " << streamUrl;
    startPosition += low32(existing->startOffsetMs);
    existing = player.updateTrackForReuse(std::move(existing), token);
    return false;
  }
  player.clearEnqueuedFromList();
  return true;
}

// An ENQUEUE prepare adds an entry unless the track is enqueued already. Whether to add one.
bool enqueue(GaplessPlayer& player, std::string const& trackId, std::string const& streamUrl,
             AudioPlayer::Token const& token) {
  LogMessage(LOG_INFO, kTag) << "prepare"
                             << " behavior: ENQUEUE";
  if (player.isTrackAlreadyEnqueuedInList(trackId, streamUrl, token)) {
    LogMessage(LOG_INFO, kTag) << "prepare"
                               << " not adding trackId: " << trackId << ", streamUrl: " << streamUrl
                               << " as it is already present in list";
    return false;
  }
  return true;
}

// A stream's physical token is shared by all its logical tracks: that of the entry found for
// the stream, or a new one. The list entries and the base player keep clones of it.
std::unique_ptr<PhysicalToken> physicalTokenOf(GaplessLogicalTrack const* existing,
                                               std::string const& streamUrl) {
  if (existing != nullptr) {
    return std::unique_ptr<PhysicalToken>(
        static_cast<PhysicalToken*>(existing->physicalToken->clone()));
  }
  return std::make_unique<PhysicalToken>(streamUrl);
}

}  // namespace

GaplessPlayer::GaplessPlayer(EventListener* listener, PlaybackDelegate* hw,
                             CommonTimeDelegate* clock, TrackTokenDelegate* tokenDelegate,
                             TimestampMode mode, DecoderDelegateFactory* factory)
    : GaplessPlayer(listener, new AudioPlayerListener(listener, this), hw, clock, tokenDelegate,
                    mode, factory) {}

GaplessPlayer::GaplessPlayer(EventListener* listener, AudioPlayerListener* playerListener,
                             PlaybackDelegate* hw, CommonTimeDelegate* clock,
                             TrackTokenDelegate* tokenDelegate, TimestampMode mode,
                             DecoderDelegateFactory* factory)
    : AudioPlayer(playerListener, hw, clock, mode, factory),
      mHostListener(listener),
      mPlayerListener(playerListener),
      mTrackTokenDelegate(tokenDelegate) {}

GaplessPlayer::~GaplessPlayer() {
  // No event reaches the host once destruction has begun; the base player's threads, which
  // call the listener and read the list, end before either goes.
  mPlayerListener->mute();
  shutdown();
  delete mPlayerListener;  // and with it the host's listener
  mPlayerListener = nullptr;
  delete mTrackTokenDelegate;
  mTrackTokenDelegate = nullptr;
  std::lock_guard<std::mutex> lock(mListMutex);
  mPendingGaplessStates.clear();
  mLogicalTrackList.clear();
}

void GaplessPlayer::prepare(std::string trackId, PlayBehavior behavior, Resource const& resource,
                            unsigned int startPosition, int progressReportDelayMs,
                            int progressReportIntervalMs, Token const& token, int version) {
  std::unique_ptr<Token> logicalToken(token.clone());
  std::string const streamUrl = resource.uri;
  LogMessage(LOG_INFO, kTag) << "prepare, trackId: " << trackId << " upstream_token: " << token;

  std::unique_ptr<GaplessLogicalTrack> existing = getCurrentLogicalTrackFromStream(streamUrl);
  bool openStream = true;
  if (existing) {
    LogMessage(LOG_INFO, kTag) << "prepare"
                               << " stream already present in list, streamUrl: "
                               << LogMessage::ipAddressFilter(streamUrl);
    openStream = false;
  }

  bool addToList = true;
  switch (behavior) {
    case REPLACE_ALL:
      addToList = replaceAll(*this, trackId, streamUrl, token, existing, startPosition);
      openStream = true;
      break;
    case REPLACE_ENQUEUED:
      LogMessage(LOG_INFO, kTag) << "prepare"
                                 << " behavior: REPLACE_ENQUEUED";
      clearEnqueuedFromList();
      break;
    case ENQUEUE:
      addToList = enqueue(*this, trackId, streamUrl, token);
      break;
    default:
      LogMessage(LOG_INFO, kTag) << "prepare"
                                 << " unknown behavior: " << static_cast<unsigned>(behavior);
      break;
  }

  std::unique_ptr<PhysicalToken> const physicalToken = physicalTokenOf(existing.get(), streamUrl);
  if (addToList) {
    addTrackToLogicalTrackList(logicalToken.get(), trackId, streamUrl, physicalToken.get());
  }
  if (openStream) {
    AudioPlayer::prepare(behavior, resource, startPosition, progressReportDelayMs,
                         progressReportIntervalMs, *physicalToken, version);
  }
}

void GaplessPlayer::play(Token const& token, long long commonTime) {
  std::unique_ptr<GaplessLogicalTrack> track = getCurrentLogicalTrackFromLogicalToken(token);
  if (!track) {
    LogMessage(LOG_ERROR, kTag) << "play"
                                << " Can't start playback for the token: " << token
                                << " as no logical track found in logical track list!";
    return;
  }
  LogMessage(LOG_INFO, kTag) << "play"
                             << " token: " << *track->logicalToken
                             << " , physicalStreamToken: " << *track->physicalToken;
  AudioPlayer::play(*track->physicalToken, commonTime);
}

void GaplessPlayer::stop(bool isTransient) {
  LogMessage(LOG_INFO, kTag) << "stop"
                             << " isTransient: " << isTransient;
  AudioPlayer::stop(isTransient);
}

void GaplessPlayer::clearQueue(ClearBehavior behavior) {
  LogMessage(LOG_INFO, kTag) << "clearQueue"
                             << " behavior: " << static_cast<int>(behavior);
  clearEnqueuedFromList();
  AudioPlayer::clearQueue(behavior);
}

namespace {

// The first entry of `list` for which `matches` holds, copied; empty when none does.
template <typename Matches>
std::unique_ptr<GaplessLogicalTrack> firstCopy(std::list<GaplessLogicalTrack> const& list,
                                               Matches matches) {
  for (GaplessLogicalTrack const& entry : list) {
    if (matches(entry)) {
      return entry.clone();
    }
  }
  return nullptr;
}

// True when `token` names the stream of `entry`. A host may prepare streams through the
// inherited prepare, with tokens of its own: those name no logical track.
bool onStream(GaplessLogicalTrack const& entry, AudioPlayer::Token const& token) {
  return sameToken(*entry.physicalToken, token);
}

// Asks the host, if it gave a token delegate, to store `token` in an entry found again.
void updateToken(GaplessPlayer::TrackTokenDelegate* delegate, GaplessLogicalTrack& entry,
                 AudioPlayer::Token const& token) {
  if (delegate != nullptr) {
    delegate->updateTrackToken(entry.logicalToken.get(), token);
  }
}

}  // namespace

std::unique_ptr<GaplessLogicalTrack> GaplessPlayer::getCurrentLogicalTrackFromPhysicalToken(
    Token const& physicalToken) const {
  std::lock_guard<std::mutex> lock(mListMutex);
  return firstCopy(mLogicalTrackList, [&](GaplessLogicalTrack const& entry) {
    return onStream(entry, physicalToken);
  });
}

std::unique_ptr<GaplessLogicalTrack> GaplessPlayer::getCurrentLogicalTrackFromStream(
    std::string streamUrl) const {
  std::lock_guard<std::mutex> lock(mListMutex);
  return firstCopy(mLogicalTrackList,
                   [&](GaplessLogicalTrack const& entry) { return entry.streamUrl == streamUrl; });
}

std::unique_ptr<GaplessLogicalTrack> GaplessPlayer::getCurrentLogicalTrackFromLogicalToken(
    Token const& logicalToken) const {
  std::lock_guard<std::mutex> lock(mListMutex);
  return firstCopy(mLogicalTrackList, [&](GaplessLogicalTrack const& entry) {
    return sameToken(*entry.logicalToken, logicalToken);
  });
}

void GaplessPlayer::onPhysicalStreamReady(Token const& physicalToken) {
  std::lock_guard<std::mutex> lock(mListMutex);
  removeTracksBeforeStream(physicalToken);
  LogMessage(LOG_INFO, kTag) << "onPhysicalStreamReady"
                             << " physicalStreamToken: " << physicalToken;
}

void GaplessPlayer::onPhysicalStreamStarted(Token const& physicalToken, unsigned int position) {
  std::lock_guard<std::mutex> lock(mListMutex);
  removeTracksBeforeStream(physicalToken);
  if (mLogicalTrackList.empty()) {
    return;
  }
  GaplessLogicalTrack& head = mLogicalTrackList.front();
  // A head that already started (a resume) keeps its offset.
  if (onStream(head, physicalToken) && !head.started) {
    head.startOffsetMs = position;
    head.started = true;
    LogMessage(LOG_INFO, kTag) << "onPhysicalStreamStarted"
                               << " physicalStreamToken: " << physicalToken;
  }
}

void GaplessPlayer::onPhysicalStreamFinished(Token const& physicalToken) {
  std::lock_guard<std::mutex> lock(mListMutex);
  LogMessage(LOG_INFO, kTag) << "onPhysicalStreamFinished"
                             << " physicalStreamToken: " << physicalToken;
  removeStreamFromLogicalTrackList(physicalToken);
}

void GaplessPlayer::onPhysicalStreamFailed(Token const& physicalToken) {
  std::lock_guard<std::mutex> lock(mListMutex);
  LogMessage(LOG_INFO, kTag) << "onPhysicalStreamFailed"
                             << " failed physicalStreamToken: " << physicalToken;
  removeStreamFromLogicalTrackList(physicalToken);
}

void GaplessPlayer::onReportIntervalElapsed(unsigned int position) {
  std::lock_guard<std::mutex> lock(mListMutex);
  auto entry = mLogicalTrackList.begin();
  while (entry != mLogicalTrackList.end()) {
    if (!entry->started) {
      if (position <= low32(entry->startOffsetMs)) {
        return;
      }
      LogMessage(LOG_INFO, kTag) << " playback started for trackId:" << entry->trackId
                                 << " offsetMs: " << position;
      entry->started = true;
      mHostListener->playbackStarted(*entry->logicalToken, 0);
      mHostListener->playbackNearlyFinished(*entry->logicalToken, 0);
    }
    if (position <= low32(entry->endOffsetMs)) {
      return;
    }
    LogMessage(LOG_INFO, kTag) << " playback finished for trackId:" << entry->trackId
                               << " offsetMs: " << position;
    mHostListener->playbackFinished(*entry->logicalToken,
                                    low32(entry->endOffsetMs) - low32(entry->startOffsetMs));
    entry = mLogicalTrackList.erase(entry);
  }
}

void GaplessPlayer::onGaplessInfoEvent(GaplessState state) {
  std::ostringstream text;
  text << "stateType:" << state.stateType << ", streamUrl:" << state.streamUrl
       << ", trackId: " << state.trackId << ", offsetMs: " << state.offsetMs;
  LogMessage(LOG_INFO, kTag) << "onGaplessInfoEvent"
                             << " Gapless State Info : " << LogMessage::ipAddressFilter(text.str());

  if (state.stateType == GaplessState::TRACK_START) {
    std::lock_guard<std::mutex> lock(mListMutex);
    for (GaplessLogicalTrack& entry : mLogicalTrackList) {
      if (entry.trackId == state.trackId && !entry.started &&
          entry.startOffsetMs == GaplessLogicalTrack::kOffsetUnset) {
        entry.startOffsetMs = state.offsetMs;
        LogMessage(LOG_INFO, kTag) << "updating startOffsetMs for trackId: " << entry.trackId
                                   << " startOffsetMs: " << low32(state.offsetMs);
        return;
      }
    }
    LogMessage(LOG_WARNING, kTag) << "onGaplessInfoEvent"
                                  << " No logical track to apply this state change to";
    mPendingGaplessStates.push_back(state);
  } else if (state.stateType == GaplessState::TRACK_END) {
    // Unlike a start, an end for a track that is not in the list is not kept.
    std::lock_guard<std::mutex> lock(mListMutex);
    for (GaplessLogicalTrack& entry : mLogicalTrackList) {
      if (entry.trackId == state.trackId &&
          entry.endOffsetMs == GaplessLogicalTrack::kOffsetUnset) {
        entry.endOffsetMs = state.offsetMs;
        LogMessage(LOG_INFO, kTag) << "updating endOffsetMs for trackId: " << entry.trackId
                                   << " endOffsetMs: " << low32(state.offsetMs);
        return;
      }
    }
  }
}

void GaplessPlayer::clearEnqueuedFromList() {
  std::lock_guard<std::mutex> lock(mListMutex);
  if (mLogicalTrackList.size() >= 2) {
    mLogicalTrackList.erase(std::next(mLogicalTrackList.begin()), mLogicalTrackList.end());
  }
  mPendingGaplessStates.clear();
}

void GaplessPlayer::addTrackToLogicalTrackList(Token* logicalToken, std::string trackId,
                                               std::string streamUrl,
                                               PhysicalToken* physicalToken) {
  std::list<GaplessState> pending;
  {
    std::lock_guard<std::mutex> lock(mListMutex);
    pending.swap(mPendingGaplessStates);
    LogMessage(LOG_INFO, kTag) << "addTrackToLogicalTrackList"
                               << " Adding in list, trackId: " << trackId
                               << ", streamUrl: " << LogMessage::ipAddressFilter(streamUrl);
    mLogicalTrackList.emplace_back(std::unique_ptr<Token>(logicalToken->clone()),
                                   std::move(trackId), std::move(streamUrl),
                                   std::unique_ptr<Token>(physicalToken->clone()));
  }
  if (!pending.empty()) {
    LogMessage(LOG_INFO, kTag) << "addTrackToLogicalTrackList"
                               << " replay " << pending.size() << " GaplessState events";
    for (GaplessState const& state : pending) {
      onGaplessInfoEvent(state);
    }
  }
}

bool GaplessPlayer::isTrackAlreadyEnqueuedInList(std::string trackId, std::string streamUrl,
                                                 Token const& token) {
  std::lock_guard<std::mutex> lock(mListMutex);
  if (mLogicalTrackList.size() < 2) {
    return false;
  }
  // The head is the current track, not an enqueued one.
  for (auto entry = std::next(mLogicalTrackList.begin()); entry != mLogicalTrackList.end();
       ++entry) {
    if (entry->streamUrl == streamUrl && entry->trackId == trackId) {
      updateToken(mTrackTokenDelegate, *entry, token);
      return true;
    }
  }
  return false;
}

std::unique_ptr<GaplessLogicalTrack> GaplessPlayer::updateTrackForReuse(
    std::unique_ptr<GaplessLogicalTrack> track, Token const& token) {
  std::lock_guard<std::mutex> lock(mListMutex);
  for (GaplessLogicalTrack& entry : mLogicalTrackList) {
    if (entry.streamUrl == track->streamUrl && entry.trackId == track->trackId &&
        sameToken(*entry.logicalToken, *track->logicalToken) &&
        sameToken(*entry.physicalToken, *track->physicalToken)) {
      updateToken(mTrackTokenDelegate, entry, token);
      return entry.clone();
    }
  }
  return track;
}

void GaplessPlayer::removeStreamFromLogicalTrackList(Token const& physicalToken) {
  std::string streamUrl;
  auto entry = mLogicalTrackList.begin();
  while (entry != mLogicalTrackList.end()) {
    if (!onStream(*entry, physicalToken)) {
      ++entry;
    } else if (streamUrl.empty()) {
      streamUrl = entry->streamUrl;
      entry = mLogicalTrackList.erase(entry);
    } else if (streamUrl == entry->streamUrl) {
      entry = mLogicalTrackList.erase(entry);
    } else {
      return;
    }
  }
}

void GaplessPlayer::removeTracksBeforeStream(Token const& physicalToken) {
  if (mLogicalTrackList.empty() ||
      !sameClass(*mLogicalTrackList.front().physicalToken, physicalToken)) {
    return;  // a stream the host prepared through the inherited prepare
  }
  while (!mLogicalTrackList.empty() && !onStream(mLogicalTrackList.front(), physicalToken)) {
    mLogicalTrackList.pop_front();
  }
}

}  // namespace oru
