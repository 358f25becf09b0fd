// Audio endpoints as Windows keeps them in the registry, seeded from the .reg
// fixtures in tests/tools/endpoints (Wine itself shows no microphones), and
// registry trees read back through `reg export`, as a user would see them.
#pragma once

#include "support/ChildProcess.h"
#include "support/QuillonDll.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace quillon::test {

inline const std::wstring kMMDevices = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices";
// Each from its own literal: globals of other files may be made before these.
inline const std::wstring kCapture = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\";
// Where Windows before build 14393 is told to load effects that are not signed.
inline const wchar_t kProtectedAudioKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Audio";
inline const wchar_t kProtectedAudioValue[] = L"DisableProtectedAudioDG";
// Where attach keeps the .reg backup of each endpoint it changed.
inline const std::wstring kBackupFolder = L"C:\\ProgramData\\Marrowin\\Quillon\\backup\\";

// Every fixture's capture endpoint GUID, as its file spells it.
inline const wchar_t* const kFixtureGuids[] = {
    L"{7e570001-0000-4000-8000-000000000001}", L"{7e570002-0000-4000-8000-000000000002}",
    L"{7e570003-0000-4000-8000-000000000003}", L"{7e570004-0000-4000-8000-000000000004}",
    L"{7e570005-0000-4000-8000-000000000005}", L"{7e570006-0000-4000-8000-000000000006}",
    L"{7E57000A-aBcD-4000-8000-00000000000A}"};

inline long RunReg(const std::wstring& args) {
  ChildProcess reg(L"C:\\windows\\system32\\reg.exe", args, ExecutableFolder() + L"reg-out.txt");
  return reg.Wait(60000);
}

// Imports endpoints/<name>.reg. The fixtures are kept as ASCII; they are
// imported as the UTF-16 file regedit writes, whose hex(2) and hex(7) data
// reg takes as it stands.
inline void Seed(const std::string& name) {
  const std::string text =
      ReadText(ExecutableFolder() + L"endpoints\\" + std::wstring(name.begin(), name.end()) + L".reg");
  ASSERT_FALSE(text.empty()) << name;
  const std::wstring wide = L"\xFEFF" + std::wstring(text.begin(), text.end());
  const std::wstring file = ExecutableFolder() + L"fixture.reg";
  std::ofstream(file.c_str(), std::ios::binary)
      .write(reinterpret_cast<const char*>(wide.data()), static_cast<std::streamsize>(wide.size() * 2));
  ASSERT_EQ(0, RunReg(L"import \"" + file + L"\"")) << name;
}

// `reg export` of an HKLM key, byte for byte; "" when it does not exist.
inline std::string Export(const std::wstring& key) {
  const std::wstring file = ExecutableFolder() + L"export.reg";
  DeleteFileW(file.c_str());
  RunReg(L"export \"HKLM\\" + key + L"\" \"" + file + L"\" /y");
  return ReadText(file);
}

// Removes, after each test, the seeded endpoints with Quillon's settings and
// backups of them, and Quillon's registration.
class EndpointTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const wchar_t* guid : kFixtureGuids) {
      DeleteKeys({kCapture + guid, EndpointSettingsKey(guid)});
      DeleteFileW((kBackupFolder + guid + L".reg").c_str());
    }
    DeleteKeys({kMMDevices + L"\\Audio\\Render\\{7e570007-0000-4000-8000-000000000007}", kQuillonClassKey,
                kQuillonEngineKey});
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kProtectedAudioKey, kProtectedAudioValue);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSettingsKey, L"SetDisableProtectedAudioDG");
  }
};

}  // namespace quillon::test
