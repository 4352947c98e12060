#include "render/BufferQueue.h"

namespace oru {
namespace {

// Appends `buffer` to `list` in a node of `spare` when it has one.
void append(std::list<PcmBuffer*>& list, std::list<PcmBuffer*>& spare, PcmBuffer* buffer) {
  if (spare.empty()) {
    list.push_back(buffer);
    return;
  }
  spare.front() = buffer;
  list.splice(list.end(), spare, spare.begin());
}

// Removes the front entry of `list` and keeps its node in `spare`.
PcmBuffer* takeFront(std::list<PcmBuffer*>& list, std::list<PcmBuffer*>& spare) {
  PcmBuffer* const buffer = list.front();
  spare.splice(spare.begin(), list, list.begin());
  return buffer;
}

// How much audio `buffer` holds; nothing for a null mark.
int64_t durationOf(PcmBuffer const* buffer) { return buffer != nullptr ? buffer->duration : 0; }

}  // namespace

BufferQueue::BufferQueue(unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    mPool.push_back(new PcmBuffer);
  }
}

BufferQueue::~BufferQueue() {
  for (PcmBuffer* buffer : mFilled) {
    delete buffer;
  }
  for (PcmBuffer* buffer : mPool) {
    delete buffer;
  }
}

PcmBuffer* BufferQueue::obtainBuffer(unsigned int size) {
  PcmBuffer* buffer;
  {
    std::unique_lock<std::mutex> lock(mPoolMutex);
    if (mPool.empty()) {
      mPoolChanged.wait(lock, [this] { return mayRefill(); });
    }
    buffer = takeFront(mPool, mPoolSpare);
  }
  if (buffer != nullptr && buffer->capacity < size) {
    delete[] buffer->data;
    buffer->capacity = 0;
    buffer->data = new uint8_t[size];
    buffer->capacity = size;
  }
  return buffer;
}

void BufferQueue::pushBuffer(PcmBuffer* buffer) {
  {
    std::lock_guard<std::mutex> lock(mFilledMutex);
    append(mFilled, mFilledSpare, buffer);
    mFilledNs += durationOf(buffer);
  }
  mFilledChanged.notify_all();
}

void BufferQueue::releaseBuffer(PcmBuffer* buffer) {
  bool wake;
  {
    std::lock_guard<std::mutex> lock(mPoolMutex);
    append(mPool, mPoolSpare, buffer);
    mStopping = mStopping || buffer == nullptr;
    wake = mayRefill();
  }
  if (wake) {
    mPoolChanged.notify_all();
  }
}

PcmBuffer* BufferQueue::pop() {
  std::unique_lock<std::mutex> lock(mFilledMutex);
  mFilledChanged.wait(lock, [this] { return !mFilled.empty(); });
  PcmBuffer* const buffer = takeFront(mFilled, mFilledSpare);
  mFilledNs -= durationOf(buffer);
  return buffer;
}

void BufferQueue::setRefill(size_t burst, int64_t lowMarkNs) {
  std::lock_guard<std::mutex> lock(mPoolMutex);
  mBurst = burst;
  mLowMarkNs = lowMarkNs;
}

bool BufferQueue::mayRefill() const {
  return mStopping || mPool.size() >= mBurst || (!mPool.empty() && mFilledNs <= mLowMarkNs);
}

size_t BufferQueue::size() {
  std::lock_guard<std::mutex> lock(mFilledMutex);
  return mFilled.size();
}

}  // namespace oru
