#include "system/RegistryEdit.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"

#include <cstdio>
#include <cstring>

namespace quillon::system {

using tools::Utf8;

namespace {

// The native view even if this program ever runs emulated.
constexpr REGSAM kView = KEY_WOW64_64KEY;

std::string TypeName(DWORD type) {
  switch (type) {
    case REG_SZ: return "REG_SZ";
    case REG_EXPAND_SZ: return "REG_EXPAND_SZ";
    case REG_MULTI_SZ: return "REG_MULTI_SZ";
    case REG_DWORD: return "REG_DWORD";
    case REG_BINARY: return "REG_BINARY";
    case REG_QWORD: return "REG_QWORD";
    default: return "type " + std::to_string(type);
  }
}

std::string Shown(const RegValue& value) {
  if (const std::optional<std::wstring> text = value.AsText()) return "\"" + Utf8(*text) + "\"";
  if (value.type == REG_MULTI_SZ) {
    std::string shown;
    for (const std::wstring& text : value.AsMultiText()) shown += (shown.empty() ? "\"" : ", \"") + Utf8(text) + "\"";
    return shown.empty() ? "(empty list)" : shown;
  }
  if (value.type == REG_DWORD && value.data.size() == 4) {
    DWORD number;
    std::memcpy(&number, value.data.data(), 4);
    return std::to_string(number);
  }
  return std::to_string(value.data.size()) + " bytes";
}

}  // namespace

RegValue RegValue::Text(const std::wstring& text) {
  RegValue value{REG_SZ, {}};
  const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
  value.data.assign(bytes, bytes + (text.size() + 1) * sizeof(wchar_t));
  return value;
}

RegValue RegValue::MultiText(const std::vector<std::wstring>& texts) {
  std::wstring joined;
  for (const std::wstring& text : texts) joined += text + L'\0';
  joined += L'\0';
  RegValue value{REG_MULTI_SZ, {}};
  const BYTE* bytes = reinterpret_cast<const BYTE*>(joined.data());
  value.data.assign(bytes, bytes + joined.size() * sizeof(wchar_t));
  return value;
}

RegValue RegValue::Dword(DWORD number) {
  RegValue value{REG_DWORD, std::vector<BYTE>(4)};
  std::memcpy(value.data.data(), &number, 4);
  return value;
}

std::optional<std::wstring> RegValue::AsText() const {
  if (type != REG_SZ && type != REG_EXPAND_SZ) return std::nullopt;
  std::wstring text(data.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
  return text.substr(0, text.find(L'\0'));
}

std::vector<std::wstring> RegValue::AsMultiText() const {
  std::vector<std::wstring> texts;
  if (type != REG_MULTI_SZ) return texts;
  std::wstring all(data.size() / sizeof(wchar_t), L'\0');
  std::memcpy(all.data(), data.data(), all.size() * sizeof(wchar_t));
  for (size_t start = 0; start < all.size();) {
    const size_t end = std::min(all.find(L'\0', start), all.size());
    if (end == start) break;
    texts.push_back(all.substr(start, end - start));
    start = end + 1;
  }
  return texts;
}

std::string HklmText(const std::wstring& key) { return "HKLM\\" + Utf8(key); }

bool KeyExists(const std::wstring& key) {
  ScopedRegKey opened;
  return RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ | kView, opened.Put()) == ERROR_SUCCESS;
}

std::optional<RegValue> ReadValue(const std::wstring& key, const std::wstring& name) {
  ScopedRegKey opened;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE | kView, opened.Put()) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  RegValue value;
  DWORD size = 0;
  LSTATUS status = RegQueryValueExW(opened.Get(), name.c_str(), nullptr, &value.type, nullptr, &size);
  while (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
    value.data.resize(size);
    status = RegQueryValueExW(opened.Get(), name.c_str(), nullptr, &value.type, value.data.data(), &size);
    if (status == ERROR_SUCCESS) {
      value.data.resize(size);
      return value;
    }
  }
  return std::nullopt;
}

std::vector<std::wstring> SubKeys(const std::wstring& key) {
  std::vector<std::wstring> names;
  ScopedRegKey opened;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ | kView, opened.Put()) != ERROR_SUCCESS) return names;
  wchar_t name[256];
  for (DWORD i = 0;; ++i) {
    DWORD length = 256;
    if (RegEnumKeyExW(opened.Get(), i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    names.emplace_back(name, length);
  }
  return names;
}

KeySnapshot Snapshot(const std::wstring& key) {
  KeySnapshot snapshot{key, false, {}};
  ScopedRegKey opened;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ | kView, opened.Put()) != ERROR_SUCCESS) {
    return snapshot;
  }
  snapshot.existed = true;
  std::vector<wchar_t> name(16384);
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(name.size());
    if (RegEnumValueW(opened.Get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
      break;
    }
    const std::wstring valueName(name.data(), length);
    if (std::optional<RegValue> value = ReadValue(key, valueName)) {
      snapshot.values.emplace_back(valueName, std::move(*value));
    }
  }
  return snapshot;
}

