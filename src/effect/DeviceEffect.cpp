// The endpoint's own effect, which the effect wraps and lets act first. It is
// named by the endpoint's "Original-Apo" setting, written by the installer.
#include "effect/Quillon.h"

#include "com/RegistrationProperties.h"
#include "config/Registry.h"
#include "config/SettingsPath.h"
#include "diag/ErrorDescription.h"
#include "diag/Logger.h"

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

std::wstring MakeOwnClsidText() {
  wchar_t text[64] = {};
  StringFromGUID2(CLSID_Quillon, text, 64);
  return text;
}

// The effect's own class id, so that it never wraps itself.
const std::wstring ownClsidText = MakeOwnClsidText();

}  // namespace

void Quillon::InitializeOriginalApo(UINT32 cbDataSize, BYTE* pbyData) {
  // A repeated Initialize replaces the device effect of the earlier one.
  ReleaseDeviceEffect();
  std::wstring text;
  const std::wstring path = kSettingsPath + endpointId + L"\\Original-Apo";
  if (!ReadRegistryString(path, text).Ok() || text.empty() || _wcsicmp(text.c_str(), ownClsidText.c_str()) == 0) {
    return;
  }
  QLOG(LOG_TRACE, kFunction, L"Initialize original apo");

  int step = kStepClsidFromString;
  CLSID clsid{};
  HRESULT hr = CLSIDFromString(text.c_str(), &clsid);
  if (SUCCEEDED(hr)) {
    step = kStepCreateInstance;
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IAudioProcessingObject,
                          reinterpret_cast<void**>(&deviceEffect));
  }
  if (SUCCEEDED(hr)) {
    step = kStepRealTimeInterface;
    hr = deviceEffect->QueryInterface(IID_IAudioProcessingObjectRT, reinterpret_cast<void**>(&deviceEffectRT));
  }
  if (SUCCEEDED(hr)) {
    step = kStepConfigurationInterface;
    hr = deviceEffect->QueryInterface(IID_IAudioProcessingObjectConfiguration,
                                      reinterpret_cast<void**>(&deviceEffectConfig));
  }
  if (SUCCEEDED(hr)) {
    step = kStepInitialize;
    hr = deviceEffect->Initialize(cbDataSize, pbyData);
  }
  if (SUCCEEDED(hr)) {
    QLOG(LOG_TRACE, kFunction, L"Successfully created and initialized original APO");
    return;
  }
  // The endpoint then runs without its device effect; Initialize goes on.
  ReleaseDeviceEffect();
  QLOG(LOG_WARNING, kFunction, L"Failed to init original apo [Line=%d, Code=%x: %s]", step, hr,
       GetErrorDescription(hr).c_str());
}

void Quillon::ReleaseDeviceEffect() {
  if (deviceEffectConfig != nullptr) deviceEffectConfig->Release();
  if (deviceEffectRT != nullptr) deviceEffectRT->Release();
  if (deviceEffect != nullptr) deviceEffect->Release();
  deviceEffectConfig = nullptr;
  deviceEffectRT = nullptr;
  deviceEffect = nullptr;
}

}  // namespace quillon
