// The quillon command's other jobs, run as a user runs them: refusals, the
// choice of microphone, settings in the real registry, the real log file,
// the list of running instances, help.
#include "diag/Logger.h"
#include "support/EffectHarness.h"
#include "support/EndpointFixtures.h"
#include "support/QuillonDll.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"
#include "common/ToolSupport.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quillon::test {
namespace {

constexpr const wchar_t* kGuidA = L"{c0a70000-0000-4000-8000-00000000000a}";
constexpr const wchar_t* kGuidB = L"{c0a70000-0000-4000-8000-00000000000b}";
const std::wstring kMicA = std::wstring(L"{0.0.1.00000000}.") + kGuidA;
const std::wstring kMicB = std::wstring(L"{0.0.1.00000000}.") + kGuidB;

std::wstring Sound(const wchar_t* name) { return L"\"" + Sounds() + name + L"\""; }
bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Every setting the command writes, and the names of the microphones,
// removed before and after each test.
class Command : public ::testing::Test {
 protected:
  void SetUp() override { TearDown(); }
  void TearDown() override {
    for (auto value : {kBlockVoiceValue, kLogLevelValue}) RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSettingsKey, value);
    DeleteKeys({GainKey(kMicA), GainKey(kMicB), kCapture + kGuidA, kCapture + kGuidB});
  }

  // Two running instances whose microphones Windows names: A "Headset
  // Microphone (USB Audio)", B "Microphone Array (Realtek Audio)".
  void StartTwo() {
    Seed("named-pair");
    for (const std::wstring* mic : {&kMicA, &kMicB}) {
      effects_.push_back(EffectHarness::Started(mic->c_str(), 2, 480, dll_.CreateEffect()));
    }
  }

  QuillonDll dll_;
  std::vector<std::unique_ptr<EffectHarness>> effects_;
};

// What the command answers with no instance running. A refusal (`refuses`)
// is one line naming the file or value, and nothing is written (nor sent).
struct Answer {
  const char* name;
  std::wstring args;
  long exit;
  const char* says;
  bool refuses = true;
};

class Answers : public Command, public ::testing::WithParamInterface<Answer> {};

TEST_P(Answers, ExitCodeAndText) {
  const CommandResult r = RunQuillon(GetParam().args);
  EXPECT_EQ(GetParam().exit, r.exit) << r.text;
  EXPECT_TRUE(Shows(r.text, {GetParam().says}));
  if (!GetParam().refuses) return;
  EXPECT_EQ(0, r.text.rfind("quillon: ", 0)) << r.text;
  EXPECT_EQ(1, std::count(r.text.begin(), r.text.end(), '\n')) << r.text;
  for (const wchar_t* name : {kBlockVoiceValue, kLogLevelValue}) EXPECT_FALSE(RegHas(kSettingsKey, name)) << name;
  EXPECT_FALSE(RegHas(GainKey(kMicA), kMicGainValue));
}

