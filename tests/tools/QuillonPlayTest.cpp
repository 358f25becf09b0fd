// `quillon play` and `quillon stop` as the player, against the real
// Quillon.dll, across processes: this test drives the effect like the audio
// engine (or runs quillon-host as the engine), and both are watched through
// the shared objects.
#include "audio/SoundFile.h"
#include "platform/MappedView.h"
#include "player/PlayerClient.h"
#include "support/ChildProcess.h"
#include "support/EffectHarness.h"
#include "support/QuillonRun.h"
#include "support/QuillonDll.h"
#include "support/SharedFiles.h"
#include "platform/NamedMutexLock.h"
#include "transfer/WinUtils.h"

#include <gtest/gtest.h>

#include <chrono>

namespace quillon::test {
namespace {

constexpr const wchar_t* kMicA = L"{0.0.1.00000000}.{9a7e0000-0000-4000-8000-00000000000a}";
constexpr const wchar_t* kMicB = L"{0.0.1.00000000}.{9a7e0000-0000-4000-8000-00000000000b}";
constexpr UINT32 kFrames = 480;  // 10 ms at 48 kHz
constexpr DWORD kBound = 30000;  // bound of every wait and poll

std::wstring Scratch(const std::wstring& name) { return ExecutableFolder() + L"player-" + name; }

float Ramp(size_t k) { return static_cast<float>(k + 1) / 65536.0f; }

// A float32 WAV at 48 kHz of `samples` ramp values.
std::wstring RampFile(const std::wstring& name, uint16_t channels, size_t samples) {
  std::vector<float> ramp(samples);
  for (size_t k = 0; k < samples; ++k) ramp[k] = Ramp(k);
  const std::wstring path = Scratch(name + L".wav");
  std::string error;
  EXPECT_TRUE(audio::WriteSound(path, {48000, channels, std::move(ramp)}, error)) << error;
  return path;
}

// quillon.exe with its output in a file of its own.
struct Player {
  Player(const std::wstring& name, const std::wstring& args)
      : output(Scratch(name + L"-out.txt")), process(L"quillon.exe", args, output) {}
  std::string Text() const { return ReadText(output); }
  std::wstring output;
  ChildProcess process;
};

std::wstring PlayArgs(const wchar_t* endpoint, const std::wstring& file, const std::wstring& extra = L"") {
  return L"play --verbose --wait 20 --mic " + std::wstring(endpoint) + L" " + extra + L" \"" + file + L"\"";
}

class PlayerProtocol : public ::testing::Test {
 protected:
  // An effect of the real library for `endpoint`, locked to float32 at 48 kHz.
  std::unique_ptr<EffectHarness> Start(const wchar_t* endpoint, UINT32 channels) {
    ComPtr<IAudioProcessingObject> apo;
    EXPECT_EQ(S_OK, dll_.CreateEffect(IID_IAudioProcessingObject, apo.PutVoid()));
    auto h = std::make_unique<EffectHarness>(apo, endpoint);
    EXPECT_EQ(S_OK, h->Initialize());
    EXPECT_EQ(S_OK, h->Lock(channels, kFrames));
    channels_ = channels;
    return h;
  }

  // The transfer mapping of `endpoint`'s slot, held until the test ends.
  TransferBlock* Mapping(const wchar_t* endpoint) {
    const int32_t slot = SlotOf(endpoint);
    EXPECT_GE(slot, 0);
    const std::wstring name = WinUtils::PerInstanceName(kTransferMappingPrefix, slot);
    views_.emplace_back(std::make_unique<MappedView>());
    EXPECT_TRUE(views_.back()->Map(UniqueHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str())),
                                   sizeof(TransferBlock)));
    return reinterpret_cast<TransferBlock*>(views_.back()->Get());
  }

