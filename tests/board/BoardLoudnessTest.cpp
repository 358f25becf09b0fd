// The board's sounds at one loudness, in a real window: measured in the
// background into the board file, trusted while the file is the same and
// measured again when it changed, shown in the sound's editor, played evened
// out into quillon-host's microphone, and heard before they are saved
// through Preview on the hear-what-you-play device.
#include "board/BoardResources.h"
#include "support/BoardDriver.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <fstream>

namespace quillon::test {
namespace {

// The board file's sounds, as JSON. The board replaces its file as it saves
// (a whole new file moved over the old one), and an open that meets the
// move fails and reads nothing: such a read is made again, for up to 5 s.
nlohmann::json SoundsIn(const std::wstring& boardFile) {
  nlohmann::json file;
  PollUntil([&] {
    file = nlohmann::json::parse(ReadText(boardFile), nullptr, false);
    return !file.is_discarded();
  }, 5000);
  EXPECT_FALSE(file.is_discarded()) << "the board file stayed unreadable";
  return file.is_discarded() ? nlohmann::json::array() : file["pages"][0]["sounds"];
}

bool EndsWith(const std::wstring& text, const std::wstring& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool AllMeasured(const std::wstring& boardFile, size_t count) {
  const nlohmann::json sounds = SoundsIn(boardFile);
  if (sounds.size() != count) return false;
  for (const auto& sound : sounds) {
    if (!sound.contains("loudness")) return false;
  }
  return true;
}

// `quillon loudness --json` of one file: its integrated loudness.
double LufsOf(const std::wstring& file) {
  const CommandResult run = RunQuillon(L"loudness --json \"" + file + L"\"");
  const size_t at = run.text.find('{');
  const nlohmann::json out = nlohmann::json::parse(at == std::string::npos ? "" : run.text.substr(at), nullptr, false);
  if (out.is_discarded() || out["files"].empty() || !out["files"][0]["lufs"].is_number()) {
    ADD_FAILURE() << run.text;
    return NAN;
  }
  return out["files"][0]["lufs"].get<double>();
}

// The file's size and last-write time, as the board file keeps them.
std::pair<uint64_t, int64_t> StampOf(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  EXPECT_TRUE(GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data));
  return {(static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow,
          static_cast<int64_t>((static_cast<uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32) |
                               data.ftLastWriteTime.dwLowDateTime)};
}

// `frames` of `out` from its next sound after `from` (which moves past them).
audio::Sound NextSound(const audio::Sound& out, size_t& from, size_t frames) {
  audio::Sound part{out.rate, out.channels, {}};
  const size_t total = out.samples.size() / out.channels;
  while (from < total && SilentFrame(out, from)) ++from;
  const size_t end = std::min(total, from + frames);
  part.samples.assign(out.samples.begin() + static_cast<ptrdiff_t>(from * out.channels),
                      out.samples.begin() + static_cast<ptrdiff_t>(end * out.channels));
  from = end;
  return part;
}

// Opens the first sound's editor, types 500 to 1200 ms and presses Preview;
// the editor, or null when it did not open.
HWND PreviewPart(const BoardProcess& board) {
  const HWND editor = OpenDialog(board.Window(), board::kEditSound, L"Edit sound");
  if (editor == nullptr) return nullptr;
  SetDlgItemTextW(editor, IDC_SOUND_START, L"500");
  SetDlgItemTextW(editor, IDC_SOUND_END, L"1200");
  PostMessageW(editor, WM_COMMAND, MAKEWPARAM(IDC_SOUND_PREVIEW, BN_CLICKED),
               reinterpret_cast<LPARAM>(GetDlgItem(editor, IDC_SOUND_PREVIEW)));
  return editor;
}

// Two tones 15 dB apart, evened out to -16 LUFS: each reaches the
// microphone within 0.5 LU of it (measured by `quillon loudness` on what
// quillon-host's effect got), after the board measured both in the background.
TEST(BoardLoudness, SoundsFifteenDecibelsApartReachTheMicrophoneAtTheTarget) {
  const std::wstring file =
      MakeBoardFile(L"board-even", {{Sounds() + L"loud.wav", "Ctrl+Alt+1"}, {Sounds() + L"quiet.wav", "Ctrl+Alt+2"}},
                    "Ctrl+Alt+0", kMic, [](board::Settings& s) { s.evenLoudness = true; });
  BoardProcess board(file, L"board-even");
  ASSERT_TRUE(board.Open());
  ASSERT_TRUE(PollUntil([&] { return AllMeasured(file, 2); }, 30000)) << ReadText(file);
  MicHost host(L"board-even", 9);
  ASSERT_TRUE(host.Ready()) << host.Report();
  PressKeys("Ctrl+Alt+1");
  ASSERT_TRUE(PollUntil([&] { return board.ShowsButton(L"loud (playing)"); })) << Utf8(board.Status());
  ASSERT_TRUE(PollUntil([&] { return board.ShowsButton(L"loud"); }, 10000));
  PressKeys("Ctrl+Alt+2");
  ASSERT_TRUE(PollUntil([&] { return board.ShowsButton(L"quiet (playing)"); })) << Utf8(board.Status());
  ASSERT_EQ(0, host.process.Wait(30000)) << host.Report();
  EXPECT_EQ(0, board.Quit());
  const audio::Sound out = host.Output();
  size_t at = 0;
  for (const wchar_t* name : {L"loud", L"quiet"}) {
    // Each tone is 3 s long; the second may follow the first without a gap.
    const audio::Sound part = NextSound(out, at, 3 * out.rate);
    ASSERT_EQ(part.samples.size(), 3u * out.rate * out.channels) << Utf8(name) << ": less than 3 s arrived";
    const std::wstring wav = WriteWav(std::wstring(L"board-even-") + name, part);
    const double lufs = LufsOf(wav);
    std::printf("[ evened   ] %-6ls arrived at %.2f LUFS\n", name, lufs);
    EXPECT_NEAR(-16.0, lufs, 0.5) << Utf8(name);
  }
}

// What the board file holds of a file that has not changed is trusted (a
// value the test wrote in stays, and the editor shows it); a file that
// changed is measured again; the editor says what evening out does.
TEST(BoardLoudness, AMeasurementIsKeptWhileItsFileStaysAndTakenAgainWhenItChanges) {
  const std::wstring sound = Scratch(L"board-stamp.wav");
  ASSERT_TRUE(CopyFileW((Sounds() + L"quiet.wav").c_str(), sound.c_str(), FALSE));
  const std::wstring file = MakeBoardFile(L"board-stamp", {{sound, "Ctrl+Alt+1"}}, "Ctrl+Alt+0", kMic,
                                          [](board::Settings& s) { s.evenLoudness = true; });
  {
    // Measured before, at -30 LUFS: written with the file's own stamp.
    nlohmann::json json = nlohmann::json::parse(ReadText(file));
    const auto [size, modified] = StampOf(sound);
    json["pages"][0]["sounds"][0]["loudness"] = {{"lufs", -30.0}, {"truePeak", -20.0}, {"size", size}, {"modified", modified}};
    std::ofstream(file, std::ios::binary) << json.dump(2);
  }
  BoardProcess board(file, L"board-stamp");
  ASSERT_TRUE(board.Open());
  HWND editor = OpenDialog(board.Window(), board::kEditSound, L"Edit sound");
  ASSERT_NE(nullptr, editor);
  EXPECT_EQ(L"Loudness -30.0 LUFS, true peak -20.0 dBTP. Even loudness: +14.0 dB brings it to -16 LUFS.",
            TextOf(GetDlgItem(editor, IDC_SOUND_LOUDNESS)));
  PostMessageW(editor, WM_COMMAND, IDCANCEL, 0);
  ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));
  EXPECT_EQ(-30.0, SoundsIn(file)[0]["loudness"]["lufs"].get<double>());

