#include "platform/AudioMediaType.h"

#include <atomic>
#include <cmath>
#include <new>

namespace quillon {
namespace {

// Flags of IAudioMediaType::IsEqual.
constexpr DWORD kEqualFormatTypes = 0x2;
constexpr DWORD kEqualFormatData = 0x4;
constexpr DWORD kEqualFormatUserData = 0x8;

class UncompressedMediaType final : public IAudioMediaType {
 public:
  explicit UncompressedMediaType(const UNCOMPRESSEDAUDIOFORMAT& format) : format_(format) {
    WAVEFORMATEXTENSIBLE& w = wave_;
    w.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    w.Format.nChannels = static_cast<WORD>(format.dwSamplesPerFrame);
    w.Format.nSamplesPerSec = static_cast<DWORD>(std::lround(format.fFramesPerSecond));
    w.Format.nBlockAlign = static_cast<WORD>(format.dwSamplesPerFrame * format.dwBytesPerSampleContainer);
    w.Format.nAvgBytesPerSec = w.Format.nSamplesPerSec * w.Format.nBlockAlign;
    w.Format.wBitsPerSample = static_cast<WORD>(format.dwBytesPerSampleContainer * 8);
    w.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    w.Samples.wValidBitsPerSample = static_cast<WORD>(format.dwValidBitsPerSample);
    w.dwChannelMask = format.dwChannelMask;
    w.SubFormat = format.guidFormatType;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IAudioMediaType)) {
      *ppv = static_cast<IAudioMediaType*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* compressed) override {
    if (compressed == nullptr) return E_POINTER;
    *compressed = FALSE;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* other, DWORD* flags) override {
    if (other == nullptr || flags == nullptr) return E_POINTER;
    UNCOMPRESSEDAUDIOFORMAT theirs{};
    HRESULT hr = other->GetUncompressedAudioFormat(&theirs);
    if (FAILED(hr)) return hr;
    *flags = 0;
    if (IsEqualGUID(theirs.guidFormatType, format_.guidFormatType)) *flags |= kEqualFormatTypes;
    if (theirs.dwSamplesPerFrame == format_.dwSamplesPerFrame &&
        theirs.dwBytesPerSampleContainer == format_.dwBytesPerSampleContainer &&
        theirs.dwValidBitsPerSample == format_.dwValidBitsPerSample &&
        theirs.fFramesPerSecond == format_.fFramesPerSecond && theirs.dwChannelMask == format_.dwChannelMask) {
      *flags |= kEqualFormatData | kEqualFormatUserData;
    }
    return S_OK;
  }

  const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() override { return &wave_.Format; }

  HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) override {
    if (format == nullptr) return E_POINTER;
    *format = format_;
    return S_OK;
  }

 private:
  ~UncompressedMediaType() = default;

  std::atomic<ULONG> refs_{1};
  UNCOMPRESSEDAUDIOFORMAT format_;
  WAVEFORMATEXTENSIBLE wave_{};
};

}  // namespace

HRESULT CreateAudioMediaType(const UNCOMPRESSEDAUDIOFORMAT& format, IAudioMediaType** mediaType) {
  if (mediaType == nullptr) return E_POINTER;
  *mediaType = new (std::nothrow) UncompressedMediaType(format);
  return *mediaType != nullptr ? S_OK : E_OUTOFMEMORY;
}

UNCOMPRESSEDAUDIOFORMAT MakeUncompressedFormat(const GUID& subtype, UINT32 channels, UINT32 bytesPerContainer,
                                               UINT32 validBits, float framesPerSecond) {
  UNCOMPRESSEDAUDIOFORMAT format{};
  format.guidFormatType = subtype;
  format.dwSamplesPerFrame = channels;
  format.dwBytesPerSampleContainer = bytesPerContainer;
  format.dwValidBitsPerSample = validBits;
  format.fFramesPerSecond = framesPerSecond;
  format.dwChannelMask = channels == 1 ? SPEAKER_FRONT_CENTER
                         : channels == 2 ? (SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT)
                                         : 0;
  return format;
}

UNCOMPRESSEDAUDIOFORMAT MakeFloatFormat(UINT32 channels, float framesPerSecond) {
  return MakeUncompressedFormat(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT_GUID, channels, 4, 32, framesPerSecond);
}

}  // namespace quillon
