#include "system/DefaultMicrophone.h"

#include "common/ToolSupport.h"
#include "platform/ComPtr.h"

#include <windows.h>
#include <mmdeviceapi.h>

namespace quillon::system {

using tools::SystemText;

std::wstring DefaultMicrophoneGuid(std::string& error) {
  const HRESULT initialized = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  std::wstring guid;
  {
    ComPtr<IMMDeviceEnumerator> devices;
    ComPtr<IMMDevice> device;
    wchar_t* id = nullptr;
    HRESULT hr = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                                  devices.PutVoid());
    if (SUCCEEDED(hr)) hr = devices->GetDefaultAudioEndpoint(eCapture, eConsole, device.Put());
    if (SUCCEEDED(hr)) hr = device->GetId(&id);
    if (SUCCEEDED(hr)) {
      // "{0.0.1.00000000}.{guid}"
      const std::wstring text = id;
      guid = text.substr(text.rfind(L'{'));
    } else {
      error = "Windows names no default microphone (" + SystemText(static_cast<DWORD>(hr)) + ")";
    }
    CoTaskMemFree(id);
  }
  if (SUCCEEDED(initialized)) CoUninitialize();
  return guid;
}

}  // namespace quillon::system
