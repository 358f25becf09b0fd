// quillon check and check --fix against registry states seeded the way a
// driver update, a user or a broken install leaves them, with quillon-host
// standing in for the audio engine where the effect must be seen running.
// (Wine keeps no access list on a file, so which accounts may load the DLL
// is tried on security descriptors, in ServiceAccessTest.)
#include "common/ToolSupport.h"
#include "support/EffectHarness.h"
#include "support/EndpointFixtures.h"
#include "support/Poll.h"
#include "support/QuillonDll.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>

namespace quillon::test {
namespace {

constexpr const wchar_t* kStream = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5";
constexpr const wchar_t* kModes = L"{d3993a3f-99c2-4402-b5ec-a92a0367664b},5";
constexpr const wchar_t* kEffectsOff = L"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5";
const wchar_t* const kStreamMic = kFixtureGuids[0];
const wchar_t* const kPlainMic = kFixtureGuids[2];
const wchar_t* const kCompositeMic = kFixtureGuids[3];

std::wstring FxKey(const std::wstring& guid) { return kCapture + guid + L"\\FxProperties"; }
std::wstring BackupKey(const std::wstring& guid) { return EndpointSettingsKey(guid) + L"\\Backup"; }
std::wstring ServerKey() { return kQuillonClassKey + L"\\InprocServer32"; }

long Reg(const std::wstring& args) { return RunReg(args); }

// Wine's device enumerator, which the check opens to record from a
// microphone, marks every endpoint its own driver does not report as not
// present, and the seeded ones are such endpoints. They are made active again
// after each check, as they would have stayed on Windows.
void Reactivate() {
  for (const wchar_t* guid : kFixtureGuids) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, (kCapture + guid).c_str(), 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) continue;
    const DWORD active = 1;
    RegSetValueExW(key, L"DeviceState", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&active), sizeof(active));
    RegCloseKey(key);
  }
}

CommandResult RunCheck(const std::wstring& args) {
  CommandResult r = RunQuillon(L"check" + args);
  Reactivate();
  return r;
}

// The problems `quillon check --json` finds, by id, and its exit code.
struct Checked {
  long exit = -1;
  std::vector<std::string> problems;
  nlohmann::json json;
};

Checked Check(const std::wstring& args = L"") {
  const CommandResult r = RunCheck(L" --json" + args);
  Checked checked{r.exit, {}, nlohmann::json::parse(r.text, nullptr, false)};
  if (checked.json.is_discarded()) {
    ADD_FAILURE() << "not JSON:\n" << r.text;
    return checked;
  }
  auto add = [&](const nlohmann::json& findings) {
    for (const nlohmann::json& finding : findings) {
      if (finding["problem"].get<bool>()) checked.problems.push_back(finding["id"].get<std::string>());
    }
  };
  add(checked.json["quillon"]);
  for (const nlohmann::json& mic : checked.json["microphones"]) add(mic["findings"]);
  return checked;
}

bool Has(const std::vector<std::string>& ids, const std::string& id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// Points the registered COM class at `path`.
void RegisterServerAt(const std::wstring& path) {
  ASSERT_EQ(0, Reg(L"add \"HKLM\\" + ServerKey() + L"\" /ve /t REG_SZ /d \"" + path + L"\" /f"));
}

// A copy of Quillon.dll whose version information says 9.9.9.
void BumpVersion(std::string& bytes) {
  const std::string signature("\xBD\x04\xEF\xFE", 4);
  const size_t at = bytes.find(signature);
  ASSERT_NE(std::string::npos, at);
  VS_FIXEDFILEINFO* info = reinterpret_cast<VS_FIXEDFILEINFO*>(bytes.data() + at);
  info->dwFileVersionMS = MAKELONG(9, 9);
  info->dwFileVersionLS = MAKELONG(0, 9);
}

// The Windows quillon.exe believes it runs on, as Wine lets a program be told.
constexpr const wchar_t* kAppDefaults = L"Software\\Wine\\AppDefaults\\quillon.exe";
void AnswerAsWindows(const wchar_t* version) {
  ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_CURRENT_USER, kAppDefaults, L"Version", REG_SZ, version,
                                           static_cast<DWORD>((wcslen(version) + 1) * sizeof(wchar_t))));
}

// Every check runs as on Windows 7 (build 7601), where protected audio is on,
// unless a case says otherwise.
class CheckTest : public EndpointTest {
 protected:
  void SetUp() override { AnswerAsWindows(L"win7"); }
  void TearDown() override {
    RegDeleteTreeW(HKEY_CURRENT_USER, kAppDefaults);
    EndpointTest::TearDown();
    DeleteFileW((ExecutableFolder() + L"checked\\Quillon.dll").c_str());
  }
};

struct State {
  const char* name;
  const char* fixture;
  const wchar_t* guid;
  const wchar_t* attach;  // the attach command run first, or null for none
  std::function<void()> seed;
  const char* problem;     // the finding expected
  bool fixable;
};

void PrintTo(const State& state, std::ostream* out) { *out << state.name; }

