#include "system/QuillonServer.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"
#include "system/Endpoints.h"

#include <windows.h>

#include <vector>

namespace quillon::system {

using tools::PathBesideThisProgram;
using tools::SystemText;
using tools::Utf8;

std::string MachineName(USHORT machine) {
  switch (machine) {
    case IMAGE_FILE_MACHINE_AMD64: return "x64";
    case IMAGE_FILE_MACHINE_ARM64: return "ARM64";
    case IMAGE_FILE_MACHINE_I386: return "x86";
    default: return "machine " + std::to_string(machine);
  }
}

USHORT NativeMachine() {
  using IsWow64Process2Fn = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
  const auto isWow64Process2 = reinterpret_cast<IsWow64Process2Fn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2")));
  USHORT process = 0, native = 0;
  if (isWow64Process2 != nullptr && isWow64Process2(GetCurrentProcess(), &process, &native)) return native;
  SYSTEM_INFO info;
  GetNativeSystemInfo(&info);
  switch (info.wProcessorArchitecture) {
    case PROCESSOR_ARCHITECTURE_ARM64: return IMAGE_FILE_MACHINE_ARM64;
    case PROCESSOR_ARCHITECTURE_INTEL: return IMAGE_FILE_MACHINE_I386;
    default: return IMAGE_FILE_MACHINE_AMD64;
  }
}

USHORT FileMachine(const std::wstring& path) {
  UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  IMAGE_DOS_HEADER dos{};
  DWORD read = 0, signature = 0;
  IMAGE_FILE_HEADER header{};
  if (!file || !ReadFile(file.Get(), &dos, sizeof(dos), &read, nullptr) || read != sizeof(dos) ||
      dos.e_magic != IMAGE_DOS_SIGNATURE ||
      SetFilePointer(file.Get(), dos.e_lfanew, nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER ||
      !ReadFile(file.Get(), &signature, 4, &read, nullptr) || signature != IMAGE_NT_SIGNATURE ||
      !ReadFile(file.Get(), &header, sizeof(header), &read, nullptr) || read != sizeof(header)) {
    return 0;
  }
  return header.Machine;
}

std::string FileVersionText(const std::wstring& path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  std::vector<BYTE> info(size);
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, info.data()) ||
      !VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || fixed == nullptr) {
    return "";
  }
  return std::to_string(HIWORD(fixed->dwFileVersionMS)) + "." + std::to_string(LOWORD(fixed->dwFileVersionMS)) + "." +
         std::to_string(HIWORD(fixed->dwFileVersionLS));
}

std::wstring EngineClassKey() {
  return std::wstring(L"SOFTWARE\\Classes\\AudioEngine\\AudioProcessingObjects\\") + kQuillonClsidText;
}

Registration ReadRegistration() {
  Registration registration;
  registration.comClass = KeyExists(ComClassKey());
  const std::wstring server = ComClassKey() + L"\\InprocServer32";
  if (const std::optional<RegValue> path = ReadValue(server, L"")) registration.server = path->AsText().value_or(L"");
  if (const std::optional<RegValue> model = ReadValue(server, L"ThreadingModel")) {
    registration.threadingModel = model->AsText().value_or(L"");
  }
  registration.engine = KeyExists(EngineClassKey());
  return registration;
}

std::wstring QuillonDllPath() { return PathBesideThisProgram(L"Quillon.dll"); }

bool CheckQuillonDll(const std::wstring& path, std::string& error) {
  if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
    error = "Quillon.dll is missing beside quillon.exe (" + Utf8(path) + ")";
    return false;
  }
  const USHORT machine = FileMachine(path), native = NativeMachine();
  if (machine != native) {
    error = Utf8(path) + (machine == 0 ? std::string(" is not a Windows DLL") : " is built for " + MachineName(machine)) +
            ", but this Windows runs " + MachineName(native) + " effects; install the " + MachineName(native) +
            " build of Quillon";
    return false;
  }
  return true;
}

std::wstring ComClassKey() { return std::wstring(L"SOFTWARE\\Classes\\CLSID\\") + kQuillonClsidText; }

std::vector<RegChange> ComClassChanges(const std::wstring& path) {
  const std::wstring server = ComClassKey() + L"\\InprocServer32";
  return {RegChange::Set(ComClassKey(), L"", RegValue::Text(L"Quillon")),
          RegChange::Set(server, L"", RegValue::Text(path)),
          RegChange::Set(server, L"ThreadingModel", RegValue::Text(L"Both"))};
}

bool RegisterServer(const std::wstring& path, std::string& error) {
  std::wstring failedKey;
  if (!CheckQuillonDll(path, error) || !CallRegistration(path, true, error)) return false;
  if (const LSTATUS status = Apply(ComClassChanges(path), failedKey)) {
    error = "cannot write " + HklmText(failedKey) + ": " + SystemText(status);
    return false;
  }
  return true;
}

bool CallRegistration(const std::wstring& path, bool registering, std::string& error) {
  const char* entry = registering ? "DllRegisterServer" : "DllUnregisterServer";
  UniqueModule dll(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!dll) {
    error = "cannot load " + Utf8(path) + ": " + SystemText(GetLastError());
    return false;
  }
  const auto call = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(
      reinterpret_cast<void*>(GetProcAddress(dll.Get(), entry)));
  const HRESULT result = call != nullptr ? call() : HRESULT_FROM_WIN32(GetLastError());
  if (FAILED(result)) {
    error = std::string(entry) + " of " + Utf8(path) + " failed: " + SystemText(static_cast<DWORD>(result));
    return false;
  }
  return true;
}

}  // namespace quillon::system