  // Runs silent periods until `done` holds; returns the samples mixed in,
  // with the position of each inside its period (`positions`, when given).
  template <typename Done>
  std::vector<float> RunUntil(EffectHarness& h, Done done, std::vector<size_t>* positions = nullptr) {
    std::vector<float> heard;
    const std::vector<float> silence(static_cast<size_t>(kFrames) * channels_, 0.0f);
    EXPECT_TRUE(PollUntil([&] {
      const std::vector<float> out = h.Process(silence);
      for (size_t i = 0; i < out.size(); ++i) {
        if (out[i] == 0.0f) continue;
        heard.push_back(out[i]);
        if (positions != nullptr) positions->push_back(i);
      }
      return done(heard);
    }));
    return heard;
  }
  static bool Ended(ChildProcess& p) { return WaitForSingleObject(p.Handle(), 0) == WAIT_OBJECT_0; }

  QuillonDll dll_;
  UINT32 channels_ = 2;
  std::vector<std::unique_ptr<MappedView>> views_;
};

// The effect publishes the format before the slot is in use. A watcher that
// polls the register as a player does sees every registration.
TEST_F(PlayerProtocol, EffectNeverShowsASlotInUseWithoutItsFormat) {
  ChildProcess watcher(L"quillon_test_player.exe", L"watch-format", Scratch(L"watch-out.txt"));
  UniqueHandle ready(CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestPlayerReady"));
  UniqueHandle end(CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestWatchEnd"));
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(ready.Get(), kBound));
  for (int cycle = 0; cycle < 40; ++cycle) {
    auto h = Start(kMicA, 2);
    ASSERT_EQ(S_OK, h->Unlock());
  }
  SetEvent(end.Get());
  EXPECT_EQ(0, watcher.Wait()) << ReadText(Scratch(L"watch-out.txt"));
  ResetEvent(ready.Get());
}

// An older effect marks the slot in use first and writes the format later:
// the player waits for a usable format instead of refusing a 0 Hz stream.
TEST_F(PlayerProtocol, WaitsForTheFormatOfAnOlderEffect) {
  const std::wstring file = RampFile(L"late", 2, 9600);
  UniqueHandle published(CreateEventW(nullptr, TRUE, FALSE, L"QuillonTestPublished"));
  ChildProcess effect(L"quillon_test_old_effect.exe", std::wstring(kMicA) + L" 700 9600");
  ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(published.Get(), kBound));
  Player player(L"late", PlayArgs(kMicA, file));
  EXPECT_EQ(0, player.process.Wait(kBound)) << player.Text();
  EXPECT_EQ(0, effect.Wait(kBound)) << "the older effect received every sample in order";
  ResetEvent(published.Get());
}

TEST_F(PlayerProtocol, NeverWritesOverAnotherPlayersBlock) {
  auto h = Start(kMicA, 2);  // no period runs, so nothing is taken
  TransferBlock* block = Mapping(kMicA);
  {
    NamedMutexLock lock(WinUtils::PerInstanceName(kTransferMutexPrefix, SlotOf(kMicA)).c_str(), kSharedMutexWaitMs);
    for (size_t i = 0; i < 100; ++i) block->samples[i] = -Ramp(i);
    block->byteCount = 400;
    block->dataReady = 1;
  }
  Player player(L"foreign", L"play --mic " + std::wstring(kMicA) + L" \"" + RampFile(L"foreign", 2, 960) + L"\"");
  EXPECT_EQ(1, player.process.Wait(kBound));
  EXPECT_NE(std::string::npos, player.Text().find("another player is sending to this microphone")) << player.Text();
  EXPECT_EQ(1u, block->dataReady);
  EXPECT_EQ(400u, block->byteCount);
  for (size_t i = 0; i < 100; ++i) ASSERT_EQ(-Ramp(i), block->samples[i]) << i;
}

// A stop request that an interrupted stop left set would drop every block.
TEST_F(PlayerProtocol, ClearsAStopRequestLeftSet) {
  auto h = Start(kMicA, 2);
  Mapping(kMicA)->stopRequest = 1;
  Player player(L"stale-stop", PlayArgs(kMicA, RampFile(L"stale-stop", 2, 9600)));
  // The player ends once its last block is queued: run until it was heard.
  const std::vector<float> heard = RunUntil(*h, [&](auto& heard) { return heard.size() >= 9600; });
  EXPECT_EQ(0, player.process.Wait(kBound)) << player.Text();
  ASSERT_EQ(9600u, heard.size());
  for (size_t k = 0; k < heard.size(); ++k) ASSERT_EQ(Ramp(k), heard[k]) << k;
}

