// What the player hears: `quillon play --monitor` renders the mix to Wine's
// playback device, which the suite's ALSA configuration turns into a WAV file
// in the build folder, while the microphone's effect runs in quillon-host.
#include "support/QuillonRun.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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
  const size_t heardLag = FirstSound(heard) - FirstSound(tone), micLag = FirstSound(run.output) - FirstSound(tone);
  for (uint32_t c = 0; c < 2; ++c) {
    EXPECT_GT(Correlation(heard, tone, heardLag, c), 0.9999) << "monitor channel " << c;
    EXPECT_GT(Correlation(run.output, tone, micLag, c), 0.9999) << "microphone channel " << c;
  }
  std::printf("[ monitor  ] peak %.4f of the file's %.4f; the microphone's %.4f\n", Peak(heard), Peak(tone),
              Peak(run.output));
  EXPECT_NEAR(0.501, Peak(heard) / Peak(tone), 0.005);
  EXPECT_EQ(Peak(tone), Peak(run.output));
}

}  // namespace
}  // namespace quillon::test
