#include "player/MonitorOutput.h"

#include "player/DeviceNotifications.h"
#include "player/ProAudioThread.h"

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
constexpr DWORD kProbeMs = 200;
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

// One open stream on one device.
struct MonitorOutput::Stream {
  ComPtr<IMMDeviceEnumerator> devices;
  ComPtr<IAudioClient> client;
  ComPtr<IAudioRenderClient> render;
  UniqueHandle ready{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  UINT32 bufferFrames = 0;
  uint32_t rate = 0, channels = 0;
  SampleKind kind = SampleKind::Unknown;
  std::wstring id;
  std::string name;
};

MonitorOutput::MonitorOutput(PlaybackDevice device, Options options, Say say)
    : device_(std::move(device)), options_(std::move(options)), say_(std::move(say)),
      opened_(CreateEventW(nullptr, TRUE, FALSE, nullptr)), stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      changed_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

std::unique_ptr<MonitorOutput> MonitorOutput::Open(const PlaybackDevice& device, Options options, Say say,
                                                   std::string& error) {
  std::unique_ptr<MonitorOutput> monitor(new MonitorOutput(device, std::move(options), std::move(say)));
  monitor->thread_ = std::thread([m = monitor.get()] { m->Run(); });
  WaitForSingleObject(monitor->opened_.Get(), INFINITE);
  if (!monitor->Running()) {
    error = monitor->error_;
    return nullptr;  // the thread has ended; the destructor joins it
  }
  return monitor;
}

MonitorOutput::~MonitorOutput() {
  SetEvent(stop_.Get());
  if (thread_.joinable()) thread_.join();
}

bool MonitorOutput::Current(OutputFormat& format, uint64_t& stream) const {
  std::lock_guard<std::mutex> lock(lock_);
  format = format_;
  stream = stream_;
  return running_;
}

bool MonitorOutput::Add(const std::vector<VoiceFeed*>& feeds, uint64_t stream) {
  std::lock_guard<std::mutex> lock(lock_);
  if (!running_ || stream != stream_) return false;
  bus_->Add(feeds);
  return true;
}

void MonitorOutput::Stop(int id) {
  std::lock_guard<std::mutex> lock(lock_);
  if (running_) bus_->Stop(id);
}

void MonitorOutput::StopAll() {
  std::lock_guard<std::mutex> lock(lock_);
  if (running_) bus_->StopAll();
}

bool MonitorOutput::Reads(uint64_t stream) const {
  std::lock_guard<std::mutex> lock(lock_);
  return running_ && stream == stream_;
}

bool MonitorOutput::Running() const {
  std::lock_guard<std::mutex> lock(lock_);
  return running_;
}

void MonitorOutput::DevicesChanged() { SetEvent(changed_.Get()); }

HRESULT MonitorOutput::OpenStream(Stream& s) {
  ComPtr<IMMDevice> device;
  HRESULT hr = options_.followDefault ? s.devices->GetDefaultAudioEndpoint(eRender, eConsole, device.Put())
                                      : s.devices->GetDevice(device_.id.c_str(), device.Put());
  s.id = device_.id;
  s.name = tools::Utf8(device_.name);
  if (SUCCEEDED(hr) && options_.followDefault) {
    wchar_t* id = nullptr;
    if (SUCCEEDED(device->GetId(&id))) s.id = id;
    CoTaskMemFree(id);
    if (s.id != device_.id) s.name = "the default playback device";
  }
  WAVEFORMATEX* format = nullptr;
  if (SUCCEEDED(hr)) hr = device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, s.client.PutVoid());
  if (SUCCEEDED(hr)) hr = s.client->GetMixFormat(&format);
  s.kind = SUCCEEDED(hr) ? KindOf(*format) : SampleKind::Unknown;
  if (SUCCEEDED(hr) && s.kind == SampleKind::Unknown) hr = AUDCLNT_E_UNSUPPORTED_FORMAT;
  if (SUCCEEDED(hr)) {
    hr = s.client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST,
                              kBufferHns, 0, format, nullptr);
  }
  if (SUCCEEDED(hr)) {
    s.channels = format->nChannels;
    s.rate = format->nSamplesPerSec;
  }
  CoTaskMemFree(format);
  if (SUCCEEDED(hr)) hr = s.client->SetEventHandle(s.ready.Get());
  if (SUCCEEDED(hr)) hr = s.client->GetBufferSize(&s.bufferFrames);
  if (SUCCEEDED(hr)) hr = s.client->GetService(__uuidof(IAudioRenderClient), s.render.PutVoid());
  if (SUCCEEDED(hr)) hr = s.client->Start();
  return hr;
}

