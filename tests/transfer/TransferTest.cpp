// Sound transfer across processes: effects driven here as the audio engine
// drives them, the player's part played by quillon_test_player.exe.
#include "diag/Logger.h"
#include "support/ChildProcess.h"
#include "support/EffectHarness.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"
#include "support/Within.h"
#include "transfer/SharedLayout.h"


namespace quillon::test {
namespace {

constexpr UINT32 kChannels = 2;
constexpr UINT32 kFrames = 32;
constexpr size_t kPeriod = kChannels * kFrames;  // 64 samples; a chunk holds 512
constexpr int kMaxPeriods = 20000;               // bound of every polling loop (with 1 ms pauses)

std::wstring Endpoint(int n) { return L"{0.0.1.00000000}.{transfer-test-endpoint-" + std::to_wstring(n) + L"}"; }

float Sent(size_t k) { return static_cast<float>(k + 1) / 65536.0f; }

class Transfer : public ::testing::Test {
 protected:
  void SetUp() override {
    level_.SetString(L"trace");
    Logger::Instance().SetLevel(LOG_TRACE);
    DeleteLog();
  }
  void TearDown() override { Logger::Instance().SetLevel(LOG_ERROR); }

  // An initialised effect locked to float32 stereo, 32 frames a period.
  std::unique_ptr<EffectHarness> Start(int endpoint) {
    endpoints_.push_back(Endpoint(endpoint));
    auto h = std::make_unique<EffectHarness>(endpoints_.back().c_str());
    EXPECT_EQ(S_OK, h->Initialize());
    EXPECT_EQ(S_OK, h->Lock(kChannels, kFrames));
    return h;
  }

  // Processes periods, collecting what was mixed in, until `done` holds. Silent
  // periods hold a value that must never be heard, and turn valid with sound.
  template <typename Done>
  bool RunUntil(EffectHarness& h, std::vector<float>& received, Done done, UINT32 flags = BUFFER_VALID) {
    const std::vector<float> mic(kPeriod, flags == BUFFER_SILENT ? 0.75f : 0.0f);
    for (int period = 0; period < kMaxPeriods; ++period) {
      bool heard = false;
      for (float v : h.Process(mic, flags)) {
        if (v != 0.0f) received.push_back(v);
        heard = heard || v != 0.0f;
      }
      if (heard) EXPECT_EQ(static_cast<UINT32>(BUFFER_VALID), h.OutputProperty().u32BufferFlags);
      if (done()) return true;
      Sleep(1);
    }
    return false;
  }

  // A block of `bytes` from quillon_test_player.exe, taken into the queue; the player's exit code.
  int SendRaw(size_t bytes) {
    ChildProcess player(L"quillon_test_player.exe", L"raw \"" + endpoints_.back() + L"\" " + std::to_wstring(bytes));
    return player.Wait();
  }

  ScopedRegistryValue level_{HKEY_LOCAL_MACHINE, kQuillonKey, L"LogLevel"};
  std::vector<std::wstring> endpoints_;
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
    EXPECT_EQ(1, reg->inUse[i]);
    EXPECT_EQ(1u, reg->slotWordA[i]);
    EXPECT_EQ(8u, reg->slotWordB[i]);
    EXPECT_EQ(Endpoint(i), reg->endpointIds[i]);
  }

  // The twenty-first is refused, still locks and passes audio through.
  auto extra = Start(20);
  EXPECT_EQ(-1, extra->Slot());
  const std::vector<float> mic(kPeriod, 0.25f);
  EXPECT_EQ(mic, extra->Process(mic));
  EXPECT_NE(std::string::npos, LogText().find("Cannot register APO instance. The amount is limited to 20"));
  EXPECT_NE(std::string::npos, LogText().find("Cannot register APO instance [Code=1:"));

