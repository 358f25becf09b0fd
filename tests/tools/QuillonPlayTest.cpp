// `quillon play` and `quillon stop` as the player, against the real
// Quillon.dll, across processes: this test drives the effect like the audio
// engine (or runs quillon-host as the engine, or plays an effect of an older
// version itself), and both are watched through the shared objects.
#include "platform/NamedMutexLock.h"
#include "player/PlayerClient.h"
#include "support/EffectHarness.h"
#include "support/QuillonDll.h"
#include "support/QuillonRun.h"
#include "transfer/WinUtils.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

namespace quillon::test {
namespace {

const std::wstring kMicA = L"{0.0.1.00000000}.{9a7e0000-0000-4000-8000-00000000000a}";
const std::wstring kMicB = L"{0.0.1.00000000}.{9a7e0000-0000-4000-8000-00000000000b}";
const std::wstring kMicC = L"{0.0.1.00000000}.{9a7e0000-0000-4000-8000-00000000000c}";
constexpr UINT32 kFrames = 480;  // 10 ms at 48 kHz
const std::vector<float> kSilence(2 * kFrames, 0.0f);  // a silent stereo period

float Ramp(size_t k) { return static_cast<float>(k + 1) / 65536.0f; }

// A WAV at 48 kHz of `samples` ramp values.
std::wstring RampFile(const std::wstring& name, uint16_t channels, size_t samples) {
  audio::Sound ramp{48000, channels, std::vector<float>(samples)};
  for (size_t k = 0; k < samples; ++k) ramp.samples[k] = Ramp(k);
  return WriteWav(name, ramp);
}

std::wstring PlayArgs(const std::wstring& endpoint, const std::wstring& file, const std::wstring& extra = L"") {
  return L"play --verbose --wait 20 --mic " + endpoint + L" " + extra + L" \"" + file + L"\"";
}

class PlayerProtocol : public ::testing::Test {
 protected:
  // An effect of the real library for `endpoint`, locked to float32 at 48 kHz.
  std::unique_ptr<EffectHarness> Start(const std::wstring& endpoint, UINT32 channels) {
    return EffectHarness::Started(endpoint.c_str(), channels, kFrames, dll_.CreateEffect());
  }

