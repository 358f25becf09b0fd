// End to end, with real processes: quillon-host drives the effect like the
// audio engine on a WAV, `quillon play` sends sound from another process.
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"

#include <cmath>

namespace quillon::test {
namespace {

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{e2e00000-0000-4000-8000-000000000001}";

// Walks the output and checks that it carries the whole sound in order: each
// sample added to the microphone, or in place of it with block voice. Before
// the sound, and where a player starved of time (an emulated ARM64 run on a
// busy machine) left the queue short, the output is the microphone alone, or
// nothing with block voice (the rest of that chunk is silence and the sound
// goes on later). Such samples inside the sound are counted; anything else
// fails. `start` is where the sound entered (its first sample that is not 0
// came that many samples later), `end` where it ended.
::testing::AssertionResult CarriesTheSound(const audio::Sound& out, const audio::Sound& mic, const audio::Sound& sound,
                                           bool replacesVoice, size_t& start, size_t& end, size_t& gaps) {
  auto micAt = [&](size_t i) { return i < mic.samples.size() ? mic.samples[i] : 0.0f; };
  size_t lead = 0;
  while (lead < sound.samples.size() && sound.samples[lead] == 0.0f) ++lead;
  size_t i = 0;
  gaps = 0;
  for (size_t k = 0; k < sound.samples.size(); ++i) {
    if (i >= out.samples.size()) return ::testing::AssertionFailure() << "the output ends at sound sample " << k;
    const float expected = replacesVoice ? sound.samples[k] : sound.samples[k] + micAt(i);
    if (out.samples[i] == expected) {
      if (k == lead) {  // the leading zeros looked like a gap: the sound entered `lead` samples earlier
        start = i - lead;
        gaps = 0;
      }
      ++k;
    } else if (out.samples[i] == micAt(i) || (replacesVoice && out.samples[i] == 0.0f)) {
      ++gaps;
    } else {
      return ::testing::AssertionFailure() << "output sample " << i << " is " << out.samples[i] << ", not sound sample "
                                           << k << " (" << expected << ")";
    }
  }
  end = i;
  return ::testing::AssertionSuccess();
}

class EndToEnd : public ::testing::Test {
 protected:
  void TearDown() override { DeleteKeys({GainKey(kEndpoint)}); }
  ScopedRegistryValue blockVoice_{HKEY_LOCAL_MACHINE, kSettingsKey, kBlockVoiceValue};
};

// The player's sound added to the microphone, or in place of it with block
// voice: before the sound the microphone passes as it is, and after it too
// (with block voice, once the silent rest of the last chunk is over).
class Mixing : public EndToEnd, public ::testing::WithParamInterface<bool> {};

TEST_P(Mixing, OutputIsMicrophoneAndPlayerSound) {
  const bool blockVoice = GetParam();
  if (blockVoice) ASSERT_TRUE(blockVoice_.SetDword(1));
  const audio::Sound mic = LoadSound(Sounds() + L"mic.wav"), tone = LoadSound(Sounds() + L"tone.wav");
  ToolRun run = HostAndPlayer(kEndpoint, L"--in \"" + Sounds() + L"mic.wav\"", Sounds() + L"tone.wav",
                              blockVoice ? L"blockvoice" : L"mixed");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ASSERT_EQ(0, run.playerExit) << run.playerText;
  size_t d = 0, end = 0, gaps = 0;
  ASSERT_TRUE(CarriesTheSound(run.output, mic, tone, blockVoice, d, end, gaps));
  EXPECT_EQ(0u, d % 2) << "aligned to frames";
  ASSERT_LT(end, mic.samples.size()) << "the sound must play inside the microphone signal";
  std::printf("[ gaps     ] silent samples inside the sound: %zu\n", gaps);
  for (size_t i = 0; i < d; ++i) ASSERT_EQ(mic.samples[i], run.output.samples[i]) << i;
  size_t i = end;
  while (blockVoice && i < mic.samples.size() && run.output.samples[i] == 0.0f) ++i;
  for (; i < mic.samples.size(); ++i) ASSERT_EQ(mic.samples[i], run.output.samples[i]) << i;
}

INSTANTIATE_TEST_SUITE_P(EndToEnd, Mixing, ::testing::Values(false, true),
                         [](const auto& info) { return std::string(info.param ? "BlockVoice" : "AddedToTheVoice"); });

TEST_F(EndToEnd, MicrophoneGainFromTheRegistry) {
  ScopedRegistryValue gain(HKEY_LOCAL_MACHINE, GainKey(kEndpoint), kMicGainValue);
  ASSERT_TRUE(gain.SetDword(6));
  const audio::Sound mic = LoadSound(Sounds() + L"mic.wav");
  ToolRun run = HostAndPlayer(kEndpoint, L"--in \"" + Sounds() + L"mic.wav\"", L"", L"gain");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  const float g = static_cast<float>(std::pow(10.0, 6 / 20.0));
  // The listener reads the setting once the stream has started: until then
  // the microphone passes as it is, from then on every sample is scaled.
  size_t from = 0;
  while (from < mic.samples.size() && run.output.samples[from] == mic.samples[from]) ++from;
  ASSERT_LT(from, mic.samples.size() / 2) << "the gain was never applied";
  std::printf("[ gain     ] every sample from %.1f ms of audio on is scaled\n", from / 96.0);
  for (size_t i = from; i < mic.samples.size(); ++i) ASSERT_EQ(g * mic.samples[i], run.output.samples[i]) << i;
}

// Twenty seconds of a counting ramp at real-time pace: every sample arrives,
// once, in order (silent gaps of a starved player counted, as CarriesTheSound
// says), and the first block is heard within a chunk and a period.
TEST_F(EndToEnd, TwentySecondStreamArrivesWhole) {
  audio::Sound ramp{48000, 2, std::vector<float>(20 * 48000 * 2)};
  for (size_t k = 0; k < ramp.samples.size(); ++k) ramp.samples[k] = static_cast<float>(k + 1) / 16777216.0f;
  ToolRun run = HostAndPlayer(kEndpoint, L"--seconds 23", WriteWav(L"ramp", ramp), L"stream");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ASSERT_EQ(0, run.playerExit) << run.playerText;
  // On the silent microphone: the whole ramp, and nothing after it.
  size_t start = 0, end = 0, gaps = 0;
  ASSERT_TRUE(CarriesTheSound(run.output, {}, ramp, false, start, end, gaps));
  for (size_t i = end; i < run.output.samples.size(); ++i) ASSERT_EQ(0.0f, run.output.samples[i]) << "repeated: " << i;
  std::printf("[ gaps     ] silent samples inside the stream: %zu\n", gaps);

  const long long heard = NumberAfter(run.hostText, "qpc_us="), taken = NumberAfter(run.playerText, "qpc_us=");
  ASSERT_GT(heard, 0);
  ASSERT_GT(taken, 0);
  const long long delayUs = heard - taken;
  std::printf("[ delay    ] first block taken to first sample heard: %lld us\n", delayUs);
  EXPECT_LE(delayUs, 90000) << "within one chunk (80 ms) and one period (10 ms)";
}

}  // namespace
}  // namespace quillon::test
