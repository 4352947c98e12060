#pragma once

#include <oru/Decoder.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>

namespace oru {

// A fixed pool of reusable PcmBuffers and a FIFO of filled ones, between one track's decoding
// thread (obtainBuffer, pushBuffer) and the render thread (size, pop, releaseBuffer).
//
// Owns every buffer it was made with; a buffer is in exactly one of the two lists or lent out
// to one user at a time. Null entries are marks, not buffers: a pushed null ends the stream, a
// released null wakes a producer blocked in obtainBuffer, which then returns null.
//
// A producer that finds the pool empty waits for a release. It is woken by every release
// until setRefill() asks for bursts: then it is woken only once a given number of buffers are
// free again, or once the filled queue has run low, and refills them in one go; so that a
// decoding thread running at the real rate wakes once per burst instead of once per buffer.
//
// The two lists have their own locks and no operation holds both. Each keeps the nodes of the
// entries taken from it for the next ones it is given, so that steady playback allocates
// nothing. Any thread.
class BufferQueue : public PcmBufferQueue {
 public:
  // Creates `count` buffers without storage, all in the pool.
  explicit BufferQueue(unsigned int count);
  // Frees the buffers in both lists; buffers lent out at that moment are not freed.
  ~BufferQueue() override;

  BufferQueue(BufferQueue const&) = delete;
  BufferQueue& operator=(BufferQueue const&) = delete;

  // Waits (without time-out) for a pool entry and takes the front one. Storage smaller than
  // `size` is replaced by exactly `size` bytes; larger storage is kept as it is.
  PcmBuffer* obtainBuffer(unsigned int size) override;
  void pushBuffer(PcmBuffer* buffer) override;
  void releaseBuffer(PcmBuffer* buffer) override;

  // Waits (without time-out) for a filled entry and removes the front one, which may be the
  // null end mark. Call it after size() has shown an entry.
  PcmBuffer* pop();
  // Entries in the filled queue, null marks included.
  size_t size();

  // From now on, a producer that finds the pool empty waits until `burst` buffers are free, or
  // until the filled queue holds no more than `lowMarkNs` of audio, whichever comes first.
  void setRefill(size_t burst, int64_t lowMarkNs);

 private:
  // Whether a producer waiting on an empty pool may take a buffer now. Under mPoolMutex.
  bool mayRefill() const;

  std::mutex mFilledMutex;  // guards mFilled and its spare nodes
  std::condition_variable mFilledChanged;
  std::list<PcmBuffer*> mFilled;
  std::list<PcmBuffer*> mFilledSpare;

  // The audio in the filled queue (the sum of its buffers' durations), for a release to tell
  // whether it has run low without taking the filled queue's lock.
  std::atomic<int64_t> mFilledNs{0};

  std::mutex mPoolMutex;                 // guards the five below
  std::condition_variable mPoolChanged;  // signalled when a waiting producer may go on
  std::list<PcmBuffer*> mPool;
  std::list<PcmBuffer*> mPoolSpare;
  size_t mBurst = 1;
  int64_t mLowMarkNs = 0;
  bool mStopping = false;  // a null mark has been released
};

}  // namespace oru
