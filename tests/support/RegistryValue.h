// Registry values written by a test and removed again when it ends.
#pragma once

#include <windows.h>

#include <string>

namespace quillon::test {

inline const wchar_t* const kQuillonKey = L"SOFTWARE\\Marrowin\\Quillon";

class ScopedRegistryValue {
 public:
  ScopedRegistryValue(HKEY root, std::wstring key, std::wstring name) : root_(root), key_(std::move(key)),
                                                                          name_(std::move(name)) {}
  ScopedRegistryValue(const ScopedRegistryValue&) = delete;
  ScopedRegistryValue& operator=(const ScopedRegistryValue&) = delete;
  ~ScopedRegistryValue() { Delete(); }

  bool Set(DWORD type, const void* data, DWORD bytes) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(root_, key_.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr) != ERROR_SUCCESS) {
      return false;
    }
    LSTATUS rc = RegSetValueExW(key, name_.c_str(), 0, type, static_cast<const BYTE*>(data), bytes);
    RegCloseKey(key);
    return rc == ERROR_SUCCESS;
  }
  bool SetString(const std::wstring& text, DWORD type = REG_SZ) {
    return Set(type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }
  bool SetDword(DWORD value) { return Set(REG_DWORD, &value, sizeof(value)); }
  void Delete() { RegDeleteKeyValueW(root_, key_.c_str(), name_.c_str()); }

 private:
  HKEY root_;
  std::wstring key_;
  std::wstring name_;
};

}  // namespace quillon::test
