#include "decode/AVLogger.h"

#include "decode/FFmpeg.h"

#include <oru/Log.h>

#include <cstdio>
#include <mutex>
#include <string>

namespace oru {

void AVLogger::install() {
  static std::once_flag installed;
  std::call_once(installed, [] { av_log_set_callback(&AVLogger::logCallback); });
}

void AVLogger::logCallback(void* /*context*/, int level, char const* format, va_list arguments) {
  LogLevel engineLevel;
  switch (level) {
    case AV_LOG_QUIET:
    case AV_LOG_VERBOSE:
    case AV_LOG_TRACE:
      return;
    case AV_LOG_PANIC:
    case AV_LOG_FATAL:
      engineLevel = LOG_FATAL;
      break;
    case AV_LOG_ERROR:
      engineLevel = LOG_ERROR;
      break;
    case AV_LOG_WARNING:
      engineLevel = LOG_WARNING;
      break;
    case AV_LOG_DEBUG:
      engineLevel = LOG_DETAIL;
      break;
    default:
      engineLevel = LOG_INFO;
      break;
  }
  char text[1024];
  int const written = std::vsnprintf(text, sizeof text, format, arguments);
  if (written <= 0) {
    return;
  }
  std::string message(text);
  if (!message.empty() && message.back() == '\n') {
    message.pop_back();
  }
  LogMessage(engineLevel, "Libav") << LogMessage::ipAddressFilter(message);
}

}  // namespace oru
