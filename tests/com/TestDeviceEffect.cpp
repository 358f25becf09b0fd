// A device effect of the tests' own, built as a COM DLL and registered in the
// test prefix like an endpoint's real effect. It halves every sample into the
// output buffer. Its answers are set through DWORD values under
// HKCU\Software\QuillonTests\DeviceEffect, read at each call: "FailInitialize"
// (non-zero: Initialize fails), "FormatResult", "LockResult", "UnlockResult"
// (the HRESULT to answer) and "Latency".
#include "platform/ApoInterfaces.h"

#include <atomic>
#include <new>

namespace {

// {B0C5E7A2-4D1F-4E8B-9A63-2F7D5C1E8B40}
const CLSID kTestDeviceEffectClsid = {0xB0C5E7A2, 0x4D1F, 0x4E8B, {0x9A, 0x63, 0x2F, 0x7D, 0x5C, 0x1E, 0x8B, 0x40}};
std::atomic<long> objects{0};

DWORD Setting(const wchar_t* name) {
  DWORD value = 0, size = sizeof(value);
  RegGetValueW(HKEY_CURRENT_USER, L"Software\\QuillonTests\\DeviceEffect", name, RRF_RT_REG_DWORD, nullptr, &value,
               &size);
  return value;
}

class DeviceEffect final : public IAudioProcessingObject,
                           public IAudioProcessingObjectRT,
                           public IAudioProcessingObjectConfiguration {
 public:
  DeviceEffect() { ++objects; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioProcessingObject)) {
      *ppv = static_cast<IAudioProcessingObject*>(this);
    } else if (IsEqualIID(riid, IID_IAudioProcessingObjectRT)) {
      *ppv = static_cast<IAudioProcessingObjectRT*>(this);
    } else if (IsEqualIID(riid, IID_IAudioProcessingObjectConfiguration)) {
      *ppv = static_cast<IAudioProcessingObjectConfiguration*>(this);
    } else {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --refs_;
    if (left == 0) {
      --objects;
      delete this;
    }
    return left;
  }

  HRESULT STDMETHODCALLTYPE Reset() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* time) override {
    *time = Setting(L"Latency");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Initialize(UINT32, BYTE*) override {
    return Setting(L"FailInitialize") != 0 ? E_ACCESSDENIED : S_OK;
  }
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType*, IAudioMediaType* requested,
                                                   IAudioMediaType** supported) override {
    requested->AddRef();
    *supported = requested;
    return static_cast<HRESULT>(Setting(L"FormatResult"));
  }
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType*, IAudioMediaType*, IAudioMediaType**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32*) override { return E_NOTIMPL; }

  void STDMETHODCALLTYPE APOProcess(UINT32, APO_CONNECTION_PROPERTY** in, UINT32,
                                    APO_CONNECTION_PROPERTY** out) override {
    const auto* src = reinterpret_cast<const float*>(in[0]->pBuffer);
    auto* dst = reinterpret_cast<float*>(out[0]->pBuffer);
    for (UINT32 i = 0; i < in[0]->u32ValidFrameCount * channels_; ++i) dst[i] = src[i] * 0.5f;
  }
  UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 n) override { return n; }
  UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 n) override { return n; }

  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32, APO_CONNECTION_DESCRIPTOR** in, UINT32,
                                           APO_CONNECTION_DESCRIPTOR**) override {
    const HRESULT result = static_cast<HRESULT>(Setting(L"LockResult"));
    if (FAILED(result)) return result;
    UNCOMPRESSEDAUDIOFORMAT format{};
    in[0]->pFormat->GetUncompressedAudioFormat(&format);
    channels_ = format.dwSamplesPerFrame;
    return result;
  }
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override { return static_cast<HRESULT>(Setting(L"UnlockResult")); }

 private:
  ~DeviceEffect() = default;
  std::atomic<ULONG> refs_{1};
  UINT32 channels_ = 0;
};

class Factory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
      *ppv = this;
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    auto* effect = new (std::nothrow) DeviceEffect();
    if (effect == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = effect->QueryInterface(riid, ppv);
    effect->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

Factory factory;

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
  if (!IsEqualCLSID(clsid, kTestDeviceEffectClsid)) return CLASS_E_CLASSNOTAVAILABLE;
  return factory.QueryInterface(riid, ppv);
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return objects.load() == 0 ? S_OK : S_FALSE; }
