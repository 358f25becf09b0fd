// Restarting the Windows audio service, so that every endpoint builds its
// effect chain again.
#pragma once

#include <string>

namespace quillon::system {

// What a restart came to, for the caller to show: on success the line that
// says what was done, on failure why it failed and what to do instead.
struct ServiceRestart {
  bool ok = false;
  std::string message;  // one line, without its line end
};

// Stops the services that depend on AudioSrv and are running, restarts
// AudioSrv, then starts those services again; each wait is bounded. Where
// AudioSrv does not exist, there is nothing to restart and that succeeds.
ServiceRestart RestartAudioService();

}  // namespace quillon::system
