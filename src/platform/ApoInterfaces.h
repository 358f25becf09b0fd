// Audio processing object (APO) interfaces, records, flags and error codes of
// the Windows audio engine, which the MinGW headers do not provide. Layouts
// follow the Windows SDK on 64-bit targets; the static_asserts below pin them.
#pragma once

#include <windows.h>
#include <mmreg.h>
#include <objbase.h>
#include <propsys.h>
#include <mmdeviceapi.h>

#include <cstddef>

typedef LONGLONG HNSTIME;

// ---- Error codes -----------------------------------------------------------
constexpr HRESULT APOERR_ALREADY_INITIALIZED = static_cast<HRESULT>(0x887D0001);
constexpr HRESULT APOERR_NOT_INITIALIZED = static_cast<HRESULT>(0x887D0002);
constexpr HRESULT APOERR_FORMAT_NOT_SUPPORTED = static_cast<HRESULT>(0x887D0003);
constexpr HRESULT APOERR_INVALID_APO_CLSID = static_cast<HRESULT>(0x887D0004);
constexpr HRESULT APOERR_BUFFERS_OVERLAP = static_cast<HRESULT>(0x887D0005);
constexpr HRESULT APOERR_ALREADY_UNLOCKED = static_cast<HRESULT>(0x887D0006);
constexpr HRESULT APOERR_NUM_CONNECTIONS_INVALID = static_cast<HRESULT>(0x887D0007);
constexpr HRESULT APOERR_INVALID_OUTPUT_MAXFRAMECOUNT = static_cast<HRESULT>(0x887D0008);
constexpr HRESULT APOERR_INVALID_CONNECTION_FORMAT = static_cast<HRESULT>(0x887D0009);
constexpr HRESULT APOERR_APO_LOCKED = static_cast<HRESULT>(0x887D000A);

// ---- Flags -----------------------------------------------------------------
enum APO_BUFFER_FLAGS : UINT32 {
  BUFFER_INVALID = 0,
  BUFFER_VALID = 1,
  BUFFER_SILENT = 2,
};

enum APO_FLAG : UINT32 {
  APO_FLAG_NONE = 0x0,
  APO_FLAG_INPLACE = 0x1,
  APO_FLAG_SAMPLESPERFRAME_MUST_MATCH = 0x2,
  APO_FLAG_FRAMESPERSECOND_MUST_MATCH = 0x4,
  APO_FLAG_BITSPERSAMPLE_MUST_MATCH = 0x8,
  APO_FLAG_MIXER = 0x10,
  APO_FLAG_DEFAULT = APO_FLAG_SAMPLESPERFRAME_MUST_MATCH | APO_FLAG_FRAMESPERSECOND_MUST_MATCH |
                     APO_FLAG_BITSPERSAMPLE_MUST_MATCH,
};

enum APO_CONNECTION_BUFFER_TYPE : UINT32 {
  APO_CONNECTION_BUFFER_TYPE_ALLOCATED = 0,
  APO_CONNECTION_BUFFER_TYPE_EXTERNAL = 1,
  APO_CONNECTION_BUFFER_TYPE_DEPENDANT = 2,
};

// Signature that every connection descriptor and property carries ("APOC" read backwards).
constexpr UINT32 APO_CONNECTION_DESCRIPTOR_SIGNATURE = 0x41434453;
constexpr UINT32 APO_CONNECTION_PROPERTY_SIGNATURE = 0x41434450;

// ---- Records ---------------------------------------------------------------
struct UNCOMPRESSEDAUDIOFORMAT {
  GUID guidFormatType;
  DWORD dwSamplesPerFrame;
  DWORD dwBytesPerSampleContainer;
  DWORD dwValidBitsPerSample;
  FLOAT fFramesPerSecond;
  DWORD dwChannelMask;
};

struct APO_CONNECTION_PROPERTY {
  UINT_PTR pBuffer;
  UINT32 u32ValidFrameCount;
  UINT32 u32BufferFlags;  // APO_BUFFER_FLAGS
  UINT32 u32Signature;
};

struct IAudioMediaType;

struct APO_CONNECTION_DESCRIPTOR {
  APO_CONNECTION_BUFFER_TYPE Type;
  UINT_PTR pBuffer;
  UINT32 u32MaxFrameCount;
  IAudioMediaType* pFormat;
  UINT32 u32Signature;
};

struct APO_REG_PROPERTIES {
  CLSID clsid;
  APO_FLAG Flags;
  WCHAR szFriendlyName[256];
  WCHAR szCopyrightInfo[256];
  UINT32 u32MajorVersion;
  UINT32 u32MinorVersion;
  UINT32 u32MinInputConnections;
  UINT32 u32MaxInputConnections;
  UINT32 u32MinOutputConnections;
  UINT32 u32MaxOutputConnections;
  UINT32 u32MaxInstances;
  UINT32 u32NumAPOInterfaces;
  IID iidAPOInterfaceList[1];
};

struct APOInitBaseStruct {
  UINT32 cbSize;
  CLSID clsid;
};

struct APOInitSystemEffects {
  APOInitBaseStruct APOInit;
  IPropertyStore* pAPOEndpointProperties;
  IPropertyStore* pAPOSystemEffectsProperties;
  void* pReserved;
  IMMDeviceCollection* pDeviceCollection;
};

