// What a host needs to write its own decoder: the PCM buffers decoded audio travels in and the
// queue through which a decoder obtains and hands them on.
#pragma once

#include <oru/AudioPlayer.h>
#include <oru/Export.h>

#include <cstdint>

namespace oru {

// One block of interleaved PCM. Whoever fills a buffer sets every field but `capacity` and
// `data`, which belong to the queue that lent it out: `data` holds `capacity` bytes, owned by
// the buffer and freed with it.
struct PcmBuffer {
  PcmBuffer() = default;
  ~PcmBuffer() { delete[] data; }
  PcmBuffer(PcmBuffer const&) = delete;
  PcmBuffer& operator=(PcmBuffer const&) = delete;

  int64_t pts = 0;       // time of the first frame, ns on the track's timeline; -1: unknown
  int64_t duration = 0;  // frames x 1,000,000,000 / rate, integer division
  AudioFormat format = PCM_S16;
  int32_t channels = 0;
  uint64_t channelLayout = 0;  // channel mask as the decoder reported it
  int32_t rate = 0;            // Hz
  uint32_t capacity = 0;       // bytes allocated at data
  uint32_t size = 0;           // bytes of valid PCM at data
  uint8_t* data = nullptr;
};

// Bytes per sample of an AudioFormat: 2, 4 and 4; 0 for a value outside the three.
ORU_EXPORT int bytesPerSample(AudioFormat format);

// The queue a decoder fills. A fixed pool of buffers is lent out one at a time; the pool is
// the back-pressure between decoding and output.
class PcmBufferQueue {
 public:
  virtual ~PcmBufferQueue() = default;

  // An empty buffer with at least `size` bytes of storage. Blocks while every buffer is lent
  // out. Returns null when the queue is being shut down.
  virtual PcmBuffer* obtainBuffer(unsigned int size) = 0;

  // Hands a filled buffer to the consumer. A null pointer marks the end of the stream.
  virtual void pushBuffer(PcmBuffer* buffer) = 0;

  // Gives a buffer back to the pool unused.
  virtual void releaseBuffer(PcmBuffer* buffer) = 0;
};

}  // namespace oru