  // Freed slots keep their text and words; the lowest free one is taken next.
  ASSERT_EQ(S_OK, effects[5]->Unlock());
  ASSERT_EQ(S_OK, effects[2]->Unlock());
  EXPECT_EQ(0, reg->inUse[2]);
  EXPECT_EQ(1u, reg->slotWordA[2]);
  EXPECT_EQ(8u, reg->slotWordB[2]);
  EXPECT_EQ(Endpoint(2), reg->endpointIds[2]);
  auto next = Start(21);
  EXPECT_EQ(2, next->Slot());
  EXPECT_EQ(Endpoint(21), reg->endpointIds[2]);
}

struct BlockCase {
  uint32_t bytes;
  size_t queued;
  const char* logged;
};

class BlockSizes : public Transfer, public ::testing::WithParamInterface<BlockCase> {};

TEST_P(BlockSizes, QueueAndLog) {
  auto h = Start(0);
  h->Process(std::vector<float>(kPeriod, 0.0f));  // the first period sizes the chunk
  ASSERT_EQ(0, SendRaw(GetParam().bytes));
  EXPECT_NE(std::string::npos, LogText().find(GetParam().logged));
  // Whole samples only, and never more than one block: then nothing more.
  std::vector<float> received;
  RunUntil(*h, received, [&] { return received.size() >= GetParam().queued; });
  for (int i = 0; i < 2 * 8; ++i) h->Process(std::vector<float>(kPeriod, 0.0f));
  ASSERT_EQ(GetParam().queued, received.size());
  for (size_t k = 0; k < received.size(); ++k) ASSERT_EQ(Sent(k), received[k]);
}

INSTANTIATE_TEST_SUITE_P(Transfer, BlockSizes,
                         ::testing::Values(BlockCase{0, 0, ": Received 0 bytes #]"}, BlockCase{6, 1, ": Received 6 bytes #]"},
                                           BlockCase{300000, 65536, ": Received 262144 bytes #]"}));

TEST_F(Transfer, BlockWaitsWhileTheQueueHoldsAChunk) {
  auto h = Start(0);
  h->Process(std::vector<float>(kPeriod, 0.0f));
  ASSERT_EQ(0, SendRaw(8 * kPeriod * sizeof(float)));  // one chunk queued
  ChildProcess player(L"quillon_test_player.exe", L"raw \"" + Endpoint(0) + L"\" 400");
  TransferView block(h->Slot());
  ASSERT_TRUE(block.Open());
  ASSERT_TRUE(Within([&] { return block->dataReady == 1; }));
  EXPECT_EQ(-1, player.Wait(300)) << "the block must wait while the queue is full";
  EXPECT_EQ(1u, block->dataReady);
  // Taking the chunk wakes the receiver, which now takes the block.
  std::vector<float> received;
  EXPECT_TRUE(RunUntil(*h, received, [&] { return block->dataReady == 0; }));
  EXPECT_EQ(0, player.Wait());
}

// Sound from another process comes out sample for sample, over many chunks.
TEST_F(Transfer, SoundFromAnotherProcessIsMixedSampleExactly) {
  auto h = Start(0);
  h->Process(std::vector<float>(kPeriod, 0.0f));
  HANDLE firstBlock = CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestFirstBlock");
  constexpr size_t kTotal = 6000;
  ChildProcess player(L"quillon_test_player.exe", L"send \"" + Endpoint(0) + L"\" 6000 700");
  std::vector<float> received;
  int period = 0, readyAt = -1, heardAt = -1;
  ASSERT_TRUE(RunUntil(*h, received, [&] {
    ++period;
    if (readyAt < 0 && WaitForSingleObject(firstBlock, 0) == WAIT_OBJECT_0) readyAt = period;
    if (heardAt < 0 && !received.empty()) heardAt = period;
    return received.size() >= kTotal;
  }, BUFFER_SILENT));
  EXPECT_EQ(0, player.Wait());
  ASSERT_EQ(kTotal, received.size());
  for (size_t k = 0; k < kTotal; ++k) ASSERT_EQ(Sent(k), received[k]) << "sample " << k;
  std::printf("[ delay    ] first block ready to first sample heard: %d periods\n", heardAt - readyAt);
  CloseHandle(firstBlock);
}

TEST_F(Transfer, UnlockTellsThePlayer) {
  auto h = Start(0);
  HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestPlayerReady");
  ChildProcess player(L"quillon_test_player.exe", L"wait-closed \"" + Endpoint(0) + L"\"");
  ASSERT_EQ(static_cast<DWORD>(WAIT_OBJECT_0), WaitForSingleObject(ready, 30000));
  TransferView block(h->Slot());
  ASSERT_TRUE(block.Open());
  EXPECT_EQ(0u, block->instanceClosed);
  ASSERT_EQ(S_OK, h->Unlock());
  EXPECT_EQ(0, player.Wait());
  ResetEvent(ready);
  CloseHandle(ready);
}

TEST_F(Transfer, StopRequestDropsTheQueueAndAnswers) {
  auto h = Start(0);
  h->Process(std::vector<float>(kPeriod, 0.0f));
  ASSERT_EQ(0, SendRaw(3 * kPeriod * sizeof(float)));
  ChildProcess player(L"quillon_test_player.exe", L"stop \"" + Endpoint(0) + L"\"");
  TransferView block(h->Slot());
  ASSERT_TRUE(block.Open());
  ASSERT_TRUE(Within([&] { return block->stopRequest != 0; }));
  // The request comes before the sound's first period: none of it is heard.
  std::vector<float> received;
  EXPECT_TRUE(RunUntil(*h, received, [&] { return WaitForSingleObject(player.Handle(), 0) == WAIT_OBJECT_0; }));
  EXPECT_EQ(0, player.Wait());
  for (int i = 0; i < 2 * 8; ++i) h->Process(std::vector<float>(kPeriod, 0.0f));
  EXPECT_TRUE(received.empty());
}

TEST_F(Transfer, PlayerDyingWithTheMutexDoesNotStopTheEffect) {
  auto h = Start(0);
  h->Process(std::vector<float>(kPeriod, 0.0f));
  HANDLE holding = CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestPlayerHolding");
  {
    ChildProcess dying(L"quillon_test_player.exe", L"die-holding \"" + Endpoint(0) + L"\"");
    ASSERT_EQ(static_cast<DWORD>(WAIT_OBJECT_0), WaitForSingleObject(holding, 30000));
    EXPECT_EQ(0, dying.Wait());
  }
  ChildProcess player(L"quillon_test_player.exe", L"send \"" + Endpoint(0) + L"\" 300 300");
  std::vector<float> received;
  EXPECT_TRUE(RunUntil(*h, received, [&] { return received.size() >= 300; }));
  EXPECT_EQ(0, player.Wait());
  EXPECT_EQ(S_OK, h->Unlock());
  ResetEvent(holding);
  CloseHandle(holding);
}

TEST_F(Transfer, PlayerHoldingTheMutexForSecondsOnlyDelaysSound) {
  auto h = Start(0);
  h->Process(std::vector<float>(kPeriod, 0.0f));
  ASSERT_EQ(0, SendRaw(kPeriod * sizeof(float)));
  HANDLE holding = CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestPlayerHolding");
  ChildProcess holder(L"quillon_test_player.exe", L"hold \"" + Endpoint(0) + L"\" 2500");
  ASSERT_EQ(static_cast<DWORD>(WAIT_OBJECT_0), WaitForSingleObject(holding, 30000));
  // Periods go on while the receiver waits for the mutex and gives up after a second.
  std::vector<float> received;
  EXPECT_TRUE(RunUntil(*h, received, [&] { return LogText().find("Failed to open transfer mutex [Code=0:") !=
                                                  std::string::npos; }));
  EXPECT_EQ(0, holder.Wait());
  EXPECT_EQ(S_OK, h->Unlock());
  ResetEvent(holding);
  CloseHandle(holding);
}

TEST_F(Transfer, MappingPrecreatedTooSmallLeavesTheInstanceUnregistered) {
  HANDLE small = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                    L"Global\\QuillonMappingObject1.8.00");
  ASSERT_NE(nullptr, small);
  auto h = Start(0);
  EXPECT_EQ(-1, h->Slot());
  const std::vector<float> mic(kPeriod, 0.25f);
  EXPECT_EQ(mic, h->Process(mic));
  EXPECT_NE(std::string::npos, LogText().find("Failed to map view of memory mapping file"));
  EXPECT_EQ(S_OK, h->Unlock());
  CloseHandle(small);
}

