#include <oru/host/StderrLogger.h>

#include <cstdio>

namespace oru::host {

void StderrLogger::log(LogLevel level, char const* tag, char const* message) {
  if (level < mMinimum) {
    return;
  }
  static char const kLetters[] = "VDDIWEF";
  char const letter = level >= 0 && level <= LOG_FATAL ? kLetters[level] : '?';
  std::lock_guard<std::mutex> lock(mMutex);
  std::fprintf(stderr, "%c %s: %s\n", letter, tag, message);
}

}  // namespace oru::host
