// The effect: the audio processing object that the audio engine creates for a
// capture endpoint. It lets the endpoint's own device effect process first,
// then mixes received sound into the capture stream (or replaces the voice with
// it) and applies the microphone gain.
#pragma once

#include "effect/SampleQueue.h"
#include "platform/ApoInterfaces.h"
#include "platform/BaseAudioProcessingObject.h"
#include "platform/UniqueHandle.h"
#include "transfer/TransferMapping.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace quillon {

class MemMappingRegister;

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

  // Receiver side of the sample queue: appends a received block (at most one
  // transfer block's worth) when the queue holds less than one chunk, so it
  // never exceeds chunkSize - 1 + TransferBlock::kMaxSamples samples.
  // Returns whether the block was taken.
  bool AcceptReceivedBlock(const float* samples, size_t count);

  // Number of samples in one chunk (eight processing periods); 0 between lock periods.
  uint32_t ChunkSize() const { return chunkSize.load(std::memory_order_acquire); }
  const std::wstring& EndpointId() const { return endpointId; }

  static constexpr uint32_t kPeriodsPerChunk = 8;

 private:
  friend class QuillonTestAccess;

  // Creates and initialises the endpoint's own effect from its "Original-Apo" setting.
  void InitializeOriginalApo(UINT32 cbDataSize, BYTE* pbyData);
  void ReleaseDeviceEffect();
  // Claims a slot in the instance register and starts the worker threads.
  void RegisterApoInstanceInMemMapping(const UNCOMPRESSEDAUDIOFORMAT& outputFormat);
  // Leaves the register, stops the worker threads and frees the chunk.
  void UnregisterApoInstanceInMemMapping();

  // Worker threads of a registered instance.
  static void SoundReceiverTask(Quillon* effect);
  static void ConfigChangeListenerTask(Quillon* effect);
  void ReceiveOnce(const std::wstring& mutexName);
  void CheckConfigBlockVoice();
  void CheckConfigLogLevel();
  void CheckConfigMicAmp();

  // Real-time helpers.
  bool MixReceivedSound(float* work, size_t samples);
  void TakeNextChunk();

  IUnknown* outerUnknown;
  IAudioProcessingObject* deviceEffect = nullptr;
  IAudioProcessingObjectRT* deviceEffectRT = nullptr;
  IAudioProcessingObjectConfiguration* deviceEffectConfig = nullptr;
  TransferMapping* controlView = nullptr;
  int32_t instanceIndex = -1;
  std::unique_ptr<float[]> chunkBuffer;
  std::atomic<uint32_t> chunkSize{0};
  uint32_t chunkPos = 0;
  bool chunkActive = false;
  SampleQueue pendingSamples;
  UniqueHandle chunkConsumedEvent;
  std::unique_ptr<MemMappingRegister> memMappingRegister;
  UniqueHandle controlCallbackEvent;
  UniqueHandle stopEvent;  // shared by every instance; opened at registration, set by the real-time routine
  UniqueHandle configChangedEvent;
  std::thread soundReceiverThread;
  std::atomic<bool> receiverRunning{false};
  std::thread configListenerThread;
  std::atomic<bool> listenerRunning{false};
  std::atomic<bool> blockVoice{false};
  std::wstring endpointId;
  std::atomic<float> micGain{1.0f};
  std::wstring instanceName;
  // Frames the locked connection buffers hold: the bound of every period.
  UINT32 maxFramesPerPeriod = 0;
};

}  // namespace quillon
