#include <oru/AudioPlayer.h>
#include <oru/Log.h>

#include "NamedToken.h"
#include "RecordingLogger.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace oru {
namespace {

TEST(LogMessageTest, DeliversExactlyWhatWasStreamed_WithLevelAndTag) {
  test::RecordingLogger logger;
  test::NamedToken const token("track-7");
  LogMessage(LOG_INFO, "AudioPlayer") << "handlePlay token: " << token << " commonTime: " << -5LL;

  auto const lines = logger.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, LOG_INFO);
  EXPECT_EQ(lines[0].tag, "AudioPlayer");
  EXPECT_EQ(lines[0].message, "handlePlay token: track-7 commonTime: -5");
}

TEST(LogMessageTest, WithoutASink_LinesAreDropped) {
  test::RecordingLogger logger;
  LogMessage::setLogger(nullptr);
  LogMessage(LOG_ERROR, "AudioRenderer") << "dropped";
  AudioPlayer::setLogger(&logger);
  LogMessage(LOG_ERROR, "AudioRenderer") << "kept";

  auto const lines = logger.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].message, "kept");
}

TEST(LogMessageTest, LinesFromManyThreads_AllArriveWhole) {
  test::RecordingLogger logger;
  constexpr int kThreads = 4;
  constexpr int kLines = 251;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) {
        LogMessage(LOG_DETAIL, "LibavTrack") << "thread " << t << " line " << i;
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(logger.lines().size(), static_cast<size_t>(kThreads * kLines));
  EXPECT_TRUE(logger.contains(LOG_DETAIL, "LibavTrack", "thread 3 line 250"));
}

class StderrLogger : public LoggingDelegate {
 public:
  void log(LogLevel, char const* tag, char const* message) override {
    std::fprintf(stderr, "[%s] %s\n", tag, message);
  }
};

using LogMessageDeathTest = ::testing::Test;

TEST_F(LogMessageDeathTest, FatalLine_AbortsAfterReachingTheSink) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        StderrLogger logger;
        LogMessage::setLogger(&logger);
        LogMessage(LOG_FATAL, "AudioPlayer") << "cannot go on";
      },
      "\\[AudioPlayer\\] cannot go on");
}

TEST_F(LogMessageDeathTest, FatalLine_AbortsWithNoSinkInstalled) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        LogMessage::setLogger(nullptr);
        LogMessage(LOG_FATAL, "AudioPlayer") << "cannot go on";
      },
      "");
}

TEST(IpAddressFilterTest, MasksTheFirstAddressOnly) {
  EXPECT_EQ(LogMessage::ipAddressFilter("http://10.0.0.1:8080/a then 192.168.1.1"),
            "http://xxx:8080/a then 192.168.1.1");
}

TEST(IpAddressFilterTest, MatchMayStartInsideALongerDigitRun) {
  EXPECT_EQ(LogMessage::ipAddressFilter("1234.5.6.7"), "1xxx");
}

TEST(IpAddressFilterTest, TextWithoutADottedQuad_IsUnchanged) {
  for (std::string const text : {"", "http://example.com/stream.mp3", "1.2.3", "v1.2.3.x"}) {
    EXPECT_EQ(LogMessage::ipAddressFilter(text), text);
  }
}

TEST(IpAddressFilterTest, MatchesAnyDottedQuadOfOneToThreeDigitGroups) {
  EXPECT_EQ(LogMessage::ipAddressFilter("999.999.999.999"), "xxx");
  EXPECT_EQ(LogMessage::ipAddressFilter("at 1.2.3.45678"), "at xxx78");
}

TEST(IpAddressFilterTest, ConcurrentCallers_EachGetTheirOwnResult) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(8);
  for (size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([i, &results] {
      std::string const text = "host " + std::to_string(i) + ".0.0.1 port " + std::to_string(i);
      for (int repeat = 0; repeat < 200; ++repeat) {
        results[i] = LogMessage::ipAddressFilter(text);
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  for (size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i], "host xxx port " + std::to_string(i));
  }
}

}  // namespace
}  // namespace oru
