// Plays any number of sounds at once into a microphone's effect, and the same
// mix into a playback device for the player to hear (MonitorOutput).
//
// The microphone's thread mixes one block at a time and writes it as late as
// is safe: the effect takes a whole chunk of queued sound at each chunk
// boundary, so a block handed over early only waits there, and a sound started
// meanwhile must wait behind it. The effect's first look at the mapping after
// a block was taken comes when the stream starts that block; from it the
// thread knows when the sound runs out, and writes the next block `leadMs`
// before, plus twice what making a block costs of late (mixing it, and the
// thread's waking after its time on a busy machine). A block that still
// comes late moves the next ones a period earlier, up to a block ahead. When
// nothing played, a block goes at once.
//
// The mixing thread only mixes and sends: the voices arrive decoded ahead,
// and what happens is reported by a thread of its own. It waits on no lock of
// the player's other threads and writes nothing but the block.
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
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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

// What happened to a voice as the microphone played it, or to the engine.
struct EngineEvent {
  int voice = 0;
  VoiceEvent event = VoiceEvent::Progress;
  std::wstring file;
  double seconds = 0;       // of that file played so far
  double totalSeconds = 0;  // its length, declared or found at its end; 0 while unknown
  std::string error;        // with Failed and OutputFailed
  std::string format;       // with FileStarted: "MP3", "WAV 16-bit"...
  uint32_t fileRate = 0, fileChannels = 0;  // with FileStarted: the file's own
  bool midFile = false;     // with Failed: the file had begun to play
  int64_t takenUs = -1;     // with FirstBlockTaken: monotonic microseconds
};

class PlayerEngine {
 public:
  using Listener = std::function<void(const EngineEvent&)>;

  // `mic` is connected. `listener` is called on a thread of the engine's that
  // only reports (never on a mixing thread), one event at a time.
  PlayerEngine(std::unique_ptr<PlayerClient> mic, const EngineOptions& options, Listener listener);
  // Ends the threads and releases the key; what the effect holds plays out.
  ~PlayerEngine();
  PlayerEngine(const PlayerEngine&) = delete;
  PlayerEngine& operator=(const PlayerEngine&) = delete;

  // The same mix, at the monitor's own volume, also goes to a playback device
  // (for the voices started after). Call before the first Start.
  void AddMonitor(std::unique_ptr<MonitorOutput> monitor);

  // From any thread; they return at once. Start returns the new voice's id;
  // voices started together begin at the same sample. A voice's files are
  // opened and decoded ahead on a thread of its own before it joins the mix.
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
  // The same, but also returns (nothing) when `wake` is set.
  std::optional<PlayerStatus> WaitIdle(HANDLE interrupt, HANDLE wake);
  // Why the microphone's thread ended (the effect went away...), or Ok while it runs.
  PlayerStatus Failure() const;
  const PlayerClient& Microphone() const { return *mic_; }
  // The longest the microphone's thread has taken to mix a block, in microseconds.
  int64_t SlowestMixMicroseconds() const { return slowestMixUs_.load(); }

 private:
  using Clock = std::chrono::steady_clock;
  // A voice from its start until every output let go of it.
  struct Tracked {
    std::unique_ptr<Voice> voice;
    uint64_t monitorStream = 0;  // the monitor's stream it was decoded for
    // The reporter's own.
    size_t marksSeen = 0;
    bool inFile = false, ended = false;
    std::wstring file;
    uint64_t fileFrom = 0;
    double fileSeconds = 0;  // its length, 0 while unknown
    uint64_t reported = 0;   // frames played at the last progress
  };
  // Voices started together, joining the mix once all of them are ready.
  struct Group {
    std::atomic<size_t> waiting{0};
    std::vector<int> voices;
    uint64_t monitorStream = 0;
  };
  void Run();
  // One block, `late` after it was due: mixes, holds the key, sends, and
  // moves the estimate on.
  PlayerStatus WriteBlock(Clock::duration late);
  void WaitUntil(Clock::time_point when);
  // The voices of a group join the outputs' mixes (on a decoder's thread).
  void Launch(const Group& group);
  // The reporter's thread: turns what the voices and the microphone's thread
  // did into events, and lets go of the voices that ended.
  void Report();
  // Reports what is new of one voice; true once every output let go of it.
  bool ReportVoice(Tracked& t);
  void Tell(EngineEvent event);

  std::unique_ptr<PlayerClient> mic_;
  EngineOptions options_;
  Listener listener_;
  uint32_t rate_, channels_;
  size_t blockFrames_;
  MixBus bus_;
  std::unique_ptr<MonitorOutput> monitor_;
  HeldKeys keys_;

  mutable std::mutex lock_;  // the voices' table; never taken by the microphone's thread
  std::map<int, Tracked> voices_;
  std::set<int> playing_;
  int nextId_ = 1;
  std::atomic<int> live_{0};  // voices that have not reported their end
  UniqueHandle wake_;       // a voice started, joined or ended
  UniqueHandle interrupt_;  // stop everything (ends the microphone's waits)
  UniqueHandle idle_, failed_;
  UniqueHandle news_;       // something to report
  std::atomic<bool> quit_{false}, quitReporter_{false};
  PlayerStatus failure_ = PlayerStatus::Ok;
  std::atomic<int64_t> firstTakenUs_{-1}, slowestMixUs_{0};

  // The microphone thread's own.
  std::vector<float> block_;
  Clock::time_point runsOutAt_;   // when the sound the effect holds is estimated to end
  Clock::duration lastBlock_{};   // length of the block written last
  bool awaitingStart_ = false;    // whether the effect has yet to start that block
  bool streaming_ = false;        // whether blocks follow one another without a pause
  Clock::duration lead_{};        // how long before the sound runs out a block is written
  Clock::duration makeCost_{};    // what making a block has cost of late
  Clock::duration wokeLate_{};    // how late the last timed wait ended
  bool anyTaken_ = false;
  std::thread thread_, reporter_;
};

}  // namespace quillon::player
