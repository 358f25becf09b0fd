#include "system/EffectProbe.h"

#include "common/ToolSupport.h"
#include "platform/ComPtr.h"

#include <audioclient.h>
#include <mmdeviceapi.h>

namespace quillon::system {

using tools::SystemText;

namespace {

constexpr DWORD kPollMs = 50;

bool FindInstance(const Endpoint& endpoint, Microphone& instance) {
  for (Microphone& mic : RunningMicrophones()) {
    if (Lowercase(GuidOf(mic.endpointId)) == Lowercase(endpoint.guid)) {
      instance = std::move(mic);
      return true;
    }
  }
  return false;
}

struct CoTaskFreed {
  void* memory = nullptr;
  ~CoTaskFreed() { CoTaskMemFree(memory); }
};

// A started shared-mode capture stream on the endpoint; an empty text, or why not.
std::string StartCapture(const Endpoint& endpoint, ComPtr<IAudioClient>& client) {
  ComPtr<IMMDeviceEnumerator> enumerator;
  ComPtr<IMMDevice> device;
  HRESULT hr = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                                enumerator.PutVoid());
  if (SUCCEEDED(hr)) hr = enumerator->GetDevice(endpoint.Id().c_str(), device.Put());
  if (FAILED(hr)) return "Windows does not open it for recording: " + SystemText(static_cast<DWORD>(hr));
  hr = device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.PutVoid());
  CoTaskFreed format;
  if (SUCCEEDED(hr)) hr = client->GetMixFormat(reinterpret_cast<WAVEFORMATEX**>(&format.memory));
  // 100 ms of buffer: the stream only has to run, nobody reads it.
  if (SUCCEEDED(hr)) {
    hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 1000000, 0, static_cast<WAVEFORMATEX*>(format.memory),
                            nullptr);
  }
  if (SUCCEEDED(hr)) hr = client->Start();
  if (FAILED(hr)) return "a capture stream could not be started: " + SystemText(static_cast<DWORD>(hr));
  return "";
}

}  // namespace

EffectProbe ProbeEffect(const Endpoint& endpoint, DWORD timeoutMs) {
  EffectProbe probe;
  if (FindInstance(endpoint, probe.instance)) {
    probe.found = probe.alreadyRunning = true;
    return probe;
  }
  if (timeoutMs == 0) return probe;
  ComPtr<IAudioClient> client;
  probe.streamError = StartCapture(endpoint, client);
  if (!probe.streamError.empty()) return probe;
  const ULONGLONG deadline = GetTickCount64() + timeoutMs;
  while (!(probe.found = FindInstance(endpoint, probe.instance)) && GetTickCount64() < deadline) Sleep(kPollMs);
  client->Stop();
  return probe;
}

}  // namespace quillon::system
