#include "effect/DeviceEffect.h"

#include "diag/ErrorDescription.h"
#include "diag/Logger.h"
#include "effect/ClassId.h"
#include "platform/Registry.h"
#include "platform/RegistrySettings.h"

#include <cwchar>

namespace quillon {
namespace {

constexpr const wchar_t* kFunction = L"Quillon::InitializeOriginalApo";

// Step numbers reported when creating the device effect fails.
constexpr int kStepClsidFromString = 139;
constexpr int kStepCreateInstance = 141;
constexpr int kStepRealTimeInterface = 142;
constexpr int kStepConfigurationInterface = 143;
constexpr int kStepInitialize = 144;

}  // namespace

void DeviceEffect::Create(const std::wstring& endpointId, UINT32 cbDataSize, BYTE* pbyData) {
  // A repeated Initialize replaces the device effect of the earlier one.
  Release();
  std::wstring text;
  const std::wstring path = kSettingsPath + endpointId + L"\\" + kOriginalApoValue;
  // Never the effect's own class id: it would wrap itself.
  if (!ReadRegistryString(path, text).Ok() || text.empty() || _wcsicmp(text.c_str(), kQuillonClsidText) == 0) {
    return;
  }
  QLOG(LOG_TRACE, kFunction, L"Initialize original apo");

  int step = kStepClsidFromString;
  CLSID clsid{};
  HRESULT hr = CLSIDFromString(text.c_str(), &clsid);
  if (SUCCEEDED(hr)) {
    step = kStepCreateInstance;
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IAudioProcessingObject,
                          apo.PutVoid());
  }
  if (SUCCEEDED(hr)) {
    step = kStepRealTimeInterface;
    hr = apo.As(IID_IAudioProcessingObjectRT, rt);
  }
  if (SUCCEEDED(hr)) {
    step = kStepConfigurationInterface;
    hr = apo.As(IID_IAudioProcessingObjectConfiguration, configuration);
  }
  if (SUCCEEDED(hr)) {
    step = kStepInitialize;
    hr = apo->Initialize(cbDataSize, pbyData);
  }
  if (SUCCEEDED(hr)) {
    QLOG(LOG_TRACE, kFunction, L"Successfully created and initialized original APO");
    return;
  }
  // The endpoint then runs without its device effect; Initialize goes on.
  Release();
  QLOG(LOG_WARNING, kFunction, L"Failed to init original apo [Line=%d, Code=%x: %s]", step, hr,
       GetErrorDescription(hr).c_str());
}

void DeviceEffect::Release() {
  configuration.Reset();
  rt.Reset();
  apo.Reset();
}

}  // namespace quillon
