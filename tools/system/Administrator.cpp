#include "system/Administrator.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"
#include "system/RegistryEdit.h"

#include <windows.h>
#include <aclapi.h>

namespace quillon::system {

using tools::SystemText;

namespace {

struct AdministratorsSid {
  BYTE bytes[SECURITY_MAX_SID_SIZE];
  AdministratorsSid() {
    DWORD size = sizeof(bytes);
    CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, bytes, &size);
  }
  PSID Get() { return bytes; }
};

bool EnablePrivilege(const wchar_t* name) {
  UniqueHandle token;
  TOKEN_PRIVILEGES privileges{1, {{{0, 0}, SE_PRIVILEGE_ENABLED}}};
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, token.Put()) ||
      !LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid)) {
    return false;
  }
  return AdjustTokenPrivileges(token.Get(), FALSE, &privileges, 0, nullptr, nullptr) &&
         GetLastError() == ERROR_SUCCESS;
}

}  // namespace

bool IsAdministrator() {
  AdministratorsSid administrators;
  BOOL member = FALSE;
  return CheckTokenMembership(nullptr, administrators.Get(), &member) && member;
}

bool TakeOwnership(const std::wstring& key, std::string& error) {
  AdministratorsSid administrators;
  std::wstring object = L"MACHINE\\" + key;
  EnablePrivilege(SE_TAKE_OWNERSHIP_NAME);
  DWORD status = SetNamedSecurityInfoW(object.data(), SE_REGISTRY_KEY, OWNER_SECURITY_INFORMATION,
                                       administrators.Get(), nullptr, nullptr, nullptr);
  PACL oldAcl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (status == ERROR_SUCCESS) {
    status = GetNamedSecurityInfoW(object.data(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                   &oldAcl, nullptr, &descriptor);
  }
  UniqueLocalMemory ownedDescriptor(descriptor);
  PACL newAcl = nullptr;
  if (status == ERROR_SUCCESS) {
    EXPLICIT_ACCESSW access{};
    access.grfAccessPermissions = KEY_ALL_ACCESS;
    access.grfAccessMode = GRANT_ACCESS;
    access.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = TRUSTEE_IS_GROUP;
    access.Trustee.ptstrName = static_cast<LPWSTR>(administrators.Get());
    status = SetEntriesInAclW(1, &access, oldAcl, &newAcl);
  }
  UniqueLocalMemory ownedAcl(newAcl);
  if (status == ERROR_SUCCESS) {
    status = SetNamedSecurityInfoW(object.data(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                   newAcl, nullptr);
  }
  if (status != ERROR_SUCCESS) error = "cannot take " + HklmText(key) + " for the Administrators group: " + SystemText(status);
  return status == ERROR_SUCCESS;
}

}  // namespace quillon::system
