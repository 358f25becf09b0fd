// One sound played on a playback device alone, to hear it before it goes
// into the microphone: a voice decoded ahead on its own thread, mixed by a
// MonitorOutput of its own.
#pragma once

#include "player/MonitorOutput.h"
#include "player/Voice.h"

#include <memory>
#include <mutex>
#include <string>

namespace quillon::player {

class PreviewPlayer {
 public:
  // Opens the device (at `deviceGain`) and starts the sound; null with
  // `error` when the device cannot play.
  static std::unique_ptr<PreviewPlayer> Start(const PlaybackDevice& device, bool followDefault, float deviceGain,
                                              const VoiceRequest& request, std::string& error);
  // Stops the sound and closes the device.
  ~PreviewPlayer();
  PreviewPlayer(const PreviewPlayer&) = delete;
  PreviewPlayer& operator=(const PreviewPlayer&) = delete;

  // Whether the sound played to its end (or the device let go of it).
  bool Done() const;
  // Why the sound could not be read, once Done; "" when it played.
  std::string Error() const;

 private:
  PreviewPlayer() = default;

  std::unique_ptr<MonitorOutput> output_;
  std::unique_ptr<Voice> voice_;
  std::mutex lock_;      // the decoder's handing over against the ending
  bool ending_ = false;
};

}  // namespace quillon::player
