// The command table and the help texts.
#include "quillon/Commands.h"
#include "quillon/Console.h"

namespace quillon::cli {

const std::vector<Command>& AllCommands() {
  static const std::vector<Command> commands = {
      {"list", {}, "list", "show the microphones Quillon runs on now",
       "For each microphone whose effect runs now: its slot, friendly name,\n"
       "endpoint id, stream format, and whether a sound is playing into it.\n",
       RunList},
      {"play",
       {{"--mic", true}, {"--volume", true}, {"--loop", true}, {"--block-ms", true}, {"--wait", true},
        {"--verbose", false}},
       "play FILE... [--mic NAME|ID] [--volume DB] [--loop N] [--block-ms MS] [--wait S]",
       "play sound files into a microphone",
       "Plays the files one after another into the microphone, so that every\n"
       "program that records it hears them. WAV (8/16/24/32-bit integer, 32/64-bit\n"
       "float, extensible), FLAC, Ogg Vorbis, Opus and MP3 are read; each file is\n"
       "converted to the microphone's rate and channels as it plays. Every file is\n"
       "checked before the first is sent. Ctrl+C stops the sound at once.\n"
       "\n"
       "  --mic NAME|ID   the microphone: endpoint id, GUID, or a unique part of its\n"
       "                  name (default: the only one Quillon runs on)\n"
       "  --volume DB     louder or softer, -100 to 20 dB (default 0)\n"
       "  --loop N        play the list N times; 0 repeats until stopped (default 1)\n"
       "  --block-ms MS   size of the blocks sent, 5 to 1000 ms (default 100)\n"
       "  --wait S        wait up to S seconds for the microphone's effect to start\n"
       "  --verbose       also print when the first block was taken\n"
       "\n"
       "A mono file plays on every channel. Into two channels, 3 to 8 channels in\n"
       "WAVE order are down-mixed: left = FL + 0.707 FC + 0.707 BL + 0.707 SL and\n"
       "right likewise, without the LFE, scaled so that each side's weights add up\n"
       "to 1. Into one channel: the mean of left and right. Otherwise channels go\n"
       "across in order and the rest are silent or left out.\n",
       RunPlay},
      {"stop", {{"--mic", true}}, "stop [--mic NAME|ID]", "stop the sound playing into a microphone",
       "Drops what the microphone's effect still holds of the sound and tells the\n"
       "player that sends it to stop.\n",
       RunStop},
      {"set",
       {{"--mic", true}},
       "set gain DB [--mic NAME|ID] | set block-voice on|off | set log-level LEVEL",
       "change a setting (as Administrator)",
       "  gain DB           amplify the microphone by DB whole decibels, 0 to 30\n"
       "  block-voice on    the sound played replaces the voice while it plays\n"
       "  block-voice off   the sound played is added to the voice (default)\n"
       "  log-level LEVEL   trace, debug, info, warn, error (default) or nolog\n"
       "\n"
       "The effect picks a change up while audio runs. The values live under\n"
       "HKLM\\SOFTWARE\\Marrowin\\Quillon.\n",
       RunSet},
      {"settings", {}, "settings", "show every setting",
       "Shows block voice, the log level and each microphone's gain, and which of\n"
       "them are defaults because no value is set.\n",
       RunSettings},
      {"log", {{"--lines", true}, {"--follow", false}}, "log [--lines N] [--follow]",
       "print the shared log file",
       "  --lines N   the last N lines (default 20; 0 prints the whole file)\n"
       "  --follow    keep printing lines as they are written, until Ctrl+C\n",
       RunLog},
      {"help", {}, "help [COMMAND]", "show help for a command", "", RunHelp},
  };
  return commands;
}

const Command* FindCommand(const std::string& name) {
  for (const Command& command : AllCommands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

void PrintHelp(const Command* command) {
  if (command != nullptr) {
    Print("usage: quillon %s\n\n%s: %s\n%s%s", command->usage, command->name, command->summary,
          *command->details ? "\n" : "", command->details);
    return;
  }
  Print("usage: quillon COMMAND [ARGUMENTS]\n\nPlays sound files into a microphone that has Quillon, and changes its settings.\n\n");
  for (const Command& c : AllCommands()) Print("  %-9s %s\n", c.name, c.summary);
  Print("\n'quillon help COMMAND' or 'quillon COMMAND --help' tells more.\n"
        "Exit codes: 0 done, 1 failed, 2 usage error, 130 interrupted.\n");
}

int RunHelp(const Arguments& args) {
  if (args.positional.size() > 1) return UsageError("help takes at most one command", "help");
  if (args.positional.empty()) {
    PrintHelp(nullptr);
    return kExitDone;
  }
  const std::string name = Utf8(args.positional[0]);
  const Command* command = FindCommand(name);
  if (command == nullptr) return UsageError("unknown command " + name, nullptr);
  PrintHelp(command);
  return kExitDone;
}

int UsageError(const std::string& problem, const char* command) {
  const Command* c = command != nullptr ? FindCommand(command) : nullptr;
  Fail("%s (usage: quillon %s)", problem.c_str(), c != nullptr ? c->usage : "help");
  return kExitUsage;
}

}  // namespace quillon::cli
