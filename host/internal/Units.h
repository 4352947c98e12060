#pragma once

#include <cstdint>

namespace oru::host {

// The units of time and rate that the reference host components, the tools and the benchmarks
// convert between: times in ns, as the engine and its clocks count them, and drifts in parts per
// million. Mixed with doubles they convert exactly (each is below 2^53).
inline constexpr int64_t kNsPerUs = 1000;
inline constexpr int64_t kUsPerMs = 1000;
inline constexpr int64_t kMsPerSecond = 1000;
inline constexpr int64_t kNsPerMs = kNsPerUs * kUsPerMs;
inline constexpr int64_t kUsPerSecond = kUsPerMs * kMsPerSecond;
inline constexpr int64_t kNsPerSecond = kNsPerMs * kMsPerSecond;
// A rate of 1 + x is x * kPartsPerMillion ppm off.
inline constexpr double kPartsPerMillion = 1e6;

}  // namespace oru::host
