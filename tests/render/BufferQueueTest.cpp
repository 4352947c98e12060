#include "render/BufferQueue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <thread>

using namespace oru;

namespace {

TEST(BufferQueueTest, EmptyPool_MakesObtainWaitForARelease_OrForNullWhenStopping) {
  BufferQueue queue(1);
  PcmBuffer* only = queue.obtainBuffer(16);
  auto next = std::async(std::launch::async, [&] { return queue.obtainBuffer(16); });
  queue.releaseBuffer(only);
  EXPECT_EQ(next.get(), only);

  auto stopped = std::async(std::launch::async, [&] { return queue.obtainBuffer(16); });
  queue.releaseBuffer(nullptr);
  EXPECT_EQ(stopped.get(), nullptr);
  queue.releaseBuffer(only);
}

TEST(BufferQueueTest, ProducerAndConsumerThreads_PassEveryBufferInOrderThroughASmallPool) {
  constexpr int kBuffers = 5003;
  BufferQueue queue(3);
  std::thread producer([&] {
    for (int i = 0; i < kBuffers; ++i) {
      PcmBuffer* buffer = queue.obtainBuffer(static_cast<unsigned>(1 + i % 257));
      buffer->pts = i;
      buffer->size = static_cast<uint32_t>(1 + i % 257);
      std::memset(buffer->data, i & 0xff, buffer->size);
      queue.pushBuffer(buffer);
    }
    queue.pushBuffer(nullptr);
  });
  int received = 0;
  bool inOrder = true;
  while (PcmBuffer* buffer = queue.pop()) {
    inOrder =
        inOrder && buffer->pts == received && buffer->data[buffer->size - 1] == (received & 0xff);
    ++received;
    queue.releaseBuffer(buffer);
  }
  producer.join();
  EXPECT_EQ(received, kBuffers);
  EXPECT_TRUE(inOrder);
}

}  // namespace
