// The Quillon.dll beside quillon.exe as a COM server: its architecture, and
// its registration with the audio engine and with COM.
#pragma once

#include "system/RegistryEdit.h"

#include <string>
#include <vector>

namespace quillon::system {

std::wstring QuillonDllPath();

// True when the DLL exists and is built for the machine Windows runs on
// (an x64 DLL cannot go into the audio service of ARM64 Windows).
bool CheckQuillonDll(const std::wstring& path, std::string& error);

// The COM class key: InprocServer32 naming `path`, ThreadingModel Both.
std::vector<RegChange> ComClassChanges(const std::wstring& path);
std::wstring ComClassKey();

// Calls the DLL's DllRegisterServer or DllUnregisterServer.
bool CallRegistration(const std::wstring& path, bool registering, std::string& error);

}  // namespace quillon::system
