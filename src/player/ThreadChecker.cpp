#include "player/ThreadChecker.h"

#include <stdexcept>

namespace oru {

bool ThreadChecker::calledOnValidThread() const {
  std::lock_guard<std::mutex> lock(mMutex);
  pthread_t const self = pthread_self();
  if (!mOwner) {
    mOwner = self;
    return true;
  }
  return pthread_equal(*mOwner, self) != 0;
}

void ThreadChecker::checkCalledOnValidThread() const {
  if (!calledOnValidThread()) {
    throw std::runtime_error("called from wrong thread");
  }
}

}  // namespace oru