class CheckState : public CheckTest, public ::testing::WithParamInterface<State> {};

// Each state is found as the problem it is; --fix makes the fixable ones what
// a fresh attach makes them (the endpoints' effects byte for byte, the class
// registered at the Quillon.dll beside quillon.exe) and leaves the backup as
// it was, and leaves the others as they were.
TEST_P(CheckState, IsFoundAndFixedWhereItCanBe) {
  const State& c = GetParam();
  Seed(c.fixture);
  std::string fresh, backup;
  if (c.attach != nullptr) {
    ASSERT_EQ(0, RunQuillon(c.attach).exit);
    fresh = Export(FxKey(c.guid));
    backup = Export(BackupKey(c.guid));
  }
  if (c.seed) c.seed();
  if (HasFatalFailure()) return;

  const Checked found = Check(L" --mic " + std::wstring(c.guid));
  EXPECT_EQ(1, found.exit);
  EXPECT_TRUE(Has(found.problems, c.problem)) << found.json.dump(2);
  // Where Quillon sits in a slot, the check recorded and saw nothing run it.
  const bool inASlot = c.attach != nullptr && std::string(c.problem) != "replaced";
  EXPECT_EQ(inASlot, Has(found.problems, "not-loaded")) << found.json.dump(2);

  const std::string before = Export(FxKey(c.guid));
  const CommandResult fix = RunCheck(L" --fix --mic " + std::wstring(c.guid));
  const Checked after = Check(L" --mic " + std::wstring(c.guid));
  if (!c.fixable) {
    EXPECT_TRUE(Has(after.problems, c.problem)) << fix.text;
    EXPECT_EQ(before, Export(FxKey(c.guid))) << fix.text;
    return;
  }
  EXPECT_TRUE(Shows(fix.text, {"fixed: restart the audio service"})) << fix.text;
  EXPECT_FALSE(Has(after.problems, c.problem)) << fix.text << after.json.dump(2);
  EXPECT_EQ(std::vector<std::string>{"not-loaded"}, after.problems) << after.json.dump(2);
  EXPECT_EQ(QuillonDllPath(), RegText(ServerKey(), L""));
  if (c.attach != nullptr) {
    EXPECT_EQ(fresh, Export(FxKey(c.guid))) << fix.text;
    if (std::string(c.problem) != "replaced") EXPECT_EQ(backup, Export(BackupKey(c.guid)));
  } else {
    EXPECT_EQ(kQuillonClsidText, RegText(FxKey(c.guid), kStream));
  }
}

INSTANTIATE_TEST_SUITE_P(Table, CheckState, ::testing::Values(
    State{"NotRegistered", "stream-only", kStreamMic, nullptr, nullptr, "not-registered", true},
    State{"NotAttached", "stream-only", kStreamMic, nullptr, [] { ASSERT_EQ(0, RunQuillon(L"register").exit); },
          "not-attached", true},
    State{"DllMissing", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] { RegisterServerAt(L"C:\\nowhere\\Quillon.dll"); }, "dll-missing", true},
    State{"DllOfAnotherMachine", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] { RegisterServerAt(ChangedDllCopy(ExecutableFolder() + L"checked\\", FlipMachine)); }, "dll-machine",
          true},
    State{"DllOfAnotherVersion", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] { RegisterServerAt(ChangedDllCopy(ExecutableFolder() + L"checked\\", BumpVersion)); }, "dll-version",
          true},
    State{"WithoutTheModeList", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] { ASSERT_EQ(0, Reg(L"delete \"HKLM\\" + FxKey(kPlainMic) + L"\" /v \"" + kModes + L"\" /f")); },
          "no-default-mode", true},
    State{"EnhancementsOff", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] {
            ASSERT_EQ(0, Reg(L"add \"HKLM\\" + FxKey(kPlainMic) + L"\" /v \"" + kEffectsOff +
                             L"\" /t REG_DWORD /d 1 /f"));
          },
          "enhancements-off", true},
    State{"CompositeList", "composite", kCompositeMic, L"attach composite --force --no-restart", nullptr, "composite",
          false},
    State{"ReplacedByADriver", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] {
            ASSERT_EQ(0, Reg(L"add \"HKLM\\" + FxKey(kPlainMic) + L"\" /v \"" + kStream +
                             L"\" /t REG_SZ /d {99999999-8888-7777-6666-555555555555} /f"));
          },
          "replaced", true},
    State{"ProtectedAudioOn", "no-effects", kPlainMic, L"attach \"plain mic\" --no-restart",
          [] { RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kProtectedAudioKey, kProtectedAudioValue); }, "protected-audio",
          true}),
    CaseName);

