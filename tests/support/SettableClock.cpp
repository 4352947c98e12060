#include "SettableClock.h"

namespace oru::test {

void SettableClock::setOffset(int64_t localMinusCommon) {
  std::lock_guard<std::mutex> lock(mMutex);
  mOffset = localMinusCommon;
}

void SettableClock::setResult(int result) {
  std::lock_guard<std::mutex> lock(mMutex);
  mResult = result;
}

void SettableClock::setRates(double driftPpm, double correctionPpm) {
  std::lock_guard<std::mutex> lock(mMutex);
  mDriftPpm = driftPpm;
  mCorrectionPpm = correctionPpm;
}

int SettableClock::driftQueries() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mDriftQueries;
}

int SettableClock::commonToLocal(long long commonTime, long long* localTime) {
  std::lock_guard<std::mutex> lock(mMutex);
  *localTime = commonTime + mOffset;
  return mResult;
}

double SettableClock::getDriftPpm() {
  std::lock_guard<std::mutex> lock(mMutex);
  ++mDriftQueries;
  return mDriftPpm;
}

double SettableClock::getCorrectionPpm() {
  std::lock_guard<std::mutex> lock(mMutex);
  return mCorrectionPpm;
}

}  // namespace oru::test
