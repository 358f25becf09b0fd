// Audio endpoints as Windows keeps them in the registry, seeded from the .reg
// fixtures in tests/tools/endpoints (Wine itself shows no microphones), and
// registry trees read back through `reg export`, as a user would see them.
#pragma once

#include "support/ChildProcess.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace quillon::test {

inline const std::wstring kMMDevices = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices";
// Each from its own literal: globals of other files may be made before these.
inline const std::wstring kCapture = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\";

inline long RunReg(const std::wstring& args) {
  ChildProcess reg(L"C:\\windows\\system32\\reg.exe", args, ExecutableFolder() + L"reg-out.txt");
  return reg.Wait(60000);
}

// Imports endpoints/<name>.reg. The fixtures are kept as ASCII; they are
// imported as the UTF-16 file regedit writes, whose hex(2) and hex(7) data
// reg takes as it stands.
inline void Seed(const std::string& name) {
  const std::string text =
      ReadText(ExecutableFolder() + L"endpoints\\" + std::wstring(name.begin(), name.end()) + L".reg");
  ASSERT_FALSE(text.empty()) << name;
  const std::wstring wide = L"\xFEFF" + std::wstring(text.begin(), text.end());
  const std::wstring file = ExecutableFolder() + L"fixture.reg";
  std::ofstream(file.c_str(), std::ios::binary)
      .write(reinterpret_cast<const char*>(wide.data()), static_cast<std::streamsize>(wide.size() * 2));
  ASSERT_EQ(0, RunReg(L"import \"" + file + L"\"")) << name;
}

// `reg export` of an HKLM key, byte for byte; "" when it does not exist.
inline std::string Export(const std::wstring& key) {
  const std::wstring file = ExecutableFolder() + L"export.reg";
  DeleteFileW(file.c_str());
  RunReg(L"export \"HKLM\\" + key + L"\" \"" + file + L"\" /y");
  return ReadText(file);
}

}  // namespace quillon::test
