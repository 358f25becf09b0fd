// quillon list and quillon stop: the running effect instances.
#include "common/ConsoleInterrupt.h"
#include "common/ToolSupport.h"
#include "player/PlayerClient.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"
#include "system/Microphones.h"

namespace quillon::cli {

using system::Choose;
using system::Describe;
using system::DescribeFormat;
using system::Microphone;
using system::RunningMicrophones;
using tools::Utf8;

int RunList(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("list takes no arguments", "list");
  const std::vector<Microphone> running = RunningMicrophones();
  if (running.empty()) {
    Print("no microphone has Quillon running\n");
    return kExitDone;
  }
  Print("slot  playing  stream                 microphone\n");
  for (const Microphone& mic : running) {
    Print("%4d  %-7s  %-21s  %s\n", mic.slot, mic.playing ? "yes" : "no", DescribeFormat(mic.format).c_str(),
          mic.name.empty() ? "(no name)" : Utf8(mic.name).c_str());
    Print("%36s %s\n", "", Utf8(mic.endpointId).c_str());
  }
  return kExitDone;
}

int RunStop(const Arguments& args) {
  if (!args.positional.empty()) return UsageError("stop takes no arguments but --mic", "stop");
  Microphone mic;
  std::string error;
  if (!Choose(RunningMicrophones(), args.Value("--mic"), mic, error)) {
    Fail("%s", error.c_str());
    return kExitFailed;
  }
  tools::ConsoleInterrupt interrupt;
  player::PlayerClient player(interrupt.Event());
  player::PlayerStatus s = player.Connect(mic.endpointId, 1000);
  if (s == player::PlayerStatus::Ok) s = player.Stop(5000);
  if (s == player::PlayerStatus::Interrupted) return kExitInterrupted;
  if (s != player::PlayerStatus::Ok) {
    Fail("%s: %s", Describe(mic).c_str(),
         s == player::PlayerStatus::Timeout ? "the effect did not answer the stop request" : player.Explain(s).c_str());
    return kExitFailed;
  }
  Print("stopped the sound on %s\n", Describe(mic).c_str());
  return kExitDone;
}

}  // namespace quillon::cli
