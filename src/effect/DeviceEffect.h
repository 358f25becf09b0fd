// The endpoint's own effect, which the effect wraps and lets act first. It is
// named by the endpoint's "Original-Apo" setting, written by the installer.
#pragma once

#include "platform/ApoInterfaces.h"
#include "platform/ComPtr.h"

#include <string>

namespace quillon {

class DeviceEffect {
 public:
  // Creates and initialises the device effect named for `endpointId`, after
  // releasing one made earlier. On any failure (logged) there is none.
  void Create(const std::wstring& endpointId, UINT32 cbDataSize, BYTE* pbyData);
  void Release();

  explicit operator bool() const { return static_cast<bool>(apo); }
  IAudioProcessingObject* Apo() const { return apo.Get(); }
  IAudioProcessingObjectRT* RT() const { return rt.Get(); }
  IAudioProcessingObjectConfiguration* Configuration() const { return configuration.Get(); }

 private:
  ComPtr<IAudioProcessingObject> apo;
  ComPtr<IAudioProcessingObjectRT> rt;
  ComPtr<IAudioProcessingObjectConfiguration> configuration;
};

}  // namespace quillon