HRESULT MonitorOutput::Render(Stream& s) {
  MixBus* bus = nullptr;
  {
    std::lock_guard<std::mutex> lock(lock_);
    bus = bus_.get();
  }
  std::vector<float> mix(static_cast<size_t>(s.bufferFrames) * s.channels);
  HANDLE events[] = {stop_.Get(), s.ready.Get(), changed_.Get()};
  while (true) {
    // A device that went away may signal nothing more: a quiet while, or
    // Windows' word of a change, has the stream asked how it is.
    const DWORD woke = WaitForMultipleObjects(3, events, FALSE, kProbeMs);
    if (woke == WAIT_OBJECT_0) return S_OK;
    if (woke == WAIT_OBJECT_0 + 2 && options_.followDefault) {
      // The default moved (or there is none any more): the stream follows it.
      ComPtr<IMMDevice> now;
      wchar_t* id = nullptr;
      const bool same = SUCCEEDED(s.devices->GetDefaultAudioEndpoint(eRender, eConsole, now.Put())) &&
                        SUCCEEDED(now->GetId(&id)) && s.id == id;
      CoTaskMemFree(id);
      if (!same) return S_FALSE;
    }
    UINT32 padding = 0;
    BYTE* data = nullptr;
    HRESULT hr = options_.fault ? options_.fault() : S_OK;
    if (SUCCEEDED(hr)) hr = s.client->GetCurrentPadding(&padding);
    if (FAILED(hr)) return hr;
    if (woke != WAIT_OBJECT_0 + 1) continue;
    const UINT32 room = s.bufferFrames - std::min(padding, s.bufferFrames);
    if (room == 0) continue;
    if (SUCCEEDED(hr)) hr = s.render->GetBuffer(room, &data);
    if (SUCCEEDED(hr)) {
      const size_t sound = bus->Mix(mix.data(), room);
      Store(s.kind, mix.data(), static_cast<size_t>(room) * s.channels, data);
      hr = s.render->ReleaseBuffer(room, sound == 0 ? AUDCLNT_BUFFERFLAGS_SILENT : 0);
    }
    if (FAILED(hr)) return hr;
  }
}

void MonitorOutput::Run() {
  tools::ComApartment com;
  ProAudioThread proAudio;
  ComPtr<IMMDeviceEnumerator> devices;
  HRESULT hr = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                                devices.PutVoid());
  const DeviceNotifications notifications(devices.Get(), changed_.Get());
  bool first = true, off = false;
  while (true) {
    Stream s;
    s.devices = devices;
    if (SUCCEEDED(hr)) hr = OpenStream(s);
    if (FAILED(hr) && first) {
      error_ = "cannot play to " + tools::Utf8(device_.name) + ": " + tools::SystemText(static_cast<unsigned long>(hr));
      SetEvent(opened_.Get());
      return;
    }
    if (FAILED(hr) && !off) {
      off = true;
      say_("monitor: cannot play to " + (s.name.empty() ? std::string("the default playback device") : s.name) +
           " (" + tools::SystemText(static_cast<unsigned long>(hr)) + "); the microphone plays on");
    }
    if (SUCCEEDED(hr)) {
      {
        std::lock_guard<std::mutex> lock(lock_);
        bus_ = std::make_unique<MixBus>(s.rate, s.channels, options_.gain, s.bufferFrames);
        format_ = {s.rate, s.channels, 0, 0};
        ++stream_;
        running_ = true;
      }
      if (first) SetEvent(opened_.Get());
      if (off) say_("monitor: playing to " + s.name + " again");
      first = off = false;
      hr = Render(s);
      {
        // The engine stops feeding this stream, and lets go of its voices.
        std::lock_guard<std::mutex> lock(lock_);
        running_ = false;
      }
      s.client->Stop();
      if (hr == S_OK) return;  // stopped
      if (FAILED(hr)) {
        off = true;
        say_(hr == AUDCLNT_E_DEVICE_INVALIDATED
                 ? "monitor: " + s.name + " went away; the microphone plays on"
                 : "monitor: " + s.name + " failed (" + tools::SystemText(static_cast<unsigned long>(hr)) +
                       "); the microphone plays on");
      }
      hr = S_OK;
      if (!off) continue;  // the default moved: straight to it
    }
    // Off until Windows says a device came or the default changed.
    HANDLE events[] = {stop_.Get(), changed_.Get()};
    if (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0) return;
    hr = S_OK;
  }
}

}  // namespace quillon::player
