// quillon attach, detach and reattach against endpoint layouts seeded from
// .reg fixtures, checked through `reg export` of the whole MMDevices tree.
#include "support/EffectHarness.h"
#include "support/EndpointFixtures.h"
#include "support/HalvingDeviceEffect.h"
#include "support/QuillonDll.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"
#include "common/ToolSupport.h"

#include <gtest/gtest.h>

#include <fstream>

namespace quillon::test {
namespace {

constexpr const wchar_t* kStream = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5";
constexpr const wchar_t* kPreMix = L"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},1";
constexpr const wchar_t* kModes = L"{d3993a3f-99c2-4402-b5ec-a92a0367664b},5";
constexpr const wchar_t* kEffectsOff = L"{1da5d803-d492-4edd-8c23-e0c0ffee7f0e},5";
const wchar_t* const kStreamOnly = kFixtureGuids[0];

// An endpoint's effect slots, one of them, and the effect Quillon runs first there.
std::wstring FxKey(const std::wstring& guid) { return kCapture + guid + L"\\FxProperties"; }
std::wstring Slot(const std::wstring& guid, const wchar_t* name) { return RegText(FxKey(guid), name); }
std::wstring OriginalApo(const std::wstring& guid) { return RegText(EndpointSettingsKey(guid), kOriginalApoValue); }

// Writes `clsid` into an endpoint's slot with reg.exe, as a driver update or a user does.
long WriteSlot(const std::wstring& guid, const wchar_t* slot, const std::wstring& clsid) {
  return RunReg(L"add \"HKLM\\" + FxKey(guid) + L"\" /v \"" + slot + L"\" /t REG_SZ /d " + clsid + L" /f");
}

using AttachTest = EndpointTest;

struct Layout {
  const char* fixture;
  const wchar_t* guid;
  const wchar_t* extraArgs;
  const wchar_t* slot;      // where Quillon goes
  const wchar_t* original;  // what Original-Apo names, or "(none)"
};

void PrintTo(const Layout& layout, std::ostream* out) { *out << layout.fixture; }

class AttachLayout : public AttachTest, public ::testing::WithParamInterface<Layout> {};

// Attach puts Quillon into the right slot with the original named; the .reg
// backup imported by hand restores the tree, after which reattach attaches
// again; detach then leaves the tree exactly as it was, byte for byte.
TEST_P(AttachLayout, AttachAndDetachLeaveTheTreeAsItWas) {
  const Layout& c = GetParam();
  Seed(c.fixture);
  const std::string before = Export(kMMDevices);

  ASSERT_TRUE(Exits(0, L"attach " + std::wstring(c.guid) + c.extraArgs, {"attached to"}));
  EXPECT_EQ(kQuillonClsidText, Slot(c.guid, c.slot));
  EXPECT_EQ(c.original, OriginalApo(c.guid));
  EXPECT_FALSE(RegHas(FxKey(c.guid), kEffectsOff));
  if (std::wstring(c.slot) == kStream) EXPECT_TRUE(RegHas(FxKey(c.guid), kModes));
  EXPECT_TRUE(Shows(RunQuillon(L"mics").text, {"attached; the backup agrees"}));

  ASSERT_EQ(0, RunReg(L"import \"" + kBackupFolder + c.guid + L".reg\""));
  EXPECT_EQ(before, Export(kMMDevices)) << "the .reg backup does not restore the effects";
  ASSERT_TRUE(Exits(0, L"reattach" + std::wstring(c.extraArgs)));
  EXPECT_EQ(kQuillonClsidText, Slot(c.guid, c.slot));

  ASSERT_TRUE(Exits(0, L"detach " + std::wstring(c.guid)));
  EXPECT_EQ(before, Export(kMMDevices));
  EXPECT_EQ(L"(none)", OriginalApo(c.guid));
  EXPECT_FALSE(RegHas(EndpointSettingsKey(c.guid) + L"\\Backup", L"Slot"));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW((kBackupFolder + c.guid + L".reg").c_str()));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, AttachLayout, ::testing::Values(
    Layout{"stream-only", kStreamOnly, L"", kStream, kDeviceClsidText},
    Layout{"no-effects", kFixtureGuids[2], L"", kStream, L"(none)"},
    Layout{"older-scheme", kFixtureGuids[1], L"", kPreMix, L"{11111111-2222-3333-4444-555555555555}"},
    Layout{"composite", kFixtureGuids[3], L" --force", kStream, L"{22222222-3333-4444-5555-666666666666}"},
    Layout{"effects-off", kFixtureGuids[4], L"", kStream, L"{33333333-4444-5555-6666-777777777777}"},
    // Named in another case than the fixture spells it.
    Layout{"mixed-case", L"{7e57000a-ABCD-4000-8000-00000000000a}", L"", kStream,
           L"{b0c5e7a2-4D1F-4e8b-9A63-2f7d5c1e8b40}"}),
    [](const ::testing::TestParamInfo<Layout>& info) { return TestName(info.param.fixture); });

// mics shows each layout as it is: state, slots, effects turned off, and
// whether Quillon is there with a backup. Then a driver update writes its own
// effect into the attached slot: mics says so, reattach keeps the new effect
// as the original, and detach gives the driver's values back.
TEST_F(AttachTest, MicsShowsEveryLayoutThenReattachRecoversARewrittenSlot) {
  for (const char* fixture : {"stream-only", "older-scheme", "no-effects", "composite", "effects-off", "not-present"}) {
    Seed(fixture);
  }
  ASSERT_EQ(0, RunQuillon(L"attach \"stream mic\"").exit);
  EXPECT_TRUE(Shows(
      RunQuillon(L"mics").text,
      {"Stream Mic\n  GUID      {7e570001-0000-4000-8000-000000000001}\n  state     active\n"
       "  effects   stream effect: " + tools::Narrow(kQuillonClsidText) + " (Quillon)\n",
       "  Quillon   attached; the backup agrees\n",
       "  effects   pre-mix effect: {11111111-2222-3333-4444-555555555555}\n"
       "            post-mix effect: {66666666-7777-8888-9999-000000000000}\n  Quillon   not attached\n",
       "  effects   none\n", "composite stream effects: {A}, {B}\n", "mode effect: %x%\n",
       "stream processing modes: {C}\n            all effects are turned off\n", "  state     not present\n"}));

  const std::wstring newEffect = L"{99999999-8888-7777-6666-555555555555}";
  ASSERT_EQ(0, WriteSlot(kStreamOnly, kStream, newEffect));
  const std::string rewritten = Export(kMMDevices);
  EXPECT_TRUE(Shows(RunQuillon(L"mics").text, {"its effects were rewritten (quillon reattach)"}));
  EXPECT_TRUE(Exits(0, L"reattach --dry-run"));
  EXPECT_EQ(newEffect, Slot(kStreamOnly, kStream)) << "a dry run wrote";
  ASSERT_TRUE(Exits(0, L"reattach"));
  EXPECT_EQ(kQuillonClsidText, Slot(kStreamOnly, kStream));
  EXPECT_EQ(newEffect, OriginalApo(kStreamOnly));
  EXPECT_TRUE(Shows(RunQuillon(L"reattach").text, {"nothing to do"}));

  ASSERT_EQ(0, RunQuillon(L"detach \"stream mic\"").exit);
  EXPECT_EQ(rewritten, Export(kMMDevices));
}

// What the audio engine does with the slot after attach: the class id read
// from it, created through ole32, is Quillon, and Quillon runs the effect the
// slot held before (the tests' device effect, which halves every sample).
// Quillon comes from the class key attach wrote; the device effect from a
// class registered in this process. The endpoint is the one whose GUID the
// registry spells in mixed case.
TEST_F(AttachTest, TheSlotCreatesQuillonWrappingTheOriginal) {
  const std::wstring guid = kFixtureGuids[6];
  Seed("mixed-case");
  ASSERT_EQ(0, RunQuillon(L"attach " + guid).exit);
  CLSID clsid;
  ASSERT_EQ(S_OK, CLSIDFromString(Slot(guid, kStream).c_str(), &clsid));
  ASSERT_TRUE(IsEqualCLSID(CLSID_Quillon, clsid));
  ScopedHalvingEffectClass device;
  ASSERT_EQ(S_OK, device.Registered());
  ComPtr<IAudioProcessingObject> apo;
  ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IAudioProcessingObject, apo.PutVoid()));
  // The engine gives the endpoint's GUID in whatever case it has: here all lower case.
  EffectHarness h(L"{7e57000a-abcd-4000-8000-00000000000a}", apo);
  ASSERT_EQ(S_OK, h.Initialize());
  ASSERT_EQ(S_OK, h.Lock(2, 4));
  const std::vector<float> out = h.Process({0.5f, -0.25f, 1.0f, 0.125f, 0.75f, -1.0f, 0.0f, 0.5f});
  EXPECT_FLOAT_EQ(0.25f, out[0]);
  EXPECT_FLOAT_EQ(-0.5f, out[5]);
  ASSERT_EQ(S_OK, h.Unlock());
}

