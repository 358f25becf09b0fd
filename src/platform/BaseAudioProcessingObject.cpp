#include "platform/BaseAudioProcessingObject.h"

#include "platform/AudioMediaType.h"
#include "platform/ComPtr.h"

#include <cstring>

namespace quillon {
namespace {

constexpr float kMinFramesPerSecond = 10.0f;
constexpr float kMaxFramesPerSecond = 384000.0f;
constexpr DWORD kMaxSamplesPerFrame = 4096;

bool Overlap(UINT_PTR a, UINT32 aFrames, UINT_PTR b, UINT32 bFrames, UINT32 bytesPerFrame) {
  UINT_PTR aEnd = a + static_cast<UINT_PTR>(aFrames) * bytesPerFrame;
  UINT_PTR bEnd = b + static_cast<UINT_PTR>(bFrames) * bytesPerFrame;
  return a < bEnd && b < aEnd;
}

}  // namespace

BaseAudioProcessingObject::BaseAudioProcessingObject(const APO_REG_PROPERTIES& registration)
    : registration_(registration) {}

BaseAudioProcessingObject::~BaseAudioProcessingObject() = default;

HRESULT BaseAudioProcessingObject::Reset() { return S_OK; }

HRESULT BaseAudioProcessingObject::GetLatency(HNSTIME* pTime) {
  if (pTime == nullptr) return E_POINTER;
  *pTime = 0;
  return S_OK;
}

HRESULT BaseAudioProcessingObject::GetRegistrationProperties(APO_REG_PROPERTIES** ppRegProps) {
  if (ppRegProps == nullptr) return E_POINTER;
  // The record ends in a variable-length interface list; the caller frees the copy with CoTaskMemFree.
  UINT32 interfaces = registration_.u32NumAPOInterfaces > 0 ? registration_.u32NumAPOInterfaces : 1;
  size_t size = sizeof(APO_REG_PROPERTIES) + (interfaces - 1) * sizeof(IID);
  auto* copy = static_cast<APO_REG_PROPERTIES*>(CoTaskMemAlloc(size));
  if (copy == nullptr) {
    *ppRegProps = nullptr;
    return E_OUTOFMEMORY;
  }
  std::memcpy(copy, &registration_, size);
  *ppRegProps = copy;
  return S_OK;
}

HRESULT BaseAudioProcessingObject::Initialize(UINT32 cbDataSize, BYTE* pbyData) {
  if (initialized_) return APOERR_ALREADY_INITIALIZED;
  if (cbDataSize > 0 && pbyData == nullptr) return E_POINTER;
  if (cbDataSize > 0) {
    if (cbDataSize < sizeof(APOInitBaseStruct)) return E_INVALIDARG;
    const auto* base = reinterpret_cast<const APOInitBaseStruct*>(pbyData);
    if (base->cbSize != cbDataSize) return E_INVALIDARG;
    if (!IsEqualCLSID(base->clsid, registration_.clsid)) return APOERR_INVALID_APO_CLSID;
  }
  initialized_ = true;
  return S_OK;
}

HRESULT BaseAudioProcessingObject::IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                          IAudioMediaType* pRequestedInputFormat,
                                                          IAudioMediaType** ppSupportedInputFormat) {
  return CheckFormat(pOppositeFormat, pRequestedInputFormat, ppSupportedInputFormat, true);
}

HRESULT BaseAudioProcessingObject::IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                           IAudioMediaType* pRequestedOutputFormat,
                                                           IAudioMediaType** ppSupportedOutputFormat) {
  return CheckFormat(pOppositeFormat, pRequestedOutputFormat, ppSupportedOutputFormat, false);
}

HRESULT BaseAudioProcessingObject::GetInputChannelCount(UINT32* pu32ChannelCount) {
  if (pu32ChannelCount == nullptr) return E_POINTER;
  *pu32ChannelCount = samplesPerFrame_;
  return S_OK;
}

UINT32 BaseAudioProcessingObject::CalcInputFrames(UINT32 u32OutputFrameCount) { return u32OutputFrameCount; }

UINT32 BaseAudioProcessingObject::CalcOutputFrames(UINT32 u32InputFrameCount) { return u32InputFrameCount; }

