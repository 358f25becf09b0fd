// Registry values written by a test and removed again when it ends.
#pragma once

#include "platform/RegistrySettings.h"

#include <windows.h>

#include <initializer_list>
#include <string>

namespace quillon::test {

// Quillon's settings of one endpoint's stream (the gain).
inline std::wstring GainKey(const std::wstring& endpoint) { return EndpointSettingsKey(MicGainSubkey(endpoint)); }

// An HKLM value of `types` as text (a multi-string's first), or "(none)".
inline std::wstring RegText(const std::wstring& key, const wchar_t* name, DWORD types = RRF_RT_REG_SZ) {
  wchar_t text[2048] = {};
  DWORD size = sizeof(text);
  const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, types, nullptr, text, &size);
  return status == ERROR_SUCCESS ? text : L"(none)";
}

// An HKLM number value, or 0xDEAD.
inline DWORD RegDword(const std::wstring& key, const wchar_t* name) {
  DWORD value = 0xDEAD, size = sizeof(value);
  RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_DWORD, nullptr, &value, &size);
  return value;
}

inline bool RegHas(const std::wstring& key, const wchar_t* name) {
  return RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

// Deletes HKLM keys with everything below them.
inline void DeleteKeys(std::initializer_list<std::wstring> keys) {
  for (const std::wstring& key : keys) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
}

class ScopedRegistryValue {
 public:
  ScopedRegistryValue(HKEY root, std::wstring key, std::wstring name) : root_(root), key_(std::move(key)),
                                                                          name_(std::move(name)) {}
  ScopedRegistryValue(const ScopedRegistryValue&) = delete;
  ScopedRegistryValue& operator=(const ScopedRegistryValue&) = delete;
  ~ScopedRegistryValue() { Delete(); }

  // Writes the value, making its key and any missing key above it.
  bool Set(DWORD type, const void* data, DWORD bytes) {
    return RegSetKeyValueW(root_, key_.c_str(), name_.c_str(), type, data, bytes) == ERROR_SUCCESS;
  }
  bool SetString(const std::wstring& text, DWORD type = REG_SZ) {
    return Set(type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }
  bool SetDword(DWORD value) { return Set(REG_DWORD, &value, sizeof(value)); }
  void Delete() { RegDeleteKeyValueW(root_, key_.c_str(), name_.c_str()); }

 private:
  HKEY root_;
  std::wstring key_, name_;
};

}  // namespace quillon::test