// A token without the Administrators group, as an unelevated user has.
UniqueHandle UnelevatedToken() {
  UniqueHandle process, restricted;
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof(sid);
  CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size);
  SID_AND_ATTRIBUTES denied{sid, 0};
  OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, process.Put());
  CreateRestrictedToken(process.Get(), 0, 1, &denied, 0, nullptr, 0, nullptr, restricted.Put());
  return restricted;
}

// A copy of quillon.exe in a folder of its own, without Quillon.dll or, when
// `foreignDll`, with Quillon.dll whose header's Machine field names another
// architecture.
std::wstring LoneQuillon(bool foreignDll) {
  const std::wstring folder = ExecutableFolder() + L"lone\\";
  CreateDirectoryW(folder.c_str(), nullptr);
  DeleteFileW((folder + L"Quillon.dll").c_str());
  CopyFileW((ExecutableFolder() + L"quillon.exe").c_str(), (folder + L"quillon.exe").c_str(), FALSE);
  if (foreignDll) ChangedDllCopy(folder, FlipMachine);
  return folder + L"quillon.exe";
}

struct Refusal {
  const char* name;
  const wchar_t* before;  // a quillon command run first, or null
  const wchar_t* args;
  long exit;
  const char* says;
  enum { kHere, kUnelevated, kNoDll, kForeignDll } how = kHere;
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.name; }

