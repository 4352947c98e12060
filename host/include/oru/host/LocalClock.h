#pragma once

#include <cstdint>

namespace oru::host {

// The local clock, in ns, by which an output presents frames at their time stamps and paces
// itself, with the waits it makes on it. The reference outputs take the monotonic clock (the
// one SystemClock::localNow reads) unless given another, such as a test's own that it sets by
// hand. Called on the render thread.
class LocalClock {
 public:
  virtual ~LocalClock() = default;

  virtual int64_t now() const = 0;
  // Returns at the local time `localNs`, at once when it has passed.
  virtual void sleepUntil(int64_t localNs) = 0;

  // The monotonic clock and real sleeps on it. Any thread; lives as long as the program.
  static LocalClock& monotonic();
};

}  // namespace oru::host
