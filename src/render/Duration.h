#pragma once

#include <cstdint>

namespace oru {

constexpr int64_t kNsPerSecond = 1000000000;

// The duration of `frames` at `rate`, ns, by integer division; 0 when there is no rate.
constexpr int64_t framesToNs(int64_t frames, int rate) {
  return rate > 0 ? frames * kNsPerSecond / rate : 0;
}

}  // namespace oru
