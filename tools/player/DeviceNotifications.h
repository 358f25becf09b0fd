// Windows' word that audio devices changed, turned into an event: a device
// came, went or changed its state (a headset unplugged or plugged in again),
// or the default playback device changed. Windows calls on threads of its own; this only sets the event, and
// the monitor's thread looks at what changed. Registered for as long as the
// object lives.
#pragma once

#include "platform/ComPtr.h"
#include "platform/UniqueResource.h"

#include <windows.h>
#include <mmdeviceapi.h>

#include <atomic>

namespace quillon::player {

class DeviceNotifications {
 public:
  // Registers with `devices`; `changed` is set at each change.
  DeviceNotifications(IMMDeviceEnumerator* devices, HANDLE changed);
  ~DeviceNotifications();
  DeviceNotifications(const DeviceNotifications&) = delete;
  DeviceNotifications& operator=(const DeviceNotifications&) = delete;

  bool Registered() const { return registered_; }

 private:
  class Client;
  ComPtr<IMMDeviceEnumerator> devices_;
  ComPtr<IMMNotificationClient> client_;
  bool registered_ = false;
};

}  // namespace quillon::player
