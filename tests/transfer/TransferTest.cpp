// The effect's side of the sound transfer: effects driven here as the audio
// engine drives them, and players that misbehave (blocks of any byte count, a
// transfer mutex held for seconds or abandoned) played by threads of this test
// through the named objects, as another process reaches them; and the lock-free
// hand-off between the receiver thread and the real-time routine. The
// well-behaved player, `quillon play` in a process of its own, is in tests/tools.
#include "diag/Logger.h"
#include "platform/NamedMutexLock.h"
#include "support/EffectHarness.h"
#include "support/RegistryValue.h"
#include "transfer/SampleQueue.h"

#include <thread>
#include <vector>

namespace quillon::test {
namespace {

constexpr UINT32 kChannels = 2;
constexpr UINT32 kFrames = 32;
constexpr size_t kPeriod = kChannels * kFrames;  // 64 samples; a chunk holds 512
const std::vector<float> kSilence(kPeriod, 0.0f);
const std::vector<float> kMic(kPeriod, 0.25f);  // a microphone that is not silent

std::wstring Endpoint(int n) { return L"{0.0.1.00000000}.{transfer-test-endpoint-" + std::to_wstring(n) + L"}"; }

float Sent(size_t k) { return static_cast<float>(k + 1) / 65536.0f; }

// Writes a block of `bytes` (any count, as a player that does not keep to
// whole samples writes it) under the transfer mutex and wakes the receiver.
void WriteRaw(int32_t slot, uint32_t bytes) {
  TransferView block(slot);
  ASSERT_TRUE(block.Open());
  NamedMutexLock lock(TransferMutexName(slot).c_str(), kSharedMutexWaitMs);
  for (size_t i = 0; i < TransferBlock::kMaxSamples; ++i) block->samples[i] = Sent(i);
  block->byteCount = bytes;
  block->dataReady = 1;
  const std::wstring wake = WinUtils::PerInstanceName(kChunkConsumedEventPrefix, slot);
  SetEvent(UniqueHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, wake.c_str())).Get());
}

class Transfer : public ::testing::Test {
 protected:
  void SetUp() override {
    level_.SetString(kLogLevels[LOG_TRACE].text);
    Logger::Instance().SetLevel(LOG_TRACE);
    DeleteLog();
  }
  void TearDown() override { Logger::Instance().SetLevel(LOG_ERROR); }

  static std::unique_ptr<EffectHarness> Start(int endpoint) {
    return EffectHarness::Started(Endpoint(endpoint).c_str(), kChannels, kFrames);
  }
  // A block of `bytes`, taken into the queue.
  static void SendRaw(EffectHarness& h, uint32_t bytes) {
    WriteRaw(h.Slot(), bytes);
    TransferView block(h.Slot());
    EXPECT_TRUE(PollUntil([&] { return block->dataReady == 0; }));
  }
  static bool Logged(const char* text) { return LogText().find(text) != std::string::npos; }

  ScopedRegistryValue level_{HKEY_LOCAL_MACHINE, kSettingsKey, kLogLevelValue};
};

TEST_F(Transfer, RegisterSlotsLowestFreeFirstAndLimitOfTwenty) {
  std::vector<std::unique_ptr<EffectHarness>> effects;
  for (int i = 0; i < 20; ++i) {
    effects.push_back(Start(i));
    ASSERT_EQ(i, effects.back()->Slot());
  }
  RegisterView reg;
  ASSERT_TRUE(reg.Open());
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(1u, reg->slotWordA[i]);
    EXPECT_EQ(8u, reg->slotWordB[i]);
  }

  // The twenty-first is refused, still locks and passes audio through.
  auto extra = Start(20);
  EXPECT_EQ(-1, extra->Slot());
  EXPECT_EQ(kMic, extra->Process(kMic));
  EXPECT_TRUE(Logged("Cannot register APO instance. The amount is limited to 20"));
  EXPECT_TRUE(Logged("Cannot register APO instance [Code=1:"));

  // Freed slots keep their text and words, and announce the close in their
  // mapping (held open here); the lowest free one is taken next.
  TransferView closed(2);
  ASSERT_TRUE(closed.Open());
  EXPECT_EQ(0u, closed->instanceClosed);
  ASSERT_EQ(S_OK, effects[5]->Unlock());
  ASSERT_EQ(S_OK, effects[2]->Unlock());
  EXPECT_EQ(1u, closed->instanceClosed);
  EXPECT_EQ(0, reg->inUse[2]);
  EXPECT_EQ(1u, reg->slotWordA[2]);
  EXPECT_EQ(8u, reg->slotWordB[2]);
  EXPECT_EQ(Endpoint(2), reg->endpointIds[2]);
  auto next = Start(21);
  EXPECT_EQ(2, next->Slot());
  EXPECT_EQ(Endpoint(21), reg->endpointIds[2]);
}

// Whole samples only, and never more than one block; received sound turns a
// silent period valid, and the silent input is never heard.
struct BlockCase {
  uint32_t bytes;
  size_t queued;
  const char* logged;
};

