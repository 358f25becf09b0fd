#include "player/PlaybackDevices.h"

#include "common/ComApartment.h"
#include "common/ToolSupport.h"
#include "platform/ComPtr.h"

#include <windows.h>
// The property keys below are defined here, not only declared.
#include <initguid.h>
#include <functiondiscoverykeys_devpkey.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <cwctype>

namespace quillon::player {
namespace {

std::wstring Lower(std::wstring text) {
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towlower(c); });
  return text;
}

std::wstring FriendlyName(IMMDevice* device) {
  ComPtr<IPropertyStore> store;
  std::wstring name;
  if (FAILED(device->OpenPropertyStore(STGM_READ, store.Put()))) return name;
  PROPVARIANT value;
  PropVariantInit(&value);
  if (SUCCEEDED(store->GetValue(PKEY_Device_FriendlyName, &value)) && value.vt == VT_LPWSTR) name = value.pwszVal;
  PropVariantClear(&value);
  return name;
}

std::wstring IdOf(IMMDevice* device) {
  wchar_t* id = nullptr;
  std::wstring text;
  if (SUCCEEDED(device->GetId(&id))) text = id;
  CoTaskMemFree(id);
  return text;
}

}  // namespace

std::vector<PlaybackDevice> ListPlaybackDevices(std::string& error) {
  tools::ComApartment com;
  std::vector<PlaybackDevice> found;
  ComPtr<IMMDeviceEnumerator> devices;
  ComPtr<IMMDeviceCollection> collection;
  HRESULT hr = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                                devices.PutVoid());
  if (SUCCEEDED(hr)) hr = devices->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, collection.Put());
  UINT count = 0;
  if (SUCCEEDED(hr)) hr = collection->GetCount(&count);
  if (FAILED(hr)) {
    error = "Windows lists no playback devices (" + tools::SystemText(static_cast<DWORD>(hr)) + ")";
    return found;
  }
  std::wstring defaultId;
  ComPtr<IMMDevice> fallback;
  if (SUCCEEDED(devices->GetDefaultAudioEndpoint(eRender, eConsole, fallback.Put()))) defaultId = IdOf(fallback.Get());
  for (UINT i = 0; i < count; ++i) {
    ComPtr<IMMDevice> device;
    if (FAILED(collection->Item(i, device.Put()))) continue;
    PlaybackDevice d{IdOf(device.Get()), FriendlyName(device.Get()), false};
    d.isDefault = !defaultId.empty() && d.id == defaultId;
    found.push_back(std::move(d));
  }
  return found;
}

bool ChoosePlaybackDevice(const std::wstring& wanted, PlaybackDevice& device, std::string& error) {
  const std::vector<PlaybackDevice> devices = ListPlaybackDevices(error);
  if (devices.empty()) {
    if (error.empty()) error = "there is no playback device";
    return false;
  }
  std::vector<const PlaybackDevice*> fits;
  for (const PlaybackDevice& d : devices) {
    const bool fit = wanted.empty() ? d.isDefault
                                    : Lower(d.id) == Lower(wanted) || Lower(d.name).find(Lower(wanted)) != std::wstring::npos;
    if (fit) fits.push_back(&d);
  }
  if (fits.size() == 1) {
    device = *fits.front();
    return true;
  }
  std::string candidates;
  for (const PlaybackDevice& d : devices) candidates += (candidates.empty() ? "" : ", ") + tools::Utf8(d.name);
  error = wanted.empty() ? "Windows has no default playback device; name one of: " + candidates
          : fits.empty() ? "no playback device \"" + tools::Utf8(wanted) + "\"; the devices are: " + candidates
                         : "\"" + tools::Utf8(wanted) + "\" fits several playback devices: " + candidates;
  return false;
}

}  // namespace quillon::player
