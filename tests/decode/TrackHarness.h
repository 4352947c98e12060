#pragma once

#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingTrackListener.h"
#include "ScriptedDevice.h"
#include "SettableClock.h"
#include "decode/AudioTrack.h"
#include "render/AudioRenderer.h"

#include <memory>
#include <string>

namespace oru::test {

// A device that takes 48 kHz 16-bit PCM only, so every stream is converted to it.
inline PlaybackConfig deviceConfig48k() {
  PlaybackConfig config;
  config.supportedRates = {48000};
  config.defaultRate = 48000;
  config.preferredFormat = PCM_S16;
  config.supportedFormats = {PCM_S16};
  return config;
}

// A real track playing through a real renderer into a scripted device. The members are
// destroyed in the order that a player keeps: the track first, then the renderer (which may
// hold the last reference), then what they borrow.
class TrackHarness {
 public:
  explicit TrackHarness(AudioPlayer::TimestampMode mode = AudioPlayer::TIMESTAMP_STREAM,
                        PlaybackConfig playbackConfig = deviceConfig48k())
      : config(std::move(playbackConfig)), renderer(&device, &clock, mode) {}

  std::shared_ptr<AudioTrack> create(AudioPlayer::Resource const& resource,
                                     DecoderDelegateFactory* factory = nullptr, int version = 1) {
    std::unique_ptr<AudioPlayer::Token> token = std::make_unique<NamedToken>("track");
    track = AudioTrack::create(token, resource, config, version, &renderer, &listener, factory);
    return track;
  }

  std::shared_ptr<AudioTrack> createFromFile(std::string const& name,
                                             std::string const& mimeType = "") {
    AudioPlayer::Resource resource;
    resource.uri = fixture(name);
    resource.mimeType = mimeType;
    return create(resource);
  }

  ScriptedDevice device;
  SettableClock clock;
  PlaybackConfig const config;
  RecordingTrackListener listener;
  AudioRenderer renderer;
  std::shared_ptr<AudioTrack> track;
};

}  // namespace oru::test