  // The file changes while the board runs; coming back to the window looks again.
  ASSERT_TRUE(CopyFileW((Sounds() + L"peaky.wav").c_str(), sound.c_str(), FALSE));
  SetForegroundWindow(GetDesktopWindow());
  PostMessageW(board.Window(), WM_ACTIVATE, WA_ACTIVE, 0);
  ASSERT_TRUE(PollUntil([&] {
    const nlohmann::json sounds = SoundsIn(file);
    return sounds.size() == 1 && sounds[0].contains("loudness") && sounds[0]["loudness"]["lufs"] != -30.0;
  }, 30000)) << ReadText(file);
  const nlohmann::json measured = SoundsIn(file)[0]["loudness"];
  ASSERT_TRUE(measured.is_object()) << ReadText(file);
  const auto [size, modified] = StampOf(sound);
  EXPECT_EQ(size, measured["size"].get<uint64_t>());
  EXPECT_EQ(modified, measured["modified"].get<int64_t>());
  EXPECT_NEAR(LufsOf(sound), measured["lufs"].get<double>(), 0.01);
  // Its true peak (+0.9 dBTP) holds it under the target: the editor says so.
  editor = OpenDialog(board.Window(), board::kEditSound, L"Edit sound");
  ASSERT_NE(nullptr, editor);
  const std::wstring said = TextOf(GetDlgItem(editor, IDC_SOUND_LOUDNESS));
  Screenshot(editor, Scratch(L"board-loudness-editor.bmp"));
  EXPECT_NE(std::wstring::npos, said.find(L", short of -16 LUFS, keeps its true peak at -1 dBTP.")) << Utf8(said);
  PostMessageW(editor, WM_COMMAND, IDCANCEL, 0);
  ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));
  EXPECT_EQ(0, board.Quit());
}