// The instance unlocks mid-play and the lowest free slot goes to another
// endpoint, or to the same one at another format: the player stops sending.
struct Replacement {
  const char* name;
  const wchar_t* endpoint;
  UINT32 channels;
};

class PlayerReplaced : public PlayerProtocol, public ::testing::WithParamInterface<Replacement> {};

TEST_P(PlayerReplaced, StopsSendingAndSaysSo) {
  auto first = Start(kMicA, 2);
  Player player(L"replaced", PlayArgs(kMicA, RampFile(L"replaced", 2, 48000 * 2 * 5), L"--block-ms 10"));
  RunUntil(*first, [](auto& heard) { return heard.size() > 960; });
  ASSERT_EQ(S_OK, first->Unlock());
  first.reset();
  auto second = Start(GetParam().endpoint, GetParam().channels);
  const std::vector<float> heard = RunUntil(*second, [&](auto&) { return Ended(player.process); });
  EXPECT_EQ(1, player.process.Wait(kBound));
  EXPECT_NE(std::string::npos, player.Text().find("the effect instance went away")) << player.Text();
  // At most the block that waited in the mapping when the first unlocked.
  EXPECT_LE(heard.size(), 960u);
}

INSTANTIATE_TEST_SUITE_P(PlayerProtocol, PlayerReplaced,
                         ::testing::Values(Replacement{"OtherEndpoint", kMicB, 2},
                                           Replacement{"OtherFormat", kMicA, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

// Ctrl+C or a closing console while playing: what was queued is dropped, the
// stop request is cleared, and the player exits with 130.
class PlayerInterrupted : public PlayerProtocol, public ::testing::WithParamInterface<DWORD> {};

TEST_P(PlayerInterrupted, WhilePlayingDropsTheQueuedSound) {
  auto h = Start(kMicA, 2);
  TransferBlock* block = Mapping(kMicA);
  Player player(L"interrupted", PlayArgs(kMicA, RampFile(L"interrupted", 2, 48000 * 2 * 5)));
  RunUntil(*h, [](auto& heard) { return !heard.empty(); });
  ASSERT_TRUE(player.process.Interrupt(GetParam()));
  RunUntil(*h, [&](auto&) { return Ended(player.process); });  // the stop request is answered by a period
  EXPECT_EQ(130, player.process.Wait(kBound)) << player.Text();
  EXPECT_EQ(0, block->stopRequest);
  EXPECT_EQ(0u, block->dataReady);
  const std::vector<float> silence(2 * kFrames, 0.0f);
  for (int period = 0; period < 20; ++period) ASSERT_EQ(silence, h->Process(silence)) << period;
}

INSTANTIATE_TEST_SUITE_P(PlayerProtocol, PlayerInterrupted,
                         ::testing::Values(static_cast<DWORD>(CTRL_C_EVENT), static_cast<DWORD>(CTRL_CLOSE_EVENT)));

TEST_F(PlayerProtocol, InterruptedWhileStoppingClearsTheStopRequest) {
  auto h = Start(kMicA, 2);  // no period runs, so the stop request is never answered
  TransferBlock* block = Mapping(kMicA);
  Player stopper(L"stopping", L"stop --mic " + std::wstring(kMicA));
  ASSERT_TRUE(PollUntil([&] { return block->stopRequest != 0; }));
  ASSERT_TRUE(stopper.process.Interrupt(CTRL_C_EVENT));
  EXPECT_EQ(130, stopper.process.Wait(kBound)) << stopper.Text();
  EXPECT_EQ(0, block->stopRequest);
}

// The engine's process dies mid-play: no unregistration, the slot stays in use.
TEST_F(PlayerProtocol, NoticesAnEffectThatStoppedAnswering) {
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + std::wstring(kMicA) + L" --seconds 60 --out \"" +
                                             Scratch(L"dying.wav") + L"\"");
  ASSERT_TRUE(PollUntil([] { return SlotOf(kMicA) >= 0; }));
  Player player(L"dying", PlayArgs(kMicA, RampFile(L"dying", 2, 48000 * 2 * 20)));
  ASSERT_TRUE(PollUntil([&] { return player.Text().find("first block taken") != std::string::npos; }));
  host.Kill();
  const auto killed = std::chrono::steady_clock::now();
  EXPECT_EQ(1, player.process.Wait(kBound)) << player.Text();
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - killed);
  EXPECT_NE(std::string::npos, player.Text().find("the effect stopped answering")) << player.Text();
  std::printf("[ answer   ] the player gave up %lld ms after the effect's process died\n",
              static_cast<long long>(ms.count()));
}

// Blocks hold whole frames and a partial last frame is dropped: six channels,
// blocks as large as the mapping allows, 20000 frames and 3 samples.
TEST_F(PlayerProtocol, BlocksHoldWholeFrames) {
  constexpr size_t kFileFrames = 20000;
  std::vector<float> sound(kFileFrames * 6 + 3);
  for (size_t k = 0; k < sound.size(); ++k) sound[k] = static_cast<float>(k % 6 + 1 + 8 * (k / 6));
  const std::wstring file = Scratch(L"six.wav");
  std::string error;
  ASSERT_TRUE(audio::WriteSound(file, {48000, 6, sound}, error)) << error;
  auto h = Start(kMicA, 6);
  h->Process(std::vector<float>(6 * kFrames, 0.0f));  // sizes the chunk
  TransferBlock* block = Mapping(kMicA);
  Player player(L"six", PlayArgs(kMicA, file, L"--block-ms 1000"));
  // The first block (65532 samples) fills the queue; the rest waits as the second.
  const uint32_t secondBytes = static_cast<uint32_t>((kFileFrames * 6 - 65532) * sizeof(float));
  EXPECT_TRUE(PollUntil([&] { return block->dataReady == 1 && block->byteCount == secondBytes; }))
      << "waiting block of " << block->byteCount << " bytes";
  std::vector<size_t> positions;
  const std::vector<float> heard =
      RunUntil(*h, [&](auto& heard) { return heard.size() >= kFileFrames * 6; }, &positions);
  EXPECT_EQ(0, player.process.Wait(kBound)) << player.Text();
  ASSERT_EQ(kFileFrames * 6, heard.size());
  for (size_t k = 0; k < heard.size(); ++k) {
    ASSERT_EQ(sound[k], heard[k]) << k;
    ASSERT_EQ(k % 6, positions[k] % 6) << "sample " << k << " in the wrong channel";
  }
}

// quillon-host as the engine.
struct HostUsage {
  const char* name;
  const wchar_t* args;
};

class HostRefuses : public PlayerProtocol, public ::testing::WithParamInterface<HostUsage> {};

TEST_P(HostRefuses, ValuesItCannotRunWith) {
  const std::wstring out = Scratch(L"host-usage.txt");
  ChildProcess host(L"quillon-host.exe", std::wstring(GetParam().args) + L" --out \"" + Scratch(L"x.wav") + L"\"",
                    out);
  EXPECT_EQ(2, host.Wait(kBound)) << ReadText(out);
  EXPECT_NE(std::string::npos, ReadText(out).find("usage: quillon-host")) << ReadText(out);
}

INSTANTIATE_TEST_SUITE_P(PlayerProtocol, HostRefuses,
                         ::testing::Values(HostUsage{"PeriodShorterThanAFrame", L"--period-ms 0.01"},
                                           HostUsage{"NegativeSeconds", L"--seconds -1"},
                                           HostUsage{"NegativeTail", L"--tail-ms -5"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(PlayerProtocol, HostInterruptedUnlocksAndReleasesTheEffect) {
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + std::wstring(kMicA) + L" --seconds 60 --out \"" +
                                             Scratch(L"host-ctrl-c.wav") + L"\"");
  ASSERT_TRUE(PollUntil([] { return SlotOf(kMicA) >= 0; }));
  TransferBlock* block = Mapping(kMicA);
  ASSERT_EQ(0u, block->instanceClosed);
  ASSERT_TRUE(host.Interrupt(CTRL_C_EVENT));
  EXPECT_EQ(130, host.Wait(kBound));
  EXPECT_EQ(-1, SlotOf(kMicA)) << "the slot is free";
  EXPECT_EQ(1u, block->instanceClosed) << "the player was told";
}

}  // namespace
}  // namespace quillon::test
