#include "player/DeviceNotifications.h"

namespace quillon::player {

class DeviceNotifications::Client final : public IMMNotificationClient {
 public:
  explicit Client(HANDLE changed) : changed_(changed) {}

  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    if (iid == __uuidof(IUnknown) || iid == __uuidof(IMMNotificationClient)) {
      *object = static_cast<IMMNotificationClient*>(this);
      AddRef();
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override {
    SetEvent(changed_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override {
    SetEvent(changed_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override {
    SetEvent(changed_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR) override {
    if (flow == eRender && role == eConsole) SetEvent(changed_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override { return S_OK; }

 private:
  HANDLE changed_;  // the owner's, which outlives the registration
  std::atomic<ULONG> references_{1};
};

DeviceNotifications::DeviceNotifications(IMMDeviceEnumerator* devices, HANDLE changed)
    : client_(ComPtr<IMMNotificationClient>::Adopt(new Client(changed))) {
  if (devices != nullptr) devices->AddRef();
  devices_ = ComPtr<IMMDeviceEnumerator>::Adopt(devices);
  registered_ = devices_ && SUCCEEDED(devices_->RegisterEndpointNotificationCallback(client_.Get()));
}

DeviceNotifications::~DeviceNotifications() {
  if (registered_) devices_->UnregisterEndpointNotificationCallback(client_.Get());
}

}  // namespace quillon::player
