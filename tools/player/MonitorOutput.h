// The player's own hearing of what plays: the engine's mix, at its own volume,
// rendered to a playback device through WASAPI in shared mode, event-driven,
// in the device's mix format. It runs on a thread of its own with its own
// copies of the voices, so a stalled or vanished device never delays the
// microphone, nor the other way round.
//
// A device that fails or goes away ends that stream with one line, and the
// engine stops feeding it. When Windows says the device is back (or, for a
// monitor that follows the default device, that the default changed), the
// stream opens again, and the voices started from then on are heard.
#pragma once

#include "player/MixBus.h"
#include "player/PlaybackDevices.h"
#include "platform/UniqueResource.h"

#include <windows.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace quillon::player {

class MonitorOutput {
 public:
  using Say = std::function<void(const std::string& line)>;

  struct Options {
    float gain = 1.0f;
    // Plays to whichever device is the default, and moves when it changes.
    bool followDefault = false;
    // For the tests, a device that fails on demand: asked each period, a
    // failure ends the stream as one of Windows' would.
    std::function<HRESULT()> fault;
  };

  // Opens `device` and starts rendering (silence until a voice plays); null
  // with `error` on failure. `say` is called on the monitor's thread.
  static std::unique_ptr<MonitorOutput> Open(const PlaybackDevice& device, Options options, Say say,
                                             std::string& error);
  ~MonitorOutput();
  MonitorOutput(const MonitorOutput&) = delete;
  MonitorOutput& operator=(const MonitorOutput&) = delete;

  // The stream that plays now: its format and a number that changes each
  // time the stream opens anew. False while no stream plays.
  bool Current(OutputFormat& format, uint64_t& stream) const;
  // Voices decoded for `stream` join its mix; false (nothing joins) when that
  // stream no longer plays. The feeds stay alive until released or until
  // Reads(stream) is false.
  bool Add(const std::vector<VoiceFeed*>& feeds, uint64_t stream);
  void Stop(int id);
  void StopAll();
  // Whether `stream` still plays (and reads its voices).
  bool Reads(uint64_t stream) const;
  bool Running() const;

  // Windows' word that devices changed, also for the tests: a monitor that
  // is off tries its device again.
  void DevicesChanged();

 private:
  struct Stream;
  MonitorOutput(PlaybackDevice device, Options options, Say say);
  void Run();
  // Opens the device to play to now; fills `stream` or returns the failure.
  HRESULT OpenStream(Stream& stream);
  // Renders until stopped (S_OK), the default moved (S_FALSE) or a failure.
  HRESULT Render(Stream& stream);

  PlaybackDevice device_;
  Options options_;
  Say say_;
  UniqueHandle opened_, stop_, changed_;
  std::string error_;

  mutable std::mutex lock_;  // the stream's mix, as the engine's threads see it; never held while rendering
  std::unique_ptr<MixBus> bus_;
  OutputFormat format_;
  uint64_t stream_ = 0;
  bool running_ = false;

  std::thread thread_;
};

}  // namespace quillon::player
