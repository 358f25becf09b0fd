#include "player/MonitorOutput.h"

#include "common/ComApartment.h"
#include "common/ToolSupport.h"
#include "platform/ComPtr.h"
#include "platform/GuidText.h"

#include <windows.h>
#include <audioclient.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace quillon::player {
namespace {

constexpr REFERENCE_TIME kBufferHns = 200000;  // 20 ms
// The extensible format's sub-formats of integer and float samples.
constexpr GUID kSubtypePcm = GuidFromText(L"{00000001-0000-0010-8000-00aa00389b71}");
constexpr GUID kSubtypeFloat = GuidFromText(L"{00000003-0000-0010-8000-00aa00389b71}");

enum class SampleKind { Float32, Int16, Int24, Int32, Unknown };

SampleKind KindOf(const WAVEFORMATEX& format) {
  WORD tag = format.wFormatTag;
  if (tag == WAVE_FORMAT_EXTENSIBLE) {
    const auto& ext = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format);
    if (ext.SubFormat == kSubtypeFloat) tag = WAVE_FORMAT_IEEE_FLOAT;
    if (ext.SubFormat == kSubtypePcm) tag = WAVE_FORMAT_PCM;
  }
  if (tag == WAVE_FORMAT_IEEE_FLOAT && format.wBitsPerSample == 32) return SampleKind::Float32;
  if (tag != WAVE_FORMAT_PCM) return SampleKind::Unknown;
  switch (format.wBitsPerSample) {
    case 16: return SampleKind::Int16;
    case 24: return SampleKind::Int24;
    case 32: return SampleKind::Int32;
    default: return SampleKind::Unknown;
  }
}

// Float samples (within full scale: the mix is limited) into the device's format.
void Store(SampleKind kind, const float* in, size_t count, BYTE* out) {
  const auto whole = [](float v, double scale) { return std::lround(std::clamp(v, -1.0f, 1.0f) * scale); };
  for (size_t i = 0; i < count; ++i) {
    switch (kind) {
      case SampleKind::Float32: std::memcpy(out + 4 * i, &in[i], 4); break;
      case SampleKind::Int16: {
        const auto v = static_cast<int16_t>(std::min(whole(in[i], 32768.0), 32767L));
        std::memcpy(out + 2 * i, &v, 2);
        break;
      }
      case SampleKind::Int24: {
        const long v = std::min(whole(in[i], 8388608.0), 8388607L);
        out[3 * i] = static_cast<BYTE>(v);
        out[3 * i + 1] = static_cast<BYTE>(v >> 8);
        out[3 * i + 2] = static_cast<BYTE>(v >> 16);
        break;
      }
      case SampleKind::Int32: {
        const auto v = static_cast<int32_t>(std::min<long long>(std::llround(std::clamp(in[i], -1.0f, 1.0f) * 2147483648.0), 2147483647LL));
        std::memcpy(out + 4 * i, &v, 4);
        break;
      }
      case SampleKind::Unknown: break;
    }
  }
}

}  // namespace

MonitorOutput::MonitorOutput(PlaybackDevice device, float gain, Say say)
    : device_(std::move(device)), gain_(gain), say_(std::move(say)),
      opened_(CreateEventW(nullptr, TRUE, FALSE, nullptr)), stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

std::unique_ptr<MonitorOutput> MonitorOutput::Open(const PlaybackDevice& device, float gain, Say say,
                                                   std::string& error) {
  std::unique_ptr<MonitorOutput> monitor(new MonitorOutput(device, gain, std::move(say)));
  monitor->thread_ = std::thread([m = monitor.get()] { m->Run(); });
  WaitForSingleObject(monitor->opened_.Get(), INFINITE);
  if (!monitor->bus_) {
    error = monitor->error_;
    return nullptr;  // the thread has ended; the destructor joins it
  }
  return monitor;
}

MonitorOutput::~MonitorOutput() {
  SetEvent(stop_.Get());
  if (thread_.joinable()) thread_.join();
}

void MonitorOutput::Run() {
  tools::ComApartment com;
  const std::string name = tools::Narrow(device_.name);
  ComPtr<IMMDeviceEnumerator> devices;
  ComPtr<IMMDevice> device;
  ComPtr<IAudioClient> client;
  ComPtr<IAudioRenderClient> render;
  WAVEFORMATEX* format = nullptr;
  UniqueHandle ready(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  UINT32 bufferFrames = 0;
  HRESULT hr = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                                devices.PutVoid());
  if (SUCCEEDED(hr)) hr = devices->GetDevice(device_.id.c_str(), device.Put());
  if (SUCCEEDED(hr)) hr = device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.PutVoid());
  if (SUCCEEDED(hr)) hr = client->GetMixFormat(&format);
  const SampleKind kind = SUCCEEDED(hr) ? KindOf(*format) : SampleKind::Unknown;
  if (SUCCEEDED(hr) && kind == SampleKind::Unknown) hr = AUDCLNT_E_UNSUPPORTED_FORMAT;
  if (SUCCEEDED(hr)) {
    hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST,
                            kBufferHns, 0, format, nullptr);
  }
  if (SUCCEEDED(hr)) hr = client->SetEventHandle(ready.Get());
  if (SUCCEEDED(hr)) hr = client->GetBufferSize(&bufferFrames);
  if (SUCCEEDED(hr)) hr = client->GetService(__uuidof(IAudioRenderClient), render.PutVoid());
  if (SUCCEEDED(hr)) hr = client->Start();
  if (FAILED(hr)) {
    error_ = "cannot play to " + name + ": " + tools::SystemText(static_cast<unsigned long>(hr));
    CoTaskMemFree(format);
    SetEvent(opened_.Get());
    return;
  }
  const uint32_t channels = format->nChannels, rate = format->nSamplesPerSec;
  CoTaskMemFree(format);
  bus_ = std::make_unique<MixBus>(rate, channels, gain_, [](const VoiceStream&, VoiceEvent) {});
  SetEvent(opened_.Get());

  std::vector<float> mix(static_cast<size_t>(bufferFrames) * channels);
  HANDLE events[] = {stop_.Get(), ready.Get()};
  while (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
    UINT32 padding = 0;
    BYTE* data = nullptr;
    hr = client->GetCurrentPadding(&padding);
    const UINT32 room = bufferFrames - std::min(padding, bufferFrames);
    if (SUCCEEDED(hr) && room == 0) continue;
    if (SUCCEEDED(hr)) hr = render->GetBuffer(room, &data);
    if (SUCCEEDED(hr)) {
      const size_t sound = bus_->Mix(mix.data(), room);
      Store(kind, mix.data(), static_cast<size_t>(room) * channels, data);
      hr = render->ReleaseBuffer(room, sound == 0 ? AUDCLNT_BUFFERFLAGS_SILENT : 0);
    }
    if (FAILED(hr)) {
      say_(hr == AUDCLNT_E_DEVICE_INVALIDATED
               ? "monitor: " + name + " went away; the microphone plays on"
               : "monitor: " + name + " failed (" + tools::SystemText(static_cast<unsigned long>(hr)) +
                     "); the microphone plays on");
      return;
    }
  }
  client->Stop();
}

}  // namespace quillon::player
