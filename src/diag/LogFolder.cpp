#include "diag/LogFolder.h"

#include "diag/ErrorDescription.h"
#include "diag/PathSplit.h"
#include "platform/UniqueResource.h"

#include <windows.h>
#include <aclapi.h>
#include <shlobj.h>

namespace quillon {
namespace {

bool IsFolder(const WideString& path) {
  DWORD attributes = GetFileAttributesW(path.Data());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool Exists(const WideString& path) { return GetFileAttributesW(path.Data()) != INVALID_FILE_ATTRIBUTES; }

WideString WithBackslash(const WideString& path) {
  if (!path.Empty() && path[path.Length() - 1] == L'\\') return path;
  return Concat(path, L"\\");
}

WideString CommonFolderOrDefault() {
  const WideString folder = GetCommonAppDataFolder();
  return folder.Empty() ? WideString(L"C:\\ProgramData\\") : folder;
}

}  // namespace

WideString GetCommonAppDataFolder() {
  wchar_t buffer[MAX_PATH] = {};
  if (!SHGetSpecialFolderPathW(nullptr, buffer, CSIDL_COMMON_APPDATA, FALSE)) return WideString();
  WideString folder(buffer);
  return folder.Empty() ? folder : WithBackslash(folder);
}

WideString GetLogFolder() {
  // A plain file is looked up by its name without the trailing backslash
  // (with one, the lookup of a file fails).
  const WideString maker = Concat(CommonFolderOrDefault(), kLogMakerFolder);
  if (!IsFolder(maker) && Exists(maker)) RemoveBlockingFile(maker);

  const WideString product = Concat(Concat(maker, L"\\"), kLogProductFolder);
  WideString folder = Concat(product, L"\\");
  if (IsFolder(product)) return folder;  // an existing folder's access list is left as it is
  if (Exists(product)) RemoveBlockingFile(product);
  if (SHCreateDirectoryExW(nullptr, folder.Data(), nullptr) == ERROR_SUCCESS) GrantUsersFullAccess(folder);
  return folder;
}

WideString GetLogFilePath() {
  return Format(L"%s%s\\%s\\%s", CommonFolderOrDefault().Data(), kLogMakerFolder, kLogProductFolder, kLogFileName);
}

bool RemoveBlockingFile(const WideString& path) {
  if (DeleteFileW(path.Data())) return true;
  DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return true;

  const SplitPathResult split = SplitPath(path);
  // The folder is everything up to the last separator.
  const uint64_t slash = FindLast(path, L"\\");
  const uint64_t forward = FindLast(path, L"/");
  const uint64_t cut = slash == WideString::npos ? forward
                       : forward == WideString::npos ? slash
                                                     : (slash > forward ? slash : forward);
  const WideString folder = WithBackslash(cut == WideString::npos ? WideString() : Substring(path, 0, cut + 1));

  // The dot is always inserted, also for a name without extension.
  WideString candidate = Format(L"%s.%s", split.baseName.Data(), split.extension.Data());
  for (int n = 1; Exists(Concat(folder, candidate)); ++n) {
    candidate = Format(L"%s (%d).%s", split.baseName.Data(), n, split.extension.Data());
  }
  const WideString target = Concat(folder, candidate);
  if (MoveFileExW(path.Data(), target.Data(), MOVEFILE_REPLACE_EXISTING)) {
    return MoveFileExW(target.Data(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) != FALSE;
  }
  return MoveFileExW(path.Data(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) != FALSE;
}

LineResult GrantUsersFullAccess(const WideString& folder) {
  UniqueLocalMemory descriptor;
  PACL oldDacl = nullptr;
  DWORD rc = GetNamedSecurityInfoW(folder.Data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                   &oldDacl, nullptr, reinterpret_cast<PSECURITY_DESCRIPTOR*>(descriptor.Put()));
  if (rc != ERROR_SUCCESS) return {HresultFromWin32(static_cast<int32_t>(rc)), 1};

  UniqueSid users;
  SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
  if (!AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_USERS, 0, 0, 0, 0, 0,
                                0, users.Put())) {
    return {HresultFromWin32(static_cast<int32_t>(GetLastError())), 2};
  }

  EXPLICIT_ACCESSW access{};
  // Standard required rights plus the six low specific rights, on purpose.
  access.grfAccessPermissions = 0x000F003F;
  access.grfAccessMode = SET_ACCESS;
  access.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
  access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  access.Trustee.TrusteeType = TRUSTEE_IS_GROUP;
  access.Trustee.ptstrName = static_cast<LPWSTR>(users.Get());

  UniqueLocalMemory newDacl;
  rc = SetEntriesInAclW(1, &access, oldDacl, reinterpret_cast<PACL*>(newDacl.Put()));
  // This step's code is reported raw, as a Win32 code.
  if (rc != ERROR_SUCCESS) return {static_cast<int32_t>(rc), 4};

  rc = SetNamedSecurityInfoW(const_cast<wchar_t*>(folder.Data()), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                             nullptr, static_cast<PACL>(newDacl.Get()), nullptr);
  return {HresultFromWin32(static_cast<int32_t>(rc)), 5};
}

}  // namespace quillon
