// Drives an effect the way the audio engine does: creation through the
// aggregate, Initialize with an endpoint record, LockForProcess on float32
// connection buffers, APOProcess period by period, UnlockForProcess.
#pragma once

#include "effect/RegistrationProperties.h"
#include "effect/QuillonAggregate.h"
#include "platform/AudioMediaType.h"
#include "platform/ComPtr.h"
#include "host/EndpointProperties.h"
#include "support/Poll.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace quillon::test {

inline ComPtr<IAudioMediaType> MediaType(const UNCOMPRESSEDAUDIOFORMAT& format) {
  ComPtr<IAudioMediaType> type;
  EXPECT_EQ(S_OK, CreateAudioMediaType(format, type.Put()));
  return type;
}
// 16-bit integer samples, which the effect does not process.
inline UNCOMPRESSEDAUDIOFORMAT Pcm16(UINT32 channels, float rate) {
  return MakeUncompressedFormat(KSDATAFORMAT_SUBTYPE_PCM_GUID, channels, 2, 16, rate);
}

// Names each case of a parameterised test after the case's `name`.
inline constexpr auto CaseName = [](const auto& info) { return std::string(info.param.name); };

class EffectHarness {
 public:
  static constexpr const wchar_t* kDefaultEndpoint = L"{0.0.1.00000000}.{6d2b5c1e-0a3f-4b7e-9d41-2f8c7a9e1b3d}";
  // An effect created in this process, or one created elsewhere (through
  // Quillon.dll or COM), of which it takes the interfaces.
  explicit EffectHarness(const wchar_t* endpoint = kDefaultEndpoint, ComPtr<IAudioProcessingObject> apo = {})
      : store_(endpoint), apo_(apo) {
    if (!apo_) EXPECT_EQ(S_OK, QuillonAggregate::Create(nullptr, IID_IAudioProcessingObject, apo_.PutVoid()));
    if (!apo_) return;
    apo_->QueryInterface(IID_IAudioProcessingObjectRT, rt_.PutVoid());
    apo_->QueryInterface(IID_IAudioProcessingObjectConfiguration, config_.PutVoid());
  }
  ~EffectHarness() { if (locked_) config_->UnlockForProcess(); }
  // Initialized and locked as the engine starts a stream.
  static std::unique_ptr<EffectHarness> Started(const wchar_t* endpoint, UINT32 channels, UINT32 maxFrames,
                                                ComPtr<IAudioProcessingObject> apo = {}) {
    auto h = std::make_unique<EffectHarness>(endpoint, apo);
    EXPECT_EQ(S_OK, h->Initialize());
    EXPECT_EQ(S_OK, h->Lock(channels, maxFrames));
    return h;
  }

  IAudioProcessingObject* Apo() { return apo_.Get(); }
  IAudioProcessingObjectConfiguration* Config() { return config_.Get(); }
  Quillon* Effect() { return static_cast<Quillon*>(apo_.Get()); }

  HRESULT Initialize() {
    APOInitSystemEffects2 init{};
    init.APOInit.cbSize = sizeof(init);
    init.APOInit.clsid = QuillonRegistrationProperties().clsid;
    init.pAPOEndpointProperties = &store_;
    return apo_->Initialize(sizeof(init), reinterpret_cast<BYTE*>(&init));
  }

  // Locks float32 connections of `channels` at 48 kHz holding `maxFrames` frames,
  // each followed by guard samples that must never change.
  HRESULT Lock(UINT32 channels, UINT32 maxFrames) {
    channels_ = channels;
    samples_ = static_cast<size_t>(channels) * maxFrames;
    APO_CONNECTION_DESCRIPTOR* connections[2];
    for (int i : {kIn, kOut}) {
      buffers_[i].assign(samples_, 0.0f);
      buffers_[i].resize(samples_ + kGuard, kGuardValue);
      formats_[i] = MediaType(MakeFloatFormat(channels, 48000.0f));
      descriptors_[i] = {APO_CONNECTION_BUFFER_TYPE_EXTERNAL, Address(i), maxFrames, formats_[i].Get(),
                         APO_CONNECTION_DESCRIPTOR_SIGNATURE};
      connections[i] = &descriptors_[i];
    }
    const HRESULT hr = config_->LockForProcess(1, &connections[kIn], 1, &connections[kOut]);
    locked_ = SUCCEEDED(hr);
    return hr;
  }
  HRESULT Unlock() {
    locked_ = false;
    return config_->UnlockForProcess();
  }

