// What the player hears: `quillon play --monitor` renders the mix to Wine's
// playback device, which the suite's ALSA configuration turns into a WAV file
// in the build folder, while the microphone's effect runs in quillon-host.
#include "player/MonitorOutput.h"
#include "player/PlaybackDevices.h"
#include "player/PlayerEngine.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"

#include <audioclient.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>

namespace quillon::test {
namespace {

constexpr const wchar_t* kMic = L"{0.0.1.00000000}.{e0a70000-0000-4000-8000-000000000002}";

std::wstring MonitorFile() { return ExecutableFolder() + L"..\\monitor.wav"; }

// The monitor's file: its header's channels and rate, and its data read as the
// 32-bit floats Wine wrote (the header calls them integers).
audio::Sound ReadMonitor() {
  const std::string bytes = ReadText(MonitorFile());
  audio::Sound sound;
  const size_t fmt = bytes.find("fmt "), data = bytes.find("data");
  if (fmt == std::string::npos || data == std::string::npos) return sound;
  std::memcpy(&sound.channels, bytes.data() + fmt + 10, 2);  // 16 bits, into a zeroed 32
  std::memcpy(&sound.rate, bytes.data() + fmt + 12, 4);
  sound.samples.resize((bytes.size() - data - 8) / 4);
  std::memcpy(sound.samples.data(), bytes.data() + data + 8, sound.samples.size() * 4);
  return sound;
}

// The monitor carries the sound at its own volume (-6 dB); the microphone
// gets it at the play's volume, untouched by the monitor's.
TEST(Monitor, PlaysTheSoundAtItsOwnVolume) {
  DeleteFileW(MonitorFile().c_str());
  const audio::Sound tone = LoadSound(Sounds() + L"tone.wav");
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 3", Sounds() + L"tone.wav", L"monitor",
                                    L"--monitor=OUT: --monitor-volume -6");
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  const audio::Sound heard = ReadMonitor();
  ASSERT_EQ(48000u, heard.rate) << "Wine's mix format changed: the comparison below needs a conversion";
  ASSERT_EQ(2u, heard.channels);
  const audio::Sound mic = WithoutGaps(run.output, "microphone");
  const size_t heardLag = FirstSound(heard) - FirstSound(tone), micLag = FirstSound(mic) - FirstSound(tone);
  for (uint32_t c = 0; c < 2; ++c) {
    EXPECT_GT(Correlation(heard, tone, heardLag, c), 0.9999) << "monitor channel " << c;
    EXPECT_GT(Correlation(mic, tone, micLag, c), 0.9999) << "microphone channel " << c;
  }
  std::printf("[ monitor  ] peak %.4f of the file's %.4f; the microphone's %.4f\n", Peak(heard), Peak(tone),
              Peak(run.output));
  EXPECT_NEAR(0.501, Peak(heard) / Peak(tone), 0.005);
  EXPECT_EQ(Peak(tone), Peak(run.output));
}

// With no playback device at all the monitor is off, said in one line, and
// the microphone still gets the sound. Wine's own switch takes its audio
// driver away for the programs started meanwhile, as on a PC whose only
// headset is unplugged.
TEST(Monitor, WithNoPlaybackDeviceTheMicrophonePlaysOn) {
  ScopedRegistryValue noDriver(HKEY_CURRENT_USER, L"Software\\Wine\\Drivers", L"Audio");
  ASSERT_TRUE(noDriver.SetString(L""));
  ASSERT_NE(std::string::npos, RunQuillon(L"devices").text.find("There is no playback device."));
  const audio::Sound tone = LoadSound(Sounds() + L"tone.wav");
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 3", Sounds() + L"tone.wav", L"monitor-none", L"--monitor");
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  EXPECT_NE(std::string::npos, run.playerText.find("monitor: off: there is no playback device; the microphone plays on"))
      << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  const audio::Sound mic = WithoutGaps(run.output, "microphone");
  const size_t lag = FirstSound(mic) - FirstSound(tone);
  for (uint32_t c = 0; c < 2; ++c) EXPECT_GT(Correlation(mic, tone, lag, c), 0.9999) << "channel " << c;
}

// The monitor's device fails, through a seam that fails it on demand, and
// comes back. The microphone never waits: a sound played meanwhile reaches it
// whole. The monitor says it went away, plays again when Windows reports the
// device back, and the sounds started from then on are heard on it.
TEST(Monitor, ComesBackWhenItsDeviceReturns) {
  constexpr const wchar_t* kBackMic = L"{0.0.1.00000000}.{e0a70000-0000-4000-8000-000000000004}";
  DeleteFileW(MonitorFile().c_str());
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + std::wstring(kBackMic) + L" --seconds 6 --out \"" +
                                             Scratch(L"monitor-back.wav") + L"\"");
  ASSERT_TRUE(PollUntil([&] { return SlotOf(kBackMic) >= 0; }));
  auto client = std::make_unique<player::PlayerClient>();
  ASSERT_EQ(player::PlayerStatus::Ok, client->Connect(kBackMic, 20000));

