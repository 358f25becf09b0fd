// Registry access by one full path text naming root, key and value together,
// such as "HKEY_LOCAL_MACHINE\SOFTWARE\Marrowin\Quillon\LogLevel". No routine
// logs or throws; every outcome is a RegResult. The registry view native to the
// process is used (no WOW64 flags).
#pragma once

#include "platform/UniqueResource.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace quillon {

// Which call produced a RegResult (for diagnostics; callers test only `error`).
namespace RegStep {
constexpr uint32_t kUnknownRoot = 16;
constexpr uint32_t kOpenKey = 20;
constexpr uint32_t kCreateKey = 350;
constexpr uint32_t kQueryDword = 54;
constexpr uint32_t kDwordType = 59;
constexpr uint32_t kQueryText = 103;
constexpr uint32_t kQueryTextAgain = 109;
constexpr uint32_t kTextType = 122;
}  // namespace RegStep

struct RegResult {
  uint32_t step = 0;
  uint32_t error = 0;  // the Win32 code of the failing call; 0 on success
  bool Ok() const { return error == 0; }
};

struct RegistryPath {
  HKEY root = nullptr;     // null when the root name is not recognised
  std::wstring rootName;   // as written in the path; empty when not recognised
  std::wstring subKey;     // key path below the root, no leading backslash
  std::wstring valueName;  // empty names the key's default value
};

// Splits a full path text. A path ending in a backslash names a key (default
// value); otherwise the last component is the value name. The character U+001C,
// when present, separates key and value explicitly (value names may then hold
// backslashes). Never fails: an unusable text gives an empty record.
RegistryPath ParseRegistryPath(const std::wstring& text);

// Opens the path's key with `access`; with `createIfMissing`, a missing key is
// created with every missing level and then opened. On success `key` holds it.
RegResult OpenRegistryKey(const RegistryPath& path, REGSAM access, bool createIfMissing, ScopedRegKey& key);

// Reads a REG_DWORD value. With ERROR_MORE_DATA the value is still written.
RegResult ReadRegistryDword(const std::wstring& fullPath, uint32_t& value);

// Reads a REG_SZ or REG_EXPAND_SZ (expanded) value.
RegResult ReadRegistryString(const std::wstring& fullPath, std::wstring& value);

}  // namespace quillon
