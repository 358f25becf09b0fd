// The player's own hearing of what plays: the engine's mix, at its own volume,
// rendered to a playback device through WASAPI in shared mode, event-driven,
// in the device's mix format. It runs on a thread of its own with its own
// copies of the voices, so a stalled or vanished device never delays the
// microphone, nor the other way round. A device that goes away ends the
// monitor with one line.
#pragma once

#include "player/MixBus.h"
#include "player/PlaybackDevices.h"
#include "platform/UniqueResource.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace quillon::player {

class MonitorOutput {
 public:
  using Say = std::function<void(const std::string& line)>;

  // Opens `device` and starts rendering (silence until a voice plays); null
  // with `error` on failure. `say` is called on the monitor's thread.
  static std::unique_ptr<MonitorOutput> Open(const PlaybackDevice& device, float gain, Say say, std::string& error);
  ~MonitorOutput();
  MonitorOutput(const MonitorOutput&) = delete;
  MonitorOutput& operator=(const MonitorOutput&) = delete;

  MixBus& Bus() { return *bus_; }

 private:
  MonitorOutput(PlaybackDevice device, float gain, Say say);
  void Run();

  PlaybackDevice device_;
  float gain_;
  Say say_;
  std::unique_ptr<MixBus> bus_;
  UniqueHandle opened_, stop_;
  std::string error_;
  std::thread thread_;
};

}  // namespace quillon::player
