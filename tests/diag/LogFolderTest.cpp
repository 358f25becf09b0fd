// The log folder: path splitting, reserved names, and a file standing where
// the folder must be.
#include "diag/LogFolder.h"
#include "diag/PathSplit.h"
#include "platform/UniqueResource.h"
#include "support/RegistryValue.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <fstream>
#include <string>

namespace quillon {
namespace {

std::wstring W(const WideString& s) { return std::wstring(s.Data(), static_cast<size_t>(s.Length())); }

struct SplitCase {
  const wchar_t* path;
  const wchar_t* root;
  size_t folders;
  const wchar_t* baseName;
  const wchar_t* extension;
  bool valid;
};

TEST(PathSplitTest, Split) {
  const SplitCase cases[] = {
      {L"C:\\ProgramData\\Maker\\Product", L"C:", 2, L"Product", L"", true},
      {L"c:/dir/a.txt", L"c:", 1, L"a", L"txt", true},
      {L"C:\\dir\\x.tar.gz", L"C:", 1, L"x.tar", L"gz", true},
      {L"C:\\dir\\.profile", L"C:", 1, L".profile", L"", true},
      {L"\\\\server\\share\\f.log", L"server", 1, L"f", L"log", true},
      {L"C:\\dir\\CON", L"C:", 1, L"CON", L"", false},
      {L"C:\\dir\\lPt9.txt", L"C:", 1, L"lPt9", L"txt", false},
      {L"C:\\dir\\a?b.txt", L"C:", 1, L"a?b", L"txt", false},
      {L"C:\\ok\\nul\\f.txt", L"C:", 2, L"f", L"txt", false},
      {L"C:\\dir\\COM0", L"C:", 1, L"COM0", L"", true},
  };
  for (const auto& c : cases) {
    SplitPathResult s = SplitPath(c.path);
    EXPECT_EQ(c.root, W(s.root)) << c.path;
    EXPECT_EQ(c.folders, s.folders.size()) << c.path;
    EXPECT_EQ(c.baseName, W(s.baseName)) << c.path;
    EXPECT_EQ(c.extension, W(s.extension)) << c.path;
    EXPECT_EQ(c.valid, s.valid) << c.path;
  }
}

// ---- The folder on disk ---------------------------------------------------------------
// A file's access list as SDDL text, or "".
std::wstring Dacl(const std::wstring& path) {
  UniqueLocalMemory sd, text;  // both allocated by the system for the caller
  if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                            nullptr, sd.Put()) != ERROR_SUCCESS ||
      !ConvertSecurityDescriptorToStringSecurityDescriptorW(sd.Get(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                            reinterpret_cast<LPWSTR*>(text.Put()), nullptr)) {
    return L"";
  }
  return static_cast<const wchar_t*>(text.Get());
}

bool IsFolder(const std::wstring& path) {
  DWORD a = GetFileAttributesW(path.c_str());
  return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

void WriteFile(const std::wstring& path, const char* text) { std::ofstream(path.c_str()) << text; }

constexpr const wchar_t* kSessionManager = L"System\\CurrentControlSet\\Control\\Session Manager";

// Moves the existing log folder aside for the test and puts it back afterwards.
class LogFolderOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    maker_ = W(GetCommonAppDataFolder()) + kLogMakerFolder + L"\\";
    folder_ = maker_ + kLogProductFolder;
    saved_ = folder_ + L".test-saved";
    CreateDirectoryW(maker_.c_str(), nullptr);
    if (IsFolder(folder_)) ASSERT_TRUE(MoveFileExW(folder_.c_str(), saved_.c_str(), 0));
  }
  void TearDown() override {
    for (const std::wstring& extra : created_) {
      SetFileAttributesW(extra.c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileW(extra.c_str());
    }
    SetFileAttributesW(folder_.c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileW(folder_.c_str());
    RemoveDirectoryW(folder_.c_str());
    if (IsFolder(saved_)) MoveFileExW(saved_.c_str(), folder_.c_str(), 0);
  }

  std::wstring maker_, folder_, saved_;
  std::vector<std::wstring> created_;
  test::ScopedRegistryValue pending_{HKEY_LOCAL_MACHINE, kSessionManager, L"PendingFileRenameOperations"};
};

// Whether this system keeps access lists set on files (Wine does not).
bool FileAccessListsPersist() {
  const std::wstring probe = W(GetCommonAppDataFolder()) + L"quillon-acl-probe";
  CreateDirectoryW(probe.c_str(), nullptr);
  const bool granted = GrantUsersFullAccess(probe.c_str()).Ok();
  const bool kept = Dacl(probe).find(L";;;BU)") != std::wstring::npos;
  RemoveDirectoryW(probe.c_str());
  return granted && kept;
}

TEST_F(LogFolderOnDisk, MissingFolderIsCreatedAndOpenedToUsers) {
  EXPECT_EQ(folder_ + L"\\", W(GetLogFolder()));
  ASSERT_TRUE(IsFolder(folder_));
  if (!FileAccessListsPersist()) GTEST_SKIP() << "this system does not keep access lists of files";
  // BUILTIN\Users (BU) with 0xF003F, inherited by files and folders (OICI).
  EXPECT_NE(std::wstring::npos, Dacl(folder_).find(L"(A;OICI;0xf003f;;;BU)")) << Dacl(folder_);
}

TEST_F(LogFolderOnDisk, DeletableFileInTheWayIsReplaced) {
  WriteFile(folder_, "in the way");
  EXPECT_EQ(folder_ + L"\\", W(GetLogFolder()));
  EXPECT_TRUE(IsFolder(folder_));
}

TEST_F(LogFolderOnDisk, UndeletableFileIsMovedToTheNextFreeNumberedName) {
  // A read-only file cannot be deleted but can be moved. "<name>." names the
  // file itself (Windows drops a trailing dot) and "<name> (1)." is taken, so
  // the file goes to "<name> (2)".
  WriteFile(folder_, "locked");
  SetFileAttributesW(folder_.c_str(), FILE_ATTRIBUTE_READONLY);
  const std::wstring second = std::wstring(kLogProductFolder) + L" (2)";
  WriteFile(folder_ + L" (1)", "taken");
  created_ = {folder_ + L" (1)", maker_ + second};

  EXPECT_EQ(folder_ + L"\\", W(GetLogFolder()));
  EXPECT_TRUE(IsFolder(folder_));
  DWORD moved = GetFileAttributesW((maker_ + second).c_str());
  ASSERT_NE(INVALID_FILE_ATTRIBUTES, moved);
  EXPECT_TRUE(moved & FILE_ATTRIBUTE_READONLY);
  // The moved file is scheduled for deletion at the next restart.
  const std::wstring pending = test::RegText(kSessionManager, L"PendingFileRenameOperations", RRF_RT_REG_MULTI_SZ);
  EXPECT_NE(std::wstring::npos, pending.find(second)) << pending;
}

TEST_F(LogFolderOnDisk, ExistingFolderKeepsItsAccessList) {
  ASSERT_TRUE(CreateDirectoryW(folder_.c_str(), nullptr));
  const std::wstring before = Dacl(folder_);
  EXPECT_EQ(folder_ + L"\\", W(GetLogFolder()));
  if (!FileAccessListsPersist()) GTEST_SKIP() << "this system does not keep access lists of files";
  EXPECT_EQ(before, Dacl(folder_));
  EXPECT_EQ(std::wstring::npos, before.find(L"0xf003f"));
}

}  // namespace
}  // namespace quillon
