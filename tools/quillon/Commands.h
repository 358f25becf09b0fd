// The quillon commands: each takes its parsed arguments and returns the exit code.
#pragma once

#include "quillon/CommandLine.h"

#include <string>
#include <vector>

namespace quillon::cli {

struct Command {
  const char* name;
  std::vector<OptionSpec> options;
  const char* usage;    // after "quillon "
  const char* summary;  // one line for the overview
  const char* details;  // the rest of `quillon help NAME`
  int (*run)(const Arguments&);
};

const std::vector<Command>& AllCommands();
const Command* FindCommand(const std::string& name);
// Prints the overview, or one command's help.
void PrintHelp(const Command* command);

int RunList(const Arguments& args);
int RunPlay(const Arguments& args);
int RunStop(const Arguments& args);
int RunSet(const Arguments& args);
int RunSettings(const Arguments& args);
int RunLog(const Arguments& args);
int RunMics(const Arguments& args);
int RunDevices(const Arguments& args);
int RunAttach(const Arguments& args);
int RunDetach(const Arguments& args);
int RunReattach(const Arguments& args);
int RunCheck(const Arguments& args);
int RunLoudness(const Arguments& args);
int RunRegister(const Arguments& args);
int RunUnregister(const Arguments& args);
int RunRestartAudio(const Arguments& args);
int RunHelp(const Arguments& args);

// A usage error: one line, then exit code 2.
int UsageError(const std::string& problem, const char* command);

}  // namespace quillon::cli