INSTANTIATE_TEST_SUITE_P(Command, Answers, ::testing::Values(
    Answer{"MissingFile", L"play " + Sound(L"absent.wav"), 1, "absent.wav: no such file"},
    Answer{"NotSound", L"play " + Sound(L"not-a-wav.wav"), 1, "not-a-wav.wav: holds no sound that can be read"},
    Answer{"NoiseNamedMp3", L"play " + Sound(L"noise.mp3"), 1, "noise.mp3: holds no sound that can be read"},
    Answer{"TruncatedWav", L"play " + Sound(L"tone.wav") + L" " + Sound(L"truncated.wav"), 1,
           "truncated.wav: truncated"},
    Answer{"TruncatedFlac", L"play " + Sound(L"truncated.flac"), 1, "truncated.flac: truncated"},
    Answer{"CorruptHeader", L"play " + Sound(L"bad-header.wav"), 1, "bad-header.wav: "},
    Answer{"ZeroLength", L"play " + Sound(L"empty.wav"), 1, "empty.wav: holds no sound"},
    Answer{"NoInstance", L"play " + Sound(L"tone.wav"), 1, "no microphone has Quillon running"},
    Answer{"StopNoInstance", L"stop", 1, "no microphone has Quillon running"},
    Answer{"NoFile", L"play", 2, "play needs at least one file"},
    Answer{"VolumeTooHigh", L"play " + Sound(L"tone.wav") + L" --volume 21", 2, "--volume 21"},
    Answer{"BlockTooShort", L"play " + Sound(L"tone.wav") + L" --block-ms 1", 2, "--block-ms 1"},
    Answer{"GainAbove30", L"set gain 31 --mic " + kMicA, 2, "gain 31"},
    Answer{"GainNegative", L"set gain -1 --mic " + kMicA, 2, "gain -1"},
    Answer{"GainNotWhole", L"set gain 3.5 --mic " + kMicA, 2, "gain 3.5"},
    Answer{"GainNoMicrophone", L"set gain 6 --mic nowhere", 1, "\"nowhere\""},
    Answer{"UnknownLevel", L"set log-level loud", 2, "log-level loud"},
    Answer{"BlockVoiceWord", L"set block-voice yes", 2, "block-voice yes"},
    Answer{"OneWrongOfSeveral", L"set gain 6 block-voice yes --mic " + kMicA, 2, "block-voice yes"},
    Answer{"SettingTwice", L"set block-voice on block-voice off", 2, "block-voice is given twice"},
    Answer{"SettingWithoutValue", L"set log-level info gain", 2, "gain : give whole decibels"},
    Answer{"MicWithoutGain", L"set block-voice on --mic " + kMicA, 2, "--mic goes with set gain only"},
    Answer{"UnknownSetting", L"set colour red", 2, "unknown setting colour"},
    Answer{"UnknownCommand", L"frobnicate", 2, "unknown command frobnicate"},
    Answer{"RestartAudioTakesNothing", L"restart-audio now", 2, "restart-audio takes no arguments"},
    // Wine has no audio service to restart.
    Answer{"RestartAudio", L"restart-audio", 0, "no audio service (AudioSrv); nothing to restart\n", false},
    Answer{"UnknownOption", L"play --bogus " + Sound(L"tone.wav"), 2, "unknown option --bogus"},
    Answer{"MissingValue", L"play " + Sound(L"tone.wav") + L" --mic", 2, "--mic needs a value"},
    Answer{"UnknownPttKey", L"play " + Sound(L"tone.wav") + L" --ptt Hyper+Q", 2,
           "--ptt: \"Hyper+Q\" is not a key: \"Hyper\" is not a modifier"},
    Answer{"PttKeyMissing", L"play " + Sound(L"tone.wav") + L" --ptt Ctrl+", 2, "a key must follow the modifiers"},
    Answer{"PttTailNegative", L"play " + Sound(L"tone.wav") + L" --ptt F13 --ptt-tail -5", 2, "--ptt-tail -5"},
    Answer{"EndNotAfterStart", L"play " + Sound(L"tone.wav") + L" --start 800 --end 800", 2,
           "--end 800 is not after --start 800"},
    Answer{"StartNotANumber", L"play " + Sound(L"tone.wav") + L" --start 1s", 2,
           "--start 1s: give milliseconds from the file's start"},
    Answer{"NormalizeOutOfRange", L"play " + Sound(L"tone.wav") + L" --normalize=5", 2,
           "--normalize=5: give LUFS from -70 to 0"},
    Answer{"StartPastTheEnd", L"play " + Sound(L"tone.wav") + L" --start 5000", 1,
           "the start (5000 ms) is at or past the sound's end"},
    // Wine's playback device in this suite (ALSA says on the side that it has no microphone).
    Answer{"Devices", L"devices", 0, "}  Out: default\n", false},
    Answer{"MonitorDeviceByName", L"play " + Sound(L"tone.wav") + L" --monitor=nosuch", 2,
           "quillon: --monitor: no playback device \"nosuch\"; the devices are: Out: default\n", false},
    Answer{"HelpOverview", L"help", 0, "Exit codes: 0 done, 1 failed", false},
    Answer{"NoCommandShowsUsage", L"", 2, "usage: quillon COMMAND", false},
    Answer{"HelpOfACommand", L"help play", 0, "usage: quillon play FILE...", false},
    Answer{"HelpOptionOfACommand", L"set --help", 0, "block-voice on", false},
    Answer{"HelpOfAnUnknownCommand", L"help frob", 2, "unknown command frob", false}),
    CaseName);

