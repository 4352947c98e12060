#pragma once

#include "BenchDevice.h"
#include "LoopCheck.h"
#include "Progress.h"

namespace bench::radio {

// The benchmarks' device, taking audio as fast as it comes, that also checks it and wakes the
// sampler. Render thread.
class CheckingDevice : public bench::BenchDevice {
 public:
  CheckingDevice(bench::Signal& ending, Progress& progress)
      : BenchDevice(0, ending), mProgress(progress) {}

  int write(long long timestamp, void const* data, unsigned* frames) override {
    if (data != nullptr) {
      check.add(static_cast<uint8_t const*>(data), *frames);
    }
    int const result = BenchDevice::write(timestamp, data, frames);
    mProgress.noteFrames(framesTaken());
    return result;
  }

  LoopCheck check;

 private:
  Progress& mProgress;
};

}  // namespace bench::radio
