// Restarting the Windows audio service, so that every endpoint builds its
// effect chain again.
#pragma once

namespace quillon::cli {

// Stops the services that depend on AudioSrv and are running, restarts
// AudioSrv, then starts those services again; each wait is bounded. Prints
// what it did; where AudioSrv does not exist, says so and succeeds.
bool RestartAudioService();

}  // namespace quillon::cli
