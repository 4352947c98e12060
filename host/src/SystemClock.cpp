#include <oru/host/SystemClock.h>

#include "ClockReading.h"

namespace oru::host {

int64_t SystemClock::localNow() { return readClockNs(CLOCK_MONOTONIC); }

int SystemClock::commonToLocal(long long commonTime, long long* localTime) {
  *localTime = commonTime - mOffset;
  return 0;
}

}  // namespace oru::host