class BlockSizes : public Transfer, public ::testing::WithParamInterface<BlockCase> {};

TEST_P(BlockSizes, QueueAndLog) {
  auto h = Start(0);
  h->Process(kSilence);  // the first period sizes the chunk
  SendRaw(*h, GetParam().bytes);
  EXPECT_TRUE(PollUntil([&] { return Logged(GetParam().logged); })) << "logged after the block is marked taken";
  std::vector<float> heard = h->RunUntil([&](auto& heard) { return heard.size() >= GetParam().queued; },
                                         BUFFER_SILENT);
  for (int i = 0; i < 2 * 8; ++i) EXPECT_EQ(kSilence, h->Process(kSilence, BUFFER_SILENT)) << "then nothing more";
  ASSERT_EQ(GetParam().queued, heard.size());
  for (size_t k = 0; k < heard.size(); ++k) ASSERT_EQ(Sent(k), heard[k]);
}

const BlockCase kBlockCases[] = {{0, 0, ": Received 0 bytes #]"}, {6, 1, ": Received 6 bytes #]"},
                                 {300000, 65536, ": Received 262144 bytes #]"}};
INSTANTIATE_TEST_SUITE_P(Transfer, BlockSizes, ::testing::ValuesIn(kBlockCases));

// The request comes before the queued sound's first period: none of it is
// heard, and the stop event answers.
TEST_F(Transfer, StopRequestDropsTheQueueAndAnswers) {
  auto h = Start(0);
  h->Process(kSilence);
  SendRaw(*h, 3 * kPeriod * sizeof(float));
  UniqueHandle stopped(CreateEventW(nullptr, TRUE, FALSE, kStopEventName));
  ResetEvent(stopped.Get());
  TransferView block(h->Slot());
  block->stopRequest = 1;
  std::vector<float> heard =
      h->RunUntil([&](auto&) { return WaitForSingleObject(stopped.Get(), 0) == WAIT_OBJECT_0; });
  block->stopRequest = 0;
  for (int i = 0; i < 2 * 8; ++i) EXPECT_EQ(kSilence, h->Process(kSilence));
  EXPECT_TRUE(heard.empty());
}

// A player that died owning the transfer mutex left its block behind: the
// receiver takes the abandoned mutex as its own and the block.
TEST_F(Transfer, BlockOfAPlayerThatDiedHoldingTheMutexIsTaken) {
  auto h = Start(0);
  h->Process(kSilence);
  // A mutex lives while a handle is open: here, the receiver's, and this one.
  const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, TransferMutexName(h->Slot()).c_str()));
  std::thread([&] {
    WaitForSingleObject(mutex.Get(), kSharedMutexWaitMs);
    WriteRaw(h->Slot(), 300 * sizeof(float));
  }).join();  // and ends owning it, as a thread of a dying process does
  const std::vector<float> heard = h->RunUntil([](auto& heard) { return heard.size() >= 300; });
  ASSERT_EQ(300u, heard.size());
  for (size_t k = 0; k < heard.size(); ++k) ASSERT_EQ(Sent(k), heard[k]);
  EXPECT_EQ(S_OK, h->Unlock());
}

// Periods go on while the receiver waits for a mutex held for seconds, and
// gives up after a second; once the mutex is free, sound arrives again.
TEST_F(Transfer, PlayerHoldingTheMutexOnlyDelaysSound) {
  auto h = Start(0);
  h->Process(kSilence);
  SendRaw(*h, kPeriod * sizeof(float));
  UniqueHandle held(CreateEventW(nullptr, TRUE, FALSE, nullptr)), release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::thread holder([&, slot = h->Slot()] {
    NamedMutexLock lock(TransferMutexName(slot).c_str(), kSharedMutexWaitMs);
    SetEvent(held.Get());
    WaitForSingleObject(release.Get(), 30000);
  });
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(held.Get(), 30000));
  EXPECT_EQ(kPeriod, h->RunUntil([&](auto&) { return Logged("Failed to open transfer mutex [Code=0:"); }).size());
  SetEvent(release.Get());
  holder.join();
  SendRaw(*h, kPeriod * sizeof(float));
  EXPECT_EQ(kPeriod, h->RunUntil([](auto& heard) { return heard.size() >= kPeriod; }).size());
  EXPECT_EQ(S_OK, h->Unlock());
}

TEST_F(Transfer, MappingPrecreatedTooSmallLeavesTheInstanceUnregistered) {
  UniqueHandle small(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                        WinUtils::PerInstanceName(kTransferMappingPrefix, 0).c_str()));
  ASSERT_TRUE(small);
  auto h = Start(0);
  EXPECT_EQ(-1, h->Slot());
  EXPECT_EQ(kMic, h->Process(kMic));
  EXPECT_TRUE(Logged("Failed to map view of memory mapping file"));
  EXPECT_EQ(S_OK, h->Unlock());
}

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
    size_t sent = 0, size = 1;
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
}  // namespace quillon::test
