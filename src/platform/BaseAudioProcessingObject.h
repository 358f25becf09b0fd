// The behaviour of the SDK's base audio processing object that effects build on:
// registration properties, format validation and suggestion, the connection
// checks of LockForProcess with their error codes, and the cached format values
// that the real-time routine reads. IUnknown is left to the derived class.
#pragma once

#include "platform/ApoInterfaces.h"

#include <mutex>

namespace quillon {

class BaseAudioProcessingObject : public IAudioProcessingObject,
                                  public IAudioProcessingObjectRT,
                                  public IAudioProcessingObjectConfiguration {
 public:
  explicit BaseAudioProcessingObject(const APO_REG_PROPERTIES& registration);
  BaseAudioProcessingObject(const BaseAudioProcessingObject&) = delete;
  BaseAudioProcessingObject& operator=(const BaseAudioProcessingObject&) = delete;

  // IAudioProcessingObject
  HRESULT STDMETHODCALLTYPE Reset() override;
  HRESULT STDMETHODCALLTYPE GetLatency(HNSTIME* pTime) override;
  HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES** ppRegProps) override;
  HRESULT STDMETHODCALLTYPE Initialize(UINT32 cbDataSize, BYTE* pbyData) override;
  HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                   IAudioMediaType* pRequestedInputFormat,
                                                   IAudioMediaType** ppSupportedInputFormat) override;
  HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* pOppositeFormat,
                                                    IAudioMediaType* pRequestedOutputFormat,
                                                    IAudioMediaType** ppSupportedOutputFormat) override;
  HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32* pu32ChannelCount) override;

  // IAudioProcessingObjectRT (APOProcess is the derived class's)
  UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 u32OutputFrameCount) override;
  UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 u32InputFrameCount) override;

  // IAudioProcessingObjectConfiguration
  HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 u32NumInputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppInputConnections,
                                           UINT32 u32NumOutputConnections,
                                           APO_CONNECTION_DESCRIPTOR** ppOutputConnections) override;
  HRESULT STDMETHODCALLTYPE UnlockForProcess() override;

  virtual ~BaseAudioProcessingObject();

  // Hook for derived classes that check connections further; the base accepts.
  virtual HRESULT ValidateAndCacheConnectionInfo(UINT32 numInputs, APO_CONNECTION_DESCRIPTOR** inputs,
                                                 UINT32 numOutputs, APO_CONNECTION_DESCRIPTOR** outputs);
  // Corrects `format` to what the effect can process: S_FALSE when anything was
  // changed (the corrected description is then the suggestion), S_OK otherwise.
  virtual HRESULT ValidateDefaultAPOFormat(UNCOMPRESSEDAUDIOFORMAT& format, bool isInput);

 protected:
  // Values of the locked input connection, read by the real-time routine.
  UINT32 samplesPerFrame_ = 0;
  UINT32 bytesPerSampleContainer_ = 0;
  // Largest frame counts the locked connection buffers hold.
  UINT32 inputMaxFrameCount_ = 0;
  UINT32 outputMaxFrameCount_ = 0;

 private:
  HRESULT CheckFormat(IAudioMediaType* opposite, IAudioMediaType* requested, IAudioMediaType** supported,
                      bool isInput);
  HRESULT CheckConnections(UINT32 numInputs, APO_CONNECTION_DESCRIPTOR** inputs, UINT32 numOutputs,
                           APO_CONNECTION_DESCRIPTOR** outputs);

  const APO_REG_PROPERTIES& registration_;
  std::mutex lockGuard_;
  bool locked_ = false;
  bool initialized_ = false;
};

}  // namespace quillon
