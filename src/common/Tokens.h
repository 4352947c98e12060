#pragma once

#include <oru/AudioPlayer.h>

#include <typeinfo>

namespace oru {

// How the engine tells whether two tokens name the same track. A host that drives a gapless
// player through the inherited prepare mixes its own tokens with the player's, and a token
// class may assume that compare() is given one of its own (PhysicalToken throws std::bad_cast
// otherwise): tokens of different classes are never the same, and are never compared.
// Any thread.

inline bool sameClass(AudioPlayer::Token const& a, AudioPlayer::Token const& b) {
  return typeid(a) == typeid(b);
}

inline bool sameToken(AudioPlayer::Token const& a, AudioPlayer::Token const& b) {
  return sameClass(a, b) && a.compare(b) == 0;
}

}  // namespace oru
