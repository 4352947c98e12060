#pragma once

#include <oru/AudioPlayer.h>

#include "Units.h"

#include <cstddef>
#include <cstdint>

namespace oru::host {

// What a reference output reports: one rate, which is also the default, and the formats it
// takes. The arrays stay owned by the caller.
inline PlaybackCapabilities oneRateCapabilities(uint32_t const& rate, AudioFormat preferred,
                                                AudioFormat const* formats, size_t count) {
  PlaybackCapabilities caps;
  caps.supportedRates = &rate;
  caps.supportedRateCount = 1;
  caps.defaultRate = static_cast<int>(rate);
  caps.preferredFormat = preferred;
  caps.supportedFormats = formats;
  caps.supportedFormatCount = count;
  return caps;
}

// Frames at `rate` from the local time `fromNs` to `untilNs`; 0 when it has passed.
inline int64_t framesUntil(int64_t fromNs, int64_t untilNs, uint32_t rate) {
  return untilNs > fromNs
             ? static_cast<int64_t>(static_cast<double>(untilNs - fromNs) * rate / kNsPerSecond)
             : 0;
}

// The three formats the engine exchanges with a device.
inline constexpr AudioFormat kAllFormats[] = {PCM_S16, PCM_S32, PCM_FLOAT};

}  // namespace oru::host
