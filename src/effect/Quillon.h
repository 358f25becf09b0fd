// The effect: the audio processing object that the audio engine creates for a
// capture endpoint. It lets the endpoint's own device effect process first,
// then mixes received sound into the capture stream (or replaces the voice with
// it) and applies the microphone gain.
#pragma once

#include "config/ConfigListener.h"
#include "effect/ChunkMixer.h"
#include "effect/DeviceEffect.h"
#include "platform/ApoInterfaces.h"
#include "platform/BaseAudioProcessingObject.h"
#include "transfer/InstanceRegistration.h"
#include "transfer/ReceivedSound.h"
#include "transfer/SoundReceiver.h"

#include <string>

namespace quillon {

class Quillon : public BaseAudioProcessingObject, public IAudioSystemEffects {
 public:
  // `outerUnknown` is the controlling unknown (the aggregate); not reference-counted here.
  explicit Quillon(IUnknown* outerUnknown);
  ~Quillon() override;

  // IUnknown of every interface forwards to the controlling unknown.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // IAudioProcessingObject
  HRESULT STDMETHODCALLTYPE Reset() override;
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) override;
  HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) override;
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                   IAudioMediaType* pRequestedInputFormat,
                                                   IAudioMediaType** ppSupportedInputFormat) override;

  // IAudioProcessingObjectRT
  void STDMETHODCALLTYPE APOProcess(UINT32 u32NumInputConnections, APO_CONNECTION_PROPERTY** ppInputConnections,
                                    UINT32 u32NumOutputConnections,
                                    APO_CONNECTION_PROPERTY** ppOutputConnections) override;

  // IAudioProcessingObjectConfiguration
  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                           UINT32 u32NumOutputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override;

  // Writes the "In/out format" line at INFO and below.
  void LogFormat(IAudioMediaType* outputFormat, IAudioMediaType* inputFormat);

  const std::wstring& EndpointId() const { return endpointId; }

 private:
  // Claims a slot in the instance register and starts the worker threads.
  void RegisterApoInstanceInMemMapping(const UNCOMPRESSEDAUDIOFORMAT& outputFormat);
  // Stops the worker threads, leaves the register and frees the chunk.
  void UnregisterApoInstanceInMemMapping();

  IUnknown* outerUnknown;
  std::wstring endpointId;
  DeviceEffect deviceEffect;
  // Frames the locked connection buffers hold: the bound of every period.
  UINT32 maxFramesPerPeriod = 0;

  // The parts of a registered instance. Declared before the threads that use
  // them, so that they outlive them.
  InstanceRegistration registration;
  EffectSettings settings;
  ReceivedSound received;
  SoundReceiver receiver;
  ConfigListener listener;

  // Real-time state.
  ChunkMixer mixer;
};

}  // namespace quillon
