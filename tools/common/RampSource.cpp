#include "RampSource.h"

#include "WavHeader.h"

#include <oru/AudioPlayer.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace oru::tools {
namespace {

constexpr int kSampleBytes = sizeof(float);
constexpr int kFrameBytes = RampSource::kChannels * kSampleBytes;

}  // namespace

RampSource::RampSource(int64_t frames) : mFrames(frames) {
  auto const dataBytes = static_cast<uint64_t>(std::min<int64_t>(frames * kFrameBytes, UINT32_MAX));
  auto const header =
      host::WavHeader::make(host::WavHeader::kFloat, kChannels, kRate, kSampleBytes, dataBytes);
  mHeader.assign(header.begin(), header.end());
}

bool RampSource::position(float const* frame, double* position) {
  double const high = frame[1];
  if (high != std::floor(high)) {
    return false;
  }
  *position = high * static_cast<double>(kLowWrap) + frame[0];
  return true;
}

int RampSource::read(void* source, uint8_t* buffer, int size) {
  return static_cast<RampSource*>(source)->fill(buffer, size);
}

void RampSource::cancel(void* source) {
  auto* ramp = static_cast<RampSource*>(source);
  std::lock_guard<std::mutex> lock(ramp->mMutex);
  ramp->mCancelled = true;
  ramp->mChanged.notify_all();
}

void RampSource::holdAt(int64_t frame) {
  std::lock_guard<std::mutex> lock(mMutex);
  mHoldAt = frame;
}

void RampSource::waitUntilHeld() {
  std::unique_lock<std::mutex> lock(mMutex);
  mChanged.wait(lock, [this] { return mHeld || mCancelled; });
}

void RampSource::release() {
  std::lock_guard<std::mutex> lock(mMutex);
  mHoldAt = -1;
  mChanged.notify_all();
}

bool RampSource::passHold(int64_t frame) {
  std::unique_lock<std::mutex> lock(mMutex);
  if (frame == mHoldAt) {
    mHeld = true;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return mHoldAt < 0 || mCancelled; });
  }
  return !mCancelled;
}

int RampSource::fill(uint8_t* buffer, int size) {
  auto const headerSize = static_cast<int64_t>(mHeader.size());
  if (mOffset < headerSize) {
    int const count = static_cast<int>(std::min<int64_t>(size, headerSize - mOffset));
    std::memcpy(buffer, mHeader.data() + mOffset, static_cast<size_t>(count));
    mOffset += count;
    return count;
  }
  int64_t const frame = (mOffset - headerSize) / kFrameBytes;
  if (!passHold(frame)) {
    return oru::AudioPlayer::Resource::kEndOfData;
  }
  int64_t count = std::min<int64_t>(size / kFrameBytes, mFrames - frame);
  {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mHoldAt > frame) {
      count = std::min(count, mHoldAt - frame);  // the next read stops at the hold
    }
  }
  if (count <= 0) {
    return oru::AudioPlayer::Resource::kEndOfData;
  }
  auto* samples = reinterpret_cast<float*>(buffer);
  for (int64_t i = 0; i < count; ++i) {
    samples[2 * i] = static_cast<float>((frame + i) % kLowWrap);
    samples[2 * i + 1] = static_cast<float>((frame + i) / kLowWrap);
  }
  mOffset += count * kFrameBytes;
  return static_cast<int>(count * kFrameBytes);
}

}  // namespace oru::tools
