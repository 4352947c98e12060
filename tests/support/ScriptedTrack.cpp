#include "ScriptedTrack.h"

#include "NamedToken.h"
#include "WaitFor.h"

#include <cstring>

namespace oru::test {
std::vector<uint8_t> Ramp::frames(int64_t firstFrame, unsigned count) const {
  std::vector<uint8_t> bytes(static_cast<size_t>(count) * frameBytes());
  size_t const samples = static_cast<size_t>(count) * channels;
  for (size_t s = 0; s < samples; ++s) {
    int64_t const value = firstFrame * channels + static_cast<int64_t>(s);
    uint8_t* at = bytes.data() + s * bytesPerSample(format);
    if (format == PCM_S16) {
      auto const sample = static_cast<int16_t>(value % 32768);
      std::memcpy(at, &sample, sizeof sample);
    } else if (format == PCM_S32) {
      auto const sample = static_cast<int32_t>(value);
      std::memcpy(at, &sample, sizeof sample);
    } else {
      auto const sample = static_cast<float>(value);
      std::memcpy(at, &sample, sizeof sample);
    }
  }
  return bytes;
}

int64_t Ramp::firstFrameOf(uint8_t const* bytes) const {
  int64_t value = 0;
  if (format == PCM_S16) {
    int16_t sample;
    std::memcpy(&sample, bytes, sizeof sample);
    value = sample;
  } else if (format == PCM_S32) {
    int32_t sample;
    std::memcpy(&sample, bytes, sizeof sample);
    value = sample;
  } else {
    float sample;
    std::memcpy(&sample, bytes, sizeof sample);
    value = static_cast<int64_t>(sample);
  }
  return value / channels;
}

ScriptedTrack::ScriptedTrack(int whenEmpty)
    : AudioTrack(std::make_unique<NamedToken>("scripted"), "scripted://"), mWhenEmpty(whenEmpty) {}

ScriptedTrack::~ScriptedTrack() = default;

void ScriptedTrack::answer(int code) {
  std::lock_guard<std::mutex> lock(mMutex);
  mScript.push_back({code, nullptr});
}

void ScriptedTrack::answerBuffer(int code, Ramp const& ramp, int64_t firstFrame, unsigned count,
                                 int64_t pts) {
  auto buffer = std::make_unique<PcmBuffer>();
  std::vector<uint8_t> const bytes = ramp.frames(firstFrame, count);
  buffer->data = new uint8_t[bytes.size() + 1];
  buffer->capacity = static_cast<uint32_t>(bytes.size() + 1);
  std::memcpy(buffer->data, bytes.data(), bytes.size());
  buffer->size = static_cast<uint32_t>(bytes.size());
  buffer->pts = pts;
  buffer->duration = static_cast<int64_t>(count) * 1000000000 / ramp.rate;
  buffer->format = ramp.format;
  buffer->channels = ramp.channels;
  buffer->rate = ramp.rate;
  std::lock_guard<std::mutex> lock(mMutex);
  mScript.push_back({code, std::move(buffer)});
}

void ScriptedTrack::setWhenEmpty(int code) {
  std::lock_guard<std::mutex> lock(mMutex);
  mWhenEmpty = code;
}

ScriptedTrack::Record ScriptedTrack::record() const {
  std::lock_guard<std::mutex> lock(mMutex);
  Record copy = mRecord;
  copy.scriptLeft = static_cast<int>(mScript.size());
  return copy;
}

bool ScriptedTrack::waitUntil(std::function<bool(Record const&)> const& predicate) {
  std::unique_lock<std::mutex> lock(mMutex);
  return waitFor(lock, mChanged, [&] {
    mRecord.scriptLeft = static_cast<int>(mScript.size());
    return predicate(mRecord);
  });
}

int ScriptedTrack::getNextBuffer(PcmBuffer** buffer) {
  int code;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    ++mRecord.nextBufferCalls;
    *buffer = nullptr;
    if (mScript.empty()) {
      code = mWhenEmpty;
    } else {
      Step& step = mScript.front();
      code = step.code;
      if (step.buffer) {
        *buffer = step.buffer.release();
        ++mRecord.buffersOut;
      }
      mScript.pop_front();
    }
  }
  mChanged.notify_all();
  return code;
}

void ScriptedTrack::releaseBuffer(PcmBuffer* buffer) {
  delete buffer;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    --mRecord.buffersOut;
  }
  mChanged.notify_all();
}

void ScriptedTrack::updatePosition(int64_t positionNs) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.positions.push_back(positionNs);
  }
  mChanged.notify_all();
}

void ScriptedTrack::onRenderError(int error) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mRecord.renderErrors.push_back(error);
  }
  mChanged.notify_all();
}

void ScriptedTrack::onRenderFinished() {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    ++mRecord.renderFinished;
  }
  mChanged.notify_all();
}

}  // namespace oru::test
