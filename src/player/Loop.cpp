#include "player/Loop.h"

#include "common/ThreadName.h"

#include <pthread.h>

#include <utility>

namespace oru {

Loop::~Loop() { mThread.detach(); }

void Loop::run() {
  {
    boost::lock_guard<boost::mutex> lock(mMutex);
    mRunning = true;
  }
  mThread = boost::thread([this] { threadFunc(); });
}

void Loop::post(std::function<void()> const& closure) {
  {
    boost::lock_guard<boost::mutex> lock(mMutex);
    mQueue.push_back(closure);
  }
  mCondition.notify_all();
}

bool Loop::isLoopThread() {
  return pthread_equal(pthread_self(), mLoopThreadId.load(std::memory_order_acquire)) != 0;
}

void Loop::execOrPost(std::function<void()> const& closure) {
  if (isLoopThread()) {
    closure();
  } else {
    post(closure);
  }
}

void Loop::stop() {
  post([this] { stopInternal(); });
  mThread.join();
}

void Loop::stopInternal() {
  boost::lock_guard<boost::mutex> lock(mMutex);
  mRunning = false;
}

void Loop::threadFunc() {
  nameCurrentThread("oru-command");
  mLoopThreadId.store(pthread_self(), std::memory_order_release);
  for (;;) {
    std::function<void()> closure;
    {
      boost::unique_lock<boost::mutex> lock(mMutex);
      while (mQueue.empty()) {
        mCondition.wait(lock);
      }
      closure = std::move(mQueue.front());
      mQueue.pop_front();
    }
    closure();
    boost::lock_guard<boost::mutex> lock(mMutex);
    if (!mRunning) {
      return;
    }
  }
}

}  // namespace oru
