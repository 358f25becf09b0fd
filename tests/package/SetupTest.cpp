// The x64 setup package, installed and uninstalled silently as an
// administrator's deployment does it.
#include "support/EndpointFixtures.h"
#include "support/QuillonDll.h"
#include "support/QuillonRun.h"
#include "support/RegistryValue.h"

#include <gtest/gtest.h>

#include <shlobj.h>

namespace quillon::test {
namespace {

const std::wstring kFolder = L"C:\\Program Files\\Marrowin\\Quillon\\";
const std::wstring kUninstallKey = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillon";
const wchar_t* const kInstalledFiles[] = {L"Quillon.dll", L"quillon.exe", L"quillon-board.exe", L"uninstall.exe"};

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// The board's shortcut in the Start menu of every user.
std::wstring BoardShortcut() {
  wchar_t* programs = nullptr;
  std::wstring path;
  if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_CommonPrograms, 0, nullptr, &programs))) path = programs;
  CoTaskMemFree(programs);
  return path + L"\\Quillon Board.lnk";
}

class SetupPackage : public EndpointTest {
 protected:
  void TearDown() override {
    EndpointTest::TearDown();
    DeleteKeys({kUninstallKey});
    for (const wchar_t* file : kInstalledFiles) DeleteFileW((kFolder + file).c_str());
    DeleteFileW(BoardShortcut().c_str());
    RemoveDirectoryW(kFolder.c_str());
  }
};

TEST_F(SetupPackage, SilentInstallAndUninstallLeaveNothingBehind) {
  Seed("stream-only");
  const std::string devices = Export(kMMDevices);
  // The build leaves the package in package\ beside bin\.
  const std::wstring package = ExecutableFolder() + L"..\\package\\" QUILLON_SETUP_NAME;
  ASSERT_EQ(0, ChildProcess(package, L"/S", ExecutableFolder() + L"setup-out.txt").Wait(120000));
  for (const wchar_t* file : kInstalledFiles) EXPECT_TRUE(Exists(kFolder + file)) << file;
  EXPECT_TRUE(Exists(BoardShortcut())) << "no Start menu shortcut to the board";
  EXPECT_EQ(L"Quillon", RegText(kUninstallKey, L"DisplayName"));
  EXPECT_EQ(L"\"" + kFolder + L"uninstall.exe\"", RegText(kUninstallKey, L"UninstallString"));
  EXPECT_EQ(kFolder + L"Quillon.dll", RegText(kQuillonClassKey + L"\\InprocServer32", nullptr));
  EXPECT_EQ(L"Both", RegText(kQuillonClassKey + L"\\InprocServer32", L"ThreadingModel"));
  EXPECT_NE(L"(none)", RegText(kQuillonEngineKey, L"FriendlyName"));
  EXPECT_EQ(devices, Export(kMMDevices)) << "a silent install attached a microphone";

  // The installed command attaches with the installed library.
  ASSERT_TRUE(Exits(0, L"attach \"stream mic\"", {}, kFolder + L"quillon.exe"));

  // The uninstaller runs a copy of itself from the temporary folder and
  // returns at once: wait for the folder to go.
  ASSERT_EQ(0, ChildProcess(kFolder + L"uninstall.exe", L"/S").Wait(120000));
  EXPECT_TRUE(PollUntil([] { return !Exists(kFolder); }, 120000)) << "the files stayed";
  EXPECT_FALSE(Exists(BoardShortcut())) << "the Start menu shortcut stayed";
  EXPECT_EQ(devices, Export(kMMDevices)) << "the microphone was not restored";
  EXPECT_EQ(L"(none)", RegText(kUninstallKey, L"DisplayName"));
  EXPECT_EQ("", Export(kQuillonClassKey));
  EXPECT_EQ("", Export(kQuillonEngineKey));
}

}  // namespace
}  // namespace quillon::test
