#pragma once

#include "Fixtures.h"
#include "NamedToken.h"
#include "RecordingPlayerListener.h"
#include "ScriptedDevice.h"

#include <gmock/gmock.h>

namespace oru::test {

// A common clock at a fixed offset from the local one (local = common + offset), with no drift
// unless a test says otherwise.
class MockClock : public AudioPlayer::CommonTimeDelegate {
 public:
  explicit MockClock(int64_t offset = 0) {
    ON_CALL(*this, commonToLocal).WillByDefault([offset](long long common, long long* local) {
      *local = common + offset;
      return 0;
    });
  }
  MOCK_METHOD(int, commonToLocal, (long long commonTime, long long* localTime), (override));
  MOCK_METHOD(double, getDriftPpm, (), (override));
  MOCK_METHOD(double, getCorrectionPpm, (), (override));
};

// A real player, as a host drives it, on a scripted device that takes 48 kHz PCM, with a
// listener that records every event. The player goes first, so that nothing calls the rest.
struct PlayerHarness {
  explicit PlayerHarness(AudioPlayer::TimestampMode mode = AudioPlayer::TIMESTAMP_STREAM)
      : player(&listener, &device, &clock, mode, nullptr) {}
  ~PlayerHarness() { device.releaseWrites(); }  // a held write would keep the renderer running

  // Prepares a fixture file or an http:// URL, or any other resource, under the token.
  void prepare(std::string const& file, char const* token,
               AudioPlayer::PlayBehavior behavior = AudioPlayer::REPLACE_ALL,
               std::string const& mimeType = "", int delayMs = -1, int intervalMs = -1) {
    std::string const uri = file.rfind("http://", 0) == 0 ? file : fixture(file);
    prepare(AudioPlayer::Resource{uri, mimeType}, token, behavior, delayMs, intervalMs);
  }
  void prepare(AudioPlayer::Resource const& resource, char const* token,
               AudioPlayer::PlayBehavior behavior = AudioPlayer::REPLACE_ALL, int delayMs = -1,
               int intervalMs = -1) {
    player.prepare(behavior, resource, 0, delayMs, intervalMs, NamedToken(token), 1);
  }
  void play(char const* token, int64_t commonTime = 0) {
    player.play(NamedToken(token), commonTime);
  }

  RecordingPlayerListener listener;
  ScriptedDevice device;
  ::testing::NiceMock<MockClock> clock;
  AudioPlayer player;
};

}  // namespace oru::test
