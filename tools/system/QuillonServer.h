// The Quillon.dll beside quillon.exe as a COM server: its architecture, and
// its registration with the audio engine and with COM.
#pragma once

#include "system/RegistryEdit.h"

#include <windows.h>

#include <string>
#include <vector>

namespace quillon::system {

std::wstring QuillonDllPath();

// True when the DLL exists and is built for the machine Windows runs on
// (an x64 DLL cannot go into the audio service of ARM64 Windows).
bool CheckQuillonDll(const std::wstring& path, std::string& error);

// The Machine field of a PE file's header, or 0 when the file is none.
USHORT FileMachine(const std::wstring& path);
// The machine Windows itself runs on, whatever this program runs as.
USHORT NativeMachine();
std::string MachineName(USHORT machine);
// "1.8.0" from a file's version information, or "" when it has none.
std::string FileVersionText(const std::wstring& path);

// Quillon's registration as Windows holds it now.
struct Registration {
  bool comClass = false;        // HKLM\SOFTWARE\Classes\CLSID\{...} in the native view
  std::wstring server;          // its InprocServer32 path, or ""
  std::wstring threadingModel;  // its ThreadingModel, or ""
  bool engine = false;          // the audio engine's key (DllRegisterServer)
};
Registration ReadRegistration();
// HKLM\SOFTWARE\Classes\AudioEngine\AudioProcessingObjects\{...}
std::wstring EngineClassKey();

// The COM class key: InprocServer32 naming `path`, ThreadingModel Both.
std::vector<RegChange> ComClassChanges(const std::wstring& path);
std::wstring ComClassKey();

// Checks the DLL, calls its DllRegisterServer and writes its COM class.
bool RegisterServer(const std::wstring& path, std::string& error);

// Calls the DLL's DllRegisterServer or DllUnregisterServer.
bool CallRegistration(const std::wstring& path, bool registering, std::string& error);

}  // namespace quillon::system
