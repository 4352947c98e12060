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
    ++mFilledCount;
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
  --mFilledCount;
  return takeFront(mFilled, mFilledSpare);
}

void BufferQueue::setRefill(size_t burst, size_t lowMark) {
  std::lock_guard<std::mutex> lock(mPoolMutex);
  mBurst = burst;
  mLowMark = lowMark;
}

bool BufferQueue::mayRefill() const {
  return mStopping || mPool.size() >= mBurst || (!mPool.empty() && mFilledCount <= mLowMark);
}

size_t BufferQueue::size() {
  std::lock_guard<std::mutex> lock(mFilledMutex);
  return mFilled.size();
}

}  // namespace oru
