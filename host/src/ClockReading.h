#pragma once

#include "Units.h"

#include <time.h>

#include <cstdint>

namespace oru::host {

// The time of a system clock (CLOCK_MONOTONIC, CLOCK_REALTIME, CLOCK_TAI) in ns.
inline int64_t readClockNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * kNsPerSecond + now.tv_nsec;
}

}  // namespace oru::host
