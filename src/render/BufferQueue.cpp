#include "render/BufferQueue.h"

namespace oru {

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
    mPoolChanged.wait(lock, [this] { return !mPool.empty(); });
    buffer = mPool.front();
    mPool.pop_front();
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
    mFilled.push_back(buffer);
  }
  mFilledChanged.notify_all();
}

void BufferQueue::releaseBuffer(PcmBuffer* buffer) {
  {
    std::lock_guard<std::mutex> lock(mPoolMutex);
    mPool.push_back(buffer);
  }
  mPoolChanged.notify_all();
}

PcmBuffer* BufferQueue::pop() {
  std::unique_lock<std::mutex> lock(mFilledMutex);
  mFilledChanged.wait(lock, [this] { return !mFilled.empty(); });
  PcmBuffer* buffer = mFilled.front();
  mFilled.pop_front();
  return buffer;
}

size_t BufferQueue::size() {
  std::lock_guard<std::mutex> lock(mFilledMutex);
  return mFilled.size();
}

}  // namespace oru
