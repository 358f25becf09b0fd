// Files as people name and keep them, played by `quillon play` into the real
// Quillon.dll in quillon-host: a name in other scripts, a path longer than
// MAX_PATH, and a file that another program renames and deletes while it
// plays. Each time the whole sound must arrive.
#include "common/ToolSupport.h"
#include "support/QuillonRun.h"

#include <windows.h>

#include <functional>

namespace quillon::test {
namespace {

constexpr const wchar_t* kMic = L"{0.0.1.00000000}.{c0a70000-0000-4000-8000-000000000003}";

// The full path of `path`, in the form Windows takes at any length.
std::wstring Extended(const std::wstring& path) {
  wchar_t full[32768];
  const DWORD length = GetFullPathNameW(path.c_str(), 32768, full, nullptr);
  EXPECT_GT(length, 0u);
  return L"\\\\?\\" + std::wstring(full, length);
}

// A copy of the test sound `sound` at `path` (its folders made as needed); `path` as a person writes it.
std::wstring CopySound(const std::wstring& sound, const std::wstring& path) {
  const std::wstring target = Extended(path);
  for (size_t slash = target.find(L'\\', 7); slash != std::wstring::npos; slash = target.find(L'\\', slash + 1)) {
    CreateDirectoryW(target.substr(0, slash).c_str(), nullptr);
  }
  EXPECT_TRUE(CopyFileW(Extended(Sounds() + sound).c_str(), target.c_str(), FALSE)) << GetLastError();
  wchar_t full[32768];
  const DWORD length = GetFullPathNameW(path.c_str(), 32768, full, nullptr);
  return std::wstring(full, length);
}

// Whether `played` carries `sound` whole, sample for sample but for rounding.
void ExpectCarries(const audio::Sound& played, const std::wstring& sound) {
  const audio::Sound out = WithoutGaps(played, "path"), ref = LoadSound(Sounds() + sound);
  const size_t at = FirstSound(out) - FirstSound(ref);
  ASSERT_GE(out.samples.size() / out.channels, at + ref.samples.size() / ref.channels) << "the sound was cut short";
  for (uint32_t c = 0; c < 2; ++c) EXPECT_GT(Correlation(out, ref, at, c), 0.99999) << "channel " << c;
}

struct PathCase {
  const char* name;
  std::function<std::wstring()> make;  // the file to play
};

class PlayPaths : public ::testing::TestWithParam<PathCase> {};

TEST_P(PlayPaths, WholeSoundArrives) {
  const std::wstring file = GetParam().make();
  const std::wstring name = L"path-" + tools::Wide(GetParam().name);
  const ToolRun run = HostAndPlayer(kMic, L"--seconds 3.5", file, name);
  EXPECT_EQ(0, run.playerExit) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  ExpectCarries(run.output, L"tone.wav");
}

INSTANTIATE_TEST_SUITE_P(Play, PlayPaths, ::testing::Values(
    PathCase{"OtherScripts", [] { return CopySound(L"tone.wav", Sounds() + L"\u0437\u0432\u0443\u043a \u97f3.wav"); }},
    PathCase{"LongerThanMaxPath", [] {
      const std::wstring folder = Sounds() + L"long-path\\" + std::wstring(100, L'a') + L"\\" +
                                  std::wstring(100, L'b') + L"\\" + std::wstring(100, L'c') + L"\\";
      const std::wstring file = CopySound(L"tone.wav", folder + L"tone.wav");
      EXPECT_GT(file.size(), 300u);
      return file;
    }}),
    [](const auto& info) { return std::string(info.param.name); });

// Another program renames the playing file, then deletes it: both succeed,
// and the sound plays on to its end.
TEST(PlayPaths, APlayingFileCanBeRenamedAndDeleted) {
  const std::wstring file = CopySound(L"stopped.wav", Sounds() + L"out-renamed-source.wav");
  const std::wstring renamed = Sounds() + L"out-renamed-target.wav";
  DeleteFileW(renamed.c_str());
  ChildProcess host(L"quillon-host.exe",
                    L"--endpoint " + std::wstring(kMic) + L" --seconds 6 --out \"" + Scratch(L"renamed.wav") + L"\"");
  QuillonProcess player(L"renamed-player", L"play --wait 20 --mic " + std::wstring(kMic) + L" \"" + file + L"\"");
  ASSERT_TRUE(PollUntil([&] { return player.Text().find("playing") != std::string::npos; }, 20000)) << player.Text();
  EXPECT_TRUE(MoveFileExW(file.c_str(), renamed.c_str(), 0)) << "rename: error " << GetLastError();
  EXPECT_TRUE(DeleteFileW(renamed.c_str())) << "delete: error " << GetLastError();
  EXPECT_EQ(0, player.process.Wait(60000)) << player.Text();
  ASSERT_EQ(0, host.Wait(60000));
  ExpectCarries(LoadSound(Scratch(L"renamed.wav")), L"stopped.wav");
}

}  // namespace
}  // namespace quillon::test
