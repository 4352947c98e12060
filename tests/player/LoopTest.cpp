// The command thread and its queue of closures.
#include "player/Loop.h"

#include "Recorder.h"

#include <gtest/gtest.h>
#include <boost/thread/exceptions.hpp>

#include <atomic>
#include <future>
#include <thread>

using namespace oru;
using Entries = std::vector<std::string>;

namespace {

TEST(LoopTest, ConcurrentPosts_RunOneAtATimeOnTheLoopThreadInTheOrderTheyWereQueued) {
  test::Recorder<std::string> journal;
  Loop loop;
  loop.run();
  std::mutex postOrderMutex;
  Entries postOrder;
  std::atomic<int> running{0};
  auto poster = [&](char const* name) {
    for (int i = 0; i < 997; ++i) {  // odd, so that the two threads interleave unevenly
      // Holding the mutex across post makes postOrder the order in which posts took the loop.
      std::lock_guard<std::mutex> lock(postOrderMutex);
      postOrder.push_back(name + std::to_string(i));
      loop.post([&, entry = postOrder.back()] {
        bool const alone = running.fetch_add(1) == 0;
        journal.add(std::to_string(pthread_self()) + (alone ? " " : " overlapping ") + entry);
        --running;
      });
    }
  };
  std::thread a(poster, "a");
  std::thread b(poster, "b");
  a.join();
  b.join();
  loop.stop();  // after everything queued before it has run

  Entries const entries = journal.entries();
  ASSERT_EQ(entries.size(), postOrder.size());
  std::string const loopThread = entries.front().substr(0, entries.front().find(' '));
  EXPECT_NE(loopThread, std::to_string(pthread_self()));
  for (size_t i = 0; i < entries.size(); ++i) {
    ASSERT_EQ(entries[i], loopThread + " " + postOrder[i]) << "entry " << i;
  }
}

TEST(LoopLifecycleTest, StopRunsWhatWasQueuedBeforeIt_AndDestroysLaterClosuresUnrun) {
  test::Recorder<std::string> journal;
  auto payload = std::make_shared<int>(0);
  {
    Loop loop;
    loop.run();
    std::promise<void> gate, done;
    loop.post([released = gate.get_future().share()] { released.wait(); });
    loop.post([&] {
      EXPECT_THROW(loop.stop(), boost::thread_resource_error);  // queues the stop, cannot join
      loop.post([&journal, payload] { journal.add("after the stop"); });
      done.set_value();
    });
    loop.post([&journal] { journal.add("before the stop"); });
    gate.set_value();
    done.get_future().wait();
    loop.stop();
    EXPECT_EQ(payload.use_count(), 2) << "the late closure is still queued";
  }
  EXPECT_EQ(journal.entries(), Entries{"before the stop"});
  EXPECT_EQ(payload.use_count(), 1) << "~Loop destroys the queued closure";
}

}  // namespace
