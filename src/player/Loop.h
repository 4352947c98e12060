#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <pthread.h>

#include <atomic>
#include <functional>
#include <list>

namespace oru {

// The command thread of a player and its queue of closures. Closures run one at a time, in the
// order in which their post() took the mutex, always with the mutex released, so a closure
// may post further closures (they run after everything already waiting).
//
// Owned by the player's implementation, built and destroyed with it. post() and execOrPost()
// may be called from any thread; run() and stop() from the owner's thread. stop() must be
// called before destruction and never from the command thread itself (joining it from itself
// throws boost::thread_resource_error).
//
//   created --run()--> running --stop closure ran--> finished --joined by stop()--> destroyed
class Loop {
 public:
  Loop() = default;
  // Detaches the thread (it does not join) and destroys every closure still queued, unrun.
  ~Loop();

  Loop(Loop const&) = delete;
  Loop& operator=(Loop const&) = delete;

  // Starts the command thread.
  void run();

  // Appends a copy of `closure` to the queue.
  void post(std::function<void()> const& closure);

  // On the command thread, calls `closure` at once; on any other thread, posts it.
  void execOrPost(std::function<void()> const& closure);

  // Posts a closure that ends the thread once everything queued before it has run, then joins
  // the thread. Closures posted after it never run.
  void stop();

 private:
  void threadFunc();
  void stopInternal();
  bool isLoopThread();

  // Guards mQueue and mRunning.
  boost::mutex mMutex;
  boost::condition_variable mCondition;  // signalled whenever a closure is added
  std::list<std::function<void()>> mQueue;
  bool mRunning = false;

  boost::thread mThread;
  // The command thread's native id, stored by the thread itself before it runs any closure.
  // Kept apart from mThread because boost::thread is not safe to query while being joined.
  std::atomic<pthread_t> mLoopThreadId{};
};

}  // namespace oru