// Lock and unlock many times, several instances at once, each with its own
// player streaming: every block arrives, and no handle is left behind.
TEST_F(Transfer, StressManyCyclesAndInstances) {
  Logger::Instance().SetLevel(LOG_ERROR);
  level_.Delete();
  DWORD handlesBefore = 0, handlesAfter = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handlesBefore);
  for (int cycle = 0; cycle < 4; ++cycle) {
    std::vector<std::unique_ptr<EffectHarness>> effects;
    std::vector<std::unique_ptr<ChildProcess>> players;
    for (int i = 0; i < 3; ++i) {
      effects.push_back(Start(i));
      effects.back()->Process(std::vector<float>(kPeriod, 0.0f));
      players.push_back(std::make_unique<ChildProcess>(L"quillon_test_player.exe",
                                                       L"send \"" + Endpoint(i) + L"\" 2000 500"));
    }
    std::vector<std::vector<float>> received(3);
    const std::vector<float> silence(kPeriod, 0.0f);
    for (int period = 0; period < kMaxPeriods; ++period) {
      bool all = true;
      for (int i = 0; i < 3; ++i) {
        for (float v : effects[i]->Process(silence)) {
          if (v != 0.0f) received[i].push_back(v);
        }
        all = all && received[i].size() >= 2000;
      }
      if (all) break;
      Sleep(1);
    }
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(0, players[i]->Wait()) << "cycle " << cycle << " instance " << i;
      ASSERT_EQ(2000u, received[i].size());
      for (size_t k = 0; k < received[i].size(); ++k) ASSERT_EQ(Sent(k), received[i][k]);
    }
  }
  for (int cycle = 0; cycle < 30; ++cycle) {
    auto h = Start(0);
    h->Process(std::vector<float>(kPeriod, 0.0f));
    ASSERT_EQ(S_OK, h->Unlock());
  }
  GetProcessHandleCount(GetCurrentProcess(), &handlesAfter);
  EXPECT_EQ(handlesBefore, handlesAfter);
}

}  // namespace
}  // namespace quillon::test