// An MP3 with noise over part of its frames passes the check (its length is
// only its tag's word), plays up to the damage and stops there with one line
// that names it; the microphone got what came before.
TEST(PlayDamaged, AGarbledMp3StopsWhereItIsDamaged) {
  const ToolRun run = HostAndPlayer(kMicA, L"--seconds 3", Sounds() + L"garbled.mp3", L"garbled");
  EXPECT_EQ(1, run.playerExit) << run.playerText;
  EXPECT_TRUE(Has(run.playerText, "garbled.mp3: decoding stopped at 0:00: damaged")) << run.playerText;
  size_t errors = 0;
  for (size_t at = run.playerText.find("quillon: "); at != std::string::npos; at = run.playerText.find("quillon: ", at + 1)) {
    ++errors;
  }
  EXPECT_EQ(1u, errors) << run.playerText;
  ASSERT_EQ(0, run.hostExit) << run.hostText;
  EXPECT_GT(Peak(run.output), 0.1f) << "nothing before the damage arrived";
}

// --mic against two running microphones, through `set gain`, which writes
// the chosen microphone's value and nothing when the choice fails.
struct Choice {
  const char* name;
  std::wstring mic;
  const std::wstring* chosen;  // null: refused
  const char* says;
};

class MicChoice : public Command, public ::testing::WithParamInterface<Choice> {};

TEST_P(MicChoice, PicksOneOrListsTheCandidates) {
  StartTwo();
  const Choice& c = GetParam();
  const CommandResult r = RunQuillon(L"set gain 7" + (c.mic.empty() ? L"" : L" --mic \"" + c.mic + L"\""));
  EXPECT_TRUE(Shows(r.text, {c.says}));
  for (const std::wstring* mic : {&kMicA, &kMicB}) {
    EXPECT_EQ(mic == c.chosen ? 7u : 0xDEADu, RegDword(GainKey(*mic), kMicGainValue)) << r.text;
  }
  EXPECT_EQ(c.chosen != nullptr ? 0 : 1, r.exit) << r.text;
  if (c.chosen == nullptr) {  // the candidates, each with its endpoint id
    EXPECT_TRUE(Shows(r.text, {"\n  Headset Microphone (USB Audio) " + tools::Narrow(kMicA),
                               "\n  Microphone Array (Realtek Audio) " + tools::Narrow(kMicB)}));
  }
}

INSTANTIATE_TEST_SUITE_P(Command, MicChoice, ::testing::Values(
    Choice{"PartOfAName", L"headset", &kMicA, "gain of Headset Microphone (USB Audio)"},
    Choice{"EndpointId", kMicB, &kMicB, "set to 7 dB"},
    Choice{"GuidWithoutBraces", L"C0A70000-0000-4000-8000-00000000000A", &kMicA, "set to 7 dB"},
    Choice{"ExactNameOverPart", L"microphone array (realtek audio)", &kMicB, "set to 7 dB"},
    Choice{"NoneNamed", L"", nullptr, "several microphones have Quillon running"},
    Choice{"PartOfBoth", L"MICROPHONE", nullptr, "several microphones match \"MICROPHONE\""},
    Choice{"NoMatch", L"webcam", nullptr, "no microphone matches \"webcam\""}),
    CaseName);

TEST_F(Command, SettingsAreWrittenWhereTheEffectReadsThem) {
  StartTwo();
  EXPECT_TRUE(Exits(0, L"settings", {"block voice  off (default)\n", "log level    error (default)\n",
                                        "gain         0 dB (default)   Headset Microphone (USB Audio)"}));

  ASSERT_TRUE(Exits(0, L"set block-voice on log-level WARN"));
  ASSERT_TRUE(Exits(0, L"set gain 12 --mic headset", {"gain of Headset Microphone (USB Audio)"}));
  EXPECT_EQ(1u, RegDword(kSettingsKey, kBlockVoiceValue));
  EXPECT_EQ(kLogLevels[LOG_WARNING].text, RegText(kSettingsKey, kLogLevelValue));

  EXPECT_TRUE(Exits(0, L"settings",
                    {"block voice  on\n", "log level    warn\n",
                     "gain         12 dB            Headset Microphone (USB Audio) " + tools::Narrow(kMicA),
                     "gain         0 dB (default)   Microphone Array"}));

  ASSERT_TRUE(Exits(0, L"set block-voice off"));
  EXPECT_EQ(0u, RegDword(kSettingsKey, kBlockVoiceValue));
}

