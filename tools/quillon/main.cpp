// quillon: plays sound files into a microphone that has the Quillon effect,
// shows the microphones it runs on, and changes its settings.
//
//   quillon COMMAND [ARGUMENTS]    (quillon help lists the commands)
#include "common/ToolSupport.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"

#include <windows.h>
#include <shellapi.h>

#include <string>
#include <vector>

using namespace quillon::cli;
using quillon::tools::Utf8;

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  std::vector<std::wstring> words(argv, argv + argc);
  LocalFree(argv);

  if (words.size() < 2) {
    PrintHelp(nullptr);
    return kExitUsage;
  }
  const std::string name = Utf8(words[1]);
  if (name == "--version") {
    Print("quillon %s\n", QUILLON_VERSION_TEXT);
    return kExitDone;
  }
  if (name == "--help" || name == "-h" || name == "/?") {
    PrintHelp(nullptr);
    return kExitDone;
  }
  const Command* command = FindCommand(name);
  if (command == nullptr) return UsageError("unknown command " + name, nullptr);

  std::string error;
  const std::optional<Arguments> args = Parse(words, 2, command->options, error);
  if (!args) return UsageError(error, command->name);
  if (args->Has("--help")) {
    PrintHelp(command);
    return kExitDone;
  }
  return command->run(*args);
}
