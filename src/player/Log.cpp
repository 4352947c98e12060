#include <oru/Log.h>

#include <regex.h>

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace oru {
namespace {

// The process-wide sink. Atomic so that a thread that logs never races the host's store.
std::atomic<LoggingDelegate*> gLogger{nullptr};

// Matches a dotted quad such as 192.168.1.1; a match may start inside a longer run of digits.
constexpr char kIpAddressPattern[] = "([[:digit:]]{1,3}\\.){3}[[:digit:]]{1,3}";
constexpr char kIpAddressMask[] = "xxx";

// Guards gIpAddressRegex for the whole of each ipAddressFilter call.
std::mutex gIpAddressMutex;
// Compiled on first use and kept for the life of the process; null until it compiles.
regex_t* gIpAddressRegex = nullptr;

}  // namespace

LogMessage::LogMessage(LogLevel level, char const* tag) : mLevel(level), mTag(tag) {}

LogMessage::~LogMessage() {
  if (LoggingDelegate* logger = gLogger.load(std::memory_order_acquire)) {
    logger->log(mLevel, mTag, mStream.str().c_str());
  }
  if (mLevel == LOG_FATAL) {
    std::abort();
  }
}

void LogMessage::setLogger(LoggingDelegate* logger) {
  gLogger.store(logger, std::memory_order_release);
}

std::string LogMessage::ipAddressFilter(std::string const& text) {
  std::lock_guard<std::mutex> lock(gIpAddressMutex);
  if (gIpAddressRegex == nullptr) {
    auto* regex = new regex_t;
    if (regcomp(regex, kIpAddressPattern, REG_EXTENDED) != 0) {
      regfree(regex);
      delete regex;
      return "failedToCompileRegex";
    }
    gIpAddressRegex = regex;
  }

  regmatch_t match;
  if (regexec(gIpAddressRegex, text.c_str(), 1, &match, 0) != 0) {
    return text;
  }
  std::string masked = text;
  masked.replace(static_cast<size_t>(match.rm_so), static_cast<size_t>(match.rm_eo - match.rm_so),
                 kIpAddressMask);
  return masked;
}

}  // namespace oru