struct APOInitSystemEffects2 {
  APOInitBaseStruct APOInit;
  IPropertyStore* pAPOEndpointProperties;
  IPropertyStore* pAPOSystemEffectsProperties;
  void* pReserved;
  IMMDeviceCollection* pDeviceCollection;
  UINT nSoftwareIoDeviceInCollection;
  UINT nSoftwareIoConnectorIndex;
  GUID AudioProcessingMode;
  BOOL InitializeForDiscoveryOnly;
};

#if defined(_WIN64)
static_assert(sizeof(UNCOMPRESSEDAUDIOFORMAT) == 36);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, dwSamplesPerFrame) == 16);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, fFramesPerSecond) == 28);
static_assert(offsetof(UNCOMPRESSEDAUDIOFORMAT, dwChannelMask) == 32);
static_assert(sizeof(APO_CONNECTION_PROPERTY) == 24);
static_assert(offsetof(APO_CONNECTION_PROPERTY, u32ValidFrameCount) == 8);
static_assert(offsetof(APO_CONNECTION_PROPERTY, u32BufferFlags) == 12);
static_assert(offsetof(APO_CONNECTION_PROPERTY, u32Signature) == 16);
static_assert(sizeof(APO_CONNECTION_DESCRIPTOR) == 40);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, pBuffer) == 8);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, u32MaxFrameCount) == 16);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, pFormat) == 24);
static_assert(offsetof(APO_CONNECTION_DESCRIPTOR, u32Signature) == 32);
static_assert(offsetof(APO_REG_PROPERTIES, szFriendlyName) == 20);
static_assert(offsetof(APO_REG_PROPERTIES, szCopyrightInfo) == 532);
static_assert(offsetof(APO_REG_PROPERTIES, u32MajorVersion) == 1044);
static_assert(offsetof(APO_REG_PROPERTIES, iidAPOInterfaceList) == 1076);
static_assert(sizeof(APO_REG_PROPERTIES) == 1092);
static_assert(sizeof(APOInitBaseStruct) == 20);
static_assert(offsetof(APOInitSystemEffects, pAPOEndpointProperties) == 24);
static_assert(offsetof(APOInitSystemEffects, pDeviceCollection) == 48);
static_assert(sizeof(APOInitSystemEffects) == 56);
static_assert(offsetof(APOInitSystemEffects2, nSoftwareIoDeviceInCollection) == 56);
static_assert(offsetof(APOInitSystemEffects2, AudioProcessingMode) == 64);
static_assert(offsetof(APOInitSystemEffects2, InitializeForDiscoveryOnly) == 80);
static_assert(sizeof(APOInitSystemEffects2) == 88);
#endif

// ---- Interface identifiers ---------------------------------------------------
extern "C" const IID IID_IAudioProcessingObject;
extern "C" const IID IID_IAudioProcessingObjectRT;
extern "C" const IID IID_IAudioProcessingObjectConfiguration;
extern "C" const IID IID_IAudioSystemEffects;
extern "C" const IID IID_IAudioMediaType;
extern "C" const GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT_GUID;
extern "C" const GUID KSDATAFORMAT_SUBTYPE_PCM_GUID;

// ---- Interfaces (slot order as published) ------------------------------------
struct IAudioMediaType : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* pfCompressed) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* pIAudioType, DWORD* pdwFlags) = 0;
  virtual const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* pUncompressedAudioFormat) = 0;
};

struct IAudioProcessingObjectRT : public IUnknown {
  virtual void STDMETHODCALLTYPE APOProcess(UINT32 u32NumInputConnections, APO_CONNECTION_PROPERTY** ppInputConnections,
                                            UINT32 u32NumOutputConnections,
                                            APO_CONNECTION_PROPERTY** ppOutputConnections) = 0;
  virtual UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 u32OutputFrameCount) = 0;
  virtual UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 u32InputFrameCount) = 0;
};

struct IAudioProcessingObjectConfiguration : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                                   APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                                   UINT32 u32NumOutputConnections,
                                                   APO_CONNECTION_DESCRIPTOR** ppOutputConnections) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockForProcess() = 0;
};

struct IAudioProcessingObject : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES** ppRegProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                           IAudioMediaType* pRequestedInputFormat,
                                                           IAudioMediaType** ppSupportedInputFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                            IAudioMediaType* pRequestedOutputFormat,
                                                            IAudioMediaType** ppSupportedOutputFormat) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32* pu32ChannelCount) = 0;
};

// Marker interface of system effects: no operations of its own.
struct IAudioSystemEffects : public IUnknown {};

__CRT_UUID_DECL(IAudioMediaType, 0x4e997f73, 0xb71f, 0x4798, 0x87, 0x3b, 0xed, 0x7d, 0xfc, 0xf1, 0x5b, 0x4d)
__CRT_UUID_DECL(IAudioProcessingObjectRT, 0x9e1d6a6d, 0xddbc, 0x4e95, 0xa4, 0xc7, 0xad, 0x64, 0xba, 0x37, 0x84, 0x6c)
__CRT_UUID_DECL(IAudioProcessingObjectConfiguration, 0x0e5ed805, 0xaba6, 0x49c3, 0x8f, 0x9a, 0x2b, 0x8c, 0x88, 0x9c,
                0x4f, 0xa8)
__CRT_UUID_DECL(IAudioProcessingObject, 0xfd7f2b29, 0x24d0, 0x4b5c, 0xb1, 0x77, 0x59, 0x2c, 0x39, 0xf9, 0xca, 0x10)
__CRT_UUID_DECL(IAudioSystemEffects, 0x5fa00f27, 0xadd6, 0x499a, 0x8a, 0x9d, 0x6b, 0x98, 0x52, 0x1f, 0xa7, 0x5b)
