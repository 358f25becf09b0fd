#include "transfer/WinUtils.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"

namespace quillon::WinUtils {

LineResult CreateMemoryMappingFile(MappedView& out, size_t size, const wchar_t* name) {
  UniqueHandle mapping(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name));
  if (!mapping) {
    mapping.Reset(CreateFileMappingW(INVALID_HANDLE_VALUE, GetNullDaclSecurityAttributes(), PAGE_READWRITE, 0,
                                     static_cast<DWORD>(size), name));
  }
  if (!mapping) {
    const DWORD error = GetLastError();
    QLOG(LOG_ERROR, L"WinUtils::CreateMemoryMappingFile", L"Failed to create memory mapping file [Code=%x: %s]", error,
         GetErrorDescription(error).c_str());
    return {HresultFromWin32(static_cast<int32_t>(error)), __LINE__};
  }
  return MemMapView(out, size, std::move(mapping));
}

LineResult MemMapView(MappedView& out, size_t size, UniqueHandle mapping) {
  if (!out.Map(std::move(mapping), size)) {
    const DWORD error = GetLastError();
    QLOG(LOG_ERROR, L"WinUtils::MemMapView", L"Failed to map view of memory mapping file [Code=%x: %s]", error,
         GetErrorDescription(error).c_str());
    return {HresultFromWin32(static_cast<int32_t>(error)), __LINE__};
  }
  return {0, __LINE__};
}

std::wstring PerInstanceName(const wchar_t* prefix, int32_t slot) { return prefix + std::to_wstring(slot); }

}  // namespace quillon::WinUtils
