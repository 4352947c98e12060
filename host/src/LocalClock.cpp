#include <oru/host/LocalClock.h>
#include <oru/host/SystemClock.h>

#include <chrono>
#include <thread>

namespace oru::host {
namespace {

class MonotonicClock final : public LocalClock {
 public:
  int64_t now() const override { return SystemClock::localNow(); }
  // steady_clock is the monotonic clock, as SystemClock::localNow is.
  void sleepUntil(int64_t localNs) override {
    std::this_thread::sleep_until(
        std::chrono::steady_clock::time_point(std::chrono::nanoseconds(localNs)));
  }
};

}  // namespace

LocalClock& LocalClock::monotonic() {
  static MonotonicClock clock;
  return clock;
}

}  // namespace oru::host
