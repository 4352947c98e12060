#include "decode/LibavAudioTrack.h"

#include "common/ThreadName.h"
#include "common/Time.h"

#include "decode/AVDecoderDelegate.h"
#include "decode/AVLogger.h"

#include <oru/Log.h>

namespace oru {
namespace {

constexpr char kTag[] = "LibavTrack";
constexpr unsigned kQueueBuffers = 20;
constexpr uint32_t kPrebufferBuffers = 10;
// Once playback has begun, the decoding thread sleeps until this many buffers of the pool are
// free and then refills them in one burst, rather than waking for each buffer played; it
// refills at once when no more than kLowMarkNs of audio are left to play. The mark is a time,
// not a count: frames can be short (Vorbis has runs of 128-sample blocks, 3 ms each), and a
// device must not run dry while the decoder sleeps.
constexpr size_t kRefillBurst = kQueueBuffers / 2;
constexpr int64_t kLowMarkNs = 100 * kNsPerMs;
// Several end markers, so that a consumer that pops past one still finds the end.
constexpr int kEndMarkers = 10;

}  // namespace

std::shared_ptr<AudioTrack> AudioTrack::create(std::unique_ptr<AudioPlayer::Token>& token,
                                               AudioPlayer::Resource const& resource,
                                               PlaybackConfig const& config, int version,
                                               Renderer* renderer, AudioPlayer::TimestampMode mode,
                                               EventListener* listener,
                                               DecoderDelegateFactory* decoderFactory) {
  AVLogger::install();
  auto wrapper = std::make_shared<AVWrapper>();
  auto track = std::make_shared<LibavAudioTrack>(token, resource, config, version, renderer, mode,
                                                 listener, decoderFactory, std::move(wrapper));
  track->startDecodingThread();
  return track;
}

void AudioTrack::getSupportedVersions(int* minVersion, int* maxVersion) {
  AVWrapper().getORUVersions(minVersion, maxVersion);
  if (*minVersion < 0 || *maxVersion < 0) {
    LogMessage(LOG_ERROR, kTag) << "FFmpeg is missing ORU patches";
  }
}

LibavAudioTrack::LibavAudioTrack(std::unique_ptr<AudioPlayer::Token>& token,
                                 AudioPlayer::Resource const& resource,
                                 PlaybackConfig const& config, int version, Renderer* renderer,
                                 AudioPlayer::TimestampMode mode, EventListener* listener,
                                 DecoderDelegateFactory* decoderFactory,
                                 std::shared_ptr<AVWrapper> wrapper)
    : AudioTrack(std::move(token), resource.uri),
      mResource(resource),
      mConfig(config),
      mVersion(version),
      mRenderer(renderer),
      mMode(mode),
      mListener(listener),
      mQueue(kQueueBuffers),
      mPrebufferCount(kPrebufferBuffers),
      mDecoderFactory(decoderFactory),
      mWrapper(std::move(wrapper)) {
  LogMessage(LOG_DETAIL, kTag) << this << ": Created";
}

LibavAudioTrack::~LibavAudioTrack() {
  LogMessage(LOG_DETAIL, kTag) << this << ": Stopping decoding thread";
  stopDecodingThread();
  LogMessage(LOG_DETAIL, kTag) << this << ": Stopped decoding thread";
  mDemuxer.reset();
  mDecoder.reset();
}

void LibavAudioTrack::startDecodingThread() {
  LogMessage(LOG_DETAIL, kTag) << this << ": Starting decoding thread";
  mDecodingThread = boost::thread([this] { decodingThread(); });
}

void LibavAudioTrack::stopDecodingThread() {
  mRunning = false;
  mQueue.releaseBuffer(nullptr);
  if (mResource.cancelCallback != nullptr && mResource.callbackOpaque != nullptr) {
    mResource.cancelCallback(mResource.callbackOpaque);
  }
  if (mDecodingThread.joinable()) {
    mDecodingThread.join();
  }
}

void LibavAudioTrack::decodingThread() {
  nameCurrentThread("oru-decode");
  mWrapper->registerAll();
  mDemuxer = AVDemuxer::create(&mResource, mRunning, mWrapper, mVersion);
  if (!mDemuxer) {
    decodingFailed(AudioPlayer::MEDIA_ERROR_FORMAT, Failure::kDemuxer, "Failed to create demuxer");
    return;
  }
  if (mDecoderFactory != nullptr) {
    mDecoder.reset(mDecoderFactory->createDecoder(mDemuxer->getCodecName().c_str(), mConfig));
    if (mDecoder) {
      LogMessage(LOG_INFO, kTag) << this << ": using custom decoder for "
                                 << mDemuxer->getCodecName();
    }
  }
  if (!mDecoder) {
    mDecoder = AVDecoderDelegate::create(mDemuxer->getStream(), mConfig, mWrapper, mVersion);
    if (!mDecoder) {
      decodingFailed(AudioPlayer::MEDIA_ERROR_FORMAT, Failure::kDecoder,
                     "Failed to create decoder");
      return;
    }
  }
  reportMetadata(mDemuxer->getMetadata());

  std::shared_ptr<EncodedPacket> packet;
  for (;;) {
    if (mDemuxer->getDemuxedChunk(packet) != 0) {
      if (mRunning) {
        LogMessage(LOG_DETAIL, kTag) << "decodingLastFrame";
        if (mDecoder->flushBuffers(mQueue) == DecodeStatus::Error) {
          LogMessage(LOG_ERROR, kTag) << " Failed to decode";
          onTrackError(AudioPlayer::MEDIA_ERROR_INTERNAL, Failure::kDecode);
        }
      }
      endTrack();
      return;
    }
    if (!mRunning) {
      LogMessage(LOG_DETAIL, kTag) << this << ": Not perform decoding";
      mDemuxer->releaseChunk(packet);
      return;
    }
    if (mDemuxer->updatedMetadata()) {
      reportMetadata(mDemuxer->getMetadata());
    }
    DecodeStatus const status = mDecoder->decode(packet.get(), mQueue);
    mDemuxer->releaseChunk(packet);
    if (status != DecodeStatus::Ok) {
      decodingFailed(AudioPlayer::MEDIA_ERROR_INTERNAL, Failure::kDecode, "Failed to decode");
      return;
    }
  }
}

void LibavAudioTrack::changeState(State newState) {
  State const oldState = mState.exchange(newState);
  if (oldState == newState) {
    return;
  }
  LogMessage(LOG_DETAIL, kTag) << this << ": new state: " << newState
                               << " position: " << mPositionMs.load();
  if (newState == Playing) {
    mRenderer->render(shared_from_this());
  }
  mListener->onTrackStateChange(this, oldState, newState, mPositionMs);
}

void LibavAudioTrack::onTrackError(AudioPlayer::MediaError error, std::string const& message) {
  changeState(Error);
  mListener->onTrackError(this, error, message);
}

void LibavAudioTrack::decodingFailed(AudioPlayer::MediaError error, char const* failure,
                                     char const* what) {
  // A stop interrupts the input and the decoder on purpose: what fails then is no fault of the
  // stream, and the thread ends quietly.
  if (mRunning) {
    LogMessage(LOG_ERROR, kTag) << this << ": " << what;
    onTrackError(error, failure);
  }
}

void LibavAudioTrack::endTrack() {
  for (int i = 0; i < kEndMarkers; ++i) {
    mQueue.pushBuffer(nullptr);
  }
}

void LibavAudioTrack::reportMetadata(std::map<std::string, std::string> const& metadata) {
  if (metadata == mLastMetadata) {
    return;
  }
  mLastMetadata = metadata;
  mListener->onMetadata(this, mLastMetadata);
}

unsigned LibavAudioTrack::getPositionMs() const { return mPositionMs; }

void LibavAudioTrack::setProgressReportDelay(int ms) {
  if (ms >= 0) {
    mProgressReportDelayMs = static_cast<uint32_t>(ms);
  }
}

void LibavAudioTrack::setProgressReportInterval(int ms) {
  if (ms > 0) {
    mProgressReportIntervalMs = static_cast<uint32_t>(ms);
    mNextProgressReportMs = static_cast<uint32_t>(ms);
  }
}

void LibavAudioTrack::seek(unsigned offsetMs) {
  LogMessage(LOG_INFO, kTag) << this << ": seek offsetMs = " << offsetMs;
  mOffsetMs = offsetMs;
}

void LibavAudioTrack::play(int64_t commonTime) {
  if (mMode == AudioPlayer::TIMESTAMP_STREAM) {
    LogMessage(LOG_INFO, kTag) << this << ": play";
  } else {
    LogMessage(LOG_INFO, kTag) << "play commonTime = " << commonTime;
    mStartTime = commonTime - static_cast<int64_t>(mOffsetMs) * kNsPerMs;
  }
  changeState(Playing);
}

void LibavAudioTrack::pause(bool isTransient) {
  LogMessage(LOG_INFO, kTag) << this << ": pause";
  changeState(isTransient ? PausedTransient : Paused);
}

void LibavAudioTrack::stop() {
  LogMessage(LOG_INFO, kTag) << this << ": stop";
  changeState(Stopped);
}

int LibavAudioTrack::getNextBuffer(PcmBuffer** buffer) {
  *buffer = nullptr;
  State const state = mState;
  if (state != Playing) {
    return state;
  }
  if (mEndOfStream) {
    return Finished;
  }
  size_t const queued = mQueue.size();
  if (queued < mPrebufferCount) {
    return Buffering;
  }
  if (queued == 0) {
    return Underrun;
  }
  if (mPrebufferCount != 0) {
    mPrebufferCount = 0;
    mQueue.setRefill(kRefillBurst, kLowMarkNs);
  }
  PcmBuffer* next = mQueue.pop();
  if (next == nullptr) {
    mEndOfStream = true;
    return Finished;
  }
  next->pts += mStartTime;
  *buffer = next;
  auto const format = static_cast<uint32_t>(next->format);
  if (format == mLastFormat && next->channels == mLastChannels && next->rate == mLastRate) {
    return Playing;
  }
  LogMessage(LOG_DETAIL, kTag) << this << ": Format change. format = " << format;
  mLastFormat = format;
  mLastChannels = next->channels;
  mLastRate = next->rate;
  return FormatChanged;
}

void LibavAudioTrack::releaseBuffer(PcmBuffer* buffer) {
  if (buffer != nullptr) {
    mQueue.releaseBuffer(buffer);
  }
}

void LibavAudioTrack::updatePosition(int64_t commonTime) {
  uint32_t const position = static_cast<uint32_t>((commonTime - mStartTime) / kNsPerMs);
  mPositionMs = position;
  if (mProgressReportDelayMs <= position) {
    mProgressReportDelayMs = kOff;
    mListener->onProgressReportDelay(this, position);
  }
  if (position >= mNextProgressReportMs) {
    mNextProgressReportMs += mProgressReportIntervalMs;
    mListener->onProgressReportInterval(this, position);
  }
}

void LibavAudioTrack::onRenderError(int /*error*/) {
  onTrackError(AudioPlayer::MEDIA_ERROR_INTERNAL, Failure::kRender);
}

void LibavAudioTrack::onRenderFinished() { changeState(Finished); }

}  // namespace oru