  QuillonDll dll_;
};

// The effect publishes the format before the slot is in use. A watcher that
// polls the register as a player does sees every registration: it holds the
// mappings itself (so they outlive every registration) and clears the format
// while the slot is free, so that each registration's own write is what it sees.
TEST_F(PlayerProtocol, EffectNeverShowsASlotInUseWithoutItsFormat) {
  RegisterView slots(true);
  TransferView block(0, true);
  ASSERT_TRUE(slots.Open() && block.Open());
  std::atomic<bool> end{false};
  long inUse = 0, withoutFormat = 0;
  std::thread watcher([&] {
    while (!end) {
      NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
      if (*static_cast<const volatile uint8_t*>(&slots->inUse[0]) != 0) {
        ++inUse;
        if (!player::IsUsableFormat(block->format)) ++withoutFormat;
      } else {
        std::memset(&block->format, 0, sizeof(block->format));
      }
    }
  });
  for (int cycle = 0; cycle < 40; ++cycle) EXPECT_EQ(S_OK, Start(kMicA, 2)->Unlock());
  end = true;
  watcher.join();
  EXPECT_GT(inUse, 0);
  EXPECT_EQ(0, withoutFormat) << "of " << inUse << " looks at the slot in use";
}

// An older effect marks the slot in use first and writes the format later:
// the player waits for a usable format instead of refusing a 0 Hz stream.
// The test plays that effect, up to the player's first block.
TEST_F(PlayerProtocol, WaitsForTheFormatOfAnOlderEffect) {
  RegisterView slots(true);
  ASSERT_TRUE(slots.Open());
  int32_t slot = 0;
  while (slot < kMaxInstances && slots->inUse[slot] != 0) ++slot;  // no other effect registers meanwhile
  ASSERT_LT(slot, kMaxInstances);
  TransferView block(slot, true);
  ASSERT_TRUE(block.Open());
  block->format = {};
  {
    NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
    slots->inUse[slot] = 1;
    wcscpy(slots->endpointIds[slot], kMicA.c_str());
  }
  // The format comes once the player has found the slot in use without one.
  QuillonProcess player(L"late", PlayArgs(kMicA, RampFile(L"late", 2, 960)));
  EXPECT_TRUE(PollUntil([&] { return player.Text().find("waiting for the effect to publish") != std::string::npos; }))
      << player.Text();
  block->format = MakeFloatFormat(2, 48000.0f);
  EXPECT_TRUE(PollUntil([&] { return block->dataReady == 1; })) << player.Text();
  EXPECT_EQ(960u * sizeof(float), block->byteCount);
  EXPECT_EQ(Ramp(959), block->samples[959]);
  player.process.Kill();
  NamedMutexLock lock(kRegisterMutexName, kSharedMutexWaitMs);
  slots->inUse[slot] = 0;
}

TEST_F(PlayerProtocol, NeverWritesOverAnotherPlayersBlock) {
  auto h = Start(kMicA, 2);  // no period runs, so nothing is taken
  TransferView block(SlotOf(kMicA));
  {
    NamedMutexLock lock(TransferMutexName(SlotOf(kMicA)).c_str(), kSharedMutexWaitMs);
    for (size_t i = 0; i < 100; ++i) block->samples[i] = -Ramp(i);
    block->byteCount = 400;
    block->dataReady = 1;
  }
  QuillonProcess player(L"foreign", L"play --mic " + kMicA + L" \"" + RampFile(L"foreign", 2, 960) + L"\"");
  EXPECT_EQ(1, player.process.Wait());
  EXPECT_NE(std::string::npos, player.Text().find("another player is sending to this microphone")) << player.Text();
  EXPECT_EQ(1u, block->dataReady);
  EXPECT_EQ(400u, block->byteCount);
  for (size_t i = 0; i < 100; ++i) ASSERT_EQ(-Ramp(i), block->samples[i]) << i;
}

// The instance unlocks mid-play and the lowest free slot goes to another
// endpoint, or to the same one at another format: the player stops sending.
struct Replacement {
  const char* name;
  std::wstring endpoint;
  UINT32 channels;
};

class PlayerReplaced : public PlayerProtocol, public ::testing::WithParamInterface<Replacement> {};

TEST_P(PlayerReplaced, StopsSendingAndSaysSo) {
  auto first = Start(kMicA, 2);
  QuillonProcess player(L"replaced", PlayArgs(kMicA, RampFile(L"replaced", 2, 48000 * 2 * 5), L"--block-ms 10"));
  first->RunUntil([](auto& heard) { return heard.size() > 960; });
  ASSERT_EQ(S_OK, first->Unlock());
  first.reset();
  auto second = Start(GetParam().endpoint, GetParam().channels);
  const std::vector<float> heard = second->RunUntil([&](auto&) { return player.Ended(); });
  EXPECT_EQ(1, player.process.Wait());
  EXPECT_NE(std::string::npos, player.Text().find("the effect instance went away")) << player.Text();
  // At most the block that waited in the mapping when the first unlocked.
  EXPECT_LE(heard.size(), 960u);
}

INSTANTIATE_TEST_SUITE_P(PlayerProtocol, PlayerReplaced, ::testing::Values(Replacement{"OtherEndpoint", kMicB, 2},
                         Replacement{"OtherFormat", kMicA, 1}), CaseName);

// Ctrl+C or a closing console while playing: what was queued is dropped, the
// stop request is cleared, and the player exits with 130.
class PlayerInterrupted : public PlayerProtocol, public ::testing::WithParamInterface<DWORD> {};

TEST_P(PlayerInterrupted, WhilePlayingDropsTheQueuedSound) {
  auto h = Start(kMicA, 2);
  TransferView block(SlotOf(kMicA));
  QuillonProcess player(L"interrupted", PlayArgs(kMicA, RampFile(L"interrupted", 2, 48000 * 2 * 5)));
  h->RunUntil([](auto& heard) { return !heard.empty(); });
  ASSERT_TRUE(player.process.Interrupt(GetParam()));
  h->RunUntil([&](auto&) { return player.Ended(); });  // the stop request is answered by a period
  EXPECT_EQ(130, player.process.Wait()) << player.Text();
  EXPECT_EQ(0, block->stopRequest);
  EXPECT_EQ(0u, block->dataReady);
  for (int period = 0; period < 20; ++period) ASSERT_EQ(kSilence, h->Process(kSilence)) << period;
}

INSTANTIATE_TEST_SUITE_P(PlayerProtocol, PlayerInterrupted,
                         ::testing::Values(static_cast<DWORD>(CTRL_C_EVENT), static_cast<DWORD>(CTRL_CLOSE_EVENT)));

TEST_F(PlayerProtocol, InterruptedWhileStoppingClearsTheStopRequest) {
  auto h = Start(kMicA, 2);  // no period runs, so the stop request is never answered
  TransferView block(SlotOf(kMicA));
  QuillonProcess stopper(L"stopping", L"stop --mic " + kMicA);
  ASSERT_TRUE(PollUntil([&] { return block->stopRequest != 0; }));
  ASSERT_TRUE(stopper.process.Interrupt(CTRL_C_EVENT));
  EXPECT_EQ(130, stopper.process.Wait()) << stopper.Text();
  EXPECT_EQ(0, block->stopRequest);
}

// The engine's process dies mid-play: no unregistration, the slot stays in use.
TEST_F(PlayerProtocol, NoticesAnEffectThatStoppedAnswering) {
  ChildProcess host(L"quillon-host.exe",
                    L"--endpoint " + kMicA + L" --seconds 60 --out \"" + Scratch(L"dying-host.wav") + L"\"");
  ASSERT_TRUE(PollUntil([] { return SlotOf(kMicA) >= 0; }));
  QuillonProcess player(L"dying", PlayArgs(kMicA, RampFile(L"dying", 2, 48000 * 2 * 20)));
  ASSERT_TRUE(PollUntil([&] { return player.Text().find("first block taken") != std::string::npos; }));
  host.Kill();
  const auto killed = std::chrono::steady_clock::now();
  EXPECT_EQ(1, player.process.Wait()) << player.Text();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - killed);
  EXPECT_NE(std::string::npos, player.Text().find("the effect stopped answering")) << player.Text();
  std::printf("[ answer   ] the player gave up %lld ms after the effect's process died\n", ms.count());
}

// Blocks hold whole frames and a partial last frame is dropped: six channels,
// blocks as large as the mapping allows, 20000 frames and 3 samples. A stop
// request that an interrupted stop left set is cleared, or it would drop
// every block.
TEST_F(PlayerProtocol, BlocksHoldWholeFrames) {
  constexpr size_t kFileFrames = 20000;
  std::vector<float> sound(kFileFrames * 6 + 3);
  for (size_t k = 0; k < sound.size(); ++k) sound[k] = static_cast<float>(k % 6 + 1 + 8 * (k / 6));
  const std::wstring file = WriteWav(L"six", {48000, 6, sound});
  auto h = Start(kMicA, 6);
  h->Process(std::vector<float>(6 * kFrames, 0.0f));  // sizes the chunk
  TransferView block(SlotOf(kMicA));
  block->stopRequest = 1;
  QuillonProcess player(L"six", PlayArgs(kMicA, file, L"--block-ms 1000"));
  // The first block (65532 samples) fills the queue; the rest waits as the second.
  const uint32_t secondBytes = static_cast<uint32_t>((kFileFrames * 6 - 65532) * sizeof(float));
  EXPECT_TRUE(PollUntil([&] { return block->dataReady == 1 && block->byteCount == secondBytes; }))
      << "waiting block of " << block->byteCount << " bytes";
  std::vector<size_t> positions;
  const std::vector<float> heard =
      h->RunUntil([&](auto& heard) { return heard.size() >= kFileFrames * 6; }, BUFFER_VALID, &positions);
  EXPECT_EQ(0, player.process.Wait()) << player.Text();
  ASSERT_EQ(kFileFrames * 6, heard.size());
  for (size_t k = 0; k < heard.size(); ++k) {
    ASSERT_EQ(sound[k], heard[k]) << k;
    ASSERT_EQ(k % 6, positions[k] % 6) << "sample " << k << " in the wrong channel";
  }
}

// Several instances at once, each with its own player, lock period after lock
// period: every sample arrives in order, and after the first round no handle
// is left behind.
TEST_F(PlayerProtocol, ManyInstancesAndLockPeriodsLoseNothing) {
  constexpr size_t kSamples = 4800;
  const std::wstring file = RampFile(L"many", 2, kSamples);
  const std::wstring mics[] = {kMicA, kMicB, kMicC};
  DWORD handlesBefore = 0, handlesAfter = 0;
  for (int round = 0; round < 4; ++round) {
    if (round == 1) GetProcessHandleCount(GetCurrentProcess(), &handlesBefore);
    std::vector<std::unique_ptr<EffectHarness>> effects;
    std::vector<std::unique_ptr<QuillonProcess>> players;
    std::vector<std::vector<float>> heard(3);
    for (int i = 0; i < 3; ++i) {
      effects.push_back(Start(mics[i], 2));
      players.push_back(
          std::make_unique<QuillonProcess>(L"many" + std::to_wstring(i), PlayArgs(mics[i], file, L"--block-ms 10")));
    }
    EXPECT_TRUE(PollUntil([&] {
      for (int i = 0; i < 3; ++i) {
        for (float v : effects[i]->Process(kSilence)) {
          if (v != 0.0f) heard[i].push_back(v);
        }
      }
      return std::all_of(heard.begin(), heard.end(), [](const auto& one) { return one.size() >= kSamples; });
    }));
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(0, players[i]->process.Wait()) << players[i]->Text();
      ASSERT_EQ(kSamples, heard[i].size()) << "round " << round << " instance " << i;
      for (size_t k = 0; k < kSamples; ++k) ASSERT_EQ(Ramp(k), heard[i][k]) << "round " << round << " instance " << i;
    }
  }
  GetProcessHandleCount(GetCurrentProcess(), &handlesAfter);
  EXPECT_EQ(handlesBefore, handlesAfter);
}

}  // namespace
}  // namespace quillon::test