// The effect running for the microphone in quillon-host, created through COM
// as the audio engine creates it, is found and named; the check exits 0. Once
// the host has ended, the check records for 3 s in vain and names the causes.
TEST_F(CheckTest, FindsTheEffectRunningAndSaysWhyWhenItIsNot) {
  Seed("no-effects");
  ASSERT_EQ(0, RunQuillon(L"attach \"plain mic\" --no-restart").exit);
  {
    ChildProcess host(L"quillon-host.exe", L"--com --endpoint " + std::wstring(kPlainMic) +
                                               L" --seconds 60 --out \"" + Scratch(L"check-host.wav") + L"\"");
    ASSERT_TRUE(PollUntil([] { return SlotOf(kPlainMic) >= 0; }));
    const CommandResult r = RunCheck(L"");
    EXPECT_EQ(0, r.exit) << r.text;
    EXPECT_TRUE(Shows(r.text, {"Plain Mic " + tools::Narrow(kPlainMic),
                               "ok       the audio engine loaded Quillon for this microphone (instance " +
                                   std::to_string(SlotOf(kPlainMic)) + ", 48000 Hz, 2 channels)\n",
                               "Quillon is ready on Plain Mic.\n"}))
        << r.text;
    ASSERT_TRUE(host.Interrupt());
    EXPECT_EQ(130, host.Wait(60000));
  }
  const CommandResult r = RunCheck(L"");
  EXPECT_EQ(1, r.exit) << r.text;
  EXPECT_TRUE(Shows(r.text, {"PROBLEM  the audio engine did not load Quillon for this microphone",
                             "likeliest causes: ", "exclusive mode or as a raw stream bypass effects",
                             "Quillon does not run on Plain Mic: "}))
      << r.text;
}

// A fix whose second step fails (the backup's folder is a file) undoes the
// first (the registration): the registry is as it was, and the step is named.
TEST_F(CheckTest, AFixThatFailsChangesNothingAndSaysWhere) {
  Seed("stream-only");
  const std::wstring folder = kBackupFolder.substr(0, kBackupFolder.size() - 1);
  const std::wstring aside = folder + L".aside";
  MoveFileW(folder.c_str(), aside.c_str());
  std::ofstream(folder.c_str()) << "a file where the backup folder goes";
  const std::string devices = Export(FxKey(kStreamMic)), settings = Export(kSettingsKey);
  const CommandResult r = RunCheck(L" --fix --mic \"stream mic\"");
  DeleteFileW(folder.c_str());
  MoveFileW(aside.c_str(), folder.c_str());
  EXPECT_EQ(1, r.exit);
  EXPECT_TRUE(Shows(r.text, {"fixed: register ", "quillon: fixing failed at \"attach to Stream Mic " +
                                                     tools::Narrow(kStreamMic) + "\": cannot ",
                             "everything is as it was before"}))
      << r.text;
  EXPECT_EQ(devices, Export(FxKey(kStreamMic)));
  EXPECT_EQ(settings, Export(kSettingsKey));
  EXPECT_FALSE(RegHas(kQuillonClassKey, L""));
  EXPECT_EQ("", Export(kQuillonEngineKey));
}

struct ProtectedCase {
  const char* name;
  const wchar_t* windows;      // the Windows quillon.exe is told it runs on
  bool setByUser;              // DisableProtectedAudioDG is 1 before attach
  bool onWhileAttached;        // it is 1 while attached
  bool afterDetach;            // it is still 1 after detach
};

void PrintTo(const ProtectedCase& c, std::ostream* out) { *out << c.name; }

class ProtectedAudio : public CheckTest, public ::testing::WithParamInterface<ProtectedCase> {};

// Attach turns protected audio off only where Windows needs it, detach turns
// it back on only when attach was the one to turn it off.
TEST_P(ProtectedAudio, IsTurnedOffOnlyWhereNeededAndBackOnlyByWhoTurnedItOff) {
  const ProtectedCase& c = GetParam();
  AnswerAsWindows(c.windows);
  if (c.setByUser) {
    ASSERT_EQ(0, Reg(L"add \"HKLM\\" + std::wstring(kProtectedAudioKey) + L"\" /v " + kProtectedAudioValue +
                     L" /t REG_DWORD /d 1 /f"));
  }
  Seed("no-effects");
  const CommandResult attach = RunQuillon(L"attach \"plain mic\"");
  ASSERT_EQ(0, attach.exit) << attach.text;
  EXPECT_EQ(c.onWhileAttached, RegDword(kProtectedAudioKey, kProtectedAudioValue) == 1) << attach.text;
  const Checked checked = Check();
  EXPECT_FALSE(Has(checked.problems, "protected-audio")) << checked.json.dump(2);
  ASSERT_EQ(0, RunQuillon(L"detach \"plain mic\"").exit);
  EXPECT_EQ(c.afterDetach, RegHas(kProtectedAudioKey, kProtectedAudioValue));
}

INSTANTIATE_TEST_SUITE_P(Table, ProtectedAudio, ::testing::Values(
    ProtectedCase{"Windows7", L"win7", false, true, false},
    ProtectedCase{"Windows81SetByTheUser", L"win81", true, true, true},
    ProtectedCase{"Windows10", L"win10", false, false, false}),
    CaseName);

}  // namespace
}  // namespace quillon::test