class Refused : public AttachTest, public ::testing::WithParamInterface<Refusal> {};

// Each refusal is one line and writes nothing: neither the endpoints nor
// Quillon's settings nor a backup file change.
TEST_P(Refused, SaysWhyAndWritesNothing) {
  const Refusal& c = GetParam();
  for (const char* fixture : {"stream-only", "composite", "not-present", "playback"}) Seed(fixture);
  // An endpoint that already holds Quillon, written by hand without a backup.
  Seed("older-scheme");
  ASSERT_EQ(0, WriteSlot(kFixtureGuids[1], kPreMix, kQuillonClsidText));
  if (c.before != nullptr) ASSERT_EQ(0, RunQuillon(c.before).exit);
  const std::string devices = Export(kMMDevices), settings = Export(kSettingsKey);
  const std::string backup = test::ReadText(kBackupFolder + kStreamOnly + L".reg");

  const UniqueHandle token = c.how == Refusal::kUnelevated ? UnelevatedToken() : UniqueHandle();
  const bool lone = c.how == Refusal::kNoDll || c.how == Refusal::kForeignDll;
  const std::wstring program = lone ? LoneQuillon(c.how == Refusal::kForeignDll) : L"quillon.exe";
  const CommandResult r = RunQuillon(c.args, 60000, program, token.Get());
  EXPECT_EQ(c.exit, r.exit) << r.text;
  const std::string first = r.text.substr(0, r.text.find('\n'));
  EXPECT_NE(std::string::npos, first.find(c.says)) << r.text;
  if (c.exit != 0) EXPECT_EQ(0u, first.rfind("quillon: ", 0)) << r.text;
  EXPECT_EQ(devices, Export(kMMDevices));
  EXPECT_EQ(settings, Export(kSettingsKey));
  EXPECT_EQ(backup, test::ReadText(kBackupFolder + kStreamOnly + L".reg"));
}

INSTANTIATE_TEST_SUITE_P(Table, Refused, ::testing::Values(
    Refusal{"NotAdministrator", nullptr, L"attach \"stream mic\"", 1, "run it as Administrator", Refusal::kUnelevated},
    Refusal{"UnknownMicrophone", nullptr, L"attach nowhere", 1, "no microphone matches \"nowhere\""},
    Refusal{"Ambiguous", nullptr, L"attach mic", 1, "several microphones match \"mic\""},
    Refusal{"Playback", nullptr, L"attach speakers", 1, "is a playback endpoint"},
    Refusal{"NotPresent", nullptr, L"attach \"gone mic\"", 1,
            "Gone Mic {7e570006-0000-4000-8000-000000000006} is not present"},
    Refusal{"AlreadyAttached", L"attach \"stream mic\"", L"attach \"stream mic\"", 0, "already attached"},
    Refusal{"AttachedWithoutBackup", nullptr, L"attach \"older mic\"", 1, "attached without a backup"},
    Refusal{"OneOfTwoRefused", nullptr, L"attach \"stream mic\" \"older mic\"", 1, "attached without a backup"},
    Refusal{"CompositeList", nullptr, L"attach composite", 1, "composite stream effects"},
    Refusal{"DetachWithoutBackup", nullptr, L"detach \"stream mic\"", 1, "no backup; nothing to restore"},
    Refusal{"DryRun", nullptr, L"attach \"stream mic\" --dry-run", 0, "register "},
    Refusal{"NoMicrophoneNamed", nullptr, L"attach", 2, "name the microphones, or give --all"},
    Refusal{"DllMissing", nullptr, L"attach \"stream mic\"", 1, "Quillon.dll is missing", Refusal::kNoDll},
    Refusal{"DllOfAnotherMachine", nullptr, L"attach \"stream mic\"", 1, "is built for", Refusal::kForeignDll}),
    CaseName);

}  // namespace
}  // namespace quillon::test
