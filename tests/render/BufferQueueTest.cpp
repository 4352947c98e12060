#include "render/BufferQueue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <thread>

namespace oru {
namespace {

TEST(BufferQueueTest, ObtainOnAnEmptyPool_WaitsForTheBufferReleasedByAnotherThread) {
  BufferQueue queue(2);
  PcmBuffer* first = queue.obtainBuffer(16);
  PcmBuffer* second = queue.obtainBuffer(16);
  ASSERT_NE(first, second);

  auto third = std::async(std::launch::async, [&] { return queue.obtainBuffer(16); });
  queue.releaseBuffer(second);

  EXPECT_EQ(third.get(), second);
  queue.releaseBuffer(first);
  queue.releaseBuffer(second);
}

TEST(BufferQueueTest, Storage_IsKeptWhenLargeEnoughAndReplacedWithExactlyTheSizeOtherwise) {
  BufferQueue queue(1);
  PcmBuffer* buffer = queue.obtainBuffer(100);
  ASSERT_NE(buffer->data, nullptr);
  EXPECT_EQ(buffer->capacity, 100u);
  uint8_t* const storage = buffer->data;
  queue.releaseBuffer(buffer);

  buffer = queue.obtainBuffer(60);
  EXPECT_EQ(buffer->data, storage);
  EXPECT_EQ(buffer->capacity, 100u);
  queue.releaseBuffer(buffer);

  buffer = queue.obtainBuffer(100);
  EXPECT_EQ(buffer->data, storage);
  queue.releaseBuffer(buffer);

  buffer = queue.obtainBuffer(101);
  EXPECT_EQ(buffer->capacity, 101u);
  std::memset(buffer->data, 0xab, 101);  // the whole new storage is writable
  queue.releaseBuffer(buffer);
}

TEST(BufferQueueTest, FilledBuffers_ComeOutInPushOrderWithNullMarksCounted) {
  BufferQueue queue(3);
  PcmBuffer* a = queue.obtainBuffer(1);
  PcmBuffer* b = queue.obtainBuffer(1);
  queue.pushBuffer(a);
  queue.pushBuffer(nullptr);
  queue.pushBuffer(b);
  EXPECT_EQ(queue.size(), 3u);

  EXPECT_EQ(queue.pop(), a);
  EXPECT_EQ(queue.pop(), nullptr);
  EXPECT_EQ(queue.size(), 1u);
  EXPECT_EQ(queue.pop(), b);
  EXPECT_EQ(queue.size(), 0u);
  queue.releaseBuffer(a);
  queue.releaseBuffer(b);
}

TEST(BufferQueueTest, ReleasedNull_WakesAProducerBlockedOnAnEmptyPoolWithNull) {
  BufferQueue queue(0);
  auto obtained = std::async(std::launch::async, [&] { return queue.obtainBuffer(64); });
  queue.releaseBuffer(nullptr);
  EXPECT_EQ(obtained.get(), nullptr);
}

TEST(BufferQueueTest, Destruction_FreesQueuedBuffersAndLeavesLentOnesAlone) {
  // Leaks and double frees here are reported by the sanitizer builds.
  PcmBuffer* lent = nullptr;
  {
    BufferQueue queue(3);
    PcmBuffer* filled = queue.obtainBuffer(32);
    PcmBuffer* spare = queue.obtainBuffer(32);
    lent = queue.obtainBuffer(32);
    std::memset(lent->data, 0x5a, 32);
    queue.pushBuffer(filled);
    queue.pushBuffer(nullptr);
    queue.releaseBuffer(spare);
    queue.releaseBuffer(nullptr);
  }
  EXPECT_EQ(lent->data[31], 0x5a);
  delete lent;
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
  for (;;) {
    PcmBuffer* buffer = queue.pop();
    if (buffer == nullptr) {
      break;
    }
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
}  // namespace oru
