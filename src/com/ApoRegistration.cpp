#include "com/ApoRegistration.h"

#include "platform/Registry.h"
#include "diag/ErrorDescription.h"

#include <cwchar>

namespace quillon {
namespace {

constexpr const wchar_t* kApoKey = L"AudioEngine\\AudioProcessingObjects";

HRESULT FromWin32(LSTATUS rc) { return HresultFromWin32(static_cast<int32_t>(rc)); }

HRESULT SetText(HKEY key, const wchar_t* name, const wchar_t* text) {
  const size_t bytes = (wcslen(text) + 1) * sizeof(wchar_t);
  if (bytes > 512) return E_INVALIDARG;
  return FromWin32(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                                  static_cast<DWORD>(bytes)));
}

HRESULT SetDword(HKEY key, const wchar_t* name, DWORD value) {
  return FromWin32(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value)));
}

HRESULT WriteValues(HKEY key, const APO_REG_PROPERTIES& r) {
  HRESULT hr;
  if (FAILED(hr = SetText(key, L"FriendlyName", r.szFriendlyName))) return hr;
  if (FAILED(hr = SetText(key, L"Copyright", r.szCopyrightInfo))) return hr;
  const struct {
    const wchar_t* name;
    DWORD value;
  } numbers[] = {
      {L"MajorVersion", r.u32MajorVersion},
      {L"MinorVersion", r.u32MinorVersion},
      {L"Flags", static_cast<DWORD>(r.Flags)},
      {L"MinInputConnections", r.u32MinInputConnections},
      {L"MaxInputConnections", r.u32MaxInputConnections},
      {L"MinOutputConnections", r.u32MinOutputConnections},
      {L"MaxOutputConnections", r.u32MaxOutputConnections},
      {L"MaxInstances", r.u32MaxInstances},
      {L"NumAPOInterfaces", r.u32NumAPOInterfaces},
  };
  for (const auto& n : numbers) {
    if (FAILED(hr = SetDword(key, n.name, n.value))) return hr;
  }
  for (UINT32 i = 0; i < r.u32NumAPOInterfaces; ++i) {
    wchar_t name[512];
    if (swprintf(name, 512, L"APOInterface%u", i) < 0) return E_FAIL;
    wchar_t iid[512];
    const int chars = StringFromGUID2(r.iidAPOInterfaceList[i], iid, 512);
    if (chars == 0) return S_OK;
    if (chars * sizeof(wchar_t) > 1024) return E_INVALIDARG;
    hr = FromWin32(RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(iid),
                                  static_cast<DWORD>(chars * sizeof(wchar_t))));
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

}  // namespace

HRESULT WriteApoRegistration(const APO_REG_PROPERTIES* record) {
  if (record == nullptr) return E_POINTER;
  ScopedRegKey parent;
  LSTATUS rc = RegCreateKeyExW(HKEY_CLASSES_ROOT, kApoKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                               parent.Put(), nullptr);
  if (rc != ERROR_SUCCESS) return FromWin32(rc);

  wchar_t clsid[512];
  if (StringFromGUID2(record->clsid, clsid, 512) == 0) return S_OK;
  // A stale registration (without subkeys) is replaced whole.
  RegDeleteKeyExW(parent.Get(), clsid, 0, 0);

  ScopedRegKey key;
  rc = RegCreateKeyExW(parent.Get(), clsid, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, key.Put(),
                       nullptr);
  if (rc != ERROR_SUCCESS) return FromWin32(rc);
  return WriteValues(key.Get(), *record);
}

HRESULT RemoveApoRegistration(REFCLSID clsid) {
  ScopedRegKey parent;
  LSTATUS rc = RegOpenKeyExW(HKEY_CLASSES_ROOT, kApoKey, 0, KEY_WRITE, parent.Put());
  if (rc != ERROR_SUCCESS) return FromWin32(rc);
  wchar_t text[512];
  if (StringFromGUID2(clsid, text, 512) == 0) return S_OK;
  return FromWin32(RegDeleteKeyExW(parent.Get(), text, 0, 0));
}

}  // namespace quillon