// Two hundred files added at once are measured on the meter's threads: the
// window answers all along, the status bar counts them, and each sound's
// measurement is in the board file at the end.
TEST(BoardLoudness, TwoHundredSoundsAreMeasuredWhileTheWindowAnswers) {
  constexpr int kSounds = 200;
  std::vector<std::pair<std::wstring, const char*>> sounds;
  for (int i = 0; i < kSounds; ++i) {
    const std::wstring copy = Scratch(L"board-many-" + std::to_wstring(i) + L".wav");
    ASSERT_TRUE(CopyFileW((Sounds() + (i % 2 ? L"loud.wav" : L"tone.wav")).c_str(), copy.c_str(), FALSE));
    sounds.push_back({copy, nullptr});
  }
  const std::wstring file = MakeBoardFile(L"board-many", sounds, "Ctrl+Alt+0", kMic,
                                          [](board::Settings& s) { s.evenLoudness = true; });
  BoardProcess board(file, L"board-many");
  ASSERT_TRUE(board.Open());
  DWORD slowest = 0;
  const bool measured = PollUntil([&] {
    const DWORD before = GetTickCount();
    DWORD_PTR ignored = 0;
    EXPECT_TRUE(SendMessageTimeoutW(board.Window(), WM_NULL, 0, 0, SMTO_ABORTIFHUNG, 5000, &ignored));
    slowest = std::max(slowest, GetTickCount() - before);
    return EndsWith(board.Status(), L"Measured the loudness of 200 sounds.");
  }, 120000);
  std::printf("[ measured ] 200 sounds; the window's slowest answer meanwhile %lu ms\n", slowest);
  ASSERT_TRUE(measured) << Utf8(board.Status());
  // Written just after the last measurement came in.
  EXPECT_TRUE(PollUntil([&] { return AllMeasured(file, kSounds); }, 5000));
  EXPECT_EQ(0, board.Quit());
}

