// End to end, with real processes: quillon-host drives the effect like the
// audio engine on a WAV, quillon-play sends sound from another process.
#include "common/Wav.h"
#include "support/ChildProcess.h"
#include "support/RegistryValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace quillon::test {
namespace {

using tools::ReadWav;
using tools::WavData;
using tools::WriteWav;

constexpr const wchar_t* kEndpoint = L"{0.0.1.00000000}.{e2e00000-0000-4000-8000-000000000001}";

std::wstring Sounds() { return ExecutableFolder() + L"..\\e2e\\"; }
std::wstring Scratch() { return ExecutableFolder() + L"..\\e2e\\out-"; }

std::string ReadText(const std::wstring& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

long long Number(const std::string& text, const std::string& key) {
  const size_t at = text.find(key);
  return at == std::string::npos ? -1 : std::stoll(text.substr(at + key.size()));
}

WavData Load(const std::wstring& path) {
  WavData wav;
  std::string error;
  EXPECT_TRUE(ReadWav(path, wav, error)) << error;
  return wav;
}

// A host run with a player started once the host's effect has registered.
struct ToolRun {
  std::string hostText, playerText;
  long hostExit = -1, playerExit = -1;
  WavData output;
};

ToolRun HostAndPlayer(const std::wstring& hostArgs, const std::wstring& playerFile, const std::wstring& name) {
  ToolRun run;
  const std::wstring out = Scratch() + name + L".wav";
  ChildProcess host(L"quillon-host.exe",
                    L"--endpoint " + std::wstring(kEndpoint) + L" --out \"" + out + L"\" " + hostArgs,
                    Scratch() + name + L"-host.txt");
  if (!playerFile.empty()) {
    ChildProcess player(L"quillon-play.exe", L"--wait 20 --endpoint " + std::wstring(kEndpoint) + L" \"" +
                                                 playerFile + L"\"",
                        Scratch() + name + L"-player.txt");
    run.playerExit = player.Wait(120000);
  }
  run.hostExit = host.Wait(120000);
  run.hostText = ReadText(Scratch() + name + L"-host.txt");
  run.playerText = ReadText(Scratch() + name + L"-player.txt");
  run.output = Load(out);
  return run;
}

// Where the sound entered: the first output sample that leaves the microphone
// signal, less the sound's own leading zeros.
size_t Onset(const WavData& out, const WavData& mic, const WavData& sound) {
  size_t lead = 0;
  while (lead < sound.samples.size() && sound.samples[lead] == 0.0f) ++lead;
  for (size_t i = 0; i < out.samples.size(); ++i) {
    const float m = i < mic.samples.size() ? mic.samples[i] : 0.0f;
    if (out.samples[i] != m) return i >= lead ? i - lead : 0;
  }
  return out.samples.size();
}

class EndToEnd : public ::testing::Test {
 protected:
  void TearDown() override {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(kQuillonKey) + L"\\" + kEndpoint + L",1").c_str());
  }
  ScopedRegistryValue blockVoice_{HKEY_LOCAL_MACHINE, kQuillonKey, L"FilterBlockVoice"};
};

TEST_F(EndToEnd, OutputIsMicrophonePlusPlayerSound) {
  const WavData mic = Load(Sounds() + L"mic.wav"), tone = Load(Sounds() + L"tone.wav");
  ToolRun run = HostAndPlayer(L"--in \"" + Sounds() + L"mic.wav\"", Sounds() + L"tone.wav", L"mixed");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ASSERT_EQ(0, run.playerExit) << run.playerText;
  const size_t d = Onset(run.output, mic, tone);
  ASSERT_LT(d + tone.samples.size(), mic.samples.size()) << "the sound must play inside the microphone signal";
  EXPECT_EQ(0u, d % 2) << "aligned to frames";
  for (size_t i = 0; i < mic.samples.size(); ++i) {
    const float expected = i >= d && i < d + tone.samples.size() ? tone.samples[i - d] + mic.samples[i]
                                                                 : mic.samples[i];
    ASSERT_EQ(expected, run.output.samples[i]) << "sample " << i << " (sound entered at " << d << ")";
  }
}

TEST_F(EndToEnd, BlockVoiceLeavesOnlyThePlayerSound) {
  ASSERT_TRUE(blockVoice_.SetDword(1));
  const WavData mic = Load(Sounds() + L"mic.wav"), tone = Load(Sounds() + L"tone.wav");
  ToolRun run = HostAndPlayer(L"--in \"" + Sounds() + L"mic.wav\"", Sounds() + L"tone.wav", L"blockvoice");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ASSERT_EQ(0, run.playerExit) << run.playerText;
  const size_t d = Onset(run.output, mic, tone);
  ASSERT_LT(d + tone.samples.size(), mic.samples.size());
  for (size_t i = 0; i < d; ++i) ASSERT_EQ(mic.samples[i], run.output.samples[i]) << i;
  for (size_t k = 0; k < tone.samples.size(); ++k) ASSERT_EQ(tone.samples[k], run.output.samples[d + k]) << k;
}

