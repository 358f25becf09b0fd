// The lock-free hand-off between the receiver thread and the real-time routine.
#include "transfer/SampleQueue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace quillon {
namespace {

TEST(SampleQueueTest, StorageIsReplacedOnlyWhileEmpty) {
  SampleQueue q;
  ASSERT_TRUE(q.Reserve(4));
  float one = 1;
  ASSERT_TRUE(q.Push(&one, 1));
  EXPECT_FALSE(q.Reserve(100));
  EXPECT_TRUE(q.Reserve(3)) << "already large enough";
  q.Clear();
  EXPECT_TRUE(q.Reserve(100));
  EXPECT_EQ(100u, q.Capacity());
}

// One producer and one consumer on two threads: every sample arrives once, in
// order, while the consumer drops nothing and never blocks.
TEST(SampleQueueTest, ConcurrentProducerAndConsumerKeepOrder) {
  constexpr size_t kTotal = 2'000'000;
  SampleQueue q;
  ASSERT_TRUE(q.Reserve(7680 - 1 + 65536));
  std::thread producer([&] {
    std::vector<float> block(65536);
    size_t sent = 0;
    size_t size = 1;
    while (sent < kTotal) {
      size = (size * 7 + 13) % 65536 + 1;
      size_t n = std::min(size, kTotal - sent);
      for (size_t i = 0; i < n; ++i) block[i] = static_cast<float>((sent + i) % 1000003);
      while (!q.Push(block.data(), n)) std::this_thread::yield();
      sent += n;
    }
  });
  std::vector<float> chunk(7680);
  size_t received = 0;
  bool inOrder = true;
  while (received < kTotal) {
    size_t n = q.Pop(chunk.data(), chunk.size());
    for (size_t i = 0; i < n && inOrder; ++i) inOrder = chunk[i] == static_cast<float>((received + i) % 1000003);
    received += n;
    if (n == 0) std::this_thread::yield();
  }
  producer.join();
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(kTotal, received);
  EXPECT_EQ(0u, q.Size());
}

}  // namespace
}  // namespace quillon
