// Running the tools as a user does, in processes of their own: `quillon`
// commands with their output and exit code, and quillon-host as the engine;
// the sounds made for the run (tools/make-sounds.sh) and what they wrote.
#pragma once

#include "audio/SoundFile.h"
#include "support/ChildProcess.h"
#include "support/Poll.h"
#include "support/SharedFiles.h"

#include <gtest/gtest.h>

#include <string>

namespace quillon::test {

struct CommandResult {
  long exit = -1;
  std::string text;  // standard output and error together, LF line ends
};

// `quillon <args>`, waited for at most `timeoutMs`.
// `program` may name another copy of quillon.exe; `token` runs it as another user.
inline CommandResult RunQuillon(const std::wstring& args, DWORD timeoutMs = 60000,
                                const std::wstring& program = L"quillon.exe", HANDLE token = nullptr) {
  const std::wstring output = ExecutableFolder() + L"quillon-command-out.txt";
  CommandResult result;
  {
    ChildProcess quillon(program, args, output, token);
    result.exit = quillon.Wait(timeoutMs);
  }
  // Lines end in CR LF, as Windows text does; the tests compare LF lines.
  for (char c : ReadText(output)) {
    if (c != '\r') result.text += c;
  }
  return result;
}

// The folder of the made sounds; the tests write their output files there too.
inline std::wstring Sounds() { return ExecutableFolder() + L"..\\sounds\\"; }

inline audio::Sound LoadSound(const std::wstring& path) {
  audio::Sound sound;
  std::string error;
  EXPECT_TRUE(audio::ReadSound(path, sound, error)) << error;
  return sound;
}

}  // namespace quillon::test
