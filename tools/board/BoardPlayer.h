// Plays the board's sounds into the chosen microphone, through the player
// engine, on a thread of its own: the window hands it requests and never
// waits on audio. What happens comes back as news, which the window takes on
// its own thread after `notify` (called from any thread) woke it.
#pragma once

#include "board/Board.h"
#include "platform/UniqueResource.h"
#include "player/PlayerEngine.h"
#include "player/PreviewPlayer.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace quillon::board {

// The id the news of a preview carries (no sound on the board has it).
constexpr uint32_t kPreviewSound = 0xFFFFFFFF;

struct PlayerNews {
  enum class Kind {
    Started,   // the sound began (seconds: 0, total: its length)
    Progress,  // seconds of it played
    Ended,     // it ended or was stopped
    Failed,    // it could not play: text says why
    Status,    // the microphone's state changed: text says how
  } kind;
  uint32_t sound = 0;
  double seconds = 0, total = 0;
  std::string text;
};

class BoardPlayer {
 public:
  explicit BoardPlayer(std::function<void()> notify);
  // Lets what plays play out and ends the thread.
  ~BoardPlayer();
  BoardPlayer(const BoardPlayer&) = delete;
  BoardPlayer& operator=(const BoardPlayer&) = delete;

  // The settings the next sounds play with (microphone, overlap, press
  // again, hear what you play, push-to-talk).
  void Configure(const Settings& settings);
  // Plays (or, as the settings say, restarts or stops) the sound.
  void Press(const Sound& sound);
  void StopAll();
  // Plays the sound as it is being edited (its part, its volume) to hear
  // it: on the hear-what-you-play device when that is on, else into the
  // microphone. A preview stops the one before.
  void Preview(const Sound& sound);
  void StopPreview();

  // The news since the last call, oldest first.
  std::deque<PlayerNews> TakeNews();

 private:
  struct Request {
    enum class Kind { Configure, Press, StopAll, Preview, StopPreview } kind;
    Settings settings;
    Sound sound;
  };
  // Hands the request to the worker.
  void Ask(Request request);
  void Run();
  void Handle(const Request& request);
  void DoPress(const Sound& sound);
  void DoPreview(const Sound& sound);
  // Stops every voice, and says so of those that played.
  void StopVoices();
  // Connects to the chosen microphone's effect when nothing is connected (or
  // the connection broke); false, with news and `why`, when it cannot.
  bool Connect(std::string& why);
  // Drops the connection; what the effect holds plays out.
  void Disconnect();
  void Tell(PlayerNews news);
  void OnEngineEvent(const player::EngineEvent& e);

  std::function<void()> notify_;
  Settings settings_;  // the worker's own copy

  std::mutex lock_;
  std::condition_variable wake_;
  std::deque<Request> requests_;
  bool quit_ = false;
  std::deque<PlayerNews> news_;
  // Guarded by lock_, shared with the engine's reporter: the voice each sound
  // plays now, and the sound of each voice until the voice's last event.
  std::map<uint32_t, int> voiceOfSound_;
  std::map<int, uint32_t> soundOfVoice_;
  std::unique_ptr<player::PlayerEngine> engine_;
  std::unique_ptr<player::PreviewPlayer> preview_;  // the worker's own
  // Held while connected, so that `quillon list` shows the microphone as played into.
  UniqueHandle playingEvent_;
  std::thread thread_;
};

}  // namespace quillon::board
