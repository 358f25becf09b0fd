#include "platform/Registry.h"

#include <cwchar>
#include <vector>

namespace quillon {
namespace {

HKEY RootFromName(const std::wstring& name) {
  static const struct {
    const wchar_t* longName;
    const wchar_t* shortName;
    HKEY root;
  } roots[] = {
      {L"HKEY_CLASSES_ROOT", L"HKCR", HKEY_CLASSES_ROOT},   {L"HKEY_CURRENT_USER", L"HKCU", HKEY_CURRENT_USER},
      {L"HKEY_LOCAL_MACHINE", L"HKLM", HKEY_LOCAL_MACHINE}, {L"HKEY_USERS", L"HKU", HKEY_USERS},
      {L"HKEY_CURRENT_CONFIG", L"HKCC", HKEY_CURRENT_CONFIG},
  };
  for (const auto& r : roots) {
    if (_wcsicmp(name.c_str(), r.longName) == 0 || _wcsicmp(name.c_str(), r.shortName) == 0) return r.root;
  }
  return nullptr;
}

}  // namespace

RegistryPath ParseRegistryPath(const std::wstring& text) {
  RegistryPath path;
  const size_t first = text.find(L'\\');
  if (first == std::wstring::npos || first == 0) return path;

  path.rootName = text.substr(0, first);
  path.root = RootFromName(path.rootName);
  if (path.root == nullptr) path.rootName.clear();

  const size_t separator = text.find(L'\x1C');
  if (separator != std::wstring::npos) {
    if (separator > first) path.subKey = text.substr(first + 1, separator - first - 1);
    path.valueName = text.substr(separator + 1);
    return path;
  }
  const size_t last = text.rfind(L'\\');
  if (last == first) return path;
  if (last == text.size() - 1) {
    path.subKey = text.substr(first + 1);
  } else {
    path.subKey = text.substr(first + 1, last - first - 1);
    path.valueName = text.substr(last + 1);
  }
  return path;
}

RegResult OpenRegistryKey(const RegistryPath& path, REGSAM access, bool createIfMissing, ScopedRegKey& key) {
  if (path.root == nullptr) return {RegStep::kUnknownRoot, ERROR_FILE_NOT_FOUND};
  LSTATUS rc = RegOpenKeyExW(path.root, path.subKey.c_str(), 0, access, key.Put());
  if (rc != ERROR_FILE_NOT_FOUND || !createIfMissing) return {RegStep::kOpenKey, static_cast<uint32_t>(rc)};

  // Create every missing level in one call, below the root itself.
  std::wstring full = path.rootName + L"\\" + path.subKey;
  if (full.empty() || full.back() != L'\\') full += L'\\';
  RegistryPath rootOnly = ParseRegistryPath(full);
  const std::wstring toCreate = rootOnly.subKey;
  rootOnly.subKey.clear();

  ScopedRegKey root;
  RegResult opened = OpenRegistryKey(rootOnly, KEY_CREATE_SUB_KEY, false, root);
  if (!opened.Ok()) return opened;
  ScopedRegKey created;
  DWORD disposition = 0;
  rc = RegCreateKeyExW(root.Get(), toCreate.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                       created.Put(), &disposition);
  created.Reset();
  root.Reset();
  if (rc != ERROR_SUCCESS) return {RegStep::kCreateKey, static_cast<uint32_t>(rc)};
  return OpenRegistryKey(path, access, false, key);
}

RegResult ReadRegistryDword(const std::wstring& fullPath, uint32_t& value) {
  const RegistryPath path = ParseRegistryPath(fullPath);
  ScopedRegKey key;
  RegResult result = OpenRegistryKey(path, KEY_QUERY_VALUE, false, key);
  if (!result.Ok()) return result;

  DWORD type = 0;
  DWORD data = 0;
  DWORD size = sizeof(data);
  LSTATUS rc = RegQueryValueExW(key.Get(), path.valueName.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&data),
                                &size);
  result = {RegStep::kQueryDword, static_cast<uint32_t>(rc)};
  if (rc == ERROR_SUCCESS || rc == ERROR_MORE_DATA) {
    if (type != REG_DWORD) {
      result = {RegStep::kDwordType, ERROR_DATATYPE_MISMATCH};
    } else {
      value = data;
    }
  }
  return result;
}

RegResult ReadRegistryString(const std::wstring& fullPath, std::wstring& value) {
  const RegistryPath path = ParseRegistryPath(fullPath);
  ScopedRegKey key;
  RegResult result = OpenRegistryKey(path, KEY_QUERY_VALUE, false, key);
  if (!result.Ok()) return result;

  // The first query offers 512 bytes (255 characters and the terminator) of a
  // 1024-byte buffer, so a longer text takes a second query.
  std::vector<BYTE> buffer(1024, 0);
  DWORD type = 0;
  DWORD size = 512;
  LSTATUS rc = RegQueryValueExW(key.Get(), path.valueName.c_str(), nullptr, &type, buffer.data(), &size);
  result = {RegStep::kQueryText, static_cast<uint32_t>(rc)};
  if (rc == ERROR_MORE_DATA) {
    buffer.assign(static_cast<size_t>(size) * 2, 0);
    rc = RegQueryValueExW(key.Get(), path.valueName.c_str(), nullptr, nullptr, buffer.data(), &size);
    result = {RegStep::kQueryTextAgain, static_cast<uint32_t>(rc)};
  }
  if (rc != ERROR_SUCCESS) return result;

  const auto* text = reinterpret_cast<const wchar_t*>(buffer.data());
  if (type == REG_SZ) {
    value = text;
  } else if (type == REG_EXPAND_SZ) {
    DWORD length = ExpandEnvironmentStringsW(text, nullptr, 0);
    std::vector<wchar_t> expanded(length + 1, L'\0');
    ExpandEnvironmentStringsW(text, expanded.data(), length);
    value = expanded.data();
  } else {
    result = {RegStep::kTextType, ERROR_DATATYPE_MISMATCH};
  }
  return result;
}

}  // namespace quillon
