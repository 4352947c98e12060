#include <oru/host/SystemClock.h>

#include <time.h>

namespace oru::host {

int64_t SystemClock::localNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

int SystemClock::commonToLocal(long long commonTime, long long* localTime) {
  *localTime = commonTime - mOffset;
  return 0;
}

}  // namespace oru::host