TEST_F(EndToEnd, MicrophoneGainFromTheRegistry) {
  ScopedRegistryValue gain(HKEY_LOCAL_MACHINE, std::wstring(kQuillonKey) + L"\\" + kEndpoint + L",1", L"MicAmpInDb");
  ASSERT_TRUE(gain.SetDword(6));
  const WavData mic = Load(Sounds() + L"mic.wav");
  ToolRun run = HostAndPlayer(L"--in \"" + Sounds() + L"mic.wav\"", L"", L"gain");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  const float g = static_cast<float>(std::pow(10.0, 6 / 20.0));
  // The listener reads the setting as the stream starts; from then on every sample is scaled.
  size_t from = 0;
  while (from < mic.samples.size() && run.output.samples[from] != g * mic.samples[from]) ++from;
  EXPECT_LT(from, 48000u * 2 / 5) << "gain applied within the first 200 ms";
  for (size_t i = 0; i < mic.samples.size(); ++i) {
    if (i >= from) ASSERT_EQ(g * mic.samples[i], run.output.samples[i]) << i;
  }
}

// Twenty seconds of a counting ramp at real-time pace: every sample arrives,
// once, in order, and the first block is heard within a chunk and a period.
TEST_F(EndToEnd, TwentySecondStreamArrivesWhole) {
  const size_t total = 20 * 48000 * 2;
  std::vector<float> ramp(total);
  for (size_t k = 0; k < total; ++k) ramp[k] = static_cast<float>(k + 1) / 16777216.0f;
  const std::wstring rampFile = Scratch() + L"ramp.wav";
  ASSERT_TRUE(WriteWav(rampFile, 48000, 2, ramp));
  ToolRun run = HostAndPlayer(L"--seconds 23", rampFile, L"stream");
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ASSERT_EQ(0, run.playerExit) << run.playerText;
  const std::vector<float>& out = run.output.samples;
  size_t d = 0;
  while (d < out.size() && out[d] == 0.0f) ++d;
  ASSERT_LE(d + total, out.size());
  for (size_t k = 0; k < total; ++k) ASSERT_EQ(ramp[k], out[d + k]) << "sample " << k;
  for (size_t i = d + total; i < out.size(); ++i) ASSERT_EQ(0.0f, out[i]) << "nothing after the stream";

  const long long heard = Number(run.hostText, "qpc_us="), taken = Number(run.playerText, "qpc_us=");
  ASSERT_GT(heard, 0);
  ASSERT_GT(taken, 0);
  const long long delayUs = heard - taken;
  std::printf("[ delay    ] first block taken to first sample heard: %lld us\n", delayUs);
  EXPECT_LE(delayUs, 90000) << "within one chunk (80 ms) and one period (10 ms)";
}

TEST_F(EndToEnd, ToolsRefuseWhatTheyCannotUse) {
  // The player checks the stream's format before it sends anything.
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + std::wstring(kEndpoint) + L" --seconds 6 --out \"" +
                                             Scratch() + L"refuse.wav\"",
                    Scratch() + L"refuse-host.txt");
  for (const wchar_t* file : {L"tone-pcm16.wav", L"tone-44k.wav"}) {
    const std::wstring log = Scratch() + L"refuse-player.txt";
    ChildProcess player(L"quillon-play.exe",
                        L"--wait 20 --endpoint " + std::wstring(kEndpoint) + L" \"" + Sounds() + file + L"\"", log);
    EXPECT_NE(0, player.Wait(60000)) << file;
    const std::string text = ReadText(log);
    EXPECT_NE(std::string::npos, text.find("but the stream is 48000 Hz, 2 channels, float32")) << text;
    EXPECT_NE(std::string::npos, text.find("sox ")) << text;
    EXPECT_NE(std::string::npos, text.find("Nothing was sent.")) << text;
  }
  EXPECT_EQ(0, host.Wait(60000));
  WavData out = Load(Scratch() + L"refuse.wav");
  for (float v : out.samples) ASSERT_EQ(0.0f, v) << "nothing was mixed in";

  const struct {
    std::wstring args;
    const char* message;
  } hostCases[] = {
      {L"--dll C:\\missing\\Quillon.dll --out \"" + Scratch() + L"x.wav\"", "cannot load the effect library"},
      {L"--in \"" + Sounds() + L"not-a-wav.wav\" --out \"" + Scratch() + L"x.wav\"", "cannot read"},
      {L"--in \"" + Sounds() + L"absent.wav\" --out \"" + Scratch() + L"x.wav\"", "cannot read"},
  };
  for (const auto& c : hostCases) {
    ChildProcess bad(L"quillon-host.exe", c.args, Scratch() + L"bad-host.txt");
    EXPECT_EQ(1, bad.Wait(60000));
    EXPECT_NE(std::string::npos, ReadText(Scratch() + L"bad-host.txt").find(c.message)) << c.message;
  }
}

}  // namespace
}  // namespace quillon::test
