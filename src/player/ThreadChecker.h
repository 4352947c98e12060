#pragma once

#include <pthread.h>

#include <mutex>
#include <optional>

namespace oru {

// Remembers the first thread that asks and answers, from then on, whether the caller is that
// thread. The player's handlers use it to refuse being called off the command thread.
// Any thread.
class ThreadChecker {
 public:
  // True when the caller is the owning thread; the first caller becomes the owner.
  bool calledOnValidThread() const;

  // Throws std::runtime_error("called from wrong thread") unless calledOnValidThread().
  void checkCalledOnValidThread() const;

 private:
  mutable std::mutex mMutex;  // guards mOwner
  mutable std::optional<pthread_t> mOwner;
};

}  // namespace oru
