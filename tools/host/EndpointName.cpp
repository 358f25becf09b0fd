#include "host/EndpointName.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"

#include <windows.h>

namespace quillon::tools {

namespace {

constexpr wchar_t kCaptureKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\";
constexpr wchar_t kFriendlyName[] = L"{a45c254e-df1c-4efd-8020-67d146a850e0},14";

}  // namespace

EndpointName::EndpointName(const std::wstring& endpoint, const std::wstring& name) {
  const size_t open = endpoint.rfind(L'{');
  key_ = kCaptureKey + (open == std::wstring::npos ? endpoint : endpoint.substr(open));
  ScopedRegKey existing, properties;
  madeKey_ = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key_.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, existing.Put()) !=
             ERROR_SUCCESS;
  status_ = RegCreateKeyExW(HKEY_LOCAL_MACHINE, (key_ + L"\\Properties").c_str(), 0, nullptr, 0,
                            KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, properties.Put(), nullptr);
  if (status_ != ERROR_SUCCESS) return;
  status_ = RegSetValueExW(properties.Get(), kFriendlyName, 0, REG_SZ, reinterpret_cast<const BYTE*>(name.c_str()),
                           static_cast<DWORD>((name.size() + 1) * sizeof(wchar_t)));
}

EndpointName::~EndpointName() {
  if (madeKey_) {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key_.c_str());
  } else {
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, (key_ + L"\\Properties").c_str(), kFriendlyName);
  }
}

bool EndpointName::Written(std::string& error) const {
  if (status_ == ERROR_SUCCESS) return true;
  error = "cannot name the endpoint in HKLM\\" + Narrow(key_) + ": " + SystemText(static_cast<unsigned long>(status_));
  return false;
}

}  // namespace quillon::tools
