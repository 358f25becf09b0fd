#include "system/QuillonServer.h"

#include "common/ToolSupport.h"
#include "platform/UniqueResource.h"
#include "system/Endpoints.h"

#include <windows.h>

namespace quillon::system {

using tools::PathBesideThisProgram;
using tools::SystemText;
using tools::Utf8;

namespace {

std::string MachineName(USHORT machine) {
  switch (machine) {
    case IMAGE_FILE_MACHINE_AMD64: return "x64";
    case IMAGE_FILE_MACHINE_ARM64: return "ARM64";
    case IMAGE_FILE_MACHINE_I386: return "x86";
    default: return "machine " + std::to_string(machine);
  }
}

// The machine Windows itself runs on.
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

// The Machine field of a PE file's header, or 0.
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

}  // namespace

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
