// Plays any number of sounds at once into a microphone's effect, and the same
// mix into a playback device for the player to hear (MonitorOutput).
//
// The microphone's thread mixes one block at a time and writes it as late as
// is safe: the effect takes a whole chunk of queued sound at each chunk
// boundary, so a block handed over early only waits there, and a sound started
// meanwhile must wait behind it. The effect's first look at the mapping after
// a block was taken comes when the stream starts that block; from it the
// thread knows when the sound runs out, and writes the next block `leadMs`
// before, plus twice what mixing a block costs of late. A block that still
// comes late moves the next ones a period earlier, up to a block ahead. When
// nothing played, a block goes at once.
//
// Push-to-talk holds a key from before the first block of a play until
// `pttTailMs` after its last sample was estimated to end.
#pragma once

#include "common/KeyChord.h"
#include "player/MixBus.h"
#include "player/PlayerClient.h"
#include "player/PushToTalk.h"
#include "platform/UniqueResource.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace quillon::player {

class MonitorOutput;

struct EngineOptions {
  double blockMs = 80;  // one chunk of the effect at 10-ms periods
  double leadMs = 30;   // three periods to start with: with two, a block came late once in 2000 under Wine
  DWORD sendTimeoutMs = 10000;
  bool pushToTalk = false;
  tools::KeyChord pttKey;
  DWORD pttTailMs = 300;
};

// What the microphone's thread saw of a voice.
struct EngineEvent {
  int voice;
  VoiceEvent event;
  std::wstring file;
  double seconds;     // of that file read so far
  double totalSeconds;
  std::string error;  // with Failed
  const audio::SoundFile* source = nullptr;  // the file playing, while it plays
  int64_t takenUs = -1;  // with FirstBlockTaken: monotonic microseconds
};

class PlayerEngine {
 public:
  using Listener = std::function<void(const EngineEvent&)>;

  // `mic` is connected; `listener` is called on the microphone's thread.
  PlayerEngine(std::unique_ptr<PlayerClient> mic, const EngineOptions& options, Listener listener);
  // Ends the threads and releases the key; what the effect holds plays out.
  ~PlayerEngine();
  PlayerEngine(const PlayerEngine&) = delete;
  PlayerEngine& operator=(const PlayerEngine&) = delete;

  // The same mix, at the monitor's own volume, also goes to a playback device.
  void AddMonitor(std::unique_ptr<MonitorOutput> monitor);

  // From any thread. Start returns the new voice's id; voices started
  // together begin at the same sample.
  int Start(const VoiceRequest& request);
  std::vector<int> StartTogether(const std::vector<VoiceRequest>& requests);
  void Stop(int id);
  // Stops every voice and drops what the effect still holds.
  void StopAll();
  // StopAll, and the microphone's thread ends (an interrupt).
  void Abort();
  bool Playing(int id) const;

  // Waits until no voice plays and the key is up, the microphone failed, or
  // `interrupt` was set. Returns Ok, Interrupted, or the failure.
  PlayerStatus WaitIdle(HANDLE interrupt);
  // Why the microphone's thread ended (the effect went away...), or Ok while it runs.
  PlayerStatus Failure() const;
  const PlayerClient& Microphone() const { return *mic_; }

 private:
  using Clock = std::chrono::steady_clock;
  void Run();
  // One block: mixes, holds the key, sends, and moves the estimate on.
  PlayerStatus WriteBlock();
  void WaitUntil(Clock::time_point when);
  void Ended(int id);

  std::unique_ptr<PlayerClient> mic_;
  EngineOptions options_;
  Listener listener_;
  uint32_t rate_, channels_;
  size_t blockFrames_;
  MixBus bus_;
  std::unique_ptr<MonitorOutput> monitor_;
  HeldKeys keys_;

  mutable std::mutex lock_;
  std::set<int> playing_;
  int nextId_ = 1;
  UniqueHandle wake_;       // a voice started or stopped
  UniqueHandle interrupt_;  // stop everything (ends the microphone's waits)
  UniqueHandle idle_, failed_;
  std::atomic<bool> stopAll_{false}, quit_{false};
  PlayerStatus failure_ = PlayerStatus::Ok;

  // The microphone thread's own.
  std::vector<float> block_;
  Clock::time_point runsOutAt_;   // when the sound the effect holds is estimated to end
  Clock::duration lastBlock_{};   // length of the block written last
  bool awaitingStart_ = false;    // whether the effect has yet to start that block
  bool streaming_ = false;        // whether blocks follow one another without a pause
  Clock::duration lead_{};        // how long before the sound runs out a block is written
  Clock::duration makeCost_{};    // what mixing a block has cost of late
  bool anyTaken_ = false;
  std::thread thread_;
};

}  // namespace quillon::player
