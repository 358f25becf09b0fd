// The x64 setup package, installed, upgraded and uninstalled silently as an
// administrator's deployment does it, and the version every shipped file
// carries.
#include "common/ToolSupport.h"
#include "support/EndpointFixtures.h"
#include "support/QuillonDll.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <shlobj.h>

#include <vector>

namespace quillon::test {
namespace {

const std::wstring kFolder = L"C:\\Program Files\\Marrowin\\Quillon\\";
const std::wstring kUninstallKey = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillon";
const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
const wchar_t* const kInstalledFiles[] = {L"Quillon.dll", L"quillon.exe", L"quillon-board.exe", L"uninstall.exe"};
const std::wstring kMic = L"{0.0.1.00000000}.{setup-upgrade-test-mic}";

// The build leaves the packages in package\ beside bin\.
std::wstring Package(const wchar_t* name) { return ExecutableFolder() + L"..\\package\\" + name; }

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// The board's shortcut in the Start menu of every user.
std::wstring BoardShortcut() {
  wchar_t* programs = nullptr;
  std::wstring path;
  if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_CommonPrograms, 0, nullptr, &programs))) path = programs;
  CoTaskMemFree(programs);
  return path + L"\\Quillon Board.lnk";
}

// The files an upgrade moved aside in the install folder.
std::vector<std::wstring> MovedAside() {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW found;
  HANDLE find = FindFirstFileW((kFolder + L"*.replaced-*").c_str(), &found);
  if (find == INVALID_HANDLE_VALUE) return names;
  do {
    names.emplace_back(found.cFileName);
  } while (FindNextFileW(find, &found));
  FindClose(find);
  return names;
}

// A text of a file's version information ("FileVersion", "CompanyName"...),
// in the first language it has; "(none)" without one.
std::wstring VersionText(const std::wstring& file, const wchar_t* name) {
  DWORD ignored = 0;
  std::vector<BYTE> data(GetFileVersionInfoSizeW(file.c_str(), &ignored));
  if (data.empty() || !GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(data.size()), data.data())) {
    return L"(none)";
  }
  struct Language {
    WORD language, codePage;
  }* languages = nullptr;
  UINT size = 0;
  if (!VerQueryValueW(data.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void**>(&languages), &size) ||
      size < sizeof(Language)) {
    return L"(none)";
  }
  wchar_t path[96];
  swprintf(path, 96, L"\\StringFileInfo\\%04x%04x\\%ls", languages->language, languages->codePage, name);
  wchar_t* text = nullptr;
  return VerQueryValueW(data.data(), path, reinterpret_cast<void**>(&text), &size) && size > 0 ? text : L"(none)";
}

// The files renamed or deleted at the next restart, as Windows keeps them: pairs of from and to.
std::vector<std::wstring> PendingRenames() {
  std::vector<wchar_t> text(1 << 16);
  DWORD bytes = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  std::vector<std::wstring> names;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager.c_str(), L"PendingFileRenameOperations", RRF_RT_REG_MULTI_SZ,
                   nullptr, text.data(), &bytes) != ERROR_SUCCESS) {
    return names;
  }
  // Each string in turn; an empty one is a deletion's "to".
  for (const wchar_t* p = text.data(); p < text.data() + bytes / sizeof(wchar_t) - 1; p += wcslen(p) + 1) {
    names.emplace_back(p);
  }
  return names;
}

