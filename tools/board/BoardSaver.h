// Writes the board file on a thread of its own, so that the window never
// waits on the disk: a file another program holds for a moment is tried
// again for about a second, and a folder on a network may answer slowly.
// The window hands over the board's text after each change; a text that
// comes while another is being written waits, and only the newest of those
// waiting is written. `done` is called on the thread after each write.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quillon::board {

class BoardSaver {
 public:
  struct Result {
    bool saved = true;
    std::string error;  // why not
  };

  explicit BoardSaver(std::function<void()> done);
  // Writes what is waiting, then joins the thread.
  ~BoardSaver();
  BoardSaver(const BoardSaver&) = delete;
  BoardSaver& operator=(const BoardSaver&) = delete;

  void Save(std::wstring path, std::string text);
  // The last write's result.
  Result Last() const;
  // Waits until everything handed over is written; the last write's result.
  Result Flush();

 private:
  struct Pending {
    std::wstring path;
    std::string text;
  };
  void Run();

  std::function<void()> done_;
  mutable std::mutex lock_;
  std::condition_variable wake_, written_;
  std::optional<Pending> pending_;
  bool writing_ = false, quit_ = false;
  Result last_;
  std::thread thread_;
};

}  // namespace quillon::board
