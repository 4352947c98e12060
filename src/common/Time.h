#pragma once

#include <cstdint>

namespace oru {

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kNsPerMs = 1000000;

// The duration of `frames` at `rate`, ns, rounded toward zero as frames x 1e9 / rate would be;
// 0 when there is no rate. Whole seconds and the remainder are converted apart, so the product
// never overflows: a stream may run for years.
constexpr int64_t framesToNs(int64_t frames, int rate) {
  return rate > 0 ? frames / rate * kNsPerSecond + frames % rate * kNsPerSecond / rate : 0;
}

}  // namespace oru
