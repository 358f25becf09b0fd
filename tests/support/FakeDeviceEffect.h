// An in-process stand-in for an endpoint's device effect: it halves every
// sample into the output buffer, counts its calls, and can be told to fail.
#pragma once

#include "platform/ApoInterfaces.h"

#include <atomic>

namespace quillon::test {

class FakeDeviceEffect final : public IAudioProcessingObject,
                               public IAudioProcessingObjectRT,
                               public IAudioProcessingObjectConfiguration {
 public:
  // Switches
  HRESULT lockResult = S_OK;
  HRESULT unlockResult = S_OK;
  HRESULT formatResult = S_OK;  // answer of IsInputFormatSupported
  HNSTIME latency = 0;
  UINT32 channels = 0;  // set by the test to the stream's channel count

  // Counters
  int processCalls = 0;
  int lockCalls = 0;
  int unlockCalls = 0;
  int formatCalls = 0;

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
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }  // owned by the test

  HRESULT STDMETHODCALLTYPE Reset() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* time) override {
    *time = latency;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Initialize(UINT32, BYTE*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType*, IAudioMediaType* requested,
                                                   IAudioMediaType** supported) override {
    ++formatCalls;
    requested->AddRef();
    *supported = requested;
    return formatResult;
  }
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType*, IAudioMediaType*,
                                                    IAudioMediaType**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32*) override { return E_NOTIMPL; }

  void STDMETHODCALLTYPE APOProcess(UINT32, APO_CONNECTION_PROPERTY** in, UINT32,
                                    APO_CONNECTION_PROPERTY** out) override {
    ++processCalls;
    const auto* src = reinterpret_cast<const float*>(in[0]->pBuffer);
    auto* dst = reinterpret_cast<float*>(out[0]->pBuffer);
    for (UINT32 i = 0; i < in[0]->u32ValidFrameCount * channels; ++i) dst[i] = src[i] * 0.5f;
  }
  UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 n) override { return n; }
  UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 n) override { return n; }

  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32, APO_CONNECTION_DESCRIPTOR**, UINT32,
                                           APO_CONNECTION_DESCRIPTOR**) override {
    ++lockCalls;
    return lockResult;
  }
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override {
    ++unlockCalls;
    return unlockResult;
  }

  std::atomic<long> refs{1};
};

}  // namespace quillon::test
