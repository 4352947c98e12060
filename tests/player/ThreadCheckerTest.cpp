#include "player/ThreadChecker.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

namespace oru {
namespace {

TEST(ThreadCheckerTest, FirstThreadToAsk_OwnsTheCheckerForGood) {
  ThreadChecker checker;
  std::vector<bool> otherAnswers;
  // The first thread asks before and after another one, and stays alive throughout: thread
  // ids of finished threads may be reused.
  EXPECT_TRUE(checker.calledOnValidThread());
  std::thread other([&] {
    otherAnswers.push_back(checker.calledOnValidThread());
    otherAnswers.push_back(checker.calledOnValidThread());
  });
  other.join();
  EXPECT_TRUE(checker.calledOnValidThread());

  EXPECT_EQ(otherAnswers, (std::vector<bool>{false, false}));
}

TEST(ThreadCheckerTest, CheckOnAnotherThread_ThrowsTheWrongThreadError) {
  ThreadChecker checker;
  EXPECT_NO_THROW(checker.checkCalledOnValidThread());

  std::string message;
  std::thread([&] {
    try {
      checker.checkCalledOnValidThread();
    } catch (std::runtime_error const& error) {
      message = error.what();
    }
  }).join();
  EXPECT_EQ(message, "called from wrong thread");
  EXPECT_NO_THROW(checker.checkCalledOnValidThread());
}

}  // namespace
}  // namespace oru
