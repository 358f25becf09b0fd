#include "system/ServiceAccess.h"

#include "common/ToolSupport.h"

#include <windows.h>
#include <aclapi.h>

#include <vector>

namespace quillon::system {

using tools::SystemText;

namespace {

// Reading the data and executing it: for a folder, listing it and passing through.
constexpr ACCESS_MASK kNeeded = FILE_READ_DATA | FILE_EXECUTE;

struct LocalFreed {
  void* memory = nullptr;
  ~LocalFreed() { LocalFree(memory); }
};

// The SIDs a LOCAL SERVICE token holds: the account, its well-known groups,
// and the audio service's own SID where this Windows can name it.
std::vector<std::vector<BYTE>> LocalServiceGroups() {
  std::vector<std::vector<BYTE>> sids;
  for (WELL_KNOWN_SID_TYPE type : {WinLocalServiceSid, WinWorldSid, WinBuiltinUsersSid, WinServiceSid,
                                   WinAuthenticatedUserSid, WinThisOrganizationSid, WinLocalSid}) {
    std::vector<BYTE> sid(SECURITY_MAX_SID_SIZE);
    DWORD size = static_cast<DWORD>(sid.size());
    if (CreateWellKnownSid(type, nullptr, sid.data(), &size)) sids.push_back(std::move(sid));
  }
  std::vector<BYTE> service(SECURITY_MAX_SID_SIZE);
  DWORD size = static_cast<DWORD>(service.size());
  wchar_t domain[256];
  DWORD domainSize = 256;
  SID_NAME_USE use;
  if (LookupAccountNameW(nullptr, L"NT SERVICE\\AudioSrv", service.data(), &size, domain, &domainSize, &use)) {
    sids.push_back(std::move(service));
  }
  return sids;
}

bool Holds(const std::vector<std::vector<BYTE>>& groups, PSID sid) {
  for (const std::vector<BYTE>& group : groups) {
    if (EqualSid(const_cast<BYTE*>(group.data()), sid)) return true;
  }
  return false;
}

ACCESS_MASK Mapped(ACCESS_MASK mask) {
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  MapGenericMask(&mask, &mapping);
  return mask;
}

}  // namespace

bool LocalServiceMayRun(const std::wstring& path, std::string& why) {
  LocalFreed descriptor;
  const DWORD status = GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                             nullptr, nullptr, nullptr, &descriptor.memory);
  if (status != ERROR_SUCCESS) {
    why = "its access list cannot be read: " + SystemText(status);
    return false;
  }
  return LocalServiceMayRun(descriptor.memory, why);
}

bool LocalServiceMayRun(PSECURITY_DESCRIPTOR descriptor, std::string& why) {
  BOOL present = FALSE, defaulted = FALSE;
  PACL dacl = nullptr;
  if (!GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted)) {
    why = "its access list cannot be read: " + SystemText(GetLastError());
    return false;
  }
  if (!present || dacl == nullptr) return true;  // no access list: everyone may do everything
  const std::vector<std::vector<BYTE>> groups = LocalServiceGroups();
  // Entries count in order: a right denied before it is allowed stays denied.
  ACCESS_MASK granted = 0, denied = 0;
  for (DWORD i = 0; i < dacl->AceCount; ++i) {
    ACE_HEADER* header = nullptr;
    if (!GetAce(dacl, i, reinterpret_cast<void**>(&header)) || (header->AceFlags & INHERIT_ONLY_ACE) != 0) continue;
    if (header->AceType == ACCESS_ALLOWED_ACE_TYPE) {
      auto* ace = reinterpret_cast<ACCESS_ALLOWED_ACE*>(header);
      if (Holds(groups, &ace->SidStart)) granted |= Mapped(ace->Mask) & ~denied;
    } else if (header->AceType == ACCESS_DENIED_ACE_TYPE) {
      auto* ace = reinterpret_cast<ACCESS_DENIED_ACE*>(header);
      if (Holds(groups, &ace->SidStart)) denied |= Mapped(ace->Mask) & ~granted;
    }
  }
  if ((granted & kNeeded) == kNeeded) return true;
  why = (denied & kNeeded) != 0 ? "its access list denies LOCAL SERVICE, under which the audio engine runs, "
                                  "reading or executing it"
                                : "its access list does not let LOCAL SERVICE, under which the audio engine runs, "
                                  "read and execute it";
  return false;
}

}  // namespace quillon::system
