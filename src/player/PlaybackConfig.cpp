#include "player/PlaybackConfig.h"

namespace oru {
namespace {

constexpr char kTag[] = "AudioPlayer";

template <typename T>
std::vector<T> copyArray(T const* items, size_t count, char const* emptyMessage) {
  if (items == nullptr || count == 0) {
    LogMessage(LOG_ERROR, kTag) << emptyMessage;
    return {};
  }
  return std::vector<T>(items, items + count);
}

}  // namespace

PlaybackConfig readPlaybackConfig(PlaybackDelegate& hw) {
  PlaybackCapabilities const caps = hw.getPlaybackConfig();
  PlaybackConfig config;
  config.defaultRate = caps.defaultRate;
  config.supportedRates =
      copyArray(caps.supportedRates, caps.supportedRateCount, "supportedRates are empty");
  config.preferredFormat = caps.preferredFormat;
  config.supportedFormats =
      copyArray(caps.supportedFormats, caps.supportedFormatCount, "supportedFormats are empty");
  config.codecOpaque = caps.codecOpaque;
  return config;
}

}  // namespace oru
