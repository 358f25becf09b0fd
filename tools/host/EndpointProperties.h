// The endpoint's property store as the audio engine hands it to Initialize:
// it answers PKEY_AudioEndpoint_GUID with the endpoint's text (an empty text
// makes the read fail).
#pragma once

#include <propsys.h>

#include <atomic>
#include <cstring>
#include <string>

namespace quillon::tools {

class EndpointProperties final : public IPropertyStore {
 public:
  explicit EndpointProperties(std::wstring guid) : guid_(std::move(guid)) {}
  const std::wstring& Endpoint() const { return guid_; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IPropertyStore)) {
      *ppv = this;
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  // Lives as long as its owner; the count only tracks the callers' references.
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs_; }

  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override {
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    // {1DA5D803-D492-4EDD-8C23-E0C0FFEE7F0E}, 4
    static const GUID kFmtid = {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}};
    PropVariantInit(value);
    if (guid_.empty() || !IsEqualGUID(key.fmtid, kFmtid) || key.pid != 4) return E_FAIL;
    const size_t bytes = (guid_.size() + 1) * sizeof(wchar_t);
    value->pwszVal = static_cast<wchar_t*>(CoTaskMemAlloc(bytes));
    std::memcpy(value->pwszVal, guid_.c_str(), bytes);
    value->vt = VT_LPWSTR;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return E_NOTIMPL; }

 private:
  std::atomic<ULONG> refs_{1};
  std::wstring guid_;
};

}  // namespace quillon::tools
