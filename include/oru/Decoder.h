// What a host needs to write its own decoder: the compressed packets it is given, the PCM
// buffers decoded audio travels in, the queue through which it obtains and hands them on, and
// the decoder interface itself. A host offers its decoders through DecoderDelegateFactory.
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

// A compressed packet as the demuxer hands it out. The payload belongs to the packet's owner
// and is valid only during DecoderDelegate::decode.
class EncodedPacket {
 public:
  virtual ~EncodedPacket() = default;

  int64_t timestampNs = -1;  // presentation time, ns; -1 when the container gave none
  uint8_t const* data = nullptr;
  int32_t size = 0;  // bytes at data
};

// What a decoder tells the track's decoding thread after each call.
enum class DecodeStatus : int {
  Stopped = 0,  // no buffer could be obtained (the track is stopping) or the decoder quit
  Ok = 1,       // go on with the next packet
  Error = 3,    // decoding failed: the track ends with an error
};

// Turns one track's packets into PCM. Created for a stream by DecoderDelegateFactory (or by
// the engine, which decodes with FFmpeg) and called only on that track's decoding thread.
// Buffers come from the queue's obtainBuffer and go to its pushBuffer; obtainBuffer returning
// null means the track is stopping and the decoder should return Stopped.
class DecoderDelegate {
 public:
  virtual ~DecoderDelegate() = default;

  // End of the stream: pushes what the decoder still holds and resets it.
  virtual DecodeStatus flushBuffers(PcmBufferQueue& queue) = 0;

  // Decodes one packet and pushes every buffer it yields. A null packet drains the decoder.
  virtual DecodeStatus decode(EncodedPacket* packet, PcmBufferQueue& queue) = 0;
};

}  // namespace oru
