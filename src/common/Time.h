#pragma once

#include <cstdint>

namespace oru {

constexpr int64_t kNsPerSecond = 1000000000;
constexpr int64_t kNsPerMs = 1000000;
constexpr int64_t kUsPerMs = 1000;
// A rate difference of 1 is this many parts per million.
constexpr double kPartsPerMillion = 1e6;

// The duration of `frames` at `rate`, ns, rounded toward zero as frames x 1e9 / rate would be;
// 0 when there is no rate. Whole seconds and the remainder are converted apart, so the product
// never overflows: a stream may run for years.
constexpr int64_t framesToNs(int64_t frames, int rate) {
  return rate > 0 ? frames / rate * kNsPerSecond + frames % rate * kNsPerSecond / rate : 0;
}

// Ten billion frames at 48 kHz (58 hours) come out exact: a direct product would overflow.
static_assert(framesToNs(10000000000, 48000) == 208333333333333);
static_assert(framesToNs(-441, 44100) == -10000000);

}  // namespace oru
