#pragma once

#include <cstdarg>

namespace oru {

// Bridges FFmpeg's log into the engine's: each FFmpeg message becomes one line with the tag
// "Libav", at the engine level matching FFmpeg's, with IPv4 addresses masked.
class AVLogger {
 public:
  // Installs logCallback as FFmpeg's log callback; only the first call in the process does so.
  static void install();

  // FFmpeg's log callback. Any thread.
  static void logCallback(void* context, int level, char const* format, va_list arguments);
};

}  // namespace oru