TEST_F(Command, ListShowsEachInstanceAndWhetherItPlays) {
  EXPECT_TRUE(Has(RunQuillon(L"list").text, "no microphone has Quillon running"));
  StartTwo();
  const int32_t slotA = SlotOf(kMicA), slotB = SlotOf(kMicB);
  // A player connected to A (no period runs, so it waits on its first block).
  QuillonProcess player(L"list-player", L"play --mic headset \"" + Sounds() + L"tone.wav\"");
  std::string text;
  ASSERT_TRUE(PollUntil([&] { return Has(text = RunQuillon(L"list").text, "yes"); })) << text;
  char rowA[96], rowB[96];
  std::snprintf(rowA, sizeof(rowA), "%4d  yes      48000 Hz, 2 channels   Headset Microphone (USB Audio)", slotA);
  std::snprintf(rowB, sizeof(rowB), "%4d  no       48000 Hz, 2 channels   Microphone Array (Realtek Audio)", slotB);
  EXPECT_TRUE(Shows(text, {rowA, rowB, tools::Narrow(kMicA)}));
  ASSERT_TRUE(player.process.Interrupt(CTRL_C_EVENT));
  EXPECT_EQ(130, player.process.Wait());
  EXPECT_TRUE(Has(RunQuillon(L"list").text, rowB));
  EXPECT_FALSE(Has(RunQuillon(L"list").text, "yes"));
}

// quillon-host --name gives its endpoint the friendly name a real microphone
// has, which quillon list shows; the name goes with the host.
TEST_F(Command, TheHostNamesItsEndpointForItsRun) {
  const std::wstring endpoint = L"{0.0.1.00000000}.{host-named-mic}";
  const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\{host-named-mic}";
  ChildProcess host(L"quillon-host.exe", L"--endpoint " + endpoint + L" --seconds 2 --name \"Studio Mic (Demo)\" --out \"" +
                                             Scratch(L"named-host.wav") + L"\"");
  ASSERT_TRUE(PollUntil([&] { return SlotOf(endpoint) >= 0; }));
  EXPECT_TRUE(Has(RunQuillon(L"list").text, "Studio Mic (Demo)"));
  ASSERT_EQ(0, host.Wait(60000));
  HKEY gone = nullptr;
  EXPECT_NE(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &gone)) << "the name stayed";
  if (gone != nullptr) RegCloseKey(gone);
}

// The log as the effect's processes write it (through the logger of a second process).
TEST_F(Command, LogPrintsTheLastLinesAndFollows) {
  DeleteLog();
  DeleteFileW((kLogPath + L"-old").c_str());
  EXPECT_TRUE(Exits(1, L"log", {"no log file"}));

  ASSERT_EQ(0, ChildProcess(L"quillon_log_helper.exe", L"write early 4").Wait());
  // What the logger does when the file grows too large.
  ASSERT_TRUE(MoveFileExW(kLogPath.c_str(), (kLogPath + L"-old").c_str(), MOVEFILE_REPLACE_EXISTING));
  ASSERT_EQ(0, ChildProcess(L"quillon_log_helper.exe", L"write late 3").Wait());
  const CommandResult r = RunQuillon(L"log --lines 5");
  EXPECT_EQ(0, r.exit);
  ASSERT_EQ(5, std::count(r.text.begin(), r.text.end(), '\n')) << r.text;
  const size_t a = r.text.find("early line 2 "), b = r.text.find("early line 3 "), c = r.text.find("late line 2 ");
  EXPECT_TRUE(a < b && b < c && c != std::string::npos) << "oldest first:\n" << r.text;
  const std::string all = RunQuillon(L"log --lines 0").text;
  EXPECT_EQ(7, std::count(all.begin(), all.end(), '\n')) << all;

  QuillonProcess follow(L"log-follow", L"log --follow --lines 1");
  ASSERT_TRUE(PollUntil([&] { return Has(follow.Text(), "late line 2 "); }));
  ASSERT_EQ(0, ChildProcess(L"quillon_log_helper.exe", L"write followed 2").Wait());
  EXPECT_TRUE(PollUntil([&] { return Has(follow.Text(), "followed line 1 "); })) << follow.Text();
  ASSERT_TRUE(follow.process.Interrupt(CTRL_C_EVENT));
  EXPECT_EQ(130, follow.process.Wait());
  DeleteFileW((kLogPath + L"-old").c_str());
}

}  // namespace
}  // namespace quillon::test
