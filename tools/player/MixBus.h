// The voices of one output mixed into its format. Voices are added and
// stopped through an inbox that any thread may fill; the output's own thread
// takes it when it mixes, only if nobody is filling it at that moment (else
// next time), so that it never waits. The voices arrive decoded ahead
// (VoiceFeed): mixing reads memory and adds, nothing else.
// The mix runs a limiter's look-ahead in front of what it hands out: a voice
// added now joins after that look-ahead, and the sound itself is not delayed.
#pragma once

#include "player/Limiter.h"
#include "player/Voice.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace quillon::player {

class MixBus {
 public:
  // Voices beyond this many at once are stopped as they arrive.
  static constexpr size_t kMaxVoices = 1024;

  // `gain` scales the whole mix (the monitor's volume); calls of Mix up to
  // `maxFrames` allocate nothing.
  MixBus(uint32_t rate, uint32_t channels, float gain, size_t maxFrames);

  // From any thread. Voices added in one call begin at the same frame; the
  // feeds stay alive until the bus released them (VoiceFeed::Released).
  void Add(const std::vector<VoiceFeed*>& voices);
  void Stop(int id);
  void StopAll();

  // On the output's thread: `frames` frames of the mix into `out`. Returns how
  // many of them belong to the sound: fewer than `frames` once the last voice
  // ended within them, 0 (and silence) when nothing plays.
  size_t Mix(float* out, size_t frames);
  // Whether a voice plays or mixed sound waits (after the last Mix).
  bool Busy() const { return !voices_.empty() || soundUntil_ > 0; }
  // Whether voices wait in the inbox.
  bool Pending() const { return pendingAdds_.load() > 0; }
  uint32_t Rate() const { return rate_; }
  uint32_t Channels() const { return channels_; }

 private:
  // Plain values, so that taking them frees no memory on the output's thread.
  struct Command {
    enum Kind { Add, Stop, StopAll } kind;
    int id;
    VoiceFeed* feed;
    bool last;  // of the voices added together (the waiting count goes with it)
  };
  void TakeInbox();

  uint32_t rate_, channels_;
  float gain_;
  Limiter limiter_;
  std::mutex inboxLock_;
  std::vector<Command> inbox_;
  std::atomic<int> pendingAdds_{0};
  // The output thread's own; its room is kept, so that mixing allocates nothing.
  std::vector<VoiceFeed*> voices_;
  std::vector<float> work_;   // look-ahead frames already mixed, then the new ones
  size_t aheadFrames_ = 0;    // how many of work_'s first frames are mixed ahead
  size_t soundUntil_ = 0;     // frames from work_'s start that hold sound
};

}  // namespace quillon::player