  // Slot the effect registered in at its lock, as a player finds it in the register (-1 when none).
  int32_t Slot() { return SlotOf(store_.Endpoint()); }

  // One period: `mic` fills the input buffer (frames = mic.size() / channels).
  // Returns the output samples; the output buffer starts filled with 99.
  std::vector<float> Process(const std::vector<float>& mic, UINT32 flags = BUFFER_VALID, UINT32 frames = 0) {
    if (frames == 0) frames = static_cast<UINT32>(mic.size() / channels_);
    std::copy(mic.begin(), mic.begin() + std::min(mic.size(), samples_), buffers_[kIn].begin());
    std::fill(buffers_[kOut].begin(), buffers_[kOut].begin() + samples_, 99.0f);
    properties_[kIn] = {Address(kIn), frames, flags, APO_CONNECTION_PROPERTY_SIGNATURE};
    properties_[kOut] = {Address(kOut), 0, BUFFER_INVALID, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* connections[] = {&properties_[kIn], &properties_[kOut]};
    rt_->APOProcess(1, &connections[kIn], 1, &connections[kOut]);
    for (const std::vector<float>& buffer : buffers_) {
      EXPECT_EQ(kGuard, static_cast<size_t>(std::count(buffer.begin() + samples_, buffer.end(), kGuardValue)));
    }
    const size_t n = std::min<size_t>(static_cast<size_t>(frames) * channels_, samples_);
    return std::vector<float>(buffers_[kOut].begin(), buffers_[kOut].begin() + n);
  }
  const APO_CONNECTION_PROPERTY& OutputProperty() const { return properties_[kOut]; }

  // Runs full periods until `done(heard)` holds (within 30 s) and returns the
  // output samples that are not 0: the sound mixed in, on a silent microphone.
  // With BUFFER_SILENT the input holds a value that must never be heard, and
  // a period with sound must come out valid. `positions` (when given) gets
  // each sample's place in its period.
  template <typename Done>
  std::vector<float> RunUntil(Done done, UINT32 flags = BUFFER_VALID, std::vector<size_t>* positions = nullptr) {
    std::vector<float> heard;
    const std::vector<float> mic(samples_, flags == BUFFER_SILENT ? 0.75f : 0.0f);
    EXPECT_TRUE(PollUntil([&] {
      const std::vector<float> out = Process(mic, flags);
      const size_t before = heard.size();
      for (size_t i = 0; i < out.size(); ++i) {
        if (out[i] == 0.0f) continue;
        heard.push_back(out[i]);
        if (positions != nullptr) positions->push_back(i);
      }
      if (heard.size() > before) EXPECT_EQ(static_cast<UINT32>(BUFFER_VALID), properties_[kOut].u32BufferFlags);
      return done(heard);
    }));
    return heard;
  }

 private:
  static constexpr size_t kGuard = 64;
  static constexpr float kGuardValue = -12345.0f;
  enum { kIn, kOut };  // each connection's place in the arrays below

  UINT_PTR Address(int connection) { return reinterpret_cast<UINT_PTR>(buffers_[connection].data()); }

  tools::EndpointProperties store_;
  ComPtr<IAudioProcessingObject> apo_;
  ComPtr<IAudioProcessingObjectRT> rt_;
  ComPtr<IAudioProcessingObjectConfiguration> config_;
  ComPtr<IAudioMediaType> formats_[2];
  APO_CONNECTION_DESCRIPTOR descriptors_[2]{};
  APO_CONNECTION_PROPERTY properties_[2]{};
  std::vector<float> buffers_[2];
  size_t samples_ = 0;
  UINT32 channels_ = 0;
  bool locked_ = false;
};

}  // namespace quillon::test
