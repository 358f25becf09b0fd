// The board's sounds' loudness, measured in the background: a few threads at
// background priority (the mix and the window never wait for them) take the
// sounds asked for, look at each file's size and time, and measure those
// never measured or whose file changed since. A file (its part played) is
// measured once however many sounds play it, and a file that cannot be
// measured is not tried again until it changes. `news` is called on a
// measuring thread, at most every 200 ms while results come in and once when
// all asked for are done; the window then takes the results and the progress.
#pragma once

#include "board/Board.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace quillon::board {

class LoudnessMeter {
 public:
  // A sound to measure: its file as a full path, its part, and what the board holds of it.
  struct Ask {
    uint32_t sound = 0;
    std::wstring path;
    uint64_t startMs = 0, endMs = 0;
    std::optional<SoundLoudness> known;
  };
  struct Progress {
    size_t measured = 0;  // files measured (or found unreadable) since the meter was last idle
    size_t total = 0;     // of the files found to need it so far
    bool busy = false;
  };

  LoudnessMeter(std::function<void()> news, unsigned threads);
  // Stops measuring and joins the threads.
  ~LoudnessMeter();
  LoudnessMeter(const LoudnessMeter&) = delete;
  LoudnessMeter& operator=(const LoudnessMeter&) = delete;

  void Measure(const std::vector<Ask>& asks);
  // What was measured since the last call, for Board::SetLoudness.
  std::vector<Board::Measured> Take();
  Progress Now() const;

 private:
  using Key = std::tuple<std::wstring, uint64_t, uint64_t>;  // the file and its part
  // What is known of a file's part: its stamp, and the loudness or why there is none.
  struct Known {
    uint64_t size = 0;
    int64_t modified = 0;
    std::optional<SoundLoudness> loudness;
  };
  void Run();
  void Work(const Key& key, const std::vector<Ask>& asks);
  // Called with the lock held, lets it go while `news_` runs.
  void Tell(std::unique_lock<std::mutex>& hold, bool force);

  std::function<void()> news_;
  mutable std::mutex lock_;
  std::condition_variable wake_;
  std::deque<Key> order_;                   // the files asked for, oldest first
  std::map<Key, std::vector<Ask>> pending_;  // and the sounds that play each
  std::map<Key, Known> known_;
  std::vector<Board::Measured> results_;
  Progress progress_;
  size_t working_ = 0;
  std::chrono::steady_clock::time_point told_{};
  std::atomic<bool> quit_{false};
  std::vector<std::thread> threads_;
};

}  // namespace quillon::board
