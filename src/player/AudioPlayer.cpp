#include <oru/AudioPlayer.h>

#include <ostream>

namespace oru {

void AudioPlayer::setLogger(LoggingDelegate* logger) { LogMessage::setLogger(logger); }

std::ostream& operator<<(std::ostream& out, AudioPlayer::Token const& token) {
  return out << token.toString();
}

}  // namespace oru