std::vector<RegChange> UndoChanges(const std::vector<KeySnapshot>& snapshots) {
  std::vector<RegChange> changes;
  for (auto snapshot = snapshots.rbegin(); snapshot != snapshots.rend(); ++snapshot) {
    if (!snapshot->existed) {
      changes.push_back(RegChange::DeleteTree(snapshot->key));
      continue;
    }
    for (const auto& [name, now] : Snapshot(snapshot->key).values) {
      bool kept = false;
      for (const auto& [earlier, value] : snapshot->values) kept = kept || earlier == name;
      if (!kept) changes.push_back(RegChange::Delete(snapshot->key, name));
    }
    for (const auto& [name, value] : snapshot->values) changes.push_back(RegChange::Set(snapshot->key, name, value));
  }
  return changes;
}

RegChange RegChange::Set(std::wstring key, std::wstring name, RegValue value) {
  return {kSetValue, std::move(key), std::move(name), std::move(value)};
}
RegChange RegChange::Delete(std::wstring key, std::wstring name) {
  return {kDeleteValue, std::move(key), std::move(name), {}};
}
RegChange RegChange::DeleteTree(std::wstring key) { return {kDeleteTree, std::move(key), {}, {}}; }
RegChange RegChange::DeleteKeyIfEmpty(std::wstring key) { return {kDeleteKeyIfEmpty, std::move(key), {}, {}}; }

std::string Describe(const RegChange& change) {
  const std::string where = HklmText(change.key);
  switch (change.kind) {
    case RegChange::kSetValue:
      return "set " + where + "\\" + Utf8(change.name) + " = " + Shown(change.value) + " (" +
             TypeName(change.value.type) + ")";
    case RegChange::kDeleteValue: return "delete " + where + "\\" + Utf8(change.name);
    case RegChange::kDeleteTree: return "delete the key " + where;
    case RegChange::kDeleteKeyIfEmpty: return "delete the key " + where + " if nothing else is in it";
  }
  return "";
}

LSTATUS Apply(const std::vector<RegChange>& changes, std::wstring& failedKey) {
  for (const RegChange& change : changes) {
    LSTATUS status = ERROR_SUCCESS;
    ScopedRegKey key;
    switch (change.kind) {
      case RegChange::kSetValue:
        status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, change.key.c_str(), 0, nullptr, 0, KEY_SET_VALUE | kView,
                                 nullptr, key.Put(), nullptr);
        if (status == ERROR_SUCCESS) {
          status = RegSetValueExW(key.Get(), change.name.c_str(), 0, change.value.type, change.value.data.data(),
                                  static_cast<DWORD>(change.value.data.size()));
        }
        break;
      case RegChange::kDeleteValue:
        status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, change.key.c_str(), 0, KEY_SET_VALUE | kView, key.Put());
        if (status == ERROR_SUCCESS) status = RegDeleteValueW(key.Get(), change.name.c_str());
        break;
      case RegChange::kDeleteTree:
        status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, change.key.c_str(), 0, DELETE | KEY_ALL_ACCESS | kView, key.Put());
        if (status == ERROR_SUCCESS) status = RegDeleteTreeW(key.Get(), nullptr);
        key.Reset();
        if (status == ERROR_SUCCESS) status = RegDeleteKeyExW(HKEY_LOCAL_MACHINE, change.key.c_str(), kView, 0);
        break;
      case RegChange::kDeleteKeyIfEmpty: {
        DWORD subKeys = 0, values = 0;
        status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, change.key.c_str(), 0, KEY_READ | kView, key.Put());
        if (status == ERROR_SUCCESS) {
          status = RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values,
                                    nullptr, nullptr, nullptr, nullptr);
        }
        key.Reset();
        if (status == ERROR_SUCCESS && subKeys == 0 && values == 0) {
          status = RegDeleteKeyExW(HKEY_LOCAL_MACHINE, change.key.c_str(), kView, 0);
        }
        break;
      }
    }
    if (status == ERROR_FILE_NOT_FOUND && change.kind != RegChange::kSetValue) status = ERROR_SUCCESS;
    if (status != ERROR_SUCCESS) {
      failedKey = change.key;
      return status;
    }
  }
  return ERROR_SUCCESS;
}

}  // namespace quillon::system