// Preview, with hear-what-you-play on, plays the part typed in the editor
// (before OK) on that device: what the device got is sox's cut of the same
// part, and the microphone is left alone.
TEST(BoardLoudness, PreviewPlaysTheTypedPartOnTheHearWhatYouPlayDevice) {
  const std::wstring monitor = ExecutableFolder() + L"..\\monitor.wav";
  DeleteFileW(monitor.c_str());
  const std::wstring file =
      MakeBoardFile(L"board-preview", {{Sounds() + L"trim-source.wav", "Ctrl+Alt+1"}}, "Ctrl+Alt+0", kMic,
                    [](board::Settings& s) {
                      s.monitor = true;
                      s.monitorDevice = "OUT:";
                      s.monitorVolumeDb = 0;
                    });
  BoardProcess board(file, L"board-preview");
  ASSERT_TRUE(board.Open());
  const HWND editor = PreviewPart(board);
  ASSERT_NE(nullptr, editor);
  const audio::Sound ref = LoadSound(Sounds() + L"trim-ref.wav");
  const size_t refFrames = ref.samples.size() / ref.channels;
  // The device's file grows as it plays; the preview ends with the editor.
  const auto heard = [&] {
    const std::string bytes = ReadText(monitor);
    const size_t data = bytes.find("data");
    audio::Sound sound{48000, 2, {}};
    if (data == std::string::npos) return sound;
    sound.samples.resize((bytes.size() - data - 8) / 4);
    std::memcpy(sound.samples.data(), bytes.data() + data + 8, sound.samples.size() * 4);
    return sound;
  };
  EXPECT_TRUE(PollUntil([&] {
    const audio::Sound h = heard();
    return !h.samples.empty() && LastSound(h, 1e-4f) > FirstSound(h, 1e-4f) + refFrames - 480;
  }, 10000));
  PostMessageW(editor, WM_COMMAND, IDCANCEL, 0);
  ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));
  EXPECT_EQ(0, board.Quit());
  const audio::Sound h = heard();
  ASSERT_FALSE(h.samples.empty()) << "nothing was played on the device";
  const size_t first = FirstSound(h, 1e-4f), span = LastSound(h, 1e-4f) - first;
  EXPECT_NEAR(static_cast<double>(refFrames), static_cast<double>(span), 480.0) << span << " frames heard";
  // Fades of 5 ms aside, the same samples (where the fade-in crosses the
  // floor is not where the part starts: the best lag near it is taken).
  const size_t fade = 240;
  audio::Sound inner{48000, 2, {ref.samples.begin() + fade * 2, ref.samples.end() - fade * 2}};
  size_t lag = first;
  for (size_t l = first; l < first + 2 * fade; ++l) {
    if (Correlation(h, inner, l, 0, 4800) > Correlation(h, inner, lag, 0, 4800)) lag = l;
  }
  for (uint32_t c = 0; c < 2; ++c) EXPECT_GT(Correlation(h, inner, lag, c), 0.999) << "channel " << c;
  // Nothing saved: Cancel keeps the whole file.
  EXPECT_EQ(0u, LoadBoard(file).board.Pages()[0].sounds[0].startMs);
}

// A sound added to the running board (from a second start's command line)
// is measured into the board file; with hear-what-you-play off, Preview plays
// the typed part into the microphone.
TEST(BoardLoudness, AnAddedSoundIsMeasuredAndItsPreviewGoesIntoTheMicrophone) {
  const std::wstring file = MakeBoardFile(L"board-preview-mic", {}, "Ctrl+Alt+0");
  BoardProcess board(file, L"board-preview-mic");
  ASSERT_TRUE(board.Open());
  ChildProcess second(L"quillon-board.exe", L"--board \"" + file + L"\" \"" + Sounds() + L"trim-source.wav\"");
  EXPECT_EQ(0, second.Wait(20000));
  ASSERT_TRUE(PollUntil([&] { return AllMeasured(file, 1); }, 30000)) << ReadText(file);
  EXPECT_NEAR(LufsOf(Sounds() + L"trim-source.wav"), SoundsIn(file)[0]["loudness"]["lufs"].get<double>(), 0.01);

  MicHost host(L"board-preview-mic", 4);
  ASSERT_TRUE(host.Ready()) << host.Report();
  const HWND editor = PreviewPart(board);
  ASSERT_NE(nullptr, editor);
  ASSERT_EQ(0, host.process.Wait(20000)) << host.Report();
  PostMessageW(editor, WM_COMMAND, IDCANCEL, 0);
  ASSERT_TRUE(PollUntil([&] { return FindWindowW(nullptr, L"Edit sound") == nullptr; }));
  EXPECT_EQ(0, board.Quit());
  const audio::Sound out = host.Output(), ref = LoadSound(Sounds() + L"trim-ref.wav");
  const size_t span = LastSound(out, 1e-4f) - FirstSound(out, 1e-4f), refSpan = ref.samples.size() / ref.channels;
  EXPECT_NEAR(static_cast<double>(refSpan), static_cast<double>(span), kPeriodFrames) << span << " frames played";
}

}  // namespace
}  // namespace quillon::test
