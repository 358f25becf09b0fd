#include "transfer/WinUtils.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"

namespace quillon::WinUtils {
namespace {

struct NullDaclAttributes {
  SECURITY_DESCRIPTOR descriptor{};
  SECURITY_ATTRIBUTES attributes{};

  NullDaclAttributes() {
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    // The length field is 8 on purpose: the value the player application has always been given.
    attributes.nLength = 8;
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = TRUE;
  }
};

// Built during library load (a one-time initialisation before any thread of
// the library runs), so the real-time thread never has to fill it.
NullDaclAttributes nullDacl;

}  // namespace

SECURITY_ATTRIBUTES* GetNullDaclSecurityAttributes() { return &nullDacl.attributes; }

LineResult CreateMemoryMappingFile(uint8_t*& outView, size_t size, HANDLE& outHandle, const wchar_t* name) {
  outHandle = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name);
  if (outHandle == nullptr) {
    outHandle = CreateFileMappingW(INVALID_HANDLE_VALUE, GetNullDaclSecurityAttributes(), PAGE_READWRITE, 0,
                                   static_cast<DWORD>(size), name);
  }
  if (outHandle == nullptr) {
    const DWORD error = GetLastError();
    QLOG(LOG_ERROR, L"WinUtils::CreateMemoryMappingFile", L"Failed to create memory mapping file [Code=%x: %s]", error,
         GetErrorDescription(error).c_str());
    return {HresultFromWin32(static_cast<int32_t>(error)), __LINE__};
  }
  return MemMapView(outView, size, outHandle);
}

LineResult MemMapView(uint8_t*& outView, size_t size, HANDLE& handle) {
  outView = static_cast<uint8_t*>(MapViewOfFile(handle, FILE_MAP_ALL_ACCESS, 0, 0, size));
  if (outView == nullptr) {
    const DWORD error = GetLastError();
    QLOG(LOG_ERROR, L"WinUtils::MemMapView", L"Failed to map view of memory mapping file [Code=%x: %s]", error,
         GetErrorDescription(error).c_str());
    if (handle != nullptr) {
      CloseHandle(handle);
      handle = nullptr;
    }
    return {HresultFromWin32(static_cast<int32_t>(error)), __LINE__};
  }
  return {0, __LINE__};
}

std::wstring PerInstanceName(const wchar_t* prefix, int32_t slot) { return prefix + std::to_wstring(slot); }

}  // namespace quillon::WinUtils