HRESULT BaseAudioProcessingObject::ValidateAndCacheConnectionInfo(UINT32, APO_CONNECTION_DESCRIPTOR**, UINT32,
                                                                  APO_CONNECTION_DESCRIPTOR**) {
  return S_OK;
}

HRESULT BaseAudioProcessingObject::ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format, bool /*isInput*/) {
  bool changed = false;
  if (!IsEqualGUID(format.guidFormatType, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT_GUID)) {
    format.guidFormatType = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT_GUID;
    changed = true;
  }
  if (format.dwSamplesPerFrame == 0) {
    format.dwSamplesPerFrame = 1;
    changed = true;
  } else if (format.dwSamplesPerFrame > kMaxSamplesPerFrame) {
    format.dwSamplesPerFrame = kMaxSamplesPerFrame;
    changed = true;
  }
  if (format.dwBytesPerSampleContainer != 4) {
    format.dwBytesPerSampleContainer = 4;
    changed = true;
  }
  if (format.dwValidBitsPerSample != 32) {
    format.dwValidBitsPerSample = 32;
    changed = true;
  }
  if (format.fFramesPerSecond < kMinFramesPerSecond) {
    format.fFramesPerSecond = kMinFramesPerSecond;
    changed = true;
  } else if (format.fFramesPerSecond > kMaxFramesPerSecond) {
    format.fFramesPerSecond = kMaxFramesPerSecond;
    changed = true;
  }
  return changed ? S_FALSE : S_OK;
}

HRESULT BaseAudioProcessingObject::CheckFormat(IAudioMediaType* opposite, IAudioMediaType* requested,
                                               IAudioMediaType** supported, bool isInput) {
  if (requested == nullptr || supported == nullptr) return E_POINTER;
  *supported = nullptr;

  UNCOMPRESSEDAUDIOFORMAT oppositeFormat{};
  if (opposite != nullptr) {
    HRESULT hr = opposite->GetUncompressedAudioFormat(&oppositeFormat);
    if (FAILED(hr)) return hr;
    hr = ValidateDefaultAPOFormat(oppositeFormat, !isInput);
    if (FAILED(hr)) return hr;
    if (hr == S_FALSE) return APOERR_FORMAT_NOT_SUPPORTED;
  }

  UNCOMPRESSEDAUDIOFORMAT format{};
  HRESULT hr = requested->GetUncompressedAudioFormat(&format);
  if (FAILED(hr)) return hr;
  hr = ValidateDefaultAPOFormat(format, isInput);
  if (FAILED(hr)) return hr;
  bool changed = hr == S_FALSE;

  if (opposite != nullptr) {
    const APO_FLAG flags = registration_.Flags;
    if ((flags & APO_FLAG_SAMPLESPERFRAME_MUST_MATCH) &&
        format.dwSamplesPerFrame != oppositeFormat.dwSamplesPerFrame) {
      format.dwSamplesPerFrame = oppositeFormat.dwSamplesPerFrame;
      changed = true;
    }
    if ((flags & APO_FLAG_BITSPERSAMPLE_MUST_MATCH) &&
        (format.dwBytesPerSampleContainer != oppositeFormat.dwBytesPerSampleContainer ||
         format.dwValidBitsPerSample != oppositeFormat.dwValidBitsPerSample)) {
      format.dwBytesPerSampleContainer = oppositeFormat.dwBytesPerSampleContainer;
      format.dwValidBitsPerSample = oppositeFormat.dwValidBitsPerSample;
      changed = true;
    }
    if ((flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) &&
        format.fFramesPerSecond != oppositeFormat.fFramesPerSecond) {
      format.fFramesPerSecond = oppositeFormat.fFramesPerSecond;
      changed = true;
    }
  }

  if (!changed) {
    requested->AddRef();
    *supported = requested;
    return S_OK;
  }
  hr = CreateAudioMediaType(format, supported);
  return FAILED(hr) ? hr : S_FALSE;
}

