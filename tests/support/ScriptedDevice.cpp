#include "ScriptedDevice.h"

#include "WaitFor.h"

#include <oru/Decoder.h>

#include <algorithm>

namespace oru::test {

void ScriptedDevice::setMaxFramesPerWrite(unsigned frames) {
  std::lock_guard<std::mutex> lock(mMutex);
  mMaxFramesPerWrite = frames;
}

void ScriptedDevice::setStartResult(int result) {
  std::lock_guard<std::mutex> lock(mMutex);
  mStartResult = result;
}

void ScriptedDevice::setWriteResult(int result) {
  std::lock_guard<std::mutex> lock(mMutex);
  mWriteResult = result;
}

void ScriptedDevice::setPlayedFrames(std::optional<int64_t> played) {
  std::lock_guard<std::mutex> lock(mMutex);
  mPlayedFrames = played;
}

void ScriptedDevice::holdWritesAfter(int count) {
  std::lock_guard<std::mutex> lock(mMutex);
  mWritesBeforeHold = count;
}

bool ScriptedDevice::waitUntilHolding() {
  std::unique_lock<std::mutex> lock(mMutex);
  return waitFor(lock, mChanged, [this] { return mHolding; });
}

void ScriptedDevice::releaseWrites() {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mWritesBeforeHold = -1;
    mHolding = false;
  }
  mChanged.notify_all();
}

std::vector<ScriptedDevice::Call> ScriptedDevice::calls() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mCalls;
}

bool ScriptedDevice::waitUntil(std::function<bool(std::vector<Call> const&)> const& predicate) {
  std::unique_lock<std::mutex> lock(mMutex);
  return waitFor(lock, mChanged, [&] { return predicate(mCalls); });
}

std::vector<ScriptedDevice::Kind> ScriptedDevice::kinds() const {
  std::lock_guard<std::mutex> lock(mMutex);
  std::vector<Kind> kinds;
  for (Call const& call : mCalls) {
    kinds.push_back(call.kind);
  }
  return kinds;
}

std::vector<uint8_t> ScriptedDevice::writtenBytes() const {
  std::lock_guard<std::mutex> lock(mMutex);
  std::vector<uint8_t> bytes;
  for (Call const& call : mCalls) {
    bytes.insert(bytes.end(), call.data.begin(), call.data.end());
  }
  return bytes;
}

int64_t ScriptedDevice::writtenFrames() const {
  std::lock_guard<std::mutex> lock(mMutex);
  int64_t frames = 0;
  for (Call const& call : mCalls) {
    frames += call.kind == kWrite ? call.accepted : 0;
  }
  return frames;
}

void ScriptedDevice::record(Call call) {
  mCalls.push_back(std::move(call));
  mChanged.notify_all();
}

int ScriptedDevice::start(AudioFormat format, int channels) {
  std::lock_guard<std::mutex> lock(mMutex);
  Call call{kStart};
  call.format = format;
  call.channels = channels;
  record(std::move(call));
  if (mStartResult == 0) {
    mAcceptedSinceStart = 0;
    mFrameBytes = bytesPerSample(format) * channels;
  }
  return mStartResult;
}

void ScriptedDevice::setStopHook(std::function<void(StopBehavior)> hook) {
  std::lock_guard<std::mutex> lock(mMutex);
  mStopHook = std::move(hook);
}

void ScriptedDevice::stop(StopBehavior behavior) {
  std::function<void(StopBehavior)> hook;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    Call call{kStop};
    call.behavior = behavior;
    record(std::move(call));
    hook = mStopHook;
  }
  if (hook) {
    hook(behavior);
  }
}

int ScriptedDevice::write(long long timestamp, void const* data, unsigned* frames) {
  std::unique_lock<std::mutex> lock(mMutex);
  if (data == nullptr && *frames == 0 && timestamp == 0) {
    record(Call{kUnderrun});
    return 0;
  }
  if (mWritesBeforeHold == 0) {
    mHolding = true;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mHolding; });
  } else if (mWritesBeforeHold > 0) {
    --mWritesBeforeHold;
  }
  Call call{kWrite};
  call.timestamp = timestamp;
  call.offered = *frames;
  if (mWriteResult == 0) {
    call.accepted = std::min(*frames, mMaxFramesPerWrite);
    auto const* bytes = static_cast<uint8_t const*>(data);
    call.data.assign(bytes, bytes + static_cast<size_t>(call.accepted) * mFrameBytes);
    mAcceptedSinceStart += call.accepted;
  }
  *frames = call.accepted;
  record(std::move(call));
  return mWriteResult;
}

long long ScriptedDevice::getPlayedFrames() {
  std::lock_guard<std::mutex> lock(mMutex);
  return mPlayedFrames.value_or(mAcceptedSinceStart);
}

PlaybackCapabilities ScriptedDevice::getPlaybackConfig() {
  static uint32_t const kRates[] = {48000};
  static AudioFormat const kFormats[] = {PCM_S16, PCM_S32, PCM_FLOAT};
  return {kRates, 1, 48000, PCM_S16, kFormats, 3, nullptr};
}

}  // namespace oru::test
