// A device effect of the tests' own: a COM class that halves every sample,
// registered with COM in the test process, for Quillon to create as it
// creates an endpoint's real effect. `answers` sets what it answers.
#pragma once

#include "platform/BaseAudioProcessingObject.h"
#include "platform/GuidText.h"

#include <windows.h>

#include <atomic>

namespace quillon::test {

inline constexpr wchar_t kDeviceClsidText[] = L"{B0C5E7A2-4D1F-4E8B-9A63-2F7D5C1E8B40}";
inline constexpr CLSID kDeviceClsid = GuidFromText(kDeviceClsidText);

// What the device effect answers, set per test.
struct Answers {
  bool failInitialize = false;
  HRESULT lock = S_OK, unlock = S_OK, format = S_OK;
  HNSTIME latency = 0;
};
inline Answers answers;
inline std::atomic<long> devicesAlive{0};

// The class's record, which the base object keeps.
inline const APO_REG_PROPERTIES kHalvingRegistration{kDeviceClsid};

// Built, as a real device effect is, on the base object, whose answers it
// keeps where the tests set none.
class HalvingEffect final : public BaseAudioProcessingObject {
 public:
  HalvingEffect() : BaseAudioProcessingObject(kHalvingRegistration) { ++devicesAlive; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    *ppv = nullptr;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioProcessingObject)) {
      *ppv = static_cast<IAudioProcessingObject*>(this);
    } else if (IsEqualIID(riid, IID_IAudioProcessingObjectRT)) {
      *ppv = static_cast<IAudioProcessingObjectRT*>(this);
    } else if (IsEqualIID(riid, IID_IAudioProcessingObjectConfiguration)) {
      *ppv = static_cast<IAudioProcessingObjectConfiguration*>(this);
    }
    if (*ppv != nullptr) AddRef();
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* time) override {
    *time = answers.latency;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Initialize(UINT32, BYTE*) override { return answers.failInitialize ? E_ACCESSDENIED : S_OK; }
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType*, IAudioMediaType* requested,
                                                   IAudioMediaType** supported) override {
    requested->AddRef();
    *supported = requested;
    return answers.format;
  }

  void STDMETHODCALLTYPE APOProcess(UINT32, APO_CONNECTION_PROPERTY** in, UINT32,
                                    APO_CONNECTION_PROPERTY** out) override {
    const auto* src = reinterpret_cast<const float*>(in[0]->pBuffer);
    auto* dst = reinterpret_cast<float*>(out[0]->pBuffer);
    for (UINT32 i = 0; i < in[0]->u32ValidFrameCount * channels_; ++i) dst[i] = src[i] * 0.5f;
  }

  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32, APO_CONNECTION_DESCRIPTOR** in, UINT32,
                                           APO_CONNECTION_DESCRIPTOR**) override {
    UNCOMPRESSEDAUDIOFORMAT format{};
    in[0]->pFormat->GetUncompressedAudioFormat(&format);
    channels_ = format.dwSamplesPerFrame;
    return answers.lock;
  }
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override { return answers.unlock; }

 private:
  ~HalvingEffect() { --devicesAlive; }
  std::atomic<ULONG> refs_{1};
  UINT32 channels_ = 0;
};

// COM initialised on this thread and the device effect's class registered
// with it, this object its class factory, while this lives.
class ScopedHalvingEffectClass final : public IClassFactory {
 public:
  ScopedHalvingEffectClass() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    registered_ = CoRegisterClassObject(kDeviceClsid, this, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie_);
  }
  ~ScopedHalvingEffectClass() {
    if (SUCCEEDED(registered_)) CoRevokeClassObject(cookie_);
    CoUninitialize();
  }
  HRESULT Registered() const { return registered_; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    *ppv = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory) ? this : nullptr;
    return *ppv != nullptr ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    auto* effect = new HalvingEffect();
    const HRESULT hr = effect->QueryInterface(riid, ppv);
    effect->Release();
    return hr;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

 private:
  HRESULT registered_ = E_FAIL;
  DWORD cookie_ = 0;
};

}  // namespace quillon::test
