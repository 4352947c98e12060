#pragma once

#include <oru/AudioPlayer.h>

namespace oru {

// Asks the device for its capabilities once and returns the player's own deep copy. An empty
// rate or format list is logged ("supportedRates are empty", "supportedFormats are empty") but
// accepted: each prepare checks the configuration and rejects its track instead.
// Called on the host's thread that constructs the player.
PlaybackConfig readPlaybackConfig(PlaybackDelegate& hw);

}  // namespace oru
