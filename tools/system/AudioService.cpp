#include "system/AudioService.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::system {

using tools::SystemText;

namespace {

constexpr DWORD kWaitMs = 20000;

struct ServiceHandleTraits {
  using Type = SC_HANDLE;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type h) { return h != nullptr; }
  static void Close(Type h) { CloseServiceHandle(h); }
};
using UniqueService = UniqueResource<ServiceHandleTraits>;

// Waits until the service reaches `state`, up to kWaitMs.
bool WaitFor(SC_HANDLE service, DWORD state) {
  const ULONGLONG deadline = GetTickCount64() + kWaitMs;
  SERVICE_STATUS status{};
  while (QueryServiceStatus(service, &status) && status.dwCurrentState != state) {
    if (GetTickCount64() > deadline) return false;
    Sleep(100);
  }
  return status.dwCurrentState == state;
}

bool Stop(SC_HANDLE manager, const std::wstring& name) {
  UniqueService service(OpenServiceW(manager, name.c_str(), SERVICE_STOP | SERVICE_QUERY_STATUS));
  SERVICE_STATUS status{};
  if (!service) return false;
  if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) &&
      GetLastError() != ERROR_SERVICE_NOT_ACTIVE) {
    return false;
  }
  return WaitFor(service.Get(), SERVICE_STOPPED);
}

bool Start(SC_HANDLE manager, const std::wstring& name) {
  UniqueService service(OpenServiceW(manager, name.c_str(), SERVICE_START | SERVICE_QUERY_STATUS));
  if (!service) return false;
  if (!StartServiceW(service.Get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) return false;
  return WaitFor(service.Get(), SERVICE_RUNNING);
}

}  // namespace

ServiceRestart RestartAudioService() {
  UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  UniqueService audio;
  if (manager) {
    audio.Reset(OpenServiceW(manager.Get(), L"AudioSrv", SERVICE_ENUMERATE_DEPENDENTS | SERVICE_QUERY_STATUS));
  }
  if (!audio) {
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
      return {true, "this system has no audio service (AudioSrv); nothing to restart"};
    }
    return {false, "cannot reach the audio service: " + SystemText(error) +
                       "; restart Windows for the change to take effect"};
  }
  // The running services that depend on it, in the order Windows stops them.
  std::vector<std::wstring> dependents;
  DWORD needed = 0, count = 0;
  EnumDependentServicesW(audio.Get(), SERVICE_ACTIVE, nullptr, 0, &needed, &count);
  std::vector<BYTE> buffer(needed);
  if (needed != 0 && EnumDependentServicesW(audio.Get(), SERVICE_ACTIVE,
                                            reinterpret_cast<ENUM_SERVICE_STATUSW*>(buffer.data()), needed, &needed,
                                            &count)) {
    const auto* services = reinterpret_cast<const ENUM_SERVICE_STATUSW*>(buffer.data());
    for (DWORD i = 0; i < count; ++i) dependents.push_back(services[i].lpServiceName);
  }
  bool ok = true;
  for (const std::wstring& name : dependents) ok = Stop(manager.Get(), name) && ok;
  ok = ok && Stop(manager.Get(), L"AudioSrv") && Start(manager.Get(), L"AudioSrv");
  for (auto name = dependents.rbegin(); name != dependents.rend(); ++name) ok = Start(manager.Get(), *name) && ok;
  if (!ok) {
    return {false, "the audio service did not restart within " + std::to_string(kWaitMs / 1000) +
                       " s; restart Windows for the change to take effect"};
  }
  return {true, "restarted the audio service"};
}

}  // namespace quillon::system