  std::atomic<bool> failing{false};
  std::mutex lock;
  std::string said;
  player::MonitorOutput::Options options;
  options.fault = [&] { return failing.load() ? AUDCLNT_E_DEVICE_INVALIDATED : S_OK; };
  player::PlaybackDevice device;
  std::string error;
  ASSERT_TRUE(player::ChoosePlaybackDevice(L"", device, error)) << error;
  auto monitor = player::MonitorOutput::Open(device, options, [&](const std::string& line) {
    std::lock_guard<std::mutex> hold(lock);
    said += line + "\n";
  }, error);
  ASSERT_TRUE(monitor) << error;
  player::MonitorOutput& heard = *monitor;
  const auto saidText = [&] {
    std::lock_guard<std::mutex> hold(lock);
    return said;
  };
  {
    player::PlayerEngine engine(std::move(client), {}, nullptr);
    engine.AddMonitor(std::move(monitor));
    failing = true;
    ASSERT_TRUE(PollUntil([&] { return !heard.Running(); }));
    // The line comes from the monitor's thread just after its stream ended.
    EXPECT_TRUE(PollUntil([&] { return saidText().find(" went away; the microphone plays on") != std::string::npos; }))
        << saidText();
    engine.Start({{Sounds() + L"tone.wav"}});
    EXPECT_EQ(player::PlayerStatus::Ok, engine.WaitIdle(nullptr));

    failing = false;
    heard.DevicesChanged();
    ASSERT_TRUE(PollUntil([&] { return heard.Running(); }));
    EXPECT_TRUE(PollUntil([&] { return saidText().find(" again") != std::string::npos; })) << saidText();
    engine.Start({{Sounds() + L"stays.wav"}});
    EXPECT_EQ(player::PlayerStatus::Ok, engine.WaitIdle(nullptr));
  }
  ASSERT_EQ(0, host.Wait(60000));
  // The microphone got the first sound while the monitor was off...
  const audio::Sound tone = LoadSound(Sounds() + L"tone.wav"), stays = LoadSound(Sounds() + L"stays.wav");
  const audio::Sound mic = WithoutGaps(LoadSound(Scratch(L"monitor-back.wav")), "microphone");
  const size_t micLag = FirstSound(mic) - FirstSound(tone);
  for (uint32_t c = 0; c < 2; ++c) EXPECT_GT(Correlation(mic, tone, micLag, c), 0.9999) << "microphone channel " << c;
  // ...and the stream opened anew (its file written afresh) carries the second.
  const audio::Sound monitored = ReadMonitor();
  ASSERT_EQ(2u, monitored.channels);
  const size_t lag = FirstSound(monitored) - FirstSound(stays);
  for (uint32_t c = 0; c < 2; ++c) EXPECT_GT(Correlation(monitored, stays, lag, c), 0.9999) << "monitor channel " << c;
}

}  // namespace
}  // namespace quillon::test
