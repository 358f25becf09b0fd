// quillon devices: the playback devices a play can be heard on (--monitor).
#include "common/ToolSupport.h"
#include "player/PlaybackDevices.h"
#include "quillon/Commands.h"
#include "quillon/Console.h"

namespace quillon::cli {

using tools::Utf8;

int RunDevices(const Arguments&) {
  std::string error;
  const std::vector<player::PlaybackDevice> devices = player::ListPlaybackDevices(error);
  if (!error.empty()) {
    Fail("%s", error.c_str());
    return kExitFailed;
  }
  if (devices.empty()) {
    Print("There is no playback device.\n");
    return kExitDone;
  }
  Print("Playback devices (* the default):\n");
  for (const player::PlaybackDevice& d : devices) {
    Print("%s %s  %s\n", d.isDefault ? "*" : " ", Utf8(d.id).c_str(), Utf8(d.name).c_str());
  }
  return kExitDone;
}

}  // namespace quillon::cli