class SetupPackage : public EndpointTest {
 protected:
  void TearDown() override {
    EndpointTest::TearDown();
    DeleteKeys({kUninstallKey});
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager.c_str(), L"PendingFileRenameOperations");
    for (const wchar_t* file : kInstalledFiles) DeleteFileW((kFolder + file).c_str());
    DeleteFileW((kFolder + L"install.log").c_str());
    for (const std::wstring& file : MovedAside()) DeleteFileW((kFolder + file).c_str());
    DeleteFileW(BoardShortcut().c_str());
    RemoveDirectoryW(kFolder.c_str());
  }

  static long Install(const std::wstring& setup) {
    return ChildProcess(setup, L"/S", ExecutableFolder() + L"setup-out.txt").Wait(120000);
  }
  // The uninstaller runs a copy of itself from the temporary folder and
  // returns at once: this waits for the uninstall entry to go.
  static ::testing::AssertionResult Uninstall() {
    const long exit = ChildProcess(kFolder + L"uninstall.exe", L"/S").Wait(120000);
    if (exit != 0) return ::testing::AssertionFailure() << "uninstall.exe exited with " << exit;
    if (PollUntil([] { return RegText(kUninstallKey, L"DisplayName") == L"(none)"; }, 120000)) {
      return ::testing::AssertionSuccess();
    }
    // What is left says how far it came.
    std::string left;
    for (const wchar_t* file : kInstalledFiles) left += Exists(kFolder + file) ? " " + tools::Utf8(file) : "";
    return ::testing::AssertionFailure() << "the uninstall entry stayed; files left:" << left
                                         << "; microphones attached: " << Export(kMMDevices).size() << " bytes";
  }
};

TEST_F(SetupPackage, SilentInstallAndUninstallLeaveNothingBehind) {
  Seed("stream-only");
  const std::string devices = Export(kMMDevices);
  ASSERT_EQ(0, Install(Package(QUILLON_SETUP_NAME)));
  for (const wchar_t* file : kInstalledFiles) EXPECT_TRUE(Exists(kFolder + file)) << file;
  EXPECT_TRUE(Exists(BoardShortcut())) << "no Start menu shortcut to the board";
  EXPECT_EQ(L"Quillon", RegText(kUninstallKey, L"DisplayName"));
  EXPECT_EQ(L"\"" + kFolder + L"uninstall.exe\"", RegText(kUninstallKey, L"UninstallString"));
  EXPECT_EQ(kFolder + L"Quillon.dll", RegText(kQuillonClassKey + L"\\InprocServer32", nullptr));
  EXPECT_EQ(L"Both", RegText(kQuillonClassKey + L"\\InprocServer32", L"ThreadingModel"));
  EXPECT_NE(L"(none)", RegText(kQuillonEngineKey, L"FriendlyName"));
  EXPECT_EQ(devices, Export(kMMDevices)) << "a silent install attached a microphone";
  // The check after installing: nothing attached (and Wine answers as Windows 7,
  // where protected audio is on), so Quillon does not run; the log says why and what fixes it.
  const std::string log = ReadText(kFolder + L"install.log");
  ASSERT_GE(log.size(), 2u) << "no install log";
  EXPECT_EQ("\xFF\xFE", log.substr(0, 2));
  const std::string logText = tools::Utf8(std::wstring(reinterpret_cast<const wchar_t*>(log.data() + 2), (log.size() - 2) / 2));
  EXPECT_TRUE(Shows(logText, {"Stream Mic {7e570001-0000-4000-8000-000000000001}\r\n",
                              "PROBLEM  Quillon is not attached to this microphone\r\n",
                              "fix: quillon attach \"Stream Mic\" (as Administrator)\r\n",
                              "Quillon does not run on Stream Mic: ", "(and 1 more).\r\n"}))
      << logText;

  // One version everywhere: the uninstall entry, every shipped file and the command.
  const std::wstring version = RegText(kUninstallKey, L"DisplayVersion");
  EXPECT_EQ(QUILLON_VERSION, tools::Utf8(version));
  std::vector<std::wstring> shipped{Package(QUILLON_SETUP_NAME)};
  for (const wchar_t* file : kInstalledFiles) shipped.push_back(kFolder + file);
  for (const std::wstring& file : shipped) {
    EXPECT_EQ(version, VersionText(file, L"FileVersion")) << tools::Utf8(file);
    EXPECT_EQ(version, VersionText(file, L"ProductVersion")) << tools::Utf8(file);
    EXPECT_EQ(L"Quillon", VersionText(file, L"ProductName")) << tools::Utf8(file);
    EXPECT_EQ(L"Marrowin", VersionText(file, L"CompanyName")) << tools::Utf8(file);
  }
  EXPECT_TRUE(Exits(0, L"--version", {"quillon " + tools::Utf8(version) + "\n"}, kFolder + L"quillon.exe"));

  // The installed command attaches with the installed library.
  ASSERT_TRUE(Exits(0, L"attach \"stream mic\"", {}, kFolder + L"quillon.exe"));

  ASSERT_TRUE(Uninstall());
  EXPECT_TRUE(PollUntil([] { return !Exists(kFolder); }, 120000)) << "the files stayed";
  EXPECT_FALSE(Exists(BoardShortcut())) << "the Start menu shortcut stayed";
  EXPECT_EQ(devices, Export(kMMDevices)) << "the microphone was not restored";
  EXPECT_EQ("", Export(kQuillonClassKey));
  EXPECT_EQ("", Export(kQuillonEngineKey));
}

