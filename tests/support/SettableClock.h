#pragma once

#include <oru/AudioPlayer.h>

#include <cstdint>
#include <mutex>

namespace oru::test {

// A common clock at a fixed offset from the local clock, with settable rates and results.
// Any thread.
class SettableClock : public AudioPlayer::CommonTimeDelegate {
 public:
  void setOffset(int64_t localMinusCommon);
  void setResult(int result);
  void setRates(double driftPpm, double correctionPpm);
  int driftQueries() const;

  int commonToLocal(long long commonTime, long long* localTime) override;
  double getDriftPpm() override;
  double getCorrectionPpm() override;

 private:
  mutable std::mutex mMutex;  // guards everything below
  int64_t mOffset = 0;
  int mResult = 0;
  double mDriftPpm = 0.0;
  double mCorrectionPpm = 0.0;
  int mDriftQueries = 0;
};

}  // namespace oru::test