HRESULT BaseAudioProcessingObject::CheckConnections(UINT32 numInputs, APO_CONNECTION_DESCRIPTOR** inputs,
                                                    UINT32 numOutputs, APO_CONNECTION_DESCRIPTOR** outputs) {
  if ((numInputs > 0 && (inputs == nullptr || inputs[0] == nullptr)) ||
      (numOutputs > 0 && (outputs == nullptr || outputs[0] == nullptr))) {
    return E_POINTER;
  }
  if (numInputs < registration_.u32MinInputConnections || numInputs > registration_.u32MaxInputConnections ||
      numOutputs < registration_.u32MinOutputConnections || numOutputs > registration_.u32MaxOutputConnections) {
    return APOERR_NUM_CONNECTIONS_INVALID;
  }

  if (numInputs > 0 && numOutputs > 0) {
    ComPtr<IAudioMediaType> accepted;
    if (CheckFormat(outputs[0]->pFormat, inputs[0]->pFormat, accepted.Put(), true) != S_OK) {
      return APOERR_FORMAT_NOT_SUPPORTED;
    }
    ComPtr<IAudioMediaType> acceptedOutput;
    if (CheckFormat(inputs[0]->pFormat, outputs[0]->pFormat, acceptedOutput.Put(), false) != S_OK) {
      return APOERR_FORMAT_NOT_SUPPORTED;
    }
  }

  UNCOMPRESSEDAUDIOFORMAT inputFormat{};
  for (UINT32 side = 0; side < 2; ++side) {
    UINT32 count = side == 0 ? numInputs : numOutputs;
    APO_CONNECTION_DESCRIPTOR** list = side == 0 ? inputs : outputs;
    for (UINT32 i = 0; i < count; ++i) {
      APO_CONNECTION_DESCRIPTOR* d = list[i];
      if (d == nullptr) return E_POINTER;
      if (d->u32Signature != APO_CONNECTION_DESCRIPTOR_SIGNATURE) return E_INVALIDARG;
      if (d->pFormat == nullptr) return E_POINTER;
      UNCOMPRESSEDAUDIOFORMAT format{};
      HRESULT hr = d->pFormat->GetUncompressedAudioFormat(&format);
      if (FAILED(hr)) return hr;
      if (side == 0 && i == 0) inputFormat = format;
    }
  }

  if ((registration_.Flags & APO_FLAG_FRAMESPERSECOND_MUST_MATCH) && !(registration_.Flags & APO_FLAG_MIXER) &&
      numInputs > 0 && numOutputs > 0 && inputs[0]->u32MaxFrameCount > outputs[0]->u32MaxFrameCount) {
    return APOERR_INVALID_OUTPUT_MAXFRAMECOUNT;
  }

  if (!(registration_.Flags & APO_FLAG_INPLACE) && numInputs > 0 && numOutputs > 0) {
    UINT32 bytesPerFrame = inputFormat.dwSamplesPerFrame * inputFormat.dwBytesPerSampleContainer;
    if (Overlap(inputs[0]->pBuffer, inputs[0]->u32MaxFrameCount, outputs[0]->pBuffer, outputs[0]->u32MaxFrameCount,
                bytesPerFrame)) {
      return APOERR_BUFFERS_OVERLAP;
    }
  }

  HRESULT hr = ValidateAndCacheConnectionInfo(numInputs, inputs, numOutputs, outputs);
  if (FAILED(hr)) return hr;

  samplesPerFrame_ = inputFormat.dwSamplesPerFrame;
  bytesPerSampleContainer_ = inputFormat.dwBytesPerSampleContainer;
  inputMaxFrameCount_ = numInputs > 0 ? inputs[0]->u32MaxFrameCount : 0;
  outputMaxFrameCount_ = numOutputs > 0 ? outputs[0]->u32MaxFrameCount : 0;
  return S_OK;
}

HRESULT BaseAudioProcessingObject::LockForProcess(UINT32 u32NumInputConnections,
                                                  APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                  UINT32 u32NumOutputConnections,
                                                  APO_CONNECTION_DESCRIPTOR** ppOutputConnections) {
  std::lock_guard<std::mutex> guard(lockGuard_);
  if (locked_) return APOERR_APO_LOCKED;
  HRESULT hr = CheckConnections(u32NumInputConnections, ppInputConnections, u32NumOutputConnections,
                                ppOutputConnections);
  if (FAILED(hr)) return hr;
  locked_ = true;
  return S_OK;
}

HRESULT BaseAudioProcessingObject::UnlockForProcess() {
  std::lock_guard<std::mutex> guard(lockGuard_);
  if (!locked_) return APOERR_ALREADY_UNLOCKED;
  locked_ = false;
  return S_OK;
}

}  // namespace quillon
