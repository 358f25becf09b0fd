// Format negotiation and process locking: the device effect answers first, then
// the base object's checks; only 32-bit float is processed.
#include "effect/Quillon.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"

#include <algorithm>

namespace quillon {
namespace {

IAudioMediaType* FirstFormat(UINT32 count, APO_CONNECTION_DESCRIPTOR** connections) {
  return count > 0 && connections != nullptr && connections[0] != nullptr ? connections[0]->pFormat : nullptr;
}

}  // namespace

HRESULT Quillon::IsInputFormatSupported(IAudioMediaType* pOppositeFormat, IAudioMediaType* pRequestedInputFormat,
                                        IAudioMediaType** ppSupportedInputFormat) {
  constexpr const wchar_t* kFunction = L"Quillon::IsInputFormatSupported";
  if (deviceEffect) {
    // Anything but S_OK from the device effect is final, S_FALSE included.
    HRESULT hr = deviceEffect.Apo()->IsInputFormatSupported(pOppositeFormat, pRequestedInputFormat, ppSupportedInputFormat);
    if (hr != S_OK) {
      QLOG(LOG_INFO, kFunction, L"Input format is not supported by original apo [Code=%x: %s]", hr,
           GetErrorDescription(hr).c_str());
      LogFormat(pOppositeFormat, pRequestedInputFormat);
      return hr;
    }
    // The device effect handed out a reference to the accepted format; ours replaces it.
    if (ppSupportedInputFormat != nullptr && *ppSupportedInputFormat != nullptr) {
      (*ppSupportedInputFormat)->Release();
      *ppSupportedInputFormat = nullptr;
    }
  }
  HRESULT hr = BaseAudioProcessingObject::IsInputFormatSupported(pOppositeFormat, pRequestedInputFormat,
                                                                 ppSupportedInputFormat);
  if (hr == S_OK) {
    QLOG(LOG_TRACE, kFunction, L"Input format is supported");
    return S_OK;
  }
  QLOG(LOG_INFO, kFunction, L"Input format is not supported [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
  LogFormat(pOppositeFormat, pRequestedInputFormat);
  return hr;
}

HRESULT Quillon::LockForProcess(UINT32 u32NumInputConnections, APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                UINT32 u32NumOutputConnections, APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  constexpr const wchar_t* kFunction = L"Quillon::LockForProcess";
  IAudioMediaType* inputFormat = FirstFormat(u32NumInputConnections, ppInputConnections);
  IAudioMediaType* outputFormat = FirstFormat(u32NumOutputConnections, ppOutputConnections);

  if (deviceEffect) {
    HRESULT hr = deviceEffect.Configuration()->LockForProcess(u32NumInputConnections, ppInputConnections,
                                                    u32NumOutputConnections, ppOutputConnections);
    if (FAILED(hr)) {
      // A device effect that refuses the lock must not cost the user the effect:
      // drop it for good and go on as a plain effect.
      QLOG(LOG_WARNING, kFunction, L"Failed in LockForProcess of original apo [Code=%x: %s]", hr,
           GetErrorDescription(hr).c_str());
      LogFormat(outputFormat, inputFormat);
      deviceEffect.Release();
    }
  }

  HRESULT hr = BaseAudioProcessingObject::LockForProcess(u32NumInputConnections, ppInputConnections,
                                                         u32NumOutputConnections, ppOutputConnections);
  if (FAILED(hr)) {
    QLOG(LOG_ERROR, kFunction, L"Failed in LockForProcess [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
    LogFormat(outputFormat, inputFormat);
    return hr;
  }

  UNCOMPRESSEDAUDIOFORMAT format{};
  hr = outputFormat->GetUncompressedAudioFormat(&format);
  if (FAILED(hr)) {
    QLOG(LOG_ERROR, kFunction, L"Failed to get output format [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
    return hr;
  }
  maxFramesPerPeriod = std::min(inputMaxFrameCount_, outputMaxFrameCount_);

  RegisterApoInstanceInMemMapping(format);
  // The chunk is made here, never on the real-time thread.
  mixer.Prepare(received, registration.ChunkConsumedEvent(), size_t{maxFramesPerPeriod} * samplesPerFrame_);
  QLOG(LOG_TRACE, kFunction, L"LockForProcess finished successfully");
  return hr;
}

HRESULT Quillon::UnlockForProcess() {
  constexpr const wchar_t* kFunction = L"Quillon::UnlockForProcess";
  UnregisterApoInstanceInMemMapping();

  if (deviceEffect) {
    HRESULT hr = deviceEffect.Configuration()->UnlockForProcess();
    if (FAILED(hr)) {
      // The base object then stays locked, as it always has.
      QLOG(LOG_ERROR, kFunction, L"Failed in UnlockForProcess of original apo [Code=%x: %s]", hr,
           GetErrorDescription(hr).c_str());
      return hr;
    }
  }

  HRESULT hr = BaseAudioProcessingObject::UnlockForProcess();
  if (SUCCEEDED(hr)) {
    QLOG(LOG_TRACE, kFunction, L"UnlockForProcess finished successfully");
  } else {
    QLOG(LOG_ERROR, kFunction, L"Failed in UnlockForProcess [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
  }
  return hr;
}

void Quillon::LogFormat(IAudioMediaType* outputFormat, IAudioMediaType* inputFormat) {
  constexpr const wchar_t* kFunction = L"Quillon::LogFormat";
  if (Logger::Instance().Level() > LOG_INFO) return;

  UNCOMPRESSEDAUDIOFORMAT in{};
  HRESULT hr = inputFormat != nullptr ? inputFormat->GetUncompressedAudioFormat(&in) : E_POINTER;
  if (FAILED(hr)) {
    QLOG(LOG_INFO, kFunction, L"Failed to get input format [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
    return;
  }
  UNCOMPRESSEDAUDIOFORMAT out{};
  hr = outputFormat != nullptr ? outputFormat->GetUncompressedAudioFormat(&out) : E_POINTER;
  if (FAILED(hr)) {
    QLOG(LOG_INFO, kFunction, L"Failed to get output format [Code=%x: %s]", hr, GetErrorDescription(hr).c_str());
    return;
  }
  QLOG(LOG_INFO, kFunction,
       L"In/out format: Type=%04x/%04x, Channels=%d/%d, BitsPerSample=%d/%d, Samplerate=%.0f/%.0f",
       in.guidFormatType.Data1, out.guidFormatType.Data1, in.dwSamplesPerFrame, out.dwSamplesPerFrame,
       in.dwValidBitsPerSample, out.dwValidBitsPerSample, static_cast<double>(in.fFramesPerSecond),
       static_cast<double>(out.fFramesPerSecond));
}

}  // namespace quillon