// The next version installed over this one while a process (as the audio
// service would) holds the installed library: the running effect goes on,
// every installed file is the new one, the old library is removed at the next
// restart, and the attached microphone stays as it was.
TEST_F(SetupPackage, UpgradeWhileTheLibraryIsLoaded) {
  Seed("stream-only");
  ASSERT_EQ(0, Install(Package(QUILLON_SETUP_NAME)));
  ASSERT_TRUE(Exits(0, L"attach \"stream mic\"", {}, kFolder + L"quillon.exe"));
  // The attachment is the microphone's effect values (Wine's device enumerator,
  // which the setup's check opens, rewrites the state of endpoints it does not know).
  const std::wstring effects = kCapture + kFixtureGuids[0] + L"\\FxProperties";
  const std::string attached = Export(effects), settings = Export(kSettingsKey);
  const std::string backup = ReadText(kBackupFolder + kFixtureGuids[0] + L".reg");
  ASSERT_FALSE(backup.empty());

  // The engine stand-in creates the effect through its COM registration, as
  // the audio service does: it holds the installed library.
  ChildProcess host(L"quillon-host.exe",
                    L"--com --endpoint " + kMic + L" --seconds 20 --out \"" + Scratch(L"upgrade.wav") + L"\"",
                    Scratch(L"upgrade-host.txt"));
  ASSERT_TRUE(PollUntil([] { return SlotOf(kMic) >= 0; })) << ReadText(Scratch(L"upgrade-host.txt"));
  ASSERT_FALSE(DeleteFileW((kFolder + L"Quillon.dll").c_str())) << "the library was not held";

  ASSERT_EQ(0, Install(Package(L"next\\" QUILLON_NEXT_SETUP_NAME)));
  EXPECT_EQ(QUILLON_NEXT_VERSION, tools::Utf8(RegText(kUninstallKey, L"DisplayVersion")));
  EXPECT_EQ(L"" QUILLON_NEXT_VERSION, VersionText(kFolder + L"Quillon.dll", L"FileVersion"));
  EXPECT_EQ(ReadText(Package(L"next\\Quillon.dll")), ReadText(kFolder + L"Quillon.dll"));
  EXPECT_EQ(ReadText(ExecutableFolder() + L"quillon.exe"), ReadText(kFolder + L"quillon.exe"));
  EXPECT_EQ(ReadText(ExecutableFolder() + L"quillon-board.exe"), ReadText(kFolder + L"quillon-board.exe"));
  // The old library, moved aside, is deleted at the next restart: a rename to nothing.
  ASSERT_EQ(std::vector<std::wstring>{L"Quillon.dll.replaced-1"}, MovedAside());
  const std::vector<std::wstring> pending = PendingRenames();
  const auto at = std::find(pending.begin(), pending.end(), L"\\??\\" + kFolder + L"Quillon.dll.replaced-1");
  ASSERT_NE(pending.end(), at) << "no removal at the next restart";
  EXPECT_TRUE(at + 1 != pending.end() && (at + 1)->empty()) << "the old library is renamed, not removed";
  EXPECT_EQ(pending.end(), std::find(pending.begin(), pending.end(), L"\\??\\" + kFolder + L"Quillon.dll"))
      << "the new library would be removed at the next restart";
  EXPECT_EQ(attached, Export(effects)) << "the microphone's attachment changed";
  EXPECT_EQ(settings, Export(kSettingsKey)) << "Quillon's settings and backups changed";
  EXPECT_EQ(backup, ReadText(kBackupFolder + kFixtureGuids[0] + L".reg"));

  // The new command plays into the effect the old library runs.
  ASSERT_TRUE(Exits(0, L"play --mic " + kMic + L" \"" + Sounds() + L"stays.wav\"", {}, kFolder + L"quillon.exe"));
  ASSERT_EQ(0, host.Wait(60000)) << ReadText(Scratch(L"upgrade-host.txt"));
  const audio::Sound out = LoadSound(Scratch(L"upgrade.wav")), played = LoadSound(Sounds() + L"stays.wav");
  EXPECT_GT(Correlation(out, played, FirstSound(out), 0), 0.9999);

  // Uninstalled while the new library is held: it too is moved aside before
  // its removal is scheduled, so that a Quillon installed again before the
  // restart would not lose its library then.
  ChildProcess holder(L"quillon-host.exe",
                      L"--com --endpoint " + kMic + L" --seconds 8 --out \"" + Scratch(L"upgrade-held.wav") + L"\"",
                      Scratch(L"upgrade-holder.txt"));
  ASSERT_TRUE(PollUntil([] { return SlotOf(kMic) >= 0; })) << ReadText(Scratch(L"upgrade-holder.txt"));
  ASSERT_TRUE(Uninstall());
  EXPECT_FALSE(Exists(kFolder + L"Quillon.dll"));
  const std::vector<std::wstring> later = PendingRenames();
  EXPECT_NE(later.end(), std::find(later.begin(), later.end(), L"\\??\\" + kFolder + L"Quillon.dll.replaced-2"));
  EXPECT_EQ(later.end(), std::find(later.begin(), later.end(), L"\\??\\" + kFolder + L"Quillon.dll"));
  EXPECT_EQ(0, holder.Wait(60000)) << ReadText(Scratch(L"upgrade-holder.txt"));
}

