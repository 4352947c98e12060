#include "NamedToken.h"
#include "RecordingLogger.h"
#include "decode/AVLogger.h"
#include "decode/FFmpeg.h"

#include <gtest/gtest.h>

using namespace oru;
using Lines = std::vector<std::string>;

namespace {

TEST(LogMessageTest, Lines_ArriveWholeWithLevelAndTagOnlyWhileASinkIsSet) {
  test::RecordingLogger logger;
  LogMessage(LOG_INFO, "AudioPlayer") << "token: " << test::NamedToken("t7") << " time: " << -5LL;
  LogMessage::setLogger(nullptr);
  LogMessage(LOG_ERROR, "AudioRenderer") << "dropped";
  EXPECT_EQ(logger.entries(), Lines{"AudioPlayer 3 token: t7 time: -5"});
}

TEST(LogMessageTest, FFmpegLines_ArriveAtTheEngineLevelWithoutNewlineAndAddressesMasked) {
  AVLogger::install();
  test::RecordingLogger logger;
  av_log(nullptr, AV_LOG_INFO, "Opening 'http://10.1.2.3/live' for reading\n");
  av_log(nullptr, AV_LOG_WARNING, "late %d\n", 7);
  av_log(nullptr, AV_LOG_ERROR, "broken");
  av_log(nullptr, AV_LOG_DEBUG, "detail\n");
  av_log(nullptr, AV_LOG_VERBOSE, "dropped\n");
  av_log(nullptr, AV_LOG_TRACE, "dropped\n");
  av_log(nullptr, AV_LOG_INFO, "%s", "");
  EXPECT_EQ(logger.entries(), (Lines{"Libav 3 Opening 'http://xxx/live' for reading",
                                     "Libav 4 late 7", "Libav 5 broken", "Libav 2 detail"}));
}

struct StderrSink : LoggingDelegate {
  void log(LogLevel, char const* tag, char const* message) override {
    std::fprintf(stderr, "[%s] %s\n", tag, message);
  }
};

TEST(LogMessageDeathTest, FatalLines_AbortAfterReachingTheSinkIfAny) {
  StderrSink sink;
  LogMessage::setLogger(&sink);
  EXPECT_DEATH(LogMessage(LOG_FATAL, "AudioPlayer") << "no more", "\\[AudioPlayer\\] no more");
  AVLogger::install();
  EXPECT_DEATH(av_log(nullptr, AV_LOG_FATAL, "ffmpeg gives up\n"), "\\[Libav\\] ffmpeg gives up");
  LogMessage::setLogger(nullptr);
  EXPECT_DEATH(LogMessage(LOG_FATAL, "AudioPlayer") << "no sink", "");
}

TEST(IpAddressFilterTest, MasksTheFirstDottedQuadOfOneToThreeDigitGroupsOnly) {
  std::pair<char const*, char const*> const cases[] = {
      {"http://10.0.0.1:8080/a then 192.168.1.1", "http://xxx:8080/a then 192.168.1.1"},
      {"1234.5.6.7", "1xxx"},
      {"at 1.2.3.45678", "at xxx78"},
      {"1.2.3", "1.2.3"},
      {"v1.2.3.x", "v1.2.3.x"}};
  for (auto const& [text, masked] : cases) {
    EXPECT_EQ(LogMessage::ipAddressFilter(text), masked);
  }
}

}  // namespace
