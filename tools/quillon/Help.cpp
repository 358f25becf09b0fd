// The command table and the help texts.
#include "common/ToolSupport.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"

namespace quillon::cli {

using tools::Utf8;

const std::vector<Command>& AllCommands() {
  static const std::vector<Command> commands = {
      {"list", {}, "list", "show the microphones Quillon runs on now",
       "For each microphone whose effect runs now: its slot, friendly name,\n"
       "endpoint id, stream format, and whether a sound is playing into it.\n",
       RunList},
      {"loudness", {{"--json", false}, {"--target", true}},
       "loudness FILE... [--target LUFS] [--json]",
       "measure how loud sound files are (EBU R128)",
       "For each file: its integrated loudness (LUFS), loudness range (LU) and\n"
       "true peak (dBTP), as EBU R128 and ITU-R BS.1770 measure them, and the\n"
       "gain that brings it to the target with its true peak at or under\n"
       "-1 dBTP. A sound shorter than 400 ms, or silent, has no integrated\n"
       "loudness: its gain brings its true peak to -1 dBTP, or it is left as it\n"
       "is. The files are measured at once, on every core.\n"
       "\n"
       "  --target LUFS        the loudness to reach, -70 to 0 (default -16)\n"
       "  --json               print the same as JSON, for scripts\n",
       RunLoudness},
      {"play",
       {{"--mic", true}, {"--volume", true}, {"--loop", true}, {"--start", true}, {"--end", true}, {"--normalize", false, true},
        {"--block-ms", true}, {"--wait", true},
        {"--verbose", false}, {"--together", false}, {"--monitor", false, true}, {"--monitor-volume", true},
        {"--ptt", true}, {"--ptt-tail", true}},
       "play FILE... [--mic NAME|ID] [--together] [--monitor[=DEVICE]] [--ptt KEY] [OPTIONS]",
       "play sound files into a microphone",
       "Plays the files one after another (or all at once) into the microphone,\n"
       "so that every program that records it hears them. WAV (8/16/24/32-bit\n"
       "integer, 32/64-bit float, extensible), FLAC, Ogg Vorbis, Opus and MP3 are\n"
       "read; each file is converted to the microphone's rate and channels as it\n"
       "plays. Every file is checked before the first is sent. Ctrl+C stops the\n"
       "sound at once.\n"
       "\n"
       "  --mic NAME|ID        the microphone: endpoint id, GUID, or a unique part of\n"
       "                       its name (default: the only one Quillon runs on)\n"
       "  --together           play the files at once, mixed\n"
       "  --volume DB          louder or softer, -100 to 20 dB (default 0)\n"
       "  --loop N             play N times; 0 repeats until stopped (default 1)\n"
       "  --start MS           play each file from MS milliseconds in (it seeks\n"
       "                       there where the format can), with a 5 ms fade in\n"
       "  --end MS             and up to MS milliseconds from its start, with a\n"
       "                       5 ms fade out (default: to its end)\n"
       "  --normalize[=LUFS]   bring each file (its part played) to LUFS, -16 if\n"
       "                       not given, measured first (EBU R128); the gain is\n"
       "                       kept low enough for its true peak to stay at or\n"
       "                       under -1 dBTP; --volume applies on top\n"
       "  --monitor[=DEVICE]   hear it too, on the default playback device (which\n"
       "                       it follows) or on DEVICE (an id or a unique part of\n"
       "                       its name; see quillon devices); a device that goes\n"
       "                       away is played to again when it comes back\n"
       "  --monitor-volume DB  the volume you hear it at, -100 to 20 dB (default 0)\n"
       "  --ptt KEY            hold KEY (V, F13, Ctrl+Shift+T, RCtrl, NumEnter...)\n"
       "                       while it plays, for a voice program in push-to-talk\n"
       "                       mode\n"
       "  --ptt-tail MS        keep KEY held MS after the sound (default 300)\n"
       "  --block-ms MS        size of the blocks sent, 5 to 1000 ms (default 80)\n"
       "  --wait S             wait up to S seconds for the microphone's effect\n"
       "  --verbose            also print when the first block was taken\n"
       "\n"
       "A mono file plays on every channel. Into two channels, 3 to 8 channels in\n"
       "WAVE order are down-mixed: left = FL + 0.707 FC + 0.707 BL + 0.707 SL and\n"
       "right likewise, without the LFE, scaled so that each side's weights add up\n"
       "to 1. Into one channel: the mean of left and right. Otherwise channels go\n"
       "across in order and the rest are silent or left out.\n"
       "\n"
       "Sounds that overlap are added. A sum within full scale passes unchanged;\n"
       "a louder one is turned down smoothly, 2 ms ahead of each peak, and back up\n"
       "over 200 ms, never clipped. A sound alone plays as loud as it is.\n",
       RunPlay},
      {"stop", {{"--mic", true}}, "stop [--mic NAME|ID]", "stop the sound playing into a microphone",
       "Drops what the microphone's effect still holds of the sound and tells the\n"
       "player that sends it to stop.\n",
       RunStop},
      {"set",
       {{"--mic", true}},
       "set SETTING VALUE [SETTING VALUE]... [--mic NAME|ID]",
       "change settings (as Administrator)",
       "  gain DB           amplify the microphone by DB whole decibels, 0 to 30\n"
       "  block-voice on    the sound played replaces the voice while it plays\n"
       "  block-voice off   the sound played is added to the voice (default)\n"
       "  log-level LEVEL   trace, debug, info, warn, error (default) or nolog\n"
       "\n"
       "Several settings can be changed at once; when one of them is wrong, none\n"
       "is changed. The effect picks a change up while audio runs. The values live\n"
       "under HKLM\\SOFTWARE\\Marrowin\\Quillon.\n",
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
      {"mics", {}, "mics", "show every microphone, its effects and whether Quillon is attached",
       "For each microphone Windows keeps: its GUID, name and state, the effects\n"
       "in each of its slots, whether effects are turned off, and whether Quillon\n"
       "is attached with a backup that agrees.\n",
       RunMics},
      {"devices", {}, "devices", "show the playback devices a play can be heard on",
       "Each active playback device's id and name; * marks the default one.\n", RunDevices},
      {"attach",
       {{"--all", false}, {"--default", false}, {"--force", false}, {"--dry-run", false}, {"--no-restart", false},
        {"--take-ownership", false}},
       "attach MIC... | --all | --default [--force] [--dry-run] [--no-restart] [--take-ownership]",
       "put Quillon into microphones' effects (as Administrator)",
       "Backs up the microphone's effect values (in the registry under\n"
       "HKLM\\SOFTWARE\\Marrowin\\Quillon\\<GUID>\\Backup, and as a .reg file in\n"
       "%ProgramData%\\Marrowin\\Quillon\\backup), puts Quillon into its stream effect\n"
       "slot (or the pre-mix slot of the older scheme) with the effect that was\n"
       "there running first, registers the Quillon.dll beside quillon.exe, and\n"
       "restarts the audio service. Nothing is written unless every check passes.\n"
       "\n"
       "  MIC               GUID, endpoint id, or a unique part of the name\n"
       "  --all             every active microphone\n"
       "  --default         the microphone Windows records from by default\n"
       "  --force           attach even over a composite effect list\n"
       "  --dry-run         print every change and write nothing\n"
       "  --no-restart      leave the audio service running (restart it later)\n"
       "  --take-ownership  give an endpoint key that belongs to the system to the\n"
       "                    Administrators group, with full access for them\n",
       RunAttach},
      {"detach", {{"--all", false}, {"--dry-run", false}, {"--no-restart", false}, {"--take-ownership", false}},
       "detach MIC... | --all [--dry-run] [--no-restart] [--take-ownership]",
       "restore microphones' effects from the backup (as Administrator)",
       "Puts back exactly the values the backup holds, with their types, deletes\n"
       "those that did not exist, deletes the backup and restarts the audio\n"
       "service. --all restores every microphone that has a backup.\n",
       RunDetach},
      {"reattach", {{"--force", false}, {"--dry-run", false}, {"--no-restart", false}, {"--take-ownership", false}},
       "reattach [--force] [--dry-run] [--no-restart] [--take-ownership]",
       "attach again where a driver update replaced Quillon (as Administrator)",
       "For every microphone with a backup whose slot no longer holds Quillon,\n"
       "backs up the new values and attaches again.\n",
       RunReattach},
      {"check", {{"--mic", true}, {"--json", false}, {"--fix", false}, {"--no-record", false}, {"--report", true}},
       "check [--mic NAME|ID] [--json] [--fix] [--no-record] [--report FILE]",
       "prove that the audio engine runs Quillon, or say why not",
       "Checks the microphones Quillon is attached to (or the one named; with none\n"
       "attached, every active one) and prints each finding with what fixes it.\n"
       "Exit 0 when Quillon is attached and the audio engine ran it everywhere it\n"
       "should, 1 when something is wrong, 2 on a usage error.\n"
       "\n"
       "  --mic NAME|ID  the microphone: GUID, endpoint id, or a unique part of its name\n"
       "  --json         the findings as JSON, for scripts\n"
       "  --fix          make the fixes that can be made (as Administrator), restart\n"
       "                 the audio service and check again; a step that fails undoes\n"
       "                 them all and is named\n"
       "  --no-record    do not record from a microphone to see the effect load:\n"
       "                 only an effect running now counts, and one that does not\n"
       "                 is no problem (the board checks this way)\n"
       "  --report FILE  also write the findings to FILE (UTF-16), as the setup\n"
       "                 does into its install log\n"
       "\n"
       "Quillon.dll\n"
       "  not-registered     no COM class names a Quillon.dll (quillon register)\n"
       "  not-registered-with-engine\n"
       "                     the audio engine's key for Quillon is missing (register)\n"
       "  threading-model    its COM class is not ThreadingModel Both (register)\n"
       "  dll-missing        the registered Quillon.dll does not exist (register)\n"
       "  dll-machine        it is built for another machine than Windows runs: an\n"
       "                     x64 DLL never loads into ARM64 Windows' audio engine\n"
       "  dll-version        it is not the version of this quillon.exe (register)\n"
       "  dll-access         LOCAL SERVICE, the audio engine's account, may not read\n"
       "                     and execute it or its folder (icacls, by hand)\n"
       "  protected-audio    Windows before build 14393 loads only signed effects\n"
       "                     unless DisableProtectedAudioDG is 1; attach sets it and\n"
       "                     detach removes it again when it set it\n"
       "Each microphone\n"
       "  inactive           unplugged, disabled or not present\n"
       "  not-attached       Quillon is not in its stream effect slot (attach)\n"
       "  replaced           a driver update put its own effect back (reattach)\n"
       "  composite          its driver's composite effect list runs in place of the\n"
       "                     slot (by hand: update or roll back the driver)\n"
       "  no-backup          attached without a backup (by hand)\n"
       "  backup-differs     the effect that runs before Quillon is not the one the\n"
       "                     backup names\n"
       "  no-default-mode    the stream effect's processing modes lack the default\n"
       "  enhancements-off   \"Enable audio enhancements\" is off for it\n"
       "  running            the audio engine loaded Quillon (instance, format)\n"
       "  not-loaded         recording for 3 s did not load it: the likeliest causes\n"
       "                     follow; programs that record in exclusive mode or as a\n"
       "                     raw stream bypass effects\n",
       RunCheck},
      {"register", {}, "register", "register the Quillon.dll beside quillon.exe (as Administrator)",
       "Registers it with the audio engine (DllRegisterServer) and as a COM class.\n", RunRegister},
      {"unregister", {}, "unregister", "undo register once no microphone has Quillon (as Administrator)", "",
       RunUnregister},
      {"restart-audio", {}, "restart-audio",
       "restart the audio service, which loads Quillon anew (as Administrator)",
       "Stops the services that depend on the Windows audio service, restarts it,\n"
       "and starts them again. The setup does this after an upgrade.\n",
       RunRestartAudio},
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
  for (const Command& c : AllCommands()) Print("  %-13s %s\n", c.name, c.summary);
  Print("\n'quillon help COMMAND' or 'quillon COMMAND --help' tells more.\n"
        "'quillon --version' prints the version.\n"
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
