// The voices of one output mixed into its format: voices are added and
// stopped through an inbox that any thread may fill, and the output's own
// thread applies it each time it mixes, so that it never waits for the others.
// The mix runs a limiter's look-ahead in front of what it hands out: a voice
// added now joins after that look-ahead, and the sound itself is not delayed.
#pragma once

#include "player/Limiter.h"
#include "player/Voice.h"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace quillon::player {

class MixBus {
 public:
  using Report = std::function<void(const VoiceStream&, VoiceEvent)>;

  // `gain` scales the whole mix (the monitor's volume); `report` is called on
  // the output's thread.
  MixBus(uint32_t rate, uint32_t channels, float gain, Report report);

  // From any thread. Voices added in one call begin at the same frame.
  void Add(const std::vector<std::pair<int, VoiceRequest>>& voices);
  void Stop(int id);
  void StopAll();

  // On the output's thread: `frames` frames of the mix into `out`. Returns how
  // many of them belong to the sound: fewer than `frames` once the last voice
  // ended within them, 0 (and silence) when nothing plays.
  size_t Mix(float* out, size_t frames);
  // Whether a voice plays or mixed sound waits (after the last Mix).
  bool Busy() const { return !voices_.empty() || soundUntil_ > 0; }
  // Whether voices wait in the inbox.
  bool Pending() const;
  uint32_t Rate() const { return rate_; }
  uint32_t Channels() const { return channels_; }

 private:
  struct Command {
    enum Kind { Add, Stop, StopAll } kind;
    int id;
    VoiceRequest request;
  };
  void TakeInbox();

  uint32_t rate_, channels_;
  float gain_;
  Report report_;
  Limiter limiter_;
  mutable std::mutex inboxLock_;
  std::vector<Command> inbox_;
  std::vector<std::unique_ptr<VoiceStream>> voices_;
  std::vector<float> work_;   // look-ahead frames already mixed, then the new ones
  size_t aheadFrames_ = 0;    // how many of work_'s first frames are mixed ahead
  size_t soundUntil_ = 0;     // frames from work_'s start that hold sound
};

}  // namespace quillon::player
