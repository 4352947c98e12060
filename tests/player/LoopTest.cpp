#include "player/Loop.h"

#include "WaitFor.h"

#include <gtest/gtest.h>
#include <boost/thread/exceptions.hpp>

#include <pthread.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace oru {
namespace {

// Records, in order, what closures did and on which thread, and lets a test wait for a count.
class Journal {
 public:
  void add(std::string entry) {
    {
      std::lock_guard<std::mutex> lock(mMutex);
      mEntries.push_back(std::move(entry));
      mThreads.push_back(pthread_self());
    }
    mChanged.notify_all();
  }

  std::vector<std::string> waitForEntries(size_t count) {
    std::unique_lock<std::mutex> lock(mMutex);
    EXPECT_TRUE(test::waitFor(lock, mChanged, [&] { return mEntries.size() >= count; }))
        << "expected " << count << " entries, got " << mEntries.size();
    return mEntries;
  }

  std::vector<pthread_t> threads() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mThreads;
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<std::string> mEntries;
  std::vector<pthread_t> mThreads;
};

class LoopTest : public ::testing::Test {
 protected:
  LoopTest() { mLoop.run(); }
  ~LoopTest() override {
    if (!mStopped) {
      mLoop.stop();
    }
  }

  // Posts a closure that holds the loop until release() so that later posts queue up behind
  // it.
  void holdLoop() {
    auto released = mGate.get_future().share();
    mLoop.post([released] { released.wait(); });
  }
  void release() { mGate.set_value(); }

  Loop mLoop;
  Journal mJournal;
  bool mStopped = false;

 private:
  std::promise<void> mGate;
};

TEST_F(LoopTest, ConcurrentPosts_RunOneAtATimeInTheOrderTheyWereQueued) {
  constexpr int kPerThread = 997;  // odd, so that the two threads interleave unevenly
  std::mutex postOrderMutex;
  std::vector<std::string> postOrder;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};

  auto poster = [&](char const* name) {
    for (int i = 0; i < kPerThread; ++i) {
      std::string const entry = std::string(name) + std::to_string(i);
      // Holding postOrderMutex across post makes the recorded order the order in which the
      // posts took the loop's mutex.
      std::lock_guard<std::mutex> lock(postOrderMutex);
      postOrder.push_back(entry);
      mLoop.post([this, entry, &running, &overlapped] {
        if (running.fetch_add(1) != 0) {
          overlapped = true;
        }
        mJournal.add(entry);
        running.fetch_sub(1);
      });
    }
  };
  std::thread a(poster, "a");
  std::thread b(poster, "b");
  a.join();
  b.join();

  EXPECT_EQ(mJournal.waitForEntries(2 * kPerThread), postOrder);
  EXPECT_FALSE(overlapped);
  pthread_t const loopThread = mJournal.threads().front();
  EXPECT_FALSE(pthread_equal(loopThread, pthread_self()));
  for (pthread_t thread : mJournal.threads()) {
    EXPECT_TRUE(pthread_equal(thread, loopThread));
  }
}

TEST_F(LoopTest, ClosurePostedByAClosure_RunsAfterThoseAlreadyWaiting) {
  holdLoop();
  mLoop.post([this] {
    mJournal.add("first");
    mLoop.post([this] { mJournal.add("posted by first"); });
  });
  mLoop.post([this] { mJournal.add("second"); });
  release();

  EXPECT_EQ(mJournal.waitForEntries(3),
            (std::vector<std::string>{"first", "second", "posted by first"}));
}

TEST_F(LoopTest, ExecOrPostOnTheLoopThread_RunsAtOnce) {
  mLoop.post([this] {
    mLoop.execOrPost([this] { mJournal.add("inner"); });
    std::function<void()> movable = [this] { mJournal.add("inner, by reference"); };
    mLoop.execOrPost(movable);
    mJournal.add("outer returns");
  });

  EXPECT_EQ(mJournal.waitForEntries(3),
            (std::vector<std::string>{"inner", "inner, by reference", "outer returns"}));
}

TEST_F(LoopTest, ExecOrPostFromAnotherThread_PostsBehindWaitingClosures) {
  holdLoop();
  mLoop.post([this] { mJournal.add("queued"); });
  mLoop.execOrPost([this] { mJournal.add("exec or post"); });
  EXPECT_TRUE(mJournal.threads().empty()) << "execOrPost ran on the calling thread";
  release();

  EXPECT_EQ(mJournal.waitForEntries(2), (std::vector<std::string>{"queued", "exec or post"}));
}

TEST_F(LoopTest, PostByReference_MovesTheClosureOut) {
  auto payload = std::make_shared<int>(7);
  std::function<void()> closure = [this, payload] { mJournal.add(std::to_string(*payload)); };
  mLoop.post(closure);

  EXPECT_FALSE(closure);
  EXPECT_EQ(mJournal.waitForEntries(1), std::vector<std::string>{"7"});
}

TEST_F(LoopTest, Stop_RunsEverythingQueuedBeforeIt) {
  holdLoop();
  for (int i = 0; i < 5; ++i) {
    mLoop.post([this, i] { mJournal.add(std::to_string(i)); });
  }
  std::thread stopper([this] { mLoop.stop(); });
  release();
  stopper.join();
  mStopped = true;

  EXPECT_EQ(mJournal.waitForEntries(5), (std::vector<std::string>{"0", "1", "2", "3", "4"}));
}

TEST(LoopLifecycleTest, ClosuresQueuedBehindTheStop_AreDestroyedUnrun) {
  auto payload = std::make_shared<int>(0);
  std::atomic<bool> ranAfterStop{false};
  std::string joinError;
  {
    Loop loop;
    loop.run();
    std::promise<void> done;
    loop.post([&] {
      // Stopping from the loop thread queues the stop closure, then fails to join itself.
      try {
        loop.stop();
      } catch (boost::thread_resource_error const& error) {
        joinError = error.what();
        EXPECT_EQ(error.code().value(), 35);
      }
      loop.post([&ranAfterStop, payload] { ranAfterStop = true; });
      done.set_value();
    });
    done.get_future().wait();
    loop.stop();
    EXPECT_EQ(payload.use_count(), 2) << "the late closure should still be queued";
  }

  EXPECT_EQ(joinError.rfind("boost thread: trying joining itself", 0), 0u) << joinError;
  EXPECT_FALSE(ranAfterStop);
  EXPECT_EQ(payload.use_count(), 1) << "~Loop should destroy the queued closure";
}

}  // namespace
}  // namespace oru