// A file that cannot be replaced fails the upgrade, and every installed file
// is put back as it was.
TEST_F(SetupPackage, UpgradeThatCannotReplaceAFileChangesNothing) {
  ASSERT_EQ(0, Install(Package(QUILLON_SETUP_NAME)));
  const std::string library = ReadText(kFolder + L"Quillon.dll"), command = ReadText(kFolder + L"quillon.exe");
  {
    // Open without sharing: it can be neither renamed nor written.
    UniqueHandle board(CreateFileW((kFolder + L"quillon-board.exe").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(board);
    EXPECT_NE(0, Install(Package(L"next\\" QUILLON_NEXT_SETUP_NAME)));
  }
  EXPECT_EQ(library, ReadText(kFolder + L"Quillon.dll"));
  EXPECT_EQ(command, ReadText(kFolder + L"quillon.exe"));
  EXPECT_EQ(ReadText(ExecutableFolder() + L"quillon-board.exe"), ReadText(kFolder + L"quillon-board.exe"));
  EXPECT_TRUE(MovedAside().empty());
  EXPECT_EQ(QUILLON_VERSION, tools::Utf8(RegText(kUninstallKey, L"DisplayVersion")));
  // That file was the cause: free, the same setup upgrades.
  ASSERT_EQ(0, Install(Package(L"next\\" QUILLON_NEXT_SETUP_NAME)));
  EXPECT_EQ(QUILLON_NEXT_VERSION, tools::Utf8(RegText(kUninstallKey, L"DisplayVersion")));
  ASSERT_TRUE(Uninstall());
}

}  // namespace
}  // namespace quillon::test
