// Registry values as data, and changes to HKLM made as a list: a command first
// builds every change it will make (so that it can check them all, print them
// for --dry-run, or undo them), then applies the list. Keys are paths below
// HKEY_LOCAL_MACHINE in the registry view native to Windows.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quillon::system {

struct RegValue {
  DWORD type = REG_NONE;
  std::vector<BYTE> data;

  static RegValue Text(const std::wstring& text);
  static RegValue MultiText(const std::vector<std::wstring>& texts);
  static RegValue Dword(DWORD value);
  // The text of a REG_SZ or REG_EXPAND_SZ value; nothing for other types.
  std::optional<std::wstring> AsText() const;
  std::vector<std::wstring> AsMultiText() const;
  bool operator==(const RegValue& other) const { return type == other.type && data == other.data; }
};

// "HKLM\<key>" as printed.
std::string HklmText(const std::wstring& key);

bool KeyExists(const std::wstring& key);
std::optional<RegValue> ReadValue(const std::wstring& key, const std::wstring& name);
// The names of a key's subkeys; none when it does not exist.
std::vector<std::wstring> SubKeys(const std::wstring& key);

struct RegChange {
  enum Kind { kSetValue, kDeleteValue, kDeleteTree, kDeleteKeyIfEmpty } kind;
  std::wstring key;
  std::wstring name;  // the value, for kSetValue and kDeleteValue
  RegValue value;     // for kSetValue

  static RegChange Set(std::wstring key, std::wstring name, RegValue value);
  static RegChange Delete(std::wstring key, std::wstring name);
  static RegChange DeleteTree(std::wstring key);
  static RegChange DeleteKeyIfEmpty(std::wstring key);
};

// What a key held at one moment, to be put back after a failed change.
struct KeySnapshot {
  std::wstring key;
  bool existed = false;
  std::vector<std::pair<std::wstring, RegValue>> values;
};
KeySnapshot Snapshot(const std::wstring& key);
// The changes that give each key back what its snapshot holds: values added
// since are deleted, and a key that did not exist is deleted with its subkeys.
std::vector<RegChange> UndoChanges(const std::vector<KeySnapshot>& snapshots);

// One line: "set HKLM\...\name = "text" (REG_SZ)".
std::string Describe(const RegChange& change);

// Applies the changes in order, creating missing keys for values. Deleting
// what is not there succeeds. On a failure returns its code, with the key
// that refused in `failedKey`; the changes before it stay made.
LSTATUS Apply(const std::vector<RegChange>& changes, std::wstring& failedKey);

}  // namespace quillon::system
