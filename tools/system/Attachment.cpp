#include "system/Attachment.h"

#include "common/ToolSupport.h"
#include "platform/RegistrySettings.h"
#include "platform/UniqueResource.h"

#include <windows.h>
#include <shlobj.h>

#include <cstdio>

namespace quillon::system {

using tools::SystemText;
using tools::Utf8;
using tools::Wide;

namespace {

// Values of the backup key besides the saved FxProperties values.
constexpr wchar_t kMissingValue[] = L"Missing";
constexpr wchar_t kHadKeyValue[] = L"FxProperties";
constexpr wchar_t kSlotValue[] = L"Slot";

std::wstring Escaped(const std::wstring& text) {
  std::wstring escaped;
  for (wchar_t c : text) {
    if (c == L'\\' || c == L'"') escaped += L'\\';
    escaped += c;
  }
  return escaped;
}

// A value's data as a .reg file line writes it.
std::wstring RegFileData(const RegValue& value) {
  if (value.type == REG_SZ && value.AsText()) return L"\"" + Escaped(*value.AsText()) + L"\"";
  wchar_t hex[16];
  if (value.type == REG_DWORD && value.data.size() == 4) {
    std::swprintf(hex, 16, L"dword:%08lx", *reinterpret_cast<const DWORD*>(value.data.data()));
    return hex;
  }
  std::wstring data = value.type == REG_BINARY ? L"hex:" : L"hex(" + std::to_wstring(value.type) + L"):";
  for (size_t i = 0; i < value.data.size(); ++i) {
    std::swprintf(hex, 16, i == 0 ? L"%02x" : L",%02x", value.data[i]);
    data += hex;
  }
  return data;
}

}  // namespace

std::wstring SettingsKeyOf(const Endpoint& endpoint) { return EndpointSettingsKey(endpoint.guid); }
std::wstring BackupKeyOf(const Endpoint& endpoint) { return SettingsKeyOf(endpoint) + L"\\Backup"; }

std::optional<Backup> ReadBackup(const Endpoint& endpoint) {
  const std::wstring key = BackupKeyOf(endpoint);
  const std::optional<RegValue> slot = ReadValue(key, kSlotValue);
  if (!slot || !slot->AsText()) return std::nullopt;
  Backup backup;
  backup.slot = *slot->AsText();
  const std::optional<RegValue> hadKey = ReadValue(key, kHadKeyValue);
  backup.hadFxKey = hadKey && hadKey->data.size() == 4 && *reinterpret_cast<const DWORD*>(hadKey->data.data()) != 0;
  if (const std::optional<RegValue> missing = ReadValue(key, kMissingValue)) backup.missing = missing->AsMultiText();
  for (const FxValueName& value : FxValueNames()) {
    if (std::optional<RegValue> saved = ReadValue(key, value.name)) backup.values[value.name] = std::move(*saved);
  }
  return backup;
}

Backup TakeBackup(const Endpoint& endpoint) {
  Backup backup;
  backup.hadFxKey = endpoint.hasFxKey;
  backup.values = endpoint.fx;
  for (const FxValueName& value : FxValueNames()) {
    if (endpoint.Fx(value.name) == nullptr) backup.missing.push_back(value.name);
  }
  backup.slot = SlotFor(endpoint);
  return backup;
}

const wchar_t* SlotFor(const Endpoint& endpoint) {
  const bool newerScheme = endpoint.Fx(fx::kStream) || endpoint.Fx(fx::kMode) || endpoint.Fx(fx::kEndpoint);
  return !newerScheme && endpoint.Fx(fx::kPreMix) ? fx::kPreMix : fx::kStream;
}

std::optional<std::wstring> OriginalEffect(const Endpoint& endpoint, const wchar_t* slot) {
  const RegValue* value = endpoint.Fx(slot);
  if (value == nullptr || !value->AsText() || value->AsText()->empty()) return std::nullopt;
  if (SameClassId(*value->AsText(), kQuillonClsidText)) return std::nullopt;
  return value->AsText();
}

bool HoldsQuillon(const Endpoint& endpoint, const std::wstring& slot) {
  const RegValue* value = endpoint.Fx(slot.c_str());
  return value != nullptr && value->AsText() && SameClassId(*value->AsText(), kQuillonClsidText);
}

bool HasQuillon(const Endpoint& endpoint) {
  return HoldsQuillon(endpoint, fx::kStream) || HoldsQuillon(endpoint, fx::kPreMix) ||
         HoldsQuillon(endpoint, fx::kPostMix) || HoldsQuillon(endpoint, fx::kMode) ||
         HoldsQuillon(endpoint, fx::kEndpoint);
}

const FxValueName* CompositeList(const Endpoint& endpoint) {
  for (const FxValueName& value : FxValueNames()) {
    if (value.composite && endpoint.Fx(value.name) != nullptr) return &value;
  }
  return nullptr;
}

std::vector<RegChange> AttachChanges(const Endpoint& endpoint, const Backup& backup) {
  const std::wstring backupKey = BackupKeyOf(endpoint), fxKey = endpoint.FxKey();
  std::vector<RegChange> changes = {RegChange::DeleteTree(backupKey)};
  for (const auto& [name, value] : backup.values) changes.push_back(RegChange::Set(backupKey, name, value));
  changes.push_back(RegChange::Set(backupKey, kMissingValue, RegValue::MultiText(backup.missing)));
  changes.push_back(RegChange::Set(backupKey, kHadKeyValue, RegValue::Dword(backup.hadFxKey ? 1 : 0)));
  changes.push_back(RegChange::Set(backupKey, kSlotValue, RegValue::Text(backup.slot)));

  if (const std::optional<std::wstring> original = OriginalEffect(endpoint, backup.slot.c_str())) {
    changes.push_back(RegChange::Set(SettingsKeyOf(endpoint), kOriginalApoValue, RegValue::Text(*original)));
  } else {
    changes.push_back(RegChange::Delete(SettingsKeyOf(endpoint), kOriginalApoValue));
  }
  changes.push_back(RegChange::Set(fxKey, backup.slot, RegValue::Text(kQuillonClsidText)));
  if (backup.slot == fx::kStream && endpoint.Fx(fx::kStreamModes) == nullptr) {
    changes.push_back(RegChange::Set(fxKey, fx::kStreamModes, RegValue::MultiText({fx::kDefaultMode})));
  }
  if (endpoint.Fx(fx::kEffectsOff) != nullptr) changes.push_back(RegChange::Delete(fxKey, fx::kEffectsOff));
  return changes;
}

std::vector<RegChange> RestoreChanges(const Endpoint& endpoint, const Backup& backup) {
  std::vector<RegChange> changes;
  if (!backup.hadFxKey) {
    changes.push_back(RegChange::DeleteTree(endpoint.FxKey()));
  } else {
    for (const auto& [name, value] : backup.values) changes.push_back(RegChange::Set(endpoint.FxKey(), name, value));
    for (const std::wstring& name : backup.missing) changes.push_back(RegChange::Delete(endpoint.FxKey(), name));
  }
  return changes;
}

std::vector<RegChange> DetachChanges(const Endpoint& endpoint, const Backup& backup) {
  std::vector<RegChange> changes = RestoreChanges(endpoint, backup);
  changes.push_back(RegChange::Delete(SettingsKeyOf(endpoint), kOriginalApoValue));
  changes.push_back(RegChange::DeleteTree(BackupKeyOf(endpoint)));
  changes.push_back(RegChange::DeleteKeyIfEmpty(SettingsKeyOf(endpoint)));
  return changes;
}

std::wstring RegFileText(const Endpoint& endpoint, const Backup& backup) {
  const std::wstring key = L"[HKEY_LOCAL_MACHINE\\" + endpoint.FxKey() + L"]\r\n";
  std::wstring text = L"\xFEFFWindows Registry Editor Version 5.00\r\n\r\n; The effects of " +
                      Wide(endpoint.Describe()) + L" before Quillon was attached.\r\n";
  if (!backup.hadFxKey) return text + L"[-" + key.substr(1) + L"\r\n";
  text += key;
  for (const auto& [name, value] : backup.values) text += L"\"" + name + L"\"=" + RegFileData(value) + L"\r\n";
  for (const std::wstring& name : backup.missing) text += L"\"" + name + L"\"=-\r\n";
  return text + L"\r\n";
}

std::wstring RegFilePath(const Endpoint& endpoint) {
  wchar_t* programData = nullptr;
  std::wstring folder = L"C:\\ProgramData";
  if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &programData))) folder = programData;
  CoTaskMemFree(programData);
  return folder + L"\\Marrowin\\Quillon\\backup\\" + endpoint.guid + L".reg";
}

bool WriteRegFile(const std::wstring& path, const std::wstring& text, std::string& error) {
  const std::wstring folder = path.substr(0, path.rfind(L'\\'));
  const int made = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  if (made != ERROR_SUCCESS && made != ERROR_ALREADY_EXISTS) {
    error = "cannot make " + Utf8(folder) + ": " + SystemText(made);
    return false;
  }
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  const DWORD size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
  if (!file || !WriteFile(file.Get(), text.data(), size, &written, nullptr) || written != size) {
    error = "cannot write " + Utf8(path) + ": " + SystemText(GetLastError());
    return false;
  }
  return true;
}

}  // namespace quillon::system
