// An endpoint property store that answers only the endpoint's GUID text.
#pragma once

#include <propsys.h>

#include <atomic>
#include <string>

namespace quillon::test {

class FakePropertyStore final : public IPropertyStore {
 public:
  // An empty `endpointGuid` makes GetValue fail.
  explicit FakePropertyStore(std::wstring endpointGuid) : guid_(std::move(endpointGuid)) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IPropertyStore)) {
      *ppv = this;
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs_; }  // lives on the test's stack

  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override {
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    static const GUID kEndpointGuidFmtid = {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}};
    PropVariantInit(value);
    if (guid_.empty() || !IsEqualGUID(key.fmtid, kEndpointGuidFmtid) || key.pid != 4) return E_FAIL;
    size_t bytes = (guid_.size() + 1) * sizeof(wchar_t);
    value->pwszVal = static_cast<wchar_t*>(CoTaskMemAlloc(bytes));
    memcpy(value->pwszVal, guid_.c_str(), bytes);
    value->vt = VT_LPWSTR;
    ++reads;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return E_NOTIMPL; }

  int reads = 0;

 private:
  std::atomic<ULONG> refs_{1};
  std::wstring guid_;
};

}  // namespace quillon::test
